// What only Windows does. These tests run under Wine too.
#include "host/host_windows.h"
#include "platform/osdep.h"
#include "support/files.h"
#include "support/scratch.h"
#include "tool/tool.h"

#include <aclapi.h>
#include <cerrno>
#include <deque>
#include <gtest/gtest.h>
#include <sddl.h>

TEST(HostWindows, EveryReasonHasItsText) {
    const std::string memory = strerror(ENOMEM);
    const struct {
        DWORD error;
        const char *text;
    } cases[] = {
        {ERROR_FILE_NOT_FOUND, "No such file or directory"},
        {ERROR_SHARING_VIOLATION, "Permission denied"},
        {ERROR_BAD_NETPATH, "The server cannot be reached"},
        {ERROR_NETNAME_DELETED, "The server cannot be reached"},
        {ERROR_COMMITMENT_LIMIT, memory.c_str()},
        {ERROR_HANDLE_DISK_FULL, "No space left on device"},
        {ERROR_NOT_ENOUGH_QUOTA, "The quota is used up"},
        {225, "A virus scanner forbids it"},
        {358, "The file is kept elsewhere and could not be fetched"},
        {357, "Invalid argument"},
        {404, "The file is kept elsewhere and could not be fetched"},
        {ERROR_CANT_ACCESS_FILE, "The file is kept elsewhere and could not be fetched"},
        {405, "Invalid argument"},
    };
    for (const auto &c : cases) {
        EXPECT_FALSE(system_failure(c.error));
        EXPECT_STREQ(host_strerror(errno), c.text) << c.error;
    }
}

static HANDLE held = INVALID_HANDLE_VALUE;
static int pauses = 0;
static int release_at = 0; // the pause in which the file is closed

// Opens a file with some rights, and lets others do with it what is shared.
static void hold(const std::string &path, DWORD access, DWORD share, int until) {
    held = CreateFileW(to_wide(path.c_str()).c_str(), access, share, nullptr, OPEN_EXISTING, 0,
                       nullptr);
    pauses = 0;
    release_at = until;
    in_use_pause = [](unsigned) {
        if (++pauses == release_at)
            CloseHandle(held);
    };
}

TEST(HostWindows, WhatIsInUseIsTriedAgain) {
    const Scratch scratch;
    const auto previous = in_use_pause;
    const auto read = [](const char *path) { return FilePtr(host_fopen(path, "r")) != nullptr; };
    const auto replace = [](const char *path) {
        write_file((std::string(path) + ".new").c_str(), "new");
        return host_replace((std::string(path) + ".new").c_str(), path);
    };
    const struct {
        bool (*act)(const char *path);
        DWORD share;
        int most, reason;
    } cases[] = {{read, 0, 5, EACCES},
                 {replace, FILE_SHARE_READ | FILE_SHARE_WRITE, 200, EAGAIN},
                 {host_remove, FILE_SHARE_READ | FILE_SHARE_WRITE, 200, EACCES}};
    for (const auto &c : cases) {
        const std::string file = scratch.write("file", "old");
        hold(file, GENERIC_READ, c.share, -1);
        EXPECT_FALSE(c.act(file.c_str()));
        EXPECT_EQ(errno, c.reason);
        EXPECT_EQ(pauses, c.most);
        CloseHandle(held);
        hold(file, GENERIC_READ, c.share, 3);
        EXPECT_TRUE(c.act(file.c_str()));
        EXPECT_EQ(pauses, 3);
    }
    scratch.write("file", "");
    pauses = 0; // a directory with a file is not in use
    EXPECT_FALSE(host_rmdir(scratch.directory()));
    EXPECT_EQ(pauses, 0);
    in_use_pause = previous;
}

TEST(HostWindows, FilesAreSharedWithThoseWhoRenameAndRemoveThem) {
    const Scratch scratch;
    const DWORD all = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    const std::string file = scratch.write("file", "x");
    hold(file, DELETE | GENERIC_READ, all, -1);
    const FilePtr stream(host_fopen_regular(file.c_str()));
    ASSERT_NE(stream, nullptr);
    EXPECT_TRUE(host_rename_new(file.c_str(), scratch.path("other").c_str()));
    EXPECT_EQ(getc(stream.get()), 'x');
    CloseHandle(held);
    EXPECT_TRUE(host_remove(scratch.path("other").c_str()));
}

