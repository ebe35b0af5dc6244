# Gives a program for Windows its manifest: paths of any length, no rights beyond the caller's. Does
# nothing on other hosts.
function(kestrel_windows_program target)
  if(WIN32)
    enable_language(RC)
    set(here ${CMAKE_CURRENT_FUNCTION_LIST_DIR})
    target_sources(${target} PRIVATE ${here}/program.rc)
    set_source_files_properties(${here}/program.rc TARGET_DIRECTORY ${target} PROPERTIES
      OBJECT_DEPENDS ${here}/program.manifest INCLUDE_DIRECTORIES ${here})
  endif()
endfunction()
