# Libraries that are opened on first use are named by the file that a program linked with them would load.

# tks_file_to_load(VARIABLE NAME TARGET FILE): the SONAME of the shared library lib<NAME>, for example libcurl.so.4. FILE is where a find
# module says that it lies. A package with CMake files of its own may say nothing but TARGET, of any kind: then the linker is asked.
function(tks_file_to_load variable name target file)
  if(file)
    execute_process(COMMAND ${CMAKE_OBJDUMP} -p ${file} OUTPUT_VARIABLE headers ERROR_QUIET)
    set(pattern "SONAME +([^ \n]+)")
  else()
    tks_headers_of_a_program_with(headers ${target})
    set(pattern "NEEDED +(lib${name}[^ \n]*)")
  endif()
  if(NOT headers MATCHES "${pattern}")
    message(FATAL_ERROR "${target} ${file} is no shared library with a SONAME: it is opened at run time and cannot be static.")
  endif()
  set(${variable} ${CMAKE_MATCH_1} PARENT_SCOPE)
endfunction()

# tks_headers_of_a_program_with(VARIABLE TARGET): what objdump says of a program that is linked with it.
function(tks_headers_of_a_program_with variable target)
  string(MAKE_C_IDENTIFIER ${target} name)
  set(folder ${CMAKE_CURRENT_BINARY_DIR}/late/${name})
  file(WRITE ${folder}/program.cpp "int main() {}\n")
  set(CMAKE_TRY_COMPILE_CONFIGURATION ${CMAKE_BUILD_TYPE})
  try_compile(tks_is_linked ${folder} ${folder}/program.cpp LINK_OPTIONS LINKER:--no-as-needed LINK_LIBRARIES ${target}
              OUTPUT_VARIABLE said COPY_FILE ${folder}/program)
  if(NOT tks_is_linked)
    message(FATAL_ERROR "No program can be linked with ${target}:\n${said}")
  endif()
  unset(tks_is_linked CACHE)
  execute_process(COMMAND ${CMAKE_OBJDUMP} -p ${folder}/program OUTPUT_VARIABLE headers ERROR_QUIET)
  set(${variable} "${headers}" PARENT_SCOPE)
endfunction()

# tks_folders_of_headers(VARIABLE TARGET FOLDERS): where the headers are: FOLDERS, or what TARGET says where these are not known.
function(tks_folders_of_headers variable target folders)
  if(NOT folders)
    get_target_property(folders ${target} INTERFACE_INCLUDE_DIRECTORIES)
  endif()
  if(NOT folders)
    set(folders "")
  endif()
  set(${variable} "${folders}" PARENT_SCOPE)
endfunction()
