// Reads a text for FRR before FRR does: which lines it has, in which blocks
// they stand, and what must not reach vtysh. vtysh runs what is no
// configuration as well, such as `write memory` behind an `exit` too many, and
// it gives the lines of a block that it refused to the block before.
#ifndef HOST_QSH_FRR_READER_H
#define HOST_QSH_FRR_READER_H

#include <string>
#include <string_view>
#include <vector>

#include "host/qsh/frr_words.h"

namespace xfhost {

constexpr size_t longest_frr_line = 4000; // vtysh cuts them above 4,093
constexpr size_t no_line = SIZE_MAX;

struct FrrLine {
    size_t number = 0;       // in the text, from 1
    size_t parent = no_line; // the line whose block it stands in
    FrrBlock in = FrrBlock::top;
    FrrBlock opens = FrrBlock::none;
    bool negated = false;
    bool policy = false; // refused for what it does, not for what it is
    std::string text;    // as vtysh takes it: one blank between words
    std::string refusal; // empty: good
};

using FrrLines = std::vector<FrrLine>;

// Every line but blank ones, comments, those that close a block and an `end`
// behind everything. What must not reach vtysh has a refusal, and so has what
// is under it. `file_commands`: lines that open files are good.
FrrLines read_frr(std::string_view text, bool file_commands);

// Refuses a line and everything in its block.
void refuse_frr(FrrLines &lines, size_t which, const std::string &why);

// The words of a line without "no".
FrrWords frr_words(std::string_view text);

// The lines above it and itself, from the outermost; with '\n' between them.
std::string frr_path(const FrrLines &lines, size_t which);

// A file for vtysh: the lines that are not refused and were chosen.
struct FrrScript {
    std::string text;
    std::vector<size_t> lines; // which each of its lines is, or no_line

    // Puts a line behind the others, in its block.
    void add(const FrrLines &lines, size_t which);

  private:
    void put(const std::string &line, size_t which);
    void open(const FrrLine &header);
    void enter(const FrrLines &lines, size_t parent);
    bool ambiguous(const std::string &first) const;

    std::vector<std::string> block_; // where vtysh stands
    std::vector<FrrBlock> opened_;   // where one of the daemons may stand
};

} // namespace xfhost

#endif
