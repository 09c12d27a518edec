/*
 * Write methods of the columns: one shape, tested over a table of what each
 * column does differently, and then what is particular to one of them.
 */
#include "set_driver.h"

#include <cstring>

using namespace scripted;

namespace {

constexpr int32_t row_index = 7;

/* Nothing that the platform or a handler may touch is zero or like another. */
struct xfCopyEntry full_row(int32_t index, int32_t row_status) {
    struct xfCopyEntry row = make_row(index, row_status);

    row.xfCopyProtocol = 5;
    row.xfCopySourceFileType = 4;
    row.xfCopyDestFileType = 1;
    row.xfCopyServerAddress = 0x01020304;
    assign(row.xfCopyFileName, "old-file");
    assign(row.xfCopySrcFileName, "local");
    assign(row.xfCopyUserName, "old-user");
    assign(row.xfCopyUserPassword, "old-password");
    row.xfCopyNotificationOnCompletion = 2;
    row.xfCopyState = 3;
    row.entryCreateTime = 111;
    row.xfCopyTimeStarted = {222, 333};
    row.xfCopyTimeCompleted = {444, 555};
    row.xfCopyFailCause = 9;
    row.rowCreatedByRequest = 0;
    row.xfCopyServerAddressType = 1;
    assign(row.xfCopyServerAddressRev1, "192.0.2.9");
    assign(row.xfCopyVRFName, "old-vrf");
    return row;
}

/* What a column does differently from the others. */
struct Column {
    const char *object;
    Binding accepted; /* a value that RESERVE1 passes */
    size_t max_length;
    const char *wrong_type;
    const char *bad_length;
    bool refuses_by_trace;
    Story enters_reserve1; /* before the type is looked at */
    Story accepts;         /* behind it, for `accepted` */
    Story enters_reserve2; /* before the row is looked for */
    Story applies;         /* behind it, for `accepted` on full_row */
    Story row_is_missing;  /* in RESERVE2 */
    Story status_refused;
    bool saves_before_status;
    Story enters_action;
    Story enters_free;
    void (*change)(struct xfCopyEntry *row);  /* what RESERVE2 does to it */
    void (*restore)(struct xfCopyEntry *row); /* FREE, on a row changed so */

