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
  target_link_options(vantrel_windows_program INTERFACE -static
    -Wl,--gc-sections -Wl,--dynamicbase -Wl,--nxcompat -Wl,--high-entropy-va
    -Wl,--no-insert-timestamp)
  if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
    target_link_options(vantrel_windows_program INTERFACE -fstack-protector-strong)
  else()
    target_link_options(vantrel_windows_program INTERFACE -Wl,-Xlink=-guard:cf)
    target_sources(vantrel_windows_program INTERFACE
      ${PROJECT_SOURCE_DIR}/platform/windows/control_flow_guard.cpp
      ${PROJECT_SOURCE_DIR}/platform/windows/stack_guard.cpp)
  endif()
endif()

# Fills in the resource's version and the maker's values, all from the build.
function(vantrel_add_version_resource target source)
  get_filename_component(name ${source} NAME_WLE)
  configure_file(${source} ${CMAKE_CURRENT_BINARY_DIR}/${name} @ONLY)
  target_sources(${target} PRIVATE ${CMAKE_CURRENT_BINARY_DIR}/${name})
endfunction()

# Moves the symbols into PROGRAM.exe.debug (the vendor's linker writes a .pdb of its own) and tells
# the size of what is left.
function(vantrel_split_symbols target)
  if(NOT MSVC)
    set(symbols $<TARGET_FILE:${target}>.debug)
    # GNU's tools write the hour into the header unless they are to preserve what is there; LLVM's
    # leave it alone and know no such option.
    set(keep $<$<CXX_COMPILER_ID:GNU>:-p>)
    add_custom_command(TARGET ${target} POST_BUILD VERBATIM COMMAND_EXPAND_LISTS
      COMMAND ${CMAKE_OBJCOPY} ${keep} --only-keep-debug $<TARGET_FILE:${target}> ${symbols}
      COMMAND ${CMAKE_STRIP} ${keep} --strip-all $<TARGET_FILE:${target}>
      COMMAND ${CMAKE_OBJCOPY} ${keep} --add-gnu-debuglink=${symbols} $<TARGET_FILE:${target}>)
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
if(CMAKE_CROSSCOMPILING)
  enable_testing()
  add_test(NAME CheckExecutable
           COMMAND ${PROJECT_SOURCE_DIR}/tests/packaging/test-check-executable ${CMAKE_BINARY_DIR})
endif()

# What is linked in asks that its notices go out with it; packaging/make-package takes them from here.
file(REMOVE_RECURSE ${CMAKE_BINARY_DIR}/notices)
foreach(notice ${VANTREL_NOTICES})
  string(REGEX MATCH "^([^=]*)=(.*)$" notice ${notice})
  configure_file(${CMAKE_MATCH_2} ${CMAKE_BINARY_DIR}/notices/${CMAKE_MATCH_1}.txt COPYONLY)
endforeach()
