// A whole conversation with kqftpd. Input: options (bit 0: the user has logged in already), the pieces, then what the
// client says.
#include "common/DataLogTime.h"
#include "common/EventLog.h"
#include "common/ThreadPool.h"
#include "fuzz/Check.h"
#include "fuzz/CommandModel.h"
#include "fuzz/Input.h"
#include "fuzz/MemorySocket.h"
#include "hosts/ftp/FtpService.h"
#include "hosts/ftp/FtpSession.h"
#include "hosts/ftpcommon/FtpPaths.h"
#include "net/dns/NetDNSCache.h"
#include "net/sockets/NetUDP.h"
#include "tests/peers/TempFolder.h"
#include "tests/peers/WaitFor.h"

#include <fstream>
#include <memory>
#include <string>

using namespace kqlib;
using namespace kqlib::fuzz;

namespace {

/// Of the line that a session takes.
constexpr std::size_t MAX_COMMAND = 1024;
constexpr std::string_view SECRET = "what no client may see or change";
/// A client that hangs up during a transfer gets no more answers: this one stays until every transfer has failed.
constexpr unsigned PATIENCE = 200;
/// The address that the client seems to come from: nothing listens there, so no data connection goes anywhere.
constexpr const char* CLIENT = "127.9.9.9";
constexpr USHORT CLIENT_PORT = 9;

/// The server's parts, and a folder whose home is made anew for every conversation.
class Server
{
public:
    Server()
        : m_config(std::make_shared<const FtpConfig>(xMakeSettings()))
        , m_gate(m_cache)
        , m_service(m_pool, m_cache, m_config)
        , m_board(m_pool, m_service)
    {
        NetSocket::sStartSockets();
        NetTCPSSL::sStartSSL();
        KQ_FUZZ_CHECK(m_board.Start());
        std::filesystem::create_directory(m_folder / "outside");
        std::ofstream(m_folder / "outside/secret", std::ios::binary) << SECRET;
    }
    ~Server()
    {
        m_board.End();
        NetSocket::sEndSockets();
    }
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    /// Lets a session hear the bytes; the result is what it said.
    std::string Talk(std::string_view bytes, const std::vector<std::size_t>& pieces)
    {
        xMakeHome();
        NetUDP ends(NetIP::LOOKUP_ANY);
        KQ_FUZZ_CHECK(ends.OpenClient(NetIP(String(CLIENT)), CLIENT_PORT));
        auto* const socket = new MemorySocket<FtpSocket>(bytes, pieces, ends.Detach());
        socket->SetPatience(PATIENCE);
        FtpSession session(m_pool, m_cache, m_activityLog, m_eventLog, EventLogSessionID(1, 1), socket, m_config,
                           m_gate, m_uploads, m_transferLog, m_board);
        KQ_FUZZ_CHECK(WaitFor([&session] { return session.IsComplete(); }, 60000));
        return socket->GetSent();
    }

    /// Nothing beside the home has come, gone or changed.
    void CheckOutside() const
    {
        std::size_t count = 0;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(m_folder.GetPath())) {
            const std::string name = entry.path().lexically_relative(m_folder.GetPath()).generic_string();
            if (name == "home" || name.starts_with("home/"))
                continue;
            KQ_FUZZ_CHECK(name == "outside" || name == "outside/secret");
            ++count;
        }
        KQ_FUZZ_CHECK(count == 2);
        std::ifstream file(m_folder / "outside/secret", std::ios::binary);
        KQ_FUZZ_CHECK(std::string(std::istreambuf_iterator<char>(file), {}) == SECRET);
    }

private:
    FtpSettings xMakeSettings() const
    {
        FtpUserSettings user;
        user.SetName("user");
        user.SetIsAnonymous(true); // any password does, and none costs the time of a hash
        user.SetHome(FromStdPath(m_folder / "home"));
        user.SetRights("read,write,delete,admin");
        FtpSettings settings;
        settings.SetUsers({user});
        settings.SetLoginAttempts(1);
        settings.SetHammerAttempts(0);
        settings.SetConnectSecs(0);
        settings.SetStallSecs(1);
        settings.SetPassivePorts("none"); // no port can be had: nobody would connect to it
        return settings;
    }

