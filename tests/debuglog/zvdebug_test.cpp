#include "debuglog/zvdebug.h"

#include "command/cmdline.h"
#include "containers/hash.h"
#include "debuglog/debugger.h"
#include "debuglog/package.h"
#include "installation/zvinstdir.h"
#include "messages/alert.h"
#include "runtime.h"
#include "support/scratch.h"
#include "support/words.h"

#include <algorithm>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>

static std::string warnings;

static std::string shown(const char *path) {
    std::string text = path == nullptr ? "-" : path;
    std::replace(text.begin(), text.end(), '\\', '/');
    return text;
}

// What an option did: flags, assertion mode, whether containers are accounted for, the paths, and
// the warnings.
static std::string settings() {
    const VectorPtr vector(vec_new("f", 1));
    HashTable *table = hash_new(1, nullptr, nullptr, "f", 1);
    const bool tracked = vector->master != nullptr && table->master != nullptr;
    hash_free(table);
    return std::to_string(trace_flags) + " " + std::to_string(trace_assert_mode) +
           (tracked ? " tracked " : " ") + shown(trace_path()) +
           (zvdebug_out_given() ? " given " : " ") + shown(zvdebug_zip_path()) + warnings;
}

static std::string second_parse() {
    zvdebug_parse("--zvdebug=on,out:x.log");
    return settings();
}

static std::string old_log() {
    trace_puts("new");
    std::string text = read_file("old.log");
    std::erase(text, '\r');
    return text;
}

static std::string old_package() {
    return settings() + (os_exists("qrn_package.zip") ? "; there" : "; gone");
}

// What the first program gets, and the last digit of what the next two get.
static std::string forwarded() {
    std::string text = shown(zvdebug_forward(DBC_QRN, "a"));
    for (const char *callee : {"B", "A"})
        text += shown(zvdebug_forward(DBC_QRN, callee)).back();
    return text;
}

// Which of the debug names are passed on, for each kind of caller.
static std::string passed_names() {
    std::string text = zvdebug_debug_named("QRNcc") ? "named" : "not named";
    for (const DebugCaller caller : {DBC_QRNCC, DBC_QRN, DBC_DRIVER}) {
        const std::string names = std::string(zvdebug_forward(caller, "p")) + ":";
        text += ' ';
        for (const char *name : {"qrn", "qrncc", "QRN-x", "qr", "lumCtop", "lumen"})
            text += names.find(":" + std::string(name) + ":") == names.npos ? '0' : '1';
    }
    return text;
}

static std::string accounts() {
    settings(); // which makes a table and a vector
    package_finish();
    const std::string log = read_file("x");
    return log.find("# Hash Table Master") < log.find("# Living Vector Master") ? "in order" : log;
}

// The debug assertions that fail for arguments that nobody should give.
static std::string failed_assertions() {
    os_catch_signals();
    const VectorPtr none(vec_new("f", 1)), seven = vector_of({child_program(), "--exit", "7"});
    zvdebug_forward(static_cast<DebugCaller>(3), nullptr);
    cmdline_exe(none.get(), EXEC_DIRECT, 0);
    cmdline_exe(seven.get(), 3, 0);
    cmdline_driver(0, nullptr, nullptr, EXEC_DIRECT, nullptr);
    db_debugger(nullptr, none.get(), false);
    getMsgFileVersion(nullptr);
    zvinstdir(-1);
    package_add(nullptr, nullptr);
    trace_use(nullptr, nullptr);
    zvdebug_forward(DBC_QRN, "p");
    trace_use(nullptr, "no log");
    package_finish();
    return warnings;
}

namespace {

struct Case {
    const char *option;
    const char *expected;
    std::string (*observe)() = settings;
};

} // namespace

// The option counts once in a process, so every case ends one of its own; with status 0 when all is
// as expected. It has a fresh current directory, with the files that cases count on.
[[noreturn]] static void run(const Case &c) {
    zvdebug_warn_hook = [](const char *text) { warnings += "; " + std::string(text); };
    zvdebug_assert_hook = [](uint32_t, const char *condition, const char *, uint32_t) {
        warnings += "; " + std::string(condition);
    };
    const Scratch scratch;
    scratch.write("qrn_package.zip", "old\n");
    scratch.write("old.log", "old\n");
    host_chdir(scratch.directory());
    host_mkdir("dir");
    std::error_code device_already; // on the host where this names one anywhere
    std::filesystem::create_symlink("/dev/null", "nul", device_already);
    zvdebug_parse(c.option);
    const std::string got = c.observe();
    fprintf(stderr, "got: %s\n", got.c_str());
    trace_use(nullptr, nullptr);
    host_chdir("..");
    exit(got == c.expected ? 0 : 1);
}

