#include "tests/peers/FakeDNSServer.h"

#include <chrono>
#include <random>
#include <sstream>

namespace kqlib::test {

namespace {

constexpr unsigned short DNS_PORT = 53;
constexpr std::size_t LARGEST_QUERY = 2048;
constexpr std::uint32_t WAIT_MS = 5;

using Clock = std::chrono::steady_clock;

/// A datagram that waits for its time.
struct PENDING
{
    Clock::time_point due;
    std::vector<unsigned char> bytes;
    platform::Endpoint to;
};

std::string TextOf(const platform::Endpoint& endpoint)
{
    if (endpoint.family == platform::Family::IP6)
        return "::1"; // the only one there is
    std::string text;
    for (int i = 0; i < 4; ++i)
        text += (i > 0 ? "." : "") + std::to_string(endpoint.bytes[i]);
    return text;
}

/// A loopback address that hardly any other test of this machine has chosen at the same time.
platform::Endpoint RandomLoopback(std::mt19937& random)
{
    std::uniform_int_distribution<int> byte(1, 250);
    platform::Endpoint endpoint;
    endpoint.port = DNS_PORT;
    endpoint.bytes[0] = 127;
    for (int i = 1; i < 4; ++i)
        endpoint.bytes[i] = static_cast<unsigned char>(byte(random));
    return endpoint;
}

platform::Endpoint UsualLoopback()
{
    platform::Endpoint endpoint;
    endpoint.port = DNS_PORT;
    endpoint.bytes[0] = 127;
    endpoint.bytes[3] = 1;
    return endpoint;
}

platform::Endpoint EndpointOf(const std::string& dotted)
{
    platform::Endpoint endpoint;
    endpoint.port = DNS_PORT;
    std::istringstream parts(dotted);
    std::string part;
    for (int i = 0; i < 4 && std::getline(parts, part, '.'); ++i)
        endpoint.bytes[i] = static_cast<unsigned char>(std::stoi(part));
    return endpoint;
}

/// Binds a socket to port 53 of a free loopback address. usualFirst: 127.0.0.1 when it is free, the one address that
/// replies come from under Wine, whatever the socket was bound to.
platform::SocketHandle BindSomewhere(std::string& address, bool usualFirst)
{
    std::mt19937 random{std::random_device{}()};
    for (int attempt = 0; attempt < 20; ++attempt) {
        const platform::SocketHandle handle = platform::OpenSocket(false, platform::Family::IP4);
        const platform::Endpoint endpoint = usualFirst && attempt == 0 ? UsualLoopback() : RandomLoopback(random);
        if (handle != platform::INVALID_SOCKET_HANDLE && platform::BindSocket(handle, endpoint, false)) {
            address = TextOf(endpoint);
            return handle;
        }
        platform::CloseSocket(handle);
    }
    return platform::INVALID_SOCKET_HANDLE;
}

platform::SocketHandle BindIP6(std::string& address)
{
    platform::Endpoint endpoint;
    endpoint.family = platform::Family::IP6;
    endpoint.port = DNS_PORT;
    endpoint.bytes[15] = 1;
    const platform::SocketHandle handle = platform::OpenSocket(false, platform::Family::IP6);
    if (handle != platform::INVALID_SOCKET_HANDLE && platform::BindSocket(handle, endpoint, false)) {
        address = TextOf(endpoint);
        return handle;
    }
    platform::CloseSocket(handle);
    return platform::INVALID_SOCKET_HANDLE;
}

void SendDue(platform::SocketHandle handle, std::vector<PENDING>& pending)
{
    const auto now = Clock::now();
    std::erase_if(pending, [handle, now](const PENDING& reply) {
        if (reply.due > now)
            return false;
        std::size_t size = reply.bytes.size();
        // A reply that cannot be sent is lost like any datagram.
        platform::SendSocketTo(handle, reply.bytes.data(), size, reply.to);
        return true;
    });
}

} // namespace

FakeDNSServer::FakeDNSServer(Script script, platform::Family family)
    : m_script(std::move(script))
    , m_handle(family == platform::Family::IP4 ? BindSomewhere(m_address, true) : BindIP6(m_address))
{
    if (IsRunning())
        m_thread = std::thread([this] { xServe(); });
}

FakeDNSServer::~FakeDNSServer()
{
    m_ending = true;
    if (m_thread.joinable())
        m_thread.join();
    if (m_streamThread.joinable())
        m_streamThread.join();
    platform::CloseSocket(m_handle);
    platform::CloseSocket(m_listener);
}

bool FakeDNSServer::ServeStreams(Script script)
{
    m_streamScript = std::move(script);
    m_listener = platform::OpenSocket(true, platform::Family::IP4);
    if (!platform::BindSocket(m_listener, EndpointOf(m_address), true) || !platform::ListenSocket(m_listener, 5))
        return false;
    m_streamThread = std::thread([this] { xServeStreams(); });
    return true;
}

std::vector<unsigned char> FakeDNSServer::sFrame(const std::vector<unsigned char>& message)
{
    std::vector<unsigned char> framed{static_cast<unsigned char>(message.size() >> 8),
                                      static_cast<unsigned char>(message.size() & 0xFF)};
    framed.insert(framed.end(), message.begin(), message.end());
    return framed;
}

void FakeDNSServer::xServeStreams()
{
    while (!m_ending) {
        platform::SocketHandle accepted = platform::INVALID_SOCKET_HANDLE;
        if (platform::WaitSocket(m_listener, true, WAIT_MS) != platform::WaitResult::READY ||
            platform::AcceptSocket(m_listener, accepted) != platform::IoResult::DONE)
            continue;
        xServeStream(accepted);
        platform::CloseSocket(accepted);
    }
}

/// Takes one query and sends the replies to it.
void FakeDNSServer::xServeStream(platform::SocketHandle handle)
{
    std::vector<unsigned char> bytes;
    const auto isWhole = [&bytes] { return bytes.size() >= 2 && bytes.size() >= bytes[0] * 256U + bytes[1] + 2; };
    bool answered = false;
    while (!m_ending && !answered) {
        unsigned char buffer[LARGEST_QUERY];
        std::size_t size = sizeof(buffer);
        if (platform::WaitSocket(handle, true, WAIT_MS) != platform::WaitResult::READY)
            continue;
        if (platform::RecvSocket(handle, buffer, size) != platform::IoResult::DONE)
            return;
        bytes.insert(bytes.end(), buffer, buffer + size);
        if (!isWhole())
            continue;
        const DNSQuery query({bytes.begin() + 2, bytes.end()});
        for (const REPLY& reply : m_streamScript(query, m_streamQueries++)) {
            answered = true;
            std::this_thread::sleep_until(Clock::now() + std::chrono::milliseconds(reply.delayMs));
            for (std::size_t done = 0; done < reply.bytes.size();) {
                std::size_t part = reply.bytes.size() - done;
                platform::WaitSocket(handle, false, WAIT_MS);
                const platform::IoResult result = platform::SendSocket(handle, reply.bytes.data() + done, part);
                if (result != platform::IoResult::DONE && result != platform::IoResult::WOULD_BLOCK)
                    return;
                done += part;
            }
        }
    }
}

std::vector<DNSQuery> FakeDNSServer::GetQueries() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_queries;
}

std::size_t FakeDNSServer::GetQueryCount() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_queries.size();
}

std::string FakeDNSServer::sGetDeadAddress()
{
    std::string address;
    platform::CloseSocket(BindSomewhere(address, false));
    return address;
}

void FakeDNSServer::xServe()
{
    std::vector<PENDING> pending;
    unsigned char buffer[LARGEST_QUERY];
    while (!m_ending) {
        SendDue(m_handle, pending);
        if (platform::WaitSocket(m_handle, true, WAIT_MS) != platform::WaitResult::READY)
            continue;
        platform::Endpoint from;
        std::size_t size = sizeof(buffer);
        if (platform::RecvSocketFrom(m_handle, buffer, size, from) != platform::IoResult::DONE)
            continue;
        const auto now = Clock::now();
        DNSQuery query({buffer, buffer + size});
        query.port = from.port;
        std::size_t number = 0;
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            number = m_queries.size();
            m_queries.push_back(query);
        }
        for (REPLY& reply : m_script(query, number))
            pending.push_back({now + std::chrono::milliseconds(reply.delayMs), std::move(reply.bytes), from});
    }
}

} // namespace kqlib::test
