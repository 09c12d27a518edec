/* Network transfers in the plain setting: the TFTP library and the scripts. */
#include "scripted_platform.h"

#include <climits>
#include <map>

using namespace scripted;
using namespace std::string_literals;

namespace {

constexpr uint32_t download = 1;
constexpr uint32_t upload = 2;

class Transfer : public ModuleTest {
  protected:
    struct xfCopyEntry row = make_row(5, XF_ROW_ACTIVE);
    char directory[256] = "/dir";

    Transfer() {
        assign(row.xfCopyServerAddressRev1, "192.0.2.7");
        assign(row.xfCopyFileName, "r.cfg");
        assign(row.xfCopySrcFileName, "/stage/l.cfg");
        assign(row.xfCopyUserName, "ann");
        assign(row.xfCopyUserPassword, "pa ss");
        row.xfCopySourceFileType = XF_FILE_RUNNING;
        row.xfCopyDestFileType = XF_FILE_RUNNING;
    }
    int32_t run(uint32_t direction) {
        p.forget();
        return do_nw_upload_download(direction, directory, &row);
    }
    /* Text of the one accounting record. */
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
    std::vector<std::string> program() const {
        const std::vector<Event> runs =
            p.calls_of("execute_program_and_wait_redirect");
        EXPECT_EQ(1u, runs.size());
        return runs.empty() ? std::vector<std::string>{} : runs[0].strings;
    }
};

std::string trace_name(std::string_view text) {
    return "do_nw_upload_download" + std::string(text);
}

std::string account(const std::string &text) {
    return "account_lib_interim_update(response_q, \"session-1\", "
           "\"operator\", " +
           quote(text) + ")";
}

/* Exit codes of the scripts and what they mean. */
int32_t cause_of_exit(int exit_code) {
    static const std::map<int, int32_t> causes = {
        {0, 0}, {1, 3}, {2, 2}, {3, 4}};
    const auto found = causes.find(exit_code);
    return found == causes.end() ? 1 : found->second;
}

const int32_t script_protocols[] = {XF_PROTO_FTP, XF_PROTO_SFTP, XF_PROTO_SCP};

} // namespace

/* ---- Chassis ---------------------------------------------------------------
 */

TEST_F(Transfer, chassisTypesThatTransferInAVrf) {
    const std::set<int32_t> vrf_types = {10, 11, 22, 28, 29, 30, 31, 33};

    row.xfCopyProtocol = XF_PROTO_RCP;
    for (int32_t type = -2; type <= 300; type++) {
        p.chassis_type = type;
        run(upload);
        EXPECT_EQ(vrf_types.contains(type) ? 1u : 0u, p.count("pod_get_type"))
            << type;
    }
}

TEST_F(Transfer, chassisType32Or34OrAFailedQueryNeverGoesToTheVrfVariant) {
    row.xfCopyProtocol = XF_PROTO_RCP;
    for (const int32_t type : {32, 34}) {
        p.chassis_type = type;
        run(upload);
        EXPECT_EQ(0u, p.count("pod_get_type"));
    }
    p.chassis_type = 29;
    for (const int result : {1, -1, 0x40490001}) {
        p.chassis_results.then(result);
        run(upload);
        EXPECT_EQ(0u, p.count("pod_get_type")) << result;
    }
    run(upload);
    EXPECT_EQ(1u, p.count("pod_get_type"));
}

TEST_F(Transfer, resultOfTheVrfVariantIsReturnedAsItIs) {
    p.chassis_type = 29;
    row.xfCopyProtocol = XF_PROTO_FTP;
    assign(row.xfCopyVRFName, "nowhere");
    p.vrf_context.then(0);
    EXPECT_EQ(5, run(upload));
    for (const int exit_code : {0, 1, 2, 3, 4}) {
        p.program_results.then(exit_code << 8);
        EXPECT_EQ(cause_of_exit(exit_code), run(download));
    }
}

TEST_F(Transfer, directionGoesOnToTheVrfVariant) {
    p.chassis_type = 29;
    row.xfCopyProtocol = XF_PROTO_FTP;
    run(upload);
    EXPECT_EQ("put", program().at(6));
    run(download);
    EXPECT_EQ("get", program().at(6));
}

/* ---- Protocols without a transfer ------------------------------------------
 */

