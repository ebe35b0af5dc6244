# Defines kestrel_miniz, for what calls miniz. It stands for the installed library, miniz::miniz, or
# for one that becomes a part of the runtime, from the sources that scripts/fetch-miniz downloads.
# For the directories that come later, KESTREL_MINIZ_PACKAGE is the type of an installed library, or
# empty, and KESTREL_MINIZ_NOTICES is where scripts/notices finds the terms of a static one.
if(NOT TARGET miniz::miniz)
  find_package(miniz CONFIG QUIET)
endif()
add_library(kestrel_miniz INTERFACE)
if(TARGET miniz::miniz) # the header may be in a directory of its own
  get_target_property(type miniz::miniz TYPE)
  set(KESTREL_MINIZ_PACKAGE ${type} PARENT_SCOPE)
  set(KESTREL_MINIZ_NOTICES "" PARENT_SCOPE)
  if(PROJECT_IS_TOP_LEVEL AND NOT type STREQUAL "SHARED_LIBRARY")
    get_target_property(location miniz::miniz LOCATION)
    set(KESTREL_MINIZ_NOTICES ${location} PARENT_SCOPE)
  endif()
  get_target_property(imported miniz::miniz IMPORTED)
  if(imported)
    get_target_property(miniz_directories miniz::miniz INTERFACE_INCLUDE_DIRECTORIES)
    find_path(KESTREL_MINIZ_INCLUDE miniz.h HINTS ${miniz_directories} PATH_SUFFIXES miniz REQUIRED)
    target_include_directories(kestrel_miniz SYSTEM INTERFACE ${KESTREL_MINIZ_INCLUDE})
  else() # a part of the project that this is a part of
    target_link_libraries(kestrel_miniz INTERFACE miniz::miniz)
  endif()
  target_link_libraries(kestrel_runtime PRIVATE miniz::miniz)
  return()
endif()

if(NOT "$ENV{XDG_CACHE_HOME}" STREQUAL "")
  set(cache $ENV{XDG_CACHE_HOME})
else()
  set(cache $ENV{HOME}/.cache)
endif()
set(KESTREL_MINIZ_SOURCE ${cache}/kestrel/miniz CACHE PATH "Directory with miniz.c and miniz.h")
if(NOT EXISTS ${KESTREL_MINIZ_SOURCE}/miniz.c)
  message(FATAL_ERROR "miniz was not found. Install it (vcpkg, Conan and Homebrew have it), run "
    "scripts/fetch-miniz on Debian, or set KESTREL_MINIZ_SOURCE to the directory of miniz.c.")
endif()
set(KESTREL_MINIZ_PACKAGE "" PARENT_SCOPE)
set(KESTREL_MINIZ_NOTICES ${KESTREL_MINIZ_SOURCE} PARENT_SCOPE)

# A tool on the runtime may have a miniz of its own, so this one's functions get other names: by a
# header that takes the place of the library's and renames them first.
set(miniz_private ${CMAKE_CURRENT_BINARY_DIR}/miniz)
set(miniz_names)
foreach(file miniz.h miniz.c)
  file(READ ${KESTREL_MINIZ_SOURCE}/${file} text)
  string(REGEX MATCHALL "(mz|miniz|tdefl|tinfl)_[A-Za-z0-9_]+[ \n]*\\(" found "${text}")
  list(APPEND miniz_names ${found})
endforeach()
list(TRANSFORM miniz_names REPLACE "[ \n]*\\(" "")
list(REMOVE_DUPLICATES miniz_names)
list(TRANSFORM miniz_names REPLACE "(.+)" "#define \\1 kestrel_\\1\n")
string(JOIN "" miniz_names ${miniz_names})
file(CONFIGURE OUTPUT ${miniz_private}/miniz.h @ONLY CONTENT
  "@miniz_names@#include \"@KESTREL_MINIZ_SOURCE@/miniz.h\"\n")
file(CONFIGURE OUTPUT ${miniz_private}/miniz.c @ONLY CONTENT
  "#include \"miniz.h\"\n#include \"@KESTREL_MINIZ_SOURCE@/miniz.c\"\n")
target_include_directories(kestrel_miniz SYSTEM INTERFACE ${miniz_private})
set(miniz_map -ffile-prefix-map=${KESTREL_MINIZ_SOURCE}=miniz)
target_compile_options(kestrel_miniz INTERFACE ${miniz_map})

enable_language(C)
add_library(kestrel_miniz_objects OBJECT ${miniz_private}/miniz.c)
target_compile_options(kestrel_miniz_objects PRIVATE -w ${miniz_map})
target_compile_definitions(kestrel_miniz_objects PRIVATE _FILE_OFFSET_BITS=64)
target_link_libraries(kestrel_miniz_objects PRIVATE kestrel_protections)
target_sources(kestrel_runtime PRIVATE $<TARGET_OBJECTS:kestrel_miniz_objects>)
