/* Network transfers inside a VRF and on the storage pod. */
#include "scripted_platform.h"

#include <climits>
#include <map>

using namespace scripted;
using namespace std::string_literals;

namespace {

constexpr uint32_t download = 1;
constexpr uint32_t upload = 2;

constexpr int32_t variant_protocols[] = {XF_PROTO_TFTP, XF_PROTO_FTP,
                                         XF_PROTO_SFTP, XF_PROTO_SCP};
constexpr int32_t script_protocols[] = {XF_PROTO_FTP, XF_PROTO_SFTP,
                                        XF_PROTO_SCP};

/* What both variants have in common. */
class Variant : public ModuleTest {
  protected:
    struct xfCopyEntry row = make_row(5, XF_ROW_ACTIVE);
    char directory[256] = "/dir";
    decltype(do_nw_upload_download) *const variant;

    explicit Variant(decltype(do_nw_upload_download) *function)
        : variant(function) {
        assign(row.xfCopyServerAddressRev1, "192.0.2.7");
        assign(row.xfCopyFileName, "r.cfg");
        assign(row.xfCopySrcFileName, "/stage/l.cfg");
        assign(row.xfCopyUserName, "ann");
        assign(row.xfCopyUserPassword, "pa ss");
        row.xfCopySourceFileType = XF_FILE_STARTUP;
        row.xfCopyDestFileType = XF_FILE_STARTUP;
    }
    int32_t run(uint32_t direction) {
        p.forget();
        return variant(direction, directory, &row);
    }
    std::string accounted() const {
        const std::vector<Event> records =
            p.calls_of("account_lib_interim_update");
        EXPECT_EQ(1u, records.size());
        return records.empty() ? "" : records[0].strings.at(2);
    }
    std::string printed() const {
        const std::vector<Event> lines = p.calls_of("stderr");
        EXPECT_EQ(1u, lines.size());
        return lines.empty() ? "" : lines[0].octets;
    }
    /* Command of the TFTP program, or path and arguments of a script. */
    std::vector<std::string> program() const {
        std::vector<Event> runs =
            p.calls_of("execute_program_and_wait_redirect");
        if (runs.empty())
            runs = p.calls_of("system");
        EXPECT_EQ(1u, runs.size());
        return runs.empty() ? std::vector<std::string>{} : runs[0].strings;
    }

    void expect_every_result_of_the_tftp_program();
    void expect_every_exit_status();
    void expect_default_sigchld();
    void expect_words();
    void expect_refused_protocols(const Story &before);
};

class InVrf : public Variant {
  protected:
    InVrf() : Variant(do_nw_upload_download_on_vrf) {
        assign(row.xfCopyVRFName, "blue");
        p.vrf_context.always(12);
    }
};

class OnStoragePod : public Variant {
  protected:
    OnStoragePod() : Variant(do_nw_upload_download_on_storage_pod) {
        assign(row.xfCopyVRFName, "blue");
    }
};

std::string account(const std::string &text) {
    return "account_lib_interim_update(response_q, \"session-1\", "
           "\"operator\", " +
           quote(text) + ")";
}

std::string in_vrf(std::string_view text) {
    return "do_nw_upload_download_on_vrf" + std::string(text);
}

std::string on_pod(std::string_view text) {
    return "do_nw_upload_download_on_storage_pod" + std::string(text);
}

const std::string vrf_found = info(in_vrf(" : vrf name blue vrf_id 12\n"));

int32_t cause_of_exit(int exit_code) {
    static const std::map<int, int32_t> causes = {
        {0, 0}, {1, 3}, {2, 2}, {3, 4}};
    const auto found = causes.find(exit_code);
    return found == causes.end() ? 1 : found->second;
}

} // namespace

/* ---- Which variant, which VRF ----------------------------------------------
 */

TEST_F(InVrf, storagePodIsCheckedBeforeAnyVrfWork) {
    p.pod_type.then(2);
    EXPECT_EQ(0, run(upload));
    EXPECT_EQ("pod_get_type(0)", p.calls_of("pod_get_type").at(0).text);
    EXPECT_EQ(0u, p.count("snmp_get_ctx_vrf_for_current_req"));
    EXPECT_EQ(0u, p.count("vrfmgr_get_context_id"));
    EXPECT_EQ("/brim/bin/ovan-tftp 1 192.0.2.7 69 \"/stage/l.cfg\" "
              "\"r.cfg\" 1",
              program().at(0))
        << "the row's VRF name is ignored";
}

TEST_F(InVrf, resultOfTheStoragePodVariantIsReturnedAsItIs) {
    row.xfCopyProtocol = XF_PROTO_FTP;
    p.pod_type.always(2);
    for (int exit_code = 0; exit_code <= 4; exit_code++) {
        p.program_results.then(exit_code << 8);
        EXPECT_EQ(cause_of_exit(exit_code), run(download));
        EXPECT_EQ("get", program().at(6));
        EXPECT_EQ("1", program().at(7));
    }
}

TEST_F(InVrf, otherPartitionTypesStayInTheVrf) {
    for (const int type : {-1, 0, 1, 3, 4}) {
        p.pod_type.then(type);
        EXPECT_EQ(0, run(upload));
        EXPECT_EQ(vrf_found, story().front()) << type;
    }
}

