// What a connection without further settings says first: byte for byte what a bare connection of OpenSSL says.
#include "tests/net/sockets/tls/TLSFixture.h"

#include <algorithm>
#include <openssl/ssl.h>
#include <vector>

namespace kqlib::test {
namespace {

using ContextHandle = std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)>;
using ConnectionHandle = std::unique_ptr<SSL, decltype(&SSL_free)>;

constexpr std::size_t KEY_SHARE = 51; // RFC 8446, 4.2.8

/// A position in the bytes of a flight. What is to be the same stays; what is drawn anew each time becomes zeros.
class FlightReader
{
public:
    explicit FlightReader(std::string& bytes)
        : m_bytes(bytes)
    {
    }

    bool IsAtEnd() const { return m_at >= m_bytes.size(); }
    std::size_t GetAt() const { return m_at; }
    std::size_t Number(std::size_t size)
    {
        std::size_t number = 0;
        for (; size > 0; --size)
            number = number << 8 | static_cast<unsigned char>(m_bytes.at(m_at++));
        return number;
    }
    void Skip(std::size_t size) { m_at += size; }
    void Mask(std::size_t size)
    {
        ASSERT_LE(m_at + size, m_bytes.size());
        std::fill_n(m_bytes.begin() + static_cast<std::ptrdiff_t>(m_at), size, '\0');
        m_at += size;
    }

private:
    std::string& m_bytes;
    std::size_t m_at = 0;
};

/// The handshake message of either hello, from behind its type and size: random, session id and key shares masked.
void MaskHello(FlightReader& reader, std::size_t end, bool byServer)
{
    reader.Skip(2); // version
    reader.Mask(32);
    reader.Mask(reader.Number(1));
    if (byServer) {
        reader.Skip(3); // suite, compression
    } else {
        reader.Skip(reader.Number(2)); // suites
        reader.Skip(reader.Number(1)); // compressions
    }
    reader.Skip(2);
    while (reader.GetAt() < end) {
        const std::size_t type = reader.Number(2);
        const std::size_t size = reader.Number(2);
        if (type != KEY_SHARE) {
            reader.Skip(size);
            continue;
        }
        const std::size_t last = reader.GetAt() + size;
        if (!byServer)
            reader.Skip(2);
        while (reader.GetAt() < last) {
            reader.Skip(2); // group
            reader.Mask(reader.Number(2));
        }
    }
}

/// A flight in which all that is drawn anew each time is zero.
std::string Masked(std::string flight)
{
    constexpr std::size_t HANDSHAKE = 22;
    constexpr std::size_t ENCRYPTED = 23;
    constexpr std::size_t CLIENT_HELLO = 1;
    constexpr std::size_t SERVER_HELLO = 2;
    constexpr std::size_t KEY_EXCHANGE = 12; // RFC 8422, 5.4
    FlightReader reader(flight);
    while (!reader.IsAtEnd() && !testing::Test::HasFailure()) {
        const std::size_t type = reader.Number(1);
        reader.Skip(2);
        const std::size_t end = reader.Number(2) + reader.GetAt();
        if (type == ENCRYPTED)
            reader.Mask(end - reader.GetAt());
        while (type == HANDSHAKE && reader.GetAt() < end) {
            const std::size_t message = reader.Number(1);
            const std::size_t size = reader.Number(3);
            const std::size_t behind = reader.GetAt() + size;
            if (message == CLIENT_HELLO || message == SERVER_HELLO)
                MaskHello(reader, behind, message == SERVER_HELLO);
            if (message == KEY_EXCHANGE) {
                reader.Skip(3); // curve
                reader.Mask(reader.Number(1));
                reader.Skip(2); // kind of signature
                reader.Mask(reader.Number(2));
            }
            reader.Skip(behind - reader.GetAt());
        }
        reader.Skip(end - reader.GetAt());
    }
    return flight;
}

class NetTCPSSLHello : public TLSFixture
{
protected:
    /// What a bare connection says first, after it has received bytes.
    static std::string FlightOf(SSL* connection, const std::string& received)
    {
        BIO* const in = BIO_new(BIO_s_mem());
        BIO* const out = BIO_new(BIO_s_mem());
        SSL_set_bio(connection, in, out);
        if (!received.empty())
            BIO_write(in, received.data(), static_cast<int>(received.size()));
        SSL_do_handshake(connection);
        std::string flight(BIO_ctrl_pending(out), '\0');
        BIO_read(out, flight.data(), static_cast<int>(flight.size()));
        return flight;
    }
    /// The bare server that the described one is: chain and key, a list of suites, no tickets.
    std::string BareServerFlight(const std::string& hello) const
    {
        const ContextHandle context(SSL_CTX_new(TLS_server_method()), SSL_CTX_free);
        EXPECT_EQ(SSL_CTX_set_num_tickets(context.get(), 0), 1);
        EXPECT_EQ(SSL_CTX_set_cipher_list(context.get(), "HIGH:MEDIUM:@STRENGTH"), 1);
        EXPECT_EQ(SSL_CTX_use_certificate_chain_file(context.get(), m_files.GetCert().c_str()), 1);
        EXPECT_EQ(SSL_CTX_use_PrivateKey_file(context.get(), m_files.GetKey().c_str(), SSL_FILETYPE_PEM), 1);
        const ConnectionHandle connection(SSL_new(context.get()), SSL_free);
        SSL_set_accept_state(connection.get());
        return FlightOf(connection.get(), hello);
    }
    static std::string BareClientFlight()
    {
        const ContextHandle context(SSL_CTX_new(TLS_client_method()), SSL_CTX_free);
        const ConnectionHandle connection(SSL_new(context.get()), SSL_free);
        SSL_set_connect_state(connection.get());
        return FlightOf(connection.get(), "");
    }
};

TEST_F(NetTCPSSLHello, SSLConnect_FirstFlight_AsABareClients)
{
    const std::string bare = Masked(BareClientFlight());
    ASSERT_GT(bare.size(), 100U);
    std::future<bool> connected = std::async(std::launch::async, [this] { return m_client.SSLConnect(); });
    const std::string said = Receive(m_server, bare.size());
    m_server.Close();
    EXPECT_FALSE(connected.get());
    EXPECT_TRUE(Masked(said) == bare);
}

TEST_F(NetTCPSSLHello, SSLAccept_FirstFlight_AsABareServers)
{
    for (const HalfTLSPeer::VERSION version : {HalfTLSPeer::TLS_1_2, HalfTLSPeer::TLS_1_3, HalfTLSPeer::ANY}) {
        SCOPED_TRACE(version);
        Connect();
        HalfTLSPeer client(HalfTLSPeer::CLIENT, version);
        client.Handshake();
        const std::string hello = client.Give();
        const std::string bare = Masked(BareServerFlight(hello));
        ASSERT_GT(bare.size(), 1000U);
        std::future<bool> accepted = StartAccept();
        EXPECT_TRUE(SendAll(m_client, hello));
        const std::string said = Receive(m_client, bare.size());
        m_client.Close();
        EXPECT_FALSE(accepted.get());
        EXPECT_TRUE(Masked(said) == bare);
    }
}

TEST_F(NetTCPSSLHello, Comparison_LeavesOutOnlyWhatIsDrawnAnew)
{
    constexpr std::ptrdiff_t DRAWN = 32 + 32 + 32; // random, session id, key share
    const std::string hello = BareClientFlight();
    const std::string masked = Masked(hello);
    ASSERT_EQ(masked.size(), hello.size());
    std::ptrdiff_t same = 0;
    for (std::size_t at = 0; at < hello.size(); ++at)
        same += masked[at] == hello[at];
    EXPECT_GE(same, static_cast<std::ptrdiff_t>(hello.size()) - DRAWN);
    EXPECT_TRUE(Masked(BareClientFlight()) == masked);
}

} // namespace
} // namespace kqlib::test
