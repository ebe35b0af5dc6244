#include "kestrel/manifest.h"

#include "tool/tool.h"

TEST(KestrelManifest, LongManifestsAreRefusedUnread) {
    if (os_kind() != 0)
        GTEST_SKIP() << "files have no holes here";
    const Installation inst("dir", 1);
    const std::string log = native_join(inst.top.c_str(), "log");
    FilePtr file(host_fopen(inst.manifest.c_str(), "wb")); // all hole, and one byte too long
    ASSERT_TRUE(host_seek(file.get(), MANIFEST_LIMIT - 1) && putc('\n', file.get()) == '\n');
    file.reset();
    EXPECT_EQ(inst.run({"-c", "--zvdebug=on,out:" + log}), inst.verdict(false));
    EXPECT_NE(read_file(log).find("-> Manifest is too large\n"), std::string::npos);
}

// A task enters the directory by its name, like the manifest, when both may have changed.
TEST(KestrelManifest, TasksCheckWhatTheirParentHasFound) {
    const Installation inst, other;
    inst.generate();
    Subject subject;
    subject.directory = directory_identity(inst.tree.c_str());
    ASSERT_TRUE(host_file_state(inst.manifest.c_str(), &subject.file));
    expect_subject(&subject);
    const auto report_of = [&](const std::string &tree) {
        return inst.run({"--check=0,0,20", "--report", "--instdir=" + tree}).out;
    };
    EXPECT_EQ(report_of(inst.tree).find("error"), std::string::npos);
    EXPECT_TRUE(report_of(other.tree)
                    .starts_with("error\t0\tInstallation path \"" + other.tree +
                                 "\" does not lead to the same directory any more\n"));
    subject.file.changed++;
    expect_subject(&subject);
    EXPECT_TRUE(report_of(inst.tree).starts_with("error\t0\tManifest \"" + inst.manifest +
                                                 "\" changed during the check\n"));
    expect_subject(nullptr);
    EXPECT_NE(directory_identity("gone"), directory_identity("gone"))
        << "unknown is never the same";
}
