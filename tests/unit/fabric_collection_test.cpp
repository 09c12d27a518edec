/* How the results of a failed fabric-wide save become error rows. */
#include "scripted_platform.h"

#include <algorithm>
#include <cstring>

using namespace scripted;
using namespace std::string_literals;

namespace {

const std::string local_wwn = "\x20\x21\x22\x23\x24\x25\x26\x27";

struct ip_addr ipv4(uint8_t a, uint8_t b, uint8_t c, uint8_t d) {
    return {INET_ADDRESS_IPV4, {a, b, c, d}};
}

constexpr struct ip_addr management_ipv6 = {
    INET_ADDRESS_IPV6,
    {0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 9}};

/* The collection's texts carry its name. */
std::string named(std::string_view text) {
    return "collect_fabric_error_rows" + std::string(text);
}

std::string logged(std::string_view text) {
    return "snmp_log(LOG_ERR, " + quote(named(text)) + ")";
}

class FabricCollection : public ModuleTest {
  protected:
    struct xfCopyEntry row = make_row(5, XF_ROW_ACTIVE);

    FabricCollection() {
        row.xfCopySourceFileType = XF_FILE_RUNNING;
        row.xfCopyDestFileType = XF_FILE_FABRIC_STARTUP;
        store(row);
    }
    Story collect() {
        p.forget();
        EXPECT_EQ(0, setXfCopyEntry(&row, 1)) << "whatever came of it";
        return story();
    }
    /* The last error row has no address, and this for its type. */
    static void expect_no_address(int32_t type) {
        ASSERT_FALSE(stored_error_rows().empty());
        const struct xfCopyErrorEntry error_row = stored_error_rows().back();
        EXPECT_STREQ("", error_row.deviceAddressText);
        EXPECT_EQ(type, error_row.xfCopyErrorDeviceAddressType);
    }
    static GroveRecord remote(const std::string &wwn, const std::string &text) {
        return {wwn, 0, ipv4(192, 0, 2, 7), text};
    }
    static GroveRecord local(const std::string &wwn, const std::string &text,
                             int32_t address_type = INET_ADDRESS_IPV4) {
        return {wwn, 1, {address_type, {}}, text};
    }
    /* Before the first record, and the call that gets it. */
    static Story begun() {
        return {
            info(named(": filling up xfCopyErrorTable\n")),
            info(named(": get switch wwn\n")),
            "rpcq_req_resp(1282, 1, 0, NULL, 0, 46, response_q, 5)",
            info(named(": calling grove_status_next_get(..)\n")),
            next(std::string(8, '\0')),
        };
    }
    /* A walk call with the record of the last one. */
    static std::string next(const std::string &wwn) {
        return "grove_status_next_get(" + quote(wwn) + ", 256, " +
               quote(local_wwn) + ")";
    }
    static Story join(std::initializer_list<Story> parts) {
        Story whole;
        for (const Story &part : parts)
            whole.insert(whole.end(), part.begin(), part.end());
        return whole;
    }
};

const std::string wwn_a = "\x01\x02\x0a\x0b\xc0\xd0\xe0\xff";
const Story traced_a = {
    info("collect_fabric_error_rows: curr_entry contents: "
         "01:02:0a:0b:c0:d0:e0:ff : no space\n"),
    info("collect_fabric_error_rows:adding errorentry to errortable index "
         "object 1:2:10:11:192:208:224:2 : no space\n"),
};
const std::string cleaned = "grove_status_clean(9)";

} // namespace

TEST_F(FabricCollection, remoteSwitchBecomesARow) {
    p.grove_records = {remote(wwn_a, "no space")};
    EXPECT_EQ(join({begun(),
                    {info(named(": device ip addr: 192.0.2.7, device ip addr "
                                "type: 1\n"))},
                    traced_a,
                    {next(wwn_a), cleaned}}),
              collect());

    ASSERT_EQ(1u, stored_error_rows().size());
    const struct xfCopyErrorEntry error_row = stored_error_rows()[0];
    EXPECT_EQ(5, error_row.xfCopyIndex);
    EXPECT_EQ(1, error_row.xfCopyErrorDeviceIndex);
    EXPECT_EQ(1, error_row.xfCopyErrorDeviceAddressType);
    EXPECT_STREQ("192.0.2.7", error_row.deviceAddressText);
    EXPECT_EQ(0, memcmp(wwn_a.data(), error_row.xfCopyErrorDeviceWwn, 8));
    EXPECT_STREQ("no space", error_row.xfCopyErrorDescription);
}

