// HalfTLSPeer: the opposite end of TLS without a connection; the test carries its bytes, or some of them.
#pragma once

#include <memory>
#include <string>

struct ssl_st;
struct ssl_ctx_st;

namespace kqlib {
class NetTCP;
}

namespace kqlib::test {

/// Speaks TLS over memory, so that a test may deliver its bytes in pieces, stop in the middle, or never answer.
///
///     HalfTLSPeer peer(HalfTLSPeer::CLIENT, HalfTLSPeer::TLS_1_2);
///     peer.Handshake();
///     const std::string hello = peer.Give();
///
/// Ownership: its TLS connection. Threads: one at a time. Errors: a failed step of TLS makes HasFailed true.
class HalfTLSPeer
{
public:
    enum ROLE
    {
        CLIENT,
        SERVER ///< with the files of TLSFiles::sGet
    };
    enum VERSION
    {
        ANY = 0,
        TLS_1_2 = 0x0303,
        TLS_1_3 = 0x0304
    };

    explicit HalfTLSPeer(ROLE role, VERSION version = ANY);
    ~HalfTLSPeer();
    HalfTLSPeer(const HalfTLSPeer&) = delete;
    HalfTLSPeer& operator=(const HalfTLSPeer&) = delete;

    /// Before the handshake: the suites of TLS 1.2, in OpenSSL's notation.
    void OfferSuites(const char* suites);
    /// The suite that was chosen, "ECDHE-RSA-AES256-GCM-SHA384" and the like.
    std::string GetSuite() const;

    /// Bytes that came from the other end.
    void Take(const std::string& bytes);
    /// What is to be sent to the other end since the last call.
    std::string Give();

    /// Goes on with the handshake as far as what came allows. True: it is done.
    bool Handshake();
    /// The records of plain bytes; to be sent.
    std::string Encrypt(const std::string& plain);
    /// All plain bytes of what came.
    std::string Decrypt();
    /// The farewell; to be sent.
    std::string SayFarewell();
    /// The beginning of another handshake over a TLS 1.2 connection; to be sent.
    std::string Renegotiate();
    /// A demand for new keys on both sides (TLS 1.3); to be sent.
    std::string DemandNewKeys();

    bool HasFarewell() const;
    bool HasFailed() const { return m_failed; }
    /// "TLSv1.2" and the like.
    std::string GetVersion() const;
    /// The common name of the other end's certificate; empty when it showed none.
    std::string GetPeerName() const;

    /// Makes the handshake over a plain connection whose opposite end makes its own meanwhile, at most the time of
    /// WaitFor; sends size bytes at a time (0: all at once). True: done.
    bool HandshakeOver(NetTCP& connection, std::size_t size = 0);
    /// Sends bytes over the connection, all of them. False: it ended.
    static bool sSendAll(NetTCP& connection, const std::string& bytes);
    /// Receives once and decrypts; returns all that was decrypted so far.
    const std::string& ReceiveFrom(NetTCP& connection);

private:
    /// True when the result is a success; else remembers whether it was a failure or only waits.
    bool xIsDone(int result);

    std::unique_ptr<ssl_ctx_st, void (*)(ssl_ctx_st*)> m_context;
    std::unique_ptr<ssl_st, void (*)(ssl_st*)> m_ssl;
    bool m_failed = false;
    std::string m_plain;
};

} // namespace kqlib::test
