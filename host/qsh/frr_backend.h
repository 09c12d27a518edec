// FRR as the back end: what its daemons run, through vtysh.
#ifndef HOST_QSH_FRR_BACKEND_H
#define HOST_QSH_FRR_BACKEND_H

#include <string>
#include <vector>

#include "host/base/files.h"
#include "host/qsh/backend.h"
#include "host/qsh/frr_apply.h"
#include "host/qsh/vtysh.h"

namespace xfhost {

class FrrBackend : public Backend {
  public:
    explicit FrrBackend(const Settings &settings) : settings_(settings) {}

    bool show(std::string &text, std::string &why) override;
    bool apply(std::string_view text, ApplyResult &result, std::string &results,
               std::string &why) override;
    bool accept(std::string &why) override;

  private:
    bool lock(std::string &why);
    bool whole(const std::string &answering, std::string &why);
    bool all_or_nothing(const std::string &before, std::string &results,
                        std::string &why);
    void go_back(FrrApply &apply, std::string &why);
    bool show_locked(std::string &text, std::string &why);

    const Settings &settings_;
    std::vector<std::string> daemons_; // that have to answer
    Fd lock_;
};

// What vtysh printed in one go: the daemons that answered, the configuration,
// and the daemons that still answered after it.
struct FrrPrinted {
    std::string before, text, after;
};

// Takes apart what vtysh printed. Returns why it is not whole; empty if it is.
std::string take_printed(std::string_view out, FrrPrinted &printed);

// The daemons that a file such as /etc/frr/daemons has FRR's service start.
std::vector<std::string> started_daemons(std::string_view text);

} // namespace xfhost

#endif
