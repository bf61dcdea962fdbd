# compile_by_folder(TARGET [APART FILE...] [JOINED FOLDER...]): the target's files are compiled one
# folder at a time, which takes half the time of one file at a time. Those apart are compiled together
# as well, but apart from the rest: a header of the machine or of the keyboard that only one of the two
# reads has only that one compiled again. Small folders that are joined are compiled as one. Switch it
# off while working on few files.
option(VANTREL_COMPILE_BY_FOLDER "Compile the files of a folder together" ON)

function(compile_by_folder target)
  cmake_parse_arguments(PARSE_ARGV 1 by_folder "" "" "APART;JOINED")
  if(NOT VANTREL_COMPILE_BY_FOLDER)
    return()
  endif()
  set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_MODE GROUP)
  get_target_property(files ${target} SOURCES)
  set(paths "")
  foreach(file ${files})
    get_filename_component(path "${file}" ABSOLUTE)
    get_filename_component(folder "${path}" DIRECTORY)
    get_filename_component(folder "${folder}" NAME)
    if("${folder}" IN_LIST by_folder_JOINED)
      set(folder "joined")
    endif()
    if("${file}" IN_LIST by_folder_APART)
      string(APPEND folder "_apart")
    endif()
    set_source_files_properties("${file}" PROPERTIES UNITY_GROUP "${folder}")
    list(APPEND paths "${path}")
  endforeach()

  # Never built: it gives every file an entry of its own in compile_commands.json, for editors.
  add_library(${target}_files OBJECT EXCLUDE_FROM_ALL ${paths})
  target_link_libraries(${target}_files PRIVATE $<TARGET_PROPERTY:${target},LINK_LIBRARIES>)
  target_compile_options(${target}_files PRIVATE $<TARGET_PROPERTY:${target},COMPILE_OPTIONS>)
  target_compile_definitions(${target}_files PRIVATE
    $<TARGET_PROPERTY:${target},COMPILE_DEFINITIONS>)
endfunction()
