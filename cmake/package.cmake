# Packages of the program: for Linux a .deb and a .tar.gz, for Windows a .zip. scripts/package makes
# and tries them.
set(KESTREL_MAINTAINER "" CACHE STRING "Who answers for the .deb: name <address>")
set(maintainer ${KESTREL_MAINTAINER})
if(NOT maintainer AND NOT "$ENV{DEBEMAIL}" STREQUAL "")
  set(maintainer "$ENV{DEBFULLNAME} <$ENV{DEBEMAIL}>")
elseif(NOT maintainer)
  set(maintainer "kestrel <maintainer@kestrel.invalid>")
endif()

set(CPACK_PACKAGE_NAME kestrel)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_VENDOR "")
set(CPACK_PACKAGE_CONTACT ${maintainer})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "checks that an installed compiler toolchain is unchanged")
set(CPACK_PACKAGE_DESCRIPTION "\
kestrel writes a manifest with the SHA-256 digest of every file of an
installed compiler toolchain, and checks the files against it, with all
processors. Manifests can be checked on Linux and on Windows, whichever
they were written on. Changed, missing and additional files are told
apart, and a check that was not complete never passes.")
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/packages)
set(CPACK_INSTALL_CMAKE_PROJECTS "${CMAKE_BINARY_DIR};kestrel;program;/")
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE
  GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_STRIP_FILES ON)
set(CPACK_VERBATIM_VARIABLES ON)

set(processor ${CMAKE_SYSTEM_PROCESSOR})
string(TOLOWER ${CMAKE_SYSTEM_NAME} system)
set(CPACK_PACKAGE_FILE_NAME kestrel-${PROJECT_VERSION}-${system}-${processor})
if(WIN32)
  set(CPACK_GENERATOR ZIP)
elseif(CMAKE_CROSSCOMPILING) # dpkg would name this machine's architecture
  set(CPACK_GENERATOR TGZ)
else()
  set(CPACK_GENERATOR DEB TGZ)
endif()

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
if(NOT KESTREL_STATIC)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
endif()

# For the scripts that complete what was installed, and put a package into order.
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/package-contents.cmake)
set(CPACK_POST_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/package-order.cmake)
set(CPACK_KESTREL_SOURCE ${PROJECT_SOURCE_DIR})
set(CPACK_KESTREL_COMPILER ${CMAKE_CXX_COMPILER})
set(CPACK_KESTREL_MINIZ ${KESTREL_MINIZ_NOTICES})
set(CPACK_KESTREL_STATIC ${KESTREL_STATIC})
include(CPack)
