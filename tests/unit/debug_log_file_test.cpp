/* The debug log's file. */
#include "set_driver.h"

#include <unistd.h>

#include <fstream>
#include <sstream>

using namespace scripted;

/*
 * The file is opened once in the life of a process: what follows runs in
 * children, and no test here may open it in the process that forks them.
 */
namespace {
const char message[] = "set_xfCopyEntryRowStatus(#):set_xfCopyEntryRowStatus "
                       ":  Entering RESERVE2\n";

class FreshDebugLogTest : public ModuleTest {
  protected:
    FreshDebugLogTest() {
        is_snmp_debug_enabled = 1;
    }
    /* Writes one debug log record in the name of the row status. */
    void log_one() {
        set_phase(integer(14, 1, 6), RESERVE2);
    }
    /* Failures in it are failures of its status, which says so here. */
    static void in_a_process_of_its_own(const std::function<void()> &body) {
        EXPECT_EXIT(
            {
                body();
                exit(HasFailure() ? 1 : 0);
            },
            testing::ExitedWithCode(0), "");
    }
    std::vector<std::vector<std::string>> opened() {
        std::vector<std::vector<std::string>> files;
        for (const Event &event : p.calls_of("fopen"))
            files.push_back(event.strings);
        return files;
    }
};

using Files = std::vector<std::vector<std::string>>;
} // namespace

TEST_F(FreshDebugLogTest, firstRecordOpensTheLogOfThisProcessForAppending) {
    in_a_process_of_its_own([&] {
        p.pid.always(31'337);
        log_one();
        const Files expected = {{"/tmp/cfg_snmp_debug.log.31337", "a"}};
        EXPECT_EQ(expected, opened());
        log_one();
        p.pid.always(31'338);
        log_one();
        EXPECT_EQ(expected, opened());
        EXPECT_EQ(3u, p.count("log"));
        EXPECT_EQ(0u, p.count("fclose"));
    });
}

TEST_F(FreshDebugLogTest, logThatCannotBeOpenedCostsOneMessageForEachTry) {
    in_a_process_of_its_own([&] {
        p.debug_log_opens = false;
        log_one();
        const std::string refused =
            err("Can't open /tmp/cfg_snmp_debug.log.4242");
        EXPECT_EQ(Story{refused}, story());
        EXPECT_EQ(0, set_phase(integer(14, 1, 6), RESERVE2));
        const Story twice = {refused, refused};
        EXPECT_EQ(twice, story());
        p.debug_log_opens = true;
        log_one();
        const Story then_open = {refused, refused, log(message)};
        EXPECT_EQ(then_open, story());
        EXPECT_EQ(3u, p.count("fopen"));
    });
}

TEST_F(FreshDebugLogTest, recordsAreOnDiskAsSoonAsTheyAreLogged) {
    in_a_process_of_its_own([&] {
        const std::string name =
            "/tmp/cfg_snmp_debug.log." + std::to_string(getpid());
        p.pid.always(getpid());
        p.debug_log_on_disk = true;
        log_one();
        std::stringstream text;
        text << std::ifstream(name).rdbuf();
        EXPECT_EQ(p.calls_of("log")[0].octets, text.str());
        EXPECT_EQ(0u, text.str().find("[Tue Nov 14 22:13:20 2023] "));
        log_one();
        text.str("");
        text << std::ifstream(name).rdbuf();
        EXPECT_EQ(p.calls_of("log")[0].octets + p.calls_of("log")[1].octets,
                  text.str());
        unlink(name.c_str());
    });
}

TEST_F(FreshDebugLogTest, aChildWritesThroughTheHandleOfItsParent) {
    in_a_process_of_its_own([&] {
        log_one();
        p.fork_results.then(0);
        p.pid.always(5555);
        struct xfCopyEntry row = make_row(1, XF_ROW_ACTIVE);
        row.xfCopySourceFileType = XF_FILE_RUNNING;
        row.xfCopyDestFileType = XF_FILE_TARN;
        EXPECT_EQ(0, run_as_child([&] { start_copy(&row); }));
        EXPECT_EQ(1u, p.count("fopen"));
        EXPECT_EQ(2u, p.count("log"));
    });
}
