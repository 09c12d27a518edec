/*
 * The rules of a complete request: one by one, and over every combination of
 * what they look at against a small oracle of their own.
 */
#include "set_driver.h"

#include <cstring>

using namespace scripted;

namespace {

std::string message(const std::string &text) {
    return log("validate_entry(#):validate_entry" + text);
}
std::string error_code(const char *code) {
    return std::string("log_set_error(") + code + ", 584)";
}

const std::string fabric_only =
    message(" : only running to fabric_startupconfig allowed\n");
const std::string all_only =
    message(" : only running to all_startupconfig allowed\n");
const std::string no_tarn = message(" : TARN file type is not supported \n");
const std::string no_network_to_startup =
    message(" :source cannot be networkfile and destination cannot be startup "
            "file  \n");

std::string two_networks(int source, int dest) {
    return message(" : Both source (=" + std::to_string(source) +
                   ") and destination (=" + std::to_string(dest) +
                   ") cannot be network protocol  \n");
}
std::string same(int source, int dest) {
    return message(" : Both source (=" + std::to_string(source) +
                   ") and destination (=" + std::to_string(dest) +
                   ") cannot be same  \n");
}
std::string needs_protocol(int protocol, int source, int dest) {
    return message(" : The CopyProtocol (=" + std::to_string(protocol) +
                   ") should set if either source (=" + std::to_string(source) +
                   ")  or destination (=" + std::to_string(dest) +
                   ") is network \n");
}
std::string needs_address(int source, int dest) {
    return message(" : The CopyServerAddressRev1 should be set if either "
                   "source (=" +
                   std::to_string(source) + ")  or destination (=" +
                   std::to_string(dest) + ") is network \n");
}
std::string needs_credentials(int protocol) {
    return message(" :The Username and password must be set if  CopyProtocol ( "
                   "= " +
                   std::to_string(protocol) + ")  is either SFTP or RCP\n");
}
std::string needs_ftp_credentials(int protocol) {
    return message(" :The Username and password must be set if  CopyProtocol ( "
                   "= " +
                   std::to_string(protocol) + ")  is FTP\n");
}
std::string needs_file_name(int source, int dest) {
    return message(" : The CopyFileName must be set if  CopySourceFileType (=" +
                   std::to_string(source) + ") or CopyDestFileType (=" +
                   std::to_string(dest) + ") is NETWORK FILE\n");
}

/* What a request comes to. */
struct Outcome {
    int32_t result = 1;
    int32_t error = 0;
    bool not_ready = false;
    bool unsupported = false;
    Story story;

    void fail(int32_t status, std::initializer_list<std::string> lines) {
        result = 0;
        error = status;
        story.insert(story.end(), lines);
    }
    void miss(int32_t mode, const std::string &line) {
        result = 0;
        if (mode == 1)
            error = 12;
        else
            not_ready = true;
        story.push_back(line);
    }
};

bool begins_with_anonymous(std::string name) {
    for (char &c : name)
        c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    return name.rfind("anonymous", 0) == 0;
}

Outcome expected(const struct xfCopyEntry &row, int32_t mode) {
    const int s = row.xfCopySourceFileType;
    const int d = row.xfCopyDestFileType;
    const int proto = row.xfCopyProtocol;
    const std::string user = row.xfCopyUserName;
    const std::string password = row.xfCopyUserPassword;
    const std::string file = row.xfCopyFileName;
    Outcome outcome;

    if (d == 6 && s != 4)
        outcome.fail(5, {fabric_only, error_code("0x4049004a")});
    if (d == 7 && s != 4)
        outcome.fail(5, {all_only, error_code("0x4049005b")});
    if (s == 2 || s == 5 || d == 2 || d == 5)
        outcome.fail(10, {no_tarn});
    if (s == 1 && d == 1)
        outcome.fail(5, {two_networks(s, d), error_code("0x4049004b")});
    if (s == 1 && d == 3)
        outcome.fail(5, {no_network_to_startup, error_code("0x4049004c")});
    if (s == d)
        outcome.fail(5, {same(s, d), error_code("0x4049004d")});
    if (s != 1 && d != 1)
        return outcome;
    if (proto != 1 && proto != 2 && proto != 4 && proto != 5) {
        outcome.unsupported = true;
        outcome.miss(mode, needs_protocol(proto, s, d));
    }
    if (row.xfCopyServerAddressRev1[0] == '\0')
        outcome.miss(mode, needs_address(s, d));
    if ((proto == 3 || proto == 5) &&
        (user.empty() || password.empty() || file.empty()))
        outcome.miss(mode, needs_credentials(proto));
    if (proto == 2 &&
        (user.empty() || (!begins_with_anonymous(user) && password.empty())))
        outcome.miss(mode, needs_ftp_credentials(proto));
    if (file.empty())
        outcome.miss(mode, needs_file_name(s, d));
    return outcome;
}

class ValidationTest : public ModuleTest {
  protected:
    ValidationTest() {
        is_snmp_debug_enabled = 1;
    }

