#include "messages/msgtable.h"

#include "containers/stringcache.h"
#include "installation/registry.h"
#include "installation/zvinstdir.h"
#include "messages/alert.h"
#include "support/log_capture.h"

#include <array>
#include <gtest/gtest.h>
#include <string>

using namespace std::string_literals;

static const char NEWER[] = "99999999999999_en.msgs";
static std::string reports;

namespace {

class MsgTable : public Logged {
  protected:
    void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
    void TearDown() override {
        zvinstall_ver = zvinstall_dir = nullptr;
        alert_init();
    }

    // The installation for this test; message files lie in its directory "dat".
    void make_installation() {
        for (const char *directory : {"bin", "dat"})
            os_mkdir_parents(at(directory).c_str());
        ASSERT_EQ(zvinstdir_set(sc_strdup(scratch.directory())), 0);
    }
};

// After alert_init, so that the built-in types are in force and the reports come to us.
class MessageFile : public MsgTable {
  protected:
    void SetUp() override {
        alert_init();
        reports.clear();
        msgtable_malformed_hook = [](uint32_t line, const char *file) {
            reports +=
                std::to_string(line) + " " + (file != nullptr ? os_basename(file) : "null") + "\n";
        };
    }
};

// What a line in a message file makes of a row.
struct LineCase {
    std::string line;
    uint32_t number;
    bool malformed;
    uint32_t type;
    int32_t level;
    std::string text;
};

} // namespace

// The rows are 296 ("out of memory", fatal) and 1502, which prints "%s", "%s" and "%d".
static const std::string LONGEST(255 - 6, 'x');
static constexpr const char *BUILTIN_TEXT = "out of memory";
static constexpr const char *ASSERTION = "assertion failure: %s (%s:%d) ";
static const LineCase LINES[] = {
    {"296\tE\tvoll", 296, false, MSG_ERROR, 0, "voll"},
    {" \t296 \t-3x  voll \t\n", 296, false, MSG_WARNING, -3, " voll \t"},
    {"296x\t7\tvoll\r\n", 296, false, MSG_WARNING, 7, "voll"},
    {"296\tE\tvoll\r\n" + std::string(300, '#'), 296, false, MSG_ERROR, 0, "voll"},
    {"296\t-\tvoll\r", 296, false, MSG_WARNING, 0, "voll"},
    {"296\t99999999999\tvoll", 296, false, MSG_WARNING, INT32_MAX, "voll"},
    {"296\tw\tvoll", 296, true, 0, 0, "voll"},
    {"296\tE\tvo\0ll\n"s, 296, false, MSG_ERROR, 0, "vo"},
    {"296\tE\tvoll 100%% %m", 296, false, MSG_ERROR, 0, "voll 100%% %m"},
    {"296\tE\tvoll %s", 296, true, MSG_ERROR, 0, BUILTIN_TEXT},
    {"296\tE\t100%", 296, true, MSG_ERROR, 0, BUILTIN_TEXT},
    {"1502\tE\t%s, %s, %d!", 1502, false, MSG_ERROR, 0, "%s, %s, %d!"},
    {"1502\tE\t%s, %d, %s!", 1502, true, MSG_ERROR, 0, ASSERTION},
    {"1502\tE\t%s, %s, %*d", 1502, true, MSG_ERROR, 0, ASSERTION},
    {"296\tE\tvoll\n296\tM\tvoller", 296, false, MSG_MESSAGE, 0, "voller"},
    {"10000\tE\tx\nx\tE\tx\n296\tE\tvoll", 296, false, MSG_ERROR, 0, "voll"},
    {"#296\tE\tvoll", 296, false, MSG_FATAL, 0, BUILTIN_TEXT},
    {"297\tE\tvoll", 296, false, MSG_FATAL, 0, BUILTIN_TEXT},
    {" \t", 296, true, MSG_FATAL, 0, BUILTIN_TEXT},
    {"-296\tE\tvoll", 296, true, MSG_FATAL, 0, BUILTIN_TEXT},
    {"10001\tE\tvoll", 296, true, MSG_FATAL, 0, BUILTIN_TEXT},
    {"18446744073709551912\tE\tvoll", 296, true, MSG_FATAL, 0, BUILTIN_TEXT},
    {"296\tE\t\n", 296, true, MSG_FATAL, 0, BUILTIN_TEXT},
    {"296\tE\t" + LONGEST + "\r\n", 296, false, MSG_ERROR, 0, LONGEST},
    {"296\tE\t" + LONGEST + "\n296\tM\tx", 296, false, MSG_MESSAGE, 0, "x"},
    {"296\tE\t" + LONGEST + "296\tM\tx", 296, false, MSG_MESSAGE, 0, "x"},
};

