// FakeHTTPServer: a web server on 127.0.0.1 that answers each request with the bytes it was given.
#pragma once

#include "tests/peers/ScriptedTCPPeer.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kqlib::test {

/// Gives one answer for each connection, in the order they were added, after it has received the request up to its
/// empty line. Nothing in an answer is checked or completed: it may be cut short, wrong or no HTTP at all.
///
///     FakeHTTPServer server;
///     server.Answer(FakeHTTPServer::sRedirect(302, server.GetUrl("/there"))).Answer(FakeHTTPServer::sOk("body"));
///     ASSERT_TRUE(server.Start());
///
/// The port stands from the construction on. Add every answer before the start.
/// Ownership, threads, errors: as ScriptedTCPPeer.
class FakeHTTPServer
{
public:
    FakeHTTPServer();

    // --- answers, one connection each
    /// Sends the bytes, at once or pieceSize of them at a time, and ends the connection in order.
    FakeHTTPServer& Answer(const std::string& bytes, std::size_t pieceSize = 0);
    /// Sends the bytes and then nothing, with the connection open, until Continue or the limit of a step.
    FakeHTTPServer& AnswerAndStall(const std::string& bytes);
    /// Sends the bytes and breaks the connection off.
    FakeHTTPServer& AnswerAndReset(const std::string& bytes);
    /// Ends the connection after so many bytes of the request (0: at once).
    FakeHTTPServer& HangUpAfter(std::size_t requestBytes);

    bool Start() { return m_peer.StartServer(); }
    void Continue() { m_peer.Continue(); }
    void SetStepLimit(std::uint32_t ms) { m_peer.SetStepLimit(ms); }

    // --- questions
    std::uint16_t GetPort() const { return m_peer.GetPort(); }
    /// "http://127.0.0.1:<port>" and the path.
    std::string GetUrl(const std::string& path) const;
    /// The requests received whole, each with its empty line.
    std::vector<std::string> GetRequests() const;
    std::size_t GetConnectionCount() const { return m_peer.GetConnectionCount(); }
    ScriptedTCPPeer& GetPeer() { return m_peer; }

    // --- texts of answers
    /// A 200 response with the body's length.
    static std::string sOk(const std::string& body);
    /// A response of this status that leads to location.
    static std::string sRedirect(int status, const std::string& location);

private:
    ScriptedTCPPeer& xNextConnection();

    ScriptedTCPPeer m_peer;
    bool m_hasAnswers = false;
};

} // namespace kqlib::test
