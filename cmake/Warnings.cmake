add_compile_options(-Wall -Wextra -Wpedantic -Wconversion -Wshadow)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # GCC 12 takes joined strings for overlapping copies (its bugs 105329 and 105651).
  add_compile_options(-Wno-restrict)
endif()
if(TKS_WARNINGS_AS_ERRORS)
  add_compile_options(-Werror)
endif()