TEST_F(MessageFile, RowsOfTheBuiltInTable) {
    constexpr MsgRec ROWS[] = {
        {MSG_MESSAGE, 1, "too many errors (%u)", 0},
        {MSG_MESSAGE, 2, "error/warning (%u) generated but no description available", 0},
        {MSG_MESSAGE, 3, "malformed error information on line * in file *", 0},
        {MSG_FATAL, 5,
         "QRN has encountered an internal error and must quit; provide Norvane support with the "
         "following details: %s",
         0},
        {MSG_FATAL, 141, "can't open %s file \"%s\": %m", 0},
        {MSG_FATAL, 296, BUILTIN_TEXT, 0},
        {MSG_WARNING, 1501, ASSERTION, 0},
        {MSG_ERROR, 1502, ASSERTION, 0},
        {MSG_FATAL, 1503, ASSERTION, 0},
        {MSG_ERROR, 9999,
         "An error, warning or message was generated, but no description is available", 0},
    };
    load_edf(msgtable_builtin_name());
    for (const MsgRec &expected : ROWS) {
        const MsgRec row = msgtable_row(expected.number);
        EXPECT_STREQ(row.text, expected.text);
        EXPECT_EQ(row.type, expected.type) << row.text;
        EXPECT_EQ(row.number, expected.number) << row.text;
        EXPECT_EQ(row.level, expected.level) << row.text;
    }
}

TEST_F(MessageFile, LinesOfATable) {
    for (const auto &test : LINES) {
        reports.clear();
        const Vector *table = load_edf(scratch.write("table", test.line).c_str());
        ASSERT_NE(table, nullptr);
        const auto *row = vec_at<MsgRec>(table, test.number);
        ASSERT_NE(row, nullptr) << test.line;
        EXPECT_EQ(row->type, test.type) << test.line;
        EXPECT_EQ(row->level, test.level) << test.line;
        EXPECT_EQ(row->text, test.text) << test.line;
        EXPECT_EQ(reports.empty(), !test.malformed) << test.line;
        EXPECT_EQ(vec_elementAt(table, 297), nullptr);
        EXPECT_EQ(vec_size(table), 1504u); // whatever numbers the file has
    }
    EXPECT_TRUE(msgnum_valid(0) && msgnum_valid(1503));
    EXPECT_FALSE(msgnum_valid(-1) || msgnum_valid(1504));
}

TEST_F(MessageFile, LaterFilesChangeTextsOnly) {
    ASSERT_NE(load_edf(scratch.write("first", "296\tM\tvoll\n").c_str()), nullptr);
    EXPECT_EQ(msgtable_row(296).type, MSG_FATAL);
    EXPECT_STREQ(msgtable_row(296).text, "voll");
    EXPECT_EQ(load_edf(scratch.path("missing").c_str()), nullptr);
    EXPECT_STREQ(os_basename(alert_msgfile()), "first");
    EXPECT_STREQ(msgtable_row(296).text, "voll");
    ASSERT_NE(load_edf(scratch.write("second", "#\n\n1\tM\tx %u\n\n").c_str()), nullptr);
    EXPECT_EQ(reports, "2 first\n4 first\n");
    EXPECT_STREQ(msgtable_row(296).text, "out of memory");
    const std::string large(16 << 20, '#');
    EXPECT_NE(load_edf(scratch.write("large", large).c_str()), nullptr);
    EXPECT_EQ(load_edf(scratch.write("too large", large + '#').c_str()), nullptr);
}

