#include "host/qsh/text_config.h"

#include <algorithm>
#include <vector>

namespace xfhost {

// Reads a text line by line and keeps track of the blocks that its indentation
// opens and closes.
class TextConfig::Reader {
  public:
    Reader(Block &top, bool keep_unknown) : keep_unknown_(keep_unknown) {
        frames_.push_back({&top, Mode::top, 0, true});
    }

    // Takes one line with its indentation. Returns why it was refused, or NULL.
    const char *take(std::string_view whole) {
        size_t indent = whole.find_first_not_of(" \t");
        std::string_view text = whole.substr(indent);
        while (frames_.size() > 1 &&
               indent <= frames_[frames_.size() - 1].under)
            frames_.pop_back();
        const char *error = place(indent);
        Line line;
        if (error == nullptr) {
            line = parse_line(frames_.back().mode, text);
            error = line.error;
        }
        if (error == nullptr)
            execute(line, indent);
        else
            refuse(whole, indent);
        return error;
    }

  private:
    struct Frame {
        Block *block; // NULL: of a mode that was refused
        Mode mode;
        size_t under; // indentation of the line that opened it
        bool level_known;
        size_t level = 0; // indentation of its lines
    };

    const char *place(size_t indent) {
        Frame &frame = frames_.back();
        if (frame.block == nullptr)
            return "the line that it is under was refused";
        if (!frame.level_known) {
            frame.level_known = true;
            frame.level = indent;
        }
        // Less than its neighbours, in a stored configuration: it will stand
        // among them when it is printed, so it is one of them at once.
        if (indent == frame.level || (keep_unknown_ && indent < frame.level))
            return nullptr;
        return frames_.size() == 1 ? "indented, but not in a mode"
                                   : "indentation differs in its block";
    }

    void execute(const Line &line, size_t indent) {
        Block &block = *frames_.back().block;
        if (line.negated) {
            block.remove(line.key);
            return;
        }
        Node &node = block.set(line);
        if (line.command->kind == Kind::mode)
            frames_.push_back(
                {node.block.get(), line.command->enters, indent, false});
    }

    // Lines below a refused one may belong to it: they are refused with it.
    void refuse(std::string_view whole, size_t indent) {
        if (keep_unknown_) {
            Line kept;
            kept.text = whole.substr(std::min(indent, frames_.back().level));
            kept.key = "?" + std::to_string(kept_++);
            frames_.back().block->set(kept);
        } else if (frames_.back().block != nullptr) {
            frames_.push_back({nullptr, Mode::top, indent, true});
        }
    }

    bool keep_unknown_;
    size_t kept_ = 0;
    std::vector<Frame> frames_;
};

TextConfig::Node &TextConfig::Block::set(const Line &line) {
    auto found = by_key.find(line.key);
    if (found != by_key.end()) {
        found->second->text = line.text;
        return *found->second;
    }
    nodes.push_back({line.key, line.text, nullptr});
    if (line.command != nullptr && line.command->kind == Kind::mode)
        nodes.back().block = std::make_unique<Block>();
    by_key.emplace(line.key, std::prev(nodes.end()));
    return nodes.back();
}

void TextConfig::Block::remove(const std::string &key) {
    auto found = by_key.find(key);
    if (found == by_key.end())
        return;
    nodes.erase(found->second);
    by_key.erase(found);
}

namespace {

// Calls `take` for every line that is configuration, with its number, until it
// returns false.
template <typename Take> void for_each_line(std::string_view text, Take take) {
    for (size_t number = 1; !text.empty(); number++) {
        size_t end = text.find('\n');
        std::string_view line = text.substr(0, end);
        text.remove_prefix(end == std::string_view::npos ? text.size()
                                                         : end + 1);
        size_t last = line.find_last_not_of(" \t\r");
        if (last == std::string_view::npos)
            continue;
        line = line.substr(0, last + 1);
        if (line[line.find_first_not_of(" \t")] == '!')
            continue;
        if (!take(number, line))
            return;
    }
}

} // namespace

ApplyResult TextConfig::apply(std::string_view text, const Refusal &refusal) {
    ApplyResult result;
    Reader reader(top_, false);
    for_each_line(text, [&](size_t number, std::string_view line) {
        if (result.refused == most_refused) {
            result.stopped = true;
            return false;
        }
        result.lines++;
        if (const char *why = reader.take(line)) {
            if (result.refused++ == 0) {
                result.first_refused = number;
                result.refusal = why;
            }
            refusal(number, line, why);
        }
        return true;
    });
    return result;
}

void TextConfig::load(std::string_view text) {
    Reader reader(top_, true);
    for_each_line(text, [&](size_t, std::string_view line) {
        reader.take(line);
        return true;
    });
}

void TextConfig::print(const Block &block, size_t depth, std::string &out) {
    for (const Node &node : block.nodes) {
        out.append(2 * depth, ' ').append(node.text).append("\n");
        if (node.block)
            print(*node.block, depth + 1, out);
    }
}

std::string TextConfig::print() const {
    std::string out;
    print(top_, 0, out);
    return out;
}

} // namespace xfhost
