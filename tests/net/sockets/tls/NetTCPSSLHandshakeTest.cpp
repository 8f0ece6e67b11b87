// Tests of the handshakes of NetTCPSSL: files, keys, versions, codes.
#include "tests/net/sockets/tls/TLSFixture.h"

#include "tests/peers/CountedAsking.h"
#include "tests/peers/PrivateMember.h"

#include <openssl/err.h>
#include <openssl/ssl.h>
#include <vector>

namespace kqlib::test {

struct ServerContext
{
    friend ssl_ctx_st* NetTCPSSL::*GetPrivateMember(ServerContext);
};
template struct PrivateMember<ServerContext, &NetTCPSSL::m_context>;

namespace {

std::vector<std::string> SuiteNames(const STACK_OF(SSL_CIPHER) * suites)
{
    std::vector<std::string> names;
    for (int i = 0; i < sk_SSL_CIPHER_num(suites); ++i)
        names.emplace_back(SSL_CIPHER_get_name(sk_SSL_CIPHER_value(suites, i)));
    return names;
}

class NetTCPSSLHandshake : public TLSFixture
{
protected:
    /// The handshake fails before it begins: no code, the connection open and plain, and TLS can still be started.
    void ExpectRefused(const FilePath& cert, const FilePath& key)
    {
        Connect();
        const CountedAsking asking;
        EXPECT_FALSE(m_server.SSLAccept(cert, key));
        EXPECT_EQ(CountedAsking::sGetCount(), 0) << "a pass phrase is never asked for";
        EXPECT_EQ(m_server.GetLastError(), NetSocket::ERR_NONE);
        EXPECT_TRUE(m_server.IsConnected());
        EXPECT_FALSE(m_server.IsSSLOn());
        EXPECT_EQ(ERR_peek_error(), 0UL);
        ExpectTalk(m_client, m_server);
        Secure();
        ExpectTalk(m_client, m_server);
    }
};

TEST_F(NetTCPSSLHandshake, BothEnds_OnAfterwardsAndTalking)
{
    EXPECT_FALSE(m_server.IsSSLOn());
    ExpectTalk(m_client, m_server);
    Secure();
    EXPECT_TRUE(m_server.IsSSLOn());
    EXPECT_TRUE(m_client.IsSSLOn());
    EXPECT_EQ(m_server.xGetWaitState(), TestTCPSSL::WS_NONE);
    ExpectTalk(m_client, m_server);
    EXPECT_EQ(m_server.GetInDataBytes(), 10U); // plain bytes, not those on the wire
    EXPECT_EQ(m_server.GetOutDataBytes(), 16U);
}

TEST_F(NetTCPSSLHandshake, GetPeerCertificates_ClientAndServer_WhatTheOtherEndShowed)
{
    EXPECT_EQ(m_client.GetPeerCertificates(), "");
    Secure();
    EXPECT_EQ(m_client.GetPeerCertificates(), m_files.ReadFile(m_files.GetCert()));
    EXPECT_EQ(m_server.GetPeerCertificates(), "") << "the client has no certificate to show";
    m_client.Close();
    EXPECT_EQ(m_client.GetPeerCertificates(), "");
}

TEST_F(NetTCPSSLHandshake, ServerOverBothVersions_Done)
{
    for (const auto& [version, name] : {std::pair(HalfTLSPeer::TLS_1_2, "TLSv1.2"), {HalfTLSPeer::TLS_1_3, "TLSv1.3"}})
    {
        Connect();
        HalfTLSPeer peer(HalfTLSPeer::CLIENT, version);
        SecureWith(peer);
        EXPECT_EQ(peer.GetVersion(), name);
        EXPECT_EQ(peer.GetPeerName(), "localhost");
    }
}

TEST_F(NetTCPSSLHandshake, ClientOverBothVersions_Done)
{
    for (const auto version : {HalfTLSPeer::TLS_1_2, HalfTLSPeer::TLS_1_3}) {
        Connect();
        HalfTLSPeer peer(HalfTLSPeer::SERVER, version);
        SecureClientWith(peer);
        EXPECT_EQ(peer.GetPeerName(), "") << "the client has no certificate to show";
    }
}

TEST_F(NetTCPSSLHandshake, SSLConnect_ForeignAndSelfSignedCertificate_TakenUnverified_KeptOnPurpose)
{
    const TLSFiles other("not.this.host.example");
    std::future<bool> accepted =
        std::async(std::launch::async, [&] { return m_server.SSLAccept(other.GetCert(), other.GetKey()); });
    EXPECT_TRUE(m_client.SSLConnect());
    EXPECT_TRUE(accepted.get());
}

TEST_F(NetTCPSSLHandshake, SSLAccept_RenewedFiles_ServeTheNextHandshake)
{
    const TLSFiles first("first.example");
    const TLSFiles second("second.example");
    const FilePath cert = first.MakeFile("live.crt", first.ReadFile(first.GetCert()));
    const FilePath key = first.MakeFile("live.key", first.ReadFile(first.GetKey()));
    const auto shownName = [&] {
        Connect();
        HalfTLSPeer peer(HalfTLSPeer::CLIENT);
        std::future<bool> accepted = std::async(std::launch::async, [&] { return m_server.SSLAccept(cert, key); });
        EXPECT_TRUE(peer.HandshakeOver(m_client));
        EXPECT_TRUE(accepted.get());
        return peer.GetPeerName();
    };
    EXPECT_EQ(shownName(), "first.example");
    first.MakeFile("live.crt", second.ReadFile(second.GetCert()));
    first.MakeFile("live.key", second.ReadFile(second.GetKey()));
    EXPECT_EQ(shownName(), "second.example");
}

TEST_F(NetTCPSSLHandshake, SSLAccept_Done_SendsNothingOfItsOwn)
{
    HalfTLSPeer peer(HalfTLSPeer::CLIENT, HalfTLSPeer::TLS_1_3);
    SecureWith(peer);
    EXPECT_TRUE(SendAll(m_server, "reply"));
    // One record of 5 bytes with its header, type and tag, and nothing before it.
    EXPECT_EQ(Receive(m_client, 1).size(), 5U + 5U + 1U + 16U);
}

TEST_F(NetTCPSSLHandshake, SSLAccept_CurveKey_Taken)
{
    FilePath cert;
    FilePath key;
    m_files.MakeCurvePair(cert, key);
    std::future<bool> accepted = std::async(std::launch::async, [&] { return m_server.SSLAccept(cert, key); });
    EXPECT_TRUE(m_client.SSLConnect());
    EXPECT_TRUE(accepted.get());
}

TEST_F(NetTCPSSLHandshake, SSLAccept_KeyWithDEKInfo_RefusedConnectionOpen)
{
    const FilePath key = m_files.MakeEncryptedKey(TLSFiles::FORM::TRADITIONAL);
    EXPECT_NE(m_files.ReadFile(key).find("DEK-Info:"), std::string::npos);
    ExpectRefused(m_files.GetCert(), key);
}

TEST_F(NetTCPSSLHandshake, SSLAccept_DEKInfoInAnyCaseAndAnywhere_RefusedThoughTheKeyIsPlain)
{
    const std::string key = m_files.ReadFile(m_files.GetKey());
    ExpectRefused(m_files.GetCert(), m_files.MakeFile("marked.key", key + "dek-INFO: none\n"));
    ExpectRefused(m_files.GetCert(), m_files.MakeFile("marked.key", "DEK-Info:" + key));
}

TEST_F(NetTCPSSLHandshake, SSLAccept_DEKInfoInsideALine_NoMark)
{
    const FilePath key = m_files.MakeFile("remark.key", "a DEK-Info: b\n" + m_files.ReadFile(m_files.GetKey()));
    std::future<bool> accepted =
        std::async(std::launch::async, [&] { return m_server.SSLAccept(m_files.GetCert(), key); });
    EXPECT_TRUE(m_client.SSLConnect());
    EXPECT_TRUE(accepted.get());
}

TEST_F(NetTCPSSLHandshake, SSLAccept_PKCS8KeyWithPassPhrase_RefusedWithoutAsking)
{
    const FilePath key = m_files.MakeEncryptedKey(TLSFiles::FORM::PKCS8);
    EXPECT_EQ(m_files.ReadFile(key).find("DEK-Info:"), std::string::npos);
    ExpectRefused(m_files.GetCert(), key);
}

TEST_F(NetTCPSSLHandshake, SSLAccept_EncryptedCertificate_RefusedWithoutAsking)
{
    ExpectRefused(m_files.MakeEncryptedCert(), m_files.GetKey());
}

TEST_F(NetTCPSSLHandshake, SSLAccept_ChainInTheFile_ShownWhole)
{
    const TLSFiles issuer("issuer.example");
    const std::string chain = m_files.ReadFile(m_files.GetCert()) + issuer.ReadFile(issuer.GetCert());
    const FilePath cert = m_files.MakeFile("chain.crt", chain);
    std::future<bool> accepted =
        std::async(std::launch::async, [&] { return m_server.SSLAccept(cert, m_files.GetKey()); });
    EXPECT_TRUE(m_client.SSLConnect());
    ASSERT_TRUE(accepted.get());
    EXPECT_EQ(m_client.GetPeerCertificates(), chain);
}

// The list is wider than OpenSSL's own of these days, and stands in another order.
TEST_F(NetTCPSSLHandshake, SSLAccept_Suites_ThoseOfTheListInItsOrder)
{
    Secure();
    const std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> listed(SSL_CTX_new(TLS_server_method()), SSL_CTX_free);
    ASSERT_EQ(SSL_CTX_set_cipher_list(listed.get(), "HIGH:MEDIUM:@STRENGTH"), 1);
    EXPECT_EQ(SuiteNames(SSL_CTX_get_ciphers((m_server.*GetPrivateMember(ServerContext())))),
              SuiteNames(SSL_CTX_get_ciphers(listed.get())));

    for (const char* const suite : {"ECDHE-ARIA256-GCM-SHA384", "AES128-SHA"}) {
        Connect();
        HalfTLSPeer peer(HalfTLSPeer::CLIENT, HalfTLSPeer::TLS_1_2);
        peer.OfferSuites(suite);
        SecureWith(peer);
        EXPECT_EQ(peer.GetSuite(), suite);
    }
}

TEST_F(NetTCPSSLHandshake, SSLAccept_KeyOfAnotherPair_RefusedConnectionOpen)
{
    ExpectRefused(m_files.GetCert(), TLSFiles("other.example").GetKey());
    FilePath curveCert;
    FilePath curveKey;
    m_files.MakeCurvePair(curveCert, curveKey);
    ExpectRefused(m_files.GetCert(), curveKey);
}

TEST_F(NetTCPSSLHandshake, SSLAccept_FilesMissingEmptyOrDamaged_RefusedConnectionOpen)
{
    const FilePath cert = m_files.GetCert();
    const FilePath key = m_files.GetKey();
    const FilePath none((std::string(m_files.MakeFile("there", "").c_str()) + ".not").c_str());
    const FilePath empty = m_files.MakeFile("empty", "");
    const FilePath half = m_files.MakeFile("half", m_files.ReadFile(cert).substr(0, 400));
    const FilePath halfKey = m_files.MakeFile("half.key", m_files.ReadFile(key).substr(0, 400));
    const FilePath noise = m_files.MakeFile("noise", std::string(5000, '\xFF'));
    for (const FilePath& wrong : {none, empty, half, noise, key})
        ExpectRefused(wrong, key);
    for (const FilePath& wrong : {none, empty, halfKey, noise, cert})
        ExpectRefused(cert, wrong);
}

TEST_F(NetTCPSSLHandshake, NotConnected_47)
{
    TestTCPSSL socket;
    EXPECT_FALSE(socket.SSLAccept(m_files.GetCert(), m_files.GetKey()));
    EXPECT_EQ(socket.GetLastError(), NetSocket::ERR_NOT_CONNECTED);
    TestTCPSSL other;
    EXPECT_FALSE(other.SSLConnect());
    EXPECT_EQ(other.GetLastError(), NetSocket::ERR_NOT_CONNECTED);
    ASSERT_TRUE(other.ListenSpecific(0, LOOPBACK()));
    EXPECT_FALSE(other.SSLAccept(m_files.GetCert(), m_files.GetKey()));
    EXPECT_EQ(other.GetLastError(), NetSocket::ERR_NOT_CONNECTED);
    EXPECT_TRUE(other.IsListening());
}

TEST_F(NetTCPSSLHandshake, StaleErrorsOfTheThread_ChangeNothing)
{
    const auto leaveErrors = [] {
        ERR_raise(ERR_LIB_USER, 1);
        ERR_raise(ERR_LIB_USER, 2);
    };
    std::future<bool> accepted = std::async(std::launch::async, [&] {
        leaveErrors();
        return m_server.SSLAccept(m_files.GetCert(), m_files.GetKey());
    });
    leaveErrors();
    EXPECT_TRUE(m_client.SSLConnect());
    ASSERT_TRUE(accepted.get());
    leaveErrors();
    unsigned long len = 0;
    EXPECT_TRUE(SendAll(m_client, "bytes"));
    leaveErrors();
    EXPECT_EQ(Receive(m_server, 5), "bytes");
    char byte;
    len = 1;
    leaveErrors();
    EXPECT_TRUE(m_server.Recv(&byte, len)) << "nothing there is no failure";
    EXPECT_EQ(len, 0U);
    leaveErrors();
    m_client.ShutdownAndClose();
    EXPECT_TRUE(ReceiveEnd(m_server));
}

TEST_F(NetTCPSSLHandshake, AgainOverTheSameConnection_TheOldTLSIsDropped)
{
    Secure();
    ExpectTalk(m_client, m_server); // nothing of the first TLS is under way then
    Secure();
    ExpectTalk(m_client, m_server);
}

TEST_F(NetTCPSSLHandshake, AnyBlockTime_Done)
{
    for (const unsigned long blockMs : {0UL, 2UL, 500UL}) {
        Connect();
        m_server.SetBlockTime(blockMs);
        m_client.SetBlockTime(blockMs);
        EXPECT_LT(MillisecondsOf([&] { Secure(); }), 3000) << blockMs;
        ExpectTalk(m_client, m_server);
    }
}

} // namespace
} // namespace kqlib::test
