// The back end that comes with the shell: a file of lines that it understands
// itself, see text_config.h and running_config.h.
#ifndef HOST_QSH_TEXT_BACKEND_H
#define HOST_QSH_TEXT_BACKEND_H

#include "host/qsh/backend.h"

namespace xfhost {

class TextBackend : public Backend {
  public:
    bool show(std::string &text, std::string &why) override;
    bool apply(std::string_view text, ApplyResult &result, std::string &results,
               std::string &why) override;
    bool accept(std::string &why) override;
};

} // namespace xfhost

#endif