// The access list of a file or directory.
static std::string rights_of(const std::string &path) {
    PSECURITY_DESCRIPTOR rights = nullptr;
    wchar_t *text = nullptr;
    GetNamedSecurityInfoW(to_wide(path.c_str()).data(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION,
                          nullptr, nullptr, nullptr, nullptr, &rights);
    ConvertSecurityDescriptorToStringSecurityDescriptorW(rights, SDDL_REVISION_1,
                                                         DACL_SECURITY_INFORMATION, &text, nullptr);
    return to_narrow(text).get();
}

TEST(HostWindows, RightsAreTheUsersOwnOrKept) {
    const Scratch scratch;
    const std::string closed = scratch.path("private"), everyone = ";;;WD)";
    ASSERT_TRUE(host_mkdir_private(closed.c_str()));
    EXPECT_EQ(rights_of(closed).find(everyone), std::string::npos) << rights_of(closed);
    const std::string from = scratch.write("from", ""), to = scratch.write("to", "");
    PSECURITY_DESCRIPTOR rights = nullptr;
    ConvertStringSecurityDescriptorToSecurityDescriptorW(L"D:P(A;;FA;;;BA)(A;;FA;;;WD)",
                                                         SDDL_REVISION_1, &rights, nullptr);
    ASSERT_TRUE(SetFileSecurityW(to_wide(from.c_str()).c_str(), DACL_SECURITY_INFORMATION, rights));
    LocalFree(rights);
    EXPECT_NE(rights_of(to), rights_of(from));
    host_copy_rights(from.c_str(), to.c_str());
    EXPECT_EQ(rights_of(to), rights_of(from));
}

// Not standard output, which is the parent's verdict.
TEST(HostWindows, OnlyStandardErrorOfAStartedProgramIsOurs) {
    const Scratch scratch;
    const std::string caught = scratch.path("caught"), program = child_program();
    const int saved_out = host_dup(1), saved_err = host_dup(2);
    int status = 1;
    {
        const FilePtr file(host_fopen(caught.c_str(), "w"));
        fflush(stdout);
        host_dup2(host_fileno(file.get()), 1);
        host_dup2(host_fileno(file.get()), 2);
        const ProcessHandle process =
            host_start_process(program.c_str(), nullptr, "child --stderr \"\xc3\xa4 b\"");
        host_dup2(saved_out, 1);
        host_dup2(saved_err, 2);
        ASSERT_TRUE(host_wait_process(process, &status));
    }
    EXPECT_EQ(read_file(caught), "\xc3\xa4 b");
}

// A task has its files open until it is ended. The files of the first one cannot be read, or the
// run is interrupted.
TEST(HostWindows, ARunThatFailsOrIsInterruptedLeavesNothingOfItsTasks) {
    const Installation inst("dir", 7);
    inst.generate();
    const Lines lines = split(read_file(inst.manifest)); // in the order of the walk
    const std::string temp = native_join(inst.top.c_str(), "temp");
    const std::string before = host_getenv("TEMP");
    const struct {
        const char *mode, *option, *signal;
        int status;
        std::string out; // after what is announced
    } cases[] = {{"-g", "-v", "", 1, ""},
                 {"-g", "-v", "2", 2, "\n"},
                 {"-c", "-v", "2", 2, "\n"},
                 {"-c", "--report", "2", 2, "\n"}};
    for (const auto &c : cases) {
        std::deque<SystemHandle> closed;
        for (size_t i = 0; i < 4 && *c.signal == '\0'; i++) {
            const std::string name = lines.at(i).substr(lines.at(i).find('\\') + 1);
            closed.emplace_back(
                CreateFileW(to_wide(native_join(inst.tree.c_str(), name.c_str()).c_str()).c_str(),
                            GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
        }
        host_mkdir(temp.c_str());
        os_setenv("TEMP", temp.c_str());
        os_setenv("KESTREL_INTERRUPT_PARENT", c.signal);
        const Outcome outcome = inst.interrupted("wait", {c.mode, "--tasks=2", c.option});
        EXPECT_EQ(outcome.status, c.status) << outcome;
        EXPECT_EQ(outcome.out,
                  inst.announced(c.mode[1] == 'g' ? "Generating" : "Checking") + c.out);
        EXPECT_EQ(listing(temp.c_str()), Lines{}) << c.mode << c.signal;
        os_rmtree(temp.c_str());
    }
    os_setenv("KESTREL_INTERRUPT_PARENT", "");
    os_setenv("TEMP", before.c_str());
}

TEST(HostWindows, TheTimeOfChangeTellsFilesApart) {
    const Scratch scratch;
    const std::string file = scratch.write("file", "x");
    const SystemHandle opened(CreateFileW(to_wide(file.c_str()).c_str(), FILE_WRITE_ATTRIBUTES, 7,
                                          nullptr, OPEN_EXISTING, 0, nullptr));
    const FILETIME written = {1, 30'000'000};
    FileState before, after;
    ASSERT_TRUE(SetFileTime(opened.get(), nullptr, nullptr, &written));
    ASSERT_TRUE(host_file_state(file.c_str(), &before));
    after = before;
    for (int tries = 0; tries < 1000000 && after == before;
         tries++) { // until the clock has gone on
        SetFileTime(opened.get(), nullptr, nullptr, &written);
        host_file_state(file.c_str(), &after);
    }
    EXPECT_FALSE(after == before);
}

// Where a directory tells upper from lower case, what is listed has exactly its name.
TEST(HostWindows, NamesThatDifferInCaseOnlyAreExtra) {
    const Installation inst("dir", 2);
    inst.generate();
    std::string text = read_file(inst.manifest);
    text.replace(text.find(".\\f0"), 4, ".\\F0");
    write_file(inst.manifest, text);
    EXPECT_EQ(inst.run({"-c", "--extra", "--tasks=1"}).status, 0);
    const auto system_path = reinterpret_cast<char *(*)(const wchar_t *)>(reinterpret_cast<void *>(
        GetProcAddress(GetModuleHandleW(L"kernel32"), "wine_get_unix_file_name")));
    if (system_path == nullptr)
        GTEST_SKIP() << "only Wine has such directories unasked";
    const std::string tree = native(system_path(to_wide(inst.tree.c_str()).c_str()));
    ASSERT_TRUE(write_file("\\\\?\\unix" + tree + "\\F1", "evil"));
    ASSERT_EQ(listing(inst.tree.c_str()).size(), 3u);
    const Outcome outcome = inst.run({"-c", "--extra", "--report", "--tasks=1"});
    EXPECT_NE(outcome.out.find("extra\t0\t.\\F1\n"), std::string::npos) << outcome;
}