    void xMakeHome() const
    {
        std::error_code cannotLink; // on a system without links there are none
        const std::filesystem::path home = m_folder / "home";
        std::filesystem::remove_all(home);
        std::filesystem::create_directories(home / "d/e");
        std::ofstream(home / "f", std::ios::binary) << "a file\n";
        std::ofstream(home / "d/g", std::ios::binary) << "another\n";
        std::filesystem::create_symlink("../outside", home / "out", cannotLink);
        std::filesystem::create_symlink("../../outside/secret", home / "d/s", cannotLink);
        std::filesystem::create_symlink("d", home / "in", cannotLink);
    }

    test::TempFolder m_folder;
    ThreadPool m_pool;
    NetDNSCache m_cache;
    DataLogTime m_activityLog;
    EventLog m_eventLog;
    const std::shared_ptr<const FtpConfig> m_config;
    FtpGate m_gate;
    FtpUploads m_uploads;
    FtpTransferLog m_transferLog;
    FtpService m_service;
    FtpLiveBoard m_board;
};

/// What the session said, reply by reply (RFC 959, section 4.2): "ddd text", or "ddd-text" up to a line "ddd text".
class Replies
{
public:
    explicit Replies(std::string_view sent)
    {
        while (!sent.empty()) {
            const std::string_view line = xTakeLine(sent);
            KQ_FUZZ_CHECK(line.size() >= 4 && (line[3] == ' ' || line[3] == '-'));
            const std::string code(line.substr(0, 3));
            KQ_FUZZ_CHECK(code.find_first_not_of("0123456789") == std::string::npos && code[0] >= '1' &&
                          code[0] <= '5');
            while (line[3] == '-' && !xTakeLine(sent).starts_with(code + " "))
                KQ_FUZZ_CHECK(!sent.empty());
            if (code[0] != '1')
                finals.push_back(std::stoi(code));
            KQ_FUZZ_CHECK(line != "213 " + std::to_string(SECRET.size())); // its size
        }
    }

    std::vector<int> finals; ///< the codes of all replies but those that only say that something has begun

private:
    static std::string_view xTakeLine(std::string_view& sent)
    {
        const std::size_t end = sent.find("\r\n");
        KQ_FUZZ_CHECK(end != std::string_view::npos);
        const std::string_view line = sent.substr(0, end);
        for (const char character : line)
            KQ_FUZZ_CHECK(character != '\r' && character != '\n' && character != '\0');
        sent.remove_prefix(end + 2);
        return line;
    }
};

/// The lines that the client has said, each of which is to be answered; one that is too long counts once, with all of
/// its rest.
std::size_t CountLines(std::string_view bytes)
{
    std::size_t count = 0;
    bool isRest = false;
    for (const COMMAND& command : SplitStream(bytes, {true, MAX_COMMAND, true})) {
        count += isRest ? 0 : 1;
        isRest = command.tooLong;
    }
    return count;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static Server server;
    Input input(data, size);
    const bool isLoggedIn = (input.Byte() & 1) != 0;
    const std::vector<std::size_t> pieces = input.Pieces();
    const std::string said = (isLoggedIn ? "USER user\r\nPASS x\r\n" : "") + std::string(input.Rest());

    const Replies replies(server.Talk(said, pieces));
    KQ_FUZZ_CHECK(!replies.finals.empty() && replies.finals.front() == 220);
    const int last = replies.finals.back();
    const bool isEnded = last == 221 || last == 421; // what came behind was not read
    const std::size_t answered = replies.finals.size() - 1;
    KQ_FUZZ_CHECK(isEnded ? answered <= CountLines(said) : answered == CountLines(said));
    server.CheckOutside();
    return 0;
}
