#include "net/service/NetServiceOptions.h"

#include <limits>

namespace kqlib {

bool NetServiceOptions::SetBacklog(ULONG connections)
{
    if (connections < 1 || connections > std::numeric_limits<std::uint16_t>::max())
        return false;
    m_backlog = static_cast<std::uint16_t>(connections);
    return true;
}

} // namespace kqlib
