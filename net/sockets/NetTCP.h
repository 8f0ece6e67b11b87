// NetTCP: a TCP socket, outgoing, listening or accepted, and the reception of line commands.
#pragma once

#include "net/sockets/NetSocket.h"

namespace kqlib {

/// A TCP socket in one of three roles: an outgoing connection (Connect), a listener (ListenAll, ListenSpecific) that
/// hands out connections (Accept) or becomes one (SelfAccept), or the connection of a session.
///
/// Line commands: RecvPrepForFirstCmd once per connection, then RecvTryGetCmd until it says done; handle the command;
/// RecvPrepForNextCmd; RecvTryGetCmd again. Bytes received beyond a command stay in the buffer for the next one. Before
/// raw data are read directly, RecvPurgeRemaining hands out what the buffer still holds.
///
/// Ownership: as NetSocket; Accept gives a new object to the caller. Receive buffers belong to the caller.
/// Threads: one thread at a time, no lock.
/// Errors: as NetSocket. Each step that fails closes what it had opened.
///
/// The order of the virtual functions is part of the binary interface; new ones go last.
class KQNET_API NetTCP : public NetSocket
{
public:
    /// The role that the socket is in.
    enum TCP_STATE
    {
        TS_CLOSED = 0,    ///< none; no handle
        TS_CONNECTED = 1, ///< a connection; that the peer is gone is only seen by receiving or sending
        TS_LISTENING = 2  ///< a listener
    };

    /// How the peer ended its side of a connection, as the receive that failed saw it.
    enum PEER_END
    {
        PE_NONE = 0,     ///< no receive on this connection has failed
        PE_IN_ORDER = 1, ///< in order; over TLS that is its farewell (close_notify, RFC 8446 section 6.1)
        PE_NO_FAREWELL =
            2,            ///< over TLS: in order below TLS, but without the farewell, so anybody may have cut it short
        PE_BROKEN_OFF = 3 ///< reset, ended inside a record of TLS, or any other failure: bytes may be missing
    };

    /// The receive buffer of the command reception, owned by the caller, who sets capacity and buffer and leaves the
    /// rest to the RecvPrep operations.
    struct RECVBUF
    {
        ULONG capacity;        ///< size of the byte array; at least 1
        unsigned char* buffer; ///< the byte array
        ULONG length;          ///< valid bytes in it
        ULONG position;        ///< index of the next byte not yet consumed
        bool lastWasCR;        ///< the last byte appended to the current command was CR
    };

    /// Closed. Mode as NetSocket.
    explicit NetTCP(NetIP::IPLOOKUPMODE mode);
    /// With a cache for name look-ups, which must outlive this object and every socket that it accepts.
    NetTCP(NetIP::IPLOOKUPMODE mode, NetDNSCache& cache);
    /// Closes an open handle, without the shutting down of ShutdownAndClose.
    ~NetTCP() override;

    /// Takes one waiting connection within the block time as a new connected object with this one's lookup mode and
    /// cache. Caller deletes. Null: code 46, nothing came in time and the listener is fine; 45, this object was not
    /// listening, or the listener has failed and is closed now.
    virtual NetTCP* Accept();

    /// Receives once, waiting at most the block time. len: in, room in buf (0 is not allowed: it would read as the end
    /// of the connection); out, bytes stored. True with len 0: nothing came in time, the connection is fine.
    /// False: len is 0. Code 47: was not connected. 48: failed or closed by the peer, socket now closed.
    ///@{
    virtual bool Recv(unsigned char* buf, unsigned long& len);
    virtual bool Recv(char* buf, unsigned long& len);
    ///@}
    /// Sends once, waiting at most the block time. len: in, bytes at data; out, bytes taken over by the system, often
    /// fewer. True with len 0: no room in time, the connection is fine. False: as Recv.
    ///@{
    virtual bool Send(const unsigned char* data, unsigned long& len);
    virtual bool Send(const char* data, unsigned long& len);
    ///@}

