// FtpAscii: the line ends of TYPE A.
#include "hosts/ftp/FtpAscii.h"

#include <cstring>

namespace kqlib {

void FtpAscii::sToWire(const unsigned char* bytes, std::size_t size, std::string& out)
{
    const char* position = reinterpret_cast<const char*>(bytes);
    const char* const end = position + size;
    while (position != end) {
        const auto rest = static_cast<std::size_t>(end - position);
        const auto* lineEnd = static_cast<const char*>(std::memchr(position, '\n', rest));
        if (lineEnd == nullptr) {
            out.append(position, rest);
            return;
        }
        out.append(position, lineEnd).append("\r\n");
        position = lineEnd + 1;
    }
}

std::size_t FtpAscii::FromWire(unsigned char* bytes, std::size_t size)
{
    // A CR that waits from the last time stands before these bytes: they move up by one to make room for it.
    if (m_isCRWaiting) {
        std::memmove(bytes + 1, bytes, size);
        bytes[0] = '\r';
        ++size;
        m_isCRWaiting = false;
    }
    // The stretches between CRs move down as a whole; a CR goes along unless an LF follows it.
    std::size_t written = 0;
    std::size_t start = 0;
    while (start < size) {
        const auto* found = static_cast<unsigned char*>(std::memchr(bytes + start, '\r', size - start));
        std::size_t end = found == nullptr ? size : static_cast<std::size_t>(found - bytes);
        const std::size_t next = found == nullptr ? size : end + 1;
        if (found != nullptr && next == size)
            m_isCRWaiting = true;
        else if (found != nullptr && bytes[next] != '\n')
            end = next;
        std::memmove(bytes + written, bytes + start, end - start);
        written += end - start;
        start = next;
    }
    return written;
}

std::size_t FtpAscii::EndFromWire(unsigned char* bytes)
{
    if (!m_isCRWaiting)
        return 0;
    m_isCRWaiting = false;
    bytes[0] = '\r';
    return 1;
}

} // namespace kqlib
