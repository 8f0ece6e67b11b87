// NetUDP: a datagram socket that talks to one peer.
#pragma once

#include "net/sockets/NetSocket.h"

namespace kqlib {

/// A datagram client: OpenClient fixes both ends, then SendClient and RecvClient move one datagram per call.
///
/// Ownership: as NetSocket. Threads: one thread at a time, no lock.
/// Errors: as NetSocket, with code 49 when the peer's system has reported that nobody serves the port; any failure of
/// sending or receiving closes the socket.
///
/// The order of the virtual functions is part of the binary interface; new ones go last.
class KQNET_API NetUDP : public NetSocket
{
public:
    /// Whether there is a peer to exchange datagrams with.
    enum UDP_STATE
    {
        US_CLOSED = 0, ///< no handle
        US_OPEN = 1    ///< both ends are fixed; whether anybody is there is unknown
    };

    /// Closed. Mode as NetSocket.
    explicit NetUDP(NetIP::IPLOOKUPMODE mode);
    /// With a cache for name look-ups, which must outlive this object.
    NetUDP(NetIP::IPLOOKUPMODE mode, NetDNSCache& cache);
    /// Closes an open handle.
    ~NetUDP() override;

    /// Opens a socket at local:localPort (0: the system chooses) that exchanges datagrams with remote:port alone.
    /// Nothing is sent. False, closed: code 40, 41 (names), 42, 44.
    ///@{
    bool OpenClient(const NetIP& remote, unsigned short port, const NetIP& local, unsigned short localPort = 0);
    bool OpenClient(const NetIP& remote, unsigned short port);
    ///@}
    /// The same by name (or address text); an empty localHost means any address.
    bool OpenClient(const String& host, unsigned short port, const String& localHost = String(),
                    unsigned short localPort = 0);

    /// Sends one datagram, waiting at most the block time. len: in, bytes at data; out, bytes sent. True with len 0: no
    /// room in time, or an empty datagram was sent. False: code 47, was not open; 48, failed; 49, an earlier datagram
    /// was refused; closed. len is 0 then, but stays as it was when the waiting itself failed, kept on purpose. So that
    /// this shows, the wait comes before every attempt.
    bool SendClient(const unsigned char* data, unsigned long& len);
    /// Receives one datagram, waiting at most the block time. len: in, room in buf; out, bytes stored. True with len 0:
    /// nothing came in time. False as SendClient; code 48 also for a datagram that is longer than the room or empty.
    bool RecvClient(unsigned char* buf, unsigned long& len);

    /// The state, and the question for it.
    ///@{
    UDP_STATE GetState() const noexcept { return m_state; }
    bool IsOpen() const noexcept { return m_state == US_OPEN; }
    ///@}

protected:
    void xSetStateClosed() override;

private:
    UDP_STATE m_state = US_CLOSED;
};

} // namespace kqlib
