#include "host/qsh/text_backend.h"

#include <cerrno>
#include <cstring>

#include "host/qsh/running_config.h"
#include "host/qsh/text_config.h"

namespace xfhost {
namespace {

bool fail(std::string &why, const char *what) {
    why = std::string(what) + ": " + strerror(errno);
    return false;
}

} // namespace

bool TextBackend::show(std::string &text, std::string &why) {
    Fd state = open_state_directory();
    if (!state)
        return fail(why, "state directory");
    return RunningConfig(std::move(state)).read(text, why);
}

bool TextBackend::apply(std::string_view text, ApplyResult &result,
                        std::string &results, std::string &why) {
    Fd state = open_state_directory();
    if (!state)
        return fail(why, "state directory");
    RunningConfig running(std::move(state));
    std::string before;
    if (!running.lock())
        return fail(why, "running-config.lock");
    if (!running.read(before, why))
        return false;
    TextConfig config;
    config.load(before);
    result = config.apply(
        text, [&](size_t number, std::string_view line, const char *reason) {
            results += result_line(number, line, reason);
        });
    return result.refused == result.lines || running.write(config.print()) ||
           fail(why, "running-config");
}

// What somebody asks for who has looked at it.
bool TextBackend::accept(std::string &why) {
    Fd state = open_state_directory();
    if (!state)
        return fail(why, "state directory");
    RunningConfig running(std::move(state));
    return (running.lock() && running.accept()) || fail(why, "running-config");
}

} // namespace xfhost
