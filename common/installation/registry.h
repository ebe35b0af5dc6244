// The directories inside the installation by what they hold, with overrides by the user.
//
// Paths are interned and need not exist. "Installation" here is the version's "lum" directory if it
// exists, else the version directory.
#ifndef KESTREL_INSTALLATION_REGISTRY_H
#define KESTREL_INSTALLATION_REGISTRY_H

#include <cstdint>

enum RegPathType : int32_t {
    REG_BASE = 0, // the installation itself
    REG_BIN = 1,
    REG_LIB = 2,
    REG_HELP = 3,
    REG_INCLUDE = 4,
    REG_DAT = 5,
    REG_SOURCES = 6,
    REG_RESOURCES = 7,
    REG_DOCS = 8,
    REG_C_INCLUDE = 10, // headers of the C library
};

// The subdirectory of a type under `base`, and under that, for libraries, sources and C headers,
// the C library variant when one is selected. Null for a null base or a type that does not exist.
const char *reg_create_path(const char *base, int32_t type);

// The directory of a type, by its override or in the installation; null if neither is known.
const char *reg_instdir(int32_t type);

// The path of `name` in the directory of a type; `name` itself if it is absolute; null if there is
// no such directory.
const char *reg_mkpath(int32_t type, const char *name);

// Overrides the directory that holds the subdirectory of a type ("bin", "lib", "include", "dat" or
// "sources"); null takes the override back. 0, and nothing changes, if `path` is not a directory or
// the type has no override; else 1.
int reg_set_path(int32_t type, const char *path);

// The subdirectory of the C library variant; null for none.
void reg_set_c_stdlib(const char *name);
const char *reg_get_c_stdlib();

#endif
