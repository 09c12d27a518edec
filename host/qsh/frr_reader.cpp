#include "host/qsh/frr_reader.h"

#include <algorithm>

namespace xfhost {
namespace {

constexpr const char *blanks = " \t";
constexpr const char *under_refused = "the line that it is under was refused";
constexpr const char *shortened =
    "this opens a block, and its first words are not in full";
constexpr const char *pipe = "FRR takes what is behind \"| \" for a filter";

const char *bad_octets(std::string_view line) {
    if (line.size() > longest_frr_line)
        return "longer than 4000 octets";
    if (line.starts_with("\xef\xbb\xbf"))
        return "a byte order mark";
    bool good = std::all_of(line.begin(), line.end(), [](char c) {
        auto octet = static_cast<unsigned char>(c);
        return c == '\t' || (octet >= 0x20 && octet != 0x7f);
    });
    return good ? nullptr : "a control character";
}

std::string joined(const FrrWords &words) {
    std::string text;
    for (std::string_view word : words)
        text.append(text.empty() ? "" : " ").append(word);
    return text;
}

class Reader {
  public:
    explicit Reader(bool file_commands) : file_commands_(file_commands) {
        frames_.push_back({no_line, FrrBlock::top, 0, no_line});
    }

    void take(size_t number, std::string_view line) {
        size_t indent = line.find_first_not_of(blanks);
        if (indent == std::string_view::npos || line[indent] == '!' ||
            line[indent] == '#')
            return;
        FrrWords words = frr_words(line);
        leave_refused(indent);
        if (const char *why = bad_octets(line))
            refuse(number, indent, line.substr(indent, longest_frr_line), why);
        else if (words[0] == "quit" || words[0].starts_with("exit"))
            close(number, indent, words);
        else
            place(number, indent, words);
    }

    FrrLines lines;

  private:
    struct Frame {
        size_t line; // that opened it
        FrrBlock block;
        size_t indent;
        size_t unknown; // the last line in it that may have opened a block
    };

    // Behind a line that was refused only its indentation tells what is under
    // it.
    void leave_refused(size_t indent) {
        while (frames_.back().block == FrrBlock::none &&
               indent <= frames_.back().indent)
            frames_.pop_back();
    }

    FrrLine &add(size_t number, std::string text) {
        FrrLine line;
        line.number = number;
        line.parent = frames_.back().line;
        line.in = frames_.back().block;
        line.text = std::move(text);
        if (line.parent != no_line && !lines[line.parent].refusal.empty())
            line.refusal = under_refused;
        lines.push_back(std::move(line));
        return lines.back();
    }

    void refuse(size_t number, size_t indent, std::string_view text,
                const char *why) {
        FrrLine &line = add(number, std::string(text));
        if (line.refusal.empty())
            line.refusal = why;
        frames_.back().unknown = lines.size() - 1;
        frames_.push_back({lines.size() - 1, FrrBlock::none, indent, no_line});
    }

    void close(size_t number, size_t indent, const FrrWords &words) {
        Frame &frame = frames_.back();
        if (frame.block == FrrBlock::none)
            return; // of a block under a line that was refused
        bool closes = words.size() == 1 && frame.line != no_line &&
                      frr_closes(words[0], frame.block) &&
                      (frame.unknown == no_line || indent <= frame.indent);
        if (closes)
            frames_.pop_back();
        else if (frame.unknown != no_line)
            close_unknown(frame);
        else
            refuse(number, indent, joined(words),
                   "not in a block that this leaves");
    }

    // The line that was not known did open a block, and this was its end: what
    // stands between them was in it.
    void close_unknown(Frame &frame) {
        for (size_t i = frame.unknown; i < lines.size(); i++)
            if (lines[i].refusal.empty())
                lines[i].refusal = under_refused;
        frame.unknown = no_line;
    }

    // As vtysh does: a line that does not fit in a block belongs to the one
    // around it. Not so one that is indented as of the block: vtysh may know
    // it there, and it must not become one of another block.
    void place(size_t number, size_t indent, FrrWords words) {
        bool negated = words[0] == "no" && words.size() > 1;
        FrrWords meant(words.begin() + (negated ? 1 : 0), words.end());
        size_t depth = frames_.size();
        while (depth > 0 && !fits(frames_[depth - 1].block, meant)) {
            bool inside = depth > 1 && indent > frames_[depth - 1].indent;
            depth = inside ? 0 : depth - 1;
        }
        if (depth == 0) {
            refuse(number, indent, joined(words),
                   "not a line of configuration that is known here");
            return;
        }
        frames_.resize(depth);
        if (!negated && frr_shortened(frames_.back().block, meant)) {
            refuse(number, indent, joined(words), shortened);
            return;
        }
        FrrLine &line = add(number, joined(words));
        line.negated = negated;
        const char *forbidden =
            negated || file_commands_ ? nullptr : frr_opens_file(meant);
        if (line.text.find("| ") != std::string::npos)
            forbidden = pipe;
        if (forbidden != nullptr && line.refusal.empty()) {
            line.policy = true;
            line.refusal = forbidden;
        }
        line.opens = negated ? FrrBlock::none : frr_opens(line.in, meant);
        if (line.opens == FrrBlock::none)
            return;
        frames_.back().unknown = no_line;
        frames_.push_back({lines.size() - 1, line.opens, indent, no_line});
    }

