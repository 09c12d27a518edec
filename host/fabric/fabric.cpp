#include "host/fabric/fabric.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <set>

#include "host/base/address.h"

namespace xfhost {
namespace {

std::vector<std::string> words_of(std::string_view line) {
    std::vector<std::string> words;
    line = line.substr(0, line.find('#'));
    constexpr const char *blanks = " \t\r";
    for (;;) {
        size_t start = line.find_first_not_of(blanks);
        if (start == std::string_view::npos)
            return words;
        line.remove_prefix(start);
        size_t end = std::min(line.find_first_of(blanks), line.size());
        words.emplace_back(line.substr(0, end));
        line.remove_prefix(end);
    }
}

// Names go into a command line: letters, digits and a few signs, none in front.
bool is_name(const std::string &text) {
    auto good = [](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) || c == '.' ||
               c == '-' || c == '_';
    };
    return !text.empty() && text.size() <= 64 && text.front() != '-' &&
           std::all_of(text.begin(), text.end(), good);
}

bool take_port(const std::string &text, int &port) {
    const char *end = text.data() + text.size();
    auto [stop, error] = std::from_chars(text.data(), end, port);
    return error == std::errc() && stop == end && port > 0 && port < 65536;
}

// Returns what is wrong with the value.
std::string take_field(FabricSwitch &entry, const std::string &key,
                       const std::string &value) {
    if (key == "wwn") {
        entry.wwn = wwn_digits(value);
        bool good = entry.wwn.find_first_not_of('0') != std::string::npos;
        return good ? "" : "not a world wide name";
    }
    if (key == "address") {
        entry.address = value;
        return is_address(value) ? "" : "not an address";
    }
    if (key == "port")
        return take_port(value, entry.port) ? "" : "not a port";
    if (key == "user") {
        entry.user = value;
        return is_name(value) ? "" : "not a user";
    }
    return "unknown word";
}

std::string parse_switch(const std::vector<std::string> &words,
                         FabricSwitch &entry) {
    if (words.size() < 2 || words[0] != "switch" || !is_name(words[1]))
        return "switch and a name expected";
    entry.name = words[1];
    for (size_t i = 2; i < words.size(); i++) {
        if (words[i] == "local") {
            entry.local = true;
            continue;
        }
        if (i + 1 == words.size())
            return "\"" + words[i] + "\": unknown word, or without a value";
        std::string error = take_field(entry, words[i], words[i + 1]);
        if (!error.empty())
            return "\"" + words[i] + " " + words[i + 1] + "\": " + error;
        i++;
    }
    if (entry.wwn.empty() || entry.address.empty())
        return "wwn and address expected";
    return "";
}

std::string check_whole(const std::vector<FabricSwitch> &switches) {
    std::set<std::string> wwns;
    for (const FabricSwitch &each : switches)
        if (!wwns.insert(each.wwn).second)
            return each.name + " has the world wide name of another switch";
    auto locals = std::count_if(switches.begin(), switches.end(),
                                [](const auto &each) { return each.local; });
    return locals == 1 ? "" : "exactly one switch must be local";
}

} // namespace

std::string parse_fabric(std::string_view text,
                         std::vector<FabricSwitch> &switches) {
    switches.clear();
    for (int number = 1; !text.empty(); number++) {
        size_t end = text.find('\n');
        std::vector<std::string> words = words_of(text.substr(0, end));
        text.remove_prefix(std::min(end, text.size() - 1) + 1);
        if (words.empty())
            continue;
        FabricSwitch entry;
        std::string error = parse_switch(words, entry);
        if (!error.empty())
            return "line " + std::to_string(number) + ": " + error;
        switches.push_back(std::move(entry));
    }
    return check_whole(switches);
}

std::string load_fabric(const Settings &settings,
                        std::vector<FabricSwitch> &switches) {
    if (settings.fabric_file.empty())
        return "fabric_file is not set";
    std::string text;
    std::string error = read_trusted_file(settings.fabric_file, true, text);
    if (!error.empty())
        return error;
    error = parse_fabric(text, switches);
    if (!error.empty())
        return settings.fabric_file + ", " + error;
    for (const FabricSwitch &each : switches)
        if (each.local && !settings.switch_wwn.empty() &&
            each.wwn != settings.switch_wwn)
            return settings.fabric_file + ": " + each.name +
                   " has not the world wide name of switch_wwn";
    return "";
}

std::string local_wwn(const Settings &settings) {
    std::vector<FabricSwitch> switches;
    if (!settings.switch_wwn.empty() || settings.fabric_file.empty() ||
        !load_fabric(settings, switches).empty())
        return settings.switch_wwn;
    return std::find_if(switches.begin(), switches.end(),
                        [](const auto &each) { return each.local; })
        ->wwn;
}

std::vector<uint8_t> wwn_octets(const std::string &digits) {
    std::vector<uint8_t> octets;
    for (size_t i = 0; i + 1 < digits.size(); i += 2)
        octets.push_back(static_cast<uint8_t>(
            strtoul(digits.substr(i, 2).c_str(), nullptr, 16)));
    return octets;
}

} // namespace xfhost
