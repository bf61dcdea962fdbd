# ARM64 Windows with a Clang-based mingw-w64 toolchain (clang, lld, compiler-rt, libc++), whose
# programs are on the PATH under the target's name.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR ARM64)
set(CMAKE_CXX_COMPILER aarch64-w64-mingw32-clang++)
set(CMAKE_RC_COMPILER aarch64-w64-mingw32-windres)
set(CMAKE_OBJCOPY aarch64-w64-mingw32-objcopy)
set(CMAKE_STRIP aarch64-w64-mingw32-strip)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
