#include "debuglog/zvdebug.h"

#include "base/text.h"
#include "containers/hash.h"
#include "containers/stringcache.h"
#include "containers/vector.h"
#include "messages/alert.h"
#include "platform/osdep.h"

#include <cstdlib>
#include <cstring>
#include <string>

// All strings here are interned; null means that there is none.
static bool parsed = false;
static uint32_t num = 1;
static const char *directory = nullptr; // current when the option was parsed
static bool out_given = false;
static const char *zip_path = nullptr;
static HashTable *debug_names = nullptr;   // name -> name
static HashTable *callee_counts = nullptr; // name -> uint32_t

static constexpr uint32_t NAME_BUCKETS = 13;

// The table of names in `table`, made on first use.
static HashTable *name_table(HashTable *&table) {
    if (table == nullptr)
        table = hash_new(NAME_BUCKETS, strihash, strikeycmp, __FILE__, __LINE__);
    return table;
}

// --- The debug-out file

static const char *default_out_name() {
    return sc_format("%s-%u.out", host_tool_name, num);
}

// If both are one file the package is given up: it can be made again.
static bool is_both(const char *package, const char *log) {
    if (package == nullptr || log == nullptr || !host_same_file(package, log))
        return false;
    zvdebug_warn("Package zip \"%s\" is the debug-out file, ignoring it", package);
    return true;
}

static void open_out_file(const char *path, bool append) {
    DEBUG_ASSERT(path != NULL);
    if (!trace_open(path, append))
        alert_nl(141, "debug-out", str_printable(path).get());
    else if (is_both(zip_path, path))
        zip_path = nullptr;
}

// --- The options' arguments. Null when the item has no ":".

static void parse_out(const char *argument) {
    if (argument == nullptr || *argument == '\0') {
        zvdebug_warn("option \"out\", must have a filename argument");
        return;
    }
    out_given = true;
    if (trace_path() != nullptr)
        zvdebug_warn("debug-out file was set to \"%s\", resetting to \"%s\"", trace_path(),
                     argument);
    const bool append = *argument == '+';
    const char *path = sc_strdup(append ? argument + 1 : argument);
    if (os_is_dir(path))
        path = sc_pathJoin(path, default_out_name());
    open_out_file(path, append);
}

// An empty name, also after "+", means the default one.
static void parse_zip(const char *argument) {
    if (zip_path != nullptr) {
        zvdebug_warn("Zip file already set to \"%s\", ignoring addtional zip options", zip_path);
        return;
    }
    const bool update = argument != nullptr && *argument == '+';
    if (update)
        argument++;
    const bool named = argument != nullptr && *argument != '\0';
    const char *path = sc_strdup(named ? argument : "qrn_package.zip");
    if (is_both(path, trace_path()))
        return;
    if (!update && os_exists(path)) {
        zvdebug_warn("Package zip \"%s\" already exists and will be over-written", path);
        if (!os_is_regular(path) || !host_remove(path))
            zvdebug_warn("Unable to remove \"%s\", it will be updated if possible", path);
    }
    zip_path = path;
}

// In the order of AssertMode.
static constexpr const char *ASSERT_WORDS[] = {"ignore", "fatal", "error", "warning"};

static void parse_assert(const char *argument) {
    if (argument == nullptr) {
        zvdebug_warn("option \"assert\", must have an argument");
        return;
    }
    for (uint32_t mode = ASSERT_IGNORE; mode <= ASSERT_WARNING; mode++) {
        if (str_icmp(argument, ASSERT_WORDS[mode]) == 0) {
            trace_assert_mode = static_cast<AssertMode>(mode);
            return;
        }
    }
    zvdebug_warn("unknown argument (%s) given to assert option", argument);
}

static void parse_debug(const char *argument) {
    const VectorPtr names(argument == nullptr ? nullptr : sc_split(argument, ":"));
    if (vec_size(names.get()) == 0) {
        zvdebug_warn("option \"debug\", must have at least one argument");
        return;
    }
    for (const char *name : VecEach<const char>(names))
        hash_insert(name_table(debug_names), name, name, __FILE__, __LINE__);
}

static void parse_num(const char *argument) {
    if (argument == nullptr) {
        zvdebug_warn("option \"num\", must have an argument");
        return;
    }
    const long long value = strtoll(argument, nullptr, 10);
    if (value < 1 || value > UINT32_MAX)
        zvdebug_warn("\"num\" option must be a decimal integer > 0, using \"%u\"", num);
    else
        num = static_cast<uint32_t>(value);
}

// --- The options' texts for started programs. Empty when there is nothing to pass on.

namespace {

struct Option {
    const char *name;
    uint32_t bits; // set in the debug flags
    void (*parse)(const char *argument);
    std::string (*dbo_optGenerator)(DebugCaller caller, const char *callee, const Option &option);
};

} // namespace

static std::string forward_flag(DebugCaller, const char *, const Option &option) {
    return (trace_flags & option.bits) != 0 ? option.name : "";
}

// The child appends, so that both share the file.
static std::string forward_out(DebugCaller, const char *, const Option &) {
    if (!out_given)
        return "";
    const char *gFilePath = trace_path(); // named as the assertion says
    DEBUG_ASSERT(gFilePath != NULL);
    return gFilePath == nullptr ? "" : std::string("out:+") + gFilePath;
}

static std::string forward_zip(DebugCaller, const char *, const Option &) {
    return zip_path == nullptr ? "" : std::string("zip:+") + zip_path;
}

static std::string forward_assert(DebugCaller, const char *, const Option &) {
    if (trace_assert_mode == ASSERT_IGNORE)
        return "";
    return std::string("assert:") + ASSERT_WORDS[trace_assert_mode];
}

