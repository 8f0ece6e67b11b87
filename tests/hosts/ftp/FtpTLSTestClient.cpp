// FtpTLSTestClient: a client that can speak TLS, on the library's own socket.
#include "tests/hosts/ftp/FtpTLSTestClient.h"

#include "tests/hosts/ftp/FtpTestClient.h"
#include "tests/peers/WaitFor.h"

namespace kqlib::test {

namespace {

constexpr const char* LOCALHOST = "127.0.0.1";

} // namespace

FtpTLSTestClient::FtpTLSTestClient()
    : m_control(NetIP::LOOKUP_ANY)
{
}

bool FtpTLSTestClient::Connect(std::uint16_t port)
{
    m_received.clear();
    return m_control.Connect(LOCALHOST, port);
}

bool FtpTLSTestClient::LogIn(std::uint16_t port)
{
    return Connect(port) && ReadCode() == 220 && Code("AUTH TLS") == 234 && Secure() && Code("USER admin") == 331 &&
           Code("PASS secret") == 230;
}

std::string FtpTLSTestClient::ReadReply()
{
    std::string reply;
    std::string last; // the beginning of the line that ends a reply of several lines
    for (;;) {
        const std::size_t end = m_received.find("\r\n");
        if (end == std::string::npos) {
            if (!sReceive(m_control, m_received))
                return {};
            continue;
        }
        const std::string line = m_received.substr(0, end);
        m_received.erase(0, end + 2);
        reply += line + "\n";
        if (last.empty() && line.size() > 3 && line[3] == '-')
            last = line.substr(0, 3) + " ";
        else if (last.empty() || line.rfind(last, 0) == 0)
            return reply;
    }
}

int FtpTLSTestClient::ReadCode()
{
    return ToCode(ReadReply());
}

std::string FtpTLSTestClient::Ask(const std::string& line)
{
    Send(line + "\r\n");
    return ReadReply();
}

bool FtpTLSTestClient::WaitClosed()
{
    while (sReceive(m_control, m_received)) {
    }
    return !m_control.IsConnected();
}

bool FtpTLSTestClient::Prepare(NetTCPSSL& data, MODE mode)
{
    if (mode == PASSIVE) {
        const std::uint16_t port = FtpTestClient::PortOfEpsv(Ask("EPSV"));
        return port != 0 && data.Connect(LOCALHOST, port);
    }
    return data.ListenSpecific(0, LOCALHOST) &&
           Code("EPRT |1|127.0.0.1|" + std::to_string(data.GetLocalPort()) + "|") == 200;
}

int FtpTLSTestClient::Begin(NetTCPSSL& data, const std::string& command, MODE mode)
{
    if (!Prepare(data, mode))
        return 0;
    const int code = Code(command);
    if (code == 150 && mode == ACTIVE && !WaitFor([&data] { return data.SelfAccept(); }))
        return 0;
    return code;
}

int FtpTLSTestClient::Download(const std::string& command, std::string& bytes, MODE mode, bool isProtected)
{
    NetTCPSSL data(NetIP::LOOKUP_ANY);
    const int code = Begin(data, command, mode);
    if (code != 150)
        return code;
    if (isProtected && !data.SSLConnect())
        return 0;
    bytes.clear();
    while (sReceive(data, bytes)) {
    }
    return ReadCode();
}

int FtpTLSTestClient::Upload(const std::string& command, const std::string& bytes, MODE mode, bool isProtected)
{
    NetTCPSSL data(NetIP::LOOKUP_ANY);
    const int code = Begin(data, command, mode);
    if (code != 150)
        return code;
    if ((isProtected && !data.SSLConnect()) || !sSend(data, bytes))
        return 0;
    data.ShutdownAndClose();
    return ReadCode();
}

bool FtpTLSTestClient::sSend(NetTCP& socket, const std::string& bytes)
{
    std::size_t sent = 0;
    bool isOpen = true;
    WaitFor([&] {
        auto length = static_cast<unsigned long>(bytes.size() - sent);
        isOpen = length == 0 || socket.Send(bytes.data() + sent, length);
        sent += length;
        return !isOpen || sent == bytes.size();
    });
    return isOpen && sent == bytes.size();
}

bool FtpTLSTestClient::sReceive(NetTCP& socket, std::string& bytes)
{
    std::string buffer(65536, '\0');
    unsigned long got = 0;
    bool isOpen = true;
    WaitFor([&] {
        got = static_cast<unsigned long>(buffer.size());
        isOpen = socket.Recv(buffer.data(), got);
        return !isOpen || got != 0;
    });
    bytes.append(buffer, 0, got);
    return isOpen && got != 0;
}

} // namespace kqlib::test
