#include "host/qsh/frr_apply.h"

#include <algorithm>
#include <charconv>
#include <map>

#include <arpa/inet.h>

#include "host/base/record.h"
#include "host/qsh/commands.h"

namespace xfhost {
namespace {

constexpr const char *input_file = "/dev/stdin";
constexpr size_t most_notes = 100;

// What vtysh says of one line of its file.
struct Complaint {
    size_t line = 0; // from 1; 0: of none
    bool by_daemon = false;
    std::string text;
};

std::vector<std::string> lines_of(const std::string &text) {
    std::vector<std::string> lines;
    for (size_t start = 0; start < text.size();) {
        size_t end = std::min(text.find('\n', start), text.size());
        if (end > start)
            lines.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return lines;
}

// "line 2: % Unknown command[4]: foo" or
// "line 2: Failure to communicate[13] to bgpd, line: foo".
Complaint parse_complaint(std::string_view words) {
    constexpr std::string_view begin = "line ", daemon = "Failure to comm";
    Complaint complaint;
    complaint.text = words;
    if (!words.starts_with(begin))
        return complaint;
    words.remove_prefix(begin.size());
    auto [end, error] = std::from_chars(
        words.data(), words.data() + words.size(), complaint.line);
    words.remove_prefix(static_cast<size_t>(end - words.data()));
    if (error != std::errc() || !words.starts_with(": "))
        return {0, false, complaint.text};
    words.remove_prefix(2);
    complaint.by_daemon = words.starts_with(daemon);
    if (complaint.by_daemon) {
        size_t name = std::min(words.find("] to "), words.size() - 5) + 5;
        complaint.text =
            "refused by " +
            std::string(words.substr(name, words.find(',', name) - name));
    } else {
        size_t start = words.starts_with("% ") ? 2 : 0;
        complaint.text =
            "FRR: " + std::string(words.substr(start, words.find('[') - start));
    }
    return complaint;
}

FrrWords meant_words(const FrrLine &line) {
    FrrWords words = frr_words(line.text);
    if (line.negated)
        words.erase(words.begin());
    return words;
}

// vtysh's own, or not in the configuration that is shown.
bool never_shown(const FrrLine &line) {
    std::string_view word = meant_words(line)[0];
    return line.in == FrrBlock::top &&
           (word == "frr" || word == "hostname" || word == "domainname" ||
            word == "username" || word == "banner" || word == "service");
}

std::string parent_path(const FrrLines &lines, size_t which) {
    size_t parent = lines[which].parent;
    return parent == no_line ? "" : frr_path(lines, parent) + "\n";
}

std::string masked_line(const std::string &text) {
    std::string masked;
    for (std::string_view word : frr_words(text))
        masked.append(masked.empty() ? "" : " ").append(frr_masked(word));
    return masked;
}

// Whether a word was written as `given` where FRR shows `shown`: shortened, or
// an OSPF area as a number.
bool same_word(std::string_view given, std::string_view shown) {
    if (given.empty() || given[0] < '0' || given[0] > '9')
        return shown.starts_with(given);
    struct in_addr area = {};
    std::string text(given);
    char dotted[INET_ADDRSTRLEN];
    return given == shown ||
           (text.find_first_not_of("0123456789") == std::string::npos &&
            inet_aton(text.c_str(), &area) != 0 &&
            inet_ntop(AF_INET, &area, dotted, sizeof dotted) == shown);
}

// Whether `given` is `shown` with words shortened or left out.
bool abbreviates(const std::string &given, const std::string &shown) {
    FrrWords words = frr_words(given);
    size_t found = 0;
    for (std::string_view word : frr_words(shown))
        if (found < words.size() && same_word(words[found], word))
            found++;
    return found == words.size();
}

std::string last(const std::string &text) {
    return text.substr(text.rfind(' ') + 1);
}

std::string first_word(const std::string &text) {
    return text.substr(0, text.find(' '));
}

} // namespace

std::string frr_masked(std::string_view word) {
    size_t slash = word.find('/');
    if (slash == std::string_view::npos)
        return std::string(word);
    std::string address(word.substr(0, slash));
    std::string_view length = word.substr(slash + 1);
    unsigned char octets[16];
    int family = address.find(':') != std::string::npos ? AF_INET6 : AF_INET;
    unsigned bits = 0, most = family == AF_INET ? 32 : 128;
    auto [end, error] =
        std::from_chars(length.data(), length.data() + length.size(), bits);
    if (error != std::errc() || end != length.data() + length.size() ||
        bits > most || inet_pton(family, address.c_str(), octets) != 1)
        return std::string(word);
    for (unsigned bit = bits; bit < most; bit++)
        octets[bit / 8] &= static_cast<unsigned char>(~(0x80u >> bit % 8));
    char text[INET6_ADDRSTRLEN];
    inet_ntop(family, octets, text, sizeof text);
    return std::string(text) + "/" + std::to_string(bits);
}

FrrShown::FrrShown(std::string_view text) : lines(read_frr(text, true)) {
    for (size_t i = 0; i < lines.size(); i++) {
        paths.insert(frr_path(lines, i));
        std::string parent = parent_path(lines, i);
        by_block[parent].push_back(i);
        by_end[parent + last(lines[i].text)].push_back(i);
    }
}

FrrApply::FrrApply(const Settings &settings, std::string_view text,
                   const std::string &before)
    : settings_(settings), before_text_(before), before_(before),
      lines_(read_frr(text, settings.frr_file_commands)), open_(before_.paths),
      start_(std::chrono::steady_clock::now()) {}

bool FrrApply::run(std::string &why) {
    forgive_what_is_there();
    if (!check(why))
        return false;
    stop_after_too_many();
    return (settings_.apply_atomic && refused() > 0) || send(why);
}

// A line that may not be sent does no harm if it says what is so already.
void FrrApply::forgive_what_is_there() {
    for (size_t i = 0; i < lines_.size(); i++) {
        if (!lines_[i].policy || !before_.paths.contains(frr_path(lines_, i)))
            continue;
        lines_[i].refusal.clear();
        unsent_.insert(i);
    }
}

bool FrrApply::check(std::string &why) {
    FrrScript script;
    for (size_t i = 0; i < lines_.size(); i++)
        if (lines_[i].refusal.empty() && !unsent_.contains(i))
            script.add(lines_, i);
    VtyshEnd end = run_vtysh(settings_, {"-C", "-f", input_file}, script.text,
                             settings_.vtysh_seconds);
    return take_complaints(script, end, why);
}

void FrrApply::stop_after_too_many() {
    size_t count = 0, kept = 0;
    while (kept < lines_.size() && count < most_refused)
        count += lines_[kept++].refusal.empty() ? 0 : 1;
    stopped_ = kept < lines_.size();
    lines_.resize(kept);
}

// Whether a daemon may refuse to open this block: then nothing of it may be
// sent, or it would end up in another one.
bool FrrApply::risky(size_t which) const {
    const FrrLine &line = lines_[which];
    return line.opens != FrrBlock::none && line.refusal.empty() &&
           !frr_never_refused(line.opens, frr_words(line.text)) &&
           !open_.contains(frr_path(lines_, which));
}

bool FrrApply::send(std::string &why) {
    FrrScript script;
    for (size_t i = 0; i < lines_.size(); i++) {
        if (!lines_[i].refusal.empty() || unsent_.contains(i))
            continue;
        script.add(lines_, i);
        if (!risky(i))
            continue;
        if (!send_script(script, why))
            return false;
        script = {};
        if (lines_[i].refusal.empty())
            open_.insert(frr_path(lines_, i));
    }
    return script.text.empty() || send_script(script, why);
}

int FrrApply::seconds_left() const {
    auto gone = std::chrono::duration_cast<std::chrono::seconds>(
        std::chrono::steady_clock::now() - start_);
    return std::max(1,
                    settings_.apply_seconds - static_cast<int>(gone.count()));
}

bool FrrApply::send_script(const FrrScript &script, std::string &why) {
    sent_ = true;
    VtyshEnd end =
        run_vtysh(settings_, {"-f", input_file}, script.text, seconds_left());
    return take_complaints(script, end, why);
}

bool FrrApply::take_complaints(const FrrScript &script, const VtyshEnd &end,
                               std::string &why) {
    std::vector<size_t> by_daemon;
    bool others = false;
    for (const std::string &words : lines_of(end.err)) {
        Complaint complaint = parse_complaint(words);
        size_t at = complaint.line - 1;
        size_t which = complaint.line > 0 && at < script.lines.size()
                           ? script.lines[at]
                           : no_line;
        others = others || which == no_line;
        if (which == no_line)
            notes_.push_back("vtysh said: " + quoted(words));
        else
            refuse_frr(lines_, which, complaint.text);
        if (which != no_line && complaint.by_daemon)
            by_daemon.push_back(which);
    }
    if (end.error != 0 || end.status > 128 || (end.status != 0 && others)) {
        why = vtysh_failure(settings_, end);
        return false;
    }
    // The reasons come without numbers, on the other stream.
    std::vector<std::string> reasons = lines_of(end.out);
    if (reasons.size() == by_daemon.size()) {
        for (size_t i = 0; i < reasons.size(); i++)
            lines_[by_daemon[i]].refusal += ": " + reasons[i];
        return true;
    }
    for (const std::string &reason : reasons)
        notes_.push_back("FRR said: " + quoted(reason));
    return true;
}

void FrrApply::verify(const std::string &after) {
    after_ = FrrShown(after);
    if (!sent_)
        return;
    for (size_t i = 0; i < lines_.size(); i++)
        if (lines_[i].refusal.empty() && !unsent_.contains(i) &&
            !never_shown(lines_[i]))
            verify_line(i);
}

void FrrApply::verify_line(size_t which) {
    FrrLine &line = lines_[which];
    if (line.opens != FrrBlock::none &&
        ((which + 1 < lines_.size() && lines_[which + 1].parent == which) ||
         line.opens == FrrBlock::interface || line.opens == FrrBlock::vrf ||
         line.opens == FrrBlock::line_vty))
        return; // it is not shown if nothing is in it
    std::string parent = parent_path(lines_, which);
    auto shown = [&](const std::string &text) {
        return after_.paths.contains(parent + text) ||
               after_.paths.contains(text);
    };
    if (shown(line.text) || shown(masked_line(line.text)))
        return;
    if (line.negated) {
        if (after_.paths.contains(parent + line.text.substr(3)))
            line.refusal = "still in the configuration afterwards";
        return;
    }
    if (const FrrLine *found = similar(which))
        notes_.push_back("line " + std::to_string(line.number) +
                         ": FRR has it as " + quoted(found->text));
    else
        line.refusal = "taken, but not in the configuration afterwards";
}

// A line of the same block that this one may have become. Most keep their last
// word; only so many are looked for among all lines.
const FrrLine *FrrApply::similar(size_t which) {
    std::string parent = parent_path(lines_, which);
    const std::string text = masked_line(lines_[which].text);
    if (const FrrLine *found =
            abbreviated(after_.by_end[parent + last(text)], text))
        return found;
    if (searches_++ >= most_notes)
        return nullptr;
    const std::vector<size_t> &block = after_.by_block[parent];
    if (const FrrLine *found = abbreviated(block, text))
        return found;
    for (size_t i : block)
        if (first_word(after_.lines[i].text) == first_word(text) &&
            !before_.paths.contains(frr_path(after_.lines, i)))
            return &after_.lines[i];
    return nullptr;
}

const FrrLine *FrrApply::abbreviated(const std::vector<size_t> &among,
                                     const std::string &text) const {
    for (size_t i : among)
        if (abbreviates(text, after_.lines[i].text))
            return &after_.lines[i];
    return nullptr;
}

size_t FrrApply::refused() const {
    return static_cast<size_t>(
        std::count_if(lines_.begin(), lines_.end(), [](const FrrLine &line) {
            return !line.refusal.empty();
        }));
}

bool FrrApply::must_go_back() const {
    return sent_ && refused() > 0;
}

namespace {

// Lines that lead from one configuration to another.
class Difference {
  public:
    FrrLines lines;
    FrrScript script;

