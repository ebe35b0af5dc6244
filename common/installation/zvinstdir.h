// The installation that the program belongs to, worked out from the program's own path:
//
//     <installation>/<version>/bin/program
//     <installation>/<version>/lum/bin/program
//     <installation>/<version>/lum-as/bin/program
//
// where the version directory holds a directory "lum". Failures are results; only the debug log
// says why. Strings returned are interned, or the caller's own from zvinstdir_set().
#ifndef KESTREL_INSTALLATION_ZVINSTDIR_H
#define KESTREL_INSTALLATION_ZVINSTDIR_H

#include <cstdint>

enum : int32_t {
    ZVINSTDIR_INSTALL = 0,
    ZVINSTDIR_VERSION = 1,
    ZVINSTDIR_BIN = 2,
    ZVINSTDIR_DOCS = 3,
    ZVINSTDIR_INCLUDE = 4,
    ZVINSTDIR_ETC = 5,
    ZVINSTDIR_LUM = 6,
    ZVINSTDIR_KIV = 7,
    ZVINSTDIR_VELASM = 8,
    ZVINSTDIR_LUMAS = 9,
    ZVINSTDIR_LAST = 10, // one past the last kind
    ZVINSTDIR_FIRST = ZVINSTDIR_INSTALL,
};

// The version directory and the installation directory, which holds it; null while not known.
extern const char *zvinstall_ver;
extern const char *zvinstall_dir;

// The directory of `program`, without dots and separators at its end; null if it has none.
const char *zvinstall_program_dir(const char *program);

struct InstallPaths {
    const char *version;
    const char *install;
};

// Finds the two directories for a program at `program`. On failure `paths` stays as it was, and the
// reason goes to `failure` unless it is in the debug log already.
bool zvinstall_locate(const char *program, InstallPaths *paths, const char **failure);

// Works out both directories, until that has succeeded once: 1 if they are known, else 0.
int set_zvinstall_paths();

// Makes `path`, which must live on, the version directory: 0, or 1 on failure. When `path` has no
// parent that exists it becomes the version directory all the same, and the installation directory
// stays as it was.
int zvinstdir_set(const char *path);

// The directory of a kind; null if the installation is not known, or for other kinds.
const char *zvinstdir(int32_t path);

#endif