TEST_F(MessageFile, OpeningTakesWhatIsNewer) {
    make_installation();
    const std::string builtin = msgtable_builtin_name();
    const auto path = [&](const std::string &name) { return name == builtin ? name : at(name); };
    for (const std::string name : {"99_en.msgs", "bin/99_en.msgs", "dat/99_en.msgs", "binary_99",
                                   "99_a.msgs", "en.msgs", NEWER})
        scratch.write(native(name).c_str(), "296\tF\t" + name);
    const struct {
        std::string in_force, opened, in_force_then;
    } cases[] = {
        {builtin, "99_en.msgs", builtin},
        {"99_en.msgs", "99_a.msgs", "99_en.msgs"}, // smaller by bytes
        {"99_a.msgs", "99_en.msgs", "99_en.msgs"},
        {"99_en.msgs", "bin/99_en.msgs", "bin/99_en.msgs"},
        {"bin/99_en.msgs", "dat/99_en.msgs", "bin/99_en.msgs"},
        {"en.msgs", "binary_99", "en.msgs"},
        {"99_en.msgs", "99_en.msgs", "99_en.msgs"},
        {"99_en.msgs", NEWER, NEWER},
        {"99_en.msgs", builtin, builtin},
        {NEWER, builtin, NEWER},
    };
    for (const auto &test : cases) {
        load_edf(path(test.in_force).c_str());
        EXPECT_TRUE(open_edf(path(test.opened).c_str()));
        EXPECT_EQ(alert_msgfile(), path(test.in_force_then)) << test.in_force << test.opened;
        EXPECT_EQ(msgtable_row(296).text,
                  test.in_force_then == builtin ? "out of memory" : test.in_force_then);
    }
    const std::string both = "\"" + builtin + "\" is not newer than \"" + path(NEWER) + "\"";
    EXPECT_NE(log.lines_with(both), "");
    const std::string missing = path("99999999999999999_en.msgs");
    EXPECT_FALSE(open_edf(nullptr) || open_edf(missing.c_str()));
    EXPECT_TRUE(log.texts_of("alert.cpp")
                    .ends_with("ENTER open_edf((null))\nEXIT open_edf() -> false\nENTER open_edf(" +
                               missing + ")\nEXIT open_edf() -> false\n"));
    EXPECT_FALSE(open_edf_dir(path("missing").c_str()));
    EXPECT_TRUE(alert_open_lang(12)); // for which there is none
    load_edf(builtin.c_str());
    EXPECT_TRUE(open_edf_dir(Scratch().directory())); // which has none
    EXPECT_EQ(alert_msgfile(), builtin);
    EXPECT_TRUE(open_edf_dir(scratch.directory()));
    EXPECT_EQ(alert_msgfile(), path(NEWER));
}

TEST_F(MsgTable, VersionsOfFileNames) {
    EXPECT_EQ(getMsgFileVersion("20230208172133_en.msgs"), 20230208172133u);
    EXPECT_EQ(getMsgFileVersion(native_join("12", "34_en.msgs").c_str()), 34u);
    EXPECT_EQ(getMsgFileVersion("18446744073709551616_en.msgs"), UINT64_MAX);
    for (const char *name :
         {"en_msgs.txt", "-7_en.msgs", " 7_en.msgs", "", static_cast<const char *>(nullptr)})
        EXPECT_EQ(getMsgFileVersion(name), 0u);
}

