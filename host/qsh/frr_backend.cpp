#include "host/qsh/frr_backend.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sstream>

#include <fcntl.h>

#include "host/base/record.h"
#include "host/base/startup_config.h"

namespace xfhost {
namespace {

using Names = std::vector<std::string>;

bool has(const Names &names, const std::string &name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

Names split(const std::string &text) {
    Names names;
    std::istringstream words(text);
    for (std::string word; words >> word;)
        names.push_back(word);
    return names;
}

// Those of the settings, or those of FRR's own list if it can be read.
Names expected_daemons(const Settings &settings) {
    constexpr size_t largest = 65536;
    if (!settings.frr_daemons.empty())
        return split(settings.frr_daemons);
    Fd fd(open((settings.frr_directory + "/daemons").c_str(),
               O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    std::string text;
    if (!fd || !read_whole(fd.get(), largest, text))
        return {};
    return started_daemons(text);
}

} // namespace

std::vector<std::string> started_daemons(std::string_view text) {
    Names names = {"zebra", "staticd"}; // whatever the list says
    std::istringstream lines{std::string(text)};
    for (std::string line; std::getline(lines, line);) {
        size_t end = line.find("=yes");
        std::string name = line.substr(0, end);
        bool daemon = end != std::string::npos && name.ends_with("d") &&
                      name.find_first_of("#_ \t") == std::string::npos;
        if (daemon && !has(names, name))
            names.push_back(name);
    }
    return names;
}

std::string take_printed(std::string_view out, FrrPrinted &printed) {
    for (size_t start = 0; start < out.size();) {
        size_t end = std::min(out.find('\n', start), out.size());
        std::string_view line = out.substr(start, end - start);
        for (const char *complaint : {"vtysh: ", "Warning: ", "% "})
            if (line.starts_with(complaint))
                return "vtysh said in the configuration: " +
                       quoted(line.substr(0, 200));
        start = end + 1;
    }
    if (out.empty() || out.back() != '\n')
        return "what vtysh printed has no end";
    size_t first = out.find('\n') + 1;
    size_t last = out.rfind('\n', out.size() - 2) + 1;
    std::string_view text =
        last > first ? out.substr(first, last - first) : std::string_view();
    if (!out.starts_with(' ') || out[last] != ' ')
        return "vtysh did not say which daemons answer";
    if (!text.starts_with("frr version ") ||
        text.find('\0') != std::string_view::npos)
        return "what vtysh showed is no configuration";
    if (!text.ends_with("\nend\n"))
        return "the configuration that vtysh showed has no end";
    printed = {std::string(out.substr(0, first)), std::string(text),
               std::string(out.substr(last))};
    return "";
}

bool FrrBackend::lock(std::string &why) {
    if (lock_)
        return true;
    Fd run = open_run_directory();
    if (run)
        lock_ = lock_file(run.get(), "frr.lock", true);
    if (!lock_)
        why = std::string("frr.lock in the run directory: ") + strerror(errno);
    return static_cast<bool>(lock_);
}

// Whether all that have to are among those that answered. The first time, if
// nobody has said who has to, these are the ones that have to later, too.
bool FrrBackend::whole(const std::string &answering, std::string &why) {
    Names names = split(answering);
    if (daemons_.empty())
        daemons_ = names;
    std::string missing;
    for (const std::string &each : daemons_)
        if (!has(names, each))
            missing += " " + each;
    if (!missing.empty())
        why = "FRR is not whole, no answer from" + missing;
    return missing.empty();
}

// All in one run: most of its time is that of its start. "disable" says nothing
// and goes to every daemon, so those named behind it have answered again.
bool FrrBackend::show_locked(std::string &text, std::string &why) {
    if (daemons_.empty())
        daemons_ = expected_daemons(settings_);
    VtyshEnd end =
        run_vtysh(settings_,
                  {"-c", "show daemons", "-c", "show running-config no-header",
                   "-c", "disable", "-c", "show daemons"},
                  "", settings_.vtysh_seconds);
    // A word of warning, and something may be missing.
    if (!end.good() || !end.err.empty()) {
        std::string silent = silent_daemons(settings_, daemons_);
        why = vtysh_failure(settings_, end) +
              (silent.empty() ? "" : "; no answer from " + silent);
        return false;
    }
    FrrPrinted printed;
    why = take_printed(end.out, printed);
    if (!why.empty() || !whole(printed.before, why) ||
        !whole(printed.after, why))
        return false;
    text = std::move(printed.text);
    return true;
}

bool FrrBackend::show(std::string &text, std::string &why) {
    return lock(why) && show_locked(text, why);
}

bool FrrBackend::apply(std::string_view text, ApplyResult &result,
                       std::string &results, std::string &why) {
    std::string before;
    if (!lock(why))
        return false;
    FrrApply apply(settings_, text);
    apply.start_check();
    if (!show_locked(before, why) || !all_or_nothing(before, results, why))
        return false;
    bool known = apply.run(before, why);
    std::string after;
    if (known && !show_locked(after, why))
        known = false;
    if (known) {
        apply.verify(after);
        if (settings_.apply_atomic && apply.must_go_back())
            go_back(apply, why);
        apply.report(result, results);
    }
    if (settings_.apply_atomic && (known ? apply.whole() : !apply.sent()))
        forget_before();
    if (!known)
        why =
            (apply.sent() ? "the configuration may have been applied in part: "
                          : "nothing was applied: ") +
            why;
    return known;
}

// What an earlier one has left is said, before it is lost.
bool FrrBackend::all_or_nothing(const std::string &before, std::string &results,
                                std::string &why) {
    std::string left = left_by_apply();
    if (!left.empty())
        results += left + "\n";
    if (!settings_.apply_atomic || keep_before(before))
        return true;
    why = std::string("the configuration of before cannot be kept: ") +
          strerror(errno);
    return false;
}

void FrrBackend::go_back(FrrApply &apply, std::string &why) {
    std::string restored;
    bool shown = apply.go_back(why) && show_locked(restored, why);
    apply.note_restored(shown ? restored : "", why);
}

bool FrrBackend::accept(std::string &why) {
    why = "FRR has its configuration itself, there is nothing to accept";
    return false;
}

} // namespace xfhost