TEST_F(InVrf, nameOfTheRowComesFirst) {
    EXPECT_EQ(0, run(upload));
    EXPECT_EQ("blue", p.calls_of("vrfmgr_get_context_id").at(0).strings.at(0));
    EXPECT_EQ(0u, p.count("snmp_get_ctx_vrf_for_current_req"));
}

TEST_F(InVrf, nameOfTheRequestComesNext) {
    assign(row.xfCopyVRFName, "");
    p.request_vrf = "green";
    EXPECT_EQ(0, run(upload));
    EXPECT_EQ("green", p.calls_of("vrfmgr_get_context_id").at(0).strings.at(0));
    EXPECT_EQ(info(in_vrf(" : vrf name green vrf_id 12\n")), story().front());
    EXPECT_TRUE(program().at(0).ends_with(" 1 green"));
    EXPECT_TRUE(accounted().ends_with(" vrf green (SUCCESS)"));
}

TEST_F(InVrf, emptyNameAndAFailingRequestQueryTransferInManagement) {
    assign(row.xfCopyVRFName, "");
    for (const int32_t problem : {1, -3, 0x40490001}) {
        p.request_vrf_error = problem;
        EXPECT_EQ(0, run(upload));
        EXPECT_EQ(
            (Story{
                info(in_vrf(" : get vrf failed with " +
                            std::to_string(problem) + "\n")),
                info(in_vrf(" : vrf name management vrf_id 12\n")),
                info(in_vrf(" : tftp_cmd /brim/bin/ovan-tftp 1 192.0.2.7 69 "
                            "\"/stage/l.cfg\" \"r.cfg\" 1 management\n")),
                "signal(SIGCHLD, SIG_DFL)",
                "system(" +
                    quote("/brim/bin/ovan-tftp 1 192.0.2.7 69 "
                          "\"/stage/l.cfg\" \"r.cfg\" 1 management") +
                    ")",
                "signal(SIGCHLD, agent's)",
                account("copy startup-config tftp://192.0.2.7:69r.cfg vrf "
                        "management (SUCCESS)"),
            }),
            story());
        EXPECT_EQ("management",
                  p.calls_of("vrfmgr_get_context_id").at(0).strings.at(0));
    }
}

TEST_F(InVrf, rowNamingAnUnknownVrfReturns5AndRunsNothing) {
    p.vrf_context.always(0);
    for (const int32_t protocol : variant_protocols) {
        row.xfCopyProtocol = protocol;
        EXPECT_EQ(5, run(upload));
        EXPECT_EQ(Story{}, story());
    }
}

TEST_F(InVrf, requestInAnUnknownVrfReturns1AndRunsNothing) {
    p.vrf_context.always(0);
    assign(row.xfCopyVRFName, "");
    EXPECT_EQ(1, run(upload));
    EXPECT_EQ(Story{}, story());

    p.request_vrf_error = 4;
    EXPECT_EQ(1, run(upload));
    EXPECT_EQ(Story{info(in_vrf(" : get vrf failed with 4\n"))}, story());
}

TEST_F(InVrf, contextIsLookedUpBeforeTheProtocolIsLookedAt) {
    p.vrf_context.always(0);
    row.xfCopyProtocol = 6;
    EXPECT_EQ(5, run(upload));
    row.xfCopyProtocol = XF_PROTO_RCP;
    EXPECT_EQ(5, run(upload));
}

TEST_F(InVrf, contextIdIsShownInDecimal) {
    row.xfCopyProtocol = XF_PROTO_FTP;
    p.vrf_context.always(INT32_MAX);
    EXPECT_EQ(0, run(upload));
    EXPECT_EQ(info(in_vrf(" : vrf name blue vrf_id 2147483647\n")),
              story().front());
    EXPECT_EQ("2147483647", program().at(7));
}

TEST_F(InVrf, longestVrfName) {
    const std::string name(32, 'v');

    assign(row.xfCopyVRFName, name);
    EXPECT_EQ(0, run(upload));
    EXPECT_EQ(name, p.calls_of("vrfmgr_get_context_id").at(0).strings.at(0));
    EXPECT_TRUE(program().at(0).ends_with(" 1 " + name));
    EXPECT_TRUE(accounted().ends_with(" vrf " + name + " (SUCCESS)"));
}

/* ---- Protocols without a transfer ------------------------------------------
 */

void Variant::expect_refused_protocols(const Story &before) {
    for (const uint32_t direction : {upload, download}) {
        row.xfCopyProtocol = XF_PROTO_RCP;
        EXPECT_EQ(1, run(direction));
        EXPECT_EQ(before, story());
    }
}

TEST_F(InVrf, rcpReturns1WithoutRunOrRecord) {
    expect_refused_protocols({vrf_found});
}

TEST_F(OnStoragePod, rcpReturns1WithoutTraceRunOrRecord) {
    expect_refused_protocols({});
}

TEST_F(InVrf, unknownProtocolIsNotSupported) {
    for (const int32_t protocol : {0, 6, -1}) {
        row.xfCopyProtocol = protocol;
        EXPECT_EQ(6, run(upload));
        EXPECT_EQ(
            (Story{vrf_found, error(in_vrf(" : Protocol not supported\n"))}),
            story());
    }
}

