// MemorySocket: a connection whose other end is memory.
#pragma once

#include "net/sockets/NetTCP.h"
#include "platform/Sockets.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kqlib::fuzz {

/// A connected socket, of the class that its user wants, which delivers bytes of memory and then finds the connection
/// closed. What is sent is kept.
///
/// Ownership: borrows the bytes; owns the handle, which only gives the addresses of both ends. Threads: one at a time.
template <class Base> class MemorySocket : public Base
{
public:
    /// pieces: how many bytes each receive brings at most, in turn and over again; 0: nothing comes in time.
    MemorySocket(std::string_view bytes, std::vector<std::size_t> pieces,
                 std::uint32_t handle = platform::INVALID_SOCKET_HANDLE)
        : Base(NetIP::LOOKUP_ANY)
        , m_left(bytes)
        , m_pieces(std::move(pieces))
    {
        Base::xAttach(handle, NetTCP::TS_CONNECTED);
    }

    /// So many receives find that nothing came before one finds the connection closed; 0 at first.
    void SetPatience(unsigned receives) { m_patience = receives; }

    using Base::Recv;
    using Base::Send;

    bool Recv(unsigned char* buf, unsigned long& len) override
    {
        if (m_left.empty()) {
            len = 0;
            return (m_patience > 0 && m_patience-- > 0) || Base::xFailAndClose(NetSocket::ERR_IO);
        }
        const std::size_t piece = m_pieces[m_receives++ % m_pieces.size()];
        len = static_cast<unsigned long>(std::min({static_cast<std::size_t>(len), m_left.size(), piece}));
        std::memcpy(buf, m_left.data(), len);
        m_left.remove_prefix(len);
        return true;
    }
    bool Send(const unsigned char* data, unsigned long& len) override
    {
        m_sent.append(reinterpret_cast<const char*>(data), len);
        return true;
    }

    void Close() override
    {
        Base::Close();
        Base::xSetStateClosed(); // which the base leaves alone when there is no handle
    }

    const std::string& GetSent() const { return m_sent; }

private:
    std::string_view m_left;
    const std::vector<std::size_t> m_pieces;
    std::size_t m_receives = 0;
    unsigned m_patience = 0;
    std::string m_sent;
};

} // namespace kqlib::fuzz
