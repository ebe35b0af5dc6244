#include "package.h"

#include "hash.h"
#include "osdep.h"
#include "stringcache.h"
#include "zvdebug.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

#if __has_include(<miniz/miniz.h>)
#include <miniz/miniz.h>
#else
#include <miniz.h>
#endif

static const char *application = "qrn";

// --- Adding files

// Below "SYSTEM_ROOT" for an absolute path, whose root is left out; with slashes.
static std::string archive_name(const char *file) {
    std::string name = file;
    if (os_is_absolute(file)) {
        const size_t root = host_path_style().drives ? strlen("C:\\") : strlen("/");
        name = os_join("SYSTEM_ROOT", file + std::min(root, name.size())).get();
    }
    std::replace(name.begin(), name.end(), '\\', '/');
    return name;
}

// Anything else could block when it is read, or never end.
static bool is_regular(const char *path) {
    HostStat status;
    return host_stat(path, &status) && status.kind == FileKind::regular;
}

// One file on its way into the package.
struct Addition {
    const char *package;
    const char *file;
    const char *comment;
};

static void warn_not_ended(const Addition &add) {
    zvdebug_warn("Unable to end package zip (%s) after adding \"%s\"", add.package, add.file);
}

// Adds the file to the archive that `zip` is writing, and closes that. False if the archive is not
// complete. Every step is taken, and warned of, whatever became of the one before.
static bool write_addition(mz_zip_archive *zip, const Addition &add) {
    constexpr mz_uint level_and_flags = 6 | MZ_ZIP_FLAG_CASE_SENSITIVE;
    const std::string name = archive_name(add.file);
    const size_t length = add.comment != nullptr ? strlen(add.comment) : 0;
    const auto kept = static_cast<mz_uint16>(std::min<size_t>(length, UINT16_MAX));
    const bool added =
        is_regular(add.file) &&
        mz_zip_writer_add_file(zip, name.c_str(), add.file, add.comment, kept, level_and_flags);
    if (!added)
        zvdebug_warn("Unable to add archive \"%s\" (from \"%s\") to package zip (%s)", name.c_str(),
                     add.file, add.package);
    const bool finalized = mz_zip_writer_finalize_archive(zip);
    if (!finalized)
        zvdebug_warn("Unable to finalize package zip (%s) after adding \"%s\"", add.package,
                     add.file);
    const bool ended = mz_zip_writer_end(zip);
    if (!ended)
        warn_not_ended(add);
    mz_zip_end(zip); // what could not be turned into a writer is still open
    return added && finalized && ended;
}

static void start_package(const Addition &add) {
    mz_zip_archive zip = {};
    if (!mz_zip_writer_init_file(&zip, add.package, 0))
        zvdebug_warn("Unable to init package zip file (%s) to add \"%s\"", add.package, add.file);
    else if (!write_addition(&zip, add))
        host_remove(add.package);
}

// Appending overwrites the archive's directory before it is whole again, so it happens to a copy.
static void append_to_package(const Addition &add) {
    const OwnedString copy = is_regular(add.package) ? os_tempname("zip") : nullptr;
    mz_zip_archive zip = {};
    if (copy == nullptr || !copyfile_helper(add.package, copy.get()) ||
        !mz_zip_reader_init_file(&zip, copy.get(), 0)) {
        zvdebug_warn("Unable to open package zip file (%s) for reading to append \"%s\"",
                     add.package, add.file);
        if (copy != nullptr)
            host_remove(copy.get());
        return;
    }
    if (!os_is_writable(add.package) || !mz_zip_writer_init_from_reader(&zip, copy.get()))
        zvdebug_warn("Unable to covert package zip file (%s) reader to a writer to append \"%s\"",
                     add.package, add.file);
    if (write_addition(&zip, add) && !copyfile_helper(copy.get(), add.package))
        warn_not_ended(add);
    host_remove(copy.get());
}

void package_add(const char *file, const char *comment) {
    const char *package = zvdebug_zip_path();
    if (package == nullptr)
        return;
    DEBUG_ASSERT(file != NULL);
    if (!os_exists(file))
        return;
    const Addition add = {package, file, comment};
    if (os_exists(package))
        append_to_package(add);
    else
        start_package(add);
}

void package_add_file(const char *file) {
    package_add(file, nullptr);
}

// --- The run

void package_set_app(const char *name) {
    application = sc_strdup(name);
}

// A check that fails leaves the current directory at the installation, where the paths of the log
// and the package would lead to other files.
static void return_to_start() {
    if (zvdebug_zip_path() != nullptr && zvdebug_directory() != nullptr)
        host_chdir(zvdebug_directory());
}

void package_finish() {
    return_to_start();
    const FILE *gFile = trace_stream;
    const bool log_of_another = strcmp(application, "kestrel") != 0 && zvdebug_out_given();
    if (!log_of_another && zvdebug_out_path() != nullptr) {
        DEBUG_ASSERT(gFile != NULL);
        package_add_file(zvdebug_out_path());
    }
    if ((zvdebug_flags() & TRACE_ADT) != 0) {
        hash_masterReport();
        vec_masterReport();
    }
}

// --- Programs under the debugger

const char *db_debugger_path = "/usr/bin/lldb";

// Asked once.
static bool debugger_exists() {
    static const bool exists = os_exists(db_debugger_path) != 0;
    if (!exists)
        zvdebug_warn("Debugger \"%s\" is not available", db_debugger_path);
    return exists;
}

// Stops at main and at failed assertions, and tells the program that it is being debugged.
static constexpr const char *debugger_commands = "break set --name db_assert\n"
                                                 "break set --name main\n"
                                                 "break command add 2\n"
                                                 "expr gInDebugger=1\n"
                                                 "DONE\n"
                                                 "run";

static bool write_commands(const char *cmdfile) {
    DEBUG_ASSERT(cmdfile != NULL);
    FILE *fp = cmdfile != nullptr ? host_fopen(cmdfile, "wb") : nullptr;
    DEBUG_ASSERT(fp != NULL);
    if (fp == nullptr)
        return false;
    const bool written = fputs(debugger_commands, fp) >= 0;
    return fclose(fp) == 0 && written;
}

// Starts a program with a copy of the arguments, whose strings are replaced on the way.
static int spawn(const char *program, const Vector *args) {
    const VectorPtr copy(vec_copy(args, __FILE__, __LINE__));
    const auto argv = const_cast<const char **>(reinterpret_cast<char **>(copy->data));
    const int status = os_spawn(program, argv);
    for (const char **argument = argv; *argument != nullptr; ++argument)
        free(const_cast<char *>(*argument));
    return status;
}

static int spawn_in_debugger(const char *app, const char *cmdfile, const Vector *args) {
    const VectorPtr debugged(vec_new(__FILE__, __LINE__));
    for (const char *argument : {app, "-s", cmdfile, "--", app})
        vec_append(debugged.get(), argument);
    for (uint32_t i = 1; i < vec_size(args); i++)
        vec_append(debugged.get(), vec_elementAt(args, i));
    vec_append(debugged.get(), nullptr);
    const int status = spawn(db_debugger_path, debugged.get());
    host_remove(cmdfile);
    return status;
}

int db_debugger(const char *app, Vector *args, bool force) {
    DEBUG_ASSERT(app != NULL);
    if (app == nullptr)
        return -1;
    if ((force || zvdebug_debug_named(os_basename(app))) && debugger_exists()) {
        const OwnedString cmdfile = os_tempname_plain();
        if (write_commands(cmdfile.get()))
            return spawn_in_debugger(app, cmdfile.get(), args);
    }
    vec_append(args, nullptr);
    return spawn(app, args);
}