TEST_F(Transfer, rcpReturns1WithoutTraceRunOrRecord) {
    row.xfCopyProtocol = XF_PROTO_RCP;
    for (const uint32_t direction : {upload, download}) {
        EXPECT_EQ(1, run(direction));
        EXPECT_EQ(Story{}, story());
    }
}

TEST_F(Transfer, unknownProtocolIsNotSupported) {
    for (const int32_t protocol : {0, 6, 7, -1, 255, INT32_MAX, INT32_MIN}) {
        row.xfCopyProtocol = protocol;
        EXPECT_EQ(6, run(upload));
        EXPECT_EQ(Story{error(trace_name(" : Protocol not supported\n"))},
                  story());
    }
}

/* ---- TFTP ------------------------------------------------------------------
 */

namespace {

Story tftp_begun(int chassis_result = 0) {
    return {
        info(trace_name(" : get chassis type return " +
                        std::to_string(chassis_result) + "\n")),
        "tftp_timeout_set(20)",
        "tftp_connect(\"192.0.2.7\", -1)",
    };
}

Story tftp_upload_until_put() {
    Story whole = tftp_begun();
    whole.push_back(
        info(trace_name(" : Putting the file (/stage/l.cfg)to the server "
                        "(r.cfg)\n")));
    whole.push_back("signal(SIGCHLD, SIG_DFL)");
    whole.push_back("tftp_put2(\"/stage/l.cfg\", \"r.cfg\", 0)");
    whole.push_back("signal(SIGCHLD, agent's)");
    return whole;
}

Story tftp_download_until_get() {
    Story whole = tftp_begun();
    whole.push_back(info(
        trace_name(" : Getting file r.cfg to local file /stage/l.cfg \n")));
    whole.push_back("signal(SIGCHLD, SIG_DFL)");
    whole.push_back("tftp_get2(\"r.cfg\", \"/stage/l.cfg\", 0)");
    whole.push_back("signal(SIGCHLD, agent's)");
    return whole;
}

Story after(Story whole, const Story &rest) {
    whole.insert(whole.end(), rest.begin(), rest.end());
    return whole;
}

/* Codes of the library beside those that mean an unknown cause. */
const std::map<int32_t, int32_t> tftp_causes = {{-1, 2},   {-2, 2},  {-101, 2},
                                                {-102, 2}, {-3, 4},  {-103, 4},
                                                {-201, 3}, {-210, 3}};

int32_t tftp_cause(int32_t code) {
    const auto found = tftp_causes.find(code);
    return found == tftp_causes.end() ? 1 : found->second;
}

} // namespace

TEST_F(Transfer, tftpUpload) {
    for (const int result : {0, 1, 4711}) {
        p.tftp_put_results.then(result);
        EXPECT_EQ(0, run(upload));
        EXPECT_EQ(after(tftp_upload_until_put(),
                        {account("copy running-config tftp://192.0.2.7:69r.cfg "
                                 "(SUCCESS)"),
                         info(trace_name(" : File r.cfg is uploaded\n"))}),
                  story());
    }
}

TEST_F(Transfer, tftpUploadThatFails) {
    for (const int32_t code :
         {-1, -2, -3, -4, -100, -101, -102, -103, -104, -201, -210, -110}) {
        const std::string number = std::to_string(code);

        p.tftp_put_results.then(code);
        EXPECT_EQ(tftp_cause(code), run(upload)) << code;
        EXPECT_EQ(
            after(tftp_upload_until_put(),
                  {account("copy running-config tftp://192.0.2.7:69r.cfg "
                           "(FAILURE)"),
                   error(trace_name(" : Putting to  the tftp server failed "
                                    ": tftp_strerror " +
                                    number + " (errno: " + number + ")\n"))}),
            story());
    }
}

TEST_F(Transfer, tftpDownload) {
    for (const int result : {0, 1, 4711}) {
        p.tftp_get_results.then(result);
        EXPECT_EQ(0, run(download));
        EXPECT_EQ(after(tftp_download_until_get(),
                        {account("copy tftp://192.0.2.7:69/stage/l.cfg "
                                 "running-config (SUCCESS)"),
                         info(trace_name(" :  File r.cfg is downloaded\n"))}),
                  story());
    }
}

