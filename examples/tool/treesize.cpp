// Counts the files below directories, and their bytes: an example of a tool on the runtime, from
// which it has response files (@<file>), a debug log (--zvdebug=on,out:<file>), numbered messages
// and the walk of a tree.
#include "command/cmdline.h"
#include "debuglog/package.h"
#include "host/trace.h"
#include "manifest/treewalk.h"
#include "messages/alert.h"
#include "runtime.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

static void cleanup(int status) {
    package_finish(); // ends the debug log
    exit(status);
}

namespace {

struct Count : TreeVisitor {
    uint64_t files = 0, bytes = 0;

    bool entry(const char *, const char *) override { return true; }
    bool file(const char *path, OwnedString, const StatResult &found) override {
        if (!found.status)
            return unreadable(path, nullptr, found.reason);
        TRACE_MESSAGE("%s", path);
        files++;
        bytes += found.status->size;
        return true;
    }
    bool unlisted(const char *path, const char *) override {
        return unreadable(path, nullptr, EINVAL);
    }
    bool skipped(const char *path, const char *) override {
        return unreadable(path, nullptr, EACCES);
    }
    bool unreadable(const char *path, const char *, int reason) override {
        alert_text(2001, "E", "cannot look at \"%s\": %s", path, host_strerror(reason));
        return true;
    }
};

} // namespace

int main(int argc, char **argv) {
    runtime_init("treesize", cleanup);
    host_arguments(&argc, &argv);
    const VectorPtr arguments(cmdline_args(argc, argv));
    bool asked = false;
    for (const char *directory : VecEach<const char>(arguments)) {
        if (*directory == '-') // the option of the debug log
            continue;
        asked = true;
        Count count;
        walk_tree(count, directory, ".");
        printf("%s: %llu files, %llu bytes\n", directory,
               static_cast<unsigned long long>(count.files),
               static_cast<unsigned long long>(count.bytes));
    }
    if (!asked) {
        fputs("Counts the files below directories, and their bytes.\n"
              "Usage: treesize [--zvdebug=on,out:<file>] <directory or @file>...\n",
              stderr);
        cleanup(1);
    }
    cleanup(alert_failed() ? 1 : 0);
}