TEST_F(FabricCollection, rowIsZeroBehindWhatIsFilledIn) {
    p.grove_records = {remote(wwn_a, std::string(256, 'x')),
                       remote("87654321", "y")};
    collect();
    struct xfCopyErrorEntry expected = {};
    expected.xfCopyIndex = 5;
    expected.xfCopyErrorDeviceIndex = 2;
    expected.xfCopyErrorDeviceAddressType = 1;
    assign(expected.deviceAddressText, "192.0.2.7");
    memcpy(expected.xfCopyErrorDeviceWwn, "87654321", 8);
    assign(expected.xfCopyErrorDescription, "y");
    ASSERT_EQ(2u, stored_error_rows().size());
    EXPECT_EQ(0, memcmp(&expected, &stored_error_rows()[1], sizeof(expected)));
}

TEST_F(FabricCollection, walkThatYieldsNoRecordAddsNoRowButIsCleaned) {
    EXPECT_EQ(join({begun(), {cleaned}}), collect());
    EXPECT_EQ(0u, stored_error_rows().size());
}

TEST_F(FabricCollection, finalResultGoesToTheCleaning) {
    for (const int end : {1, -1, 0x40490001}) {
        p.grove_end = end;
        EXPECT_EQ("grove_status_clean(" + std::to_string(end) + ")",
                  collect().back());
        EXPECT_EQ(1u, p.count("grove_status_clean"));
    }
}

TEST_F(FabricCollection, threeRecordsYieldRows1And2And3OfTheSameCopy) {
    p.grove_records = {remote("AAAAAAAA", "one"), remote("BBBBBBBB", "two"),
                       remote("CCCCCCCC", "three")};
    collect();
    const std::vector<struct xfCopyErrorEntry> rows = stored_error_rows();
    ASSERT_EQ(3u, rows.size());
    const char *const texts[] = {"one", "two", "three"};
    for (size_t i = 0; i < 3; i++) {
        EXPECT_EQ(5, rows[i].xfCopyIndex);
        EXPECT_EQ(static_cast<int32_t>(i) + 1, rows[i].xfCopyErrorDeviceIndex);
        EXPECT_STREQ(texts[i], rows[i].xfCopyErrorDescription);
    }
    EXPECT_EQ(1u, p.count("rpcq_req_resp"));
    EXPECT_EQ(1u, p.count("grove_status_clean"));
}

TEST_F(FabricCollection, recordStartsAsZeroesAndGoesBackAsItWas) {
    p.grove_records = {remote(wwn_a, "one"), local("BBBBBBBB", "two")};
    collect();
    const std::vector<Event> walk = p.calls_of("grove_status_next_get");
    ASSERT_EQ(3u, walk.size());
    EXPECT_EQ(std::string(sizeof(struct grove_status), '\0'), walk[0].octets);
    EXPECT_EQ(std::string(256, '\0'), walk[0].strings.at(0)) << "the text";
    struct grove_status record = {};
    memcpy(&record, walk[1].octets.data(), sizeof(record));
    EXPECT_EQ(0, memcmp(wwn_a.data(), record.wwn, 8));
    memcpy(&record, walk[2].octets.data(), sizeof(record));
    EXPECT_EQ(0, memcmp("BBBBBBBB", record.wwn, 8));
    EXPECT_EQ(1, record.is_local);
}

TEST_F(FabricCollection, collectionIsOfTheRowAsItWasWritten) {
    row.xfCopyState = XF_STATE_FAILED;
    p.hooks["grove_status_next_get"] = [] {
        EXPECT_EQ(XF_STATE_FAILED, stored(5)->xfCopyState);
    };
    collect();
    EXPECT_EQ(1u, p.count("grove_status_next_get"));
}

TEST_F(FabricCollection, withoutTheFlagNothingIsCollected) {
    p.grove_records = {remote(wwn_a, "one")};
    p.forget();
    EXPECT_EQ(0, setXfCopyEntry(&row, 0));
    EXPECT_EQ(Story{}, story());
    EXPECT_EQ(nullptr, module_state.error_table);
}

/* ---- Container -------------------------------------------------------------
 */

