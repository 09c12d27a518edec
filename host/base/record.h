// One line of a log file per record, whatever the texts in it.
#ifndef HOST_BASE_RECORD_H
#define HOST_BASE_RECORD_H

#include <string>
#include <string_view>

namespace xfhost {

// `text` between double quotes; quotes, backslashes and everything that is not
// printable ASCII are escaped, so that no text can end its field or line.
std::string quoted(std::string_view text);

// A checksum of a line, 8 hexadecimal digits. It finds accidents; nobody is
// meant to be kept out.
std::string line_sum(std::string_view line);

// `line` behind its checksum and a blank, and the line of such a text; empty if
// it is not whole.
std::string with_sum(std::string_view line);
std::string_view without_sum(std::string_view text);

// The text up to a separator, which is taken from `rest` with it.
std::string_view cut(std::string_view &rest, char separator);

// Now, as 2024-11-21T08:44:00Z.
std::string timestamp();

// Appends `line` and a newline to a file of the state directory with one
// write. False with errno set.
bool append_record(const char *file, const std::string &line);

} // namespace xfhost

#endif
