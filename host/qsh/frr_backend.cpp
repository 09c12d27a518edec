#include "host/qsh/frr_backend.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sstream>

#include <fcntl.h>

#include "host/qsh/frr_apply.h"

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

std::string frr_show_fault(std::string_view text) {
    if (!text.ends_with("\nend\n"))
        return "the configuration that vtysh showed has no end";
    for (size_t start = 0; start < text.size();) {
        size_t end = text.find('\n', start);
        std::string_view line = text.substr(start, end - start);
        for (const char *complaint : {"vtysh: ", "Warning: ", "% "})
            if (line.starts_with(complaint))
                return "vtysh said in the configuration: " +
                       std::string(line.substr(0, 200));
        start = end + 1;
    }
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

// The first time, those that answer are the ones that have to later, too.
bool FrrBackend::all_answer(std::string &why) {
    if (daemons_.empty())
        daemons_ = expected_daemons(settings_);
    Names answering = answering_daemons(settings_, why);
    if (answering.empty()) {
        std::string silent = silent_daemons(settings_, daemons_);
        if (!silent.empty())
            why += "; no answer from " + silent;
        return false;
    }
    if (daemons_.empty())
        daemons_ = answering;
    std::string missing;
    for (const std::string &each : daemons_)
        if (!has(answering, each))
            missing += " " + each;
    if (!missing.empty())
        why = "FRR is not whole, no answer from" + missing;
    return missing.empty();
}

bool FrrBackend::show_locked(std::string &text, std::string &why) {
    if (!all_answer(why))
        return false;
    VtyshEnd end = run_vtysh(settings_, {"-c", "show running-config no-header"},
                             "", settings_.vtysh_seconds);
    // A word of warning, and something may be missing.
    if (!end.good() || !end.err.empty()) {
        std::string silent = silent_daemons(settings_, daemons_);
        why = vtysh_failure(settings_, end) +
              (silent.empty() ? "" : "; no answer from " + silent);
        return false;
    }
    why = frr_show_fault(end.out);
    if (!why.empty() || !all_answer(why))
        return false;
    text = std::move(end.out);
    return true;
}

bool FrrBackend::show(std::string &text, std::string &why) {
    return lock(why) && show_locked(text, why);
}

bool FrrBackend::apply(std::string_view text, ApplyResult &result,
                       std::string &results, std::string &why) {
    std::string before;
    if (!lock(why) || !show_locked(before, why))
        return false;
    FrrApply apply(settings_, text, before);
    bool known = apply.run(why);
    std::string after;
    if (known && !show_locked(after, why))
        known = false;
    if (!known) {
        why = "the configuration may have been applied in part: " + why;
        return false;
    }
    apply.verify(after);
    if (settings_.apply_atomic && apply.must_go_back()) {
        std::string restored;
        bool shown = apply.go_back(why) && show_locked(restored, why);
        apply.note_restored(shown ? restored : "", why);
    }
    apply.report(result, results);
    return true;
}

bool FrrBackend::accept(std::string &why) {
    why = "FRR has its configuration itself, there is nothing to accept";
    return false;
}

} // namespace xfhost
