if(TKS_SANITIZE)
  set(tks_sanitizer_options -fsanitize=${TKS_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_compile_options(${tks_sanitizer_options})
  add_link_options(-fsanitize=${TKS_SANITIZE})
endif()

# tks_without_sanitizers(): the targets of this folder and those below are linked with the sanitizers' runtime, but their own
# code is compiled without them.
function(tks_without_sanitizers)
  get_directory_property(options COMPILE_OPTIONS)
  list(REMOVE_ITEM options ${tks_sanitizer_options})
  set_directory_properties(PROPERTIES COMPILE_OPTIONS "${options}")
endfunction()
