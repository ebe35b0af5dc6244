# Makes UTF-8 the narrow code page of a program for Windows, so that it can open files of any name.
# Does nothing on other hosts.
function(kestrel_windows_program target)
  if(WIN32)
    enable_language(RC)
    set(here ${CMAKE_CURRENT_FUNCTION_LIST_DIR})
    target_sources(${target} PRIVATE ${here}/utf8.rc)
    set_source_files_properties(${here}/utf8.rc TARGET_DIRECTORY ${target} PROPERTIES
      OBJECT_DEPENDS ${here}/utf8.manifest INCLUDE_DIRECTORIES ${here})
  endif()
endfunction()
