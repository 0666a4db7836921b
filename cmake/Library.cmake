# The library's targets, all from the same objects:
#   tksinterface::tksinterface   what hosts link: shared, unless BUILD_SHARED_LIBS is off
#   tksinterface::static         the static library; the same one where BUILD_SHARED_LIBS is off
#   tks_internal                 static, for the project's own tools, tests and benchmarks, which also look inside
set(tks_kind SHARED)
if(DEFINED BUILD_SHARED_LIBS AND NOT BUILD_SHARED_LIBS)
  set(tks_kind STATIC)
  if(TKS_BUILD_TESTS OR TKS_BUILD_EXAMPLES)
    message(FATAL_ERROR "Tests and examples need the shared library: set BUILD_SHARED_LIBS to ON, or TKS_BUILD_TESTS and "
                        "TKS_BUILD_EXAMPLES to OFF")
  endif()
endif()

# tks_describe_library(TARGET): what all who link it need.
function(tks_describe_library target)
  target_include_directories(${target} PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>)
  get_target_property(kind ${target} TYPE)
  # An installed framework has its headers in it, and is found as a whole.
  if(NOT APPLE OR kind STREQUAL "STATIC_LIBRARY")
    target_include_directories(${target} PUBLIC $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  endif()
  target_compile_features(${target} PUBLIC cxx_std_20)
  target_link_libraries(${target} PRIVATE tks_dependencies)
endfunction()

add_library(tksinterface ${tks_kind} $<TARGET_OBJECTS:tks_objects>)
add_library(tksinterface::tksinterface ALIAS tksinterface)
tks_describe_library(tksinterface)
if(tks_kind STREQUAL "SHARED")
  include(SharedLibrary)
  add_library(tksinterface_static STATIC $<TARGET_OBJECTS:tks_objects>)
  set_target_properties(tksinterface_static PROPERTIES OUTPUT_NAME tksinterface EXPORT_NAME static)
  tks_describe_library(tksinterface_static)
  add_library(tksinterface::static ALIAS tksinterface_static)
  # Installed where the platform has it; elsewhere only whoever links it builds it.
  if(APPLE OR NOT TKS_INSTALL)
    set_target_properties(tksinterface_static PROPERTIES EXCLUDE_FROM_ALL ON)
  endif()
else()
  add_library(tksinterface::static ALIAS tksinterface)
endif()

add_library(tks_internal STATIC EXCLUDE_FROM_ALL $<TARGET_OBJECTS:tks_objects>)
target_include_directories(tks_internal PUBLIC ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR}
                                               ${PROJECT_BINARY_DIR}/generated)
target_link_libraries(tks_internal PUBLIC tks_dependencies)