TEST_F(MsgTable, Languages) {
    for (const char *name : {"FR", "french", "francais"})
        EXPECT_EQ(lang_lookup(name), 12u) << name;
    EXPECT_EQ(lang_lookup("en"), 9u);
    EXPECT_EQ(lang_lookup("Deutsch"), 7u);
    for (const char *name : {"fra", "", ";", "German;Deutsch", static_cast<const char *>(nullptr)})
        EXPECT_EQ(lang_lookup(name), 255u);
    EXPECT_STREQ(lang_code(12), "fr");
    EXPECT_STREQ(lang_code(255), "en");
    EXPECT_STREQ(lang_code(8), "en");
}

TEST_F(MsgTable, TheNewestFileOfTheInstallationIsChosen) {
    make_installation();
    EXPECT_STREQ(msg_filename(LANG_NONE), msgtable_builtin_name());
    const struct {
        std::string added;
        const char *chosen; // null for the built-in table
    } steps[] = {
        {"de_msgs.txt", nullptr},
        {"en_msgs.txt", nullptr},
        {"20230208172132_en.msgs", nullptr},
        {"99999999999999_de.msgs", nullptr},
        {"99999999999999_en.msgs.bak", nullptr},
        {"20230208172134_en.msgs", "20230208172134_en.msgs"},
        {"99999999999999_a_en.msgs", "99999999999999_a_en.msgs"},
        {"99999999999999_b_en.msgs", "99999999999999_b_en.msgs"},
        {"99999999999999_A_en.msgs", "99999999999999_b_en.msgs"},
    };
    for (const auto &[added, chosen] : steps) {
        scratch.write(("dat/" + added).c_str(), "");
        EXPECT_EQ(msg_filename(LANG_NONE), chosen ? at("dat/"s + chosen) : msgtable_builtin_name())
            << added;
    }
    EXPECT_EQ(msg_filename(7), at("dat/99999999999999_de.msgs"));
    const VectorPtr list(vec_new(__FILE__, __LINE__));
    EXPECT_EQ(findMsgFiles(at("dat").c_str(), 7, list.get()), 2u);
    EXPECT_EQ(findMsgFiles(at("dat").c_str(), 12, list.get()), 0u);
    EXPECT_EQ(findMsgFiles(at("no").c_str(), 7, list.get()), 0u);
    EXPECT_EQ(vec_size(list.get()), 2u);
}

TEST_F(MsgTable, TheSearchIsLogged) {
    make_installation();
    const std::string file = scratch.write(native("dat/"s + NEWER).c_str(), "");
    alert_init();
    set_maxerrors(20);
    const auto version_of = [](const std::string &name, const std::string &version) {
        return "ENTER getMsgFileVersion(" + name + ")\nEXIT getMsgFileVersion() -> " + version +
               "\n";
    };
    const std::string expected = "ENTER msg_filename(lnum = 255)\nENTER findMsgFiles(" + at("dat") +
                                 ")\nlegacyMsgFile = \"en_msgs.txt\"\n"
                                 "msgFileSuffix = \"_en.msgs\"\nFound: " +
                                 NEWER + "\nEXIT findMsgFiles() -> numFound = 1\ncnt = 1\n" +
                                 version_of(file, "99999999999999") +
                                 version_of(msgtable_builtin_name(), "20230208172133") +
                                 "EXIT msg_filename() -> \"" + file + "\"\n";
    EXPECT_EQ(log.texts_of("msgtable_files.cpp"), expected);
    EXPECT_EQ(log.texts_of("alert.cpp"),
              "alert_init() done\nENTER set_maxerrors(20)\nEXIT set_maxerrors()\n");
}