TEST_F(OnStoragePod, unknownProtocolIsNotSupported) {
    for (const int32_t protocol : {0, 6, -1}) {
        row.xfCopyProtocol = protocol;
        EXPECT_EQ(6, run(upload));
        EXPECT_EQ(Story{error(on_pod(" : Protocol not supported\n"))}, story());
    }
}

/* ---- TFTP ------------------------------------------------------------------
 */

TEST_F(InVrf, tftpUpload) {
    const std::string command = "/brim/bin/ovan-tftp 1 192.0.2.7 69 "
                                "\"/stage/l.cfg\" \"r.cfg\" 1 blue";
    EXPECT_EQ(0, run(upload));
    EXPECT_EQ((Story{
                  vrf_found,
                  info(in_vrf(" : tftp_cmd " + command + "\n")),
                  "signal(SIGCHLD, SIG_DFL)",
                  "system(" + quote(command) + ")",
                  "signal(SIGCHLD, agent's)",
                  account("copy startup-config tftp://192.0.2.7:69r.cfg vrf "
                          "blue (SUCCESS)"),
              }),
              story());
}

TEST_F(InVrf, tftpDownload) {
    const std::string command = "/brim/bin/ovan-tftp 0 192.0.2.7 69 "
                                "\"/stage/l.cfg\" \"r.cfg\" 1 blue";
    EXPECT_EQ(0, run(download));
    EXPECT_EQ((Story{
                  vrf_found,
                  info(in_vrf(" : tftp_cmd " + command + "\n")),
                  "signal(SIGCHLD, SIG_DFL)",
                  "system(" + quote(command) + ")",
                  "signal(SIGCHLD, agent's)",
                  account("copy tftp://192.0.2.7:69/stage/l.cfg "
                          "startup-config vrf blue (SUCCESS)"),
              }),
              story());
}

TEST_F(OnStoragePod, tftpUpload) {
    const std::string command =
        "/brim/bin/ovan-tftp 1 192.0.2.7 69 \"/stage/l.cfg\" \"r.cfg\" 1";
    EXPECT_EQ(0, run(upload));
    EXPECT_EQ((Story{
                  info(on_pod(" : tftp_cmd " + command + "\n")),
                  "signal(SIGCHLD, SIG_DFL)",
                  "system(" + quote(command) + ")",
                  "signal(SIGCHLD, agent's)",
                  account("copy startup-config tftp://192.0.2.7:69r.cfg "
                          "(SUCCESS)"),
              }),
              story());
}

TEST_F(OnStoragePod, tftpDownload) {
    const std::string command =
        "/brim/bin/ovan-tftp 0 192.0.2.7 69 \"/stage/l.cfg\" \"r.cfg\" 1";
    EXPECT_EQ(0, run(download));
    EXPECT_EQ((Story{
                  info(on_pod(" : tftp_cmd " + command + "\n")),
                  "signal(SIGCHLD, SIG_DFL)",
                  "system(" + quote(command) + ")",
                  "signal(SIGCHLD, agent's)",
                  account("copy tftp://192.0.2.7:69/stage/l.cfg "
                          "startup-config (SUCCESS)"),
              }),
              story());
}

void Variant::expect_every_result_of_the_tftp_program() {
    struct Result {
        int status;
        int32_t cause;
        const char *outcome;
    };
    std::vector<Result> results = {{0, 0, " (SUCCESS)"},
                                   {127, 1, " (SUCCESS)"},
                                   {-2, 1, " (FAILURE)"},
                                   {INT_MIN, 1, " (SUCCESS)"},
                                   {0x10000, 1, " (SUCCESS)"}};
    for (int exit_code = 1; exit_code <= 255; exit_code++)
        results.push_back({exit_code << 8, 1, " (FAILURE)"});
    for (int number = 1; number <= 64; number++) {
        results.push_back({number, 1, " (SUCCESS)"});
        results.push_back({number | 0x80, 1, " (SUCCESS)"});
    }
    for (const Result &result : results)
        for (const uint32_t direction : {upload, download}) {
            p.system_results.then(result.status, EPERM);
            EXPECT_EQ(result.cause, run(direction)) << result.status;
            EXPECT_TRUE(accounted().ends_with(result.outcome))
                << result.status << ' ' << accounted();
        }
}

TEST_F(InVrf, everyResultOfTheTftpProgram) {
    expect_every_result_of_the_tftp_program();
}

TEST_F(OnStoragePod, everyResultOfTheTftpProgram) {
    expect_every_result_of_the_tftp_program();
}

TEST_F(InVrf, tftpProgramExitingWith2Gives1AndARawStatusOf127Too) {
    p.system_results.then(2 << 8).then(127).then(126).then(1);
    EXPECT_EQ(1, run(upload));
    EXPECT_EQ(1, run(upload));
    EXPECT_EQ(1, run(upload));
    EXPECT_EQ(1, run(upload));
}

namespace {

/* A shell that could not be run leaves the reason in errno. */
int32_t cause_of_errno(int number) {
    static const std::map<int, int32_t> causes = {
        {3, 4}, {1, 2}, {2, 2}, {101, 3}, {110, 3}};
    const auto found = causes.find(number);
    return found == causes.end() ? 1 : found->second;
}

} // namespace

