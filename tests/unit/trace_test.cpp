/* The trace and the debug log: when they write, what, and how much of it. */
#include "set_driver.h"

#include <climits>
#include <cstring>
#include <cwchar>

using namespace scripted;

namespace {

class TraceTest : public ModuleTest {
  protected:
    /* What one event handed to the trace library. */
    const Event &only_event() {
        static Event event;
        const std::vector<Event> events = p.calls_of("trc_hist_event");
        EXPECT_EQ(1u, events.size());
        if (!events.empty())
            event = events[0];
        return event;
    }
    /* Writes one debug log record in the name of the row status. */
    void log_one() {
        set_phase(integer(14, 1, 6), RESERVE2);
    }
    Story queries_and_texts() {
        return p.events(Kind::Query | Kind::Trace | Kind::Live);
    }
};

const char message[] = "set_xfCopyEntryRowStatus(#):set_xfCopyEntryRowStatus "
                       ":  Entering RESERVE2\n";

} // namespace

/* ---- Trace -----------------------------------------------------------------
 */

TEST_F(TraceTest, eventIsFilteredThenRecordedThenPrinted) {
    p.live_check.always(1);
    TRACE_ERROR("%s: text %d\n", __func__, 5);
    EXPECT_EQ((Story{"trc_hist_event_subtype_check(0x730000, 100)",
                     "100 TestBody: text 5\n", "trc_chk_int(100, 0, 0, 1)",
                     "live TestBody: text 5\n"}),
              queries_and_texts());
    p.forget();
    TRACE_INFO("%s: text\n", __func__);
    EXPECT_EQ((Story{"trc_hist_event_subtype_check(0x730000, 101)",
                     "101 TestBody: text\n", "trc_chk_int(101, 0, 0, 1)",
                     "live TestBody: text\n"}),
              queries_and_texts());
}

/* Most texts are put together without printf: they are the same. */
TEST_F(TraceTest, textIsAsPrintfWritesIt) {
    const auto expect = [&](const std::string &text) {
        EXPECT_EQ(text, only_event().octets);
        p.forget();
    };
    trace_history(XF_TRACE_INFO, "no value\n");
    expect("no value\n");
    TRACE_INFO("%d%d,%d,%d", 0, -1, INT_MAX, INT_MIN);
    expect("0-1,2147483647,-2147483648");
    TRACE_INFO("%ld %s (%ld)", LONG_MIN, "", LONG_MAX);
    expect(std::to_string(LONG_MIN) + "  (" + std::to_string(LONG_MAX) + ")");
    TRACE_INFO("%s: 0x%08X of %s, %d%%", "name", 0xAB12u, "text", 100);
    expect("name: 0x0000AB12 of text, 100%");
}

TEST_F(TraceTest, textThatIsNotThereIsShownAsPrintfShowsIt) {
    const char *missing = nullptr;
    TRACE_INFO("%s: no %s\n", __func__, missing);
    EXPECT_EQ("TestBody: no (null)\n", only_event().octets);
}

TEST_F(TraceTest, textThatCannotBeFormattedIsDropped) {
    trace_history(XF_TRACE_INFO, "%lc", static_cast<wint_t>(0xD800));
    EXPECT_EQ(0u, p.count("trc_hist_event"));
}

TEST_F(TraceTest, moduleRecordsNothingOfATypeThatIsNot) {
    p.hist_check.always(1);
    cfgentry_age_timer_handler(0, nullptr);
    EXPECT_EQ(1u, p.count("trc_hist_event_subtype_check"));
    EXPECT_EQ(0u, p.count("trc_hist_event"));
}

TEST_F(TraceTest, liveOutputHasTheFormatItself) {
    p.live_check.always(1);
    TRACE_INFO("%s: text %d\n", __func__, 5);
    ASSERT_EQ(1u, p.calls_of("dprint").size());
    EXPECT_EQ(std::vector<std::string>{"%s: text %d\n"},
              p.calls_of("dprint")[0].strings);
}

TEST_F(TraceTest, historyAndLiveOutputAreIndependent) {
    for (const int recorded : {0, 1, -1})
        for (const int printed : {0, 1, 2}) {
            p.forget();
            p.hist_check.always(recorded);
            p.live_check.always(printed);
            TRACE_INFO("%s", "text");
            EXPECT_EQ(recorded == 0 ? 1u : 0u, p.count("trc_hist_event"));
            EXPECT_EQ(printed != 0 ? 1u : 0u, p.count("dprint"));
        }
}

TEST_F(TraceTest, argumentsAreEvaluatedOnce) {
    int evaluations = 0;
    p.live_check.always(1);
    TRACE_INFO("%d", ++evaluations);
    EXPECT_EQ(1, evaluations);
    p.hist_check.always(1);
    p.live_check.always(0);
    TRACE_INFO("%d", ++evaluations);
    EXPECT_EQ(2, evaluations);
}

TEST_F(TraceTest, sizeIsThatOfLevelTextAndTerminator) {
    TRACE_INFO("%s", "12345");
    EXPECT_EQ(10u, only_event().size);
    EXPECT_EQ(101u, only_event().level);
    EXPECT_EQ("12345", only_event().octets);
}

