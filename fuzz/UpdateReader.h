// UpdateReader: the readers of the update client, fed from memory instead of a server.
#pragma once

#include "common/ThreadPool.h"
#include "net/update/NetAppUpdate.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace kqlib::fuzz {

/// A connection that delivers bytes of memory, so many at a time, and then ends.
class MemorySocket : public NetTCP
{
public:
    MemorySocket(const std::uint8_t* bytes, std::size_t size, std::size_t pieceSize)
        : NetTCP(NetIP::LOOKUP_ANY)
        , m_bytes(bytes)
        , m_left(size)
        , m_pieceSize(pieceSize)
    {
    }

    bool Recv(unsigned char* buf, unsigned long& len) override
    {
        len = static_cast<unsigned long>(std::min({static_cast<std::size_t>(len), m_left, m_pieceSize}));
        if (len == 0)
            return false;
        std::memcpy(buf, m_bytes, len);
        m_bytes += len;
        m_left -= len;
        return true;
    }
    bool Recv(char* buf, unsigned long& len) override { return Recv(reinterpret_cast<unsigned char*>(buf), len); }

private:
    const std::uint8_t* m_bytes;
    std::size_t m_left;
    const std::size_t m_pieceSize;
};

/// An update client of which only the readers are used: its thread never runs.
class UpdateReader : public NetAppUpdate
{
public:
    explicit UpdateReader(ThreadPool& pool)
        : NetAppUpdate(pool, FilePath(), 0, String(), String())
    {
    }
    using NetAppUpdate::RECVBUF;
    using NetAppUpdate::xParseURL;
    using NetAppUpdate::xPrepareBuffer;
    using NetAppUpdate::xReceiveHeader;
    using NetAppUpdate::xReceiveVersionFile;
};

} // namespace kqlib::fuzz
