# compile_by_folder(TARGET): the target's files are compiled one folder at a time, which takes half
# the time of one file at a time. Switch it off while working on few files.
option(VANTREL_COMPILE_BY_FOLDER "Compile the files of a folder together" ON)

function(compile_by_folder target)
  if(NOT VANTREL_COMPILE_BY_FOLDER)
    return()
  endif()
  set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_MODE GROUP)
  get_target_property(files ${target} SOURCES)
  foreach(file ${files})
    get_filename_component(folder "${file}" ABSOLUTE)
    get_filename_component(folder "${folder}" DIRECTORY)
    get_filename_component(folder "${folder}" NAME)
    set_source_files_properties("${file}" PROPERTIES UNITY_GROUP "${folder}")
  endforeach()
endfunction()