static const Case CASES[] = {
    {"--zvdebug=,,ADT,,On:x,", "17 0 tracked kestrel-1.out -"},
    {"sdb,dwarf,alerts", "14 0 kestrel-1.out -"},
    {"adt,out:x", "in order", accounts},
    {"--zvdebug=", "0 0 - -"},
    {"--zvdebug", "0 0 - -; unknown option \"--zvdebug\""},
    {"--zvdebug=o,one,foo", "1 0 kestrel-1.out -; unknown option \"o\"; unknown option \"foo\""},
    {"--zvdebug=alerts", "8 0 kestrel-1.out -; Ignoring extra --zvdebug options", second_parse},
    {"--zvdebug=out:x=1.log", "0 0 x=1.log given -"},
    {"--zvdebug=out:,output", "0 0 - -; option \"out\", must have a filename argument"
                              "; option \"out\", must have a filename argument"},
    {"--zvdebug=out:a.log,out:+b.log",
     "0 0 b.log given -; debug-out file was set to \"a.log\", resetting to \"+b.log\""},
    {"--zvdebug=num:3,out:dir", "0 0 dir/kestrel-3.out given -"},
    {"--zvdebug=on,out:old.log", "new\n", old_log},
    {"--zvdebug=on,out:+old.log", "old\nnew\n", old_log},
    {"--zvdebug=on,on,num:4294967295,assert:Fatal", "1 1 kestrel-4294967295.out -"},
    {"--zvdebug=num:5,num:0,num:1,on",
     "1 0 kestrel-1.out -; \"num\" option must be a decimal integer > 0, using \"5\""},
    {"--zvdebug=num:4294967296,num",
     "0 0 - -; \"num\" option must be a decimal integer > 0, using \"1\""
     "; option \"num\", must have an argument"},
    {"--zvdebug=assert:error,assert:ignore", "0 0 - -"},
    {"--zvdebug=assert:warning,assert:abort,assert",
     "0 3 - -; unknown argument (abort) given to assert option"
     "; option \"assert\", must have an argument"},
    {"--zvdebug=zip",
     "0 0 - qrn_package.zip; Package zip \"qrn_package.zip\" already exists "
     "and will be over-written; gone",
     old_package},
    {"--zvdebug=zip:+old.log,zip:b",
     "0 0 - old.log; Zip file already set to \"old.log\", ignoring addtional zip options"},
    {"--zvdebug=zip:nul", "0 0 - nul; Package zip \"nul\" already exists and will be "
                          "over-written; Unable to remove \"nul\", it will be updated if "
                          "possible"},
    {"--zvdebug=out:x,zip:dir/../x,zip:+p",
     "0 0 x given p; Package zip \"dir/../x\" is the debug-out file, ignoring it"},
    {"--zvdebug=zip:+dir/../y,out:y",
     "0 0 y given -; Package zip \"dir/../y\" is the debug-out file, ignoring it"},
    {"--zvdebug=debug:::", "0 0 - -; option \"debug\", must have at least one argument"},
    {"--zvdebug=debug:qrn:qrncc:QRN-x:qr:lumCtop:lumen:Qr", "named 001111 111111 111101",
     passed_names},
    {"--zvdebug=", "---", forwarded},
    {"--zvdebug=on", "--zvdebug=default,on,num:112", forwarded},
    {"--zvdebug=debug:x,alerts,out:+log.txt,zip:p,assert:error",
     "--zvdebug=out:+log.txt,zip:+p,alerts,assert:error,debug:x,num:112", forwarded},
    {"--zvdebug=assert:warning,out:x,zip:p",
     "; caller == DBC_QRNCC || caller == DBC_QRN || caller == DBC_DRIVER; callee != NULL"
     "; vec_size(options) > 0; 0; options_process != NULL; argv != NULL; argv != NULL"
     "; app != NULL; m != NULL; (path >= ZVINSTDIR_FIRST) && (path < ZVINSTDIR_LAST)"
     "; file != NULL; gFilePath != NULL; gFile != NULL",
     failed_assertions},
};

TEST(Zvdebug, Options) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    for (const Case &c : CASES) {
        SCOPED_TRACE(c.option);
        EXPECT_EXIT(run(c), testing::ExitedWithCode(0), "");
    }
}

TEST(Runtime, ReportsGoThroughTheAlerts) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const struct {
        const char *option;
        void (*report)();
        int status;
        const char *expected;
    } cases[] = {
        {"foo", [] {}, 0, "ZVDEBUG .warning.: unknown option .foo."},
        {"out:no/\xc2\x9b", [] {}, 41, "141. can.t open debug-out file .no/\\?.: No such file"},
        {"assert:fatal", [] { DEBUG_ASSERT(1 == 2); }, 41, "1503. assertion failure: 1 == 2 "},
        {"assert:error", [] { DEBUG_ASSERT(1 == 2); }, 0, "1502. assertion failure: 1 == 2 "},
        {nullptr, [] {}, 0, "1501. assertion failure: optstr != NULL "},
        {"",
         [] {
             os_setenv("TEMP", child_program().c_str()); // so there are no temporaries
             db_debugger_path = sc_strdup(child_program().c_str());
             const VectorPtr args = vector_of({"x", "--exit", "0"});
             db_debugger(db_debugger_path, args.get(), true);
         },
         0, "1501. assertion failure: cmdfile != NULL .*\n.1501. assertion failure: fp != NULL "},
        {"", [] { out_of_memory_hook(); }, 41, "296. out of memory"},
        {"", // the clean-up runs out of memory too, and again
         [] { (alert_exit_hook = [](int) { out_of_memory_hook(); }), out_of_memory_hook(); }, 1,
         "^.296. out of memory\n.296. out of memory\n.296. out of memory\n$"},
    };
    for (const auto &c : cases) {
        const auto run_reported = [&c] {
            runtime_init("kestrel", [](int status) { exit(40 + status); });
            trace_assert_mode = ASSERT_WARNING;
            zvdebug_parse(c.option);
            c.report();
            exit(0);
        };
        EXPECT_EXIT(run_reported(), testing::ExitedWithCode(c.status), c.expected);
    }
}
