// FakeDNSServer: a name server that answers whatever a test wants.
#pragma once

#include "platform/Sockets.h"
#include "tests/peers/DNSMessage.h"

#include <atomic>
#include <cstddef>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace kqlib::test {

/// Serves UDP port 53 of a loopback address of its own on its own thread and hands every query to a script, which says
/// what goes back.
class FakeDNSServer
{
public:
    /// A datagram that goes back so many milliseconds after the query came.
    struct REPLY
    {
        std::vector<unsigned char> bytes;
        unsigned delayMs = 0;
    };
    using Replies = std::vector<REPLY>;
    /// number: how many queries came before this one. Called on the server's thread, one query at a time.
    using Script = std::function<Replies(const DNSQuery& query, std::size_t number)>;

    /// Starts at once. IsRunning is false when no loopback address with a free port 53 could be had. IP6: there is only
    /// ::1, so one server at a time.
    explicit FakeDNSServer(Script script, platform::Family family = platform::Family::IP4);
    ~FakeDNSServer();
    FakeDNSServer(const FakeDNSServer&) = delete;
    FakeDNSServer& operator=(const FakeDNSServer&) = delete;

    /// Serves TCP port 53 of the same address too. The bytes of the replies are sent as they are, one behind the other
    /// (sFrame makes a message of them), and the connection is closed then; no reply: it is held until its peer closes.
    /// False: the port cannot be had.
    bool ServeStreams(Script script);
    /// A message with its length in front.
    static std::vector<unsigned char> sFrame(const std::vector<unsigned char>& message);
    std::size_t GetStreamQueryCount() const { return m_streamQueries; }

    bool IsRunning() const { return m_handle != platform::INVALID_SOCKET_HANDLE; }
    /// The dotted address to give to a resolver.
    const std::string& GetAddress() const { return m_address; }
    /// All queries so far, in order.
    std::vector<DNSQuery> GetQueries() const;
    std::size_t GetQueryCount() const;

    /// A loopback address on which nobody serves port 53.
    static std::string sGetDeadAddress();

private:
    void xServe();
    void xServeStreams();
    void xServeStream(platform::SocketHandle handle);

    Script m_script;
    std::string m_address;
    platform::SocketHandle m_handle;
    mutable std::mutex m_mutex;
    std::vector<DNSQuery> m_queries; // guarded by m_mutex
    std::atomic<bool> m_ending{false};
    std::thread m_thread;
    Script m_streamScript;
    platform::SocketHandle m_listener = platform::INVALID_SOCKET_HANDLE;
    std::atomic<std::size_t> m_streamQueries{0};
    std::thread m_streamThread;
};

} // namespace kqlib::test
