// The command reception of a session and its Telnet filter. Input: options (bit 0: a lone LF ends a command, bits 1 and
// 2: who reads), the limit in two bytes, the capacity of the buffer, the pieces; then the stream.
#include "common/DataLogTime.h"
#include "common/EventLog.h"
#include "common/ThreadPool.h"
#include "fuzz/Check.h"
#include "fuzz/CommandModel.h"
#include "fuzz/Input.h"
#include "fuzz/MemorySocket.h"
#include "net/dns/NetDNSCache.h"
#include "net/session/NetTCPSession.h"

using namespace kqlib;
using namespace kqlib::fuzz;

namespace {

/// What every session borrows.
struct WORLD
{
    WORLD() { NetSocket::sStartSockets(); }
    ~WORLD() { NetSocket::sEndSockets(); }
    WORLD(const WORLD&) = delete;
    WORLD& operator=(const WORLD&) = delete;

    ThreadPool pool;
    NetDNSCache cache;
    DataLogTime activityLog;
    EventLog eventLog;
};

/// A session whose thread never runs: its operations are called here.
class Session : public NetTCPSession
{
public:
    Session(WORLD& world, NetTCP* socket, const COMMANDRULES& rules)
        : NetTCPSession(world.pool, world.cache, world.activityLog, world.eventLog, EventLogSessionID(1, 1), 3600,
                        socket)
    {
        xSetMaxCmdSize(static_cast<ULONG>(rules.limit));
        xSetCmdEndIncludesLF(rules.loneLFEnds);
    }
    ~Session() override { xDeconstrEndSession(); }

    /// One blocking read after the other. The result is what was not complete.
    String ReadEach(NetTCP::RECVBUF& buffer)
    {
        String text;
        bool oversized = false;
        while (xRecvCommand(xGetMainSocket(), xGetMainNetState(), buffer, text, oversized))
            xNote(text, oversized);
        return text;
    }
    /// The passes of the monitor, each with room for so many bytes.
    String Pass(NetTCP::RECVBUF& buffer)
    {
        String text;
        NETSTATE state = xGetMainNetState();
        for (ULONG wait = 0; xMonitorNetCmdPass(xGetMainSocket(), state, buffer, false, text, wait);)
            KQ_FUZZ_CHECK(wait > 0);
        return text;
    }
    void Monitor() { xMonitorNet(xGetMainSocket()); }

    String Filter(String text) const
    {
        xFilterTelnetSpecials(text);
        return text;
    }
    const std::vector<COMMAND>& GetCommands() const { return m_commands; }

protected:
    void xEventMonCmdRecv(const String& command) override { xNote(command, false); }
    void xEventMonCmdOverSizeRecv(const String& command) override { xNote(command, true); }

private:
    void xNote(const String& text, bool tooLong) { m_commands.push_back({text, tooLong, 0}); }

    std::vector<COMMAND> m_commands;
};

/// RFC 854: IAC, IP and DM before anything else are no part of a command.
String FilterTelnet(const String& text)
{
    for (String::size_type i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if (byte < 255 && byte != 244 && byte != 242)
            return text.substr(i);
    }
    return {};
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static WORLD world;
    Input input(data, size);
    const std::uint8_t options = input.Byte();
    COMMANDRULES rules;
    rules.crCarriesOver = true;
    rules.loneLFEnds = (options & 1) != 0;
    rules.limit = input.Byte() * 256U;
    rules.limit += input.Byte();
    std::vector<unsigned char> bytes(1U + input.Byte());
    NetTCP::RECVBUF buffer{static_cast<ULONG>(bytes.size()), bytes.data(), 0, 0, false};
    const std::vector<std::size_t> pieces = input.Pieces();
    const std::string_view stream = input.Rest();

    Session session(world, new MemorySocket<NetTCP>(stream, pieces), rules);
    const std::vector<COMMAND> expected = SplitStream(stream, rules);
    const String rest(stream.substr(expected.empty() ? 0 : expected.back().end));
    switch (options >> 1 & 3) {
    case 0:
        session.Monitor();
        break;
    case 1:
        KQ_FUZZ_CHECK(session.Pass(buffer) == rest);
        break;
    default:
        KQ_FUZZ_CHECK(session.ReadEach(buffer) == rest);
    }
    const std::vector<COMMAND>& commands = session.GetCommands();
    KQ_FUZZ_CHECK(commands.size() == expected.size());
    for (std::size_t i = 0; i < commands.size(); ++i) {
        KQ_FUZZ_CHECK(commands[i].text == expected[i].text && commands[i].tooLong == expected[i].tooLong);
        KQ_FUZZ_CHECK(session.Filter(commands[i].text) == FilterTelnet(commands[i].text));
    }
    return 0;
}
