# Run by CPack, which has installed the program in CPACK_TEMPORARY_DIRECTORY: adds the notices, and
# brings the documents into the form that the kind of package asks for.
cmake_minimum_required(VERSION 3.25)
set(source ${CPACK_KESTREL_SOURCE})
set(root ${CPACK_TEMPORARY_DIRECTORY})
if(CPACK_GENERATOR STREQUAL "DEB")
  string(APPEND root /usr)
endif()
set(documents ${root}/share/doc/kestrel)

# run(<output variable> <command...>)
function(run result)
  execute_process(COMMAND ${ARGN} OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)
  set(${result} "${output}" PARENT_SCOPE)
endfunction()

# --- Licences

set(linked static)
if(NOT CPACK_KESTREL_STATIC)
  set(linked shared)
endif()
set(full full)
if(CPACK_GENERATOR STREQUAL "DEB")
  set(full "")
endif()
run(notices ${source}/scripts/notices ${CPACK_KESTREL_COMPILER} ${linked}
  "${CPACK_KESTREL_MINIZ}" ${full})
if(EXISTS ${source}/LICENSE)
  file(READ ${source}/LICENSE licence)
else()
  set(licence "\
No licence has been chosen for kestrel by its owner. Ask the owner before you
copy it, change it or pass it on.
")
endif()
set(relink "")
if(CPACK_KESTREL_STATIC AND NOT CPACK_GENERATOR STREQUAL "ZIP")
  set(relink "\
Those of the GNU C Library want whoever passes on the program to pass on, or to
offer, what is needed to link it with another version of that library.
")
endif()
file(WRITE ${documents}/copyright "kestrel ${CPACK_PACKAGE_VERSION}\n\n${licence}
The program contains parts of the libraries below. Their terms follow.
${relink}${notices}")

# --- Documents

if(CPACK_GENERATOR STREQUAL "DEB")
  # Debian has its own form of a changelog, and compresses what is long.
  string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
  file(WRITE ${documents}/changelog.Debian "\
kestrel (${CPACK_PACKAGE_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}) unstable; urgency=medium

  * Version ${CPACK_PACKAGE_VERSION}: see changelog.gz.

 -- ${CPACK_PACKAGE_CONTACT}  ${date}\n")
  file(RENAME ${documents}/CHANGELOG.md ${documents}/changelog)
  file(GLOB pages ${documents}/changelog* ${root}/share/man/man1/kestrel.1)
  run(nothing gzip -9n ${pages})
  file(WRITE ${root}/share/lintian/overrides/kestrel "\
# Not a library, but a program without any: one could be among the files to check.
kestrel: shared-library-lacks-prerequisites [usr/bin/kestrel]
# Not meant for Debian's own archive.
kestrel: initial-upload-closes-no-bugs *\n")
elseif(CPACK_GENERATOR STREQUAL "ZIP")
  # Text as Windows has it. The pages refer to each other by name.
  run(manual mandoc -T ascii ${source}/docs/kestrel.1)
  string(ASCII 8 back)
  string(REGEX REPLACE ".${back}" "" manual "${manual}")
  file(WRITE ${documents}/docs/kestrel.md "${manual}")
  file(RENAME ${documents}/copyright ${documents}/COPYRIGHT.md)
  file(GLOB_RECURSE pages ${documents}/*.md)
  foreach(page ${pages})
    file(READ ${page} text)
    string(REGEX REPLACE "\\.md([)#])" ".txt\\1" text "${text}")
    string(REPLACE "\r" "" text "${text}")
    string(REPLACE "\n" "\r\n" text "${text}")
    file(REMOVE ${page})
    string(REGEX REPLACE "\\.md$" ".txt" page ${page})
    file(WRITE ${page} "${text}")
  endforeach()
  file(RENAME ${documents} ${root}/doc)
  file(REMOVE_RECURSE ${root}/share)
endif()

# --- Rights, whatever the umask was when the sources were copied, and is now

run(nothing chmod -R u=rwX,go=rX ${CPACK_TEMPORARY_DIRECTORY})
