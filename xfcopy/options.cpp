#include "xfcopy/options.h"

#include <charconv>
#include <cstring>
#include <limits>

#include "xfcopy/location.h"
#include "xfcopy/text.h"

namespace xfcopy {

namespace {

constexpr int64_t most_int = std::numeric_limits<int32_t>::max();
constexpr size_t most_oid = 100;

constexpr Command commands[] = {
    {copy_command, "AGENT SOURCE DESTINATION", 3, 3},
    {"list", "AGENT", 1, 1},
    {"show", "AGENT N", 2, 2},
    {"cancel", "AGENT N", 2, 2},
    {"errors", "AGENT N", 2, 2},
    {history_command, "AGENT [N]", 1, 2},
};

template <auto Member> bool take_flag(Options &options, const std::string &) {
    options.*Member = true;
    return true;
}

template <auto Member, int64_t Least>
bool take_number(Options &options, const std::string &text) {
    const auto number = parse_number(text, Least, most_int);
    if (number)
        options.*Member = static_cast<int>(*number);
    return number.has_value();
}

bool take_vrf(Options &options, const std::string &text) {
    options.vrf = text;
    return !text.empty() && text.size() <= most_vrf_octets;
}

bool take_password_file(Options &options, const std::string &text) {
    options.password.file = text;
    return !text.empty();
}

bool take_password_fd(Options &options, const std::string &text) {
    const auto number = parse_number(text, 0, most_int);
    if (number)
        options.password.fd = static_cast<int>(*number);
    return number.has_value();
}

template <auto Member>
bool take_root(Options &options, const std::string &text) {
    auto root = parse_oid(text);
    if (root)
        options.*Member = std::move(*root);
    return root.has_value();
}

// `argument` is NULL for a flag. `expected` is what a refused argument is not.
// `command` is the only one that has the option; NULL if all have it.
struct LongOption {
    const char *name;
    const char *argument;
    const char *help;
    bool (*take)(Options &, const std::string &);
    const char *expected;
    const char *command;
};

constexpr const char *whole_seconds = "a number of seconds";

constexpr LongOption long_options[] = {
    {"vrf", "NAME", "the VRF to reach the server in", take_vrf,
     "a name of 1 to 32 octets", copy_command},
    {"notify", nullptr, "have the agent send a notification at the end",
     take_flag<&Options::notify>, nullptr, copy_command},
    {"no-wait", nullptr, "only start the copy; its row stays",
     take_flag<&Options::no_wait>, nullptr, copy_command},
    {"keep", nullptr, "leave the row at the end", take_flag<&Options::keep>,
     nullptr, copy_command},
    {"timeout", "SECONDS", "how long to wait for the end",
     take_number<&Options::timeout, 1>, whole_seconds, copy_command},
    {"wait-busy", "SECONDS", "how long to wait for another copy's end",
     take_number<&Options::wait_busy, 0>, whole_seconds, copy_command},
    {"index", "N", "the number of the new row", take_number<&Options::index, 1>,
     "a number from 1 to 2147483647", copy_command},
    {"password-file", "FILE", "the password for the server is its first line",
     take_password_file, "the name of a file", copy_command},
    {"password-fd", "N", "or comes from this file descriptor", take_password_fd,
     "a file descriptor", copy_command},
    {"last", "N", "of the history, only the newest N copies",
     take_number<&Options::last, 1>, "a number from 1 to 2147483647",
     history_command},
    {"json", nullptr, "one JSON object for each event",
     take_flag<&Options::json>, nullptr, nullptr},
    {"quiet", nullptr, "print errors only", take_flag<&Options::quiet>, nullptr,
     nullptr},
    {"root", "OID", "where the agent has the module", take_root<&Options::root>,
     "an OID such as 1.3.6.1.4.1.32473.1.1", nullptr},
    {"history-root", "OID", "where it has the history of copies",
     take_root<&Options::history_root>, "an OID such as 1.3.6.1.4.1.32473.1.2",
     nullptr},
    {"help", nullptr, "print this", take_flag<&Options::help>, nullptr,
     nullptr},
    {"version", nullptr, "print the version", take_flag<&Options::version>,
     nullptr, nullptr},
};

const LongOption *find_long(std::string_view name) {
    for (const LongOption &each : long_options)
        if (name == each.name)
            return &each;
    return nullptr;
}

const Command *find_command(std::string_view name) {
    for (const Command &each : commands)
        if (name == each.name)
            return &each;
    return nullptr;
}

// Those of Net-SNMP's options that have an argument, and those that have none.
constexpr std::string_view with_argument = "vctraAxXlunEeZ3LDTMmOIPYsS";
constexpr std::string_view without_argument = "d";
// Their arguments are not left where other users see them.
constexpr std::string_view secret_argument = "AX3";

class Parser {
  public:
    Parser(int count, char **arguments, Options &options)
        : left_(arguments, arguments + count), options_(options) {}

    std::string parse() {
        bool only_words = false;
        while (!left_.empty()) {
            char *const word = take();
            const std::string_view text = word;
            std::string problem;
            if (only_words || !text.starts_with("-") || text == "-")
                options_.words.emplace_back(text);
            else if (text == "--")
                only_words = true;
            else if (text.starts_with("--"))
                problem = take_long(text.substr(2));
            else
                problem = take_short(word);
            if (!problem.empty())
                return problem;
        }
        return "";
    }

    // The long options that were given.
    const std::vector<const LongOption *> &given() const {
        return given_;
    }

  private:
    char *take() {
        char *const first = left_.front();
        left_.erase(left_.begin());
        return first;
    }