    std::string function() const {
        return std::string("set_") + object;
    }
};

/* GoogleTest would print its octets, the undecided ones between the fields
 * too. */
[[maybe_unused]] void PrintTo(const Column &column, std::ostream *out) {
    *out << column.object;
}

Story named(const char *function, const char *format) {
    std::string text = format;

    text.replace(text.find("%s"), 2, function);
    return {info(text)};
}

Story entering_reserve2(const char *function) {
    return named(function, "%s : Entering RESERVE2 of entry (index = 7) \n");
}
Story entering_action(const char *function) {
    return named(function, "%s : Entering ACTION of entry (index = 7) \n");
}
Story entering_free(const char *function) {
    return named(function, "%s : Entering FREE of entry (index = 7) \n");
}

const std::vector<Column> columns = {
    {"xfCopyProtocol",
     integer(2, row_index, 2),
     4,
     "write to xfCopyProtocol not ASN_INTEGER\n",
     "write to xfCopyProtocol: bad length\n",
     false,
     {info("set_xfCopyProtocol : Entering RESERVE1 of entry (index = 7) : The "
           "protocol being set = 2\n")},
     {},
     entering_reserve2("set_xfCopyProtocol"),
     {},
     {},
     {error("set_xfCopyProtocol : The row status is not correctly set for this "
            "entry (index = 7) \n")},
     true,
     entering_action("set_xfCopyProtocol"),
     entering_free("set_xfCopyProtocol"),
     [](xfCopyEntry *row) { row->xfCopyProtocol = 2; },
     [](xfCopyEntry *row) { row->xfCopyProtocol = 5; }},

    {"xfCopySourceFileType",
     integer(3, row_index, 2),
     4,
     "write to xfCopySourceFileType not ASN_INTEGER\n",
     "write to xfCopySourceFileType: bad length\n",
     false,
     {info("set_xfCopySourceFileType : Entering RESERVE1 of entry (index = 7) "
           "\n")},
     {},
     entering_reserve2("set_xfCopySourceFileType"),
     {},
     {},
     {},
     true,
     entering_action("set_xfCopySourceFileType"),
     entering_free("set_xfCopySourceFileType"),
     [](xfCopyEntry *row) { row->xfCopySourceFileType = 2; },
     [](xfCopyEntry *row) { row->xfCopySourceFileType = 4; }},

    {"xfCopyDestFileType",
     integer(4, row_index, 2),
     4,
     "write to xfCopyDestFileType not ASN_INTEGER\n",
     "write to xfCopyDestFileType: bad length\n",
     false,
     {},
     {},
     {},
     {},
     {},
     {},
     true,
     {},
     entering_free("set_xfCopyDestFileType"),
     [](xfCopyEntry *row) { row->xfCopyDestFileType = 2; },
     [](xfCopyEntry *row) { row->xfCopyDestFileType = 1; }},

    /* The octets spell "ABCD"; FREE loses the old address. */
    {"xfCopyServerAddress",
     ip_address(5, row_index, "ABCD"),
     4,
     "write to xfCopyServerAddress not ASN_IPADDRESS\n",
     "write to xfCopyServerAddress: bad length\n",
     false,
     {},
     {out("DEBUG : set_xfCopyServerAddress : Server Address : 1094861636 "
          "Length 4\n")},
     {},
     {info("set_xfCopyServerAddress: calling ip_addr_to_str() with addr type: "
           "1, ip address: ABCD\n"),
      info("set_xfCopyServerAddress : Server Address: 65.66.67.68, Server "
           "Address Type: 1\n")},
     {},
     {},
     true,
     {},
     {out("DEBUG : set_xfCopyServerAddress : Entering FREE of entry (index = "
          "7) \n")},
     [](xfCopyEntry *row) {
         memcpy(&row->xfCopyServerAddress, "ABCD", 4);
         row->xfCopyServerAddressType = 1;
         assign(row->xfCopyServerAddressRev1, "65.66.67.68");
     },
     [](xfCopyEntry *row) { assign(row->xfCopyServerAddressRev1, ""); }},

    /* Saving and restoring lose a character each. */
    {"xfCopyFileName",
     octets(6, row_index, "new"),
     128,
     "write to xfCopyFileName not ASN_OCTET_STR\n",
     "write to xfCopyFileName: bad length\n",
     false,
     {},
     {},
     {},
     {},
     {out("ERROR set_xfCopyFileName: Entry (index = 7) not found  ")},
     {},
     false,
     entering_action("set_xfCopyFileName"),
     entering_free("set_xfCopyFileName"),
     [](xfCopyEntry *row) { assign(row->xfCopyFileName, "new"); },
     [](xfCopyEntry *row) { assign(row->xfCopyFileName, "old-fi"); }},

    {"xfCopyUserName",
     octets(7, row_index, "new"),
     41,
     "write to xfCopyUserName not ASN_OCTET_STR\n",
     "write to xfCopyUserName: bad length\n",
     false,
     {},
     {},
     {},
     {},
     {},
     {},
     false,
     {},
     entering_free("set_xfCopyUserName"),
     [](xfCopyEntry *row) { assign(row->xfCopyUserName, "new"); },
     [](xfCopyEntry *row) { assign(row->xfCopyUserName, "old-user"); }},

    {"xfCopyUserPassword",
     octets(8, row_index, "new"),
     41,
     "write to xfCopyUserPassword not ASN_OCTET_STR\n",
     "write to xfCopyUserPassword: bad length\n",
     false,
     {},
     {},
     {},
     {},
     {},
     {},
     false,
     {},
     entering_free("set_xfCopyUserPassword"),
     [](xfCopyEntry *row) { assign(row->xfCopyUserPassword, "new"); },
     [](xfCopyEntry *row) { assign(row->xfCopyUserPassword, "old-password"); }},

    {"xfCopyNotificationOnCompletion",
     integer(9, row_index, 1),
     4,
     "write to xfCopyNotificationOnCompletion not ASN_INTEGER\n",
     "write to xfCopyNotificationOnCompletion: bad length\n",
     false,
     {},
     {},
     {},
     {},
     {},
     {},
     false,
     {},
     entering_free("set_xfCopyNotificationOnCompletion"),
     [](xfCopyEntry *row) { row->xfCopyNotificationOnCompletion = 1; },
     [](xfCopyEntry *row) { row->xfCopyNotificationOnCompletion = 2; }},

    {"xfCopyServerAddressType",
     integer(15, row_index, 2),
     4,
     "write to xfCopyServerAddressType not ASN_INTEGER\n",
     "write to xfCopyServerAddressTypel: bad length\n",
     false,
     {info("set_xfCopyServerAddressType : Entering RESERVE1 of entry (index = "
           "7) : The server address type being set = 2\n")},
     {},
     entering_reserve2("set_xfCopyServerAddressType"),
     {info("set_xfCopyServerAddressType : Server Address Type: 2\n")},
     {},
     {error("set_xfCopyServerAddressType : The row status is not correctly set "
            "for this entry (index = 7) \n")},
     true,
     entering_action("set_xfCopyServerAddressType"),
     entering_free("set_xfCopyServerAddressType"),
     [](xfCopyEntry *row) { row->xfCopyServerAddressType = 2; },
     [](xfCopyEntry *row) { row->xfCopyServerAddressType = 1; }},

    {"xfCopyServerAddressRev1",
     octets(16, row_index, "ABCDEFGH"),
     64,
     "write to xfCopyServerAddressRev1 not ASN_OCTET_STR\n",
     "write to xfCopyServerAddressRev1: bad length\n",
     false,
     {info("set_xfCopyServerAddressRev1 : Entering RESERVE1 of entry (index = "
           "7)\n")},
     {info("set_xfCopyServerAddressRev1 : length of value: 8\n")},
     entering_reserve2("set_xfCopyServerAddressRev1"),
     {info("set_xfCopyServerAddressRev1: value copied into addr: "
           "0x41424344\n"),
      info("set_xfCopyServerAddressRev1: calling ip_addr_to_str() with addr "
           "type: 1, ip address: ABCD, var_val: ABCDEFGH\n"),
      info("set_xfCopyServerAddressRev1 : Server Address: 65.66.67.68\n")},
     {},
     {},
     false,
     entering_action("set_xfCopyServerAddressRev1"),
     entering_free("set_xfCopyServerAddressRev1"),
     [](xfCopyEntry *row) {
         assign(row->xfCopyServerAddressRev1, "65.66.67.68");
     },
     [](xfCopyEntry *row) {
         assign(row->xfCopyServerAddressRev1, "192.0.2.9");
     }},

    {"xfCopyVRFName",
     octets(17, row_index, "new"),
     32,
     "write to xfCopyVRFName not ASN_OCTET_STR\n",
     "write to xfCopyVRFName: bad length\n",
     true,
     {},
     {},
     {},
     {},
     {error("ERROR set_xfCopyVRFName: Entry (index = 7) not found  ")},
     {},
     false,
     entering_action("set_xfCopyVRFName"),
     entering_free("set_xfCopyVRFName"),
     [](xfCopyEntry *row) { assign(row->xfCopyVRFName, "new"); },
     [](xfCopyEntry *row) { assign(row->xfCopyVRFName, "old-vrf"); }},
};

Story operator+(Story first, const Story &second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

class ColumnSetTest : public ModuleTest,
                      public ::testing::WithParamInterface<Column> {
  protected:
    const Column &column = GetParam();
    const Binding &accepted = column.accepted;

    Story refusal(const char *text) const {
        return {column.refuses_by_trace ? error(text) : err(text)};
    }
    bool is_integer() const {
        return accepted.type == ASN_INTEGER;
    }
    long accepted_integer() const {
        long value = 0;
        EXPECT_EQ(sizeof(value), accepted.octets.size());
        memcpy(&value, accepted.octets.data(), sizeof(value));
        return value;
    }

    /* The row as RESERVE2 leaves it, and as FREE does after that. */
    struct xfCopyEntry changed(int32_t row_status) const {
        struct xfCopyEntry row = full_row(row_index, row_status);
        column.change(&row);
        return row;
    }
    struct xfCopyEntry restored(int32_t row_status) const {
        struct xfCopyEntry row = changed(row_status);
        column.restore(&row);
        return row;
    }
    void expect_row(const struct xfCopyEntry &expected) const {
        ASSERT_TRUE(stored(row_index).has_value());
        EXPECT_EQ("", difference(expected, *stored(row_index)));
    }
    /* RESERVE1 and RESERVE2, quietly. */
    void reserve(const Binding &binding) {
        const Quiet quiet;
        ASSERT_EQ(SNMP_ERR_NOERROR, set_phase(binding, RESERVE1));
        ASSERT_EQ(SNMP_ERR_NOERROR, set_phase(binding, RESERVE2));
    }
};

INSTANTIATE_TEST_SUITE_P(columns, ColumnSetTest, ::testing::ValuesIn(columns),
                         [](const auto &named_column) {
                             return named_column.param.object;
                         });

} // namespace

/* ---- RESERVE1 --------------------------------------------------------------
 */

TEST_P(ColumnSetTest, reserve1AcceptsWithoutLookingAtTheRow) {
    EXPECT_EQ(SNMP_ERR_NOERROR, set_phase(accepted, RESERVE1));
    EXPECT_EQ(column.enters_reserve1 + column.accepts, story());
    EXPECT_EQ(0u, p.count("ordset_find"));
}

TEST_P(ColumnSetTest, reserve1RefusesEveryOtherType) {
    for (const int type :
         {ASN_BOOLEAN, ASN_INTEGER, ASN_BIT_STR, ASN_OCTET_STR, ASN_NULL,
          ASN_OBJECT_ID, ASN_IPADDRESS, ASN_COUNTER, ASN_UNSIGNED,
          ASN_TIMETICKS, ASN_OPAQUE, ASN_COUNTER64}) {
        if (type == accepted.type)
            continue;
        Binding binding = integer4(accepted.column, row_index, 2);
        binding.type = static_cast<u_char>(type);
        p.forget();
        EXPECT_EQ(SNMP_ERR_WRONGTYPE, set_phase(binding, RESERVE1)) << type;
        EXPECT_EQ(column.enters_reserve1 + refusal(column.wrong_type), story());
    }
}

TEST_P(ColumnSetTest, reserve1BoundsTheLengthOfOctets) {
    if (is_integer())
        return; /* see reserve1TakesIntegersOfFourOctetsOrAsTheAgentHasThem */
    for (size_t length = 0; length <= column.max_length + 3; length++) {
        Binding binding = accepted;
        binding.octets = std::string(length, 'A');
        p.forget();
        const bool fits = length <= column.max_length;
        EXPECT_EQ(fits ? SNMP_ERR_NOERROR : SNMP_ERR_WRONGLENGTH,
                  set_phase(binding, RESERVE1))
            << length;
        const Story refused = refusal(column.bad_length);
        const Story seen = story();
        EXPECT_EQ(fits, seen.empty() || seen.back() != refused.back());
    }
}

TEST_P(ColumnSetTest, reserve1RefusesALengthWithItsTextAlone) {
    Binding binding = accepted;
    const size_t length = is_integer() ? 5 : column.max_length + 1;
    binding.octets.resize(length, '\0');

    EXPECT_EQ(SNMP_ERR_WRONGLENGTH, set_phase(binding, RESERVE1));
    Story expected = column.enters_reserve1;
    if (std::string_view(column.object) == "xfCopyServerAddressRev1")
        expected.push_back(
            info("set_xfCopyServerAddressRev1 : length of value: 65\n"));
    EXPECT_EQ(expected + refusal(column.bad_length), story());
}

TEST_P(ColumnSetTest, reserve1TakesIntegersOfFourOctetsOrAsTheAgentHasThem) {
    if (!is_integer())
        return;
    const long value = accepted_integer();
    for (size_t length = 0; length <= 17; length++) {
        const bool refused = length > 4 && length != sizeof(long);
        Binding binding = accepted;
        binding.octets.assign(length, '\0');
        if (length == 4)
            binding = integer4(accepted.column, row_index,
                               static_cast<int32_t>(value));
        if (length == sizeof(long))
            binding = integer(accepted.column, row_index, value);
        p.forget();
        const int error = set_phase(binding, RESERVE1);
        EXPECT_EQ(refused, error == SNMP_ERR_WRONGLENGTH) << length;
        if (length == 4 || length == sizeof(long)) {
            EXPECT_EQ(SNMP_ERR_NOERROR, error) << length;
        }
    }
}

TEST_P(ColumnSetTest, reserve1ClearsTheSavedFlagEvenIfItRefuses) {
    store(full_row(row_index, XF_ROW_NOT_READY));
    reserve(accepted);
    const struct xfCopyEntry before = *stored(row_index);
    Binding refused = accepted;
    refused.type = ASN_NULL;
    {
        const Quiet quiet;
        EXPECT_EQ(SNMP_ERR_WRONGTYPE, set_phase(refused, RESERVE1));
    }

    EXPECT_EQ(SNMP_ERR_NOERROR, set_phase(accepted, FREE));
    EXPECT_EQ(Story{}, story());
    expect_row(before);
}

/* ---- RESERVE2 --------------------------------------------------------------
 */

TEST_P(ColumnSetTest, reserve2AppliesTheValueToARowThatIsOpen) {
    for (const int32_t status :
         {XF_ROW_NOT_READY, XF_ROW_CREATE_AND_GO, XF_ROW_CREATE_AND_WAIT}) {
        store(full_row(row_index, status));
        p.forget();
        EXPECT_EQ(SNMP_ERR_NOERROR, set_phase(accepted, RESERVE2)) << status;
        EXPECT_EQ(column.enters_reserve2 + column.applies, story());
        expect_row(changed(status));
        const Quiet quiet;
        struct xfCopyEntry row = make_row(row_index);
        deleteXfCopyEntry(&row);
    }
}

TEST_P(ColumnSetTest, reserve2TakesIntegersInEitherForm) {
    if (!is_integer())
        return;
    const auto value = static_cast<int32_t>(accepted_integer());
    store(full_row(row_index, XF_ROW_NOT_READY));

    EXPECT_EQ(SNMP_ERR_NOERROR,
              set_phase(integer4(accepted.column, row_index, value), RESERVE2));
    EXPECT_EQ(column.enters_reserve2 + column.applies, story());
    expect_row(changed(XF_ROW_NOT_READY));
}

TEST_P(ColumnSetTest, reserve2RefusesARowThatIsNotOpen) {
    for (const int32_t status : {-1, 0, 1, 2, 6, 7}) {
        store(full_row(row_index, status));
        p.forget();
        EXPECT_EQ(SNMP_ERR_INCONSISTENTVALUE, set_phase(accepted, RESERVE2))
            << status;
        EXPECT_EQ(column.enters_reserve2 + column.status_refused, story());
        expect_row(full_row(row_index, status));
        const Quiet quiet;
        struct xfCopyEntry row = make_row(row_index);
        deleteXfCopyEntry(&row);
    }
}

TEST_P(ColumnSetTest, statusRefusalLeavesFreeToWriteBackWhatWasSavedFirst) {
    store(full_row(row_index, XF_ROW_ACTIVE));
    {
        const Quiet quiet;
        EXPECT_EQ(SNMP_ERR_NOERROR, set_phase(accepted, RESERVE1));
        EXPECT_EQ(SNMP_ERR_INCONSISTENTVALUE, set_phase(accepted, RESERVE2));
    }

    EXPECT_EQ(SNMP_ERR_NOERROR, set_phase(accepted, FREE));
    EXPECT_EQ(column.saves_before_status ? column.enters_free : Story{},
              story());
    struct xfCopyEntry expected = full_row(row_index, XF_ROW_ACTIVE);
    if (column.saves_before_status)
        column.restore(&expected); /* nothing new, but for the address lost */
    expect_row(expected);
}

TEST_P(ColumnSetTest, reserve2WithoutTheRowIsNoSuchName) {
    EXPECT_EQ(SNMP_ERR_NOSUCHNAME, set_phase(accepted, RESERVE2));
    EXPECT_EQ(column.enters_reserve2 + column.row_is_missing, story());

    store(full_row(row_index + 1, XF_ROW_NOT_READY));
    p.forget();
    EXPECT_EQ(SNMP_ERR_NOSUCHNAME, set_phase(accepted, RESERVE2));
    EXPECT_EQ(column.enters_reserve2 + column.row_is_missing, story());
    EXPECT_EQ(std::vector<int32_t>{row_index + 1}, stored_indexes());
    p.forget();
    EXPECT_EQ(SNMP_ERR_NOERROR, set_phase(accepted, FREE));
    EXPECT_EQ(Story{}, story()) << "nothing was saved";
    EXPECT_EQ("", difference(full_row(row_index + 1, XF_ROW_NOT_READY),
                             *stored(row_index + 1)));
}

TEST_P(ColumnSetTest, reserve2WithAFailedWriteBackIsGenErr) {
    store(full_row(row_index, XF_ROW_NOT_READY));
    p.fail_ordset_find_at = 2; /* the first find is that of the copy */

    EXPECT_EQ(SNMP_ERR_GENERR, set_phase(accepted, RESERVE2));
    EXPECT_EQ(column.enters_reserve2 + column.applies, story());
    expect_row(full_row(row_index, XF_ROW_NOT_READY));
}

/* ---- ACTION, COMMIT, UNDO --------------------------------------------------
 */

TEST_P(ColumnSetTest, actionConfirmsThatTheRowIsThere) {
    store(full_row(row_index, XF_ROW_ACTIVE));

    EXPECT_EQ(SNMP_ERR_NOERROR, set_phase(accepted, ACTION));
    EXPECT_EQ(column.enters_action, story());
    expect_row(full_row(row_index, XF_ROW_ACTIVE));
}

TEST_P(ColumnSetTest, actionWithoutTheRowIsNoSuchName) {
    store(full_row(row_index + 1, XF_ROW_NOT_READY));

    EXPECT_EQ(SNMP_ERR_NOSUCHNAME, set_phase(accepted, ACTION));
    EXPECT_EQ(column.enters_action, story());
}

TEST_P(ColumnSetTest, commitUndoAndUnknownPhasesDoNothing) {
    store(full_row(row_index, XF_ROW_NOT_READY));
    reserve(accepted);
    for (const int phase : {COMMIT, UNDO, -1, 6, 7, 99}) {
        EXPECT_EQ(SNMP_ERR_NOERROR, set_phase(accepted, phase)) << phase;
        Binding odd = accepted;
        odd.type = ASN_NULL;
        odd.octets = std::string(200, 'x');
        EXPECT_EQ(SNMP_ERR_NOERROR, set_phase(odd, phase)) << phase;
    }
    EXPECT_EQ(Story{}, story());
    EXPECT_EQ(0u, p.count("ordset_find"));
    expect_row(changed(XF_ROW_NOT_READY));
}

/* ---- FREE ------------------------------------------------------------------
 */

TEST_P(ColumnSetTest, freePutsTheOldValueBack) {
    store(full_row(row_index, XF_ROW_NOT_READY));
    reserve(accepted);

    EXPECT_EQ(SNMP_ERR_NOERROR, set_phase(accepted, FREE));
    EXPECT_EQ(column.enters_free, story());
    expect_row(restored(XF_ROW_NOT_READY));
}

TEST_P(ColumnSetTest, freeDoesNothingWithoutASavedValue) {
    store(full_row(row_index, XF_ROW_NOT_READY));

    EXPECT_EQ(SNMP_ERR_NOERROR, set_phase(accepted, FREE));
    EXPECT_EQ(Story{}, story());
    EXPECT_EQ(0u, p.count("ordset_find"));
    expect_row(full_row(row_index, XF_ROW_NOT_READY));
}

TEST_P(ColumnSetTest, savedFlagStaysUntilTheNextReserve1) {
    store(full_row(row_index, XF_ROW_NOT_READY));
    reserve(accepted);

    EXPECT_EQ(SNMP_ERR_NOERROR, set_phase(accepted, FREE));
    EXPECT_EQ(SNMP_ERR_NOERROR, set_phase(accepted, FREE));
    EXPECT_EQ(column.enters_free + column.enters_free, story());
    EXPECT_EQ(SNMP_ERR_NOERROR, set_phase(accepted, RESERVE1));
    p.forget();
    EXPECT_EQ(SNMP_ERR_NOERROR, set_phase(accepted, FREE));
    EXPECT_EQ(Story{}, story());
}

TEST_P(ColumnSetTest, freeOfARowThatIsGoneIsNoError) {
    store(full_row(row_index, XF_ROW_NOT_READY));
    reserve(accepted);
    {
        const Quiet quiet;
        struct xfCopyEntry row = make_row(row_index);
        deleteXfCopyEntry(&row);
    }

    EXPECT_EQ(SNMP_ERR_NOERROR, set_phase(accepted, FREE));
    EXPECT_EQ(column.enters_free, story());
    EXPECT_EQ(std::vector<int32_t>{}, stored_indexes());
}

TEST_P(ColumnSetTest, freeWithAFailedWriteBackIsGenErr) {
    store(full_row(row_index, XF_ROW_NOT_READY));
    reserve(accepted);
    p.fail_ordset_find_at = 2;

    EXPECT_EQ(SNMP_ERR_GENERR, set_phase(accepted, FREE));
    EXPECT_EQ(column.enters_free, story());
    expect_row(changed(XF_ROW_NOT_READY));
}

TEST_P(ColumnSetTest, slotsBelongToTheirColumnAlone) {
    store(full_row(row_index, XF_ROW_NOT_READY));
    reserve(accepted);
    for (const Column &other : columns) {
        if (other.accepted.column == accepted.column)
            continue;
        EXPECT_EQ(SNMP_ERR_NOERROR, set_phase(other.accepted, FREE));
    }
    EXPECT_EQ(Story{}, story());
    expect_row(changed(XF_ROW_NOT_READY));
}

/* ---- Index and arguments ---------------------------------------------------
 */

TEST_P(ColumnSetTest, indexIsTheLastSubIdentifierWhateverStandsBefore) {
    store(full_row(row_index, XF_ROW_NOT_READY));
    oid name[] = {1, 2, static_cast<oid>(row_index)};
    std::string value = accepted.octets;
    WriteMethod *const write = write_method_of(accepted.column);

    for (const int phase : {RESERVE1, RESERVE2, ACTION})
        EXPECT_EQ(SNMP_ERR_NOERROR,
                  write(phase, reinterpret_cast<u_char *>(value.data()),
                        accepted.type, value.size(), nullptr, name, 3));
    expect_row(changed(XF_ROW_NOT_READY));
    EXPECT_EQ(SNMP_ERR_NOERROR,
              write(FREE, reinterpret_cast<u_char *>(value.data()),
                    accepted.type, value.size(), nullptr, name, 3));
    expect_row(restored(XF_ROW_NOT_READY));
}

TEST_P(ColumnSetTest, wholeRequestRunsThroughItsPhases) {
    store(full_row(row_index, XF_ROW_NOT_READY));

    EXPECT_EQ(SNMP_ERR_NOERROR, set_request({accepted}));
    EXPECT_EQ("0 1 2 3", phases_seen);
    EXPECT_EQ(column.enters_reserve1 + column.accepts + column.enters_reserve2 +
                  column.applies + column.enters_action,
              story());
    expect_row(changed(XF_ROW_NOT_READY));
}

TEST_P(ColumnSetTest, aColumnOfTwoRowsKeepsTheLaterOldValueOnly) {
    struct xfCopyEntry other = full_row(row_index + 1, XF_ROW_NOT_READY);
    other.xfCopyProtocol = 4;
    other.xfCopySourceFileType = 6;
    other.xfCopyDestFileType = 7;
    assign(other.xfCopyFileName, "another-file");
    assign(other.xfCopyUserName, "another-user");
    assign(other.xfCopyUserPassword, "another-password");
    other.xfCopyNotificationOnCompletion = 5;
    other.xfCopyServerAddressType = 1;
    assign(other.xfCopyServerAddressRev1, "198.51.100.1");
    assign(other.xfCopyVRFName, "another-vrf");
    store(full_row(row_index, XF_ROW_NOT_READY));
    store(other);
    Binding second = accepted;
    second.index++;
    {
        const Quiet quiet;
        set_phase(accepted, RESERVE1);
        set_phase(second, RESERVE1);
        set_phase(accepted, RESERVE2);
        set_phase(second, RESERVE2);
        set_phase(accepted, FREE);
        set_phase(second, FREE);
    }
    /* Both rows now hold the same in that column. */
    const struct xfCopyEntry first_row = *stored(row_index);
    const struct xfCopyEntry second_row = *stored(row_index + 1);
    switch (accepted.column) {
    case 2:
        EXPECT_EQ(4, first_row.xfCopyProtocol);
        EXPECT_EQ(4, second_row.xfCopyProtocol);
        break;
    case 3:
        EXPECT_EQ(6, first_row.xfCopySourceFileType);
        EXPECT_EQ(6, second_row.xfCopySourceFileType);
        break;
    case 4:
        EXPECT_EQ(7, first_row.xfCopyDestFileType);
        EXPECT_EQ(7, second_row.xfCopyDestFileType);
        break;
    case 5:
        EXPECT_STREQ("", first_row.xfCopyServerAddressRev1);
        EXPECT_STREQ("", second_row.xfCopyServerAddressRev1);
        break;
    case 6:
        EXPECT_STREQ("another-fi", first_row.xfCopyFileName);
        EXPECT_STREQ("another-fi", second_row.xfCopyFileName);
        break;
    case 7:
        EXPECT_STREQ("another-user", first_row.xfCopyUserName);
        EXPECT_STREQ("another-user", second_row.xfCopyUserName);
        break;
    case 8:
        EXPECT_STREQ("another-password", first_row.xfCopyUserPassword);
        EXPECT_STREQ("another-password", second_row.xfCopyUserPassword);
        break;
    case 9:
        EXPECT_EQ(5, first_row.xfCopyNotificationOnCompletion);
        EXPECT_EQ(5, second_row.xfCopyNotificationOnCompletion);
        break;
    case 15:
        EXPECT_EQ(1, first_row.xfCopyServerAddressType);
        EXPECT_EQ(1, second_row.xfCopyServerAddressType);
        break;
    case 16:
        EXPECT_STREQ("198.51.100.1", first_row.xfCopyServerAddressRev1);
        EXPECT_STREQ("198.51.100.1", second_row.xfCopyServerAddressRev1);
        break;
    case 17:
        EXPECT_STREQ("another-vrf", first_row.xfCopyVRFName);
        EXPECT_STREQ("another-vrf", second_row.xfCopyVRFName);
        break;
    default:
        ADD_FAILURE() << "a column without an expectation";
    }
}

/* ---- One column at a time --------------------------------------------------
 */

namespace {
class OneColumnTest : public ModuleTest {
  protected:
    /* Through RESERVE1 and RESERVE2; the later result. */
    int write(const Binding &binding) {
        const int error = set_phase(binding, RESERVE1);
        return error != SNMP_ERR_NOERROR ? error : set_phase(binding, RESERVE2);
    }
    int write_quietly(const Binding &binding) {
        const Quiet quiet;
        return write(binding);
    }
    int free_quietly(const Binding &binding) {
        const Quiet quiet;
        return set_phase(binding, FREE);
    }
    void store_row(void (*change)(struct xfCopyEntry *), int32_t index = 1) {
        struct xfCopyEntry row = make_row(index);
        change(&row);
        store(row);
    }
};
} // namespace

TEST_F(OneColumnTest, protocolPassesWithOneTwoFourAndFiveOnly) {
    for (const long value : {-1L, 0L, 1L, 2L, 3L, 4L, 5L, 6L, 0x7fffffffL}) {
        const bool passes =
            value == 1 || value == 2 || value == 4 || value == 5;
        const Story entry = {info(
            "set_xfCopyProtocol : Entering RESERVE1 of entry (index = 1) : The "
            "protocol being set = " +
            std::to_string(value) + "\n")};
        p.forget();
        EXPECT_EQ(passes ? SNMP_ERR_NOERROR : SNMP_ERR_WRONGVALUE,
                  set_phase(integer(2, 1, value), RESERVE1))
            << value;
        EXPECT_EQ(entry, story());
        p.forget();
        EXPECT_EQ(
            passes ? SNMP_ERR_NOERROR : SNMP_ERR_WRONGVALUE,
            set_phase(integer4(2, 1, static_cast<int32_t>(value)), RESERVE1))
            << value;
        EXPECT_EQ(entry, story());
    }
}

TEST_F(OneColumnTest, protocolOfThreeIsRefused) {
    EXPECT_EQ(SNMP_ERR_WRONGVALUE, set_phase(integer(2, 1, 3), RESERVE1));
}

TEST_F(OneColumnTest, integersAreNarrowedToThirtyTwoBits) {
    store(make_row(1));
    EXPECT_EQ(SNMP_ERR_NOERROR,
              write(integer(9, 1, static_cast<long>(0x100000005L))));
    EXPECT_EQ(5, stored(1)->xfCopyNotificationOnCompletion);
    EXPECT_EQ(SNMP_ERR_NOERROR, write(integer(3, 1, -2)));
    EXPECT_EQ(-2, stored(1)->xfCopySourceFileType);
    EXPECT_EQ(SNMP_ERR_NOERROR, write(integer4(4, 1, -3)));
    EXPECT_EQ(-3, stored(1)->xfCopyDestFileType);
}

TEST_F(OneColumnTest, integersWithoutOctetsAreZero) {
    store(make_row(1));
    Binding none = {9, 1, ASN_INTEGER, ""};
    EXPECT_EQ(SNMP_ERR_NOERROR, write(none));
    EXPECT_EQ(0, stored(1)->xfCopyNotificationOnCompletion);
    none.column = 2;
    EXPECT_EQ(SNMP_ERR_WRONGVALUE, set_phase(none, RESERVE1));
    none.column = 15;
    EXPECT_EQ(SNMP_ERR_WRONGVALUE, set_phase(none, RESERVE1));
}

TEST_F(OneColumnTest, integerOfFiveOctetsIsWrongLength) {
    for (const oid column : {2, 3, 4, 9, 15})
        EXPECT_EQ(
            SNMP_ERR_WRONGLENGTH,
            set_phase({column, 1, ASN_INTEGER, std::string(5, '\1')}, RESERVE1))
            << column;
}

TEST_F(OneColumnTest, fileTypesAndNotificationAreNotRangeTested) {
    for (const oid column : {3, 4, 9})
        for (const long value : {-5L, 0L, 8L, 1000000L})
            EXPECT_EQ(SNMP_ERR_NOERROR,
                      set_phase(integer(column, 1, value), RESERVE1));
}

TEST_F(OneColumnTest, addressTypeIsOneOrTwo) {
    for (const long value : {-1L, 0L, 1L, 2L, 3L, 16L}) {
        p.forget();
        const bool passes = value == 1 || value == 2;
        EXPECT_EQ(passes ? SNMP_ERR_NOERROR : SNMP_ERR_WRONGVALUE,
                  set_phase(integer(15, 1, value), RESERVE1));
        Story expected = {
            info("set_xfCopyServerAddressType : Entering RESERVE1 of entry "
                 "(index = 1) : The server address type being set = " +
                 std::to_string(value) + "\n")};
        if (!passes)
            expected.push_back(
                error("set_xfCopyServerAddressType: var_val is not "
                      "INET_ADDRESS_IPV4 or INET_ADDRESS_IPV6- returning "
                      "SNMP_ERR_WRONGVALUE"));
        EXPECT_EQ(expected, story());
    }
}

TEST_F(OneColumnTest, indexesAreThirtyTwoBitNumbersInTheTraces) {
    oid name[] = {1, 2, 0xFFFFFFFFu};
    long value = 1;
    EXPECT_EQ(SNMP_ERR_NOERROR,
              set_xfCopyProtocol(RESERVE1, reinterpret_cast<u_char *>(&value),
                                 ASN_INTEGER, sizeof(value), nullptr, name, 3));
    EXPECT_EQ(Story{info("set_xfCopyProtocol : Entering RESERVE1 of entry "
                         "(index = -1) : The protocol being set = 1\n")},
              story());
}

TEST_F(OneColumnTest, activeRowRefusesEveryColumn) {
    for (const Column &column : columns) {
        store(make_row(row_index, XF_ROW_ACTIVE));
        EXPECT_EQ(SNMP_ERR_INCONSISTENTVALUE, set_request({column.accepted}))
            << column.object;
        const Quiet quiet;
        struct xfCopyEntry row = make_row(row_index);
        deleteXfCopyEntry(&row);
    }
}

TEST_F(OneColumnTest, longestValuesAreAcceptedAndOneMoreOctetIsNot) {
    const struct {
        oid column;
        size_t longest;
    } bounds[] = {{6, 128}, {7, 41}, {8, 41}, {16, 64}, {17, 32}};

    for (const auto &bound : bounds) {
        EXPECT_EQ(
            SNMP_ERR_NOERROR,
            set_phase(octets(bound.column, 1, std::string(bound.longest, 'x')),
                      RESERVE1))
            << bound.column;
        EXPECT_EQ(SNMP_ERR_WRONGLENGTH,
                  set_phase(octets(bound.column, 1,
                                   std::string(bound.longest + 1, 'x')),
                            RESERVE1))
            << bound.column;
    }
}

/* Writing the longest value keeps all of it, ends it, and touches no other. */
TEST_F(OneColumnTest, longestTextsLeaveTheirNeighboursAlone) {
    const struct {
        oid column;
        size_t longest;
        char *(*field)(struct xfCopyEntry *);
    } texts_of_rows[] = {
        {6, 128, [](struct xfCopyEntry *row) { return row->xfCopyFileName; }},
        {7, 41, [](struct xfCopyEntry *row) { return row->xfCopyUserName; }},
        {8, 41,
         [](struct xfCopyEntry *row) { return row->xfCopyUserPassword; }},
        {17, 32, [](struct xfCopyEntry *row) { return row->xfCopyVRFName; }},
    };
    int32_t index = 0;

    for (const auto &text : texts_of_rows) {
        const std::string longest(text.longest, 'L');
        struct xfCopyEntry expected = full_row(++index, XF_ROW_NOT_READY);
        store(expected);
        EXPECT_EQ(SNMP_ERR_NOERROR,
                  write_quietly(octets(text.column, index, longest)));
        struct xfCopyEntry row = *stored(index);
        EXPECT_STREQ(longest.c_str(), text.field(&row));
        strcpy(text.field(&expected), longest.c_str());
        EXPECT_EQ("", difference(expected, row));
    }
}

TEST_F(OneColumnTest, shorterTextReplacesALongerOne) {
    store_row([](xfCopyEntry *row) { assign(row->xfCopyUserName, "abcdef"); });
    EXPECT_EQ(SNMP_ERR_NOERROR, write_quietly(octets(7, 1, "xy")));
    EXPECT_STREQ("xy", stored(1)->xfCopyUserName);
    EXPECT_EQ(SNMP_ERR_NOERROR, write_quietly(octets(7, 1, "")));
    EXPECT_STREQ("", stored(1)->xfCopyUserName);
}

/* Values are octets: one that holds a NUL is stored whole. */
TEST_F(OneColumnTest, octetsBehindANulAreStoredToo) {
    const char value[] = {'a', '\0', 'b'};
    store(make_row(1));
    EXPECT_EQ(SNMP_ERR_NOERROR, write_quietly(octets(6, 1, {value, 3})));
    EXPECT_EQ(0, memcmp(stored(1)->xfCopyFileName, "a\0b\0", 4));
}

/* -- File name -- */

TEST_F(OneColumnTest, fileNameAbcIsAnAAfterFree) {
    store_row([](xfCopyEntry *row) { assign(row->xfCopyFileName, "abc"); });
    EXPECT_EQ(SNMP_ERR_NOERROR, write_quietly(octets(6, 1, "new-name")));
    EXPECT_STREQ("new-name", stored(1)->xfCopyFileName);
    EXPECT_EQ(SNMP_ERR_NOERROR, free_quietly(octets(6, 1, "new-name")));
    EXPECT_STREQ("a", stored(1)->xfCopyFileName);
}

TEST_F(OneColumnTest, fileNameOfTwoCharactersIsEmptyAfterFree) {
    store_row([](xfCopyEntry *row) { assign(row->xfCopyFileName, "ab"); });
    EXPECT_EQ(SNMP_ERR_NOERROR, write_quietly(octets(6, 1, "new")));
    EXPECT_EQ(SNMP_ERR_NOERROR, free_quietly(octets(6, 1, "new")));
    EXPECT_STREQ("", stored(1)->xfCopyFileName);
}

/* A bound of 0 writes nothing at all: the new name stays. */
TEST_F(OneColumnTest, fileNameOfOneCharacterIsNotRestored) {
    store_row([](xfCopyEntry *row) { assign(row->xfCopyFileName, "a"); });
    EXPECT_EQ(SNMP_ERR_NOERROR, write_quietly(octets(6, 1, "new")));
    EXPECT_EQ(SNMP_ERR_NOERROR, free_quietly(octets(6, 1, "new")));
    EXPECT_STREQ("new", stored(1)->xfCopyFileName);
}

TEST_F(OneColumnTest, emptyFileNameLeavesWhatTheSlotHeld) {
    store_row([](xfCopyEntry *row) { assign(row->xfCopyFileName, "abcdef"); });
    store_row([](xfCopyEntry *) {}, 2);
    EXPECT_EQ(SNMP_ERR_NOERROR, write_quietly(octets(6, 1, "one")));
    EXPECT_EQ(SNMP_ERR_NOERROR, write_quietly(octets(6, 2, "two")));
    EXPECT_EQ(SNMP_ERR_NOERROR, free_quietly(octets(6, 2, "two")));
    EXPECT_STREQ("abcd", stored(2)->xfCopyFileName);
}

TEST_F(OneColumnTest, emptyFileNameWithAFreshSlotStaysAsWritten) {
    store(make_row(1));
    EXPECT_EQ(SNMP_ERR_NOERROR, write_quietly(octets(6, 1, "new")));
    EXPECT_EQ(SNMP_ERR_NOERROR, free_quietly(octets(6, 1, "new")));
    EXPECT_STREQ("new", stored(1)->xfCopyFileName);
}

TEST_F(OneColumnTest, longestFileNameLosesTwoCharactersOnFree) {
    store_row([](xfCopyEntry *row) { memset(row->xfCopyFileName, 'f', 128); });
    EXPECT_EQ(SNMP_ERR_NOERROR, write_quietly(octets(6, 1, "n")));
    EXPECT_EQ(SNMP_ERR_NOERROR, free_quietly(octets(6, 1, "n")));
    EXPECT_EQ(std::string(126, 'f'), stored(1)->xfCopyFileName);
}

/* -- The other slots -- */

TEST_F(OneColumnTest, credentialSlotsKeepFortyCharacters) {
    const std::string longest(41, 'u');
    struct xfCopyEntry row = make_row(1);
    strcpy(row.xfCopyUserName, longest.c_str());
    strcpy(row.xfCopyUserPassword, longest.c_str());
    store(row);

    for (const oid column : {7, 8}) {
        EXPECT_EQ(SNMP_ERR_NOERROR, write_quietly(octets(column, 1, "n")));
        EXPECT_EQ(SNMP_ERR_NOERROR, free_quietly(octets(column, 1, "n")));
    }
    EXPECT_EQ(std::string(40, 'u'), stored(1)->xfCopyUserName);
    EXPECT_EQ(std::string(40, 'u'), stored(1)->xfCopyUserPassword);
}

TEST_F(OneColumnTest, vrfNameSlotKeepsThirtyOneCharacters) {
    struct xfCopyEntry row = make_row(1);
    strcpy(row.xfCopyVRFName, std::string(32, 'v').c_str());
    store(row);

    EXPECT_EQ(SNMP_ERR_NOERROR, write_quietly(octets(17, 1, "n")));
    EXPECT_EQ(SNMP_ERR_NOERROR, free_quietly(octets(17, 1, "n")));
    EXPECT_EQ(std::string(31, 'v'), stored(1)->xfCopyVRFName);
}

TEST_F(OneColumnTest, addressSlotKeepsSixtyThreeCharacters) {
    struct xfCopyEntry row = make_row(1);
    row.xfCopyServerAddressType = 1;
    memset(row.xfCopyServerAddressRev1, 'a', 63);
    store(row);

    EXPECT_EQ(SNMP_ERR_NOERROR, write_quietly(octets(16, 1, "ABCD")));
    EXPECT_EQ(SNMP_ERR_NOERROR, free_quietly(octets(16, 1, "ABCD")));
    EXPECT_EQ(std::string(63, 'a'), stored(1)->xfCopyServerAddressRev1);
}

/* -- Server address, IpAddress -- */

TEST_F(OneColumnTest, serverAddressIsPrintedAsTheNumberOfItsOctets) {
    EXPECT_EQ(SNMP_ERR_NOERROR,
              set_phase(ip_address(5, 1, "\xC0\xA8\x01\x01"), RESERVE1));
    EXPECT_EQ(Story{out("DEBUG : set_xfCopyServerAddress : Server Address : "
                        "3232235777 Length 4\n")},
              story());
}

TEST_F(OneColumnTest, missingAddressOctetsCountAsZero) {
    store(make_row(1));
    for (size_t length = 0; length <= 4; length++) {
        const char *const number[] = {"0", "167772160", "184352768",
                                      "184355840", "184355853"};
        const char *const text[] = {"0.0.0.0", "10.0.0.0", "10.253.0.0",
                                    "10.253.12.0", "10.253.12.13"};
        const Binding binding =
            ip_address(5, 1, std::string("\x0a\xfd\x0c\x0d").substr(0, length));
        p.forget();
        EXPECT_EQ(SNMP_ERR_NOERROR, write(binding));
        EXPECT_EQ(out(std::string("DEBUG : set_xfCopyServerAddress : Server "
                                  "Address : ") +
                      number[length] + " Length " + std::to_string(length) +
                      "\n"),
                  story()[0]);
        EXPECT_STREQ(text[length], stored(1)->xfCopyServerAddressRev1);
    }
}

TEST_F(OneColumnTest, serverAddressChangesTheTextAndForcesTheType) {
    struct xfCopyEntry row = make_row(1);
    row.xfCopyServerAddressType = 2;
    assign(row.xfCopyServerAddressRev1, "2001:db8::1");
    store(row);

    EXPECT_EQ(SNMP_ERR_NOERROR,
              write(ip_address(5, 1, {"\xC0\x00\x02\x05", 4})));
    EXPECT_EQ(1, stored(1)->xfCopyServerAddressType);
    EXPECT_STREQ("192.0.2.5", stored(1)->xfCopyServerAddressRev1);
    EXPECT_EQ(0,
              memcmp(&stored(1)->xfCopyServerAddress, "\xC0\x00\x02\x05", 4));
}

TEST_F(OneColumnTest, serverAddressIsLostOnFreeAndItsTypeStays) {
    struct xfCopyEntry row = make_row(1);
    row.xfCopyServerAddressType = 2;
    assign(row.xfCopyServerAddressRev1, "2001:db8::1");
    store(row);
    const Binding binding = ip_address(5, 1, {"\xC0\x00\x02\x05", 4});

    EXPECT_EQ(SNMP_ERR_NOERROR, write_quietly(binding));
    EXPECT_EQ(SNMP_ERR_NOERROR, free_quietly(binding));
    EXPECT_STREQ("", stored(1)->xfCopyServerAddressRev1);
    EXPECT_EQ(1, stored(1)->xfCopyServerAddressType);
}

TEST_F(OneColumnTest, serverAddressThatIsNoTextIsWrongValue) {
    store(full_row(1, XF_ROW_NOT_READY));
    p.addr_to_str_results.then(22);

    EXPECT_EQ(SNMP_ERR_WRONGVALUE,
              set_phase(ip_address(5, 1, "ABCD"), RESERVE2));
    EXPECT_EQ((Story{info("set_xfCopyServerAddress: calling ip_addr_to_str() "
                          "with addr type: 1, ip address: ABCD\n"),
                     error("set_xfCopyServerAddress: ip_addr_to_str() failed- "
                           "returning SNMP_ERR_WRONGVALUE")}),
              story());
    EXPECT_EQ("", difference(full_row(1, XF_ROW_NOT_READY), *stored(1)));
}

TEST_F(OneColumnTest, addressesAreConvertedIntoSixtyFourOctets) {
    struct xfCopyEntry row = make_row(1);
    row.xfCopyServerAddressType = 1;
    store(row);
    EXPECT_EQ(SNMP_ERR_NOERROR, write(ip_address(5, 1, "ABCD")));
    EXPECT_EQ(SNMP_ERR_NOERROR, write(octets(16, 1, "EFGH")));
    std::vector<std::string> conversions;
    for (const Event &event : p.calls_of("ip_addr_to_str"))
        conversions.push_back(event.text.substr(event.text.size() - 4));
    EXPECT_EQ((std::vector<std::string>{" 64)", " 64)"}), conversions);
}

/* -- Server address, typed -- */

TEST_F(OneColumnTest, typedAddressWithoutATypeIsWrongValue) {
    for (const int32_t type : {0, 3, -1}) {
        struct xfCopyEntry row = full_row(1, XF_ROW_NOT_READY);
        row.xfCopyServerAddressType = type;
        store(row);
        p.forget();
        EXPECT_EQ(SNMP_ERR_WRONGVALUE,
                  set_phase(octets(16, 1, "ABCD"), RESERVE2));
        EXPECT_EQ((Story{info("set_xfCopyServerAddressRev1 : Entering RESERVE2 "
                              "of entry (index = 1) \n"),
                         error("set_xfCopyServerAddressRev1: error: server "
                               "address type is: " +
                               std::to_string(type) +
                               ", returning SNMP_ERR_WRONGVALUE\n")}),
                  story());
        EXPECT_EQ("", difference(row, *stored(1)));
        const Quiet quiet;
        deleteXfCopyEntry(&row);
    }
}

TEST_F(OneColumnTest, typedAddressOfTypeOneUsesFourOctetsOfSixteen) {
    struct xfCopyEntry row = make_row(1);
    row.xfCopyServerAddressType = 1;
    store(row);
    EXPECT_EQ(SNMP_ERR_NOERROR,
              write(octets(16, 1, "\xC6\x33\x64\x07zzzzzzzzzzzz")));
    EXPECT_STREQ("198.51.100.7", stored(1)->xfCopyServerAddressRev1);
    EXPECT_EQ(1, stored(1)->xfCopyServerAddressType);
}

TEST_F(OneColumnTest, typedAddressOfTypeTwoUsesSixteenOctets) {
    struct xfCopyEntry row = make_row(1);
    row.xfCopyServerAddressType = 2;
    store(row);
    p.forget();
    EXPECT_EQ(SNMP_ERR_NOERROR,
              set_phase(octets(16, 1, "abcdefghijklmnopqrst"), RESERVE2));
    EXPECT_EQ(
        (Story{info("set_xfCopyServerAddressRev1 : Entering RESERVE2 of entry "
                    "(index = 1) \n"),
               info("set_xfCopyServerAddressRev1: calling ip_addr_to_str() "
                    "with addr type: 2, ip address: abcdefghijklmnop, var_val: "
                    "abcdefghijklmnopqrst\n"),
               info("set_xfCopyServerAddressRev1 : Server Address: "
                    "6162:6364:6566:6768:696a:6b6c:6d6e:6f70\n")}),
        story());
}

TEST_F(OneColumnTest, typedAddressOctetsThatAreMissingCountAsZero) {
    struct xfCopyEntry row = make_row(1);
    row.xfCopyServerAddressType = 1;
    store(row);
    row.xfCopyIndex = 2;
    row.xfCopyServerAddressType = 2;
    store(row);
    const char *const ipv4[] = {"0.0.0.0", "97.0.0.0", "97.98.0.0",
                                "97.98.99.0", "97.98.99.100"};

    for (size_t length = 0; length <= 4; length++) {
        EXPECT_EQ(SNMP_ERR_NOERROR,
                  write(octets(16, 1, std::string("abcd").substr(0, length))));
        EXPECT_STREQ(ipv4[length], stored(1)->xfCopyServerAddressRev1);
    }
    for (size_t length = 0; length <= 16; length++)
        EXPECT_EQ(SNMP_ERR_NOERROR,
                  write(octets(16, 2, std::string(length, '\x20'))));
    EXPECT_EQ(SNMP_ERR_NOERROR, write(octets(16, 2, "\x20\x01\x0d\xb8")));
    EXPECT_STREQ("2001:db8::", stored(2)->xfCopyServerAddressRev1);
}

TEST_F(OneColumnTest, typedAddressTracesItsWordFromTheOctets) {
    struct xfCopyEntry row = make_row(1);
    row.xfCopyServerAddressType = 1;
    store(row);
    EXPECT_EQ(
        SNMP_ERR_NOERROR,
        set_phase(octets(16, 1, std::string("\x0a\x00\x00\xfe", 4)), RESERVE2));
    EXPECT_EQ(info("set_xfCopyServerAddressRev1: value copied into addr: "
                   "0x0A0000FE\n"),
              story()[1]);
    EXPECT_STREQ("10.0.0.254", stored(1)->xfCopyServerAddressRev1);
}

TEST_F(OneColumnTest, typedAddressThatIsNoTextIsWrongValue) {
    store(full_row(1, XF_ROW_NOT_READY));
    p.addr_to_str_results.then(22);

    EXPECT_EQ(SNMP_ERR_WRONGVALUE, set_phase(octets(16, 1, "ABCD"), RESERVE2));
    EXPECT_EQ(error("set_xfCopyServerAddressRev1: ip_addr_to_str() failed- "
                    "returning SNMP_ERR_WRONGVALUE"),
              story().back());
    EXPECT_EQ(4u, story().size());
    EXPECT_EQ("", difference(full_row(1, XF_ROW_NOT_READY), *stored(1)));
    EXPECT_EQ(SNMP_ERR_NOERROR, free_quietly(octets(16, 1, "ABCD")));
    EXPECT_EQ("", difference(full_row(1, XF_ROW_NOT_READY), *stored(1)));
}

TEST_F(OneColumnTest, typedAddressLengthIsTracedBeforeItIsTested) {
    EXPECT_EQ(SNMP_ERR_WRONGLENGTH,
              set_phase(octets(16, 1, std::string(100, 'x')), RESERVE1));
    EXPECT_EQ((Story{info("set_xfCopyServerAddressRev1 : Entering RESERVE1 of "
                          "entry (index = 1)\n"),
                     info("set_xfCopyServerAddressRev1 : length of value: "
                          "100\n"),
                     err("write to xfCopyServerAddressRev1: bad length\n")}),
              story());
}

/* Whichever value a handler is given, no octet behind it is read: the driver
 * allocates each value to its size, and a sanitizer sees the first stray one.
 */
TEST_F(OneColumnTest, noLengthMakesAHandlerReadPastTheValue) {
    for (const Column &column : columns) {
        struct xfCopyEntry row = full_row(row_index, XF_ROW_NOT_READY);
        for (const int32_t type : {0, 1, 2}) {
            row.xfCopyServerAddressType = type;
            store(row);
            for (size_t length = 0; length <= 130; length++) {
                Binding binding = column.accepted;
                binding.octets = std::string(length, '\x41');
                const int error = set_phase(binding, RESERVE1);
                if (error == SNMP_ERR_NOERROR)
                    set_phase(binding, RESERVE2);
                else
                    EXPECT_TRUE(error == SNMP_ERR_WRONGLENGTH ||
                                error == SNMP_ERR_WRONGVALUE);
                set_phase(binding, ACTION);
                set_phase(binding, FREE);
            }
            const Quiet quiet;
            deleteXfCopyEntry(&row);
        }
    }
}

/* RESERVE1 lets none through: this is for memory's sake. */
TEST_F(OneColumnTest, typedAddressThatIsTooLongIsCutInItsTrace) {
    struct xfCopyEntry row = full_row(1, XF_ROW_NOT_READY);
    row.xfCopyServerAddressType = INET_ADDRESS_IPV4;
    store(row);
    p.forget();
    EXPECT_EQ(SNMP_ERR_NOERROR,
              set_phase(octets(16, 1, std::string(70, 'x')), RESERVE2));
    const Story whole = story();
    EXPECT_EQ(1, std::count(whole.begin(), whole.end(),
                            info("set_xfCopyServerAddressRev1: calling "
                                 "ip_addr_to_str() with addr type: 1, ip "
                                 "address: xxxx, var_val: " +
                                 std::string(64, 'x') + "\n")));
}
