// The client against servers in the test's own process.
#include "platform/tftp.h"

#include <cerrno>
#include <string>

#include <unistd.h>

#include <gtest/gtest.h>

#include "files.h"
#include "suite.h"
#include "tftp_server.h"

namespace {

using Manner = TftpServer::Manner;

constexpr int timeout = -(TFTP_LARGEST_CODE + ETIMEDOUT);

std::string content_of(size_t size) {
    std::string data(size, 0);
    for (size_t i = 0; i < size; i++)
        data[i] = static_cast<char>(i * 7 + i / 256);
    return data;
}

class Tftp : public testing::Test {
  protected:
    void SetUp() override {
        local = support::directory() + "/local.bin";
        unlink(local.c_str());
        ASSERT_GE(tftp_timeout_set(20), 0);
    }
    static void connect(TftpServer &server) {
        ASSERT_GE(tftp_connect("127.0.0.1", server.port()), 0);
    }
    int put(const std::string &data, const char *remote) {
        support::write_file(local, data);
        return tftp_put2(local.c_str(), remote, 0);
    }
    int get(const char *remote) {
        unlink(local.c_str());
        return tftp_get2(remote, local.c_str(), 0);
    }
    std::string local;
};

TEST_F(Tftp, EverySizeArrivesInBothDirections) {
    TftpServer server(Manner::plain);
    connect(server);
    for (size_t size : {0u, 1u, 511u, 512u, 513u, 1024u, 100000u}) {
        const std::string data = content_of(size);
        ASSERT_GE(put(data, "x"), 0) << size;
        EXPECT_TRUE(server.content == data) << size;
        ASSERT_GE(get("x"), 0) << size;
        EXPECT_TRUE(support::read_file(local) == data) << size;
    }
}

TEST_F(Tftp, NamesArriveAsTheyAre) {
    TftpServer server(Manner::plain);
    connect(server);
    for (const char *name : {"/tftpboot/a", "a/./b/../c", " a ", "%41", "?",
                             ";mode=netascii", "\xc3\xbc"}) {
        EXPECT_GE(get(name), 0) << name;
        EXPECT_EQ(server.name, name);
        EXPECT_EQ(server.mode, "octet");
    }
}

TEST_F(Tftp, ErrorsOfTheProtocolAreTheirNegativeCode) {
    TftpServer server(Manner::error);
    connect(server);
    for (int code : {TFTP_CODE_NOT_FOUND, TFTP_CODE_ACCESS_VIOLATION,
                     TFTP_CODE_DISK_FULL, 4, 5, 6, 7}) {
        server.code = static_cast<uint16_t>(code);
        EXPECT_EQ(get("x"), -code);
        EXPECT_EQ(put("x", "x"), -code);
    }
}

TEST_F(Tftp, SilenceIsATimeout) {
    TftpServer server(Manner::silent);
    connect(server);
    ASSERT_GE(tftp_timeout_set(1), 0);
    const double begun = suite::now();
    EXPECT_EQ(get("x"), timeout);
    EXPECT_EQ(put("data", "x"), timeout);
    EXPECT_LT(suite::now() - begun, 30);
}

TEST_F(Tftp, AFailureLeavesNoPartOfAFile) {
    TftpServer server(Manner::stops);
    server.content = content_of(100000);
    connect(server);
    ASSERT_GE(tftp_timeout_set(1), 0);
    EXPECT_EQ(get("x"), timeout);
    EXPECT_FALSE(support::exists(local));
}

TEST_F(Tftp, AServerThatStopsTakingIsNoSuccess) {
    TftpServer server(Manner::stops);
    connect(server);
    ASSERT_GE(tftp_timeout_set(1), 0);
    EXPECT_EQ(put(content_of(100000), "x"), timeout);
}

TEST_F(Tftp, ErrorsOfTheSystemLieBelowThoseOfTheProtocol) {
    TftpServer server(Manner::plain);
    connect(server);
    const std::string nowhere = support::directory() + "/none/file";
    EXPECT_EQ(tftp_put2(nowhere.c_str(), "x", 0),
              -(TFTP_LARGEST_CODE + ENOENT));
    EXPECT_EQ(tftp_get2("x", nowhere.c_str(), 0),
              -(TFTP_LARGEST_CODE + ENOENT));
}

TEST_F(Tftp, EveryResultHasAText) {
    for (int code : {0, 1, -1, -3, -7, -99, -100, timeout, -10000, INT32_MIN})
        EXPECT_NE(tftp_strerror(code), nullptr) << code;
}

} // namespace