    void add(const FrrLines &from, size_t which, const std::string &text) {
        FrrLine line;
        line.text = text;
        line.in = from[which].in;
        line.parent = copy_of(from, from[which].parent);
        lines.push_back(line);
        script.add(lines, lines.size() - 1);
    }

  private:
    size_t copy_of(const FrrLines &from, size_t header) {
        if (header == no_line)
            return no_line;
        std::string path = frr_path(from, header);
        auto known = headers_.find(path);
        if (known != headers_.end())
            return known->second;
        FrrLine line = from[header];
        line.parent = copy_of(from, line.parent);
        lines.push_back(line);
        return headers_[path] = lines.size() - 1;
    }

    std::map<std::string, size_t> headers_;
};

std::string opposite(const FrrLine &line) {
    if (line.negated)
        return line.text.substr(3);
    return first_word(line.text) == "description" ? "no description"
                                                  : "no " + line.text;
}

} // namespace

bool FrrApply::go_back(std::string &why) {
    Difference difference;
    for (size_t i = after_.lines.size(); i-- > 0;) {
        const FrrLine &line = after_.lines[i];
        // A block goes as one; what stands in a block inside another one goes
        // line by line, not all of them can be removed.
        bool inner = line.opens != FrrBlock::none && line.parent != no_line;
        size_t top = i;
        while (after_.lines[top].parent != no_line)
            top = after_.lines[top].parent;
        bool goes_with_block =
            top != i && !before_.paths.contains(frr_path(after_.lines, top));
        if (!inner && !goes_with_block &&
            !before_.paths.contains(frr_path(after_.lines, i)))
            difference.add(after_.lines, i, opposite(line));
    }
    for (size_t i = 0; i < before_.lines.size(); i++)
        if (!after_.paths.contains(frr_path(before_.lines, i)))
            difference.add(before_.lines, i, before_.lines[i].text);
    VtyshEnd end = run_vtysh(settings_, {"-f", input_file},
                             difference.script.text, seconds_left());
    if (end.error != 0)
        why = vtysh_failure(settings_, end);
    return end.error == 0;
}

void FrrApply::note_restored(const std::string &shown, const std::string &why) {
    FrrShown now(shown);
    if (shown.empty())
        notes_.push_back("whether the configuration of before was put back is "
                         "not known: " +
                         why);
    else if (shown == before_text_)
        notes_.push_back("the configuration of before was put back");
    else if (now.paths == before_.paths)
        notes_.push_back("the configuration of before was put back, in another "
                         "order");
    else
        notes_.push_back("the configuration of before COULD NOT be put back "
                         "whole");
}

void FrrApply::report(ApplyResult &result, std::string &results) const {
    result.lines = lines_.size();
    result.refused = refused();
    result.stopped = stopped_;
    size_t told = 0;
    for (const FrrLine &line : lines_) {
        if (line.refusal.empty())
            continue;
        if (told == 0) {
            result.first_refused = line.number;
            result.refusal = line.refusal;
        }
        if (told++ < most_refused)
            results += result_line(line.number, line.text, line.refusal);
    }
    if (told > most_refused)
        results +=
            std::to_string(told - most_refused) + " more lines were refused\n";
    if (settings_.apply_atomic && told > 0 && !sent_)
        results += "nothing was applied (apply_atomic)\n";
    for (size_t i = 0; i < std::min(notes_.size(), most_notes); i++)
        results += notes_[i] + "\n";
}

} // namespace xfhost
