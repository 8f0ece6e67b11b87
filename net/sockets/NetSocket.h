// NetSocket: what every socket of the library has in common.
#pragma once

#include "common/NetIP.h"
#include "net/dns/NetDNS.h"
#include "platform/Export.h"

#include <cstdint>

struct sockaddr_in;
struct sockaddr_in6;

namespace kqlib {

class NetDNSCache;
class SocketHandOver;

/// One non-blocking socket of the system with the addresses of both ends, a last-error code, two byte counters and a
/// block time; base of NetTCP (and through it NetTCPSSL) and of NetUDP, never used by itself.
///
/// A program calls sStartSockets once before and sEndSockets once after all use of sockets. A socket object has no
/// handle until a derived class opens or attaches one; Close, Detach and the destructor end that again, and the object
/// can be used anew. No operation waits longer than the block time, and with a block time of 0 none waits at all, save
/// that connecting waits until the system has decided.
///
/// Ownership: owns its handle and its resolver; borrows the cache, which must outlive this object.
/// Threads: one thread at a time, no lock.
/// Errors: nothing throws. What fails returns false and leaves its code in GetLastError; what finds the connection
/// broken also closes the socket. A later success does not clear the code.
///
/// The order of the virtual functions is part of the binary interface; new ones go last.
class KQNET_API NetSocket
{
public:
    /// The codes of GetLastError. Their texts belong to the application.
    enum ERRORCODE : int
    {
        ERR_NONE = 0,           ///< nothing failed since the handle was attached
        ERR_SOCKET = 40,        ///< no socket could be made, or the address is neither IPv4 nor IPv6
        ERR_RESOLVE = 41,       ///< a host name could not be resolved
        ERR_CONNECT = 42,       ///< an outgoing connection failed
        ERR_LISTEN = 43,        ///< the socket could not be made to listen
        ERR_BIND = 44,          ///< the local address or port could not be had
        ERR_ACCEPT = 45,        ///< accepting failed, or the socket is not listening
        ERR_NOTHING = 46,       ///< no connection was waiting within the block time
        ERR_NOT_CONNECTED = 47, ///< sending or receiving on a socket that is not connected
        ERR_IO = 48,            ///< sending or receiving failed, or the peer closed the connection
        ERR_REFUSED = 49,       ///< the peer refused an earlier datagram
        ERR_TLS = 50            ///< the TLS handshake failed or took too long
    };

    /// The longest time of trying, in microseconds.
    static constexpr unsigned long MAX_TRY_MICROS = 1000;

    /// Starts and ends the system's socket library. True when sockets can be used; each success is paired with one
    /// sEndSockets.
    ///@{
    static bool sStartSockets();
    static void sEndSockets();
    ///@}

    /// Closes an open handle.
    virtual ~NetSocket();
    NetSocket(const NetSocket&) = delete;
    NetSocket& operator=(const NetSocket&) = delete;

    /// Closes the handle if there is one (the state of the derived class becomes closed); in every case empties both
    /// addresses and sets both ports to 0. Last error, counters and block time stay.
    virtual void Close();
    /// Gives up the handle without closing it; all bits set when there is none. The object is closed afterwards, its
    /// counters stay. Caller owns the handle.
    virtual unsigned int Detach();

    /// How long one Recv, Send or Accept may wait for readiness, in milliseconds; 0 at first: no waiting at all.
    unsigned long GetBlockTimeMs() const noexcept { return m_blockTimeMs; }
    /// Takes effect with the next operation. More than 32 bits hold counts as the largest such value.
    void SetBlockTime(unsigned long ms) noexcept;
    /// For how long a receive over TCP or TLS, when there is nothing, tries again and again before it waits, in
    /// microseconds; 0 at first: it waits at once. It does so only while bytes are coming, right after a receive that
    /// brought some, and never with a block time of 0; an idle connection just waits. A wait costs a change of threads,
    /// which a reply within that time saves; trying costs the processor, so it pays with few busy peers. False: above
    /// MAX_TRY_MICROS, nothing is changed.
    ///@{
    [[nodiscard]] bool SetTryTime(unsigned long micros) noexcept;
    unsigned long GetTryTimeMicros() const noexcept { return m_tryMicros; }
    ///@}
    /// The mode given at construction. Setting it does not touch the resolver made then.
    ///@{
    NetIP::IPLOOKUPMODE GetIPLookupMode() const noexcept { return m_lookupMode; }
    void SetIPLookupMode(NetIP::IPLOOKUPMODE mode) noexcept { m_lookupMode = mode; }
    ///@}

