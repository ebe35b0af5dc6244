#include "installation/registry.h"

#include "containers/stringcache.h"
#include "host/trace.h"
#include "installation/zvinstdir.h"
#include "platform/osdep.h"

static const char *c_stdlib = nullptr;

namespace {

struct PathType {
    int32_t type;
    const char *subdir;
    bool by_c_stdlib;      // with the C library variant below
    const char *word;      // what an override is called; null if there can be none
    int32_t override_type; // the type whose override counts
};

} // namespace

static constexpr PathType PATH_TYPES[] = {
    {REG_BASE, "", false, nullptr, REG_BASE},
    {REG_BIN, "bin", false, "bin", REG_BIN},
    {REG_LIB, "lib", true, "lib", REG_LIB},
    {REG_HELP, "help", false, nullptr, REG_HELP},
    {REG_INCLUDE, "include", false, "inc", REG_INCLUDE},
    {REG_DAT, "dat", false, "dat", REG_DAT},
    {REG_SOURCES, "sources", true, "src", REG_SOURCES},
    {REG_RESOURCES, "resources", false, nullptr, REG_RESOURCES},
    {REG_DOCS, "docs", false, nullptr, REG_DOCS},
    {REG_C_INCLUDE, "include", true, nullptr, REG_INCLUDE},
};

// The directory above the subdirectory of each type, where the user has set one.
static const char *overrides[REG_C_INCLUDE + 1] = {};

static const PathType *find_type(int32_t type) {
    for (const PathType &known : PATH_TYPES)
        if (known.type == type)
            return &known;
    return nullptr;
}

const char *reg_create_path(const char *base, int32_t type) {
    TRACE_ENTER("base: \"%s\", type: %d", base != nullptr ? base : "(null)", type);
    const PathType *known = find_type(type);
    if (base == nullptr || known == nullptr)
        return nullptr;
    const char *subdir = known->subdir;
    if (c_stdlib != nullptr && known->by_c_stdlib) {
        base = sc_pathJoin(base, subdir);
        subdir = c_stdlib;
    }
    return TRACE_RESULT(sc_pathJoin(base, subdir),
                        "Returning concatenation of path: \"%s\" and \"%s\"", base, subdir);
}

// The directory of a type that is overridden, else null.
static const char *reg_path_mods(int32_t type) {
    TRACE_ENTER("type: %d", type);
    const PathType *known = find_type(type);
    const char *base = known != nullptr ? overrides[known->override_type] : nullptr;
    const char *dir = base != nullptr ? reg_create_path(base, type) : nullptr;
    return TRACE_RESULT(dir, "\"%s\"", dir != nullptr ? dir : "null");
}

const char *reg_instdir(int32_t type) {
    TRACE_ENTER("type: %d", type);
    if (const char *dir = reg_path_mods(type))
        return TRACE_RESULT(dir, "\"%s\"", dir);
    const char *base = zvinstdir(ZVINSTDIR_LUM);
    if (!os_exists(base))
        base = set_zvinstall_paths() ? zvinstall_ver : nullptr;
    if (base == nullptr)
        return TRACE_RESULT(nullptr, "Could not locate installation directory");
    if (type == REG_BASE)
        return TRACE_RESULT(base, "Returning installation directory: \"%s\"", base);
    const char *dir = reg_create_path(base, type);
    return TRACE_RESULT(dir, "\"%s\"", dir != nullptr ? dir : "null");
}

const char *reg_mkpath(int32_t type, const char *name) {
    TRACE_ENTER("type: %d, name: \"%s\"", type, name != nullptr ? name : "(null)");
    if (os_is_absolute(name))
        return TRACE_RESULT(sc_strdup(name), "Returning absolute path: \"%s\"", name);
    const char *dir = reg_instdir(type);
    const char *path = dir != nullptr ? sc_pathJoin(dir, name) : nullptr;
    return TRACE_RESULT(path, "Returning path: \"%s\"", path != nullptr ? path : "null");
}

int reg_set_path(int32_t type, const char *path) {
    TRACE_ENTER("type: %d, path: \"%s\"", type, path != nullptr ? path : "null");
    if (path != nullptr && !os_exists(path))
        return TRACE_RESULT(0, "Path does not exist: \"%s\"", path);
    if (path != nullptr && !os_is_dir(path))
        return TRACE_RESULT(0, "Path is not a directory: \"%s\"", path);
    const PathType *known = find_type(type);
    if (known == nullptr || known->word == nullptr)
        return 0;
    overrides[type] = sc_strdup(path);
    return TRACE_RESULT(1, "%s path now set to: \"%s\"", known->word,
                        path != nullptr ? path : "null");
}

void reg_set_c_stdlib(const char *name) {
    TRACE_ENTER("\"%s\"", name != nullptr ? name : "null");
    c_stdlib = sc_strdup(name);
    TRACE_EXIT("standard C library is now set to: \"%s\"", name != nullptr ? name : "null");
}

const char *reg_get_c_stdlib() {
    TRACE_ENTER();
    return TRACE_RESULT(c_stdlib, "standard C library is presently: \"%s\"",
                        c_stdlib != nullptr ? c_stdlib : "null");
}