TEST_F(FabricCollection, containerIsCreatedOnceItIsNeeded) {
    p.grove_records = {remote("AAAAAAAA", "one")};
    collect();
    ASSERT_EQ(1u, p.count("ordset_create"));
    EXPECT_EQ("ordset_create(1, 1, xfCopyErrorEntry_comp_func, 1)",
              p.calls_of("ordset_create").at(0).text);
}

TEST_F(FabricCollection, containerWithoutRowsIsCreatedAgain) {
    collect();
    EXPECT_EQ(1u, p.count("ordset_create"));
    collect();
    EXPECT_EQ(1u, p.count("ordset_create"));
}

TEST_F(FabricCollection, rowsAlreadyThereAreKeptAndJoined) {
    p.grove_records = {remote("AAAAAAAA", "one")};
    collect();
    row.xfCopyIndex = 9;
    store(row);
    p.grove_records = {remote("BBBBBBBB", "two")};
    collect();
    EXPECT_EQ(0u, p.count("ordset_create"));
    ASSERT_EQ(2u, stored_error_rows().size());
    EXPECT_STREQ("one", stored_error_rows()[0].xfCopyErrorDescription);
    EXPECT_STREQ("two", stored_error_rows()[1].xfCopyErrorDescription);
    EXPECT_EQ(9, stored_error_rows()[1].xfCopyIndex);
    EXPECT_EQ(1, stored_error_rows()[1].xfCopyErrorDeviceIndex);
}

TEST_F(FabricCollection, containerThatCannotBeCreated) {
    for (const int result : {0, 1, 3, -1}) {
        p.fail_ordset_create_at = 1;
        p.ordset_create_failure = result;
        p.grove_records = {remote("AAAAAAAA", "one")};
        EXPECT_EQ(
            (Story{
                info(named(": filling up xfCopyErrorTable\n")),
                error(named(": failed to createxfCopyErrorTable indx obj\n")),
                logged(": failed to create xfCopyErrorTable indx obj\n"),
            }),
            collect());
        EXPECT_EQ(0u, stored_error_rows().size());
    }
}

/* ---- The switch's own name -------------------------------------------------
 */

TEST_F(FabricCollection, requestForTheLocalWwn) {
    collect();
    ASSERT_TRUE(p.last_rpc.has_value());
    EXPECT_EQ(0x502u, p.last_rpc->code);
    EXPECT_EQ(1u, p.last_rpc->arg1);
    EXPECT_EQ(0u, p.last_rpc->arg2);
    EXPECT_EQ(nullptr, p.last_rpc->request);
    EXPECT_EQ(0u, p.last_rpc->request_length);
    EXPECT_EQ(46u, p.last_rpc->service);
    EXPECT_EQ(ipcbus_response_q, p.last_rpc->queue);
    EXPECT_EQ(5u, p.last_rpc->limit);
    EXPECT_EQ(1u, p.count("free")) << "the response";
}

TEST_F(FabricCollection, first8OctetsOfTheResponseAreTheLocalWwn) {
    p.rpcq_response = "\xf0\xf1\xf2\xf3\xf4\xf5\xf6\xf7 and more";
    p.grove_records = {remote("AAAAAAAA", "one"), remote("BBBBBBBB", "two")};
    collect();
    const std::vector<Event> walk = p.calls_of("grove_status_next_get");
    ASSERT_EQ(3u, walk.size());
    for (const Event &call : walk)
        EXPECT_TRUE(call.text.ends_with(
            ", 256, " + quote("\xf0\xf1\xf2\xf3\xf4\xf5\xf6\xf7") + ")"))
            << call.text;
}

namespace {

Story no_wwn() {
    return {
        info(named(": filling up xfCopyErrorTable\n")),
        info(named(": get switch wwn\n")),
        "rpcq_req_resp(1282, 1, 0, NULL, 0, 46, response_q, 5)",
        error(named(": unable to get local switch wwn\n")),
        logged(": unable to get local switch wwn\n"),
    };
}

} // namespace

