// FtpTestClient: a client that says exactly what a test tells it to.
#include "tests/hosts/ftp/FtpTestClient.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace kqlib::test {

namespace {

using platform::IoResult;
using CLOCK = std::chrono::steady_clock;

platform::Endpoint LoopbackEnd(std::uint16_t port, unsigned char lastByte = 1)
{
    platform::Endpoint end;
    end.port = port;
    const unsigned char bytes[] = {127, 0, 0, lastByte};
    std::copy(std::begin(bytes), std::end(bytes), end.bytes);
    return end;
}

std::uint32_t MsUntil(CLOCK::time_point deadline)
{
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - CLOCK::now()).count();
    return static_cast<std::uint32_t>(std::max<long long>(left, 0));
}

} // namespace

FtpTestSocket::FtpTestSocket(FtpTestSocket&& other) noexcept
    : m_handle(std::exchange(other.m_handle, platform::INVALID_SOCKET_HANDLE))
    , m_isEnded(other.m_isEnded)
{
}

FtpTestSocket& FtpTestSocket::operator=(FtpTestSocket&& other) noexcept
{
    std::swap(m_handle, other.m_handle);
    std::swap(m_isEnded, other.m_isEnded);
    return *this;
}

bool FtpTestSocket::Connect(std::uint16_t port, unsigned char lastByte)
{
    Close();
    m_handle = platform::OpenSocket(true, platform::Family::IP4);
    if (!platform::BindSocket(m_handle, LoopbackEnd(0, lastByte), false))
        return false;
    IoResult result = platform::ConnectSocket(m_handle, LoopbackEnd(port));
    const auto deadline = CLOCK::now() + std::chrono::milliseconds(waitForMs);
    while (result == IoResult::IN_PROGRESS && CLOCK::now() < deadline)
        result = platform::PollConnect(m_handle, 10000);
    return result == IoResult::DONE;
}

std::uint16_t FtpTestSocket::Listen()
{
    Close();
    m_handle = platform::OpenSocket(true, platform::Family::IP4);
    platform::Endpoint local;
    const bool isListening = platform::BindSocket(m_handle, LoopbackEnd(0), true) &&
                             platform::ListenSocket(m_handle, 5) && platform::GetLocalEndpointIP4(m_handle, local);
    return isListening ? local.port : std::uint16_t{0};
}

bool FtpTestSocket::Accept(unsigned ms)
{
    platform::SocketHandle accepted = platform::INVALID_SOCKET_HANDLE;
    if (platform::WaitSocket(m_handle, true, ms) != platform::WaitResult::READY ||
        platform::AcceptSocket(m_handle, accepted) != IoResult::DONE)
        return false;
    Close();
    m_handle = accepted;
    return true;
}

void FtpTestSocket::Close()
{
    platform::CloseSocket(std::exchange(m_handle, platform::INVALID_SOCKET_HANDLE));
    m_isEnded = false;
}

void FtpTestSocket::Reset()
{
    platform::AbortSocket(std::exchange(m_handle, platform::INVALID_SOCKET_HANDLE));
    m_isEnded = false;
}

bool FtpTestSocket::Send(const std::string& bytes, unsigned ms)
{
    const auto deadline = CLOCK::now() + std::chrono::milliseconds(ms);
    std::size_t sent = 0;
    while (sent < bytes.size()) {
        if (platform::WaitSocket(m_handle, false, MsUntil(deadline)) != platform::WaitResult::READY)
            return false;
        std::size_t size = bytes.size() - sent;
        const IoResult result =
            platform::SendSocket(m_handle, reinterpret_cast<const unsigned char*>(bytes.data()) + sent, size);
        if (result != IoResult::DONE && result != IoResult::WOULD_BLOCK)
            return false;
        sent += size;
    }
    return true;
}

std::size_t FtpTestSocket::SendUntilStuck(const std::string& bytes)
{
    constexpr std::uint32_t PATIENCE_MS = 500;
    std::size_t sent = 0;
    while (sent < bytes.size() && platform::WaitSocket(m_handle, false, PATIENCE_MS) == platform::WaitResult::READY) {
        std::size_t size = bytes.size() - sent;
        const IoResult result =
            platform::SendSocket(m_handle, reinterpret_cast<const unsigned char*>(bytes.data()) + sent, size);
        if (result != IoResult::DONE && result != IoResult::WOULD_BLOCK)
            break;
        sent += size;
    }
    return sent;
}

