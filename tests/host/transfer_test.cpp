// What the programs that copy over SSH make of their arguments and of the
// client's log. What they do with servers is in tests/agent.
#include "host/transfer/scp_target.h"

#include <gtest/gtest.h>

#include "host/transfer/ssh_failure.h"

using namespace xfhost;

namespace {

std::string parts(std::string_view text) {
    try {
        Target target = split_target(text);
        return target.user + "|" + target.server + "|" + target.name;
    } catch (const Failed &failed) {
        EXPECT_EQ(failed.outcome(), Outcome::usage);
        return "none";
    }
}

TEST(Transfer, Targets) {
    EXPECT_EQ(parts("u@192.0.2.1:n"), "u|192.0.2.1|n");
    EXPECT_EQ(parts("u@192.0.2.1:/a:b@192.0.2.9:c"),
              "u|192.0.2.1|/a:b@192.0.2.9:c");
    EXPECT_EQ(parts("u@home@192.0.2.1:n"), "u@home|192.0.2.1|n");
    EXPECT_EQ(parts("u@fe80::1:name"), "u|fe80::1|name");
    EXPECT_EQ(parts("u@fe80::1:cafe"), "u|fe80::1|cafe");
    EXPECT_EQ(parts("u@fe80::1:2:name"), "u|fe80::1:2|name");
    EXPECT_EQ(parts("u@fe80:::name"), "u|fe80::|name");
    EXPECT_EQ(parts("u@[fe80::1]:2:name"), "u|fe80::1|2:name");
    EXPECT_EQ(parts("u@1:2:3:4:5:6:7:8:9"), "u|1:2:3:4:5:6:7:8|9");
    EXPECT_EQ(parts("u@::ffff:192.0.2.1:n"), "u|::ffff:192.0.2.1|n");
    EXPECT_EQ(parts("u@host.example:n"), "none");
    EXPECT_EQ(parts("u@300.0.2.1:n"), "none");
    EXPECT_EQ(parts("n"), "none");
    EXPECT_EQ(parts("u@:n"), "none");
    EXPECT_EQ(parts(""), "none");
}

Outcome judged(bool let_in, std::string_view log) {
    return ssh_failure(let_in, log).outcome();
}

TEST(Transfer, WhatTheClientSays) {
    EXPECT_EQ(judged(false, "No ED25519 host key is known for 192.0.2.1 and "
                            "you have requested strict checking.\r\n"
                            "Host key verification failed.\r\n"),
              Outcome::host_key);
    EXPECT_EQ(judged(false, "u@192.0.2.1: Permission denied (password).\r\n"),
              Outcome::login);
    EXPECT_EQ(judged(false, "Received disconnect from 192.0.2.1 port 22:2: "
                            "Too many authentication failures\r\n"),
              Outcome::login);
    EXPECT_EQ(judged(false, "ssh: connect to host 192.0.2.1 port 22: "
                            "Connection timed out\r\n"),
              Outcome::timeout);
    EXPECT_EQ(judged(true, "Timeout, server 192.0.2.1 not responding.\r\n"),
              Outcome::timeout);
    EXPECT_EQ(judged(false, "ssh: connect to host 192.0.2.1 port 22: "
                            "Connection refused\r\n"),
              Outcome::connection);
    EXPECT_EQ(judged(false, ""), Outcome::connection);
}

TEST(Transfer, ALoginThatIsOverIsNotRefused) {
    for (const char *log : {"Host key verification failed.\n",
                            "u@192.0.2.1: Permission denied (password).\n"})
        EXPECT_EQ(judged(true, log), Outcome::connection);
}

} // namespace
