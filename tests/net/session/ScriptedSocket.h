// ScriptedSocket: a connected NetTCP whose receives and sends follow a script instead of the network.
#pragma once

#include "net/sockets/NetTCP.h"

#include <algorithm>
#include <cstring>
#include <deque>
#include <limits>
#include <memory>
#include <string>

namespace kqlib::test {

/// Takes over the handle of a connected socket. One thread at a time.
class ScriptedSocket : public NetTCP
{
public:
    explicit ScriptedSocket(std::unique_ptr<NetTCP> connected)
        : NetTCP(NetIP::LOOKUP_ANY)
    {
        xAttach(connected->Detach(), TS_CONNECTED);
    }

    std::deque<std::string> incoming;  ///< one piece per receive (as far as there is room); none: nothing came in time
    bool hangUpAtEnd = false;          ///< the receive after the last piece finds the connection closed
    std::deque<std::size_t> sendSizes; ///< how much each send takes at most; none: all
    std::size_t failAfterSends = std::numeric_limits<std::size_t>::max(); ///< from this send on they fail
    std::string sent;                                                     ///< everything that was taken
    std::size_t sends = 0;                                                ///< how many were tried
    std::size_t receives = 0;
    unsigned long lastRoom = 0; ///< offered to the last receive

    using NetTCP::Recv;
    using NetTCP::Send;
    using NetTCP::xSetSockBufSendSize;
    bool Recv(unsigned char* buf, unsigned long& len) override
    {
        ++receives;
        lastRoom = len;
        if (incoming.empty()) {
            len = 0;
            return !hangUpAtEnd || xFailAndClose(ERR_IO);
        }
        std::string& piece = incoming.front();
        len = std::min(len, static_cast<unsigned long>(piece.size()));
        std::memcpy(buf, piece.data(), len);
        piece.erase(0, len);
        if (piece.empty())
            incoming.pop_front();
        return true;
    }
    bool Send(const unsigned char* data, unsigned long& len) override
    {
        if (sends++ >= failAfterSends) {
            len = 0;
            return xFailAndClose(ERR_IO);
        }
        if (!sendSizes.empty()) {
            len = std::min(len, static_cast<unsigned long>(sendSizes.front()));
            sendSizes.pop_front();
        }
        sent.append(reinterpret_cast<const char*>(data), len);
        return true;
    }
};

} // namespace kqlib::test
