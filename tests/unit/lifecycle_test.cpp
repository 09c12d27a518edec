/* Entry points, what is registered with the agent, and the exported data. */
#include "set_driver.h"

#include <net-snmp/agent/util_funcs/header_generic.h>

using namespace scripted;

namespace {

/* Before any test had a hand in them. */
const uint32_t timer_at_load = ageouttimer;
const uint32_t debug_at_load = is_snmp_debug_enabled;
const uint64_t cycles_at_load = start_cpu_cycles;

std::string root() {
    std::string text;
    for (const oid id : below_root({}))
        text += (text.empty() ? "" : ".") + std::to_string(id);
    return text;
}

const std::string registered =
    "register_mib(\"config_copy_mib\", 20, " + root() + ")";
const std::string unregistered = "unregister_mib(" + root() + ")";
const std::string callback_registered =
    "snmp_register_callback(0, 9, xf_handle_starttime_change, NULL)";
const std::string list_created =
    "ordset_create(0, 1, xfCopyEntry_comp_func, 1)";

class LifecycleTest : public ModuleTest {
  protected:
    /* As loaded, not initialised. */
    LifecycleTest() {
        const Quiet quiet;
        deinit_config_copy_mib();
        p.registrations.clear();
    }
    Story steps() {
        return p.events(Kind::Call | Kind::Set);
    }
};

} // namespace

TEST_F(LifecycleTest, globalsAreZeroAtLoad) {
    EXPECT_EQ(0u, timer_at_load);
    EXPECT_EQ(0u, debug_at_load);
    EXPECT_EQ(0u, cycles_at_load);
}

TEST_F(LifecycleTest, initDoesItsStepsInOrder) {
    init_config_copy_mib();
    EXPECT_EQ(
        (Story{registered, callback_registered, list_created, list_created,
               "register_for_notification(1391, handle_notifications)",
               "register_for_notification(1361, handle_notifications)",
               "register_for_notification(10277, handle_notifications)"}),
        steps());
    EXPECT_EQ(Story{}, texts());
    EXPECT_EQ(0, SNMP_CALLBACK_LIBRARY);
}

TEST_F(LifecycleTest, threeOpcodesAreSubscribedToOneHandler) {
    init_config_copy_mib();
    EXPECT_EQ((std::map<uint32_t, notification_handler *>{
                  {1391, handle_notifications},
                  {1361, handle_notifications},
                  {10277, handle_notifications}}),
              p.subscriptions);
}

TEST_F(LifecycleTest, theVariableTableIsWhatIsRegistered) {
    init_config_copy_mib();
    ASSERT_EQ(1u, p.registrations.size());
    const Registration &registration = p.registrations[0];
    EXPECT_EQ("config_copy_mib", registration.name);
    EXPECT_EQ(config_copy_mib_variables, registration.variables);
    EXPECT_EQ(sizeof(struct variable7), registration.variable_size);
    EXPECT_EQ(20u, registration.count);
    EXPECT_EQ(below_root({}), registration.root);
}

TEST_F(LifecycleTest, failedRegistrationIsReportedAndInitGoesOn) {
    p.register_results.always(-1);
    p.do_debugging.always(1);
    init_config_copy_mib();
    const Story all = steps();
    ASSERT_EQ(11u, all.size());
    EXPECT_EQ(registered, all[0]);
    const std::vector<Event> tokens = p.calls_of("debugmsgtoken");
    const std::vector<Event> messages = p.calls_of("debugmsg");
    ASSERT_EQ(2u, tokens.size());
    ASSERT_EQ(2u, messages.size());
    for (const std::vector<Event> *const events : {&tokens, &messages}) {
        EXPECT_EQ((std::vector<std::string>{"trace", "%s(): %s, %d:\n"}),
                  (*events)[0].strings);
        EXPECT_EQ(0u, (*events)[0].octets.find(
                          "init_config_copy_mib(): ../infra/system_manager/"
                          "lib/libmib/configcopymib/config_copy_mib, "));
        EXPECT_GT(
            atoi((*events)[0].octets.c_str() + (*events)[0].octets.rfind(' ')),
            0);
        EXPECT_EQ((std::vector<std::string>{"register_mib",
                                            "%s registration failed\n"}),
                  (*events)[1].strings);
        EXPECT_EQ("config_copy_mib registration failed\n", (*events)[1].octets);
    }
    /* Header first, and only then the rest of initialisation. */
    EXPECT_EQ(0u, all[1].find("debugmsgtoken(\"trace\""));
    EXPECT_EQ(0u, all[2].find("debugmsg(\"trace\""));
    EXPECT_EQ(0u, all[3].find("debugmsgtoken(\"register_mib\""));
    EXPECT_EQ(0u, all[4].find("debugmsg(\"register_mib\""));
    EXPECT_EQ(callback_registered, all[5]);
    EXPECT_EQ(3u, p.subscriptions.size());
}

