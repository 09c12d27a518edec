// The running configuration as text: a tree of lines, printed with two blanks
// of indentation for each level.
#ifndef HOST_QSH_TEXT_CONFIG_H
#define HOST_QSH_TEXT_CONFIG_H

#include <functional>
#include <list>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>

#include "host/qsh/backend.h"
#include "host/qsh/commands.h"

namespace xfhost {

// Told of each line refused: its number from 1, its text, why.
using Refusal =
    std::function<void(size_t number, std::string_view line, const char *why)>;

class TextConfig {
  public:
    // Merges a text into the configuration, line by line: a line is added or
    // takes the place of the one that it contradicts; "no" and a line removes
    // it. Blank lines and lines that begin with "!" are nothing. A refused line
    // changes nothing; after most_refused of them the rest is not looked at.
    ApplyResult apply(std::string_view text, const Refusal &refusal);

    // Takes a text that was printed before. What is not understood, because it
    // is from another version or from an editor, is kept as it stands.
    void load(std::string_view text);

    std::string print() const;

  private:
    struct Block;
    struct Node {
        std::string key, text;
        std::unique_ptr<Block> block; // of a mode
    };
    struct Block {
        std::list<Node> nodes;
        std::unordered_map<std::string, std::list<Node>::iterator> by_key;
        Node &set(const Line &line);
        void remove(const std::string &key);
    };
    class Reader;
    static void print(const Block &block, size_t depth, std::string &out);
    Block top_;
};

} // namespace xfhost

#endif
