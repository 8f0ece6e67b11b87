// NetDNSWriter: the writer of a DNS message. Inside the library only.
#pragma once

#include "common/String.h"
#include "common/Types.h"
#include "platform/Export.h"

#include <cstdint>
#include <vector>

namespace kqlib {

/// Puts a message together from front to back, numbers in network order. Internal; exported for tests.
///
/// Ownership: owns its bytes. Threads: one at a time. Errors: none.
class KQNET_API NetDNSWriter
{
public:
    /// Append a number of one byte, or of two.
    ///@{
    void Write8(std::uint8_t value);
    void Write16(std::uint16_t value);
    ///@}
    /// Appends the bytes of the text, without a length or an end.
    void WriteText(const String& text);

    /// The message so far, GetLength() bytes; valid until the next write.
    ///@{
    const BYTE* GetData() const { return m_bytes.data(); }
    ULONG GetLength() const { return static_cast<ULONG>(m_bytes.size()); }
    ///@}

private:
    std::vector<BYTE> m_bytes;
};

} // namespace kqlib
