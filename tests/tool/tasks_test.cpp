#include "kestrel/tasks.h"
#include "manifest/shahash.h"
#include "support/files.h"
#include "support/log_capture.h"
#include "tool/tool.h"

#include <cstring>

TEST(KestrelTasks, EveryLineBelongsToOneTask) {
    for (uint32_t lines = 1; lines <= 300; lines++) {
        for (uint32_t tasks = 1; tasks <= 40; tasks++) {
            const Plan plan = divide(lines, tasks);
            uint64_t next = 0;
            for (const Task &task : plan.given) {
                ASSERT_TRUE(task.range.start == next && task.lines > 0)
                    << lines << " lines, task " << task.number << " of " << tasks;
                next += task.lines;
            }
            ASSERT_EQ(next, lines);
            ASSERT_EQ(plan.given.size() == tasks, lines > tasks || tasks == 1) << lines;
        }
    }
    EXPECT_EQ(divide(1000, 8).given[7].range.start, 876u);
    EXPECT_EQ(divide(UINT32_MAX, 2).given[1].range.end, UINT32_MAX);
    EXPECT_TRUE(divide(0, 3).given.empty());
}

TEST(KestrelTasks, CountFollowsLinesAndProcessors) {
    const struct {
        uint32_t lines;
        int32_t processors;
        uint32_t tasks;
    } cases[] = {{1000, 2, 8},   {808, 2, 8},  {807, 2, 7},   {500, 2, 4},
                 {10, 4, 16},    {16, 4, 16},  {17, 4, 1},    {202, 4, 2},
                 {100000, 1, 1}, {5000, 0, 1}, {5000, -3, 1}, {10, INT32_MAX, INT32_MAX / 4 * 4}};
    for (const auto &c : cases)
        EXPECT_EQ(adjusted_task_count(c.lines, c.processors), c.tasks) << c.lines;
}

TEST(KestrelTasks, ProgramsAreStartedWithQuotedArguments) {
    const char *const none = nullptr;
    const VectorPtr args(vec_new(__FILE__, __LINE__));
    EXPECT_EQ(vecString(nullptr), nullptr);
    EXPECT_EQ(vecString(args.get()), nullptr);
    for (const char *argument : {"C:\\a b\\k.exe", "plain\\", "\"hi\" you", "\"", "a\tb", none, ""})
        vec_append(args.get(), argument);
    EXPECT_STREQ(vecString(args.get()),
                 "\"C:\\a b\\k.exe\" plain\\ \"\\\"hi\\\" you\" \\\" \"a\tb\"  ");

    const std::string program = child_program();
    const auto started = [&](const char *exe, const char *status) {
        const VectorPtr exit(vec_new(__FILE__, __LINE__));
        for (const char *argument : {exe, none, "--exit", status, none})
            vec_append(exit.get(), argument);
        return runProgram(exe, exit.get());
    };
    const LogCapture log;
    trace_flags = TRACE_GENERAL;
    EXPECT_EQ(started((program + ".gone").c_str(), "0"), 0);
    EXPECT_TRUE(wait_for_task(started(program.c_str(), "0"), 0));
    trace_flags = 0;
    const Lines results = split(log.lines_with("EXIT runProgram()"));
    ASSERT_EQ(results.size(), 2u);
    EXPECT_TRUE(results[0].ends_with("-> Could not create process for \"" + program + ".gone\""));
    EXPECT_NE(results[1].find("-> Successfully created process with id "), results[1].npos);
    EXPECT_FALSE(wait_for_task(started(program.c_str(), "7"), 0));
    EXPECT_FALSE(wait_for_task(0, 0)) << "was not started";
    EXPECT_FALSE(wait_for_task(1, 0)) << "not a process of ours: it has no status";
}

// The manifest does not depend on them, nor on whether they can be started: a program that is gone
// from its directory can start none.
TEST(KestrelTasks, AnyNumberOfThemWritesTheSameManifest) {
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
