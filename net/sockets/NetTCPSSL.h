// NetTCPSSL: a TCP socket that can switch to TLS.
#pragma once

#include "common/FilePath.h"
#include "net/sockets/NetTCP.h"

#include <cstdint>
#include <memory>

struct ssl_st;
struct ssl_ctx_st;

namespace kqlib {

class TLSRecordSender;

/// A NetTCP over whose connection TLS can be started, at once or in the middle of a dialogue.
///
/// It begins as a plain connection, taken over from another socket by Upgrade or made by its own Connect or SelfAccept,
/// and behaves like NetTCP until SSLAccept (server) or SSLConnect (client) has succeeded. Closing ends TLS too; the
/// object can then be used anew. Each connection has a context of its own, and certificate and key are read from their
/// files at every handshake, so that a renewed certificate serves the next connection. The client does not verify the
/// server's certificate and the server asks for none: kept on purpose, hosts that need it check by other means.
/// A listening NetTCPSSL's Accept gives a plain NetTCP; use SelfAccept, or Upgrade a new object from it.
///
/// Ownership: as NetTCP; owns its TLS connection. Threads: one thread at a time. sStartSSL once before any TLS.
/// Errors: as NetTCP, and code 50: the handshake failed or took more than 30 seconds, socket now closed. What fails
/// before the handshake (files, key) answers false without a code and leaves the connection open and plain.
class KQNET_API NetTCPSSL : public NetTCP
{
public:
    using NetTCP::Recv;
    using NetTCP::Send;

    /// Starts the TLS library; once before any use of TLS. Any thread.
    static void sStartSSL();

    /// Closed, TLS off. Arguments as NetTCP.
    ///@{
    explicit NetTCPSSL(NetIP::IPLOOKUPMODE mode);
    NetTCPSSL(NetIP::IPLOOKUPMODE mode, NetDNSCache& cache);
    ///@}
    /// As Close.
    ~NetTCPSSL() override;

    /// As NetTCP while TLS is off. Over TLS, len 0 with true also means that TLS itself waits for the peer. Bytes that
    /// were decrypted already are handed out without waiting for the socket.
    bool Recv(unsigned char* buf, unsigned long& len) override;
    /// As NetTCP while TLS is off. Over TLS at most 131072 bytes go out per call. When not all were taken the caller
    /// offers the rest again, as it would anyway, in pieces of any size: what repeats the bytes of a begun record, up
    /// to 16384, counts as the same and never goes out twice. Should it offer others, the begun record is finished
    /// first.
    bool Send(const unsigned char* data, unsigned long& len) override;
    void Close() override;
    /// Ends TLS in order, which does not wait for the peer's own farewell, then as NetTCP. Over TLS the last error is
    /// 48 afterwards, kept on purpose.
    void ShutdownAndClose() override;

    /// Takes over handle, state and addresses of plain, which is left closed and empty; this object is closed first.
    /// TLS is off. A closed plain leaves both closed.
    void Upgrade(NetTCP& plain);
    /// True while connected with TLS on.
    bool IsSSLOn() const noexcept { return IsConnected() && m_ssl != nullptr; }

    /// Server side: reads certificate chain and key (PEM, without a pass phrase; one that has it is refused) and makes
    /// the handshake, at most 30 seconds. Code 47: not connected. 50: see above.
    bool SSLAccept(const FilePath& certFile, const FilePath& keyFile);
    /// Client side: makes the handshake, at most 30 seconds. Codes as SSLAccept.
    bool SSLConnect();
    /// Tells the other end that nothing more will be sent, and leaves the connection open for what that end still has
    /// to say; nothing may be sent afterwards. Who sends much and then closes does this first and receives until the
    /// end: closing with bytes of the other end's TLS unread breaks the connection off, and on some systems loses what
    /// is still on its way. Close is the right end afterwards: ShutdownAndClose would wait for the other end's
    /// farewell, up to 30 seconds. A record that Send has begun is finished first. False: TLS is off, or the farewell
    /// could not be sent within 30 seconds.
    bool SSLEndSending();
    /// The certificates that the other end showed in the handshake, its own first, as PEM text one after the other;
    /// empty when TLS is off or it showed none. Nothing has verified them: that is the host's part, before it trusts
    /// the connection with anything.
    String GetPeerCertificates() const;

protected:
    /// What the last Recv or Send over TLS came to; a Send that took a part of its bytes has moved bytes.
    enum WAIT_STATE : std::int32_t
    {
        WS_NONE = 0,       ///< bytes were moved, or it failed; also before the first call
        WS_WANTS_READ = 1, ///< TLS must read before it can go on
        WS_WANTS_WRITE = 2 ///< TLS must write before it can go on
    };
    /// WS_NONE while TLS is off.
    WAIT_STATE xGetWaitState() const noexcept { return m_waitState; }

    /// As xFreeSSLData(false).
    void xFreeSSLData();
    /// Ends the TLS connection and frees it; graceful: says farewell to the peer first. Where that fails the socket is
    /// shut down and closed, code 48.
    void xFreeSSLData(bool graceful);

private:
    bool xLoadKeyPair(const FilePath& certFile, const FilePath& keyFile);
    bool xMakeConnection();
    bool xFreeAndFail();
    bool xHandshake(int (*step)(ssl_st*));
    bool xIsStillUnderWay(int result);
    void xPause(bool forRead);
    template <class ATTEMPT>
    bool xMoveOverTLS(bool tryFirst, unsigned long tryMicros, unsigned long& len, const ATTEMPT& attempt);
    int xReadOnce(unsigned char* buf, unsigned long len, PEER_END& end);
    PEER_END xFindPeerEnd(int result) const;
    int xWriteOnce(const unsigned char* data, unsigned long len);
    int xWriteRecord(const unsigned char* bytes, unsigned long len);
    bool xSayFarewell();
    int xNoteOutcome(int result);

    ssl_st* m_ssl = nullptr; // the using thread only, as everything here
    ssl_ctx_st* m_context = nullptr;
    WAIT_STATE m_waitState = WS_NONE;
    std::unique_ptr<TLSRecordSender> m_sender; // there is one exactly while there is m_ssl
};

} // namespace kqlib
