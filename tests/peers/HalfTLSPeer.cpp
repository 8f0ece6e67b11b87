#include "tests/peers/HalfTLSPeer.h"

#include "net/sockets/NetTCP.h"
#include "tests/peers/TLSFiles.h"
#include "tests/peers/WaitFor.h"

#include <algorithm>
#include <openssl/err.h>
#include <openssl/ssl.h>

namespace kqlib::test {

HalfTLSPeer::HalfTLSPeer(ROLE role, VERSION version)
    : m_context(SSL_CTX_new(TLS_method()), SSL_CTX_free)
    , m_ssl(nullptr, SSL_free)
{
    SSL_CTX_set_min_proto_version(m_context.get(), version);
    SSL_CTX_set_max_proto_version(m_context.get(), version);
    if (role == SERVER) {
        const TLSFiles& files = TLSFiles::sGet();
        m_failed = SSL_CTX_use_certificate_chain_file(m_context.get(), files.GetCert().c_str()) != 1 ||
                   SSL_CTX_use_PrivateKey_file(m_context.get(), files.GetKey().c_str(), SSL_FILETYPE_PEM) != 1;
    }
    m_ssl.reset(SSL_new(m_context.get()));
    SSL_set_bio(m_ssl.get(), BIO_new(BIO_s_mem()), BIO_new(BIO_s_mem()));
    if (role == SERVER)
        SSL_set_accept_state(m_ssl.get());
    else
        SSL_set_connect_state(m_ssl.get());
}

HalfTLSPeer::~HalfTLSPeer() = default;

void HalfTLSPeer::OfferSuites(const char* suites)
{
    m_failed = SSL_set_cipher_list(m_ssl.get(), suites) != 1 || m_failed;
}

std::string HalfTLSPeer::GetSuite() const
{
    return SSL_get_cipher_name(m_ssl.get());
}

void HalfTLSPeer::Take(const std::string& bytes)
{
    if (!bytes.empty())
        BIO_write(SSL_get_rbio(m_ssl.get()), bytes.data(), static_cast<int>(bytes.size()));
}

std::string HalfTLSPeer::Give()
{
    BIO* const out = SSL_get_wbio(m_ssl.get());
    std::string bytes(BIO_ctrl_pending(out), '\0');
    if (!bytes.empty())
        BIO_read(out, bytes.data(), static_cast<int>(bytes.size()));
    return bytes;
}

bool HalfTLSPeer::xIsDone(int result)
{
    if (result > 0)
        return true;
    const int error = SSL_get_error(m_ssl.get(), result);
    if (error != SSL_ERROR_WANT_READ && error != SSL_ERROR_WANT_WRITE && error != SSL_ERROR_ZERO_RETURN)
        m_failed = true;
    return false;
}

bool HalfTLSPeer::Handshake()
{
    ERR_clear_error();
    return xIsDone(SSL_do_handshake(m_ssl.get()));
}

std::string HalfTLSPeer::Encrypt(const std::string& plain)
{
    ERR_clear_error();
    xIsDone(SSL_write(m_ssl.get(), plain.data(), static_cast<int>(plain.size())));
    return Give();
}

std::string HalfTLSPeer::Decrypt()
{
    std::string plain;
    char buffer[16384];
    for (;;) {
        ERR_clear_error();
        const int got = SSL_read(m_ssl.get(), buffer, sizeof(buffer));
        if (!xIsDone(got))
            return plain;
        plain.append(buffer, static_cast<std::size_t>(got));
    }
}

std::string HalfTLSPeer::SayFarewell()
{
    ERR_clear_error();
    SSL_shutdown(m_ssl.get());
    return Give();
}

std::string HalfTLSPeer::Renegotiate()
{
    ERR_clear_error();
    SSL_renegotiate(m_ssl.get());
    xIsDone(SSL_do_handshake(m_ssl.get()));
    return Give();
}

std::string HalfTLSPeer::DemandNewKeys()
{
    ERR_clear_error();
    SSL_key_update(m_ssl.get(), SSL_KEY_UPDATE_REQUESTED);
    xIsDone(SSL_do_handshake(m_ssl.get()));
    return Give();
}

bool HalfTLSPeer::HasFarewell() const
{
    return (SSL_get_shutdown(m_ssl.get()) & SSL_RECEIVED_SHUTDOWN) != 0;
}

std::string HalfTLSPeer::GetVersion() const
{
    return SSL_get_version(m_ssl.get());
}

std::string HalfTLSPeer::GetPeerName() const
{
    char name[256] = "";
    const X509* const certificate = SSL_get0_peer_certificate(m_ssl.get());
    if (certificate != nullptr)
        X509_NAME_get_text_by_NID(X509_get_subject_name(certificate), NID_commonName, name, sizeof(name));
    return name;
}

bool HalfTLSPeer::HandshakeOver(NetTCP& connection, std::size_t size)
{
    return WaitFor([&] {
               const bool done = Handshake();
               const std::string bytes = Give();
               const std::size_t step = size != 0 ? size : std::max<std::size_t>(bytes.size(), 1);
               for (std::size_t begin = 0; begin < bytes.size(); begin += step)
                   if (!sSendAll(connection, bytes.substr(begin, step)))
                       return true;
               if (!done && !m_failed)
                   ReceiveFrom(connection);
               return done || m_failed || !connection.IsConnected();
           }) &&
           SSL_is_init_finished(m_ssl.get()) == 1;
}

bool HalfTLSPeer::sSendAll(NetTCP& connection, const std::string& bytes)
{
    std::size_t sent = 0;
    return WaitFor([&] {
               unsigned long len = bytes.size() - sent;
               if (len > 0 && !connection.Send(bytes.data() + sent, len))
                   return true;
               sent += len;
               return sent == bytes.size();
           }) &&
           sent == bytes.size();
}

const std::string& HalfTLSPeer::ReceiveFrom(NetTCP& connection)
{
    std::string bytes(65536, '\0');
    unsigned long len = bytes.size();
    if (connection.Recv(bytes.data(), len) && len > 0) {
        Take(bytes.substr(0, len));
        if (SSL_is_init_finished(m_ssl.get()) == 1)
            m_plain += Decrypt();
    }
    return m_plain;
}

} // namespace kqlib::test