TEST_F(InVrf, shellThatCouldNotBeRunIsJudgedByErrno) {
    for (int number = 1; number <= 250; number++) {
        p.system_results.then(-1, number);
        EXPECT_EQ(cause_of_errno(number), run(upload)) << number;
        EXPECT_TRUE(accounted().ends_with(" vrf blue (FAILURE)"));
    }
    p.hooks["system"] = [] { errno = 0; };
    p.system_results.then(-1);
    EXPECT_EQ(1, run(upload));
}

TEST_F(OnStoragePod, shellThatCouldNotBeRunIsJudgedByErrno) {
    for (int number = 1; number <= 250; number++) {
        p.system_results.then(-1, number);
        EXPECT_EQ(cause_of_errno(number), run(download)) << number;
        EXPECT_TRUE(accounted().ends_with("startup-config (FAILURE)"));
    }
}

TEST_F(InVrf, fileNamesStandBetweenDoubleQuotesWithoutEscapes) {
    assign(row.xfCopySrcFileName, "l \"$(x)\" `y`");
    assign(row.xfCopyFileName, "r\"; z\\ 'q'");
    EXPECT_EQ(0, run(upload));
    EXPECT_EQ("/brim/bin/ovan-tftp 1 192.0.2.7 69 \"l \"$(x)\" `y`\" "
              "\"r\"; z\\ 'q'\" 1 blue",
              program().at(0));
}

TEST_F(OnStoragePod, fileNamesStandBetweenDoubleQuotesWithoutEscapes) {
    assign(row.xfCopySrcFileName, "l \"$(x)\" `y`");
    assign(row.xfCopyFileName, "r\"; z\\ 'q'");
    EXPECT_EQ(0, run(download));
    EXPECT_EQ("/brim/bin/ovan-tftp 0 192.0.2.7 69 \"l \"$(x)\" `y`\" "
              "\"r\"; z\\ 'q'\" 1",
              program().at(0));
}

TEST_F(InVrf, commandOfTheTftpProgramIsCutTo511Characters) {
    const std::string local(230, 'l');

    assign(row.xfCopySrcFileName, local);
    for (size_t length = 210; length <= 255; length++) {
        const std::string remote(length, 'r');
        const std::string command = "/brim/bin/ovan-tftp 1 192.0.2.7 69 \"" +
                                    local + "\" \"" + remote + "\" 1 blue";

        assign(row.xfCopyFileName, remote);
        EXPECT_EQ(0, run(upload));
        EXPECT_EQ(command.substr(0, 511), program().at(0));
    }
}

TEST_F(OnStoragePod, commandOfTheTftpProgramIsCutTo511Characters) {
    const std::string local(230, 'l');

    assign(row.xfCopySrcFileName, local);
    for (size_t length = 215; length <= 255; length++) {
        const std::string remote(length, 'r');
        const std::string command = "/brim/bin/ovan-tftp 1 192.0.2.7 69 \"" +
                                    local + "\" \"" + remote + "\" 1";

        assign(row.xfCopyFileName, remote);
        EXPECT_EQ(0, run(upload));
        EXPECT_EQ(command.substr(0, 511), program().at(0));
    }
}

/* The VRF counts for the limit, the outcome word does not. */
TEST_F(InVrf, commandTextLongerThan511CharactersIsCut) {
    const std::map<int32_t, std::string> before_name = {
        {XF_PROTO_TFTP, "tftp://192.0.2.7:69"},
        {XF_PROTO_FTP, "ftp://ann@192.0.2.7"},
        {XF_PROTO_SFTP, "sftp://ann@192.0.2.7"},
        {XF_PROTO_SCP, "scp://ann@192.0.2.7"}};
    const std::string local(250, 'l');

    row.xfCopySourceFileType = row.xfCopyDestFileType = 0;
    assign(row.xfCopySrcFileName, local);
    for (const auto &[protocol, url] : before_name) {
        row.xfCopyProtocol = protocol;
        for (size_t length = 215; length <= 255; length++) {
            const std::string remote(length, 'r');

            assign(row.xfCopyFileName, remote);
            run(upload);
            EXPECT_EQ(("copy " + local + " " + url + remote + " vrf blue")
                              .substr(0, 511) +
                          " (SUCCESS)",
                      accounted());
            run(download);
            EXPECT_EQ(("copy " + url + local + " " + remote + " vrf blue")
                              .substr(0, 511) +
                          " (SUCCESS)",
                      accounted());
        }
    }
}

TEST_F(InVrf, serverTextLongerThan63CharactersIsCut) {
    memset(row.xfCopyServerAddressRev1, 's',
           sizeof(row.xfCopyServerAddressRev1));
    EXPECT_EQ(0, run(upload));
    EXPECT_EQ("/brim/bin/ovan-tftp 1 " + std::string(63, 's') +
                  " 69 \"/stage/l.cfg\" \"r.cfg\" 1 blue",
              program().at(0));
}