    /// Bytes received and sent by this object in its whole life, over all its connections; they wrap at 2^32.
    ///@{
    unsigned long GetInDataBytes() const noexcept { return m_bytesIn; }
    unsigned long GetOutDataBytes() const noexcept { return m_bytesOut; }
    ///@}
    /// The ERRORCODE of the last failure.
    int GetLastError() const noexcept { return m_lastError; }

    /// The addresses of both ends while open, empty (IPv4 0.0.0.0) with port 0 otherwise; ports in host order. Only
    /// IPv4 connections have them: over IPv6 they stay empty, kept on purpose.
    ///@{
    NetIP GetLocalIP() const noexcept { return m_localIP; }
    unsigned short GetLocalPort() const noexcept { return m_localPort; }
    NetIP GetRemoteIP() const noexcept { return m_remoteIP; }
    unsigned short GetRemotePort() const noexcept { return m_remotePort; }
    ///@}
    /// True when both addresses are equal: the peer connected from the very address that it connected to. Not a test
    /// for loopback, and true as well while both are empty (a closed socket, any IPv6 connection): never let it decide
    /// about rights alone.
    bool IsLocalConnection() const noexcept { return m_localIP == m_remoteIP; }

    /// Sizes of the system's buffers of this socket in bytes, as the system reports them (it may well report more than
    /// was set); 0 without a handle.
    ///@{
    unsigned long GetBufRecvSize() const;
    unsigned long GetBufSendSize() const;
    ///@}

protected:
    /// Without a handle. The mode is stored and handed on; nothing depends on its value.
    explicit NetSocket(NetIP::IPLOOKUPMODE mode);
    /// As above, with a cache that the resolver asks first; cache must outlive this object.
    NetSocket(NetIP::IPLOOKUPMODE mode, NetDNSCache& cache);

    /// Clears the state of the derived class. Called by Close after the handle is closed, and by Detach.
    virtual void xSetStateClosed() = 0;

    /// Closes what is open and makes a new non-blocking socket, TCP or UDP, for addresses of the type. False: code 40,
    /// closed.
    bool xInitialise(bool tcp, NetIP::IPTYPE type);
    /// Waits until the handle can be read (or written), at most the block time; at once with a block time of 0, which
    /// never counts as timed out: the operation itself then tells. False: waiting failed, the connection is to be
    /// treated as broken; timedOut is not set then.
    [[nodiscard]] bool xApplyBlockTime(bool forRead, bool& timedOut);
    /// Asks the system for buffers of this size in bytes. False: no handle, or refused.
    ///@{
    bool xSetSockBufRecvSize(unsigned long bytes);
    bool xSetSockBufSendSize(unsigned long bytes);
    ///@}
    /// Resolves host, a name or the text of an address, with this socket's resolver. The mode is not used: the
    /// resolver's own one rules, kept on purpose. False: code 41, out untouched.
    [[nodiscard]] bool xConvert(NetIP::IPLOOKUPMODE mode, const String& host, NetIP& out);
    /// Between the system's form of an address and ours; ports in host order on our side. The forms into the system's
    /// structure fill it whole: family, port, 4 or 16 address bytes, everything else zero.
    ///@{
    static void xsConvert(const sockaddr_in& from, NetIP& ip, unsigned short& port);
    static void xsConvert(const sockaddr_in6& from, NetIP& ip, unsigned short& port);
    static void xsConvert(const NetIP& ip, unsigned short port, sockaddr_in& to);
    static void xsConvert(const NetIP& ip, unsigned short port, sockaddr_in6& to);
    ///@}
    /// Reads the addresses and ports of both ends from the system. Each end stays as it is when the system does not
    /// know it or it is not IPv4.
    void xSetIPData();
    /// Takes the addresses and ports of both ends over from another socket.
    void xCopyIPData(const NetSocket& from);
    /// Sets the code alone and closes nothing; ERR_NONE clears it.
    void xSetLastError(int code) noexcept { m_lastError = code; }
    /// Add to the byte counters.
    ///@{
    void xIncreaseIn(unsigned long bytes) noexcept;
    void xIncreaseOut(unsigned long bytes) noexcept;
    ///@}

