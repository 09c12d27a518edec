#include "host/transfer/scp_target.h"

#include <optional>

#include "host/base/address.h"
#include "host/transfer/transfer.h"

namespace xfhost {
namespace {

// The parts of a target whose address begins at `at`, if one does.
std::optional<Target> target_at(std::string_view text, size_t at) {
    std::string_view rest = text.substr(at + 1);
    for (size_t colon = rest.rfind(':'); colon != rest.npos;
         colon = colon == 0 ? rest.npos : rest.rfind(':', colon - 1)) {
        std::string address(rest.substr(0, colon));
        if (address.size() >= 2 && address.front() == '[' &&
            address.back() == ']')
            address = address.substr(1, address.size() - 2);
        if (is_address(address))
            return Target{std::string(text.substr(0, at)), address,
                          std::string(rest.substr(colon + 1))};
    }
    return {};
}

} // namespace

Target split_target(std::string_view text) {
    for (size_t at = text.find('@'); at != text.npos;
         at = text.find('@', at + 1))
        if (std::optional<Target> found = target_at(text, at))
            return *found;
    throw Failed(Outcome::usage, "the target is not user@address:name");
}

bool is_target(std::string_view text) {
    if (text.starts_with('/'))
        return false;
    for (size_t at = text.find('@'); at != text.npos;
         at = text.find('@', at + 1)) {
        size_t end =
            text.find_first_not_of("0123456789abcdefABCDEF.:[]", at + 1);
        size_t colon = text.substr(0, end).rfind(':');
        if (colon != text.npos && colon > at + 1)
            return true;
    }
    return false;
}

} // namespace xfhost
