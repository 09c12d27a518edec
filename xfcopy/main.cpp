// xfcopy: copies a switch's configuration over SNMP.
#include <clocale>
#include <cstdio>

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

int run(const Options &options) {
    const std::string &agent = options.words.front();
    Report report(options.json, options.quiet, agent);
    std::vector<std::string> words = options.library;
    words.push_back(agent);
    Answer why;
    bool options_wrong = false;
    const auto session = Session::open(words, why, options_wrong);
    if (session == nullptr)
        return not_opened(why, options_wrong, report);
    hold_signals();
    CopyTable table(*session, options.root);
    const Status status = run_command(*session, table, options, report);
    if (fflush(stdout) != 0 || ferror(stdout) != 0) {
        perror("xfcopy: standard output");
        return static_cast<int>(status == Status::done ? Status::internal
                                                       : status);
    }
    return static_cast<int>(status);
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
