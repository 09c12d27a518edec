/*
 * The journal and its views, and the fixture.
 */
#include <cstdlib>

#include "scripted/note.h"

namespace scripted {

/* ---- Journal ---------------------------------------------------------------
 */

static std::unique_ptr<Platform> current;

Platform &platform() {
    if (current == nullptr)
        current = std::make_unique<Platform>();
    return *current;
}

void agents_sigchld_handler(int) {}

Event &Platform::record(Kind kind, std::string_view function,
                        std::string text) {
    static Event discarded;
    Event &event = recording ? journal.emplace_back() : discarded;

    event = {kind,   std::string(function), std::move(text), {}, {}, 0, 0,
             sigchld};
    return event;
}

Story Platform::events(unsigned kinds) const {
    Story lines;

    for (const Event &event : journal)
        if ((static_cast<unsigned>(event.kind) & kinds) != 0)
            lines.push_back(event.text);
    return lines;
}

std::vector<Event> Platform::calls_of(std::string_view function) const {
    std::vector<Event> found;

    for (const Event &event : journal)
        if (event.function == function)
            found.push_back(event);
    return found;
}

size_t Platform::count(std::string_view function) const {
    return calls_of(function).size();
}

void Platform::forget() {
    journal.clear();
    mallocs = 0;
    comparisons = 0;
}

struct ipcbus_message *Platform::message(uint32_t opcode,
                                         std::optional<std::string> payload) {
    const std::string name = "message" + std::to_string(messages.size() + 1);

    messages.push_back(std::make_unique<ipcbus_message>(
        ipcbus_message{name, opcode, std::move(payload), 0, 0}));
    return messages.back().get();
}

std::vector<Varbind>
Platform::varbinds_of(const netsnmp_variable_list *list) const {
    std::vector<Varbind> found;

    for (; list != nullptr; list = list->next_variable)
        found.push_back(
            {oids(list->name, list->name_length), list->type,
             std::string(reinterpret_cast<const char *>(list->val.string),
                         list->val_len)});
    return found;
}

/* ---- Views -----------------------------------------------------------------
 */

static constexpr unsigned text_kinds =
    Kind::Trace | Kind::Live | Kind::Stdout | Kind::Stderr | Kind::Log;

Story story() {
    return platform().events(text_kinds | Kind::Call);
}

Story texts() {
    return platform().events(text_kinds);
}

Story calls() {
    return platform().events(static_cast<unsigned>(Kind::Call));
}

static std::string line(const char *channel, std::string_view text) {
    return channel + std::string(" ") + std::string(text);
}

std::string error(std::string_view text) {
    return line("100", text);
}
std::string info(std::string_view text) {
    return line("101", text);
}
std::string live(std::string_view text) {
    return line("live", text);
}
std::string out(std::string_view text) {
    return line("stdout", text);
}
std::string err(std::string_view text) {
    return line("stderr", text);
}
std::string log(std::string_view text) {
    return line("log", text);
}

std::string quote(std::string_view octets) {
    std::string text = "\"";
    char hex[8];

    for (const char c : octets) {
        const auto octet = static_cast<unsigned char>(c);
        if (octet == '"' || octet == '\\') {
            text += '\\';
            text += c;
        } else if (octet >= 0x20 && octet < 0x7f) {
            text += c;
        } else {
            snprintf(hex, sizeof(hex), "\\x%02x", octet);
            text += hex;
        }
    }
    return text + '"';
}

Quiet::Quiet()
    : before_(platform().recording), mallocs_(platform().mallocs),
      comparisons_(platform().comparisons) {
    platform().recording = false;
}

Quiet::~Quiet() {
    platform().recording = before_;
    platform().mallocs = mallocs_;
    platform().comparisons = comparisons_;
}

/* ---- Fixture ---------------------------------------------------------------
 */

static void reset_module() {
    module_state = {};
    ageouttimer = 0;
    is_snmp_debug_enabled = 0;
    start_cpu_cycles = 0;
    change_time_flag = 1;
}

ModuleTest::ModuleTest()
    : p((current = std::make_unique<Platform>(), *current)) {
    setenv("TZ", "UTC", 1);
    reset_module();
    ipcbus_response_q = &p.response_queue;
    {
        const Quiet quiet;
        init_config_copy_mib();
    }
    p.forget();
}

ModuleTest::~ModuleTest() {
    for (const auto &[block, size] : p.blocks)
        free(block);
    delete_live_sets();
    for (netsnmp_variable_list *const varbind : p.varbinds) {
        varbind->next_variable = nullptr;
        snmp_free_varbind(varbind);
    }
    reset_module();
}

void ModuleTest::TearDown() {
    std::set<const void *> held;
    int leaks = 0;

    for (const struct ordset *const set : live_sets())
        for (const void *const object : objects_of(set))
            held.insert(object);
    for (const auto &[block, size] : p.blocks)
        leaks += held.contains(block) ? 0 : 1;
    EXPECT_EQ(p.expected_leaks, leaks) << "blocks that nobody holds any more";
    for (const auto &[file, text] : debug_logs())
        EXPECT_EQ("", text) << "debug log record without a flush";
}

} // namespace scripted
