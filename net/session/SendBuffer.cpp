#include "net/session/SendBuffer.h"

namespace kqlib {

void SendBuffer::Make(ULONG capacity)
{
    if (capacity == m_capacity)
        return;
    m_bytes = std::make_unique_for_overwrite<unsigned char[]>(capacity);
    m_capacity = capacity;
    m_fill = 0;
}

} // namespace kqlib