TEST_F(OnStoragePod, serverTextLongerThan63CharactersIsCut) {
    memset(row.xfCopyServerAddressRev1, 's',
           sizeof(row.xfCopyServerAddressRev1));
    EXPECT_EQ(0, run(upload));
    EXPECT_EQ("/brim/bin/ovan-tftp 1 " + std::string(63, 's') +
                  " 69 \"/stage/l.cfg\" \"r.cfg\" 1",
              program().at(0));
}

/* ---- Scripts in a VRF ------------------------------------------------------
 */

TEST_F(InVrf, ftpUpload) {
    row.xfCopyProtocol = XF_PROTO_FTP;
    EXPECT_EQ(0, run(upload));
    EXPECT_EQ(
        (Story{
            vrf_found,
            info(in_vrf(" : Putting the file (/stage/l.cfg)to the server "
                        "(r.cfg)\n")),
            "signal(SIGCHLD, SIG_DFL)",
            "execute_program_and_wait_redirect(-1, -1, -1, "
            "\"/brim/bin/snmp.ftp.expect\", \"192.0.2.7\", \"/stage/l.cfg\", "
            "\"r.cfg\", \"ann\", \"pa ss\", \"put\", \"12\")",
            "signal(SIGCHLD, agent's)",
            err("do_nw_upload_download_on_vrf: FTP_PUT  add 192.0.2.7 "
                "xfCopySrcFileName /stage/l.cfg xfCopyFileName r.cfg "
                "xfCopyUserName ann xfCopyUserPassword pa ss vrf_id 12 "
                "ret_code 0x0\n"),
            info(in_vrf(" : Return code from ftp.expect is  0\n")),
            account("copy startup-config ftp://ann@192.0.2.7r.cfg vrf blue "
                    "(SUCCESS)"),
        }),
        story());
}

TEST_F(InVrf, ftpDownload) {
    row.xfCopyProtocol = XF_PROTO_FTP;
    EXPECT_EQ(0, run(download));
    EXPECT_EQ(
        (Story{
            vrf_found,
            info(in_vrf(" : Getting file r.cfg to local file /stage/l.cfg "
                        "\n")),
            "signal(SIGCHLD, SIG_DFL)",
            "execute_program_and_wait_redirect(-1, -1, -1, "
            "\"/brim/bin/snmp.ftp.expect\", \"192.0.2.7\", \"r.cfg\", "
            "\"/stage/l.cfg\", \"ann\", \"pa ss\", \"get\", \"12\")",
            "signal(SIGCHLD, agent's)",
            err("do_nw_upload_download_on_vrf: FTP_GET  add 192.0.2.7 "
                "xfCopySrcFileName /stage/l.cfg xfCopyFileName r.cfg "
                "xfCopyUserName ann xfCopyUserPassword pa ss vrf_id 12 "
                "ret_code 0x0\n"),
            info(in_vrf(" : Return code from ftp.expect is  0\n")),
            account("copy ftp://ann@192.0.2.7/stage/l.cfg startup-config vrf "
                    "blue (SUCCESS)"),
        }),
        story());
}

TEST_F(InVrf, sftpUpload) {
    row.xfCopyProtocol = XF_PROTO_SFTP;
    EXPECT_EQ(0, run(upload));
    EXPECT_EQ(
        (Story{
            vrf_found,
            info(in_vrf(" : Putting the file (/stage/l.cfg)to the server "
                        "(r.cfg)\n")),
            "signal(SIGCHLD, SIG_DFL)",
            "execute_program_and_wait_redirect(-1, -1, -1, "
            "\"/brim/bin/sftp.expect\", \"192.0.2.7\", \"ann\", \"pa ss\", "
            "\"put\", \"/stage/l.cfg\", \"r.cfg\", \"12\")",
            "signal(SIGCHLD, agent's)",
            err("do_nw_upload_download_on_vrf: SFTP_PUT  add 192.0.2.7 "
                "xfCopySrcFileName /stage/l.cfg xfCopyFileName r.cfg "
                "xfCopyUserName ann xfCopyUserPassword pa ss vrf_id 12 "
                "ret_code 0x0\n"),
            info(in_vrf(" : Return code from sftp.expect is  0\n")),
            account("copy startup-config sftp://ann@192.0.2.7r.cfg vrf blue "
                    "(SUCCESS)"),
        }),
        story());
}

TEST_F(InVrf, sftpDownload) {
    row.xfCopyProtocol = XF_PROTO_SFTP;
    EXPECT_EQ(0, run(download));
    EXPECT_EQ(
        (Story{
            vrf_found,
            info(in_vrf(" : Getting file r.cfg to local file /stage/l.cfg "
                        "\n")),
            "signal(SIGCHLD, SIG_DFL)",
            "execute_program_and_wait_redirect(-1, -1, -1, "
            "\"/brim/bin/sftp.expect\", \"192.0.2.7\", \"ann\", \"pa ss\", "
            "\"get\", \"r.cfg\", \"/stage/l.cfg\", \"12\")",
            "signal(SIGCHLD, agent's)",
            err("do_nw_upload_download_on_vrf: SFTP_GET  add 192.0.2.7 "
                "xfCopySrcFileName /stage/l.cfg xfCopyFileName r.cfg "
                "xfCopyUserName ann xfCopyUserPassword pa ss vrf_id 12 "
                "ret_code 0x0\n"),
            info(in_vrf(" : Return code from sftp.expect is  0\n")),
            account("copy sftp://ann@192.0.2.7/stage/l.cfg startup-config vrf "
                    "blue (SUCCESS)"),
        }),
        story());
}

