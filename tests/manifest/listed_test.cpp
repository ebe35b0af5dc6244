#include "manifest/listed.h"

#include "support/files.h"
#include "support/scratch.h"

#include <gtest/gtest.h>

// Names of one file, and names that look like its.
TEST(ListedFiles, OtherNamesAreNotListed) {
    const Scratch scratch;
    const std::string tree = scratch.path("tree");
    const Inside inside(tree);
    for (const char *directory : {"r", "r/s", "d..x"})
        host_mkdir(native(directory).c_str());
    for (const char *file : {"own", "r/own", "r/s/own", "d..x/own"})
        write_file(native(file), "x");
    const bool drives = host_path_style().drives;
    const bool links = !drives && make_link("own", "l", false) && make_link("r", "d", true) &&
                       make_link("r/s", "e", true) && make_link("tree", "../t", true);
    if (links)
        std::filesystem::create_hard_link("own", "OWN");
    const char *const all[] = {"own",      "OWN",   "l",     "r/own",   "r/s/own",
                               "d..x/own", "d/own", "e/own", "d/s/own", "gone"};
    using Names = std::vector<std::string>;
    const struct {
        const char *line, *given; // one of them, or null
        bool needs_links;
        Names listed;
    } cases[] = {
        {".\\own", nullptr, false, drives ? Names{"own", "OWN"} : Names{"own"}},
        {"./r//own", nullptr, false, {"r/own"}},
        {"r/s\\../../gone", nullptr, false, {}},
        {"d..x\\own", nullptr, false, {"d..x/own"}},
        {"l", nullptr, true, {"l"}},
        {"e\\..\\own", nullptr, true, {"r/own", "d/own"}},
        {nullptr, "own", false, drives ? Names{"own", "OWN"} : Names{"own"}},
        {nullptr, "d..x/own", false, {"d..x/own"}},
        {nullptr, "../own", false, {}},
        {nullptr, "l", true, {"own", "l"}},
        {nullptr, "../t/l", true, {"own", "l"}},
        {nullptr, "r/own", true, {"r/own"}},
        {nullptr, "d/own", true, {"r/own", "d/own"}},
        {nullptr, "e/../own", true, {"r/own"}},
    };
    for (const auto &c : cases) {
        ListedFiles files;
        if (c.line != nullptr)
            files.add(c.line);
        else
            files.add_given(native(tree + "/" + c.given).c_str(), tree.c_str());
        Names listed;
        for (const char *name : all)
            if (files.contains(native(name).c_str(), (std::string(".\\") + name).c_str()))
                listed.push_back(name);
        if (links || !c.needs_links) {
            EXPECT_EQ(listed, c.listed) << text_of(c.line) << ' ' << text_of(c.given);
        }
    }
}
