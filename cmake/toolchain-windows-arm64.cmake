# ARM64 Windows with Debian's Clang and lld, and the libraries that make-arm64-toolchain builds.
execute_process(COMMAND ${CMAKE_CURRENT_LIST_DIR}/make-arm64-toolchain
                OUTPUT_VARIABLE VANTREL_ARM64_TOOLCHAIN OUTPUT_STRIP_TRAILING_WHITESPACE
                RESULT_VARIABLE failed)
if(failed)
  message(FATAL_ERROR "The ARM64 toolchain could not be made.")
endif()

set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR ARM64)
set(CMAKE_SYSROOT ${VANTREL_ARM64_TOOLCHAIN})
set(CMAKE_CXX_COMPILER clang++-14)
set(CMAKE_CXX_COMPILER_TARGET aarch64-w64-mingw32)
set(CMAKE_CXX_FLAGS_INIT
  "-stdlib=libc++ -resource-dir=${VANTREL_ARM64_TOOLCHAIN}/lib/clang/14.0.6")
foreach(kind EXE SHARED)
  set(CMAKE_${kind}_LINKER_FLAGS_INIT "-fuse-ld=lld -rtlib=compiler-rt -unwindlib=none")
endforeach()
foreach(tool ar ranlib objcopy strip)
  string(TOUPPER CMAKE_${tool} variable)
  set(${variable} /usr/lib/llvm-14/bin/llvm-${tool})
endforeach()
set(CMAKE_RC_COMPILER /usr/lib/llvm-14/bin/llvm-windres)
set(CMAKE_RC_FLAGS_INIT
  "--target=aarch64-w64-mingw32 -I ${VANTREL_ARM64_TOOLCHAIN}/include")
set(CMAKE_FIND_ROOT_PATH ${VANTREL_ARM64_TOOLCHAIN})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)

set(VANTREL_NOTICES "")
foreach(part mingw-w64 compiler-rt libcxx libcxxabi)
  list(APPEND VANTREL_NOTICES ${part}=${VANTREL_ARM64_TOOLCHAIN}/notices/${part}.txt)
endforeach()
