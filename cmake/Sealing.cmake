# Signatures on macOS. Apple silicon loads no unsigned code: whatever is linked is signed ad hoc, both halves of it. A bundle is
# sealed as a whole besides, as its layout and resources would be open to change otherwise. Whoever delivers signs again.
#   TKS_SEAL_COMMAND   what signs a bundle, its path added: on a Mac the system's tool, ad hoc; empty: bundles are not sealed
if(APPLE AND PROJECT_IS_TOP_LEVEL)
  add_link_options(LINKER:-adhoc_codesign)
  set(tks_seal_command "")
  if(CMAKE_HOST_APPLE)
    set(tks_seal_command /usr/bin/codesign --force --sign -)
  endif()
  set(TKS_SEAL_COMMAND "${tks_seal_command}" CACHE STRING "Command that signs a bundle ad hoc, its path added")
endif()

# tks_seal(TARGET BUNDLE): seals a bundle once the target is built; what was added to it by then is sealed as well.
function(tks_seal target bundle)
  if(APPLE AND TKS_SEAL_COMMAND)
    add_custom_command(TARGET ${target} POST_BUILD VERBATIM COMMAND ${TKS_SEAL_COMMAND} "${bundle}")
  endif()
endfunction()