    std::string take_long(std::string_view text) {
        const size_t equals = text.find('=');
        const std::string name(text.substr(0, equals));
        const std::string option = "--" + name;
        const LongOption *const found = find_long(name);
        if (found == nullptr)
            return shown(option) + ": there is no such option";
        given_.push_back(found);
        std::string argument;
        if (equals != std::string_view::npos) {
            if (found->argument == nullptr)
                return option + " takes no argument";
            argument = text.substr(equals + 1);
        } else if (found->argument != nullptr) {
            if (left_.empty())
                return option + ": " + found->argument + " is missing";
            argument = take();
        }
        if (!found->take(options_, argument))
            return option + " " + shown(argument) + ": it is not " +
                   found->expected;
        return "";
    }

    std::string take_short(char *word) {
        const char letter = word[1];
        const std::string option = {'-', letter};
        if (option == "-h" || option == "-V") {
            (letter == 'h' ? options_.help : options_.version) = true;
            return word[2] == '\0' ? "" : option + " takes no argument";
        }
        const bool argument = with_argument.find(letter) != std::string::npos;
        if (!argument && without_argument.find(letter) == std::string::npos)
            return shown(option) + ": there is no such option";
        options_.library.emplace_back(word);
        char *value = word + 2;
        if (argument && *value == '\0') {
            if (left_.empty())
                return option + ": its argument is missing";
            value = take();
            options_.library.emplace_back(value);
        }
        if (secret_argument.find(letter) != std::string::npos)
            explicit_bzero(value, strlen(value));
        return "";
    }

    std::vector<char *> left_;
    Options &options_;
    std::vector<const LongOption *> given_;
};

std::string check_command(const LongOption &option,
                          const std::string &command) {
    if (option.command == nullptr || option.command == command)
        return "";
    const bool copies = strcmp(option.command, copy_command) == 0;
    return std::string("--") + option.name + " is for " +
           (copies ? "copies" : option.command) + " only, not for " + command;
}

// The first word may be the name of a command.
std::string take_command(Options &options,
                         const std::vector<const LongOption *> &given) {
    const Command *command =
        options.words.empty() ? nullptr : find_command(options.words.front());
    if (command != nullptr)
        options.words.erase(options.words.begin());
    else
        command = find_command(copy_command);
    options.command = command->name;
    if (options.words.size() < command->words ||
        options.words.size() > command->most_words)
        return std::string(options.words.size() < command->words
                               ? "something is missing: "
                               : "there is too much: ") +
               "xfcopy " +
               (options.command == copy_command ? "" : options.command + " ") +
               command->arguments;
    if (options.words.front().empty() || options.words.front()[0] == '-')
        return "AGENT: it is no address";
    for (const LongOption *each : given)
        if (std::string wrong = check_command(*each, options.command);
            !wrong.empty())
            return wrong;
    return "";
}

std::string check(const Options &options) {
    if (options.password.fd >= 0 && !options.password.file.empty())
        return "--password-file and --password-fd exclude each other";
    if (options.no_wait && options.timeout)
        return "--no-wait and --timeout exclude each other";
    if (options.last && options.words.size() > 1)
        return "--last and a number exclude each other";
    return "";
}

// Commands with the same arguments share a line.
std::string usage_lines() {
    std::string text;
    std::string names;
    for (size_t i = 0; i < std::size(commands); ++i) {
        const Command &each = commands[i];
        names += std::string(names.empty() ? "" : "|") + each.name;
        if (i + 1 < std::size(commands) &&
            strcmp(commands[i + 1].arguments, each.arguments) == 0)
            continue;
        text += text.empty() ? "usage: xfcopy" : "       xfcopy " + names;
        text += std::string(" [OPTION]... ") + each.arguments + "\n";
        names.clear();
    }
    return text;
}

} // namespace

std::optional<int64_t> parse_number(std::string_view text, int64_t least,
                                    int64_t most) {
    int64_t number = 0;
    const char *const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || stop != end || number < least || number > most)
        return std::nullopt;
    return number;
}

std::optional<Oid> parse_oid(std::string_view text) {
    Oid all;
    if (text.starts_with("."))
        text.remove_prefix(1);
    for (;;) {
        const size_t dot = text.find('.');
        const auto number = parse_number(text.substr(0, dot), 0,
                                         std::numeric_limits<uint32_t>::max());
        if (!number || all.size() == most_oid)
            return std::nullopt;
        all.push_back(static_cast<oid>(*number));
        if (dot == std::string_view::npos)
            break;
        text.remove_prefix(dot + 1);
    }
    if (all.size() < 2 || all[0] > 2 || (all[0] < 2 && all[1] > 39))
        return std::nullopt;
    return all;
}

std::string parse_options(int count, char **arguments, Options &options) {
    options.root = *parse_oid(XFCOPY_ROOT);
    options.history_root = *parse_oid(XFCOPY_HISTORY_ROOT);
    Parser parser(count, arguments, options);
    std::string problem = parser.parse();
    if (!problem.empty() || options.help || options.version)
        return problem;
    problem = take_command(options, parser.given());
    return problem.empty() ? check(options) : problem;
}

std::string help_text() {
    std::string text = usage_lines();
    text += "SOURCE, DESTINATION: running, startup, fabric, all, or a URL:\n"
            "  tftp://SERVER/FILE, ftp, scp or sftp://USER@SERVER/FILE\n";
    std::vector<std::vector<std::string>> lines;
    for (const LongOption &each : long_options) {
        std::string name = std::string("  --") + each.name;
        if (each.argument != nullptr)
            name += std::string(" ") + each.argument;
        lines.push_back({name, each.help});
    }
    return text + aligned(lines) +
           "-v -c -l -u -a -A -x -X -n -t -r and more: see snmpcmd(1). All: "
           "xfcopy(1).\n";
}

} // namespace xfcopy
