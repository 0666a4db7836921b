# Target header_self_sufficiency: compiles every header on its own.
file(GLOB_RECURSE tks_headers RELATIVE ${PROJECT_SOURCE_DIR} CONFIGURE_DEPENDS
     include/*.h foundation/*.h formats/*.h platform/*.h codesign/*.h messaging/*.h install/*.h interface/*.h c/*.h)
# Adapters need the header of the loop that they are for; the examples compile each of them.
list(FILTER tks_headers EXCLUDE REGEX "^include/tksinterface/loops/")
if(APPLE)
  list(FILTER tks_headers EXCLUDE REGEX "^(platform/linux|formats|codesign)/")
else()
  list(FILTER tks_headers EXCLUDE REGEX "^platform/apple/")
endif()
set(tks_header_sources)
foreach(header IN LISTS tks_headers)
  string(REGEX REPLACE "[/.]" "_" name ${header})
  set(source ${PROJECT_BINARY_DIR}/generated/headers/${name}.cpp)
  string(REGEX REPLACE "^include/" "" included ${header})
  file(CONFIGURE OUTPUT ${source} CONTENT "#include \"${included}\"\n#include \"${included}\"\n")
  list(APPEND tks_header_sources ${source})
endforeach()
add_library(header_self_sufficiency OBJECT EXCLUDE_FROM_ALL ${tks_header_sources})
target_link_libraries(header_self_sufficiency PRIVATE tks_dependencies)
target_include_directories(header_self_sufficiency PRIVATE ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR}
                                                           ${PROJECT_BINARY_DIR}/generated)