TEST_F(Transfer, tftpDownloadThatFails) {
    for (const int32_t code :
         {-1, -2, -3, -4, -100, -101, -102, -103, -104, -201, -210, -110}) {
        const std::string number = std::to_string(code);

        p.tftp_get_results.then(code);
        EXPECT_EQ(tftp_cause(code), run(download)) << code;
        EXPECT_EQ(after(tftp_download_until_get(),
                        {account("copy tftp://192.0.2.7:69/stage/l.cfg "
                                 "running-config (FAILURE)"),
                         error(trace_name(" : Getting from tftp server "
                                          "failed :(" +
                                          number + ") tftp_strerror " + number +
                                          "\n"))}),
                  story());
    }
}

TEST_F(Transfer, successfulTftpDownloadToDestination4NamesTheLocalPath) {
    assign(row.xfCopyServerAddressRev1, "S");
    assign(row.xfCopySrcFileName, "L");
    EXPECT_EQ(0, run(download));
    EXPECT_EQ("copy tftp://S:69L running-config (SUCCESS)", accounted());
}

TEST_F(Transfer, tftpTracesTheResultOfTheChassisQuery) {
    p.chassis_type = 29;
    p.chassis_results.then(71);
    EXPECT_EQ(0, run(upload));
    EXPECT_EQ(info(trace_name(" : get chassis type return 71\n")),
              story().front());
}

TEST_F(Transfer, tftpTimeoutThatCannotBeSet) {
    p.tftp_timeout_results.then(-110);
    EXPECT_EQ(1, run(upload));
    EXPECT_EQ((Story{
                  info(trace_name(" : get chassis type return 0\n")),
                  "tftp_timeout_set(20)",
                  error(trace_name(" : Setting timeout failed : tftp_strerror "
                                   "-110\n")),
              }),
              story());
    /* Whatever the code: this one would be a bad file name. */
    p.tftp_timeout_results.then(-1);
    EXPECT_EQ(1, run(upload));
    p.tftp_timeout_results.then(3);
    EXPECT_EQ(0, run(upload));
}

TEST_F(Transfer, tftpServerThatCannotBeConnected) {
    for (const int32_t code : {-1, -3, -7, -201, -210, -110}) {
        p.tftp_connect_results.then(code);
        EXPECT_EQ(tftp_cause(code), run(download)) << code;
        EXPECT_EQ(after(tftp_begun(),
                        {error(trace_name(" : Connecting to the tftp server "
                                          "failed : tftp_strerror " +
                                          std::to_string(code) + "\n"))}),
                  story());
    }
    p.tftp_connect_results.then(3);
    EXPECT_EQ(0, run(download));
}

TEST_F(Transfer, tftpInAnotherDirectionConnectsAndReturnsSuccess) {
    for (const uint32_t direction : {0u, 3u, 0xffffffffu}) {
        EXPECT_EQ(0, run(direction));
        EXPECT_EQ(tftp_begun(), story());
    }
}

TEST_F(Transfer, tftpAccountingWordOfTheSource) {
    const std::map<int32_t, std::string> words = {{3, "startup-config"},
                                                  {4, "running-config"}};
    for (int32_t type = -1; type <= 8; type++) {
        const auto word = words.find(type);
        row.xfCopySourceFileType = type;
        row.xfCopyDestFileType = XF_FILE_NETWORK;
        run(upload);
        EXPECT_EQ("copy " +
                      (word == words.end() ? "/stage/l.cfg" : word->second) +
                      " tftp://192.0.2.7:69r.cfg (SUCCESS)",
                  accounted());
    }
}

TEST_F(Transfer, tftpAccountingWordOfTheDestination) {
    const std::map<int32_t, std::string> words = {{3, "startup-config"},
                                                  {4, "running-config"}};
    for (int32_t type = -1; type <= 8; type++) {
        const auto word = words.find(type);
        row.xfCopySourceFileType = XF_FILE_NETWORK;
        row.xfCopyDestFileType = type;
        run(download);
        EXPECT_EQ("copy tftp://192.0.2.7:69/stage/l.cfg " +
                      (word == words.end() ? "r.cfg" : word->second) +
                      " (SUCCESS)",
                  accounted());
    }
}