TEST_F(InVrf, scpUpload) {
    row.xfCopyProtocol = XF_PROTO_SCP;
    EXPECT_EQ(0, run(upload));
    EXPECT_EQ(
        (Story{
            vrf_found,
            info(in_vrf(": executing command: /brim/bin/scp.expect "
                        "/stage/l.cfg ann@192.0.2.7:r.cfg pa ss")),
            "signal(SIGCHLD, SIG_DFL)",
            "execute_program_and_wait_redirect(-1, -1, -1, "
            "\"/brim/bin/scp.expect\", \"/stage/l.cfg\", "
            "\"ann@192.0.2.7:r.cfg\", \"pa ss\", \"12\")",
            "signal(SIGCHLD, agent's)",
            err("do_nw_upload_download_on_vrf: SCP_PUT xfCopySrcFileName "
                "/stage/l.cfg tmp_buf ann@192.0.2.7:r.cfg passwd pa ss vrf_id "
                "12 ret_code 0x0\n"),
            info(in_vrf(" : Return code from scp.expect is  0\n")),
            account("copy startup-config scp://ann@192.0.2.7r.cfg vrf blue "
                    "(SUCCESS)"),
        }),
        story());
}

TEST_F(InVrf, scpDownload) {
    row.xfCopyProtocol = XF_PROTO_SCP;
    EXPECT_EQ(0, run(download));
    EXPECT_EQ(
        (Story{
            vrf_found,
            info(in_vrf(": executing command: /brim/bin/scp.expect "
                        "ann@192.0.2.7:r.cfg /stage/l.cfg pa ss")),
            "signal(SIGCHLD, SIG_DFL)",
            "execute_program_and_wait_redirect(-1, -1, -1, "
            "\"/brim/bin/scp.expect\", \"ann@192.0.2.7:r.cfg\", "
            "\"/stage/l.cfg\", \"pa ss\", \"12\")",
            "signal(SIGCHLD, agent's)",
            err("do_nw_upload_download_on_vrf: SCP_GET xfCopySrcFileName "
                "/stage/l.cfg tmp_buf ann@192.0.2.7:r.cfg passwd pa ss vrf_id "
                "12 ret_code 0x0\n"),
            info(in_vrf(" : Return code from scp.expect is  0\n")),
            account("copy scp://ann@192.0.2.7/stage/l.cfg startup-config vrf "
                    "blue (SUCCESS)"),
        }),
        story());
}

/* ---- Scripts on the storage pod --------------------------------------------
 */

TEST_F(OnStoragePod, ftpUpload) {
    row.xfCopyProtocol = XF_PROTO_FTP;
    EXPECT_EQ(0, run(upload));
    EXPECT_EQ(
        (Story{
            info(on_pod(" : Putting the file (/stage/l.cfg)to the server "
                        "(r.cfg)\n")),
            "signal(SIGCHLD, SIG_DFL)",
            "execute_program_and_wait_redirect(-1, -1, -1, "
            "\"/brim/bin/snmp.ftp.expect\", \"192.0.2.7\", \"/stage/l.cfg\", "
            "\"r.cfg\", \"ann\", \"pa ss\", \"put\", \"1\")",
            "signal(SIGCHLD, agent's)",
            err("do_nw_upload_download_on_storage_pod: FTP_PUT add 192.0.2.7 "
                "xfCopySrcFileName /stage/l.cfg xfCopyFileName r.cfg "
                "xfCopyUserName ann xfCopyUserPassword pa ss ret_code 0x0\n"),
            info(on_pod(" : Return code from ftp.expect is  0\n")),
            account("copy startup-config ftp://ann@192.0.2.7r.cfg (SUCCESS)"),
        }),
        story());
}

TEST_F(OnStoragePod, ftpDownload) {
    row.xfCopyProtocol = XF_PROTO_FTP;
    EXPECT_EQ(0, run(download));
    EXPECT_EQ(
        (Story{
            info(on_pod(" : Getting file r.cfg to local file /stage/l.cfg "
                        "\n")),
            "signal(SIGCHLD, SIG_DFL)",
            "execute_program_and_wait_redirect(-1, -1, -1, "
            "\"/brim/bin/snmp.ftp.expect\", \"192.0.2.7\", \"r.cfg\", "
            "\"/stage/l.cfg\", \"ann\", \"pa ss\", \"get\", \"1\")",
            "signal(SIGCHLD, agent's)",
            err("do_nw_upload_download_on_storage_pod: FTP_GET add 192.0.2.7 "
                "xfCopySrcFileName /stage/l.cfg xfCopyFileName r.cfg "
                "xfCopyUserName ann xfCopyUserPassword pa ss ret_code 0x0\n"),
            info(on_pod(" : Return code from ftp.expect is  0\n")),
            account("copy ftp://ann@192.0.2.7/stage/l.cfg startup-config "
                    "(SUCCESS)"),
        }),
        story());
}