TEST_F(FabricCollection, whenTheSystemManagerDoesNotAnswerNoRowIsAdded) {
    p.grove_records = {remote("AAAAAAAA", "one")};
    collect();
    row.xfCopyIndex = 9;
    store(row);
    p.grove_records = {remote("BBBBBBBB", "two")};

    /* The call fails: without and with a response, which is freed. */
    for (const int result : {1, -1}) {
        p.rpcq_response.reset();
        p.rpcq_results.then(result);
        EXPECT_EQ(no_wwn(), collect());
        EXPECT_EQ(0u, p.count("free"));
        p.rpcq_response = local_wwn;
        p.rpcq_results.then(result);
        EXPECT_EQ(no_wwn(), collect());
        EXPECT_EQ(1u, p.count("free"));
    }
    /* It succeeds without one. */
    p.rpcq_response.reset();
    EXPECT_EQ(no_wwn(), collect());

    ASSERT_EQ(1u, stored_error_rows().size()) << "the table is as it was";
    EXPECT_STREQ("one", stored_error_rows()[0].xfCopyErrorDescription);
}

/* ---- Texts -----------------------------------------------------------------
 */

TEST_F(FabricCollection, statusTextOfMoreThan256CharactersIsCut) {
    for (const size_t length : {255u, 256u, 257u, 300u}) {
        row.xfCopyIndex++;
        store(row);
        p.grove_records = {remote("AAAAAAAA", std::string(length, 't'))};
        collect();
        const std::string text(std::min<size_t>(length, 256), 't');
        EXPECT_EQ(text, stored_error_rows().back().xfCopyErrorDescription);
        const Story whole = story();
        EXPECT_EQ(1, std::count(whole.begin(), whole.end(),
                                info(named(": curr_entry contents: "
                                           "41:41:41:41:41:41:41:41 : " +
                                           text + "\n"))));
    }
}

TEST_F(FabricCollection, wwnIsTracedInHexadecimalThenInDecimal) {
    struct Case {
        std::string wwn, hex, decimal;
    };
    const Case cases[] = {
        {std::string(8, '\0'), "00:00:00:00:00:00:00:00", "0:0:0:0:0:0:0:0"},
        {"\x01\x02\x03\x04\x05\x06\x07\x08", "01:02:03:04:05:06:07:08",
         "1:2:3:4:5:6:7:8"},
        {std::string(8, '\x63'), "63:63:63:63:63:63:63:63",
         "99:99:99:99:99:99:99:99"},
        /* 24 characters would not fit with their end. */
        {"\x64\x63\x63\x63\x63\x63\x63\x63", "64:63:63:63:63:63:63:63",
         "100:99:99:99:99:99:99:9"},
        {std::string(8, '\xff'), "ff:ff:ff:ff:ff:ff:ff:ff",
         "255:255:255:255:255:255"},
        {"\x80\x7f\xaa\x00\x01\x10\xfe\x09"s, "80:7f:aa:00:01:10:fe:09",
         "128:127:170:0:1:16:254:"},
    };
    for (const Case &c : cases) {
        row.xfCopyIndex++;
        store(row);
        p.grove_records = {remote(c.wwn, "text")};
        const Story whole = collect();
        ASSERT_EQ(begun().size() + 5, whole.size());
        EXPECT_EQ(info(named(": curr_entry contents: " + c.hex + " : text\n")),
                  whole[begun().size() + 1]);
        EXPECT_EQ(info(named(":adding errorentry to errortable index object " +
                             c.decimal + " : text\n")),
                  whole[begun().size() + 2]);
    }
}

/* ---- Address of a remote switch --------------------------------------------
 */

TEST_F(FabricCollection, addressOfARemoteSwitchMayBeIpv6) {
    GroveRecord record = remote("AAAAAAAA", "one");
    record.address = {INET_ADDRESS_IPV6,
                      {0xfe, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}};
    p.grove_records = {record};
    const Story whole = collect();
    EXPECT_EQ(info(named(": device ip addr: fe80::1, device ip addr type: "
                         "2\n")),
              whole.at(begun().size()));
    ASSERT_EQ(1u, stored_error_rows().size());
    EXPECT_EQ(2, stored_error_rows()[0].xfCopyErrorDeviceAddressType);
    EXPECT_STREQ("fe80::1", stored_error_rows()[0].deviceAddressText);
}

TEST_F(FabricCollection, addressIsConvertedInto128Octets) {
    p.grove_records = {remote("AAAAAAAA", "one")};
    collect();
    ASSERT_EQ(1u, p.count("ip_addr_to_str"));
    EXPECT_TRUE(p.calls_of("ip_addr_to_str").at(0).text.ends_with(", 128)"));
    EXPECT_EQ(0u, p.count("if_index_mgmt_sup_port_init"));
    EXPECT_EQ(0u, p.count("ipconf_get_if_inet_addrs"));
}

