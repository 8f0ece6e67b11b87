// What the TLS sockets and the certificate maker ask OpenSSL for where nothing else shows it.
#include "tests/net/sockets/tls/posix/OpenSSLCalls.h"

#include "net/ssl/NetSSLCertControl.h"
#include "platform/Sockets.h"
#include "tests/net/sockets/tls/TLSFixture.h"

#include <algorithm>
#include <numeric>
#include <openssl/err.h>
#include <vector>

namespace kqlib::test {
namespace {

using OpenSSLCallsTest = TLSFixture;

// A single want of memory at the first use once ended TLS for the life of the process.
TEST_F(OpenSSLCallsTest, FirstUse_NoMemoryForTheKindOfBIO_NextUseWorks)
{
    ASSERT_EQ(OpenSSLCalls::sGetMethodCount(), 0) << "this test is to be the first of its process";
    OpenSSLCalls::sFailMethods(2);
    EXPECT_FALSE(m_client.SSLConnect());
    EXPECT_FALSE(m_server.SSLAccept(m_files.GetCert(), m_files.GetKey()));
    EXPECT_EQ(OpenSSLCalls::sGetMethodCount(), 2);
    EXPECT_TRUE(m_client.IsConnected());
    EXPECT_EQ(m_client.GetLastError(), NetSocket::ERR_NONE);
    ExpectTalk(m_client, m_server);
    Secure();
    ExpectTalk(m_client, m_server);
    Connect();
    Secure();
    EXPECT_LE(OpenSSLCalls::sGetMethodCount(), 4) << "one for each thread at most, then none any more";
}

/// Remembers whether memory of that size and beginning was overwritten while it lives.
class CleanseWatch
{
public:
    CleanseWatch(std::size_t size, std::vector<unsigned char> part, std::size_t offset)
    {
        OpenSSLCalls::sSetOnCleanse(
            [this, size, part = std::move(part), offset](const unsigned char* bytes, std::size_t cleansed) {
                if (cleansed == size && std::equal(part.begin(), part.end(), bytes + offset))
                    ++m_count;
            });
    }
    ~CleanseWatch() { OpenSSLCalls::sSetOnCleanse(nullptr); }
    CleanseWatch(const CleanseWatch&) = delete;
    CleanseWatch& operator=(const CleanseWatch&) = delete;

    int GetCount() const { return m_count; }

private:
    int m_count = 0;
};

TEST_F(OpenSSLCallsTest, Seed_BlockWithTheCallersBytes_Overwritten)
{
    std::vector<unsigned char> data(100);
    std::iota(data.begin(), data.end(), static_cast<unsigned char>(1));
    const CleanseWatch watch(2344, data, 264);
    NetSSLCertControl::sSeed(data.data(), data.size());
    EXPECT_EQ(watch.GetCount(), 1);
}

TEST_F(OpenSSLCallsTest, Close_RecordBegun_ItsCopyIsOverwritten)
{
    Secure();
    m_server.SetBlockTime(0);
    const std::vector<unsigned char> bytes(16384, 's');
    for (int refused = 0; refused < 4;) {
        unsigned long len = bytes.size();
        ASSERT_TRUE(m_server.Send(bytes.data(), len));
        refused = len == 0 ? refused + 1 : 0;
        if (len == 0)
            platform::WaitSocket(m_server.xGetHandle(), false, 100);
    }
    const CleanseWatch watch(bytes.size(), bytes, 0);
    m_server.Close();
    EXPECT_EQ(watch.GetCount(), 1);
}

// What failed behind a part that went out once left its error for whatever came next on the thread.
TEST_F(OpenSSLCallsTest, Send_SecondRecordFails_FirstIsToldAndNoErrorStays)
{
    Secure();
    const std::string text = Pattern(16384 + 10);
    unsigned long len = text.size();
    OpenSSLCalls::sFailWriteAfter(1);
    EXPECT_TRUE(m_server.Send(text.data(), len));
    EXPECT_EQ(len, 16384U);
    EXPECT_EQ(ERR_peek_error(), 0UL);
}

} // namespace
} // namespace kqlib::test