    // Below a refused line, everything.
    static bool fits(FrrBlock block, const FrrWords &meant) {
        return block == FrrBlock::none || frr_has_word(block, meant[0]);
    }

    bool file_commands_;
    std::vector<Frame> frames_;
};

bool is_end(std::string_view line) {
    FrrWords words = frr_words(line);
    return words.size() == 1 && words[0] == "end";
}

bool is_nothing(std::string_view line) {
    size_t start = line.find_first_not_of(" \t\r");
    return start == std::string_view::npos || line[start] == '!' ||
           line[start] == '#';
}

// The text up to an `end` that nothing but comments is behind.
std::string_view without_end(std::string_view text) {
    std::string_view rest = text;
    while (!rest.empty()) {
        size_t end = rest.find_last_of('\n', rest.size() - 2);
        size_t start =
            rest.size() < 2 || end == std::string_view::npos ? 0 : end + 1;
        std::string_view line = rest.substr(start);
        line = line.substr(0, line.find_last_not_of("\r\n") + 1);
        if (is_end(line))
            return rest.substr(0, start);
        if (!is_nothing(line))
            return text;
        rest = rest.substr(0, start);
    }
    return text;
}

std::vector<std::string> chain_of(const FrrLines &lines, size_t which) {
    std::vector<std::string> chain;
    for (; which != no_line; which = lines[which].parent)
        chain.push_back(lines[which].text);
    std::reverse(chain.begin(), chain.end());
    return chain;
}

} // namespace

FrrWords frr_words(std::string_view text) {
    FrrWords words;
    for (;;) {
        size_t start = text.find_first_not_of(blanks);
        if (start == std::string_view::npos)
            return words;
        size_t end = std::min(text.find_first_of(blanks, start), text.size());
        words.push_back(text.substr(start, end - start));
        text.remove_prefix(end);
    }
}

FrrLines read_frr(std::string_view text, bool file_commands) {
    Reader reader(file_commands);
    text = without_end(text);
    for (size_t number = 1; !text.empty(); number++) {
        size_t end = std::min(text.find('\n'), text.size());
        std::string_view line = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        reader.take(number, line.substr(0, line.find_last_not_of(" \t\r") + 1));
    }
    return std::move(reader.lines);
}

void refuse_frr(FrrLines &lines, size_t which, const std::string &why) {
    lines[which].refusal = why;
    if (lines[which].opens == FrrBlock::none)
        return;
    for (size_t i = which + 1; i < lines.size(); i++)
        if (lines[i].parent != no_line && lines[i].refusal.empty() &&
            !lines[lines[i].parent].refusal.empty())
            lines[i].refusal = under_refused;
}

std::string frr_path(const FrrLines &lines, size_t which) {
    std::string path;
    for (const std::string &each : chain_of(lines, which))
        path.append(path.empty() ? "" : "\n").append(each);
    return path;
}

void FrrScript::put(const std::string &line, size_t which) {
    text.append(line).append("\n");
    lines.push_back(which);
}

// Whether a line could be taken for one of a block that a daemon may still
// stand in: vtysh tells only the daemons that a line is for. Some blocks take
// words that are not in the lists; they do not take the common headers.
bool FrrScript::ambiguous(const std::string &first) const {
    FrrWords words = frr_words(first);
    if (words[0] == "no" && words.size() > 1)
        words.erase(words.begin());
    bool header = frr_opens(FrrBlock::top, words) != FrrBlock::none &&
                  (words[0] == "router" || words[0] == "interface" ||
                   words[0] == "vrf" || words[0] == "route-map");
    return std::any_of(opened_.begin(), opened_.end(), [&](FrrBlock block) {
        return frr_has_word(block, words[0]) ||
               (!header && block != FrrBlock::route_map);
    });
}

void FrrScript::open(const FrrLine &header) {
    block_.push_back(header.text);
    if (std::find(opened_.begin(), opened_.end(), header.opens) ==
        opened_.end())
        opened_.push_back(header.opens);
}

void FrrScript::enter(const FrrLines &all, size_t parent) {
    std::vector<size_t> headers;
    for (size_t i = parent; i != no_line; i = all[i].parent)
        headers.push_back(i);
    for (; !headers.empty(); headers.pop_back()) {
        const FrrLine &header = all[headers.back()];
        put(header.text, headers.back());
        open(header);
    }
}

void FrrScript::add(const FrrLines &all, size_t which) {
    const FrrLine &line = all[which];
    std::vector<std::string> wanted = chain_of(all, line.parent);
    if (wanted != block_) {
        if (ambiguous(wanted.empty() ? line.text : wanted[0])) {
            // From any block of any daemon it leads to one where no other line
            // fits, and changes nothing. `exit` would have each daemon work
            // out its whole configuration.
            put("line vty", no_line);
            opened_.clear();
        }
        block_.clear();
        enter(all, line.parent);
    }
    put(line.text, which);
    if (line.opens != FrrBlock::none)
        open(line);
}

} // namespace xfhost