TEST_F(Transfer, tftpLibraryTransfersRunWithSigchldAtItsDefault) {
    for (const Handler before :
         {agents_sigchld_handler, Handler{SIG_IGN}, Handler{SIG_DFL}})
        for (const int result : {0, -1}) {
            p.sigchld = before;
            p.tftp_put_results.then(result);
            run(upload);
            EXPECT_EQ(SIG_DFL, p.calls_of("tftp_put2").at(0).sigchld);
            EXPECT_EQ(before, p.calls_of("tftp_timeout_set").at(0).sigchld);
            EXPECT_EQ(before, p.calls_of("tftp_connect").at(0).sigchld);
            EXPECT_EQ(before,
                      p.calls_of("account_lib_interim_update").at(0).sigchld);
            EXPECT_EQ(before, p.sigchld);

            p.tftp_get_results.then(result);
            run(download);
            EXPECT_EQ(SIG_DFL, p.calls_of("tftp_get2").at(0).sigchld);
            EXPECT_EQ(before,
                      p.calls_of("account_lib_interim_update").at(0).sigchld);
            EXPECT_EQ(before, p.sigchld);
        }
}

TEST_F(Transfer, tftpErrorsAsFailCauses) {
    EXPECT_EQ(3, tftperr2miberr(-210));
    EXPECT_EQ(1, tftperr2miberr(-110));
    EXPECT_EQ(4, tftperr2miberr(-103));
    for (int32_t code = -70'000; code <= 70'000; code++)
        ASSERT_EQ(tftp_cause(code), tftperr2miberr(code)) << code;
    for (const int32_t code :
         {INT32_MIN, INT32_MIN + 1, INT32_MIN + 100, INT32_MAX})
        EXPECT_EQ(1, tftperr2miberr(code)) << code;
    EXPECT_EQ(Story{}, story());
}

/* ---- Scripts ---------------------------------------------------------------
 */

TEST_F(Transfer, ftpUpload) {
    row.xfCopyProtocol = XF_PROTO_FTP;
    EXPECT_EQ(0, run(upload));
    EXPECT_EQ(
        (Story{
            info(trace_name(" : Putting the file (/stage/l.cfg)to the server "
                            "(r.cfg)\n")),
            "signal(SIGCHLD, SIG_DFL)",
            "execute_program_and_wait_redirect(-1, -1, -1, "
            "\"/brim/bin/snmp.ftp.expect\", \"192.0.2.7\", \"/stage/l.cfg\", "
            "\"r.cfg\", \"ann\", \"pa ss\", \"put\")",
            "signal(SIGCHLD, agent's)",
            err("do_nw_upload_download: FTP_PUT  add 192.0.2.7 "
                "xfCopySrcFileName /stage/l.cfg xfCopyFileName r.cfg "
                "xfCopyUserName ann xfCopyUserPassword pa ss ret_code 0x0\n"),
            info(trace_name(" : Return code from ftp.expect is  0\n")),
            account("copy running-config ftp://ann@192.0.2.7r.cfg (SUCCESS)"),
        }),
        story());
}

TEST_F(Transfer, ftpDownload) {
    row.xfCopyProtocol = XF_PROTO_FTP;
    EXPECT_EQ(0, run(download));
    EXPECT_EQ(
        (Story{
            info(trace_name(" : Getting file r.cfg to local file /stage/l.cfg "
                            "\n")),
            "signal(SIGCHLD, SIG_DFL)",
            "execute_program_and_wait_redirect(-1, -1, -1, "
            "\"/brim/bin/snmp.ftp.expect\", \"192.0.2.7\", \"r.cfg\", "
            "\"/stage/l.cfg\", \"ann\", \"pa ss\", \"get\")",
            "signal(SIGCHLD, agent's)",
            err("do_nw_upload_download: FTP_GET  add 192.0.2.7 "
                "xfCopySrcFileName /stage/l.cfg xfCopyFileName r.cfg "
                "xfCopyUserName ann xfCopyUserPassword pa ss ret_code 0x0\n"),
            info(trace_name(" : Return code from ftp.expect is  0\n")),
            account("copy ftp://ann@192.0.2.7/stage/l.cfg running-config "
                    "(SUCCESS)"),
        }),
        story());
}

