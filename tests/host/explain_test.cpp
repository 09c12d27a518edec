// What a person is told of a transfer that failed, and what was moved.
#include <gtest/gtest.h>

#include "host/base/local_file.h"
#include "host/transfer/ssh_failure.h"
#include "host/transfer/transfer.h"

#include <sys/mman.h>

using namespace xfhost;

namespace {

Attempt attempt(const std::string &password = "secret") {
    return {"SFTP",
            22,
            {{"192.0.2.1", "backup", password, {}}, true, "local", "sw1.cfg"}};
}

std::string reason(const Failed &failed, const std::string &password) {
    return failed.report(attempt(password)).reason;
}

Failed quoting(const std::string &words) {
    return failure_of(Outcome::login).at(Step::login).quote(words);
}

TEST(Explain, TheStepComesFirst) {
    EXPECT_EQ(
        reason(quoting("530 No."), "secret"),
        "Logging in as \"backup\" at 192.0.2.1 port 22 (SFTP): the server "
        "refused the login: \"530 No.\"");
    EXPECT_EQ(reason(failure_of(Outcome::no_space), ""),
              "Sending \"sw1.cfg\" to 192.0.2.1 port 22 (SFTP): no space for "
              "the file");
    EXPECT_EQ(failure_of(Outcome::usage).report({}).reason,
              "Checking the request: the transfer failed");
}

TEST(Explain, EveryFailureHasAnAdvice) {
    for (int outcome = 1; outcome <= 8; outcome++)
        for (Step step :
             {Step::request, Step::vrf, Step::source, Step::connection,
              Step::host_key, Step::login, Step::transfer, Step::storing})
            EXPECT_NE(failure_of(static_cast<Outcome>(outcome))
                          .at(step)
                          .report(attempt())
                          .advice,
                      "");
}

TEST(Explain, AHostKeyIsEnrolledInItsVrf) {
    Attempt made = attempt();
    const Failed failed = failure_of(Outcome::host_key);
    EXPECT_EQ(failed.report(made).advice,
              "On the switch, as the user who runs the agent: xfenrol "
              "192.0.2.1");
    made.copy.login.vrf = {Vrf::Kind::name_space, "red", 1 << 30};
    EXPECT_TRUE(failed.report(made).advice.ends_with("192.0.2.1 -v red"));
}

// A server knows it, and may say it.
TEST(Explain, AQuotationWithThePasswordIsLeftOut) {
    for (const char *said :
         {"530 s3cret", "s3cret", "530 xs3cretx", "530 s3\x01\x63ret s3cret"})
        EXPECT_EQ(reason(quoting(said), "s3cret").find(": \""),
                  std::string::npos)
            << said;
    EXPECT_EQ(reason(quoting("it is p\xe4ss"), "p\xe4ss").find("it is"),
              std::string::npos);
    EXPECT_EQ(reason(quoting("it is p?ss"), "p\xe4ss").find("it is"),
              std::string::npos);
    // Behind what is cut off, too.
    EXPECT_EQ(
        reason(quoting(std::string(157, 'x') + "s3cret"), "s3cret").find("xxx"),
        std::string::npos);
    EXPECT_NE(reason(quoting("530 no"), "").find("530 no"), std::string::npos);
}

TEST(Explain, TextsOfOthersArePrintableAndShort) {
    Attempt made = attempt();
    made.copy.remote = std::string(300, 'n') + "\x1b[2J";
    const std::string told = failure_of(Outcome::other)
                                 .quote("\x1b]0;x\x07" + std::string(5000, 'q'))
                                 .report(made)
                                 .reason;
    EXPECT_EQ(told.find('\x1b'), std::string::npos);
    EXPECT_EQ(told.find(std::string(161, 'q')), std::string::npos);
    EXPECT_EQ(told.find(std::string(61, 'n')), std::string::npos);
}

TEST(Explain, WhatAnSshClientSays) {
    EXPECT_EQ(reason(ssh_failure(false, "ssh: connect to host 192.0.2.1 port "
                                        "22: Connection refused\r\n"),
                     ""),
              "Connecting to 192.0.2.1 port 22 (SFTP): the connection failed "
              "or was lost: \"ssh: connect to host 192.0.2.1 port 22: "
              "Connection refused\"");
    const Failed changed =
        ssh_failure(false, "@ WARNING: REMOTE HOST IDENTIFICATION HAS CHANGED! "
                           "@\r\nHost key verification failed.\r\n");
    EXPECT_TRUE(reason(changed, "").ends_with("another than the known one"));
    EXPECT_NE(changed.report(attempt()).advice.find("xfenrol"),
              std::string::npos);
    EXPECT_EQ(reason(ssh_failure(true, ""), ""),
              "Sending \"sw1.cfg\" to 192.0.2.1 port 22 (SFTP): the connection "
              "failed or was lost");
}

// Of "abc".
constexpr const char *digest_of_abc =
    "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";

TEST(Moved, TheDigestIsSha256) {
    EXPECT_EQ(moved_report("abc").sha256, digest_of_abc);
    EXPECT_EQ(moved_report("abc").octets, 3u);
    EXPECT_EQ(moved_report("").sha256,
              "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b85"
              "5");
}

TEST(Moved, OctetsThatComeOutOfOrderAreCountedInOrder) {
    for (const std::vector<uint64_t> &order :
         {std::vector<uint64_t>{0, 1, 2}, {2, 1, 0}, {1, 0, 2}, {0, 2, 1}}) {
        BoundedFile file(Fd(memfd_create("file", MFD_CLOEXEC)), 100);
        for (uint64_t at : order)
            ASSERT_EQ(file.write_at(at, std::string_view("abc").substr(
                                            static_cast<size_t>(at), 1)),
                      0);
        EXPECT_EQ(file.octets(), 3u);
        EXPECT_EQ(file.moved().sha256, digest_of_abc);
    }
}

} // namespace
