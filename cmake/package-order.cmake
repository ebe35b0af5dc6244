# Run by CPack, which has written a package: writes it again with its files in the order of their
# names. CPack takes them in the order in which the system lists them, writes other times into a
# .zip than those that it was told, and counts the sizes of directories, which differ among file
# systems, in that of a .deb.
cmake_minimum_required(VERSION 3.25)
get_filename_component(directory ${CPACK_TEMPORARY_DIRECTORY} DIRECTORY)
get_filename_component(name ${CPACK_TEMPORARY_DIRECTORY} NAME)
string(TIMESTAMP time "%s" UTC) # SOURCE_DATE_EPOCH, where that is set
set(in_order --sort=name --owner=root:0 --group=root:0 --mtime=@${time})
set(run COMMAND_ERROR_IS_FATAL ANY)
if(CPACK_GENERATOR STREQUAL "TGZ")
  execute_process(COMMAND tar -C ${directory} ${in_order} -cf - ${name} COMMAND gzip -9n
    OUTPUT_FILE ${CPACK_PACKAGE_FILES} ${run})
elseif(CPACK_GENERATOR STREQUAL "ZIP")
  file(GLOB_RECURSE files RELATIVE ${directory} ${CPACK_TEMPORARY_DIRECTORY}/*)
  string(REPLACE ";" "\n" files "${files}")
  file(WRITE ${directory}/files "${files}\n")
  file(REMOVE ${CPACK_PACKAGE_FILES})
  execute_process(COMMAND find ${name} -exec touch -d @${time} {} + WORKING_DIRECTORY ${directory}
    ${run})
  execute_process(COMMAND ${CMAKE_COMMAND} -E env TZ=UTC0 zip -9qX -@ ${CPACK_PACKAGE_FILES}
    INPUT_FILE ${directory}/files WORKING_DIRECTORY ${directory} ${run})
else()
  set(contents ${directory}/contents)
  file(REMOVE_RECURSE ${contents})
  execute_process(COMMAND dpkg-deb --raw-extract ${CPACK_PACKAGE_FILES} ${contents} ${run})
  execute_process(COMMAND ${CMAKE_COMMAND} -E env LC_ALL=C sort -k 2 -o md5sums md5sums
    WORKING_DIRECTORY ${contents}/DEBIAN ${run})
  file(GLOB_RECURSE files ${contents}/usr/*)
  set(size 0)
  foreach(file ${files})
    file(SIZE ${file} bytes)
    math(EXPR size "${size} + (${bytes} + 1023) / 1024")
  endforeach()
  file(READ ${contents}/DEBIAN/control control)
  string(REGEX REPLACE "\nInstalled-Size: [0-9]+" "\nInstalled-Size: ${size}" control "${control}")
  file(WRITE ${contents}/DEBIAN/control "${control}")
  execute_process(COMMAND dpkg-deb --root-owner-group -Zgzip --build ${contents}
    ${CPACK_PACKAGE_FILES} OUTPUT_QUIET ${run})
endif()