TEST_F(Transfer, sftpUpload) {
    row.xfCopyProtocol = XF_PROTO_SFTP;
    EXPECT_EQ(0, run(upload));
    EXPECT_EQ(
        (Story{
            info(trace_name(" : Putting the file (/stage/l.cfg)to the server "
                            "(r.cfg)\n")),
            "signal(SIGCHLD, SIG_DFL)",
            "execute_program_and_wait_redirect(-1, -1, -1, "
            "\"/brim/bin/sftp.expect\", \"192.0.2.7\", \"ann\", \"pa ss\", "
            "\"put\", \"/stage/l.cfg\", \"r.cfg\")",
            "signal(SIGCHLD, agent's)",
            err("do_nw_upload_download: SFTP_PUT  add 192.0.2.7 "
                "xfCopySrcFileName /stage/l.cfg xfCopyFileName r.cfg "
                "xfCopyUserName ann xfCopyUserPassword pa ss ret_code 0x0\n"),
            info(trace_name(" : Return code from sftp.expect is  0\n")),
            account("copy running-config sftp://ann@192.0.2.7r.cfg (SUCCESS)"),
        }),
        story());
}

TEST_F(Transfer, sftpDownload) {
    row.xfCopyProtocol = XF_PROTO_SFTP;
    EXPECT_EQ(0, run(download));
    EXPECT_EQ(
        (Story{
            info(trace_name(" : Getting file r.cfg to local file /stage/l.cfg "
                            "\n")),
            "signal(SIGCHLD, SIG_DFL)",
            "execute_program_and_wait_redirect(-1, -1, -1, "
            "\"/brim/bin/sftp.expect\", \"192.0.2.7\", \"ann\", \"pa ss\", "
            "\"get\", \"r.cfg\", \"/stage/l.cfg\")",
            "signal(SIGCHLD, agent's)",
            err("do_nw_upload_download: SFTP_GET  add 192.0.2.7 "
                "xfCopySrcFileName /stage/l.cfg xfCopyFileName r.cfg "
                "xfCopyUserName ann xfCopyUserPassword pa ss ret_code 0x0\n"),
            info(trace_name(" : Return code from sftp.expect is  0\n")),
            account("copy sftp://ann@192.0.2.7/stage/l.cfg running-config "
                    "(SUCCESS)"),
        }),
        story());
}

TEST_F(Transfer, scpUpload) {
    row.xfCopyProtocol = XF_PROTO_SCP;
    EXPECT_EQ(0, run(upload));
    EXPECT_EQ(
        (Story{
            info(trace_name(": executing command: /brim/bin/scp.expect "
                            "/stage/l.cfg ann@192.0.2.7:r.cfg pa ss")),
            "signal(SIGCHLD, SIG_DFL)",
            "execute_program_and_wait_redirect(-1, -1, -1, "
            "\"/brim/bin/scp.expect\", \"/stage/l.cfg\", "
            "\"ann@192.0.2.7:r.cfg\", \"pa ss\")",
            "signal(SIGCHLD, agent's)",
            err("do_nw_upload_download: SCP_PUT xfCopySrcFileName "
                "/stage/l.cfg tmp_buf ann@192.0.2.7:r.cfg passwd pa ss "
                "ret_code 0x0\n"),
            info(trace_name(" : Return code from scp.expect is  0\n")),
            account("copy running-config scp://ann@192.0.2.7r.cfg (SUCCESS)"),
        }),
        story());
}

TEST_F(Transfer, scpDownload) {
    row.xfCopyProtocol = XF_PROTO_SCP;
    EXPECT_EQ(0, run(download));
    EXPECT_EQ((Story{
                  info(trace_name(": executing command: /brim/bin/scp.expect "
                                  "ann@192.0.2.7:r.cfg /stage/l.cfg pa ss")),
                  "signal(SIGCHLD, SIG_DFL)",
                  "execute_program_and_wait_redirect(-1, -1, -1, "
                  "\"/brim/bin/scp.expect\", \"ann@192.0.2.7:r.cfg\", "
                  "\"/stage/l.cfg\", \"pa ss\")",
                  "signal(SIGCHLD, agent's)",
                  err("do_nw_upload_download: SCP_GET xfCopySrcFileName "
                      "/stage/l.cfg tmp_buf ann@192.0.2.7:r.cfg passwd pa ss "
                      "ret_code 0x0\n"),
                  info(trace_name(" : Return code from scp.expect is  0\n")),
                  account("copy scp://ann@192.0.2.7/stage/l.cfg running-config "
                          "(SUCCESS)"),
              }),
              story());
}