    /* Running to the network by TFTP, complete. */
    struct xfCopyEntry complete() {
        struct xfCopyEntry row = make_row(7, XF_ROW_CREATE_AND_GO);
        row.xfCopySourceFileType = 4;
        row.xfCopyDestFileType = 1;
        assign(row.xfCopyServerAddressRev1, "192.0.2.1");
        assign(row.xfCopyFileName, "file");
        return row;
    }
    struct xfCopyEntry of_types(int source, int dest) {
        struct xfCopyEntry row = complete();
        row.xfCopySourceFileType = source;
        row.xfCopyDestFileType = dest;
        return row;
    }
    int32_t validate(struct xfCopyEntry &row, int32_t mode) {
        p.forget();
        error_status = 4711;
        return validate_entry(&row, &error_status, mode);
    }

    /* Compares everything that validation may do with the oracle. */
    void check(const struct xfCopyEntry &given, int32_t mode) {
        const Outcome outcome = expected(given, mode);
        struct xfCopyEntry row = given;
        struct xfCopyEntry after = given;
        if (outcome.unsupported)
            after.xfCopyFailCause = 6;
        if (outcome.not_ready)
            after.xfCopyEntryRowStatus = 3;

        ASSERT_EQ(outcome.result, validate(row, mode));
        ASSERT_EQ(outcome.error, error_status);
        ASSERT_EQ(outcome.story, story());
        ASSERT_EQ("", difference(after, row));
    }

    int32_t error_status = 0;
};

} // namespace

/* Source, destination, protocol, missing parameters and mode: everything. */
TEST_F(ValidationTest, everyCombinationAgreesWithTheRules) {
    const char *const users[] = {"", "admin", "anonymous"};
    for (int source = 0; source <= 8; source++)
        for (int dest = 0; dest <= 8; dest++) {
            for (const int protocol : {-1, 0, 1, 2, 3, 4, 5, 6})
                for (int missing = 0; missing < 8; missing++)
                    for (const char *const user : users)
                        for (const int32_t mode : {1, 4}) {
                            struct xfCopyEntry row = of_types(source, dest);
                            row.xfCopyProtocol = protocol;
                            if ((missing & 1) != 0)
                                assign(row.xfCopyServerAddressRev1, "");
                            if ((missing & 2) != 0)
                                assign(row.xfCopyFileName, "");
                            if ((missing & 4) == 0)
                                assign(row.xfCopyUserPassword, "secret");
                            assign(row.xfCopyUserName, user);
                            check(row, mode);
                            if (HasFatalFailure()) {
                                ADD_FAILURE()
                                    << "source " << source << " dest " << dest
                                    << " protocol " << protocol << " missing "
                                    << missing << " user " << user << " mode "
                                    << mode;
                                return;
                            }
                        }
        }
}

TEST_F(ValidationTest, everyModeButActiveMarksTheRowNotReady) {
    for (const int32_t mode : {-1, 0, 2, 3, 4, 5, 6, 7}) {
        struct xfCopyEntry row = complete();
        assign(row.xfCopyFileName, "");
        check(row, mode);
        EXPECT_EQ(0, validate(row, mode));
        EXPECT_EQ(0, error_status);
        EXPECT_EQ(XF_ROW_NOT_READY, row.xfCopyEntryRowStatus);
    }
}

TEST_F(ValidationTest, nothingIsStoredAndNothingIsTraced) {
    store(complete());
    struct xfCopyEntry row = complete();
    assign(row.xfCopyFileName, "");
    validate(row, 4);
    EXPECT_EQ(Story{},
              p.events(Kind::Trace | Kind::Live | Kind::Stdout | Kind::Stderr));
    EXPECT_EQ(0u, p.count("ordset_find"));
    EXPECT_EQ("", difference(complete(), *stored(7)));
}

TEST_F(ValidationTest, nothingIsLoggedWithoutTheDebugLog) {
    is_snmp_debug_enabled = 0;
    struct xfCopyEntry row = of_types(1, 1);
    EXPECT_EQ(0, validate(row, 1));
    EXPECT_EQ((Story{error_code("0x4049004b"), error_code("0x4049004d")}),
              story());
}

/* ---- By name ---------------------------------------------------------------
 */

TEST_F(ValidationTest, runningToFabricStartupIsValid) {
    struct xfCopyEntry row = of_types(4, 6);
    EXPECT_EQ(1, validate(row, 1));
    EXPECT_EQ(0, error_status);
    EXPECT_EQ(Story{}, story());
}