TEST_F(FabricCollection, addressThatCannotBeConvertedStaysEmpty) {
    for (const int result : {22, -1}) {
        row.xfCopyIndex++;
        store(row);
        p.addr_to_str_results.then(result);
        p.grove_records = {remote(wwn_a, "no space")};
        const std::string text =
            ": ip_addr_to_str() failed with error: " + std::to_string(result) +
            "\n";
        EXPECT_EQ(join({begun(),
                        {error(named(text)), logged(text)},
                        traced_a,
                        {next(wwn_a), cleaned}}),
                  collect());
        expect_no_address(INET_ADDRESS_IPV4);
    }
}

TEST_F(FabricCollection, onlyALocalFlagOf1IsTheLocalSwitch) {
    for (const int32_t flag : {0, 2, -1}) {
        row.xfCopyIndex++;
        store(row);
        GroveRecord record = remote("AAAAAAAA", "one");
        record.is_local = flag;
        p.grove_records = {record};
        collect();
        EXPECT_EQ(0u, p.count("if_index_mgmt_sup_port_init")) << flag;
        EXPECT_STREQ("192.0.2.7", stored_error_rows().back().deviceAddressText);
    }
}

/* ---- Address of the local switch -------------------------------------------
 */

TEST_F(FabricCollection, localSwitchGetsTheFirstManagementAddressAndItsType) {
    p.interface_addresses = {{management_ipv6, ipv4(10, 0, 0, 9)}};
    p.grove_records = {local(wwn_a, "no space")};
    EXPECT_EQ(join({begun(),
                    {info(named(": device ip addr: 2001:db8::9, device ip "
                                "addr type: 2\n"))},
                    traced_a,
                    {next(wwn_a), cleaned}}),
              collect());
    ASSERT_EQ(1u, stored_error_rows().size());
    EXPECT_EQ(2, stored_error_rows()[0].xfCopyErrorDeviceAddressType);
    EXPECT_STREQ("2001:db8::9", stored_error_rows()[0].deviceAddressText);
    EXPECT_EQ(2u, p.count("free")) << "the response and the list";
}

TEST_F(FabricCollection, managementPortIsAskedForEachLocalRecord) {
    p.grove_records = {local("AAAAAAAA", "one"), remote("BBBBBBBB", "two"),
                       local("CCCCCCCC", "three")};
    collect();
    Story asked;
    for (const Event &event : p.journal)
        if (event.function == "if_index_mgmt_sup_port_init" ||
            event.function == "ipconf_get_if_inet_addrs" ||
            event.function == "ip_addr_to_str")
            asked.push_back(event.text);
    const std::string rest(11, '\0');
    EXPECT_EQ((Story{
                  "if_index_mgmt_sup_port_init(0, 0)",
                  "ipconf_get_if_inet_addrs(response_q, 0x5000000)",
                  "ip_addr_to_str({1, " +
                      quote("\x0a\0\0\x09"s + rest + "\0"s) + "}, 128)",
                  "ip_addr_to_str({1, " +
                      quote("\xc0\x00\x02\x07"s + rest + "\0"s) + "}, 128)",
                  "if_index_mgmt_sup_port_init(0, 0)",
                  "ipconf_get_if_inet_addrs(response_q, 0x5000000)",
                  "ip_addr_to_str({1, " +
                      quote("\x0a\0\0\x09"s + rest + "\0"s) + "}, 128)",
              }),
              asked);
}

TEST_F(FabricCollection, localSwitchWhoseAddressesCannotBeHad) {
    for (const bool with_list : {false, true}) {
        row.xfCopyIndex++;
        store(row);
        p.interface_results.then(7);
        if (with_list)
            p.interface_addresses = {{ipv4(10, 0, 0, 9)}};
        else
            p.interface_addresses.reset();
        p.grove_records = {local(wwn_a, "no space", INET_ADDRESS_IPV6)};
        EXPECT_EQ(
            join({begun(),
                  {logged(": Failed to get ip address of local switch\n")},
                  traced_a,
                  {next(wwn_a), cleaned}}),
            collect());
        expect_no_address(INET_ADDRESS_IPV6);
        EXPECT_EQ(with_list ? 2u : 1u, p.count("free"));
    }
}

