#include "host/fabric/results.h"

#include <algorithm>
#include <cerrno>
#include <map>
#include <sstream>

#include <fcntl.h>
#include <unistd.h>

#include "host/base/files.h"

namespace xfhost {
namespace {

constexpr const char *file_name = "fabric-results";
constexpr size_t largest_file = size_t{16} << 20;

// A text can neither end its line nor write to somebody's terminal.
std::string printable(std::string text) {
    for (char &c : text)
        if (c < ' ' || c > '~')
            c = '?';
    return text;
}

bool parse_line(const std::string &line, FabricResult &result) {
    std::istringstream fields(line);
    std::string where, outcome;
    if (printable(line) != line ||
        !(fields >> result.wwn >> where >> outcome >> result.address) ||
        result.wwn.size() != 16 ||
        result.wwn.find_first_not_of("0123456789abcdef") != std::string::npos)
        return false;
    result.local = where == "local";
    result.failed = outcome != "done";
    std::getline(fields >> std::ws, result.text);
    return true;
}

// The file that counts. Empty with errno set.
Fd open_results(int flags) {
    Fd state = open_state_directory(), run = open_run_directory();
    if (!state || !run)
        return Fd();
    Fd file = open_private_file(run.get(), file_name, flags);
    if (!file && errno == ENOENT)
        file = open_private_file(state.get(), file_name, flags);
    return file;
}

} // namespace

std::string print_results(const std::vector<FabricResult> &results) {
    std::string out;
    for (const FabricResult &each : results)
        out += each.wwn + (each.local ? " local " : " remote ") +
               (each.failed ? "failed " : "done ") + each.address + " " +
               printable(each.text) + "\n";
    return out;
}

std::vector<FabricResult> parse_results(std::string_view text) {
    std::vector<FabricResult> results;
    std::map<std::string, size_t> places;
    std::istringstream lines{std::string(text.substr(0, text.rfind('\n') + 1))};
    std::string line;
    while (std::getline(lines, line)) {
        FabricResult result;
        if (!parse_line(line, result))
            continue;
        auto [place, first] = places.try_emplace(result.wwn, results.size());
        if (first)
            results.emplace_back();
        results[place->second] = std::move(result);
    }
    return results;
}

bool store_results(const std::vector<FabricResult> &results) {
    std::string text = print_results(results);
    Fd state = open_state_directory(), run = open_run_directory();
    if (!state || !run)
        return false;
    if (replace_durably(state.get(), file_name, text)) {
        unlinkat(run.get(), file_name, 0);
        return true;
    }
    return replace_durably(run.get(), file_name, text);
}

bool GrowingResults::begin(const std::vector<FabricResult> &results) {
    file_.reset();
    if (store_results(results))
        file_ = open_results(O_WRONLY | O_APPEND);
    return static_cast<bool>(file_);
}

bool GrowingResults::add(const FabricResult &result) {
    const bool written = file_ &&
                         write_whole(file_.get(), print_results({result})) &&
                         fdatasync(file_.get()) == 0;
    if (!written)
        file_.reset(); // perhaps half a line
    return written;
}

bool clear_results() {
    bool cleared = true;
    for (const Fd &directory : {open_state_directory(), open_run_directory()})
        cleared =
            directory &&
            (unlinkat(directory.get(), file_name, 0) == 0 || errno == ENOENT) &&
            cleared;
    return cleared;
}

bool load_results(std::vector<FabricResult> &results) {
    results.clear();
    Fd file = open_results(O_RDONLY);
    if (!file)
        return errno == ENOENT;
    std::string text;
    if (!read_whole(file.get(), largest_file, text))
        return false;
    results = parse_results(text);
    return true;
}

} // namespace xfhost
