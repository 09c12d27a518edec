#include "xfcopy/location.h"

#include <gtest/gtest.h>

using namespace xfcopy;

namespace {

Location parsed(const std::string &word) {
    Location location;
    EXPECT_EQ(parse_location(word, location), "") << word;
    return location;
}

std::string problem_of(const std::string &word) {
    Location location;
    return parse_location(word, location);
}

TEST(Location, Words) {
    EXPECT_EQ(parsed("running").type, FileType::running);
    EXPECT_EQ(parsed("startup").type, FileType::startup);
    EXPECT_EQ(parsed("fabric").type, FileType::fabric);
    EXPECT_EQ(parsed("all").type, FileType::all);
}

TEST(Location, PartsOfAUrl) {
    const Location file = parsed("sftp://back%40up@[2001:db8::1]/lab/sw%201");
    EXPECT_EQ(file.type, FileType::network);
    EXPECT_EQ(file.protocol, Protocol::sftp);
    EXPECT_EQ(file.user, "back@up");
    EXPECT_EQ(file.host, "2001:db8::1");
    EXPECT_EQ(file.path, "/lab/sw 1");
}

struct PathCase {
    const char *url;
    const char *path;
};

// What names a case in the output of a test.
[[maybe_unused]] void PrintTo(const PathCase &path, std::ostream *out) {
    *out << path.url;
}

class Paths : public testing::TestWithParam<PathCase> {};

TEST_P(Paths, AreThoseOfCurl) {
    EXPECT_EQ(parsed(GetParam().url).path, GetParam().path);
}

INSTANTIATE_TEST_SUITE_P(
    Location, Paths,
    testing::Values(
        PathCase{"tftp://192.0.2.1/lab/sw1.cfg", "lab/sw1.cfg"},
        PathCase{"tftp://192.0.2.1//lab/sw1.cfg", "/lab/sw1.cfg"},
        PathCase{"tftp://192.0.2.1/a;mode=octet", "a"},
        PathCase{"ftp://u@h/a/b", "a/b"}, PathCase{"ftp://u@h//a", "/a"},
        PathCase{"ftp://u@h/%2Fa", "/a"}, PathCase{"ftp://u@h/%2fa", "/a"},
        PathCase{"ftp://u@h/a;type=i", "a"},
        PathCase{"ftp://u@h/a%3Btype=a", "a;type=a"},
        PathCase{"FTP://u@h/a//b", "a//b"}, PathCase{"sftp://u@h/a", "/a"},
        PathCase{"sftp://u@h//a", "//a"}, PathCase{"sftp://u@h/~/a", "a"},
        PathCase{"sftp://u@h/~", "/~"}, PathCase{"sftp://u@h/%7E/a", "/~/a"},
        PathCase{"scp://u@h/~/a%2Fb", "a/b"},
        PathCase{"scp://u@h/~joe/a", "/~joe/a"},
        PathCase{"scp://u@h/caf%C3%A9", "/caf\xc3\xa9"},
        PathCase{"scp://u@h/100%25", "/100%"}));

TEST(Location, FtpWithoutAUserIsAnonymous) {
    EXPECT_EQ(parsed("ftp://192.0.2.1/a").user, "anonymous");
}

struct BadCase {
    const char *url;
    const char *words;
};

[[maybe_unused]] void PrintTo(const BadCase &bad, std::ostream *out) {
    *out << '"' << bad.url << '"';
}

class BadUrls : public testing::TestWithParam<BadCase> {};

TEST_P(BadUrls, AreRefusedWithTheReason) {
    const std::string problem = problem_of(GetParam().url);
    EXPECT_NE(problem.find(GetParam().words), std::string::npos)
        << GetParam().url << ": " << problem;
}

INSTANTIATE_TEST_SUITE_P(
    Location, BadUrls,
    testing::Values(
        BadCase{"", "none of running"}, BadCase{"Running", "none of running"},
        BadCase{"tftp:/192.0.2.1/a", "none of running"},
        BadCase{"http://h/a", "only tftp, ftp, scp and sftp"},
        BadCase{"://h/a", "only tftp"},
        BadCase{"rcp://h/a", "agents refuse rcp"},
        BadCase{"tftp://h:69/a", "no room for a port"},
        BadCase{"tftp://h:/a", "no room for a port"},
        BadCase{"sftp://u@[::1]:22/a", "no room for a port"},
        BadCase{"sftp://u@[::1]x/a", "behind the ]"},
        BadCase{"sftp://u@::1/a", "in brackets"},
        BadCase{"sftp://u@[::1/a", "] behind the address"},
        BadCase{"sftp://u@[]/a", "no IPv6 address"},
        BadCase{"sftp://u@[192.0.2.1]/a", "no IPv6 address"},
        BadCase{"sftp://u@[fe80::1%25eth0]/a", "zone"},
        BadCase{"sftp://u:secret@h/a", "password has no place"},
        BadCase{"ftp://:secret@h/a", "password has no place"},
        BadCase{"sftp://@h/a", "user name is empty"},
        BadCase{"sftp://h/a", "user is missing"},
        BadCase{"scp://h/a", "user is missing"},
        BadCase{"tftp://u@h/a", "no users"}, BadCase{"tftp:///a", "no server"},
        BadCase{"tftp://h", "names no file"},
        BadCase{"tftp://h/", "names no file"},
        BadCase{"tftp://h/a/", "names no file"},
        BadCase{"tftp://h/..", "names no file"},
        BadCase{"tftp://h/a/.", "names no file"},
        BadCase{"sftp://u@h/~/", "no file"}, BadCase{"tftp://h/a?b", "%3F"},
        BadCase{"tftp://h/a#b", "%23"}, BadCase{"tftp://h/a%", "hexadecimal"},
        BadCase{"tftp://h/a%4", "hexadecimal"},
        BadCase{"tftp://h/a%zz", "hexadecimal"},
        BadCase{"tftp://h/a%00b", "control character"},
        BadCase{"ftp://u@h/a%0d%0aDELE%20x", "control character"},
        BadCase{"ftp://u%0a@h/a", "control character"},
        BadCase{"ftp://u@h/a;type=a", "only ;type=i"},
        BadCase{"tftp://h/a;mode=netascii", "only ;mode=octet"}));

TEST(Location, SizesOfTheTable) {
    const std::string path(128, 'x');
    EXPECT_EQ(problem_of("tftp://h/" + path), "");
    EXPECT_NE(problem_of("tftp://h/" + path + "x"), "");
    const std::string user(41, 'u');
    EXPECT_EQ(problem_of("ftp://" + user + "@h/a"), "");
    EXPECT_NE(problem_of("ftp://" + user + "u@h/a"), "");
    std::string encoded;
    for (int i = 0; i < 128; ++i)
        encoded += "%20";
    EXPECT_EQ(problem_of("tftp://h/" + encoded), "");
}

TEST(Location, TextAndBack) {
    for (const char *word :
         {"running", "startup", "fabric", "all", "tftp://192.0.2.1/a/b",
          "tftp://192.0.2.1//a", "ftp://u@192.0.2.1//a%20b",
          "ftp://a%40b@[2001:db8::1]/%25", "sftp://u@h/a", "sftp://u@h/~/a",
          "scp://u@h//a", "scp://u@h/%7E/a", "scp://u@h/%3Ftype%3D%C3%A9"}) {
        const Location once = parsed(word);
        EXPECT_EQ(location_text(once), word);
        EXPECT_EQ(parsed(location_text(once)), once) << word;
    }
}

TEST(Location, EveryNameSurvives) {
    Location file = parsed("sftp://u@192.0.2.1/x");
    for (int octet = 0x20; octet < 0x100; ++octet) {
        if (octet == 0x7f)
            continue;
        file.path = std::string("/d/") + static_cast<char>(octet) + "x";
        EXPECT_EQ(parsed(location_text(file)), file) << octet;
    }
}

TEST(Location, PairsThatTheSystemCopies) {
    const Location file = parsed("tftp://192.0.2.1/a");
    const Location run = parsed("running");
    const Location start = parsed("startup");
    for (const auto &[from, to] : {std::pair(run, start),
                                   {run, file},
                                   {run, parsed("fabric")},
                                   {run, parsed("all")},
                                   {start, run},
                                   {start, file},
                                   {file, run}})
        EXPECT_EQ(pair_problem(from, to), "")
            << location_text(from) << " " << location_text(to);
}

TEST(Location, PairsThatItDoesNot) {
    const char *const words[] = {"running", "startup", "fabric", "all",
                                 "tftp://192.0.2.1/a"};
    int refused = 0;
    for (const char *from : words)
        for (const char *to : words)
            refused += pair_problem(parsed(from), parsed(to)).empty() ? 0 : 1;
    EXPECT_EQ(refused, 25 - 7);
    EXPECT_NE(pair_problem(parsed("tftp://192.0.2.1/a"), parsed("startup"))
                  .find("then copy running to startup"),
              std::string::npos);
}

TEST(Address, LiteralOnes) {
    Address address;
    EXPECT_EQ(find_address("192.0.2.1", address), "");
    EXPECT_EQ(address.type, 1);
    EXPECT_EQ(address.octets, std::string("\xc0\x00\x02\x01", 4));
    EXPECT_EQ(address_text(address), "192.0.2.1");
    EXPECT_EQ(find_address("2001:db8::1", address), "");
    EXPECT_EQ(address.type, 2);
    EXPECT_EQ(address.octets.size(), 16U);
    EXPECT_EQ(address_text(address), "2001:db8::1");
}

TEST(Address, WhatIsNone) {
    Address address;
    EXPECT_NE(find_address("no-such-host.invalid", address), "");
    EXPECT_EQ(address_text({1, "abc"}), "");
    EXPECT_EQ(address_text({2, "abcd"}), "");
    EXPECT_EQ(address_text({0, "abcd"}), "");
    // The agent's own column has 16 octets in a notification.
    EXPECT_EQ(
        address_text({1, std::string("\x7f\0\0\2", 4) + std::string(12, '\0')}),
        "127.0.0.2");
}

} // namespace
