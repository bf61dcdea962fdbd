# How every part of the tree is compiled. Warnings are errors with every compiler.

add_library(vantrel_options INTERFACE)
target_include_directories(vantrel_options INTERFACE ${PROJECT_SOURCE_DIR})
if(MSVC)
  target_compile_options(vantrel_options INTERFACE /W4 /WX /permissive- /utf-8 /Zc:__cplusplus)
  # The standard library's own fopen and strncpy are meant where they stand.
  target_compile_definitions(vantrel_options INTERFACE _CRT_SECURE_NO_WARNINGS)
else()
  target_compile_options(vantrel_options INTERFACE -Wall -Wextra -Werror -Wshadow -Wnon-virtual-dtor
    # GCC 12 sees overlapping copies in its own std::string at -O3.
    $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>)
  # GCC looks for memory to free long before it is short of it: a tenth of a build. A file
  # may take half a gigabyte in return.
  target_compile_options(vantrel_options INTERFACE
    $<$<CXX_COMPILER_ID:GNU>:--param=ggc-min-heapsize=500000>)
endif()
if(VANTREL_SANITIZE)
  target_compile_options(vantrel_options INTERFACE -fsanitize=${VANTREL_SANITIZE}
                         -fno-sanitize-recover=all -fno-omit-frame-pointer)
  if(VANTREL_SANITIZE MATCHES undefined)
    # The product is built without type information; objects cross between it and what has some.
    target_compile_options(vantrel_options INTERFACE -fno-sanitize=vptr)
  endif()
  target_link_options(vantrel_options INTERFACE -fsanitize=${VANTREL_SANITIZE})
endif()
if(NOT WIN32 AND NOT VANTREL_SANITIZE)
  # What nobody calls is left out of the programs: so cmake/check-unused finds it.
  target_compile_options(vantrel_options INTERFACE -ffunction-sections)
  target_link_options(vantrel_options INTERFACE -Wl,--gc-sections)
endif()
if(NOT MSVC)
  # For what stands around the service: more than this makes a soak a fiftieth faster and its building
  # a third slower.
  set(VANTREL_QUICK_BUILD $<$<NOT:$<CONFIG:Debug>>:-O1>)
endif()
if(VANTREL_COVERAGE)
  target_compile_options(vantrel_options INTERFACE --coverage -fprofile-update=atomic)
  target_link_options(vantrel_options INTERFACE --coverage)
endif()

# Where the Windows names come from: the Windows headers of the toolchain, or the platform layer's.
# <binary_file.h>, which Windows does not have, stands in platform/windows for every toolchain there;
# platform/mingw adds the few declarations that mingw-w64's headers lack and the SDK's have.
add_library(vantrel_seam INTERFACE)
target_link_libraries(vantrel_seam INTERFACE vantrel_options)
target_compile_definitions(vantrel_seam INTERFACE
  VANTREL_KEYBOARD_VENDOR_ID=${VANTREL_KEYBOARD_VENDOR_ID}
  VANTREL_KEYBOARD_PRODUCT_ID=${VANTREL_KEYBOARD_PRODUCT_ID})
if(WIN32)
  target_include_directories(vantrel_seam BEFORE INTERFACE ${PROJECT_SOURCE_DIR}/platform/windows)
  if(MINGW)
    target_include_directories(vantrel_seam BEFORE INTERFACE ${PROJECT_SOURCE_DIR}/platform/mingw)
  endif()
  target_compile_definitions(vantrel_seam INTERFACE
    UNICODE _UNICODE _WIN32_WINNT=0x0A00 WINVER=0x0A00)
else()
  target_include_directories(vantrel_seam BEFORE INTERFACE ${PROJECT_SOURCE_DIR}/platform/include)
endif()

# Nothing in the service waits for the processor, so what counts is that it is small. A section for
# each function, for the linker to leave out, makes more of GCC's unwind tables than it saves.
if(MINGW)
  target_compile_options(vantrel_options INTERFACE $<$<NOT:$<CONFIG:Debug>>:-Os>
    $<$<CXX_COMPILER_ID:Clang>:-ffunction-sections> $<$<CXX_COMPILER_ID:Clang>:-fdata-sections>)
endif()

# A release can be built again: nothing in it, its symbols included, tells where it was built. The
# program's link to its symbols carries their checksum, so these count too.
if(MINGW)
  target_compile_options(vantrel_options INTERFACE
    -ffile-prefix-map=${PROJECT_BINARY_DIR}=build -ffile-prefix-map=${PROJECT_SOURCE_DIR}=.)
  if(CMAKE_SYSROOT)
    target_compile_options(vantrel_options INTERFACE -ffile-prefix-map=${CMAKE_SYSROOT}=toolchain)
  endif()
endif()

# The product's own: no exceptions, no run-time types.
add_library(vantrel_product_options INTERFACE)
if(MSVC)
  target_compile_options(vantrel_product_options INTERFACE /EHs-c- /GR- /wd4100)
  target_compile_definitions(vantrel_product_options INTERFACE _HAS_EXCEPTIONS=0)
else()
  target_compile_options(vantrel_product_options INTERFACE
    -fno-exceptions -fno-rtti -Wconversion -Wno-unused-parameter
    # The process ends with threads at work: nothing may be torn down under them.
    $<$<CXX_COMPILER_ID:Clang>:-Wexit-time-destructors>)
endif()

# What the toolchain offers against a smashed stack, an overrun buffer and a diverted call.
# docs/windows.md tells what each is worth on Windows.
if(MSVC)
  target_compile_options(vantrel_product_options INTERFACE /GS /guard:cf)
elseif(MINGW)
  target_compile_options(vantrel_product_options INTERFACE -fstack-protector-strong)
  if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
    target_compile_options(vantrel_product_options INTERFACE -fcf-protection=full)
    # What it has called stands in libssp, which comes with GCC alone.
    target_compile_definitions(vantrel_product_options INTERFACE
      $<$<NOT:$<CONFIG:Debug>>:_FORTIFY_SOURCE=2>)
  else()
    # Control Flow Guard; the driver of this age hands the option to the compiler only.
    target_compile_options(vantrel_product_options INTERFACE "SHELL:-Xclang -cfguard")
    # The C library's printf, in place of Windows': as GCC's C++ headers have it by themselves.
    target_compile_definitions(vantrel_product_options INTERFACE __USE_MINGW_ANSI_STDIO=1)
  endif()
endif()