TEST_F(OnStoragePod, sftpUpload) {
    row.xfCopyProtocol = XF_PROTO_SFTP;
    EXPECT_EQ(0, run(upload));
    EXPECT_EQ(
        (Story{
            info(on_pod(" : Putting the file (/stage/l.cfg)to the server "
                        "(r.cfg)\n")),
            "signal(SIGCHLD, SIG_DFL)",
            "execute_program_and_wait_redirect(-1, -1, -1, "
            "\"/brim/bin/sftp.expect\", \"192.0.2.7\", \"ann\", \"pa ss\", "
            "\"put\", \"/stage/l.cfg\", \"r.cfg\", \"1\")",
            "signal(SIGCHLD, agent's)",
            err("do_nw_upload_download_on_storage_pod:SFTP_PUT add 192.0.2.7 "
                "xfCopySrcFileName /stage/l.cfg xfCopyFileName "
                "r.cfgxfCopyUserName ann xfCopyUserPassword pa ss ret_code "
                "0x0\n"),
            info(on_pod(": Return code from sftp.expect is 0\n")),
            account("copy startup-config sftp://ann@192.0.2.7r.cfg (SUCCESS)"),
        }),
        story());
}

TEST_F(OnStoragePod, sftpDownload) {
    row.xfCopyProtocol = XF_PROTO_SFTP;
    EXPECT_EQ(0, run(download));
    EXPECT_EQ(
        (Story{
            info(on_pod(" : Getting file r.cfg to local file /stage/l.cfg "
                        "\n")),
            "signal(SIGCHLD, SIG_DFL)",
            "execute_program_and_wait_redirect(-1, -1, -1, "
            "\"/brim/bin/sftp.expect\", \"192.0.2.7\", \"ann\", \"pa ss\", "
            "\"get\", \"r.cfg\", \"/stage/l.cfg\", \"1\")",
            "signal(SIGCHLD, agent's)",
            err("do_nw_upload_download_on_storage_pod:SFTP_GET add 192.0.2.7 "
                "xfCopySrcFileName /stage/l.cfg xfCopyFileName "
                "r.cfgxfCopyUserName ann xfCopyUserPassword pa ss ret_code "
                "0x0\n"),
            info(on_pod(": Return code from sftp.expect is 0\n")),
            account("copy sftp://ann@192.0.2.7/stage/l.cfg startup-config "
                    "(SUCCESS)"),
        }),
        story());
}

TEST_F(OnStoragePod, scpUpload) {
    row.xfCopyProtocol = XF_PROTO_SCP;
    EXPECT_EQ(0, run(upload));
    EXPECT_EQ(
        (Story{
            info(on_pod(": executing command: /brim/bin/scp.expect "
                        "/stage/l.cfg ann@192.0.2.7:r.cfg pa ss")),
            "signal(SIGCHLD, SIG_DFL)",
            "execute_program_and_wait_redirect(-1, -1, -1, "
            "\"/brim/bin/scp.expect\", \"/stage/l.cfg\", "
            "\"ann@192.0.2.7:r.cfg\", \"pa ss\", \"1\")",
            "signal(SIGCHLD, agent's)",
            err("do_nw_upload_download_on_storage_pod: SCP_PUT "
                "xfCopySrcFileName /stage/l.cfg tmp_buf ann@192.0.2.7:r.cfg "
                "passwd pa ss ret_code 0x0\n"),
            info(on_pod(" : Return code from scp.expect is  0\n")),
            account("copy startup-config scp://ann@192.0.2.7r.cfg (SUCCESS)"),
        }),
        story());
}

TEST_F(OnStoragePod, scpDownload) {
    row.xfCopyProtocol = XF_PROTO_SCP;
    EXPECT_EQ(0, run(download));
    EXPECT_EQ(
        (Story{
            info(on_pod(": executing command: /brim/bin/scp.expect "
                        "ann@192.0.2.7:r.cfg /stage/l.cfg pa ss")),
            "signal(SIGCHLD, SIG_DFL)",
            "execute_program_and_wait_redirect(-1, -1, -1, "
            "\"/brim/bin/scp.expect\", \"ann@192.0.2.7:r.cfg\", "
            "\"/stage/l.cfg\", \"pa ss\", \"1\")",
            "signal(SIGCHLD, agent's)",
            err("do_nw_upload_download_on_storage_pod: SCP_GET "
                "xfCopySrcFileName /stage/l.cfg tmp_buf ann@192.0.2.7:r.cfg "
                "passwd pa ss  ret_code 0x0\n"),
            info(on_pod(" : Return code from scp.expect is  0\n")),
            account("copy scp://ann@192.0.2.7/stage/l.cfg startup-config "
                    "(SUCCESS)"),
        }),
        story());
}

TEST_F(OnStoragePod, noVrfIsLookedUp) {
    for (const int32_t protocol : variant_protocols) {
        row.xfCopyProtocol = protocol;
        run(upload);
        EXPECT_EQ(0u, p.count("snmp_get_ctx_vrf_for_current_req"));
        EXPECT_EQ(0u, p.count("vrfmgr_get_context_id"));
    }
}

/* ---- Both ------------------------------------------------------------------
 */

