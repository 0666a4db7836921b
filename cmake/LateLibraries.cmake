# Libraries that are opened on first use are named by the file that a program linked with them would load.

# tks_file_to_load(VARIABLE LIBRARY): the SONAME of a shared library, for example libcurl.so.4.
function(tks_file_to_load variable library)
  execute_process(COMMAND ${CMAKE_OBJDUMP} -p ${library} OUTPUT_VARIABLE headers ERROR_QUIET)
  if(NOT headers MATCHES "SONAME +([^ \n]+)")
    message(FATAL_ERROR "${library} is no shared library with a SONAME: it is opened at run time and cannot be static.")
  endif()
  set(${variable} ${CMAKE_MATCH_1} PARENT_SCOPE)
endfunction()
