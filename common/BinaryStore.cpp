#include "common/BinaryStore.h"

namespace kqlib {

void BinaryStore::Set(const void* bytes, ULONG size)
{
    const auto* first = static_cast<const unsigned char*>(bytes);
    // Made aside first: the bytes may be this buffer's own.
    m_bytes = std::vector<unsigned char>(first, first + size);
}

void BinaryStore::SetZeros(ULONG size)
{
    m_bytes.assign(size, 0);
}

void BinaryStore::Append(const void* bytes, ULONG size)
{
    const auto* first = static_cast<const unsigned char*>(bytes);
    const std::vector<unsigned char> added(first, first + size);
    m_bytes.insert(m_bytes.end(), added.begin(), added.end());
}

void BinaryStore::ResetDeleteMemory()
{
    std::vector<unsigned char>().swap(m_bytes);
}

} // namespace kqlib
