// xfcopy: copies a switch's configuration over SNMP.
#include <clocale>
#include <cstdio>
#include <cstring>
#include <memory>

#include <sys/resource.h>

#include "xfcopy/commands.h"
#include "xfcopy/copy.h"
#include "xfcopy/signals.h"
#include "xfcopy/text.h"

using namespace xfcopy;

namespace {

int usage(const std::string &problem) {
    fprintf(stderr, "xfcopy: %s (xfcopy --help)\n", problem.c_str());
    return static_cast<int>(Status::usage);
}

// What the library could not begin with. It has said itself what is wrong with
// an option.
int not_opened(const Answer &why, bool options_wrong, Report &report) {
    if (options_wrong)
        return usage("Net-SNMP does not take its options");
    const Outcome outcome = answer_words(why);
    report.end(outcome);
    return static_cast<int>(outcome.status);
}

std::unique_ptr<Session> open_session(const Options &options, Report &report,
                                      int &status) {
    std::vector<std::string> words = options.library;
    words.push_back(options.words.front());
    Answer why;
    bool options_wrong = false;
    auto session = Session::open(words, why, options_wrong);
    for (std::string &each : words)
        explicit_bzero(each.data(), each.size());
    if (session == nullptr)
        status = not_opened(why, options_wrong, report);
    return session;
}

int written(Status status) {
    if (fflush(stdout) == 0 && ferror(stdout) == 0)
        return static_cast<int>(status);
    perror("xfcopy: standard output");
    return static_cast<int>(status == Status::done ? Status::internal : status);
}

int run(const Options &options) {
    Report report(options.json, options.quiet, options.words.front());
    const bool copies = options.command == copy_command;
    CopyRequest request;
    if (copies)
        if (const auto wrong = take_request(options, request)) {
            report.end(*wrong);
            return static_cast<int>(wrong->status);
        }
    int status = 0;
    const auto session = open_session(options, report, status);
    if (session == nullptr)
        return status;
    hold_signals();
    CopyTable table(*session, options.root);
    History history(*session, options.history_root);
    return written(copies ? copy(*session, table, history, options,
                                 std::move(request), report)
                          : run_command(table, history, options, report));
}

} // namespace

int main(int count, char **arguments) {
    setlocale(LC_CTYPE, "");
    // No file of this process's memory is to hold a password.
    const rlimit none = {0, 0};
    setrlimit(RLIMIT_CORE, &none);
    Options options;
    const std::string problem =
        parse_options(count - 1, arguments + 1, options);
    if (!problem.empty())
        return usage(problem);
    if (options.help)
        return fputs(help_text().c_str(), stdout) < 0 ? 1 : 0;
    if (options.version)
        return puts("xfcopy " XFCOPY_VERSION) < 0 ? 1 : 0;
    return run(options);
}