bool FtpTestSocket::Receive(std::string& bytes, unsigned ms)
{
    constexpr std::size_t ROOM = 65536;
    if (!IsOpen() || m_isEnded || platform::WaitSocket(m_handle, true, ms) != platform::WaitResult::READY)
        return false;
    std::string buffer(ROOM, '\0');
    std::size_t size = buffer.size();
    const IoResult result = platform::RecvSocket(m_handle, reinterpret_cast<unsigned char*>(buffer.data()), size);
    m_isEnded = result != IoResult::DONE && result != IoResult::WOULD_BLOCK;
    bytes.append(buffer, 0, size);
    return !m_isEnded;
}

std::string FtpTestSocket::ReceiveAll(unsigned ms)
{
    const auto deadline = CLOCK::now() + std::chrono::milliseconds(ms);
    std::string bytes;
    while (Receive(bytes, MsUntil(deadline))) {
    }
    return bytes;
}

bool FtpTestSocket::WaitClosed(unsigned ms)
{
    ReceiveAll(ms);
    return m_isEnded;
}

bool FtpTestClient::Connect(std::uint16_t port, unsigned char lastByte)
{
    m_received.clear();
    return m_socket.Connect(port, lastByte) && ReadCode() == 220;
}

bool FtpTestClient::LogIn(std::uint16_t port, const std::string& user, const std::string& password,
                          unsigned char lastByte)
{
    return Connect(port, lastByte) && Code("USER " + user) == 331 && Code("PASS " + password) == 230;
}

std::string FtpTestClient::ReadReply(unsigned ms)
{
    constexpr std::size_t CODE_SIZE = 3;
    const auto deadline = CLOCK::now() + std::chrono::milliseconds(ms);
    std::string reply;
    std::string last; // the beginning of the line that ends a reply of several lines
    for (;;) {
        const std::size_t end = m_received.find("\r\n");
        if (end == std::string::npos) {
            if (!m_socket.Receive(m_received, MsUntil(deadline)))
                return {};
            continue;
        }
        const std::string line = m_received.substr(0, end);
        m_received.erase(0, end + 2);
        reply += line + "\n";
        if (last.empty() && line.size() > CODE_SIZE && line[CODE_SIZE] == '-')
            last = line.substr(0, CODE_SIZE) + " ";
        else if (last.empty() || line.rfind(last, 0) == 0)
            return reply;
    }
}

int FtpTestClient::ReadCode(unsigned ms)
{
    const std::string reply = ReadReply(ms);
    return reply.empty() ? 0 : std::stoi(reply.substr(0, 3));
}

std::string FtpTestClient::Ask(const std::string& line)
{
    Send(line + "\r\n");
    return ReadReply();
}

int FtpTestClient::Code(const std::string& line)
{
    Send(line + "\r\n");
    return ReadCode();
}

std::uint16_t FtpTestClient::PortOfEpsv(const std::string& reply)
{
    const std::size_t bars = reply.find("(|||");
    return reply.rfind("229 ", 0) == 0 && bars != std::string::npos
               ? static_cast<std::uint16_t>(std::stoi(reply.substr(bars + 4)))
               : std::uint16_t{0};
}

bool FtpTestClient::OpenPassive(FtpTestSocket& data)
{
    const std::uint16_t port = PortOfEpsv(Ask("EPSV"));
    return port != 0 && data.Connect(port);
}

int FtpTestClient::Download(const std::string& command, std::string& bytes)
{
    FtpTestSocket data;
    if (!OpenPassive(data))
        return 0;
    const int first = Code(command);
    if (first != 150)
        return first;
    bytes = data.ReceiveAll();
    return ReadCode();
}

int FtpTestClient::Upload(const std::string& command, const std::string& bytes)
{
    FtpTestSocket data;
    if (!OpenPassive(data))
        return 0;
    const int first = Code(command);
    if (first != 150)
        return first;
    data.Send(bytes);
    data.Close();
    return ReadCode();
}

} // namespace kqlib::test
