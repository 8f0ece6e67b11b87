// BinaryStore: an owned byte buffer.
#pragma once

#include "common/Types.h"
#include "platform/Export.h"

#include <vector>

namespace kqlib {

/// A byte buffer with its size; copied by value. Threads: one at a time. Errors: none.
class KQCOMMON_API BinaryStore
{
public:
    /// Empty.
    BinaryStore() = default;
    /// As Set.
    BinaryStore(const void* bytes, ULONG size) { Set(bytes, size); }

    /// Replaces the content by a copy of size bytes, which may be its own.
    void Set(const void* bytes, ULONG size);
    /// Replaces the content by size bytes of zero.
    void SetZeros(ULONG size);
    /// Adds a copy of size bytes at the end; they may be its own.
    void Append(const void* bytes, ULONG size);
    /// Empties the buffer and gives its memory back.
    void ResetDeleteMemory();

    /// The bytes, valid until the content changes; may be null when there are none.
    ///@{
    const unsigned char* GetData() const { return m_bytes.data(); }
    unsigned char* GetData() { return m_bytes.data(); }
    ///@}
    /// Size in bytes.
    ULONG GetSize() const { return static_cast<ULONG>(m_bytes.size()); }

    /// Equal sizes and bytes.
    friend bool operator==(const BinaryStore& left, const BinaryStore& right) { return left.m_bytes == right.m_bytes; }

private:
    std::vector<unsigned char> m_bytes;
};

} // namespace kqlib
