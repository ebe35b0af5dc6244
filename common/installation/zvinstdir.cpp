#include "installation/zvinstdir.h"

#include "base/text.h"
#include "containers/stringcache.h"
#include "host/trace.h"
#include "platform/osdep.h"

#include <string_view>

const char *zvinstall_ver = nullptr;
const char *zvinstall_dir = nullptr;

// The first two only name the kinds; they are never joined to anything.
static constexpr const char *KIND_NAMES[ZVINSTDIR_LAST] = {"qrn", "v*",  "bin", "docs",   "include",
                                                           "etc", "lum", "kiv", "velasm", "lum-as"};

static bool fails(const char **failure, const char *reason) {
    *failure = reason;
    return false;
}

static bool has_name(const char *dir, const char **failure) {
    const char *name = os_basename(dir);
    if (name != nullptr && *name != '\0')
        return true;
    return fails(failure, sc_format("ERROR - couldn't get a basename from the path: \"%s\"", dir));
}

// Goes up from `dir` to its parent, which must have a name.
static bool enter_parent(const char **dir, const char **failure) {
    *dir = sc_dirname(*dir);
    return *dir == nullptr ? fails(failure, "ERROR - path not deep enough?")
                           : has_name(*dir, failure);
}

const char *zvinstall_program_dir(const char *program) {
    const OwnedString dir = os_dirname(program);
    if (dir == nullptr)
        return nullptr;
    const char dropped[] = {'.', host_path_style().separator, '\0'};
    return sc_ncopy(dir.get(), std::string_view(dir.get()).find_last_not_of(dropped) + 1);
}

// The paths for the version directory that was reached. What it lacks goes to the log at once.
static bool accept_version(const char *version, InstallPaths *paths) {
    const char *lum = sc_pathJoin(version, "lum");
    if (!os_exists(lum)) {
        TRACE_MESSAGE("The 'lum' directory could not be found: \"%s\"", lum);
        return false;
    }
    TRACE_MESSAGE("Identified 'lum' directory: \"%s\"", lum);
    const char *install = sc_dirname(version);
    if (install != nullptr)
        *paths = {version, install};
    return install != nullptr;
}

bool zvinstall_locate(const char *program, InstallPaths *paths, const char **failure) {
    const char *dir = zvinstall_program_dir(program);
    if (dir == nullptr)
        return fails(failure, "ERROR - couldn't get a path based on progname");
    TRACE_MESSAGE("Application appears to be running from directory: \"%s\"", dir);
    if (!has_name(dir, failure))
        return false;
    if (str_icmp(os_basename(dir), "bin") != 0)
        return fails(failure, "ERROR - the application is not running from a 'bin' directory");

    const char *version = dir;
    if (!enter_parent(&version, failure))
        return false;
    for (const char *component : {"lum", "lum-as"}) {
        if (str_icmp(os_basename(version), component) != 0)
            continue;
        TRACE_MESSAGE("Identified as running from the '%s' directory: \"%s\"", component, version);
        if (!enter_parent(&version, failure))
            return false;
        break;
    }
    return accept_version(version, paths);
}

int set_zvinstall_paths() {
    if (zvinstall_dir != nullptr && zvinstall_ver != nullptr)
        return 1;
    TRACE_ENTER();
    InstallPaths paths;
    const char *failure = nullptr;
    if (!zvinstall_locate(os_progpath().get(), &paths, &failure)) {
        if (failure != nullptr)
            TRACE_EXIT("%s", failure);
        return 0;
    }
    zvinstall_ver = paths.version;
    TRACE_MESSAGE("zvinstall_ver has been set to: \"%s\"", zvinstall_ver);
    zvinstall_dir = paths.install;
    TRACE_MESSAGE("zvinstall_dir has been set to: \"%s\"", zvinstall_dir);
    return 1;
}

int zvinstdir_set(const char *path) {
    TRACE_ENTER("%s", path != nullptr ? path : "(null)");
    if (!os_exists(path))
        return TRACE_RESULT(1, "Path doesn't exist: \"%s\"", path != nullptr ? path : "(null)");
    zvinstall_ver = path;
    const char *parent = sc_dirname(path);
    if (!os_exists(parent))
        return TRACE_RESULT(1, "Path doesn't exist: \"%s\"", parent != nullptr ? parent : "(null)");
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
