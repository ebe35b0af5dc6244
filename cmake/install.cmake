# What `cmake --install` installs: the component "program" (the program, its manual page, completion
# and documents) and the component "runtime" (the library, its headers and documents, for other
# tools).
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)
set(documents ${CMAKE_INSTALL_DATAROOTDIR}/doc/kestrel)
if(PROJECT_IS_TOP_LEVEL)
  set(documents ${CMAKE_INSTALL_DOCDIR})
endif()

install(TARGETS kestrel RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT program)
if(WIN32)
  install(PROGRAMS scripts/windows-check.cmd DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT program)
endif()
install(FILES docs/kestrel.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT program)
install(FILES kestrel/kestrel.bash RENAME kestrel COMPONENT program
  DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
# The documents refer to each other, so all of them are there, in the same places.
file(GLOB pages CONFIGURE_DEPENDS docs/*.md docs/*.svg)
foreach(component program runtime)
  install(FILES README.md CHANGELOG.md CONTRIBUTING.md DESTINATION ${documents}
    COMPONENT ${component})
  install(FILES ${pages} DESTINATION ${documents}/docs COMPONENT ${component})
endforeach()
install(DIRECTORY examples/fleet DESTINATION ${documents}/examples COMPONENT program
  USE_SOURCE_PERMISSIONS PATTERN test EXCLUDE)

set(package ${CMAKE_INSTALL_LIBDIR}/cmake/kestrel-runtime)
install(TARGETS kestrel_runtime EXPORT kestrel-runtime
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kestrel-runtime)
install(EXPORT kestrel-runtime FILE kestrel-runtime-targets.cmake NAMESPACE kestrel::
  DESTINATION ${package} COMPONENT runtime)
install(DIRECTORY common/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kestrel-runtime COMPONENT runtime
  FILES_MATCHING PATTERN *.h
  # What only one module uses.
  PATTERN windows EXCLUDE PATTERN alert_internal.h EXCLUDE PATTERN blockhash.h EXCLUDE
  PATTERN sha256_kernel.h EXCLUDE PATTERN "sha256_lanes*.h" EXCLUDE)
install(DIRECTORY examples/tool DESTINATION ${documents}/examples COMPONENT runtime)
install(DIRECTORY common/host/windows DESTINATION ${package} COMPONENT runtime)
configure_file(cmake/kestrel-runtime-config.cmake.in kestrel-runtime-config.cmake @ONLY)
write_basic_package_version_file(kestrel-runtime-config-version.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/kestrel-runtime-config.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/kestrel-runtime-config-version.cmake
  DESTINATION ${package} COMPONENT runtime)
