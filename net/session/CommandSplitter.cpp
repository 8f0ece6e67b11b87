#include "net/session/CommandSplitter.h"

#include <algorithm>
#include <cstring>

namespace kqlib {

namespace {

constexpr unsigned char CR = 13;
constexpr unsigned char LF = 10;

} // namespace

CommandSplitter::RESULT CommandSplitter::Split(NetTCP::RECVBUF& buffer, String& command) const
{
    while (buffer.position < buffer.length) {
        const unsigned char* const next = buffer.buffer + buffer.position;
        if (*next == LF && (buffer.lastWasCR || m_endIncludesLF)) {
            if (buffer.lastWasCR && !command.empty())
                command.pop_back();
            buffer.lastWasCR = false;
            ++buffer.position;
            return RESULT::COMMAND;
        }
        // All bytes up to the next LF at once, as far as there is room; at least this one, an LF that ends nothing too.
        const ULONG room = m_maxSize > command.size() ? m_maxSize - static_cast<ULONG>(command.size()) : 1;
        ULONG count = std::min(room, buffer.length - buffer.position);
        if (const void* const end = std::memchr(next + 1, LF, count - 1))
            count = static_cast<ULONG>(static_cast<const unsigned char*>(end) - next);
        command.append(reinterpret_cast<const char*>(next), count);
        buffer.lastWasCR = next[count - 1] == CR;
        buffer.position += count;
        // A CR that fills the command up stays in it, and still counts for an LF behind it: kept on purpose.
        if (command.size() >= m_maxSize)
            return RESULT::OVERSIZED;
    }
    return RESULT::INCOMPLETE;
}

bool CommandSplitter::HoldsWhole(const NetTCP::RECVBUF& buffer) const
{
    if (buffer.position >= buffer.length)
        return false;
    if (buffer.length - buffer.position >= m_maxSize)
        return true; // so many bytes are a command, whether its line has ended or not
    const unsigned char* const first = buffer.buffer + buffer.position;
    const unsigned char* const end = buffer.buffer + buffer.length;
    for (const unsigned char* next = first;; ++next) {
        next = static_cast<const unsigned char*>(std::memchr(next, LF, static_cast<std::size_t>(end - next)));
        if (next == nullptr)
            return false;
        const bool isAfterCR = next == first ? buffer.lastWasCR : next[-1] == CR;
        if (isAfterCR || m_endIncludesLF)
            return true;
    }
}

} // namespace kqlib