TEST_F(Transfer, scriptAccountingWordOfTheOtherSide) {
    const std::map<int32_t, std::string> schemes = {
        {XF_PROTO_FTP, "ftp"}, {XF_PROTO_SFTP, "sftp"}, {XF_PROTO_SCP, "scp"}};
    for (const auto &[protocol, scheme] : schemes)
        for (int32_t type = 0; type <= 8; type++) {
            const std::string word = type == 3   ? "startup-config"
                                     : type == 4 ? "running-config"
                                                 : "";
            row.xfCopyProtocol = protocol;
            row.xfCopySourceFileType = type;
            row.xfCopyDestFileType = XF_FILE_NETWORK;
            run(upload);
            EXPECT_EQ("copy " + (word.empty() ? "/stage/l.cfg" : word) + " " +
                          scheme + "://ann@192.0.2.7r.cfg (SUCCESS)",
                      accounted());
            row.xfCopySourceFileType = XF_FILE_NETWORK;
            row.xfCopyDestFileType = type;
            run(download);
            EXPECT_EQ("copy " + scheme + "://ann@192.0.2.7/stage/l.cfg " +
                          (word.empty() ? "r.cfg" : word) + " (SUCCESS)",
                      accounted());
        }
}

namespace {

struct ScriptTexts {
    int32_t protocol;
    std::string put_line, get_line, exit_trace;
};
const ScriptTexts script_texts[] = {
    {XF_PROTO_FTP,
     "do_nw_upload_download: FTP_PUT  add 192.0.2.7 xfCopySrcFileName "
     "/stage/l.cfg xfCopyFileName r.cfg xfCopyUserName ann "
     "xfCopyUserPassword pa ss ret_code 0x",
     "do_nw_upload_download: FTP_GET  add 192.0.2.7 xfCopySrcFileName "
     "/stage/l.cfg xfCopyFileName r.cfg xfCopyUserName ann "
     "xfCopyUserPassword pa ss ret_code 0x",
     "do_nw_upload_download : Return code from ftp.expect is  "},
    {XF_PROTO_SFTP,
     "do_nw_upload_download: SFTP_PUT  add 192.0.2.7 xfCopySrcFileName "
     "/stage/l.cfg xfCopyFileName r.cfg xfCopyUserName ann "
     "xfCopyUserPassword pa ss ret_code 0x",
     "do_nw_upload_download: SFTP_GET  add 192.0.2.7 xfCopySrcFileName "
     "/stage/l.cfg xfCopyFileName r.cfg xfCopyUserName ann "
     "xfCopyUserPassword pa ss ret_code 0x",
     "do_nw_upload_download : Return code from sftp.expect is  "},
    {XF_PROTO_SCP,
     "do_nw_upload_download: SCP_PUT xfCopySrcFileName /stage/l.cfg tmp_buf "
     "ann@192.0.2.7:r.cfg passwd pa ss ret_code 0x",
     "do_nw_upload_download: SCP_GET xfCopySrcFileName /stage/l.cfg tmp_buf "
     "ann@192.0.2.7:r.cfg passwd pa ss ret_code 0x",
     "do_nw_upload_download : Return code from scp.expect is  "},
};

std::string hex(int status) {
    char text[16];
    snprintf(text, sizeof(text), "%x", static_cast<unsigned>(status));
    return text;
}

} // namespace

TEST_F(Transfer, everyExitStatusOfAScript) {
    for (const ScriptTexts &texts : script_texts)
        for (const uint32_t direction : {upload, download})
            for (int exit_code = 0; exit_code <= 255; exit_code++) {
                row.xfCopyProtocol = texts.protocol;
                p.program_results.then(exit_code << 8);
                EXPECT_EQ(cause_of_exit(exit_code), run(direction))
                    << exit_code;
                EXPECT_EQ(
                    (direction == upload ? texts.put_line : texts.get_line) +
                        hex(exit_code << 8) + "\n",
                    printed());
                const Story whole = story();
                ASSERT_LE(2u, whole.size());
                EXPECT_EQ(
                    info(texts.exit_trace + std::to_string(exit_code) + "\n"),
                    whole[whole.size() - 2]);
                EXPECT_TRUE(accounted().ends_with(
                    exit_code == 0 ? " (SUCCESS)" : " (FAILURE)"));
            }
}

TEST_F(Transfer, expectScriptExitingWithCode2Or3Or7OrNotStarted) {
    for (const int32_t protocol : script_protocols) {
        row.xfCopyProtocol = protocol;
        p.program_results.then(2 << 8).then(3 << 8).then(7 << 8).then(-1);
        EXPECT_EQ(2, run(upload));
        EXPECT_EQ(4, run(upload));
        EXPECT_EQ(1, run(upload));
        EXPECT_EQ(1, run(upload));
        EXPECT_TRUE(accounted().ends_with(" (FAILURE)"));
    }
}