TEST_F(ValidationTest, startupToFabricStartupIsAGenErr) {
    struct xfCopyEntry row = of_types(3, 6);
    EXPECT_EQ(0, validate(row, 1));
    EXPECT_EQ(5, error_status);
    EXPECT_EQ((Story{fabric_only, error_code("0x4049004a")}), story());
}

TEST_F(ValidationTest, startupToAllStartupIsAGenErr) {
    struct xfCopyEntry row = of_types(3, 7);
    EXPECT_EQ(0, validate(row, 1));
    EXPECT_EQ(5, error_status);
    EXPECT_EQ((Story{all_only, error_code("0x4049005b")}), story());
}

TEST_F(ValidationTest, networkToNetworkFailsTwoRules) {
    struct xfCopyEntry row = of_types(1, 1);
    EXPECT_EQ(0, validate(row, 1));
    EXPECT_EQ(5, error_status);
    EXPECT_EQ((Story{two_networks(1, 1), error_code("0x4049004b"), same(1, 1),
                     error_code("0x4049004d")}),
              story());
}

TEST_F(ValidationTest, networkToStartupIsAGenErr) {
    struct xfCopyEntry row = of_types(1, 3);
    EXPECT_EQ(0, validate(row, 1));
    EXPECT_EQ(5, error_status);
    EXPECT_EQ((Story{no_network_to_startup, error_code("0x4049004c")}),
              story());
}

TEST_F(ValidationTest, networkToRunningIsValid) {
    struct xfCopyEntry row = of_types(1, 4);
    EXPECT_EQ(1, validate(row, 1));
    EXPECT_EQ(Story{}, story());
}

TEST_F(ValidationTest, tarnAndTerminalAreWrongValues) {
    for (const int type : {2, 5}) {
        struct xfCopyEntry row = of_types(type, 4);
        EXPECT_EQ(0, validate(row, 1));
        EXPECT_EQ(10, error_status);
        EXPECT_EQ(Story{no_tarn}, story());
        row = of_types(4, type);
        EXPECT_EQ(0, validate(row, 1));
        EXPECT_EQ(10, error_status);
        EXPECT_EQ(Story{no_tarn}, story());
    }
}

TEST_F(ValidationTest, aLaterRuleDecidesTheErrorOfATarnFile) {
    struct xfCopyEntry row = of_types(2, 2);
    EXPECT_EQ(0, validate(row, 1));
    EXPECT_EQ(5, error_status);
    EXPECT_EQ((Story{no_tarn, same(2, 2), error_code("0x4049004d")}), story());
    row = of_types(1, 5);
    assign(row.xfCopyFileName, "");
    EXPECT_EQ(0, validate(row, 1));
    EXPECT_EQ(12, error_status);
    row = of_types(2, 6);
    EXPECT_EQ(0, validate(row, 1));
    EXPECT_EQ(10, error_status);
}

TEST_F(ValidationTest, rcpOverTheNetworkIsUnsupported) {
    struct xfCopyEntry row = complete();
    row.xfCopyProtocol = 3;
    assign(row.xfCopyUserName, "user");
    assign(row.xfCopyUserPassword, "secret");
    EXPECT_EQ(0, validate(row, 1));
    EXPECT_EQ(12, error_status);
    EXPECT_EQ(6, row.xfCopyFailCause);
    EXPECT_EQ(XF_ROW_CREATE_AND_GO, row.xfCopyEntryRowStatus);
    EXPECT_EQ(Story{needs_protocol(3, 4, 1)}, story());
}

TEST_F(ValidationTest, ftpForAnonymousNeedsNoPassword) {
    for (const char *const user :
         {"ANONYMOUS", "anonymous", "Anonymous", "anonymous_user"}) {
        struct xfCopyEntry row = complete();
        row.xfCopyProtocol = 2;
        assign(row.xfCopyUserName, user);
        EXPECT_EQ(1, validate(row, 1)) << user;
    }
}

TEST_F(ValidationTest, ftpForAnybodyElseNeedsOne) {
    for (const char *const user : {"admin", "anonymou", "xanonymous", ""}) {
        struct xfCopyEntry row = complete();
        row.xfCopyProtocol = 2;
        assign(row.xfCopyUserName, user);
        EXPECT_EQ(0, validate(row, 1)) << user;
        EXPECT_EQ(12, error_status);
        EXPECT_EQ(Story{needs_ftp_credentials(2)}, story());
    }
    struct xfCopyEntry row = complete();
    row.xfCopyProtocol = 2;
    assign(row.xfCopyUserName, "admin");
    assign(row.xfCopyUserPassword, "secret");
    EXPECT_EQ(1, validate(row, 1));
}

TEST_F(ValidationTest, sftpNeedsUserPasswordAndFile) {
    struct xfCopyEntry row = complete();
    row.xfCopyProtocol = 5;
    assign(row.xfCopyUserName, "user");
    assign(row.xfCopyUserPassword, "secret");
    EXPECT_EQ(1, validate(row, 1));
    assign(row.xfCopyFileName, "");
    EXPECT_EQ(0, validate(row, 1));
    EXPECT_EQ((Story{needs_credentials(5), needs_file_name(4, 1)}), story());
}

