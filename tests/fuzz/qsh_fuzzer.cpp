// The command shell's configuration: one text is loaded, as from the disk, the
// next one applied. A zero octet is between them.
#include <algorithm>
#include <string>

#include "host/qsh/text_config.h"
#include "tests/fuzz/check.h"
#include "tests/fuzz/input.h"

using namespace xfhost;

namespace {

ApplyResult merge(TextConfig &config, std::string_view text) {
    size_t refused = 0, last = 0;
    const ApplyResult result = config.apply(
        text, [&](size_t number, std::string_view line, const char *why) {
            FUZZ_CHECK(number > last, "line %zu after line %zu", number, last);
            FUZZ_CHECK(why != nullptr && *why != '\0' && !line.empty(),
                       "line %zu refused without a reason", number);
            last = number;
            refused++;
        });
    FUZZ_CHECK(result.refused == refused && refused <= result.lines,
               "%zu of %zu lines refused, %zu reported", result.refused,
               result.lines, refused);
    FUZZ_CHECK(refused <= most_refused &&
                   (!result.stopped || refused == most_refused),
               "%zu lines refused, %s", refused,
               result.stopped ? "stopped" : "not stopped");
    return result;
}

std::string reloaded(const std::string &text) {
    TextConfig config;
    config.load(text);
    return config.print();
}

// A text that was printed is read back as what it was. Lines that are kept
// without being understood may have lost the line that they stood under, or
// stand where they are understood: that settles when they are next loaded.
void check_print(const TextConfig &config, bool settled) {
    const std::string printed =
        settled ? config.print() : reloaded(config.print());
    TextConfig again;
    again.load(printed);
    FUZZ_CHECK(again.print() == printed,
               "printed:\n%.150s\nand read back:\n%.150s", printed.c_str(),
               again.print().c_str());
    // The same again changes nothing, whatever of it is refused.
    merge(again, printed);
    FUZZ_CHECK(again.print() == printed,
               "applied to itself:\n%.150s\nbecame:\n%.150s", printed.c_str(),
               again.print().c_str());
}

// A configuration that was made by commands alone has nothing to be refused.
void check_applied(std::string_view text) {
    TextConfig config;
    merge(config, text);
    const std::string printed = config.print();
    TextConfig again;
    const ApplyResult result = merge(again, printed);
    FUZZ_CHECK(result.refused == 0 && again.print() == printed,
               "%zu of its own lines refused:\n%.200s", result.refused,
               printed.c_str());
    check_print(config, true);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *octets, size_t size) {
    const std::string text = fuzz::Input(octets, size).rest();
    const size_t end = std::min(text.find('\0'), text.size());
    const std::string loaded = text.substr(0, end);
    const std::string applied = text.substr(std::min(end + 1, text.size()));

    TextConfig config;
    config.load(loaded);
    check_print(config, false);
    const std::string before = config.print();
    const ApplyResult result = merge(config, applied);
    if (result.refused == result.lines)
        FUZZ_CHECK(config.print() == before, "refused lines changed something");
    check_print(config, false);
    check_applied(applied);
    return 0;
}