TEST_F(Transfer, scriptThatCouldNotBeRun) {
    for (const ScriptTexts &texts : script_texts) {
        row.xfCopyProtocol = texts.protocol;
        p.program_results.then(-1);
        EXPECT_EQ(1, run(upload));
        EXPECT_EQ(texts.put_line + "ffffffff\n", printed());
        EXPECT_TRUE(accounted().ends_with("r.cfg (FAILURE)"));
    }
}

/* The outcome word goes by the exit code alone, the result not. */
TEST_F(Transfer, negativeStatusWhoseExitByteIsZero) {
    for (const int32_t protocol : script_protocols) {
        row.xfCopyProtocol = protocol;
        p.program_results.then(INT_MIN);
        EXPECT_EQ(1, run(upload));
        EXPECT_TRUE(accounted().ends_with(" (SUCCESS)"));
    }
}

TEST_F(Transfer, signalThatEndedAScriptDoesNotCount) {
    for (const int32_t protocol : script_protocols)
        for (int number = 1; number <= 127; number++)
            for (const int core : {0, 0x80}) {
                row.xfCopyProtocol = protocol;
                p.program_results.then(number | core);
                EXPECT_EQ(0, run(download));
                EXPECT_TRUE(accounted().ends_with(" (SUCCESS)"));
                p.program_results.then(number | core | 2 << 8);
                EXPECT_EQ(2, run(download));
            }
}

TEST_F(Transfer, onlyOneOctetOfTheStatusIsTheExitCode) {
    row.xfCopyProtocol = XF_PROTO_FTP;
    p.program_results.then(0x10000).then(0x7f0100);
    EXPECT_EQ(0, run(upload));
    EXPECT_EQ(3, run(upload));
}

TEST_F(Transfer, scriptsRunWithSigchldAtItsDefault) {
    for (const int32_t protocol : script_protocols)
        for (const uint32_t direction : {upload, download})
            for (const Handler before :
                 {agents_sigchld_handler, Handler{SIG_IGN}, Handler{SIG_DFL}}) {
                row.xfCopyProtocol = protocol;
                p.sigchld = before;
                run(direction);
                EXPECT_EQ(SIG_DFL,
                          p.calls_of("execute_program_and_wait_redirect")
                              .at(0)
                              .sigchld);
                EXPECT_EQ(before, p.calls_of("stderr").at(0).sigchld);
                EXPECT_EQ(before, p.sigchld);
            }
}

TEST_F(Transfer, scriptInAnotherDirectionRunsNothing) {
    for (const int32_t protocol : script_protocols)
        for (const uint32_t direction : {0u, 3u}) {
            row.xfCopyProtocol = protocol;
            run(direction);
            EXPECT_EQ(0u, p.count("execute_program_and_wait_redirect"));
        }
}

/* ---- Accounting ------------------------------------------------------------
 */

TEST_F(Transfer, recordNamesQueueSessionAndUserOfTheRequest) {
    p.session_id = "10.1.2.3:161";
    p.user_name = "admin";
    for (const int32_t protocol : {1, 2, 4, 5}) {
        row.xfCopyProtocol = protocol;
        run(upload);
        const Event record = p.calls_of("account_lib_interim_update").at(0);
        EXPECT_EQ(0u, record.text.find(
                          "account_lib_interim_update(response_q, "
                          "\"10.1.2.3:161\", \"admin\", \"copy running"));
        EXPECT_EQ(1u, p.count("get_snmp_sessionid"));
        EXPECT_EQ("get_snmp_sessionid(0)",
                  p.calls_of("get_snmp_sessionid").at(0).text);
        EXPECT_EQ(1u, p.count("get_snmp_username"));
        EXPECT_EQ("get_snmp_username(0)",
                  p.calls_of("get_snmp_username").at(0).text);
    }
}

/* ---- Lengths ---------------------------------------------------------------
 */