TEST_F(ValidationTest, tftpAndScpNeedNoCredentials) {
    for (const int protocol : {1, 4}) {
        struct xfCopyEntry row = complete();
        row.xfCopyProtocol = protocol;
        EXPECT_EQ(1, validate(row, 1));
    }
}

TEST_F(ValidationTest, runningToStartupNeedsNothingOfTheNetwork) {
    for (const int32_t mode : {1, 4}) {
        struct xfCopyEntry row = make_row(7, XF_ROW_ACTIVE);
        row.xfCopySourceFileType = 4;
        row.xfCopyDestFileType = 3;
        row.xfCopyProtocol = 3;
        EXPECT_EQ(1, validate(row, mode));
        EXPECT_EQ(0, error_status);
        EXPECT_EQ(XF_FAIL_UNKNOWN, row.xfCopyFailCause);
        EXPECT_EQ(Story{}, story());
    }
}

TEST_F(ValidationTest, missingFileNameIsNotReadyOrInconsistent) {
    struct xfCopyEntry row = complete();
    assign(row.xfCopyFileName, "");
    EXPECT_EQ(0, validate(row, 4));
    EXPECT_EQ(0, error_status);
    EXPECT_EQ(XF_ROW_NOT_READY, row.xfCopyEntryRowStatus);
    EXPECT_EQ(Story{needs_file_name(4, 1)}, story());

    row = complete();
    assign(row.xfCopyFileName, "");
    EXPECT_EQ(0, validate(row, 1));
    EXPECT_EQ(12, error_status);
    EXPECT_EQ(XF_ROW_CREATE_AND_GO, row.xfCopyEntryRowStatus);
}

/* Emptiness is the first octet alone. */
TEST_F(ValidationTest, oneCharacterIsEnoughAndTextBehindANulIsNone) {
    for (const int protocol : {2, 5}) {
        struct xfCopyEntry full = complete();
        full.xfCopyProtocol = protocol;
        assign(full.xfCopyServerAddressRev1, "a");
        assign(full.xfCopyFileName, "f");
        assign(full.xfCopyUserName, "u");
        assign(full.xfCopyUserPassword, "p");
        struct xfCopyEntry row = full;
        EXPECT_EQ(1, validate(row, 1));

        const Story credentials = {protocol == 5 ? needs_credentials(5)
                                                 : needs_ftp_credentials(2)};
        row = full;
        memcpy(row.xfCopyServerAddressRev1, "\0bc", 4);
        EXPECT_EQ(0, validate(row, 1));
        EXPECT_EQ(Story{needs_address(4, 1)}, story());
        row = full;
        memcpy(row.xfCopyUserName, "\0bc", 4);
        EXPECT_EQ(0, validate(row, 1));
        EXPECT_EQ(credentials, story());
        row = full;
        memcpy(row.xfCopyUserPassword, "\0bc", 4);
        EXPECT_EQ(0, validate(row, 1));
        EXPECT_EQ(credentials, story());
        row = full;
        memcpy(row.xfCopyFileName, "\0bc", 4);
        EXPECT_EQ(0, validate(row, 1));
        EXPECT_EQ(needs_file_name(4, 1), story().back());
        EXPECT_EQ(protocol == 5 ? 2u : 1u, story().size());
    }
}

/* Every rule is checked: none keeps a later one from speaking. */
TEST_F(ValidationTest, everythingMissingSpeaksInOrder) {
    struct xfCopyEntry row = make_row(7, XF_ROW_CREATE_AND_GO);
    row.xfCopyProtocol = 3;
    row.xfCopyDestFileType = 6;
    EXPECT_EQ(0, validate(row, 4));
    EXPECT_EQ(5, error_status);
    EXPECT_EQ((Story{fabric_only, error_code("0x4049004a"),
                     needs_protocol(3, 1, 6), needs_address(1, 6),
                     needs_credentials(3), needs_file_name(1, 6)}),
              story());
}

TEST_F(ValidationTest, withTheLogOffTheRulesAreTheSame) {
    is_snmp_debug_enabled = 0;
    for (int source = 0; source <= 8; source++)
        for (int dest = 0; dest <= 8; dest++)
            for (const int protocol : {1, 2, 3, 5}) {
                struct xfCopyEntry row = of_types(source, dest);
                row.xfCopyProtocol = protocol;
                assign(row.xfCopyFileName, "");
                const Outcome outcome = expected(row, 1);
                ASSERT_EQ(outcome.result, validate(row, 1));
                ASSERT_EQ(outcome.error, error_status);
                ASSERT_EQ(0u, p.count("log"));
            }
}