    /// How bytes move: as a stream, or each datagram by itself.
    enum TRANSPORT : std::uint8_t
    {
        STREAM,  ///< TCP
        DATAGRAM ///< UDP
    };

    /// The shape of every failure that ends the socket: closes it, sets the code, returns false.
    bool xFailAndClose(int code);
    /// How every move of bytes begins: isOpen is what the derived class knows. False: len is 0, code 47.
    [[nodiscard]] bool xIsOpenFor(bool isOpen, unsigned long& len) noexcept;
    /// The handle, all bits set when there is none; stays owned by this object.
    std::uint32_t xGetHandle() const noexcept { return m_socket; }
    /// Takes over the handle (there must be none) and sets the last error to 0. Whoever connects often speaks at once:
    /// the first receive does not wait before it tries.
    void xTakeHandle(std::uint32_t handle) noexcept;
    /// The resolver made at construction, owned by this object.
    NetDNS& xGetResolver() noexcept { return m_resolver; }
    /// xInitialise, then fixes the local end. The first 4 or the 16 bytes of ip count, as the type has it, whatever the
    /// type of ip itself. forListening: as for a listener, whose address may be taken again at once. False: closed,
    /// code 40 or 44.
    bool xOpenAt(TRANSPORT transport, NetIP::IPTYPE type, const NetIP& ip, unsigned short port, bool forListening);
    /// Resolve the names of a connection to be made; an empty localHost gives the any-address of the remote's type.
    /// Closes first. False: closed, code 41.
    [[nodiscard]] bool xResolveEnds(const String& host, const String& localHost, NetIP& remote, NetIP& local);
    /// Send or receive once on an open socket and count the bytes, within the block time. len: in, bytes offered or
    /// room; out, bytes moved, 0 when nothing could be within the time. False: closed; code 49, the peer refused an
    /// earlier datagram; 48, any other failure, or the peer has closed. len is 0 then, but stays as it was when the
    /// wait for a datagram failed, kept on purpose. endedInOrder: whether the peer has closed, of a failure only.
    ///@{
    bool xSendOnce(TRANSPORT transport, const unsigned char* data, unsigned long& len);
    bool xRecvOnce(TRANSPORT transport, unsigned char* buf, unsigned long& len, bool& endedInOrder);
    ///@}

private:
    friend class SocketHandOver;

    template <class ATTEMPT>
    bool xMoveWithin(TRANSPORT transport, bool forRead, bool tryFirst, unsigned long& len, const ATTEMPT& attempt);

    NetDNS m_resolver; // set once at construction, with m_lookupMode; all others: the using thread only
    NetIP::IPLOOKUPMODE m_lookupMode;
    std::uint32_t m_socket;
    NetIP m_remoteIP;
    std::uint16_t m_remotePort = 0;
    NetIP m_localIP;
    std::uint16_t m_localPort = 0;
    std::int32_t m_lastError = ERR_NONE;
    std::uint32_t m_bytesIn = 0;
    std::uint32_t m_bytesOut = 0;
    std::uint32_t m_blockTimeMs = 0;
    std::uint32_t m_tryMicros = 0;
    SocketHandOver* m_handOver = nullptr; // owns this object until a session takes it; null: none
    bool m_recvFlowing = false; // the last receive brought bytes, so the next one need not wait first; a hint only
    bool m_sendFlowing = true;  // the last send took over all, so the next one need not wait first; a hint only
};

} // namespace kqlib
