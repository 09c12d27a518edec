// What became of the last fabric-wide save at each switch, in a file that
// outlives the system manager: `<state>/fabric-results`. A switch's last line
// counts, so that each answer is one more line. A disk that is full is one of
// the things it has to tell of: it is then in the run directory, which is not
// on a disk, and that file is the newer one.
#ifndef HOST_FABRIC_RESULTS_H
#define HOST_FABRIC_RESULTS_H

#include <string>
#include <string_view>
#include <vector>

#include "host/base/files.h"

namespace xfhost {

struct FabricResult {
    std::string wwn; // 16 hexadecimal digits
    bool local = false;
    bool failed = true;
    std::string address;
    std::string text; // what went wrong, in printable ASCII
};

// The lines of the file, and back. Lines that are not understood are left out,
// and so is a last one without its end, which a crash has cut off.
std::string print_results(const std::vector<FabricResult> &results);
std::vector<FabricResult> parse_results(std::string_view text);

// Writes the file durably. False with errno set.
bool store_results(const std::vector<FabricResult> &results);

// The results of a save that is running, written as they come.
class GrowingResults {
  public:
    // Begins with these, in the place of all that there were. False with errno
    // set.
    bool begin(const std::vector<FabricResult> &results);

    // Writes durably what has become of one of them. False with errno set: they
    // have to be begun again.
    bool add(const FabricResult &result);

  private:
    Fd file_;
};

// Removes the results of an earlier save. False with errno set.
bool clear_results();

// Reads the file; no file is no results. False with errno set.
bool load_results(std::vector<FabricResult> &results);

} // namespace xfhost

#endif
