#include "kestrel/tasks.h"
#include "support/log_capture.h"
#include "tool/tool.h"

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
