# How every part of the tree is compiled. Warnings are errors with GCC and Clang.

add_library(vantrel_options INTERFACE)
target_include_directories(vantrel_options INTERFACE ${PROJECT_SOURCE_DIR})
target_compile_options(vantrel_options INTERFACE -Wall -Wextra -Werror -Wshadow -Wnon-virtual-dtor)
if(VANTREL_SANITIZE)
  target_compile_options(vantrel_options INTERFACE -fsanitize=${VANTREL_SANITIZE}
                         -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(vantrel_options INTERFACE -fsanitize=${VANTREL_SANITIZE})
endif()
if(VANTREL_COVERAGE)
  target_compile_options(vantrel_options INTERFACE --coverage -fprofile-update=atomic)
  target_link_options(vantrel_options INTERFACE --coverage)
endif()

# Where the Windows names come from: the toolchain's own headers with the few declarations it lacks,
# or the platform layer's.
add_library(vantrel_seam INTERFACE)
target_link_libraries(vantrel_seam INTERFACE vantrel_options)
target_compile_definitions(vantrel_seam INTERFACE
  VANTREL_KEYBOARD_VENDOR_ID=${VANTREL_KEYBOARD_VENDOR_ID}
  VANTREL_KEYBOARD_PRODUCT_ID=${VANTREL_KEYBOARD_PRODUCT_ID})
if(WIN32)
  target_include_directories(vantrel_seam BEFORE INTERFACE ${PROJECT_SOURCE_DIR}/platform/mingw)
  target_compile_definitions(vantrel_seam INTERFACE
    UNICODE _UNICODE _WIN32_WINNT=0x0A00 WINVER=0x0A00)
else()
  target_include_directories(vantrel_seam BEFORE INTERFACE ${PROJECT_SOURCE_DIR}/platform/include)
endif()

add_library(vantrel_product_options INTERFACE)
target_compile_options(vantrel_product_options INTERFACE
  -fno-exceptions -fno-rtti -Wconversion -Wno-unused-parameter)
