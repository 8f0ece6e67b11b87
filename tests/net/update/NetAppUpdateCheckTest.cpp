// Tests of the version check: requests, redirects, headers and version files.
#include "tests/net/update/UpdateFixture.h"

#include <vector>

namespace kqlib::test {
namespace {

using Server = FakeHTTPServer;

constexpr auto FAILED = NetAppUpdate::ST_FAILED;
constexpr auto AVAILABLE = NetAppUpdate::ST_UPDATE_AVAILABLE;

const std::string GOOD_FILE = "201\r\nNew\r\nhost.example\r\n8080\r\n/setup.exe\r\n";

class NetAppUpdateCheckTest : public UpdateFixture
{
};

// --- the request

TEST_F(NetAppUpdateCheckTest, CheckForUpdate_PortNot80_RequestTextExact)
{
    Server server;
    server.Answer(Server::sOk(GOOD_FILE));
    ASSERT_TRUE(server.Start());
    EXPECT_EQ(Check(server), AVAILABLE);
    ASSERT_TRUE(server.GetPeer().WaitDone()) << server.GetPeer().GetFailure();
    EXPECT_EQ(server.GetPeer().GetReceived(), "GET /version.txt HTTP/1.1\r\n"
                                              "Accept: */*\r\n"
                                              "Pragma: no-cache\r\n"
                                              "User-Agent: Mozilla/4.0 (compatible; MSIE 5.5; Windows 98)\r\n"
                                              "Host: 127.0.0.1:" +
                                                  std::to_string(server.GetPort()) +
                                                  "\r\n"
                                                  "Referer: Product 2.0 (detail)\r\n"
                                                  "Connection: Close\r\n"
                                                  "\r\n");
}

TEST_F(NetAppUpdateCheckTest, DownloadUpdate_Request_RefererWithoutDetail)
{
    Server server;
    server.Answer(Server::sOk(VersionFile(server))).Answer(Server::sOk("x"));
    ASSERT_TRUE(server.Start());
    EXPECT_EQ(Check(server), AVAILABLE);
    EXPECT_EQ(Download(), NetAppUpdate::ST_DOWNLOADED);
    ASSERT_EQ(server.GetRequests().size(), 2U);
    EXPECT_EQ(server.GetRequests()[1], "GET /files/setup.bin HTTP/1.1\r\n"
                                       "Accept: */*\r\n"
                                       "Pragma: no-cache\r\n"
                                       "User-Agent: Mozilla/4.0 (compatible; MSIE 5.5; Windows 98)\r\n"
                                       "Host: 127.0.0.1:" +
                                           std::to_string(server.GetPort()) +
                                           "\r\n"
                                           "Referer: Product 2.0\r\n"
                                           "Connection: Close\r\n"
                                           "\r\n");
}

TEST_F(NetAppUpdateCheckTest, BuildRequest_Port80_HostLineWithoutPort)
{
    EXPECT_EQ(m_update->xBuildRequest(false, "host.example", 80, "/a b?c"),
              "GET /a b?c HTTP/1.1\r\n"
              "Accept: */*\r\n"
              "Pragma: no-cache\r\n"
              "User-Agent: Mozilla/4.0 (compatible; MSIE 5.5; Windows 98)\r\n"
              "Host: host.example\r\n"
              "Referer: Product 2.0\r\n"
              "Connection: Close\r\n"
              "\r\n");
}

TEST_F(NetAppUpdateCheckTest, BuildRequest_VersionRequestWithoutDetail_EmptyBrackets)
{
    EXPECT_NE(m_update->xBuildRequest(true, "h", 81, "/").Find("\r\nHost: h:81\r\nReferer: Product 2.0 ()\r\n"),
              String::npos);
}

// --- places

struct PLACE
{
    const char* url;
    const char* host;
    USHORT port;
    const char* path;
};

TEST_F(NetAppUpdateCheckTest, ParseURL_UsablePlaces_HostPortAndPath)
{
    const PLACE places[] = {
        {"http://h", "h", 80, "/"},
        {"http://h/", "h", 80, "/"},
        {"HTTP://h/x", "h", 80, "/x"},
        {"http://host.example:8080", "host.example", 8080, "/"},
        {"http://host.example:8080/a/b?c=d:9", "host.example", 8080, "/a/b?c=d:9"},
        {"http://h:65535/", "h", 65535, "/"},
        {"http://h:65536/", "h", 80, "/"},
        {"http://h:0/", "h", 80, "/"},
        {"http://h:/", "h", 80, "/"},
        {"http://h:x/", "h", 80, "/"},
        {"http://h:81x/", "h", 81, "/"},
        {"http://h:81:82/", "h", 81, "/"},
        {"http:///x", "", 80, "/x"},
        {"http:////", "", 80, "//"},
        {"http://:90", "", 90, "/"},
        {"http://h/http://other/", "h", 80, "/http://other/"},
    };
    for (const PLACE& place : places) {
        String host = "before";
        USHORT port = 1;
        FilePath path = "before";
        OpenUpdate::xParseURL(place.url, host, port, path);
        EXPECT_EQ(host, place.host) << place.url;
        EXPECT_EQ(port, place.port) << place.url;
        EXPECT_EQ(path.GetText(), place.path) << place.url;
    }
}

TEST_F(NetAppUpdateCheckTest, ParseURL_UnusablePlaces_ChangeNothing)
{
    for (const char* url : {"", "http://", "http:/h/", "https://h/", "ftp://h/", "/path", "h/path", " http://h/"}) {
        String host = "before";
        USHORT port = 1;
        FilePath path = "before";
        OpenUpdate::xParseURL(url, host, port, path);
        EXPECT_EQ(host, "before") << url;
        EXPECT_EQ(port, 1) << url;
        EXPECT_EQ(path.GetText(), "before") << url;
    }
}

// --- redirects

TEST_F(NetAppUpdateCheckTest, Redirects_UpToNineFollowedATenthFails_EveryStatus)
{
    for (const int status : {301, 302, 307}) {
        for (int redirects = 0; redirects <= 11; ++redirects) {
            Server server;
            for (int i = 0; i < redirects; ++i)
                server.Answer(Server::sRedirect(status, server.GetUrl("/step" + std::to_string(i + 1))));
            server.Answer(Server::sOk(GOOD_FILE));
            ASSERT_TRUE(server.Start());
            const STATE state = Check(server);
            const std::vector<std::string> requests = server.GetRequests();
            EXPECT_EQ(state, redirects <= 9 ? AVAILABLE : FAILED) << status << " x " << redirects;
            EXPECT_EQ(requests.size(), redirects <= 9 ? redirects + 1U : 10U) << status << " x " << redirects;
            for (std::size_t i = 1; i < requests.size(); ++i)
                EXPECT_EQ(requests[i].rfind("GET /step" + std::to_string(i) + " HTTP/1.1\r\n", 0), 0U);
        }
    }
}

TEST_F(NetAppUpdateCheckTest, Redirects_PlaceWithoutPath_RootRequested)
{
    Server server;
    server.Answer(Server::sRedirect(302, server.GetUrl(""))).Answer(Server::sOk(GOOD_FILE));
    ASSERT_TRUE(server.Start());
    EXPECT_EQ(Check(server), AVAILABLE);
    ASSERT_EQ(server.GetRequests().size(), 2U);
    EXPECT_EQ(server.GetRequests()[1].rfind("GET / HTTP/1.1\r\n", 0), 0U);
    EXPECT_NE(server.GetRequests()[1].find("Referer: Product 2.0 (detail)\r\n"), std::string::npos);
}

TEST_F(NetAppUpdateCheckTest, Redirects_ToAnotherServer_Followed)
{
    Server first;
    Server second;
    first.Answer(Server::sRedirect(301, second.GetUrl("/there")));
    second.Answer(Server::sOk(GOOD_FILE));
    ASSERT_TRUE(first.Start());
    ASSERT_TRUE(second.Start());
    EXPECT_EQ(Check(first), AVAILABLE);
    ASSERT_EQ(second.GetRequests().size(), 1U);
    EXPECT_NE(second.GetRequests()[0].find("Host: 127.0.0.1:" + std::to_string(second.GetPort()) + "\r\n"),
              std::string::npos);
}

TEST_F(NetAppUpdateCheckTest, Redirects_OfTheDownload_Followed)
{
    Server server;
    server.Answer(Server::sOk(VersionFile(server)));
    for (int i = 0; i < 9; ++i)
        server.Answer(Server::sRedirect(307, server.GetUrl("/moved" + std::to_string(i))));
    server.Answer(Server::sOk("installer"));
    ASSERT_TRUE(server.Start());
    EXPECT_EQ(Check(server), AVAILABLE);
    EXPECT_EQ(Download(), NetAppUpdate::ST_DOWNLOADED);
    EXPECT_EQ(InstallerBytes(), "installer");
}

TEST_F(NetAppUpdateCheckTest, Redirects_UnusablePlace_SameRequestUntilTheLimitKeptOnPurpose)
{
    for (const char* place : {"https://127.0.0.1/x", "/version2.txt", "ftp://h/x", "http://"}) {
        Server server;
        for (int i = 0; i < 12; ++i)
            server.Answer(Server::sRedirect(302, place));
        ASSERT_TRUE(server.Start());
        EXPECT_EQ(Check(server), FAILED) << place;
        const std::vector<std::string> requests = server.GetRequests();
        ASSERT_EQ(requests.size(), 10U) << place;
        for (const std::string& request : requests)
            EXPECT_EQ(request, requests[0]) << place;
    }
}

TEST_F(NetAppUpdateCheckTest, Redirects_UnusablePlaceThenAnAnswer_Taken)
{
    Server server;
    server.Answer(Server::sRedirect(302, "https://127.0.0.1/x")).Answer(Server::sOk(GOOD_FILE));
    ASSERT_TRUE(server.Start());
    EXPECT_EQ(Check(server), AVAILABLE);
}

TEST_F(NetAppUpdateCheckTest, Redirects_WithoutALocation_Failed)
{
    for (const char* header : {"", "Location:http://127.0.0.1/\r\n", "X-Location: http://127.0.0.1/\r\n",
                               " Location: http://127.0.0.1/\r\n", "Content-Length: 5\r\n"})
    {
        Server server;
        server.Answer(std::string("HTTP/1.1 302 Found\r\n") + header + "\r\n").Answer(Server::sOk(GOOD_FILE));
        ASSERT_TRUE(server.Start());
        EXPECT_EQ(Check(server), FAILED) << header;
        EXPECT_EQ(server.GetRequests().size(), 1U) << header;
    }
}

TEST_F(NetAppUpdateCheckTest, Redirects_EmptyLocation_SameRequestAgain)
{
    Server server;
    server.Answer("HTTP/1.1 302 Found\r\nLocation: \r\n\r\n").Answer(Server::sOk(GOOD_FILE));
    ASSERT_TRUE(server.Start());
    EXPECT_EQ(Check(server), AVAILABLE);
}

TEST_F(NetAppUpdateCheckTest, Redirects_TwoLocations_FirstCounts)
{
    Server server;
    server.Answer("HTTP/1.1 302 Found\r\nlOCATION: " + server.GetUrl("/first") +
                  "\r\nLocation: " + server.GetUrl("/second") + "\r\n\r\n");
    server.Answer(Server::sOk(GOOD_FILE));
    ASSERT_TRUE(server.Start());
    EXPECT_EQ(Check(server), AVAILABLE);
    ASSERT_EQ(server.GetRequests().size(), 2U);
    EXPECT_EQ(server.GetRequests()[1].rfind("GET /first ", 0), 0U);
}

TEST_F(NetAppUpdateCheckTest, Redirects_NobodyThere_Failed)
{
    Server server;
    server.Answer(Server::sRedirect(302, "http://127.0.0.1:1/x"));
    ASSERT_TRUE(server.Start());
    EXPECT_EQ(Check(server), FAILED);
}

// --- the header

TEST_F(NetAppUpdateCheckTest, Header_StatusLines_OnlyFourAreKnownKeptOnPurpose)
{
    const struct
    {
        const char* line;
        bool good;
    } cases[] = {
        {"HTTP/1.1 200 OK", true},
        {"HTTP/1.0 200 ", true},
        {"anything 200 goes", true},
        {"HTTP/1.1 301 but 200 too", true},
        {"HTTP/1.1 200", false}, // no reason phrase and no blank
        {"HTTP/1.1 2000 OK", false},
        {"HTTP/1.1 201 Created", false},
        {"HTTP/1.1 204 Empty", false},
        {"HTTP/1.1 206 Partial", false},
        {"HTTP/1.1 100 Continue", false},
        {"HTTP/1.1 303 See Other", false},
        {"HTTP/1.1 308 Moved", false},
        {"HTTP/1.1 404 Not Found", false},
        {"HTTP/1.1 500 Broken", false},
        {"200 OK", false},
        {"", false},
    };
    for (const auto& entry : cases)
        EXPECT_EQ(CheckAnswered(std::string(entry.line) + "\r\nContent-Length: 1\r\n\r\n" + GOOD_FILE),
                  entry.good ? AVAILABLE : FAILED)
            << entry.line;
}

TEST_F(NetAppUpdateCheckTest, Header_LengthMissingOrMisspelt_RefusedKeptOnPurpose)
{
    for (const char* header : {"", "Content-Length:42\r\n", "Content-Length : 42\r\n", " Content-Length: 42\r\n",
                               "Content_Length: 42\r\n", "Transfer-Encoding: chunked\r\n"})
    {
        EXPECT_EQ(CheckAnswered(std::string("HTTP/1.1 200 OK\r\n") + header + "\r\n" + GOOD_FILE), FAILED) << header;
        EXPECT_EQ(m_update->GetMaxReceivingAmount(), 0U) << header;
    }
}

TEST_F(NetAppUpdateCheckTest, Header_LengthValues_FirstReadAsANumber)
{
    const struct
    {
        const char* header;
        ULONG amount;
    } cases[] = {
        {"Content-Length: 42\r\n", 42},
        {"cONTENT-lENGTH: 42\r\n", 42},
        {"Content-Length: 42\r\nContent-Length: 43\r\n", 42},
        {"Content-Length: \r\nContent-Length: 43\r\n", 0},
        {"Content-Length: 0042;x\r\n", 42},
        {"Content-Length:   42\r\n", 42},
        {"Content-Length: -42\r\n", 0},
        {"Content-Length: many\r\n", 0},
        {"Content-Length: 4294967295\r\n", 4294967295UL},
        {"Content-Length: 4294967296\r\n", 0},
        {"Content-Length: 99999999999999999999999999\r\n", 0},
    };
    for (const auto& entry : cases) {
        EXPECT_EQ(CheckAnswered(std::string("HTTP/1.1 200 OK\r\n") + entry.header + "\r\n" + GOOD_FILE), AVAILABLE)
            << entry.header;
        EXPECT_EQ(m_update->GetMaxReceivingAmount(), entry.amount) << entry.header;
    }
}

TEST_F(NetAppUpdateCheckTest, Header_LinesAround2048Characters_LongerRefused)
{
    for (const char* end : {"\r\n", "\n"}) {
        for (const std::size_t size : {2047U, 2048U, 2049U, 2050U, 5000U}) {
            const std::string line = "X-Long: " + std::string(size - 8, 'x');
            ASSERT_EQ(line.size(), size);
            const std::string answer =
                std::string("HTTP/1.1 200 OK") + end + line + end + "Content-Length: 1" + end + end + GOOD_FILE;
            EXPECT_EQ(CheckAnswered(answer), size <= 2048 ? AVAILABLE : FAILED) << size << " and " << *end;
        }
    }
}

TEST_F(NetAppUpdateCheckTest, Header_LongLocation_FollowedWhole)
{
    Server server;
    const std::string path = "/" + std::string(2000, 'p');
    server.Answer(Server::sRedirect(302, server.GetUrl(path))).Answer(Server::sOk(GOOD_FILE));
    ASSERT_TRUE(server.Start());
    EXPECT_EQ(Check(server), AVAILABLE);
    EXPECT_EQ(server.GetRequests().at(1).rfind("GET " + path + " HTTP/1.1\r\n", 0), 0U);
}

TEST_F(NetAppUpdateCheckTest, Header_LoneLineFeeds_Taken)
{
    EXPECT_EQ(CheckAnswered("HTTP/1.1 200 OK\nContent-Length: 1\n\n201\nNew\nhost.example\n8080\n/setup.exe\n"),
              AVAILABLE);
}

TEST_F(NetAppUpdateCheckTest, Header_ManyLines_Taken)
{
    std::string answer = "HTTP/1.1 200 OK\r\n";
    for (int i = 0; i < 3000; ++i)
        answer += "X-" + std::to_string(i) + ": something\r\n";
    EXPECT_EQ(CheckAnswered(answer + "Content-Length: 1\r\n\r\n" + GOOD_FILE), AVAILABLE);
}

TEST_F(NetAppUpdateCheckTest, Header_ByteByByte_Taken)
{
    EXPECT_EQ(CheckAnswered(Server::sOk(GOOD_FILE), 1), AVAILABLE);
    EXPECT_EQ(m_update->GetUpdateDescription(), "New");
}

// --- the version file

TEST_F(NetAppUpdateCheckTest, VersionFile_VersionsAroundTheCurrentOne_OnlyGreaterIsAnUpdate)
{
    const struct
    {
        const char* version;
        STATE state;
    } cases[] = {
        {"199", NetAppUpdate::ST_NO_UPDATE},
        {"200", NetAppUpdate::ST_NO_UPDATE},
        {"201", AVAILABLE},
        {"4294967295", AVAILABLE},
        {"4294967296", FAILED},
        {"0", FAILED},
        {"-201", FAILED},
        {"x", FAILED},
        {"", FAILED},
        {"201.5 beta", AVAILABLE},
    };
    for (const auto& entry : cases) {
        EXPECT_EQ(CheckAnswered(Server::sOk(entry.version + GOOD_FILE.substr(3))), entry.state) << entry.version;
        EXPECT_EQ(m_update->GetUpdateVersion(), entry.state == AVAILABLE ? String(entry.version).ToULONG() : 0UL);
        EXPECT_EQ(m_update->GetUpdateDescription(), entry.state == AVAILABLE ? "New" : "");
    }
}

TEST_F(NetAppUpdateCheckTest, VersionFile_OneLineEmptyOrZero_Failed)
{
    const std::vector<std::string> good{"201", "New", "h", "80", "/x"};
    for (std::size_t bad = 0; bad < good.size(); ++bad) {
        for (const char* text : {"", "0"}) {
            if (*text == '0' && bad != 0 && bad != 3)
                continue;
            std::string file;
            for (std::size_t i = 0; i < good.size(); ++i)
                file += (i == bad ? text : good[i]) + "\r\n";
            EXPECT_EQ(CheckAnswered(Server::sOk(file)), FAILED) << file;
        }
    }
    EXPECT_EQ(CheckAnswered(Server::sOk("201\r\nNew\r\nh\r\n65536\r\n/x\r\n")), FAILED);
}

TEST_F(NetAppUpdateCheckTest, VersionFile_CutAtEveryByte_FailedUntilThePathBegins)
{
    const std::string path = "/setup.exe";
    const std::size_t pathAt = GOOD_FILE.find(path);
    Server server;
    const std::string header = "HTTP/1.1 200 OK\r\nContent-Length: 1\r\n\r\n";
    for (std::size_t size = 0; size <= GOOD_FILE.size(); ++size)
        server.Answer(header + GOOD_FILE.substr(0, size));
    ASSERT_TRUE(server.Start());
    for (std::size_t size = 0; size <= GOOD_FILE.size(); ++size)
        EXPECT_EQ(Check(server), size > pathAt ? AVAILABLE : FAILED) << size << " bytes";
    EXPECT_TRUE(server.GetPeer().WaitDone()) << server.GetPeer().GetFailure();
}

TEST_F(NetAppUpdateCheckTest, VersionFile_LastLineCutByTheEnd_CountsAsALine)
{
    FakeHTTPServer server;
    server.Answer(Server::sOk("201\r\nNew\r\n127.0.0.1\r\n" + std::to_string(server.GetPort()) + "\r\n/short\r"));
    server.Answer(Server::sOk("x"));
    ASSERT_TRUE(server.Start());
    EXPECT_EQ(Check(server), AVAILABLE);
    EXPECT_EQ(Download(), NetAppUpdate::ST_DOWNLOADED);
    EXPECT_EQ(server.GetRequests().at(1).rfind("GET /short HTTP/1.1\r\n", 0), 0U);
}

TEST_F(NetAppUpdateCheckTest, VersionFile_LinesAround2048Characters_LongerFail)
{
    for (const char* end : {"\r\n", "\n"}) {
        for (const std::size_t size : {2047U, 2048U, 2049U}) {
            const std::string description(size, 'd');
            const std::string file = "201" + std::string(end) + description + end + "h" + end + "80" + end + "/x" + end;
            EXPECT_EQ(CheckAnswered(Server::sOk(file)), size <= 2048 ? AVAILABLE : FAILED) << size << " and " << *end;
            EXPECT_EQ(m_update->GetUpdateDescription().size(), size <= 2048 ? size : 0U);
        }
    }
}

TEST_F(NetAppUpdateCheckTest, VersionFile_MoreThanFiveLines_RestIgnored)
{
    EXPECT_EQ(CheckAnswered(Server::sOk(GOOD_FILE + "more\r\n" + MakeBody(100000))), AVAILABLE);
}

TEST_F(NetAppUpdateCheckTest, VersionFile_ConnectionStaysOpenAfterFiveLines_NotWaitedFor)
{
    Server server;
    server.AnswerAndStall(Server::sOk(GOOD_FILE));
    ASSERT_TRUE(server.Start());
    EXPECT_EQ(Check(server), AVAILABLE);
}

TEST_F(NetAppUpdateCheckTest, VersionFile_LengthOfTheHeaderIsWrong_NotLookedAt)
{
    EXPECT_EQ(CheckAnswered("HTTP/1.1 200 OK\r\nContent-Length: 7\r\n\r\n" + GOOD_FILE), AVAILABLE);
}

// --- peers that go away

TEST_F(NetAppUpdateCheckTest, HangUp_AtEveryByteOfTheAnswer_FailedUntilThePathBegins)
{
    const std::string answer = Server::sOk(GOOD_FILE);
    const std::size_t pathAt = answer.find("/setup.exe");
    Server server;
    for (std::size_t size = 0; size < answer.size(); ++size)
        server.Answer(answer.substr(0, size));
    ASSERT_TRUE(server.Start());
    for (std::size_t size = 0; size < answer.size(); ++size)
        EXPECT_EQ(Check(server), size > pathAt ? AVAILABLE : FAILED) << size << " bytes";
}

TEST_F(NetAppUpdateCheckTest, HangUp_AtEveryByteOfARedirect_Failed)
{
    Server server;
    const std::string answer = Server::sRedirect(302, server.GetUrl("/x"));
    for (std::size_t size = 0; size < answer.size() - 1; ++size)
        server.Answer(answer.substr(0, size));
    ASSERT_TRUE(server.Start());
    for (std::size_t size = 0; size < answer.size() - 1; ++size)
        EXPECT_EQ(Check(server), FAILED) << size << " bytes";
    EXPECT_EQ(server.GetConnectionCount(), answer.size() - 1);
}

TEST_F(NetAppUpdateCheckTest, HangUp_AtEveryByteOfTheRequest_Failed)
{
    Server server;
    const std::size_t size = m_update->xBuildRequest(true, "127.0.0.1", server.GetPort(), "/version.txt").size();
    for (std::size_t bytes = 0; bytes <= size; ++bytes)
        server.HangUpAfter(bytes);
    ASSERT_TRUE(server.Start());
    for (std::size_t bytes = 0; bytes <= size; ++bytes)
        EXPECT_EQ(Check(server), FAILED) << bytes << " bytes";
}

TEST_F(NetAppUpdateCheckTest, HangUp_ResetInsteadOfAnEnd_Failed)
{
    Server server;
    server.AnswerAndReset("").AnswerAndReset("HTTP/1.1 200 OK\r\nContent-Le");
    ASSERT_TRUE(server.Start());
    EXPECT_EQ(Check(server), FAILED);
    EXPECT_EQ(Check(server), FAILED);
}

TEST_F(NetAppUpdateCheckTest, CheckForUpdate_NobodyListens_Failed)
{
    ASSERT_TRUE(m_update->CheckForUpdate("", "127.0.0.1", 1, "/"));
    EXPECT_EQ(WaitForEnd(), FAILED);
    ASSERT_TRUE(m_update->CheckForUpdate("", "", 80, "/"));
    EXPECT_EQ(WaitForEnd(), FAILED);
}

} // namespace
} // namespace kqlib::test