TEST_F(Transfer, serverTextLongerThan63CharactersIsCut) {
    const std::string server(63, 's');

    /* One character more than a server has room for, and no NUL. */
    memset(row.xfCopyServerAddressRev1, 's',
           sizeof(row.xfCopyServerAddressRev1));
    run(upload);
    EXPECT_EQ(server, p.calls_of("tftp_connect").at(0).strings[0]);
    EXPECT_EQ("copy running-config tftp://" + server + ":69r.cfg (SUCCESS)",
              accounted());
    row.xfCopyProtocol = XF_PROTO_FTP;
    run(upload);
    EXPECT_EQ(server, program().at(1));
    row.xfCopyProtocol = XF_PROTO_SCP;
    run(upload);
    EXPECT_EQ("ann@" + server + ":r.cfg", program().at(2));
}

/* Around the limit: the outcome word is always whole. */
TEST_F(Transfer, commandTextLongerThan511CharactersIsCut) {
    const std::map<int32_t, std::string> before_name = {
        {XF_PROTO_TFTP, "tftp://192.0.2.7:69"},
        {XF_PROTO_FTP, "ftp://ann@192.0.2.7"},
        {XF_PROTO_SFTP, "sftp://ann@192.0.2.7"},
        {XF_PROTO_SCP, "scp://ann@192.0.2.7"}};

    for (const auto &[protocol, url] : before_name) {
        row.xfCopyProtocol = protocol;
        for (size_t total = 505; total <= 530; total++) {
            const std::string local(250, 'l');
            const std::string remote(total - 5 - local.size() - 1 - url.size(),
                                     'r');
            ASSERT_LE(remote.size(), 255u);
            assign(row.xfCopySrcFileName, local);
            assign(row.xfCopyFileName, remote);
            row.xfCopySourceFileType = row.xfCopyDestFileType = 0;

            run(upload);
            std::string text = "copy " + local + " " + url + remote;
            ASSERT_EQ(total, text.size());
            EXPECT_EQ(text.substr(0, 511) + " (SUCCESS)", accounted());

            p.tftp_get_results.then(-1);
            p.program_results.then(256);
            run(download);
            p.tftp_get_results = Results<int>(0);
            p.program_results = Results<int>(0);
            text = "copy " + url + local + " " + remote;
            EXPECT_EQ(text.substr(0, 511) + " (FAILURE)", accounted());
        }
    }
}

TEST_F(Transfer, scpTargetIsCutTo255Characters) {
    const std::string user(41, 'u');
    const std::string server(63, 's');

    row.xfCopyProtocol = XF_PROTO_SCP;
    assign(row.xfCopyUserName, user);
    assign(row.xfCopyServerAddressRev1, server);
    for (size_t length = 140; length <= 160; length++) {
        const std::string name(length, 'r');
        const std::string target =
            (user + "@" + server + ":" + name).substr(0, 255);

        assign(row.xfCopyFileName, name);
        run(upload);
        EXPECT_EQ(target, program().at(2));
        EXPECT_EQ("do_nw_upload_download: SCP_PUT xfCopySrcFileName "
                  "/stage/l.cfg tmp_buf " +
                      target + " passwd pa ss ret_code 0x0\n",
                  printed());
        run(download);
        EXPECT_EQ(target, program().at(1));
    }
}

/* Only what is kept in a buffer is cut: a line to standard error is not. */
TEST_F(Transfer, lineOnStandardErrorIsWhole) {
    const std::string local(255, 'l');
    const std::string remote(255, 'r');

    row.xfCopyProtocol = XF_PROTO_SFTP;
    assign(row.xfCopySrcFileName, local);
    assign(row.xfCopyFileName, remote);
    run(upload);
    EXPECT_EQ("do_nw_upload_download: SFTP_PUT  add 192.0.2.7 "
              "xfCopySrcFileName " +
                  local + " xfCopyFileName " + remote +
                  " xfCopyUserName ann xfCopyUserPassword pa ss ret_code "
                  "0x0\n",
              printed());
    EXPECT_EQ(local, program().at(5));
    EXPECT_EQ(remote, program().at(6));
}

/* ---- What it is given ------------------------------------------------------
 */

TEST_F(Transfer, rowAndDirectoryAreLeftAlone) {
    const struct xfCopyEntry before = row;

    for (const int32_t protocol : {1, 2, 3, 4, 5, 6})
        for (const uint32_t direction : {upload, download}) {
            row.xfCopyProtocol = protocol;
            run(direction);
            row.xfCopyProtocol = before.xfCopyProtocol;
            EXPECT_EQ("", difference(before, row));
            EXPECT_STREQ("/dir", directory);
        }
}