TEST_F(TraceTest, emptyTextHasFiveOctets) {
    TRACE_ERROR("%s", "");
    EXPECT_EQ(5u, only_event().size);
    EXPECT_EQ(100u, only_event().level);
}

TEST_F(TraceTest, longTextIsCutAt511AndItsSizeFollows) {
    for (const size_t length : {510u, 511u, 512u, 513u, 600u, 5000u}) {
        p.forget();
        TRACE_ERROR("%s", std::string(length, 't').c_str());
        const size_t kept = length < 511 ? length : 511;
        EXPECT_EQ(std::string(kept, 't'), only_event().octets);
        EXPECT_EQ(kept + 5, only_event().size);
    }
}

/* Whatever stands where the room ends. */
TEST_F(TraceTest, textIsCutAsPrintfCutsIt) {
    const auto expect_cut = [&](const char *format, const auto... values) {
        char expected[512];
        snprintf(expected, sizeof(expected), format, values...);
        trace_history(XF_TRACE_INFO, format, values...);
        EXPECT_EQ(expected, only_event().octets);
        EXPECT_EQ(516u, only_event().size);
        p.forget();
    };
    const std::string all_but_two(509, 't');
    const std::string full(511, 't');
    const std::string too_long(600, 't');
    for (const int value : {12345, -12345}) {
        expect_cut("%s%d\n", all_but_two.c_str(), value);
        expect_cut("%s%ld\n", all_but_two.c_str(), long{value});
    }
    expect_cut("%s: and more\n", all_but_two.c_str());
    for (const std::string &text : {full, too_long}) {
        expect_cut("%s: and more\n", text.c_str());
        expect_cut("%s: 0x%08X\n", text.c_str(), 0xAB12u);
    }
}

TEST_F(TraceTest, liveOutputIsNotCut) {
    p.live_check.always(1);
    TRACE_ERROR("%s", std::string(600, 't').c_str());
    EXPECT_EQ(std::string(600, 't'), p.calls_of("dprint")[0].octets);
}

TEST_F(TraceTest, everyTraceOfAWriteMethodIsPrintedLiveToo) {
    store(make_row(1));
    p.live_check.always(1);
    EXPECT_EQ(0, set_request({integer(2, 1, 4)}));
    const std::vector<Event> kept = p.calls_of("trc_hist_event");
    const std::vector<Event> printed = p.calls_of("dprint");
    ASSERT_EQ(3u, kept.size());
    ASSERT_EQ(3u, printed.size());
    for (size_t i = 0; i < kept.size(); i++)
        EXPECT_EQ(kept[i].octets, printed[i].octets);
}

TEST_F(TraceTest, aTraceThatIsNotRecordedChangesNoResult) {
    p.hist_check.always(1);
    EXPECT_EQ(0, set_request({integer(14, 1, 5)}));
    EXPECT_EQ(Story{}, texts());
    EXPECT_EQ(XF_ROW_NOT_READY, stored(1)->xfCopyEntryRowStatus);
}

/* ---- Debug log -------------------------------------------------------------
 */

TEST_F(TraceTest, debugLogIsUntouchedWhileItIsOff) {
    EXPECT_EQ(0, set_request({integer(14, 1, 5)}));
    EXPECT_NE(0, set_request({integer(14, 1, 1)}));
    EXPECT_EQ(0u, p.count("fopen"));
    EXPECT_EQ(Story{}, p.events(static_cast<unsigned>(Kind::Log)));
}

TEST_F(TraceTest, anyValueButZeroSwitchesItOn) {
    for (const uint32_t value : {1u, 2u, 0x80000000u}) {
        p.forget();
        is_snmp_debug_enabled = value;
        log_one();
        EXPECT_EQ(Story{log(message)}, story());
        EXPECT_EQ(value, is_snmp_debug_enabled);
    }
}

TEST_F(TraceTest, recordIsDateMessageAndOneMoreNewline) {
    is_snmp_debug_enabled = 1;
    p.now_seconds = 951'782'400; /* a day of one digit is padded */
    log_one();
    const std::vector<Event> records = p.calls_of("log");
    ASSERT_EQ(1u, records.size());
    const std::string &raw = records[0].octets;
    EXPECT_EQ(0u, raw.find("[Tue Feb 29 00:00:00 2000] "
                           "set_xfCopyEntryRowStatus("));
    const std::string tail = "):set_xfCopyEntryRowStatus :  Entering "
                             "RESERVE2\n\n";
    EXPECT_EQ(raw.size() - tail.size(), raw.rfind(tail));
}

TEST_F(TraceTest, messageWithoutANewlineGetsOne) {
    is_snmp_debug_enabled = 1;
    struct xfCopyEntry row = make_row(1, XF_ROW_ACTIVE);
    row.xfCopyDestFileType = XF_FILE_RUNNING;
    assign(row.xfCopyFileName, "file");
    assign(row.xfCopyServerAddressRev1, "0.0.0.0");
    EXPECT_EQ(SNMP_ERR_WRONGVALUE, validate_n_start_copy(&row, 1));
    const std::string raw = p.calls_of("log").back().octets;
    const std::string tail = "Disallowing this operation.\n";
    EXPECT_EQ(raw.size() - tail.size(), raw.rfind(tail));
}
