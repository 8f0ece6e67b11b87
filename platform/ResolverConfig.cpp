#include "platform/ResolverConfig.h"

#include <algorithm>

namespace kqlib::platform {

void SplitServers(std::string_view value, std::vector<std::string>& servers)
{
    constexpr std::string_view SEPARATORS = " \t,;";
    value = value.substr(0, value.find('\0'));
    while (!value.empty()) {
        const std::size_t size = std::min(value.find_first_of(SEPARATORS), value.size());
        if (size > 0)
            servers.emplace_back(value.substr(0, size));
        value.remove_prefix(std::min(size + 1, value.size()));
    }
}

} // namespace kqlib::platform
