// NetTCPSession, the exchange of commands and data: monitor, reception, sending.
#include "net/session/NetTCPSession.h"

#include "platform/Clock.h"

#include "common/RunAllSteps.h"

#include <algorithm>
#include <cstring>

namespace kqlib {

namespace {

constexpr std::uint32_t IDLE_SLEEP_MS = 2;
constexpr ULONG MIN_BUF_SIZE = 1024; // of receive and send buffer, bytes
constexpr ULONG UNCONNECTED_BUF_SIZE = 8192;
constexpr std::uint32_t MAX_CMD_RESERVE = 65536; // bytes set aside at once for a command, whatever its maximum is

constexpr unsigned char CR = 13;
constexpr unsigned char LF = 10;

// RFC 854
constexpr unsigned char TELNET_IAC = 255;
constexpr unsigned char TELNET_IP = 244;
constexpr unsigned char TELNET_DM = 242;

/// The capacity that goes with a connection: what the system takes over in one send, with a floor.
ULONG GetBufCapacity(const NetTCP& socket)
{
    return std::max<ULONG>(socket.GetBufSendSize(), MIN_BUF_SIZE);
}

} // namespace

/// While active, a socket's reads do not wait; then it has its block time back.
class NetTCPSession::ZeroBlockTime
{
public:
    ZeroBlockTime(NetTCP& socket, bool active)
        : m_socket(active ? &socket : nullptr)
        , m_blockTimeMs(socket.GetBlockTimeMs())
    {
        if (m_socket != nullptr)
            m_socket->SetBlockTime(0);
    }
    ~ZeroBlockTime()
    {
        if (m_socket != nullptr)
            m_socket->SetBlockTime(m_blockTimeMs);
    }
    ZeroBlockTime(const ZeroBlockTime&) = delete;
    ZeroBlockTime& operator=(const ZeroBlockTime&) = delete;

private:
    NetTCP* m_socket;
    ULONG m_blockTimeMs;
};

void NetTCPSession::xMonitorNet(NetTCP* const socket)
{
    std::unique_ptr<unsigned char[]> bytes; // longer there than the last handler
    RunAllSteps([&] { xMonitorUntilItEnds(socket, bytes); }, [&] { xEventMonClosed(); });
}

void NetTCPSession::xMonitorUntilItEnds(NetTCP* const socket, std::unique_ptr<unsigned char[]>& bytes)
{
    NETSTATE state = xsGetNetState(socket);
    // Megabytes on some systems, so the array stays untouched until bytes arrive.
    const ULONG capacity = GetBufCapacity(*socket);
    bytes = std::make_unique_for_overwrite<unsigned char[]>(capacity);
    NetTCP::RECVBUF buffer{capacity, bytes.get(), 0, 0, false};
    TimedEvent periodic(TimedEvent::sGetNow(), m_periodicMs, false);
    String command;
    if (!m_dataMode)
        command.reserve(std::min(m_maxCmdSize, MAX_CMD_RESERVE));

    while (xShouldSessionContinue()) {
        const ULONG now = TimedEvent::sGetNow();
        ULONG wait = 0; // above 0: time was spent already in this cycle
        if (xIsTimedOut(now))
            break;
        if (m_disconnectPending) {
            xPerformDisconnectMsg();
            break;
        }
        if (periodic.IsTriggered(now)) {
            periodic.Restart(now);
            if (xMonitorNetPeriodic(wait))
                continue;
        } else {
            xEventMonPreReadData(false, wait);
        }
        {
            const ZeroBlockTime noWait(*socket, wait > 0);
            if (!(m_dataMode ? xMonitorNetDataPass(socket, state, buffer, false, wait)
                             : xMonitorNetCmdPass(socket, state, buffer, false, command, wait)))
                break;
        }
        if (wait == 0)
            platform::SleepMs(IDLE_SLEEP_MS);
    }
}

/// The periodic part of a cycle. True: a control message was handled, and the cycle ends here.
bool NetTCPSession::xMonitorNetPeriodic(ULONG& wait)
{
    xEventMonPreReadData(false, wait);
    xEventMonPreReadData(true, wait);
    CTRLMSG msg;
    if (xProcessMsgsAndTakeNext(msg)) {
        xEventMonControlMsgRecv(msg);
        return true;
    }
    xUpdateActivityStatus();
    return false;
}

bool NetTCPSession::xMonitorNetCmdPass(NetTCP* const socket, NETSTATE& state, NetTCP::RECVBUF& buffer, bool continuing,
                                       String& command, ULONG& wait)
{
    const RECEIVED received = xReceive(socket, state, buffer, continuing, wait);
    if (received != RECEIVED::BYTES)
        return received == RECEIVED::NOTHING;

    for (SPLIT split; (split = xSplit(buffer, command)) != SPLIT::INCOMPLETE;) {
        if (m_printDebug)
            xPrintLogCommand(state, split, command);
        if (m_resetTimeOutOnRecv)
            xResetTimeOut();
        xUpdateAndCount(NetCounterBlock::COMMANDS_IN);
        if (split == SPLIT::OVERSIZED) {
            xEventMonCmdOverSizeRecv(command);
            command.clear();
            continue;
        }
        xEventMonCmdRecv(command);
        command.clear();
        if (!xSendPurgeSendBuf(socket) && !xIsConnectedAgain(socket))
            return true; // the next pass finds out
    }
    return true;
}

bool NetTCPSession::xMonitorNetDataPass(NetTCP* const socket, NETSTATE& state, NetTCP::RECVBUF& buffer, bool continuing,
                                        ULONG& wait)
{
    const RECEIVED received = xReceive(socket, state, buffer, continuing, wait);
    if (received != RECEIVED::BYTES)
        return received == RECEIVED::NOTHING;

    if (m_printDebug)
        xPrintLogDebug(state, "Received Data", buffer.buffer, buffer.length);
    if (m_resetTimeOutOnRecv)
        xResetTimeOut();
    xOfferData(buffer, wait);
    return xSendPurgeSendBuf(socket) || xGoOnAfterFailure(socket, wait);
}

/// One receive of a pass. STOP and NOTHING are the pass's results false and true, without bytes.
NetTCPSession::RECEIVED NetTCPSession::xReceive(NetTCP* const socket, const NETSTATE& state, NetTCP::RECVBUF& buffer,
                                                bool continuing, ULONG& wait)
{
    if (!continuing)
        buffer.length = buffer.capacity;
    buffer.position = 0;
    if (!xRecvData(socket, state, buffer.buffer, buffer.length))
        return xGoOnAfterFailure(socket, wait) ? RECEIVED::NOTHING : RECEIVED::STOP;
    if (socket->GetBlockTimeMs() != 0)
        ++wait;
    return buffer.length > 0 ? RECEIVED::BYTES : RECEIVED::NOTHING;
}

/// After a failed receive or send: whether the host has connected the socket again. Performs a waiting disconnect.
bool NetTCPSession::xIsConnectedAgain(NetTCP* const socket)
{
    if (socket->IsConnected() && xIsTimedOut())
        return false;
    if (m_disconnectPending) {
        xPerformDisconnectMsg();
        return false;
    }
    if (socket->IsConnected()) // it only gave up
        return false;
    xEventMonClosing();
    return socket->IsConnected();
}

/// The same as the result of a pass.
bool NetTCPSession::xGoOnAfterFailure(NetTCP* const socket, ULONG& wait)
{
    if (!xIsConnectedAgain(socket))
        return false;
    if (socket->GetBlockTimeMs() != 0)
        ++wait;
    return true;
}

/// Offers the received bytes until all are consumed or the waiting ends; what is left then is dropped.
void NetTCPSession::xOfferData(NetTCP::RECVBUF& buffer, ULONG& wait)
{
    for (;;) {
        const ULONG offered = buffer.length - buffer.position;
        ULONG consumed = offered;
        xEventMonDataRecv(buffer.buffer + buffer.position, consumed);
        buffer.position += std::min(consumed, offered);
        if (buffer.position == buffer.length)
            return;
        if (xMustStopWaiting() || !xWaitingForNetShouldWait())
            break;
        platform::SleepMs(IDLE_SLEEP_MS);
        ++wait;
    }
    buffer.position = buffer.length;
}

/// Moves bytes from the buffer into the command until one is complete (its end consumed and taken off) or has reached
/// the maximum size (what follows stays, a CR at its end still counting for an LF behind it), or the buffer is used up.
NetTCPSession::SPLIT NetTCPSession::xSplit(NetTCP::RECVBUF& buffer, String& command) const
{
    while (buffer.position < buffer.length) {
        const unsigned char* const next = buffer.buffer + buffer.position;
        if (*next == LF && (buffer.lastWasCR || m_cmdEndIncludesLF)) {
            if (buffer.lastWasCR && !command.empty())
                command.pop_back();
            buffer.lastWasCR = false;
            ++buffer.position;
            return SPLIT::COMMAND;
        }
        // All bytes up to the next LF at once, as far as there is room; at least this one, an LF that ends nothing too.
        const ULONG room = m_maxCmdSize > command.size() ? m_maxCmdSize - static_cast<ULONG>(command.size()) : 1;
        ULONG count = std::min(room, buffer.length - buffer.position);
        if (const void* const end = std::memchr(next + 1, LF, count - 1))
            count = static_cast<ULONG>(static_cast<const unsigned char*>(end) - next);
        command.append(reinterpret_cast<const char*>(next), count);
        buffer.lastWasCR = next[count - 1] == CR;
        buffer.position += count;
        if (command.size() >= m_maxCmdSize)
            return SPLIT::OVERSIZED;
    }
    return SPLIT::INCOMPLETE;
}

void NetTCPSession::xPrintLogCommand(const NETSTATE& state, SPLIT split, const String& command) const
{
    xPrintLogDebug(state, split == SPLIT::OVERSIZED ? "Received Command (Oversized)" : "Received Command", command, "");
}

/// What ends every wait but a forced one.
bool NetTCPSession::xMustStopWaiting() const
{
    return xShouldSessionEnd() || xIsTimedOut() || m_disconnectPending;
}

bool NetTCPSession::xRecvCommand(NetTCP* const socket, const NETSTATE& state, NetTCP::RECVBUF& buffer, String& command,
                                 bool& oversized)
{
    command.clear();
    oversized = false;
    for (;;) {
        if (xShouldSessionEnd())
            return false;
        const ULONG now = TimedEvent::sGetNow();
        if (xIsTimedOut(now))
            return false;
        if (m_disconnectPending) {
            xPerformDisconnectMsg();
            return false;
        }
        if (buffer.position >= buffer.length) {
            buffer.length = buffer.capacity;
            buffer.position = 0;
            if (!xRecvData(socket, state, buffer.buffer, buffer.length))
                return false;
            if (buffer.length == 0) {
                if (!xWaitingForNetShouldWait())
                    return false;
                if (socket->GetBlockTimeMs() == 0)
                    platform::SleepMs(IDLE_SLEEP_MS);
                continue;
            }
        }
        const SPLIT split = xSplit(buffer, command);
        if (split == SPLIT::INCOMPLETE)
            continue;
        if (m_printDebug)
            xPrintLogCommand(state, split, command);
        xResetTimeOut(now); // whatever xSetResetTimeOutOnRecv said: kept on purpose
        xUpdateAndCount(NetCounterBlock::COMMANDS_IN);
        oversized = split == SPLIT::OVERSIZED;
        return true;
    }
}

bool NetTCPSession::xRecvData(NetTCP* const socket, const NETSTATE& state, unsigned char* data, ULONG& length)
{
    if (!socket->IsConnected()) {
        length = 0;
        return false;
    }
    if (!socket->Recv(data, length)) {
        xEndBroken(socket, state);
        return false;
    }
    if (length > 0)
        xUpdateAndCount(NetCounterBlock::DATA_IN_BYTES, length);
    return true;
}

/// After a failed receive or send, which has closed the socket; its addresses as they were come in state.
void NetTCPSession::xEndBroken(NetTCP* const socket, const NETSTATE& state)
{
    RunAllSteps([&] { xTellMainNetClosed(socket); }, [&] { xPrintLogNormal(state, "Connection Closed", "", ""); },
                [&] { xClose(socket); });
}

bool NetTCPSession::xSendCommand(NetTCP* const socket, const String& text)
{
    return xSendCommandThrough(&NetTCPSession::xSendAllDataNoBuf, socket, text);
}

bool NetTCPSession::xSendCommandForce(NetTCP* const socket, const String& text)
{
    return xSendCommandThrough(&NetTCPSession::xSendAllDataForceNoBuf, socket, text);
}

bool NetTCPSession::xSendCommandThrough(SENDER sender, NetTCP* const socket, const String& text)
{
    if (m_printDebug)
        xPrintLogDebug(socket, "Sent Command", text, "");
    const String line = text + "\r\n";
    if (!xSendThrough(sender, socket, reinterpret_cast<const unsigned char*>(line.data()),
                      static_cast<ULONG>(line.size()), false))
        return false;
    if (m_bufferedMode)
        xUpdateActivityStatus();
    xCount(NetCounterBlock::COMMANDS_OUT);
    return true;
}

bool NetTCPSession::xSendAllData(NetTCP* const socket, const unsigned char* data, ULONG length)
{
    return xSendThrough(&NetTCPSession::xSendAllDataNoBuf, socket, data, length, true);
}

bool NetTCPSession::xSendAllDataForce(NetTCP* const socket, const unsigned char* data, ULONG length)
{
    return xSendThrough(&NetTCPSession::xSendAllDataForceNoBuf, socket, data, length, true);
}

/// Through the send buffer in buffered mode, else at once. log: with debug lines of the bytes.
bool NetTCPSession::xSendThrough(SENDER sender, NetTCP* const socket, const unsigned char* data, ULONG length, bool log)
{
    if (log && m_printDebug)
        xPrintLogDebug(socket, "Sent Data", data, length);
    if (!m_bufferedMode || m_sendBufCapacity == 0)
        return (this->*sender)(socket, data, length);

    while (length > m_sendBufCapacity - m_sendBufFill) {
        const ULONG room = m_sendBufCapacity - m_sendBufFill;
        std::copy_n(data, room, m_sendBuf.get() + m_sendBufFill);
        m_sendBufFill = m_sendBufCapacity;
        data += room;
        length -= room;
        if (!(this->*sender)(socket, m_sendBuf.get(), m_sendBufFill))
            return false;
        m_sendBufFill = 0;
    }
    std::copy_n(data, length, m_sendBuf.get() + m_sendBufFill);
    m_sendBufFill += length;
    return true;
}

bool NetTCPSession::xSendAllDataNoBuf(NetTCP* const socket, const unsigned char* data, ULONG length)
{
    return xSendDirect(socket, data, length, false);
}

bool NetTCPSession::xSendAllDataForceNoBuf(NetTCP* const socket, const unsigned char* data, ULONG length)
{
    return xSendDirect(socket, data, length, true);
}

bool NetTCPSession::xSendDirect(NetTCP* const socket, const unsigned char* data, ULONG length, bool force)
{
    if (!socket->IsConnected())
        return false;
    const NETSTATE state = xsGetNetState(socket);
    while (length > 0) {
        if (!force && xMustStopWaiting())
            return false;
        ULONG sent = length;
        if (!socket->Send(data, sent)) {
            xEndBroken(socket, state);
            return false;
        }
        if (sent > 0) {
            xUpdateAndCount(NetCounterBlock::DATA_OUT_BYTES, sent);
            if (m_resetTimeOutOnSend)
                xResetTimeOut();
            data += sent;
            length -= sent;
        }
        // Asked before the test for the end: a no after the last bytes makes the whole send fail, kept on purpose.
        if (!force && !xWaitingForNetShouldWait())
            return false;
        if (sent == 0 && socket->GetBlockTimeMs() == 0)
            platform::SleepMs(IDLE_SLEEP_MS);
    }
    return true;
}

bool NetTCPSession::xSendPurgeSendBuf(NetTCP* const socket)
{
    return xPurgeSendBufThrough(&NetTCPSession::xSendAllDataNoBuf, socket);
}

bool NetTCPSession::xSendPurgeSendBufForce(NetTCP* const socket)
{
    return xPurgeSendBufThrough(&NetTCPSession::xSendAllDataForceNoBuf, socket);
}

bool NetTCPSession::xPurgeSendBufThrough(SENDER sender, NetTCP* const socket)
{
    if (!m_bufferedMode || m_sendBufFill == 0)
        return true;
    bool sent = false;
    RunAllSteps([&] { sent = (this->*sender)(socket, m_sendBuf.get(), m_sendBufFill); }, [&] { m_sendBufFill = 0; });
    return sent;
}

void NetTCPSession::xSetBufMode(NetTCP* const socket, bool on)
{
    if (!on) {
        m_sendBufFill = 0;
        return;
    }
    const ULONG capacity = socket != nullptr && socket->IsConnected() ? GetBufCapacity(*socket) : UNCONNECTED_BUF_SIZE;
    if (capacity == m_sendBufCapacity)
        return;
    m_sendBuf = std::make_unique_for_overwrite<unsigned char[]>(capacity);
    m_sendBufCapacity = capacity;
    m_sendBufFill = 0;
}

void NetTCPSession::xFilterTelnetSpecials(String& text) const
{
    const auto isSpecial = [](char character) {
        const auto byte = static_cast<unsigned char>(character);
        return byte == TELNET_IAC || byte == TELNET_IP || byte == TELNET_DM;
    };
    const auto first = std::find_if_not(text.begin(), text.end(), isSpecial);
    text.erase(0, static_cast<String::size_type>(first - text.begin()));
}

} // namespace kqlib