    /// Empties the receive buffer and prepares for the first command of a connection.
    virtual void RecvPrepForFirstCmd(RECVBUF& rb, String& cmd, bool& done);
    /// Goes on with the current command, receiving once (through Recv) when the buffer is used up. A command ends at
    /// CR LF, and with loneLFEnds also at an LF alone; neither is part of it. done: the command is complete in cmd.
    /// tooLong (only ever set, the caller clears it) and done: cmd has reached maxLen characters, the rest of the line
    /// stays in the buffer. The CR counts while it waits for its LF, so the longest command taken whole has maxLen - 2
    /// characters, kept on purpose. True with done false: not complete yet, call again. False: as Recv; the buffer is
    /// empty then, whatever an override of Recv said of it.
    virtual bool RecvTryGetCmd(bool loneLFEnds, unsigned long maxLen, RECVBUF& rb, String& cmd, bool& tooLong,
                               bool& done);
    /// Prepares for the next command; what is buffered stays.
    virtual void RecvPrepForNextCmd(RECVBUF& rb, String& cmd, bool& done);
    /// Hands out buffered bytes that no command consumed. len: in, room in out; out, bytes copied. more: further bytes
    /// are left, call again. With nothing buffered or no room len is 0 and more false. Always true.
    virtual bool RecvPurgeRemaining(RECVBUF& rb, unsigned char* out, unsigned long& len, bool& more);

    /// Closes; a connection is first shut down in both directions.
    virtual void ShutdownAndClose();

    /// Connects to remote:port from local:localPort (0: the system chooses) and waits until the system reports success
    /// or failure, which may take minutes. False, closed: code 40, 41 (names), 42 refused or failed, 44 local end.
    ///@{
    bool Connect(const NetIP& remote, unsigned short port, const NetIP& local, unsigned short localPort = 0);
    bool Connect(const NetIP& remote, unsigned short port);
    ///@}
    /// The same by name (or address text); an empty localHost means any address.
    bool Connect(const String& host, unsigned short port, const String& localHost = String(),
                 unsigned short localPort = 0);

    /// Listens on all IPv4 addresses (never on IPv6). Port 0: the system chooses, see GetLocalPort. False, closed:
    /// code 40, 43, 44.
    bool ListenAll(unsigned short port);
    /// Listens on one address, IPv4 or IPv6, or on that of a host name (code 41 when it cannot be resolved).
    ///@{
    bool ListenSpecific(unsigned short port, const NetIP& ip);
    bool ListenSpecific(unsigned short port, const String& host);
    ///@}

    /// How many connections may wait at a socket that listens until they are accepted; 5 at first. It counts from the
    /// next ListenAll or ListenSpecific on. A system with limits of its own applies these without a word.
    ///@{
    void SetBacklog(unsigned short connections) noexcept { m_backlog = connections; }
    unsigned short GetBacklog() const noexcept { return m_backlog; }
    ///@}

    /// Takes one waiting connection within the block time as this object itself, which stops listening. False: as
    /// Accept; with code 46 the object still listens.
    bool SelfAccept();

    /// The state, and questions for it; active means not closed.
    ///@{
    TCP_STATE GetState() const noexcept { return m_state; }
    bool IsActive() const noexcept { return m_state != TS_CLOSED; }
    bool IsConnected() const noexcept { return m_state == TS_CONNECTED; }
    bool IsListening() const noexcept { return m_state == TS_LISTENING; }
    ///@}

    /// Tells apart what Recv answers with code 48 alone: whether the peer had said everything, or was cut off. Asked
    /// after a failed receive, and still known when the socket is closed; the next connection begins with PE_NONE. A
    /// failed Send does not change it.
    PEER_END GetPeerEnd() const noexcept { return m_peerEnd; }

protected:
    void xSetStateClosed() override;
    /// Closes what is open and takes over a non-blocking handle in the given state; last error 0, addresses read.
    void xAttach(unsigned int handle, TCP_STATE state);
    /// As xAttach with handle and state of another socket, which is left closed and empty. Its addresses are taken over
    /// too: they need not be asked for again.
    void xAttachFrom(NetTCP& other);
    /// What GetPeerEnd answers. A derived class that receives by itself sets it with each failed receive.
    void xSetPeerEnd(PEER_END end) noexcept { m_peerEnd = end; }

private:
    bool xAcceptHandle(std::uint32_t& handle);

    TCP_STATE m_state = TS_CLOSED;
    PEER_END m_peerEnd = PE_NONE;
    std::uint16_t m_backlog = 5;
};

} // namespace kqlib
