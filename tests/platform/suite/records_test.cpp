// What is written down: trace history, accounting, errors and their texts.
#include "platform/accounting.h"
#include "platform/errlog.h"
#include "platform/trc.h"

#include <cstdio>
#include <cstring>
#include <string>

#include <unistd.h>

#include <gtest/gtest.h>

#include "suite.h"

namespace {

constexpr uint32_t copies = 0x730000; // type of the module's events
constexpr uint32_t error = 100, information = 101;
constexpr uint32_t module = 584;

// The record as the module makes it: a level in native order, then the text.
void trace(uint32_t level, const std::string &text) {
    std::string record(sizeof level, 0);
    memcpy(record.data(), &level, sizeof level);
    record += text;
    trc_hist_event(copies, static_cast<uint32_t>(record.size() + 1),
                   record.c_str());
}

TEST(Trc, HasAName) {
    ASSERT_NE(trc_dbg_modname, nullptr);
    EXPECT_STRNE(trc_dbg_modname, "");
}

TEST(Trc, TakesEventsWithoutBlocking) {
    trc_hist_event_subtype_check(copies, error);
    trc_hist_event_subtype_check(copies, information);
    const double begun = suite::now();
    for (int i = 0; i < 10000; i++)
        trace(i % 2 == 0 ? error : information, "do_it : number 5\n");
    trace(information, "");
    trace(information, std::string(8000, 'x'));
    EXPECT_LT(suite::now() - begun, 10);
}

TEST(Trc, AChildTracesToo) {
    const pid_t child = fork();
    if (child == 0) {
        trace(error, "in the child\n");
        if (trc_chk_int(error, 0, 0, 1) != 0)
            dprint(1, trc_dbg_modname, 0, "%s : %d\n", "in the child", 1);
        _exit(0);
    }
    EXPECT_EQ(suite::exit_status(child), 0);
}

TEST(Trc, LiveOutputTakesAFormat) {
    trc_chk_int(information, 0, 0, 1);
    dprint(1, trc_dbg_modname, 0, "%s : %d %u\n", "do_it", -1, 1u);
}

TEST(Accounting, TakesARecordInTheAgentAndInAChild) {
    EXPECT_EQ(account_lib_interim_update(ipcbus_response_q, "[192.0.2.1]:4711",
                                         "admin", "copy r s (SUCCESS)"),
              0);
    const pid_t child = fork();
    if (child == 0)
        _exit(account_lib_interim_update(ipcbus_response_q, "", "",
                                         "copy r n (FAILURE)"));
    EXPECT_EQ(suite::exit_status(child), 0);
}

TEST(Errlog, EveryCodeHasAText) {
    for (uint32_t code : {0u, 1u, 0x40540001u, 0x4049004Au, UINT32_MAX}) {
        EXPECT_NE(syserr2str(code), nullptr) << code;
        EXPECT_NE(syserr_format(code), nullptr) << code;
    }
}

TEST(Errlog, TheFormattedTextHasTheCode) {
    const uint32_t code = 0x4049004A;
    char small[16], large[16];
    snprintf(small, sizeof small, "%x", code);
    snprintf(large, sizeof large, "%X", code);
    const std::string text = syserr_format(code);
    EXPECT_TRUE(text.find(small) != std::string::npos ||
                text.find(large) != std::string::npos ||
                text.find(std::to_string(code)) != std::string::npos)
        << text;
}

TEST(Errlog, RecordsTheLastError) {
    log_set_error(0x4049004A, module);
    log_set_error(0, module);
}

} // namespace
