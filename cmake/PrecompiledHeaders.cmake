# tks_precompile_headers(TARGET <header>...): reads these headers once for all sources of a target, when TKS_PRECOMPILE asks for
# it. It is off for users, whose build then shows that each source includes what it needs.
function(tks_precompile_headers target)
  if(NOT TKS_PRECOMPILE OR APPLE)
    return()
  endif()
  target_precompile_headers(${target} PRIVATE ${ARGN})
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    # Warnings that GCC 12 keeps to itself in headers of the system come through from a precompiled one.
    target_compile_options(${target} PRIVATE -Wno-array-bounds -Wno-stringop-overflow -Wno-stringop-overread)
  endif()
endfunction()
