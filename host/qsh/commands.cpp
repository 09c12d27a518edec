#include "host/qsh/commands.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstring>

#include "host/base/address.h"

namespace xfhost {
namespace {

constexpr size_t any = SIZE_MAX;

bool number_between(std::string_view text, int low, int high) {
    int number = 0;
    auto [end, error] =
        std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size() &&
           number >= low && number <= high;
}

bool is_prefix(std::string_view text) {
    size_t slash = text.find('/');
    if (slash == std::string_view::npos || !is_address(text.substr(0, slash)))
        return false;
    bool v6 = text.find(':') != std::string_view::npos;
    return number_between(text.substr(slash + 1), 0, v6 ? 128 : 32);
}

const char *check_address(const Words &w) {
    return is_address(w[0]) ? nullptr : "not an IPv4 or IPv6 address";
}

const char *check_prefix(const Words &w) {
    return is_prefix(w[0]) ? nullptr : "not an address and prefix length";
}

const char *check_route(const Words &w) {
    if (!is_prefix(w[0]))
        return "not an address and prefix length";
    return is_address(w[1]) ? nullptr : "next hop is not an address";
}

const char *check_vlan(const Words &w) {
    return number_between(w[0], 1, 4094) ? nullptr
                                         : "not a VLAN id from 1 to 4094";
}

const char *check_mtu(const Words &w) {
    return number_between(w[0], 576, 9216) ? nullptr
                                           : "not an MTU from 576 to 9216";
}

const char *check_name(const Words &w) {
    return w[0].size() <= 64 ? nullptr : "name longer than 64 characters";
}

using enum Kind;

constexpr Command commands[] = {
    {Mode::top, "hostname", single, 1, 1, check_name, Mode::top},
    {Mode::top, "domain-name", single, 1, 1, nullptr, Mode::top},
    {Mode::top, "banner", single, 1, any, nullptr, Mode::top},
    {Mode::top, "contact", single, 1, any, nullptr, Mode::top},
    {Mode::top, "location", single, 1, any, nullptr, Mode::top},
    {Mode::top, "feature", list, 1, 1, check_name, Mode::top},
    {Mode::top, "name-server", list, 1, 1, check_address, Mode::top},
    {Mode::top, "ntp server", list, 1, 1, check_address, Mode::top},
    {Mode::top, "log server", list, 1, 1, check_address, Mode::top},
    {Mode::top, "route", list, 2, 2, check_route, Mode::top},
    {Mode::top, "vrf", mode, 1, 1, check_name, Mode::vrf},
    {Mode::top, "vlan", mode, 1, 1, check_vlan, Mode::vlan},
    {Mode::top, "interface", mode, 1, 1, check_name, Mode::interface},
    {Mode::interface, "description", single, 1, any, nullptr, Mode::top},
    {Mode::interface, "shutdown", single, 0, 0, nullptr, Mode::top},
    {Mode::interface, "mtu", single, 1, 1, check_mtu, Mode::top},
    {Mode::interface, "address", list, 1, 1, check_prefix, Mode::top},
    {Mode::interface, "vlan", single, 1, 1, check_vlan, Mode::top},
    {Mode::interface, "vrf", single, 1, 1, check_name, Mode::top},
    {Mode::vlan, "name", single, 1, 1, check_name, Mode::top},
    {Mode::vrf, "description", single, 1, any, nullptr, Mode::top},
    {Mode::vrf, "route", list, 2, 2, check_route, Mode::top},
};

Words split(std::string_view text) {
    Words words;
    for (;;) {
        size_t start = text.find_first_not_of(" \t");
        if (start == std::string_view::npos)
            return words;
        size_t end = std::min(text.find_first_of(" \t", start), text.size());
        words.push_back(text.substr(start, end - start));
        text.remove_prefix(end);
    }
}

// The command that the words start with; they lose its keyword.
const Command *take_command(Mode where, Words &words) {
    for (const Command &command : commands) {
        Words keyword = split(command.keyword);
        if (command.where != where || words.size() < keyword.size() ||
            !std::equal(keyword.begin(), keyword.end(), words.begin()))
            continue;
        words.erase(words.begin(),
                    words.begin() + static_cast<long>(keyword.size()));
        return &command;
    }
    return nullptr;
}

std::string canonical(const Command &command, const Words &arguments) {
    std::string text(command.keyword);
    for (std::string_view word : arguments)
        text.append(" ").append(word);
    return text;
}

bool printable(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) {
        return c == '\t' || (c >= 0x20 && c <= 0x7e);
    });
}

const char *check_arguments(const Line &line, const Words &arguments) {
    const Command &command = *line.command;
    // One of a kind is removed by its name alone.
    if (line.negated && command.kind == Kind::single)
        return nullptr;
    if (arguments.size() < command.least)
        return "too few arguments";
    if (arguments.size() > command.most)
        return "too many arguments";
    return command.check == nullptr ? nullptr : command.check(arguments);
}

} // namespace

Line parse_line(Mode mode, std::string_view text) {
    Line line;
    if (text.size() > longest_line) {
        line.error = "line too long";
        return line;
    }
    if (!printable(text)) {
        line.error = "not printable ASCII";
        return line;
    }
    Words words = split(text);
    if (!words.empty() && words[0] == "no") {
        line.negated = true;
        words.erase(words.begin());
    }
    line.command = take_command(mode, words);
    if (line.command == nullptr) {
        line.error = "unknown command";
        return line;
    }
    line.error = check_arguments(line, words);
    line.text = canonical(*line.command, words);
    line.key = line.command->kind == Kind::single
                   ? std::string(line.command->keyword)
                   : line.text;
    return line;
}

} // namespace xfhost
