# vantrel.exe: one file that runs on a bare Windows, and its symbols in a file of their own.
enable_language(RC)

# How a program for Windows is linked; vantrel.exe and Pellory.exe share it.
add_library(vantrel_windows_program INTERFACE)
if(MSVC)
  target_link_options(vantrel_windows_program INTERFACE
    /DYNAMICBASE /NXCOMPAT /HIGHENTROPYVA /guard:cf /OPT:REF /Brepro)
  if(CMAKE_CXX_COMPILER_ARCHITECTURE_ID STREQUAL x64)
    target_link_options(vantrel_windows_program INTERFACE /CETCOMPAT)
  endif()
else()
  # No time stamp: the same sources give the same file.
  target_link_options(vantrel_windows_program INTERFACE -static -fstack-protector-strong
    -Wl,--gc-sections -Wl,--dynamicbase -Wl,--nxcompat -Wl,--high-entropy-va
    -Wl,--no-insert-timestamp)
endif()

# Fills in the resource's version and USB ids, both from the build.
function(vantrel_add_version_resource target source)
  foreach(id VANTREL_KEYBOARD_VENDOR_ID VANTREL_KEYBOARD_PRODUCT_ID
             VANTREL_KEYBOARD_DFU_PRODUCT_ID)
    math(EXPR number "${${id}}" OUTPUT_FORMAT HEXADECIMAL)
    string(REGEX REPLACE "^0x" "0000" digits "${number}")
    string(REGEX REPLACE "^.*(....)$" "\\1" digits "${digits}")
    string(TOUPPER "${digits}" ${id}_DIGITS)
  endforeach()
  get_filename_component(name ${source} NAME_WLE)
  configure_file(${source} ${CMAKE_CURRENT_BINARY_DIR}/${name} @ONLY)
  target_sources(${target} PRIVATE ${CMAKE_CURRENT_BINARY_DIR}/${name})
endfunction()

# Moves the symbols into PROGRAM.exe.debug (the vendor's linker writes a .pdb of its own) and tells
# the size of what is left.
function(vantrel_split_symbols target)
  if(NOT MSVC)
    set(symbols $<TARGET_FILE:${target}>.debug)
    add_custom_command(TARGET ${target} POST_BUILD VERBATIM
      COMMAND ${CMAKE_OBJCOPY} --only-keep-debug $<TARGET_FILE:${target}> ${symbols}
      COMMAND ${CMAKE_STRIP} --strip-all $<TARGET_FILE:${target}>
      COMMAND ${CMAKE_OBJCOPY} --add-gnu-debuglink=${symbols} $<TARGET_FILE:${target}>)
  endif()
  add_custom_command(TARGET ${target} POST_BUILD VERBATIM
    COMMAND ${CMAKE_COMMAND} -DPROGRAM=$<TARGET_FILE:${target}>
            -P ${PROJECT_SOURCE_DIR}/cmake/print_size.cmake)
endfunction()

# A service needs no console, and as a program of the Windows subsystem it is given none.
add_executable(vantrel WIN32 service/main.cpp platform/windows/record_sizes.cpp)
vantrel_add_version_resource(vantrel ${PROJECT_SOURCE_DIR}/service/vantrel.rc.in)
target_link_libraries(vantrel PRIVATE vantrel_product vantrel_product_options
  vantrel_windows_program advapi32 cfgmgr32 hid userenv winusb)
if(MSVC)
  # The Windows subsystem would have the entry point call WinMain.
  target_link_options(vantrel PRIVATE /ENTRY:mainCRTStartup)
  set_property(TARGET vantrel vantrel_product PROPERTY MSVC_RUNTIME_LIBRARY
               "MultiThreaded$<$<CONFIG:Debug>:Debug>")
endif()
vantrel_split_symbols(vantrel)

# Whether the file is what the documents say; it can be read here though not run.
if(CMAKE_CROSSCOMPILING AND CMAKE_SYSTEM_PROCESSOR STREQUAL AMD64)
  enable_testing()
  add_test(NAME CheckExecutable
           COMMAND ${PROJECT_SOURCE_DIR}/tests/packaging/test-check-executable ${CMAKE_BINARY_DIR})
endif()