TEST_F(FabricCollection, localSwitchWithoutAddresses) {
    for (const bool with_list : {true, false}) {
        row.xfCopyIndex++;
        store(row);
        if (with_list)
            p.interface_addresses = std::vector<struct ip_addr>{};
        else
            p.interface_addresses.reset();
        p.grove_records = {local(wwn_a, "no space", INET_ADDRESS_IPV6)};
        EXPECT_EQ(
            join({begun(),
                  {error(named(": no inet ip address for local switch\n")),
                   logged(": no inet ip address for local switch\n")},
                  traced_a,
                  {next(wwn_a), cleaned}}),
            collect());
        expect_no_address(INET_ADDRESS_IPV6);
        EXPECT_EQ(with_list ? 2u : 1u, p.count("free"));
    }
}

/* Interface 0 is asked for its addresses then. */
TEST_F(FabricCollection, managementPortThatIsNotThereDoesNotMatter) {
    p.mgmt_port_results.then(-1);
    p.grove_records = {local(wwn_a, "no space")};
    collect();
    ASSERT_EQ(1u, p.count("ipconf_get_if_inet_addrs"));
    EXPECT_EQ("ipconf_get_if_inet_addrs(response_q, 0x0)",
              p.calls_of("ipconf_get_if_inet_addrs")[0].text);
    EXPECT_STREQ("10.0.0.9", stored_error_rows().back().deviceAddressText);
}

/* Its type is known all the same. */
TEST_F(FabricCollection, localAddressThatCannotBeConverted) {
    p.addr_to_str_results.then(22);
    p.interface_addresses = {{management_ipv6}};
    p.grove_records = {local(wwn_a, "no space")};
    EXPECT_EQ(join({begun(),
                    {error(named(": ip_addr_to_str() failed with error: 22\n")),
                     logged(": ip_addr_to_str() failed with error: 22\n")},
                    traced_a,
                    {next(wwn_a), cleaned}}),
              collect());
    expect_no_address(INET_ADDRESS_IPV6);
    EXPECT_EQ(2u, p.count("free"));
}

TEST_F(FabricCollection, oneAddressThatIsMissingDoesNotStopTheWalk) {
    p.addr_to_str_results.then(22);
    p.grove_records = {remote("AAAAAAAA", "one"), remote("BBBBBBBB", "two")};
    collect();
    ASSERT_EQ(2u, stored_error_rows().size());
    EXPECT_STREQ("", stored_error_rows()[0].deviceAddressText);
    EXPECT_STREQ("192.0.2.7", stored_error_rows()[1].deviceAddressText);
}

/* ---- Rows that cannot be added ---------------------------------------------
 */

TEST_F(FabricCollection, rowThatCannotBeAddedStillCounts) {
    p.grove_records = {remote("AAAAAAAA", "one"), remote("BBBBBBBB", "two"),
                       remote("CCCCCCCC", "three")};
    p.hooks["grove_status_next_get"] = [this] {
        if (p.grove_records.size() == 2)
            p.fail_malloc_at = 1;
    };
    const Story whole = collect();
    EXPECT_EQ(1, std::count(whole.begin(), whole.end(),
                            error("addXfCopyErrorEntry : Mallocing for "
                                  "xfCopyErrorEntryFailed\n")));
    const std::vector<struct xfCopyErrorEntry> rows = stored_error_rows();
    ASSERT_EQ(2u, rows.size());
    EXPECT_EQ(1, rows[0].xfCopyErrorDeviceIndex);
    EXPECT_EQ(3, rows[1].xfCopyErrorDeviceIndex);
    EXPECT_STREQ("three", rows[1].xfCopyErrorDescription);
}

TEST_F(FabricCollection, secondCollectionOfACopyKeepsTheFirstRows) {
    p.grove_records = {remote("AAAAAAAA", "one")};
    collect();
    p.grove_records = {remote("BBBBBBBB", "two"), remote("CCCCCCCC", "three")};
    const Story whole = collect();
    EXPECT_EQ(1, std::count(whole.begin(), whole.end(),
                            error("addXfCopyErrorEntry : failed to add to "
                                  "index object\n")));
    const std::vector<struct xfCopyErrorEntry> rows = stored_error_rows();
    ASSERT_EQ(2u, rows.size());
    EXPECT_STREQ("one", rows[0].xfCopyErrorDescription);
    EXPECT_STREQ("three", rows[1].xfCopyErrorDescription);
    EXPECT_EQ(2, rows[1].xfCopyErrorDeviceIndex);
    p.expected_leaks = 1;
}
