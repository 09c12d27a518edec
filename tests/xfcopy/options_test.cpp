#include "xfcopy/options.h"

#include <cstring>

#include <gtest/gtest.h>

using namespace xfcopy;

namespace {

// A command line, as main gets it.
struct Line {
    explicit Line(std::vector<std::string> words) : words_(std::move(words)) {
        for (std::string &each : words_)
            list_.push_back(each.data());
        problem = parse_options(static_cast<int>(list_.size()), list_.data(),
                                options);
    }
    std::vector<std::string> words_;
    std::vector<char *> list_;
    Options options;
    std::string problem;
};

using Words = std::vector<std::string>;

TEST(Options, ACopyNeedsNoCommand) {
    const Line line({"-v2c", "-c", "private", "switch", "running", "startup"});
    EXPECT_EQ(line.problem, "");
    EXPECT_EQ(line.options.command, "copy");
    EXPECT_EQ(line.options.words, (Words{"switch", "running", "startup"}));
    EXPECT_EQ(line.options.library, (Words{"-v2c", "-c", "private"}));
    EXPECT_EQ(line.options.root, (Oid{1, 3, 6, 1, 4, 1, 32473, 1, 1}));
}

TEST(Options, StandWhereTheyLike) {
    const Line line({"switch", "--vrf", "red", "running", "-v", "3", "all",
                     "--timeout=5", "--notify", "-t2", "--index=7",
                     "--wait-busy", "0", "--keep"});
    EXPECT_EQ(line.problem, "");
    EXPECT_EQ(line.options.words, (Words{"switch", "running", "all"}));
    EXPECT_EQ(line.options.library, (Words{"-v", "3", "-t2"}));
    EXPECT_EQ(line.options.vrf, "red");
    EXPECT_EQ(line.options.timeout, 5);
    EXPECT_EQ(line.options.wait_busy, 0);
    EXPECT_EQ(line.options.index, 7);
    EXPECT_TRUE(line.options.notify && line.options.keep);
    EXPECT_FALSE(line.options.no_wait || line.options.json ||
                 line.options.quiet);
}

TEST(Options, Commands) {
    EXPECT_EQ(Line({"copy", "a", "running", "all"}).options.command, "copy");
    EXPECT_EQ(Line({"list", "a"}).options.command, "list");
    EXPECT_EQ(Line({"--json", "show", "a", "1"}).options.command, "show");
    EXPECT_EQ(Line({"cancel", "a", "1"}).options.command, "cancel");
    EXPECT_EQ(Line({"errors", "a", "1"}).options.command, "errors");
    EXPECT_EQ(Line({"history", "a"}).options.words, (Words{"a"}));
    EXPECT_EQ(Line({"history", "a", "1"}).options.words, (Words{"a", "1"}));
    EXPECT_NE(Line({"history", "a", "1", "2"}).problem, "");
    EXPECT_EQ(Line({"history", "a", "--last", "7"}).options.last, 7);
    EXPECT_EQ(
        Line({"history", "a", "--history-root", "1.3.6"}).options.history_root,
        (Oid{1, 3, 6}));
}

TEST(Options, HelpAndVersionNeedNothing) {
    EXPECT_TRUE(Line({"--help"}).options.help);
    EXPECT_TRUE(Line({"-h"}).options.help);
    EXPECT_TRUE(Line({"list", "--version"}).options.version);
    EXPECT_EQ(Line({"-V"}).problem, "");
}

TEST(Options, PassphrasesAreOverwritten) {
    const Line line(
        {"-A", "secret one", "-Xsecret two", "-u", "alice", "list", "a"});
    EXPECT_EQ(line.problem, "");
    EXPECT_EQ(line.options.library[1], "secret one");
    EXPECT_EQ(line.options.library[2], "-Xsecret two");
    for (const std::string &word : line.words_)
        EXPECT_EQ(word.find("secret"), std::string::npos);
    EXPECT_STREQ(line.words_[4].c_str(), "alice");
}

struct BadLine {
    Words words;
    const char *expected;
};

// What names a case in the output of a test.
[[maybe_unused]] void PrintTo(const BadLine &line, std::ostream *out) {
    *out << testing::PrintToString(line.words);
}

class BadLines : public testing::TestWithParam<BadLine> {};

TEST_P(BadLines, TellTheOption) {
    const Line line(GetParam().words);
    EXPECT_NE(line.problem.find(GetParam().expected), std::string::npos)
        << line.problem;
}

INSTANTIATE_TEST_SUITE_P(
    Options, BadLines,
    testing::Values(
        BadLine{{}, "something is missing: xfcopy AGENT SOURCE"},
        BadLine{{"a", "running"}, "something is missing"},
        BadLine{{"a", "running", "all", "x"}, "too much"},
        BadLine{{"list"}, "something is missing: xfcopy list AGENT"},
        BadLine{{"show", "a"}, "xfcopy show AGENT N"},
        BadLine{{"list", "a", "b"}, "too much"},
        BadLine{{"", "running", "all"}, "AGENT"},
        BadLine{{"--", "-x", "running", "all"}, "AGENT"},
        BadLine{{"--nope", "a", "running", "all"}, "--nope: there is no such"},
        BadLine{{"--"
                 "\x1b[2J"},
                "--\\x1b[2J"},
        BadLine{{"-q", "list", "a"}, "-q: there is no such"},
        BadLine{{"-", "list"}, "missing"},
        BadLine{{"list", "a", "-v"}, "-v: its argument is missing"},
        BadLine{{"list", "a", "--root"}, "--root: OID is missing"},
        BadLine{{"list", "a", "--root", "1"}, "--root 1: it is not an OID"},
        BadLine{{"list", "a", "--root="}, "--root : it is not"},
        BadLine{{"list", "a", "--json=1"}, "--json takes no argument"},
        BadLine{{"list", "a", "--vrf=x"}, "--vrf is for copies only"},
        BadLine{{"a", "running", "all", "--keep", "--last=3"},
                "--last is for history only, not for copy"},
        BadLine{{"history", "a", "--last", "0"}, "--last 0"},
        BadLine{{"history", "a", "5", "--last", "2"}, "exclude"},
        BadLine{{"a", "running", "all", "--vrf="}, "--vrf"},
        BadLine{{"a", "running", "all", "--vrf", std::string(33, 'v')},
                "1 to 32"},
        BadLine{{"a", "running", "all", "--timeout", "0"}, "--timeout 0"},
        BadLine{{"a", "running", "all", "--timeout", "5s"}, "--timeout 5s"},
        BadLine{{"a", "running", "all", "--wait-busy=-1"}, "--wait-busy -1"},
        BadLine{{"a", "running", "all", "--index", "0"}, "--index 0"},
        BadLine{{"a", "running", "all", "--index", "2147483648"}, "--index"},
        BadLine{{"a", "running", "all", "--password-fd", "x"},
                "--password-fd x"},
        BadLine{{"a", "running", "all", "--password-file="}, "--password-file"},
        BadLine{{"a", "running", "all", "--password-file=a", "--password-fd=0"},
                "exclude"},
        BadLine{{"a", "running", "all", "--no-wait", "--timeout=1"},
                "exclude"}));

TEST(Options, Oids) {
    EXPECT_EQ(parse_oid(".1.3.6"), (Oid{1, 3, 6}));
    EXPECT_EQ(parse_oid("2.999.4294967295"), (Oid{2, 999, 4294967295U}));
    for (const char *text : {"", ".", "1", "1.", "1..3", "1.40", "3.1", "a.b",
                             "1.3.4294967296", "1.3.-1", "1.3 "})
        EXPECT_EQ(parse_oid(text), std::nullopt) << text;
    std::string many = "1";
    for (int i = 0; i < 200; ++i)
        many += ".1";
    EXPECT_EQ(parse_oid(many), std::nullopt);
}

TEST(Help, FitsAScreen) {
    const std::string text = help_text();
    size_t lines = 0;
    for (size_t start = 0; start < text.size(); ++lines) {
        const size_t end = text.find('\n', start);
        ASSERT_NE(end, std::string::npos);
        EXPECT_LE(end - start, 79U) << text.substr(start, end - start);
        start = end + 1;
    }
    EXPECT_LE(lines, 23U); // and one for the prompt
}

} // namespace
