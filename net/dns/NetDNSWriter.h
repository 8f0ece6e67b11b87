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
    /// Appends a domain name with its zero byte (RFC 1035 section 3.1). False: a label is longer than longestLabel (63
    /// by the RFC, at most 255) or empty, as by a dot at the start or the end, or two in a row; what was appended means
    /// nothing.
    [[nodiscard]] bool WriteName(const String& domain, String::size_type longestLabel);

    /// The message so far, GetLength() bytes; valid until the next write.
    ///@{
    const BYTE* GetData() const { return m_bytes.data(); }
    ULONG GetLength() const { return static_cast<ULONG>(m_bytes.size()); }
    ///@}

private:
    std::vector<BYTE> m_bytes;
};

} // namespace kqlib
