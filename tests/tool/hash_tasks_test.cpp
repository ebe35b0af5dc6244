#include "kestrel/hash_tasks.h"

#include "manifest/shahash.h"
#include "support/files.h"
#include "tool/tool.h"

#include <cstring>

// The manifest does not depend on them, nor on whether they can be started: a program that is gone
// from its directory can start none.
TEST(KestrelHashTasks, AnyNumberOfThemWritesTheSameManifest) {
    const Installation inst("a b, 100%s");
    inst.add("long", std::string(100000, 'x'));
    EXPECT_EQ(inst.run({"-g", "--tasks=1"}), inst.generated());
    const std::string text = read_file(inst.manifest);
    const char *const gone = "cp \"$1\" gone; exec 7<gone; rm gone; shift; "
                             "set -- /proc/self/fd/7 \"$@\"";
    for (const char *tasks : {"2", "3", "20", "21", "22", "-1"})
        for (const char *script : {"", gone})
            if (*script == '\0' || os_kind() == 0) {
                host_remove(inst.manifest.c_str());
                EXPECT_EQ(inst.run({"-g", std::string("--tasks=") + tasks}, script),
                          inst.generated());
                EXPECT_EQ(read_file(inst.manifest), text) << tasks << script;
            }
    // What a task does, in the directory that it is started in.
    const std::string list = native_join(inst.top.c_str(), "list"), digests = list + "d";
    Installation::write(list, "f1\nlong\ngone\nf2\nf3\n");
    const Inside inside(inst.tree);
    EXPECT_EQ(kestrel({"--instdir=" + inst.top, "--manifest=../list", "--check=0,1,3",
                       "--digests=../listd"}),
              (Outcome{0, "", ""}));
    const std::string results = read_file(digests);
    ASSERT_EQ(results.size(), 3 * sizeof(FileDigest));
    FileDigest got[3];
    memcpy(got, results.data(), sizeof got);
    EXPECT_EQ(sha256_text(got[0].digest),
              sha256_file_hex(native_join(inst.tree.c_str(), "long").c_str()));
    EXPECT_EQ(got[1].outcome, OpenOutcome::missing);
    EXPECT_EQ(got[1].reason, ENOENT);
    EXPECT_EQ(sha256_text(got[2].digest),
              sha256_file_hex(native_join(inst.tree.c_str(), "f2").c_str()));
    // A check stays one, and fails.
    for (const char *range : {"--check=0,1,3", "-v"})
        EXPECT_EQ(inst.run({"-c", "--manifest=" + list, range, "--digests=" + digests}).status, 1);
}

// It says nothing but in the log, and its files are hashed all the same.
TEST(KestrelHashTasks, TheyMayBeEnded) {
    const Installation inst("dir", 7);
    const Lines lines = inst.generate();
    const std::string log = native_join(inst.top.c_str(), "log");
    for (const char *what : {"raise|15", "raise|9"}) {
        if (os_kind() != 0 && what == std::string("raise|9"))
            continue; // there is none
        host_remove(inst.manifest.c_str());
        EXPECT_EQ(inst.interrupted(what, {"-g", "--tasks=2", "--zvdebug=on,out:" + log}),
                  inst.generated());
        EXPECT_EQ(split(read_file(inst.manifest)), lines) << what;
        EXPECT_NE(read_file(log).find("did not hash its files"), std::string::npos) << what;
    }
}