TEST_F(LifecycleTest, failedRegistrationIsSilentWithoutDebugging) {
    p.register_results.always(-1);
    init_config_copy_mib();
    EXPECT_EQ(0u, p.count("debugmsg") + p.count("debugmsgtoken"));
    EXPECT_EQ(1u, p.count("snmp_get_do_debugging"));
    EXPECT_EQ(3u, p.subscriptions.size());
}

TEST_F(LifecycleTest, registrationThatWorksIsNotReported) {
    p.do_debugging.always(1);
    init_config_copy_mib();
    EXPECT_EQ(0u, p.count("debugmsg") + p.count("debugmsgtoken"));
}

TEST_F(LifecycleTest, listThatCannotBeMadeLeavesTheModuleInert) {
    for (const int which : {1, 2})
        for (const int result : {-1, 0, 1, 3}) {
            p.forget();
            p.ordset_create_failure = result;
            p.fail_ordset_create_at = which;
            init_config_copy_mib();
            EXPECT_EQ((Story{registered, callback_registered, unregistered}),
                      calls());
            EXPECT_TRUE(p.subscriptions.empty());
            const Quiet quiet;
            deinit_config_copy_mib();
        }
}

TEST_F(LifecycleTest, deinitDoesItsStepsInOrder) {
    {
        const Quiet quiet;
        init_config_copy_mib();
    }
    deinit_config_copy_mib();
    EXPECT_EQ((Story{unregistered, "ordset_destroy(set)", "ordset_destroy(set)",
                     "unregister_for_notification(1391)",
                     "unregister_for_notification(1361)",
                     "unregister_for_notification(10277)"}),
              steps());
    EXPECT_EQ(Story{}, texts());
    EXPECT_EQ(nullptr, module_state.undo_list);
    EXPECT_EQ(nullptr, module_state.second_list);
    EXPECT_TRUE(p.subscriptions.empty());
}

TEST_F(LifecycleTest, rowsAndAlarmStayAcrossAReload) {
    {
        const Quiet quiet;
        init_config_copy_mib();
    }
    store(make_row(3));
    struct xfCopyEntry running = make_row(9, XF_ROW_ACTIVE);
    running.xfCopyState = XF_STATE_RUNNING;
    store(running);
    ASSERT_EQ(77u, ageouttimer);
    deinit_config_copy_mib();
    EXPECT_EQ((std::vector<int32_t>{3, 9}), stored_indexes());
    EXPECT_EQ(1, copy_inprogress());
    EXPECT_EQ(77u, ageouttimer);
    EXPECT_EQ(0u, p.count("snmp_alarm_unregister"));
    init_config_copy_mib();
    EXPECT_EQ((std::vector<int32_t>{3, 9}), stored_indexes());
    EXPECT_EQ(1, copy_inprogress());
    EXPECT_EQ(0u, p.count("snmp_alarm_register"));
    EXPECT_EQ(SNMP_ERR_NOERROR, set_request({integer(14, 3, 6)}));
    EXPECT_EQ(std::vector<int32_t>{9}, stored_indexes());
}

/* ---- Variable table --------------------------------------------------------
 */

