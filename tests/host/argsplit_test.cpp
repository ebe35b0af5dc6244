#include "host/argsplit.h"

#include <gtest/gtest.h>

TEST(ArgSplit, FollowsTheRules) {
    // clang-format off
    const struct {
        const char *line;
        std::vector<std::string> arguments;
    } cases[] = {
        {"", {}}, {" \t ", {}}, {"\t prog  a\tb ", {"prog", "a", "b"}}, {"a\nb", {"a\nb"}},
        {R"("c:\my dir\prog.exe" x)", {R"(c:\my dir\prog.exe)", "x"}}, {R"(a"b c"d e)", {"ab cd", "e"}},
        // Backslashes count only before a quote.
        {R"(a\b c\\d \ \\ e\)", {R"(a\b)", R"(c\\d)", R"(\)", R"(\\)", R"(e\)"}},
        {R"(\"a b\")", {R"("a)", R"(b")"}}, {R"(\\"a b\\" c)", {R"(\a b\)", "c"}},
        {R"(\\\"a b)", {R"(\"a)", "b"}}, {R"("a\"b c" d)", {R"(a"b c)", "d"}},
        {R"("a\\" b)", {R"(a\)", "b"}}, {R"("c:\dir\" x)", {R"(c:\dir" x)"}},
        // Empty arguments, pairs of quotes, and quotes left open.
        {R"("" a "")", {"", "a", ""}}, {R"(a"" b)", {"a", "b"}}, {R"("a""b c" d)", {R"(a"b c)", "d"}},
        {R"("""" x)", {R"(")", "x"}}, {R"(a "b c )", {"a", "b c "}}, {R"(")", {""}},
        {R"("a\\)", {R"(a\\)"}}};
    // clang-format on
    for (const auto &c : cases)
        EXPECT_EQ(split_command_line(c.line), c.arguments) << c.line;
}
