// What is read for FRR: whatever the text, only lines of configuration are left
// for vtysh, and they say the same when they are read again.
#include <algorithm>
#include <set>
#include <string>

#include "host/qsh/frr_reader.h"
#include "tests/fuzz/check.h"
#include "tests/fuzz/input.h"

using namespace xfhost;

namespace {

const std::set<std::string_view> commands = {
    "clear", "conf", "configure", "copy", "disable",  "do",     "en",   "end",
    "ex",    "exit", "find",      "list", "ou",       "output", "ping", "qu",
    "quit",  "show", "start",     "ter",  "terminal", "wr",     "write"};

void check_line(const std::string &line) {
    const FrrWords words = frr_words(line);
    FUZZ_CHECK(!words.empty() && line.size() <= longest_frr_line,
               "a line of %zu octets", line.size());
    const size_t first = words[0] == "no" && words.size() > 1 ? 1 : 0;
    FUZZ_CHECK(commands.count(words[first]) == 0, "a command: %.100s",
               line.c_str());
    FUZZ_CHECK(std::none_of(line.begin(), line.end(),
                            [](char c) {
                                return static_cast<unsigned char>(c) < 0x20 ||
                                       c == 0x7f;
                            }),
               "a control character: %.100s", line.c_str());
}

FrrScript script_of(const FrrLines &lines) {
    FrrScript script;
    for (size_t i = 0; i < lines.size(); i++) {
        const FrrLine &line = lines[i];
        FUZZ_CHECK(line.parent == no_line || line.parent < i,
                   "line %zu is under %zu", i, line.parent);
        FUZZ_CHECK(i == 0 || line.number > lines[i - 1].number,
                   "line %zu again", line.number);
        if (!line.refusal.empty())
            continue;
        FUZZ_CHECK(line.parent == no_line || lines[line.parent].refusal.empty(),
                   "line %zu is under a refused one", line.number);
        check_line(line.text);
        script.add(lines, i);
    }
    return script;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *octets, size_t size) {
    const std::string text = fuzz::Input(octets, size).rest();
    FrrLines lines = read_frr(text, false);
    const FrrScript script = script_of(lines);
    FUZZ_CHECK(static_cast<size_t>(
                   std::count(script.text.begin(), script.text.end(), '\n')) ==
                   script.lines.size(),
               "%zu lines", script.lines.size());
    for (const FrrLine &line : read_frr(script.text, false))
        FUZZ_CHECK(line.refusal.empty(), "its own line refused: %.100s: %s",
                   line.text.c_str(), line.refusal.c_str());
    if (!lines.empty()) {
        refuse_frr(lines, lines.size() / 2, "refused");
        script_of(lines);
    }
    return 0;
}