TEST_F(LifecycleTest, everyVariableIsInTheTable) {
    const struct {
        u_char magic;
        std::vector<oid> name;
        u_char type;
        bool writable;
    } expected[] = {
        {4, {1, 1, 1, 1, 2}, ASN_INTEGER, true},
        {5, {1, 1, 1, 1, 3}, ASN_INTEGER, true},
        {6, {1, 1, 1, 1, 4}, ASN_INTEGER, true},
        {7, {1, 1, 1, 1, 5}, ASN_IPADDRESS, true},
        {8, {1, 1, 1, 1, 6}, ASN_OCTET_STR, true},
        {9, {1, 1, 1, 1, 7}, ASN_OCTET_STR, true},
        {10, {1, 1, 1, 1, 8}, ASN_OCTET_STR, true},
        {11, {1, 1, 1, 1, 9}, ASN_INTEGER, true},
        {12, {1, 1, 1, 1, 10}, ASN_INTEGER, false},
        {13, {1, 1, 1, 1, 11}, ASN_TIMETICKS, false},
        {14, {1, 1, 1, 1, 12}, ASN_TIMETICKS, false},
        {15, {1, 1, 1, 1, 13}, ASN_INTEGER, false},
        {16, {1, 1, 1, 1, 14}, ASN_INTEGER, true},
        {17, {1, 1, 1, 1, 15}, ASN_INTEGER, true},
        {18, {1, 1, 1, 1, 16}, ASN_OCTET_STR, true},
        {19, {1, 1, 1, 1, 17}, ASN_OCTET_STR, true},
        {25, {1, 1, 2, 1, 2}, ASN_INTEGER, false},
        {26, {1, 1, 2, 1, 3}, ASN_OCTET_STR, false},
        {27, {1, 1, 2, 1, 4}, ASN_OCTET_STR, false},
        {28, {1, 1, 2, 1, 5}, ASN_OCTET_STR, false},
    };

    static_assert(std::size(expected) == 20);
    for (size_t i = 0; i < std::size(expected); i++) {
        const struct variable7 &variable = config_copy_mib_variables[i];
        EXPECT_EQ(expected[i].magic, variable.magic);
        EXPECT_EQ(expected[i].type, variable.type);
        EXPECT_EQ(expected[i].writable ? NETSNMP_OLDAPI_RWRITE
                                       : NETSNMP_OLDAPI_RONLY,
                  variable.acl);
        EXPECT_EQ(expected[i].magic <= 19 ? get_xfCopyTable
                                          : get_xfCopyErrorTable,
                  variable.findVar);
        EXPECT_EQ(
            expected[i].name,
            std::vector<oid>(variable.name, variable.name + variable.namelen));
    }
}

TEST_F(LifecycleTest, writableColumnsAreThoseWithAWriteMethod) {
    for (const struct variable7 &variable : config_copy_mib_variables) {
        if (variable.magic > 19)
            continue;
        EXPECT_EQ(variable.acl == NETSNMP_OLDAPI_RWRITE,
                  write_method_of(variable.name[4]) != nullptr)
            << int{variable.magic};
    }
}

TEST_F(LifecycleTest, rootHasNineSubIdentifiersBelowEnterprises) {
    static_assert(std::extent_v<decltype(config_copy_mib_variables_oid)> == 9);
    EXPECT_EQ((std::vector<oid>{1, 3, 6, 1, 4, 1}),
              std::vector<oid>(config_copy_mib_variables_oid,
                               config_copy_mib_variables_oid + 6));
}

/* ---- The scalar read handler -----------------------------------------------
 */

TEST_F(LifecycleTest, scalarReadHandlerNeverHasAValue) {
    struct variable variable = variable_of(4);
    oid name[MAX_OID_LEN] = {};
    size_t length = 1;
    size_t var_len = 0;
    WriteMethod *write = nullptr;

    for (const int exact : {0, 1}) {
        p.forget();
        p.header_generic_results.always(MATCH_FAILED);
        EXPECT_EQ(nullptr, get_config_copy_mib(&variable, name, &length, exact,
                                               &var_len, &write));
        EXPECT_EQ(Story{"header_generic(" + std::to_string(exact) + ")"},
                  story());
        p.forget();
        p.header_generic_results.always(MATCH_SUCCEEDED);
        EXPECT_EQ(nullptr, get_config_copy_mib(&variable, name, &length, exact,
                                               &var_len, &write));
        EXPECT_EQ((Story{"header_generic(" + std::to_string(exact) + ")",
                         "snmp_set_detail(\"\")"}),
                  story());
    }
}
