if(TKS_SANITIZE)
  add_compile_options(-fsanitize=${TKS_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${TKS_SANITIZE})
endif()
