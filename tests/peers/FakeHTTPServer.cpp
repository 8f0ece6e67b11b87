#include "tests/peers/FakeHTTPServer.h"

#include <gtest/gtest.h>

namespace kqlib::test {

namespace {

const char* const END_OF_REQUEST = "\r\n\r\n";
constexpr std::size_t END_SIZE = 4;

} // namespace

FakeHTTPServer::FakeHTTPServer()
{
    EXPECT_TRUE(m_peer.Listen()) << "no port could be had";
}

FakeHTTPServer& FakeHTTPServer::Answer(const std::string& bytes, std::size_t pieceSize)
{
    xNextConnection().ReceiveUntil(END_OF_REQUEST);
    if (pieceSize == 0)
        m_peer.Send(bytes);
    else
        m_peer.SendPieces(bytes, pieceSize);
    return *this;
}

FakeHTTPServer& FakeHTTPServer::AnswerAndStall(const std::string& bytes)
{
    xNextConnection().ReceiveUntil(END_OF_REQUEST).Send(bytes).Stall();
    return *this;
}

FakeHTTPServer& FakeHTTPServer::AnswerAndReset(const std::string& bytes)
{
    xNextConnection().ReceiveUntil(END_OF_REQUEST).Send(bytes).Reset();
    return *this;
}

FakeHTTPServer& FakeHTTPServer::HangUpAfter(std::size_t requestBytes)
{
    xNextConnection().ReceiveBytes(requestBytes).HangUp();
    return *this;
}

std::string FakeHTTPServer::GetUrl(const std::string& path) const
{
    return "http://127.0.0.1:" + std::to_string(GetPort()) + path;
}

std::vector<std::string> FakeHTTPServer::GetRequests() const
{
    const std::string received = m_peer.GetReceived();
    std::vector<std::string> requests;
    std::size_t from = 0;
    for (std::size_t end = 0; (end = received.find(END_OF_REQUEST, from)) != std::string::npos;) {
        requests.push_back(received.substr(from, end + END_SIZE - from));
        from = end + END_SIZE;
    }
    return requests;
}

std::string FakeHTTPServer::sOk(const std::string& body)
{
    return "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

std::string FakeHTTPServer::sRedirect(int status, const std::string& location)
{
    return "HTTP/1.1 " + std::to_string(status) + " Elsewhere\r\nLocation: " + location + "\r\n\r\n";
}

/// The first answer takes the connection that the peer accepts by itself.
ScriptedTCPPeer& FakeHTTPServer::xNextConnection()
{
    if (m_hasAnswers)
        m_peer.NextConnection();
    m_hasAnswers = true;
    return m_peer;
}

} // namespace kqlib::test