TEST_F(MsgTable, FilesInBinGoFirstAmongEquals) {
    make_installation();
    const std::string sorted[] = {at("dat/8_a.msgs"), at("bin/7_a.msgs"), at("dat/7_c.msgs"),
                                  at("dat/7_b.msgs")};
    for (const auto &order : {std::array{3u, 1u, 2u, 0u}, std::array{0u, 2u, 1u, 3u}}) {
        const VectorPtr list(vec_new(__FILE__, __LINE__));
        for (const uint32_t i : order)
            vec_append(list.get(), sorted[i].c_str());
        msgfile_sort(list.get());
        for (uint32_t i = 0; i < std::size(sorted); i++)
            EXPECT_EQ(vec_at<const char>(list.get(), i), sorted[i]);
    }
}

// A copy of the tool says from where it has the text of a message.
TEST_F(MsgTable, FilesBesideTheProgramAndInTheCurrentDirectoryAreNextInLine) {
    const std::string built = built_program("kestrel");
    const std::string copy = at("v/bin/"s + os_basename(built.c_str()));
    os_mkdir_parents(at("v/bin").c_str());
    std::filesystem::copy_file(built, copy);
    const Inside inside(scratch.directory());
    for (const std::string directory : {".", "v/dat", "v/lum/dat"}) {
        os_mkdir_parents(native(directory).c_str());
        scratch.write(native(directory + "/" + NEWER).c_str(), "141\tF\t" + directory + ", %s, %s");
        FILE *output = os_popenv(copy.c_str(), "--zvdebug=on,out:missing/log", nullptr);
        EXPECT_EQ(read_all(output), "(141) " + directory + ", debug-out, missing/log\n");
        os_pclose(output);
    }
    os_mkdir_parents("tools");
    const std::string elsewhere = native_join("tools", os_basename(copy.c_str()));
    std::filesystem::copy_file(built, elsewhere);
    os_pclose(os_popenv(elsewhere.c_str(), "--zvdebug=on,out:log,out:missing/log", nullptr));
    EXPECT_NE(read_file("log").find("EXIT set_zvinstall_paths() -> ERROR - the application is not "
                                    "running from a 'bin' directory"),
              std::string::npos);
}

TEST_F(MsgTable, TheFirstFileSettlesTypesAndIsReported) {
    const std::string file = scratch.write("file", "296\tM\tvoll\n");
    EXPECT_EXIT((open_edf(file.c_str()), exit(msgtable_row(296).type == MSG_FATAL ? 40 : 41)),
                testing::ExitedWithCode(40), "^$"); // is not the first
    EXPECT_EXIT((load_edf(scratch.write("file", "#\n\n").c_str()), exit(40)),
                testing::ExitedWithCode(40), // before there is a hook
                "^Malformed error information on line 2, in file .null.\n$");
    make_installation();
    // A directory lists like a message file, but cannot be read as one.
    const std::string newer = at("dat/"s + NEWER);
    os_mkdir_parents(newer.c_str());
    EXPECT_EXIT(alert(296), testing::ExitedWithCode(1), "^.296. out of memory\n");
    EXPECT_EXIT(alert_open_lang(LANG_DEFAULT), testing::ExitedWithCode(1),
                "Could not open message file .*99999999999999_en.msgs\n\n");
    host_rmdir(newer.c_str());
    scratch.write(native("dat/"s + NEWER).c_str(), "#\n296\tM\tvoll\n5\tM\tnur %s\n\n");
    const auto first = [] {
        alert_set_position("f", nullptr, nullptr, nullptr);
        exit(alert_nl_repeat(296) == 1 ? 40 : 41);
    };
    EXPECT_EXIT(first(), testing::ExitedWithCode(40),
                "^f: Malformed error information on line 4, in file .null.\n\nNon line .*: voll\n");
    EXPECT_EXIT(alert_fatal(7), testing::ExitedWithCode(7), "\nnur .* fatal error 7\n");
    EXPECT_EXIT(
        (alert_init(), trace_use(stderr, nullptr), alert_fatal(0)), testing::ExitedWithCode(1),
        "ENTER alert_fatal.* fatal error 0.\nnur .* fatal error 0\n.*EXIT alert_fatal..\n$");
}
