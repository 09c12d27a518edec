#include "host/qsh/backend.h"

#include "host/base/record.h"
#include "host/qsh/commands.h"
#include "host/qsh/frr_backend.h"
#include "host/qsh/text_backend.h"

namespace xfhost {

std::unique_ptr<Backend> make_backend(const Settings &settings) {
    if (settings.backend == "frr")
        return std::make_unique<FrrBackend>(settings);
    return std::make_unique<TextBackend>();
}

std::string result_line(size_t number, std::string_view line,
                        std::string_view why) {
    return "line " + std::to_string(number) + ": " + std::string(why) + ": " +
           quoted(line.substr(0, longest_line)) + "\n";
}

} // namespace xfhost
