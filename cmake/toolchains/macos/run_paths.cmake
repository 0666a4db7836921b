# CMake sets this only where it can ask the running system for its version. Read after what CMake sets for the system.
foreach(kind SHARED_LIBRARY_RUNTIME_C SHARED_LIBRARY_RUNTIME_CXX EXECUTABLE_RUNTIME_CXX)
  set(CMAKE_${kind}_FLAG "-Wl,-rpath,")
endforeach()
