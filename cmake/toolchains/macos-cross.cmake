# Cross-compiles for macOS from Linux with clang and lld.
#
#   cmake -S . -B build/macos -G Ninja --toolchain cmake/toolchains/macos-cross.cmake -DTKS_MACOS_SDK=FOLDER
#
# TKS_MACOS_SDK names a macOS SDK: either one as Xcode lays it out (usr/include, System/Library/Frameworks), or a folder with
# include/, lib/ and Frameworks/. TKS_MACOS_LLVM is the suffix of the LLVM tools to use (default: 19).
# Where the SDK has no stubs of libSystem and libc++, their symbols are left to be found at load time.
set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_VERSION 20)

set(TKS_MACOS_SDK "$ENV{TKS_MACOS_SDK}" CACHE PATH "Folder of the macOS SDK")
set(TKS_MACOS_LLVM "19" CACHE STRING "Version suffix of clang, lld and the LLVM tools")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES TKS_MACOS_SDK TKS_MACOS_LLVM)
if(NOT IS_DIRECTORY "${TKS_MACOS_SDK}")
  message(FATAL_ERROR "TKS_MACOS_SDK names no folder: '${TKS_MACOS_SDK}'")
endif()

set(tks_sdk "${TKS_MACOS_SDK}")
set(tks_staging "${CMAKE_BINARY_DIR}/macos-cross")
if(NOT EXISTS "${tks_sdk}/System/Library/Frameworks")
  # Lay the folders out as the compiler expects them.
  set(tks_sdk "${tks_staging}/sdk")
  file(MAKE_DIRECTORY "${tks_sdk}/usr" "${tks_sdk}/System/Library")
  file(CREATE_LINK "${TKS_MACOS_SDK}/include" "${tks_sdk}/usr/include" SYMBOLIC)
  file(CREATE_LINK "${TKS_MACOS_SDK}/lib" "${tks_sdk}/usr/lib" SYMBOLIC)
  file(CREATE_LINK "${TKS_MACOS_SDK}/Frameworks" "${tks_sdk}/System/Library/Frameworks" SYMBOLIC)
endif()
set(CMAKE_OSX_SYSROOT "${tks_sdk}" CACHE PATH "" FORCE)
set(CMAKE_OSX_DEPLOYMENT_TARGET "11.0" CACHE STRING "")
set(CMAKE_OSX_ARCHITECTURES "arm64;x86_64" CACHE STRING "")

find_program(TKS_CLANG NAMES clang++-${TKS_MACOS_LLVM} REQUIRED)
find_program(TKS_CLANG_C NAMES clang-${TKS_MACOS_LLVM} REQUIRED)
foreach(tool ar ranlib nm strip install-name-tool lipo libtool-darwin otool)
  string(TOUPPER ${tool} name)
  string(REPLACE "-" "_" name ${name})
  find_program(TKS_LLVM_${name} NAMES llvm-${tool}-${TKS_MACOS_LLVM} REQUIRED)
endforeach()
# The compiler driver looks for lipo under its own name.
file(MAKE_DIRECTORY "${tks_staging}/bin")
file(CREATE_LINK "${TKS_LLVM_LIPO}" "${tks_staging}/bin/lipo" SYMBOLIC)

foreach(language C CXX OBJC OBJCXX)
  set(CMAKE_${language}_COMPILER_TARGET arm64-apple-macos11)
  set(CMAKE_${language}_FLAGS_INIT "-B${tks_staging}/bin")
endforeach()
set(CMAKE_C_COMPILER ${TKS_CLANG_C})
set(CMAKE_CXX_COMPILER ${TKS_CLANG})
set(CMAKE_OBJC_COMPILER ${TKS_CLANG_C})
set(CMAKE_OBJCXX_COMPILER ${TKS_CLANG})
set(CMAKE_AR ${TKS_LLVM_AR} CACHE FILEPATH "")
set(CMAKE_RANLIB ${TKS_LLVM_RANLIB} CACHE FILEPATH "")
set(CMAKE_NM ${TKS_LLVM_NM} CACHE FILEPATH "")
set(CMAKE_STRIP ${TKS_LLVM_STRIP} CACHE FILEPATH "")
set(CMAKE_INSTALL_NAME_TOOL ${TKS_LLVM_INSTALL_NAME_TOOL} CACHE FILEPATH "")

set(tks_link "-fuse-ld=lld")
if(NOT EXISTS "${tks_sdk}/usr/lib/libSystem.tbd")
  string(APPEND tks_link " -nostdlib -undefined dynamic_lookup")
endif()
foreach(kind EXE SHARED MODULE)
  set(CMAKE_${kind}_LINKER_FLAGS_INIT "${tks_link}")
endforeach()
set(CMAKE_FIND_ROOT_PATH "${tks_sdk}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