// A driver's own kind is debugged in the driver, not below it.
static bool debug_name_passes(DebugCaller caller, const char *name) {
    switch (caller) {
    case DBC_QRNCC:
        return !sc_hasPrefixI(name, "qrn") || name[3] == '-';
    case DBC_DRIVER:
        return !sc_hasPrefixI(name, "lumc");
    default:
        return true;
    }
}

static std::string forward_debug(DebugCaller caller, const char *, const Option &) {
    if (debug_names == nullptr)
        return "";
    std::string text;
    const VectorPtr names(hash_keys(debug_names));
    for (const char *name : VecEach<const char>(names))
        if (debug_name_passes(caller, name))
            text += std::string(":") + name;
    return text.empty() ? "" : "debug" + text;
}

// Each start under one name gets a number of its own, and so a default file of its own.
static std::string forward_num(DebugCaller, const char *callee, const Option &) {
    if (trace_flags == 0)
        return "";
    HashTable *counts = name_table(callee_counts);
    auto *count = static_cast<uint32_t *>(hash_lookup(counts, callee));
    if (count == nullptr) {
        count = xnew<uint32_t>();
        hash_insert(counts, sc_strdup(callee), count, __FILE__, __LINE__);
    }
    return "num:" + std::to_string(++*count);
}

// Searched in this order, and passed on in this order.
static constexpr Option OPTIONS[] = {
    {"default", TRACE_GENERAL, nullptr, forward_flag},
    {"on", TRACE_GENERAL, nullptr, forward_flag},
    {"out", 0, parse_out, forward_out},
    {"sdb", TRACE_SDB, nullptr, forward_flag},
    {"dwarf", TRACE_DWARF, nullptr, forward_flag},
    {"zip", 0, parse_zip, forward_zip},
    {"alerts", TRACE_ALERTS, nullptr, forward_flag},
    {"assert", 0, parse_assert, forward_assert},
    {"debug", 0, parse_debug, forward_debug},
    {"adt", TRACE_ADT, nullptr, forward_flag},
    {"num", 0, parse_num, forward_num},
};

// --- Parsing

// The first option whose name the item begins with.
static const Option *find_option(const char *item) {
    for (const Option &option : OPTIONS)
        if (sc_hasPrefixI(item, option.name))
            return &option;
    return nullptr;
}

static void parse_item(const char *item) {
    const Option *option = find_option(item);
    if (option == nullptr) {
        zvdebug_warn("unknown option \"%s\"", item);
        return;
    }
    trace_flags |= option->bits;
    if (option->parse != nullptr) {
        const char *colon = strchr(item, ':');
        option->parse(colon == nullptr ? nullptr : colon + 1);
    }
}

static void parse_list(const char *list) {
    const VectorPtr items(sc_split(list, ","));
    for (const char *item : VecEach<const char>(items))
        parse_item(item);
}

void zvdebug_parse(const char *optstr) {
    if (parsed) {
        zvdebug_warn("Ignoring extra --zvdebug options");
        return;
    }
    parsed = true;
    DEBUG_ASSERT(optstr != NULL);
    directory = sc_strdup(os_getcwd().get());
    if (optstr == nullptr)
        return;
    const char *equals = strchr(optstr, '=');
    parse_list(equals == nullptr ? optstr : equals + 1);
    if (trace_flags == 0)
        return;
    if (trace_log() == nullptr)
        open_out_file(default_out_name(), false);
    if ((trace_flags & TRACE_ADT) != 0) {
        hash_trackInit(true);
        vec_trackInit(true);
    }
}

// --- Passing on, and reading

const char *zvdebug_forward(DebugCaller caller, const char *callee) {
    // clang-format off
    DEBUG_ASSERT(caller == DBC_QRNCC || caller == DBC_QRN || caller == DBC_DRIVER);
    // clang-format on
    DEBUG_ASSERT(callee != NULL);
    if (callee == nullptr)
        return nullptr;
    std::string list;
    for (const Option &option : OPTIONS) {
        const Option *op = &option; // named as the assertion says
        DEBUG_ASSERT(op->dbo_optGenerator != NULL);
        const std::string text = op->dbo_optGenerator(caller, callee, *op);
        if (!text.empty())
            list += (list.empty() ? "" : ",") + text;
    }
    return list.empty() ? nullptr : sc_concat("--zvdebug=", list.c_str());
}

// The name that a path from the directory of the run has now.
static const char *path_from_here(const char *path) {
    const OwnedString here = os_getcwd();
    const bool moved =
        directory != nullptr && (here == nullptr || strcmp(here.get(), directory) != 0);
    return moved && !os_is_absolute(path) ? sc_pathJoin(directory, path) : path;
}

// A comma would end the name; a plus sign at its start has a meaning and is led by ".".
const char *zvdebug_beside(const char *name) {
    const bool beside_file = trace_log() == nullptr || host_is_regular(host_fileno(trace_log()));
    if (trace_flags == 0 || !beside_file)
        return nullptr;
    if (const char *log = trace_path(); log != nullptr)
        name = sc_concat(sc_ncopy(log, static_cast<size_t>(os_basename(log) - log)), name);
    name = path_from_here(name);
    if (strchr(name, ',') != nullptr)
        return nullptr;
    if (*name == '+')
        name = sc_pathJoin(".", name);
    host_remove(name);
    return host_make_file(name) ? sc_format("--zvdebug=on,out:%s", name) : nullptr;
}

const char *zvdebug_directory() {
    return directory;
}

bool zvdebug_out_given() {
    return out_given;
}

const char *zvdebug_zip_path() {
    return zip_path;
}

bool zvdebug_debug_named(const char *name) {
    return debug_names != nullptr && name != nullptr && hash_haskey(debug_names, name) != 0;
}
