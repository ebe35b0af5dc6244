#include "installation/zvinstdir.h"

#include "containers/stringcache.h"
#include "host/trace.h"
#include "platform/osdep.h"

#include <cstring>

const char *zvinstall_ver;
const char *zvinstall_dir;

// The first two only name the kinds; they are never joined to anything.
static constexpr const char *KIND_NAMES[ZVINSTDIR_LAST] = {"qrn", "v*",  "bin", "docs",   "include",
                                                           "etc", "lum", "kiv", "velasm", "lum-as"};

static bool has_basename(const char *path) {
    const char *name = os_basename(path);
    return name && *name;
}

static InstallPaths not_located(const char *reason) {
    return {nullptr, nullptr, reason};
}

static InstallPaths nameless(const char *dir) {
    return not_located(sc_format("ERROR - couldn't get a basename from the path: \"%s\"", dir));
}

const char *zvinstall_program_dir(const char *program) {
    OwnedString dir = os_dirname(program);
    if (!dir)
        return nullptr;
    size_t length = std::strlen(dir.get());
    while (length > 0 &&
           (dir.get()[length - 1] == '.' || dir.get()[length - 1] == host_path_style().separator))
        length--;
    return sc_ncopy(dir.get(), length);
}

// The version directory's paths, from the directory that was reached.
static InstallPaths accept_version(const char *version) {
    const char *lum = sc_pathJoin(version, "lum");
    if (!os_exists(lum)) {
        TRACE_MESSAGE("The 'lum' directory could not be found: \"%s\"", lum);
        return not_located(nullptr);
    }
    TRACE_MESSAGE("Identified 'lum' directory: \"%s\"", lum);
    const char *install = sc_dirname(version);
    return install ? InstallPaths{version, install, nullptr} : not_located(nullptr);
}

InstallPaths zvinstall_locate(const char *program) {
    const char *dir = zvinstall_program_dir(program);
    if (!dir)
        return not_located("ERROR - couldn't get a path based on progname");
    TRACE_MESSAGE("Application appears to be running from directory: \"%s\"", dir);
    if (!has_basename(dir))
        return nameless(dir);
    if (str_icmp(os_basename(dir), "bin") != 0)
        return not_located("ERROR - the application is not running from a 'bin' directory");

    const char *version = sc_dirname(dir);
    if (!version)
        return not_located("ERROR - path not deep enough?");
    if (!has_basename(version))
        return nameless(version);
    for (const char *component : {"lum", "lum-as"}) {
        if (str_icmp(os_basename(version), component) != 0)
            continue;
        TRACE_MESSAGE("Identified as running from the '%s' directory: \"%s\"", component, version);
        version = sc_dirname(version);
        if (!version)
            return not_located("ERROR - path not deep enough?");
        if (!has_basename(version))
            return nameless(version);
        break;
    }
    return accept_version(version);
}

int set_zvinstall_paths() {
    if (zvinstall_dir && zvinstall_ver)
        return 1;
    TRACE_ENTER();
    InstallPaths paths = zvinstall_locate(os_progpath().get());
    if (!paths.version) {
        if (paths.reason)
            TRACE_EXIT("%s", paths.reason);
        return 0;
    }
    zvinstall_ver = paths.version;
    TRACE_MESSAGE("zvinstall_ver has been set to: \"%s\"", zvinstall_ver);
    zvinstall_dir = paths.install;
    TRACE_MESSAGE("zvinstall_dir has been set to: \"%s\"", zvinstall_dir);
    return 1;
}

int zvinstdir_set(const char *path) {
    TRACE_ENTER("%s", path ? path : "(null)");
    if (!os_exists(path))
        return TRACE_RESULT(1, "Path doesn't exist: \"%s\"", path ? path : "(null)");
    zvinstall_ver = path;
    const char *parent = sc_dirname(path);
    if (!os_exists(parent))
        return TRACE_RESULT(1, "Path doesn't exist: \"%s\"", parent ? parent : "(null)");
    zvinstall_dir = parent;
    return TRACE_RESULT(0, "Install dir set to: \"%s\"", zvinstall_dir);
}

const char *zvinstdir(int32_t path) {
    TRACE_ENTER("%d", path);
    DEBUG_ASSERT((path >= ZVINSTDIR_FIRST) && (path < ZVINSTDIR_LAST));
    if (path < ZVINSTDIR_FIRST || path >= ZVINSTDIR_LAST || !set_zvinstall_paths())
        return nullptr;
    if (path == ZVINSTDIR_INSTALL)
        return TRACE_RESULT(zvinstall_dir, "Returning install directory: \"%s\"", zvinstall_dir);
    if (path == ZVINSTDIR_VERSION)
        return TRACE_RESULT(zvinstall_ver, "Returning ver directory: \"%s\"", zvinstall_ver);
    return TRACE_RESULT(sc_pathJoin(zvinstall_ver, KIND_NAMES[path]),
                        "Returning concatenation of \"%s\" and \"%s\"", zvinstall_ver,
                        KIND_NAMES[path]);
}
