#include "debuglog/debugger.h"

#include "debuglog/zvdebug.h"
#include "platform/osdep.h"

#include <cstdio>

const char *db_debugger_path = "/usr/bin/lldb";

// Asked once.
static bool debugger_exists() {
    static const bool exists = os_exists(db_debugger_path) != 0;
    if (!exists)
        zvdebug_warn("Debugger \"%s\" is not available", db_debugger_path);
    return exists;
}

// Stops at main and at failed assertions, and sets the flag that announces the debugger.
static constexpr const char *DEBUGGER_COMMANDS = "break set --name db_assert\n"
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
    fputs(DEBUGGER_COMMANDS, fp);
    return os_close_written(fp);
}

// Runs a program with a copy of the arguments, because they do not outlast that.
static int spawn(const char *program, const Vector *args) {
    const VectorPtr copy(vec_copy(args, __FILE__, __LINE__));
    return os_spawn_vector(program, copy.get());
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
