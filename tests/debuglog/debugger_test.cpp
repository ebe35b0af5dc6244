#include "debuglog/debugger.h"

#include "containers/stringcache.h"
#include "debuglog/zvdebug.h"
#include "platform/osdep.h"
#include "support/scratch.h"

#include <gtest/gtest.h>

// The debug option counts once in a process, and the debugger is looked for once.
TEST(Debugger, ProgramsRunUnderTheDebugger) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto run = [](bool named, bool force, bool installed, bool debugged) {
        const std::string app = child_program();
        zvdebug_parse(named ? sc_concat("--zvdebug=debug:x:", os_basename(app.c_str())) : "");
        db_debugger_path = installed ? app.c_str() : "no/debugger";
        const VectorPtr args(sc_split("its own name,--name,two words", ","));
        testing::internal::CaptureStdout();
        const int status = db_debugger(app.c_str(), args.get(), force);
        const std::string output = testing::internal::GetCapturedStdout();
        const std::string script = output.substr(0, output.find('\n'));
        const std::string expected =
            debugged ? script +
                           "\nbreak set --name db_assert\nbreak set --name main\n"
                           "break command add 2\nexpr gInDebugger=1\nDONE\nrun\n"
                           "<-->\n<" +
                           app + ">\n<--name>\n<two words>"
                     : "its own name\ntwo words\n";
        const bool right = output == expected && !os_exists(script.c_str());
        exit(right && status == (debugged ? 9 : 0) ? 0 : 1);
    };
    EXPECT_EXIT(run(false, false, true, false), testing::ExitedWithCode(0), "^$");
    EXPECT_EXIT(run(true, false, true, true), testing::ExitedWithCode(0), "^$");
    EXPECT_EXIT(run(false, true, true, true), testing::ExitedWithCode(0), "^$");
    EXPECT_EXIT(run(true, true, false, false), testing::ExitedWithCode(0),
                "Debugger \"no/debugger\" is not available\n$");
}
