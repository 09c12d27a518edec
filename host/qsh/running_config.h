// The running configuration as a file, `running-config` of the state directory,
// and what the file has to be: `running-config.sum` has the length and a digest
// of it, so that one that a crash or a full disk has cut off is not taken for a
// whole one.
#ifndef HOST_QSH_RUNNING_CONFIG_H
#define HOST_QSH_RUNNING_CONFIG_H

#include <string>
#include <utility>

#include "host/base/files.h"

namespace xfhost {

class RunningConfig {
  public:
    // Of a state directory that is open; takes the descriptor over.
    explicit RunningConfig(Fd state) : state_(std::move(state)) {}

    // Keeps all other writers out for as long as this object lives. Waits for
    // the one that is there. False with errno set.
    bool lock();

    // Reads it; one that was never made is empty. One without a sum, of an
    // older version, counts as whole. False, and in `why` what a person is
    // told, if it cannot be read or is not what was written last.
    bool read(std::string &text, std::string &why);

    // Makes `text` the running configuration, durably: whenever the machine
    // stops, the old one or the new one is there and counts as whole. Needs the
    // lock. False with errno set; the old one is then still there.
    bool write(const std::string &text);

    // From now on the file counts as whole as it is. Needs the lock. False with
    // errno set.
    bool accept();

  private:
    Fd state_, lock_;
};

} // namespace xfhost

#endif
