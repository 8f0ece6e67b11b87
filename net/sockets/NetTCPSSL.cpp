#include "net/sockets/NetTCPSSL.h"

#include "common/FileAccessBuf.h"
#include "common/TimedEvent.h"
#include "common/WithinMemory.h"
#include "net/sockets/OpenSSLHandles.h"
#include "net/sockets/TLSRecordSender.h"
#include "net/sockets/TLSSocketBIO.h"
#include "net/sockets/TryFor.h"
#include "platform/Clock.h"
#include "platform/Sockets.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>

namespace kqlib {

namespace {

constexpr std::uint32_t HANDSHAKE_LIMIT_MS = 30000;
constexpr std::uint32_t FAREWELL_LIMIT_MS = 30000;
constexpr std::uint32_t PAUSE_MS = 2;
constexpr const char* CIPHER_LIST = "HIGH:MEDIUM:@STRENGTH";
constexpr const char* ENCRYPTED_KEY_MARK = "DEK-Info:";

std::uint32_t Now()
{
    return static_cast<std::uint32_t>(TimedEvent::sGetNow());
}

int ToInt(unsigned long len)
{
    return static_cast<int>(std::min<unsigned long>(len, INT_MAX));
}

/// False when the file cannot be read or a line of it says that the key has a pass phrase.
bool IsPlainKeyFile(const FilePath& keyFile)
{
    FileAccessBuf file;
    if (!file.Open(keyFile, FileAccess::AM_READ, false))
        return false;
    for (String line; file.ReadLine(line);)
        if (line.StartsWithI(ENCRYPTED_KEY_MARK))
            return false;
    return true;
}

} // namespace

void NetTCPSSL::sStartSSL()
{
    OPENSSL_init_ssl(0, nullptr);
}

NetTCPSSL::NetTCPSSL(NetIP::IPLOOKUPMODE mode)
    : NetTCP(mode)
{
}

NetTCPSSL::NetTCPSSL(NetIP::IPLOOKUPMODE mode, NetDNSCache& cache)
    : NetTCP(mode, cache)
{
}

NetTCPSSL::~NetTCPSSL()
{
    xFreeSSLData(false);
    NetSocket::Close();
}

void NetTCPSSL::Close()
{
    xFreeSSLData(false);
    NetSocket::Close();
}

void NetTCPSSL::ShutdownAndClose()
{
    xFreeSSLData(true);
    NetTCP::ShutdownAndClose();
}

void NetTCPSSL::Upgrade(NetTCP& plain)
{
    if (plain.GetState() == TS_CLOSED)
        Close();
    else
        xAttachFrom(plain);
}

bool NetTCPSSL::SSLAccept(const FilePath& certFile, const FilePath& keyFile)
{
    if (!IsConnected()) {
        xSetLastError(ERR_NOT_CONNECTED);
        return false;
    }
    const OpenSSLErrorGuard errors;
    xFreeSSLData(false);
    m_context = SSL_CTX_new(TLS_server_method());
    // No connection could resume the session of another, whose context is gone: no tickets for that. Two small records
    // right after the handshake would also hold up the first reply until the peer acknowledges them.
    if (m_context == nullptr || SSL_CTX_set_num_tickets(m_context, 0) != 1 ||
        SSL_CTX_set_cipher_list(m_context, CIPHER_LIST) != 1 || !xLoadKeyPair(certFile, keyFile) || !xMakeConnection())
        return xFreeAndFail();
    return xHandshake(SSL_accept);
}

bool NetTCPSSL::SSLConnect()
{
    if (!IsConnected()) {
        xSetLastError(ERR_NOT_CONNECTED);
        return false;
    }
    const OpenSSLErrorGuard errors;
    xFreeSSLData(false);
    m_context = SSL_CTX_new(TLS_client_method());
    if (m_context == nullptr || !xMakeConnection())
        return xFreeAndFail();
    return xHandshake(SSL_connect);
}

bool NetTCPSSL::SSLEndSending()
{
    const OpenSSLErrorGuard errors;
    return IsSSLOn() && xSayFarewell();
}

/// Finishes a begun record, then says farewell; both within the limit.
bool NetTCPSSL::xSayFarewell()
{
    const std::uint32_t start = Now();
    while (std::uint32_t(Now() - start) < FAREWELL_LIMIT_MS) {
        const TLSRecordSender::OUTCOME record = m_sender->Finish();
        if (record == TLSRecordSender::OUTCOME::FAILED)
            return false;
        if (record != TLSRecordSender::OUTCOME::SENT) {
            xPause(m_waitState == WS_WANTS_READ);
            continue;
        }
        ERR_clear_error();
        const int result = SSL_shutdown(m_ssl);
        if (result >= 0) // 0: the other end has not said farewell yet
            return true;
        if (!xIsStillUnderWay(result))
            return false;
    }
    return false;
}

String NetTCPSSL::GetPeerCertificates() const
{
    if (!IsSSLOn())
        return {};
    const OpenSSLErrorGuard errors;
    const BIOHandle text(BIO_new(BIO_s_mem()));
    const CertificateHandle own(SSL_get1_peer_certificate(m_ssl));
    if (!text || !own || PEM_write_bio_X509(text.get(), own.get()) != 1)
        return {};
    // What a client sees begins with the server's own certificate; what a server sees does not hold the client's.
    const STACK_OF(X509)* const chain = SSL_get_peer_cert_chain(m_ssl);
    for (int i = 0; i < sk_X509_num(chain); ++i) {
        X509* const next = sk_X509_value(chain, i);
        if (X509_cmp(next, own.get()) != 0 && PEM_write_bio_X509(text.get(), next) != 1)
            return {};
    }
    char* bytes = nullptr;
    const long size = BIO_get_mem_data(text.get(), &bytes);
    return String(bytes, static_cast<String::size_type>(size));
}

bool NetTCPSSL::xLoadKeyPair(const FilePath& certFile, const FilePath& keyFile)
{
    // Refused rather than asked for: the mark of the older form here, the newer form by the callback below.
    if (!IsPlainKeyFile(keyFile))
        return false;
    SSL_CTX_set_default_passwd_cb(m_context, RefusePassPhrase);
    return SSL_CTX_use_certificate_chain_file(m_context, certFile.c_str()) > 0 &&
           SSL_CTX_use_PrivateKey_file(m_context, keyFile.c_str(), SSL_FILETYPE_PEM) > 0 &&
           SSL_CTX_check_private_key(m_context) != 0;
}

bool NetTCPSSL::xMakeConnection()
{
    m_ssl = SSL_new(m_context);
    BIO* bio = m_ssl != nullptr ? NewSocketBIO(xGetHandle()) : nullptr;
    if (bio == nullptr)
        return false;
    SSL_set_bio(m_ssl, bio, bio);
    // Every record that went out is reported, and the bytes that are offered again may lie elsewhere.
    SSL_set_mode(m_ssl, SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
    using OUTCOME = TLSRecordSender::OUTCOME;
    return RunWithinMemory([this] {
        m_sender = std::make_unique<TLSRecordSender>([this](const unsigned char* bytes, unsigned long& size) {
            const int moved = xWriteRecord(bytes, size);
            if (moved <= 0)
                return moved < 0 ? OUTCOME::FAILED : m_waitState == WS_WANTS_WRITE ? OUTCOME::BEGUN : OUTCOME::WAITS;
            size = static_cast<unsigned long>(moved);
            return OUTCOME::SENT;
        });
    });
}

bool NetTCPSSL::xFreeAndFail()
{
    xFreeSSLData(false);
    return false;
}

// While the handshake waits for the peer, so does this thread: at most a pause's length at a time, less when something
// comes. An end request of the thread is not looked at.
bool NetTCPSSL::xHandshake(int (*step)(ssl_st*))
{
    const std::uint32_t start = Now();
    while (std::uint32_t(Now() - start) < HANDSHAKE_LIMIT_MS) {
        ERR_clear_error();
        const int result = step(m_ssl);
        if (result == 1)
            return true;
        if (!xIsStillUnderWay(result))
            break;
    }
    return xFailAndClose(ERR_TLS);
}

/// After a call that did not succeed: waits a moment when TLS waits for the peer. False: it has failed.
bool NetTCPSSL::xIsStillUnderWay(int result)
{
    const int error = SSL_get_error(m_ssl, result);
    if (error != SSL_ERROR_WANT_READ && error != SSL_ERROR_WANT_WRITE)
        return false;
    xPause(error == SSL_ERROR_WANT_READ);
    return true;
}

/// Waits a moment, less when the socket can be read (or written) before.
void NetTCPSSL::xPause(bool forRead)
{
    if (platform::WaitSocket(xGetHandle(), forRead, PAUSE_MS) == platform::WaitResult::FAILED)
        platform::SleepMs(PAUSE_MS);
}

bool NetTCPSSL::Recv(unsigned char* buf, unsigned long& len)
{
    if (m_ssl == nullptr)
        return NetTCP::Recv(buf, len);
    // Bytes that are decrypted already show nothing to read on the socket.
    const bool tryFirst = m_waitState != WS_WANTS_READ || SSL_pending(m_ssl) > 0;
    const bool wasConnected = IsConnected();
    PEER_END end = PE_BROKEN_OFF; // so it is when waiting fails
    const bool connected = xMoveOverTLS(tryFirst, GetTryTimeMicros(), len, [&] { return xReadOnce(buf, len, end); });
    if (wasConnected && !connected)
        xSetPeerEnd(end);
    xIncreaseIn(len);
    return connected;
}

bool NetTCPSSL::Send(const unsigned char* data, unsigned long& len)
{
    if (m_ssl == nullptr)
        return NetTCP::Send(data, len);
    if (len == 0 && IsConnected())
        return true;
    // The system nearly always has room.
    return xMoveOverTLS(true, 0, len, [&] { return xWriteOnce(data, len); });
}

/// Makes one attempt and, while TLS waits for the peer, one more after waiting at most the block time for that very
/// thing: a socket that can be written says nothing about a record that is to be read first, nor the other way round.
/// tryFirst: without it the wait comes first. tryMicros: for how long attempts go on before that wait. len: out, bytes
/// moved. False: closed, with the code set. No error of OpenSSL stays in its queue: an attempt empties it, and so does
/// closing.
template <class ATTEMPT>
bool NetTCPSSL::xMoveOverTLS(bool tryFirst, unsigned long tryMicros, unsigned long& len, const ATTEMPT& attempt)
{
    if (!xIsOpenFor(IsConnected(), len))
        return false;
    const bool mayWait = GetBlockTimeMs() != 0;
    int moved = tryFirst || !mayWait ? attempt() : 0;
    if (moved == 0 && tryFirst && mayWait)
        TryFor(static_cast<std::uint32_t>(tryMicros), [&] { return (moved = attempt()) != 0; });
    if (moved == 0 && mayWait) {
        bool timedOut = false;
        if (!xApplyBlockTime(m_waitState != WS_WANTS_WRITE, timedOut))
            moved = -1;
        else if (!timedOut)
            moved = attempt();
    }
    len = static_cast<unsigned long>(std::max(moved, 0));
    if (moved >= 0)
        return true;
    ShutdownAndClose();
    xSetLastError(ERR_IO);
    return false;
}

/// As xNoteOutcome. end: of a failure only, how the peer ended.
int NetTCPSSL::xReadOnce(unsigned char* buf, unsigned long len, PEER_END& end)
{
    ERR_clear_error();
    const int result = SSL_read(m_ssl, buf, ToInt(len));
    if (result <= 0)
        end = xFindPeerEnd(result);
    return xNoteOutcome(result);
}

/// After a read that did not succeed.
NetTCP::PEER_END NetTCPSSL::xFindPeerEnd(int result) const
{
    if (SSL_get_error(m_ssl, result) == SSL_ERROR_ZERO_RETURN)
        return PE_IN_ORDER;
    if (BIO_eof(SSL_get_rbio(m_ssl)) != 1)
        return PE_BROKEN_OFF;
    // Of a record that has begun there are bytes, or at least its header, behind which the body is awaited.
    const bool isInsideRecord = SSL_has_pending(m_ssl) == 1 || std::strcmp(SSL_rstate_string(m_ssl), "RB") == 0;
    return isInsideRecord ? PE_BROKEN_OFF : PE_NO_FAREWELL;
}

/// Writes what goes out at once. Result as xNoteOutcome, of all the records together.
int NetTCPSSL::xWriteOnce(const unsigned char* data, unsigned long len)
{
    const TLSRecordSender::OUTCOME outcome = m_sender->Send(data, len);
    if (outcome == TLSRecordSender::OUTCOME::FAILED)
        return -1;
    if (len > 0)
        m_waitState = WS_NONE; // a part was taken, whatever the rest waits for
    return ToInt(len);
}

/// Writes one record. Result as xNoteOutcome.
int NetTCPSSL::xWriteRecord(const unsigned char* bytes, unsigned long len)
{
    ERR_clear_error();
    const int moved = xNoteOutcome(SSL_write(m_ssl, bytes, ToInt(len)));
    if (moved > 0)
        xIncreaseOut(static_cast<unsigned long>(moved));
    return moved;
}

/// Of one call that reads or writes: bytes moved; 0: TLS waits for the peer, for what the wait state says; -1: failed.
int NetTCPSSL::xNoteOutcome(int result)
{
    const int error = result > 0 ? SSL_ERROR_NONE : SSL_get_error(m_ssl, result);
    m_waitState = error == SSL_ERROR_WANT_READ    ? WS_WANTS_READ
                  : error == SSL_ERROR_WANT_WRITE ? WS_WANTS_WRITE
                                                  : WS_NONE;
    if (result > 0)
        return result;
    if (m_waitState != WS_NONE)
        return 0;
    ERR_clear_error(); // it has said all that is asked
    return -1;
}

void NetTCPSSL::xFreeSSLData()
{
    xFreeSSLData(false);
}

void NetTCPSSL::xFreeSSLData(bool graceful)
{
    if (m_ssl == nullptr && m_context == nullptr)
        return;
    const OpenSSLErrorGuard errors;
    if (m_ssl != nullptr && graceful) {
        const std::uint32_t start = Now();
        while (std::uint32_t(Now() - start) < FAREWELL_LIMIT_MS) {
            ERR_clear_error();
            const int result = SSL_shutdown(m_ssl);
            if (result == 1)
                break;
            if (xIsStillUnderWay(result))
                continue;
            // The usual end too: our farewell is sent and the peer's not there yet; it is not waited for. Closing comes
            // back here to free, so nothing is touched afterwards.
            NetTCP::ShutdownAndClose();
            xSetLastError(ERR_IO);
            return;
        }
    }
    ssl_st* const ssl = m_ssl;
    ssl_ctx_st* const context = m_context;
    m_ssl = nullptr;
    m_context = nullptr;
    if (ssl != nullptr) {
        m_waitState = WS_NONE;
        m_sender.reset();
        SSL_free(ssl);
    }
    if (context != nullptr)
        SSL_CTX_free(context);
}

} // namespace kqlib