void Variant::expect_every_exit_status() {
    char status_text[32];

    for (const int32_t protocol : script_protocols)
        for (const uint32_t direction : {upload, download})
            for (int exit_code = 0; exit_code <= 255; exit_code++) {
                row.xfCopyProtocol = protocol;
                p.program_results.then(exit_code << 8);
                EXPECT_EQ(cause_of_exit(exit_code), run(direction));
                snprintf(status_text, sizeof(status_text), " ret_code 0x%x\n",
                         static_cast<unsigned>(exit_code) << 8);
                EXPECT_TRUE(printed().ends_with(status_text)) << printed();
                const Story whole = story();
                EXPECT_TRUE(
                    whole.at(whole.size() - 2)
                        .ends_with(" " + std::to_string(exit_code) + "\n"));
                EXPECT_TRUE(accounted().ends_with(
                    exit_code == 0 ? " (SUCCESS)" : " (FAILURE)"));
            }
    for (const int32_t protocol : script_protocols) {
        row.xfCopyProtocol = protocol;
        p.program_results.then(-1).then(9).then(INT_MIN);
        EXPECT_EQ(1, run(upload));
        EXPECT_TRUE(printed().ends_with(" ret_code 0xffffffff\n"));
        EXPECT_TRUE(accounted().ends_with(" (FAILURE)"));
        EXPECT_EQ(0, run(upload)) << "ended by a signal";
        EXPECT_TRUE(accounted().ends_with(" (SUCCESS)"));
        EXPECT_EQ(1, run(upload));
        EXPECT_TRUE(accounted().ends_with(" (SUCCESS)"));
    }
}

TEST_F(InVrf, everyExitStatusOfAScript) {
    expect_every_exit_status();
}

TEST_F(OnStoragePod, everyExitStatusOfAScript) {
    expect_every_exit_status();
}

void Variant::expect_default_sigchld() {
    for (const int32_t protocol : variant_protocols)
        for (const uint32_t direction : {upload, download})
            for (const Handler before :
                 {agents_sigchld_handler, Handler{SIG_IGN}, Handler{SIG_DFL}}) {
                const char *const runner =
                    protocol == XF_PROTO_TFTP
                        ? "system"
                        : "execute_program_and_wait_redirect";
                row.xfCopyProtocol = protocol;
                p.sigchld = before;
                run(direction);
                EXPECT_EQ(SIG_DFL, p.calls_of(runner).at(0).sigchld);
                EXPECT_EQ(
                    before,
                    p.calls_of("account_lib_interim_update").at(0).sigchld);
                EXPECT_EQ(before, p.sigchld);
            }
}

TEST_F(InVrf, programsRunWithSigchldAtItsDefault) {
    expect_default_sigchld();
}

TEST_F(OnStoragePod, programsRunWithSigchldAtItsDefault) {
    expect_default_sigchld();
}

/* Accounting words of the file types, in both directions. */
void Variant::expect_words() {
    for (const int32_t protocol : variant_protocols)
        for (int32_t type = 0; type <= 8; type++) {
            const std::string word = type == 3   ? "startup-config"
                                     : type == 4 ? "running-config"
                                                 : "";
            row.xfCopyProtocol = protocol;
            row.xfCopySourceFileType = type;
            row.xfCopyDestFileType = XF_FILE_NETWORK;
            run(upload);
            EXPECT_TRUE(accounted().starts_with(
                "copy " + (word.empty() ? "/stage/l.cfg" : word) + " "));
            row.xfCopySourceFileType = XF_FILE_NETWORK;
            row.xfCopyDestFileType = type;
            run(download);
            EXPECT_NE(std::string::npos,
                      accounted().find("/stage/l.cfg " +
                                       (word.empty() ? "r.cfg" : word) + " "));
        }
}

TEST_F(InVrf, accountingWordOfTheOtherSide) {
    expect_words();
}

TEST_F(OnStoragePod, accountingWordOfTheOtherSide) {
    expect_words();
}

TEST_F(InVrf, neitherTheTftpLibraryNorTheChassisIsAsked) {
    run(upload);
    EXPECT_EQ(0u, p.count("tftp_timeout_set") + p.count("tftp_connect") +
                      p.count("hwinfo_get_chassis_type"));
}

TEST_F(OnStoragePod, neitherTheTftpLibraryNorTheChassisIsAsked) {
    run(upload);
    EXPECT_EQ(0u, p.count("tftp_timeout_set") + p.count("tftp_connect") +
                      p.count("hwinfo_get_chassis_type") +
                      p.count("pod_get_type"));
}

TEST_F(InVrf, scriptInAnotherDirectionRunsNothing) {
    for (const int32_t protocol : script_protocols) {
        row.xfCopyProtocol = protocol;
        run(3);
        EXPECT_EQ(0u, p.count("execute_program_and_wait_redirect"));
    }
}

TEST_F(InVrf, rowAndDirectoryAreLeftAlone) {
    const struct xfCopyEntry before = row;

    for (const uint32_t direction : {upload, download}) {
        run(direction);
        EXPECT_EQ("", difference(before, row));
        EXPECT_STREQ("/dir", directory);
    }
}

TEST_F(InVrf, tftpInAnotherDirectionRunsNothing) {
    row.xfCopyProtocol = XF_PROTO_TFTP;
    EXPECT_EQ(0, run(3));
    EXPECT_EQ(0u, p.count("system") + p.count("account_lib_interim_update"));
}
