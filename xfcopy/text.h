// Text for people and programs. What an agent or a server sent may hold
// anything: nothing of it reaches a terminal but what can be printed.
#ifndef XFCOPY_TEXT_H
#define XFCOPY_TEXT_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace xfcopy {

// What a text begins with: a character of UTF-8, or an octet that is none.
struct Character {
    char32_t code;
    size_t octets;
    bool valid;
};

// The first character of a text that is not empty.
Character first_character(std::string_view text);

// A text as the terminal's locale can print it: what cannot be printed, or
// changes the direction of writing, becomes \xNN or \u{N}, a backslash two.
std::string shown(std::string_view text);

// The columns that a text made by `shown` takes.
size_t width(std::string_view text);

// The beginning of such a text that fits in so many columns; "..." at its end
// tells that there was more.
std::string fitted(std::string_view text, size_t columns);

// Lines of a table with aligned columns, two blanks between them; the cells
// are made by `shown`. Each line ends with a newline. `widths` are those of the
// columns so far, for a table that is printed in pieces.
using TableLines = std::vector<std::vector<std::string>>;
std::string aligned(const TableLines &lines);
std::string aligned(const TableLines &lines, std::vector<size_t> &widths);

// "5.2 s", from hundredths of a second.
std::string seconds_text(uint64_t hundredths);

// An object of JSON on one line, its keys in the order of the calls. Octets
// that are no UTF-8 become U+FFFD.
class JsonObject {
  public:
    JsonObject &text(const char *key, std::string_view value);
    JsonObject &number(const char *key, int64_t value);
    JsonObject &seconds(const char *key, uint64_t hundredths);
    JsonObject &boolean(const char *key, bool value);
    JsonObject &null(const char *key);
    std::string line() const {
        return "{" + members_ + "}\n";
    }

  private:
    JsonObject &member(const char *key, const std::string &value);
    std::string members_;
};

// A string of JSON, with its quotes.
std::string json_string(std::string_view text);

} // namespace xfcopy

#endif
