// NetTCPSession, the exchange of commands and data: monitor, reception, sending.
#include "net/session/NetTCPSession.h"

#include "platform/Clock.h"

#include "common/RunAllSteps.h"
#include "net/session/NetTCPSessionParts.h"

#include <algorithm>

namespace kqlib {

namespace {

constexpr std::uint32_t IDLE_SLEEP_MS = 2;
constexpr ULONG MIN_BUF_SIZE = 1024; // of receive and send buffer, bytes
constexpr ULONG UNCONNECTED_BUF_SIZE = 8192;
constexpr std::uint32_t MAX_CMD_RESERVE = 65536; // bytes set aside at once for a command, whatever its maximum is

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
    TimedEvent periodic(TimedEvent::sGetNow(), m_parts->periodicMs, false);
    String command;
    if (!m_parts->dataMode)
        command.reserve(std::min(m_parts->splitter.GetMaxSize(), MAX_CMD_RESERVE));

    while (xShouldSessionContinue()) {
        const ULONG now = TimedEvent::sGetNow();
        ULONG wait = 0; // above 0: time was spent already in this cycle
        if (xIsTimedOut(now))
            break;
        if (m_parts->disconnectPending) {
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
            if (!(m_parts->dataMode ? xMonitorNetDataPass(socket, state, buffer, false, wait)
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
    m_parts->book.Update();
    return false;
}

bool NetTCPSession::xMonitorNetCmdPass(NetTCP* const socket, NETSTATE& state, NetTCP::RECVBUF& buffer, bool continuing,
                                       String& command, ULONG& wait)
{
    const RECEIVED received = xReceive(socket, state, buffer, continuing, wait);
    if (received != RECEIVED::BYTES)
        return received == RECEIVED::NOTHING;

    using RESULT = CommandSplitter::RESULT;
    for (RESULT found; (found = m_parts->splitter.Split(buffer, command)) != RESULT::INCOMPLETE;) {
        const bool oversized = found == RESULT::OVERSIZED;
        xNoteCommandFound(socket, buffer);
        if (m_parts->printDebug)
            xPrintLogCommand(state, oversized, command);
        m_parts->timeOut.NoteRecv();
        m_parts->book.UpdateAndCount(NetCounterBlock::COMMANDS_IN);
        if (oversized) {
            xEventMonCmdOverSizeRecv(command);
            command.clear();
            continue;
        }
        xEventMonCmdRecv(command);
        command.clear();
        if (!xSendPurgeSendBuf(socket) && !xIsConnectedAgain(socket))
            return true; // the next pass finds out
    }
    xSendHeldReplies(); // the last command may have had no reply; the next pass finds out when it fails
    return true;
}

bool NetTCPSession::xMonitorNetDataPass(NetTCP* const socket, NETSTATE& state, NetTCP::RECVBUF& buffer, bool continuing,
                                        ULONG& wait)
{
    const RECEIVED received = xReceive(socket, state, buffer, continuing, wait);
    if (received != RECEIVED::BYTES)
        return received == RECEIVED::NOTHING;

    if (m_parts->printDebug)
        xPrintLogDebug(state, "Received Data", buffer.buffer, buffer.length);
    m_parts->timeOut.NoteRecv();
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
    if (m_parts->disconnectPending) {
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

void NetTCPSession::xPrintLogCommand(const NETSTATE& state, bool oversized, const String& command) const
{
    xPrintLogDebug(state, oversized ? "Received Command (Oversized)" : "Received Command", command, "");
}

/// What ends every wait but a forced one.
bool NetTCPSession::xMustStopWaiting() const
{
    return xShouldSessionEnd() || xIsTimedOut() || m_parts->disconnectPending;
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
        if (m_parts->disconnectPending) {
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
        const CommandSplitter::RESULT found = m_parts->splitter.Split(buffer, command);
        if (found == CommandSplitter::RESULT::INCOMPLETE)
            continue;
        oversized = found == CommandSplitter::RESULT::OVERSIZED;
        xNoteCommandFound(socket, buffer);
        if (m_parts->printDebug)
            xPrintLogCommand(state, oversized, command);
        xResetTimeOut(now); // whatever xSetResetTimeOutOnRecv said: kept on purpose
        m_parts->book.UpdateAndCount(NetCounterBlock::COMMANDS_IN);
        return true;
    }
}

/// Before its handler sees a command of the main socket: whether the replies have to wait for more of them.
void NetTCPSession::xNoteCommandFound(const NetTCP* const socket, const NetTCP::RECVBUF& buffer)
{
    if (m_parts->replies.IsOn() && socket == m_mainSocket.get())
        m_parts->replies.NoteCommand(m_parts->splitter.HoldsWhole(buffer));
}

bool NetTCPSession::xRecvData(NetTCP* const socket, const NETSTATE& state, unsigned char* data, ULONG& length)
{
    xSendHeldReplies();
    if (!socket->IsConnected()) {
        length = 0;
        return false;
    }
    if (!socket->Recv(data, length)) {
        xEndBroken(socket, state);
        return false;
    }
    if (length > 0)
        m_parts->book.UpdateAndCount(NetCounterBlock::DATA_IN_BYTES, length);
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
    return xSendLine(socket, text, MANNER::POLITE);
}

bool NetTCPSession::xSendCommandForce(NetTCP* const socket, const String& text)
{
    return xSendLine(socket, text, MANNER::FORCED);
}

bool NetTCPSession::xSendLine(NetTCP* const socket, const String& text, MANNER manner)
{
    if (m_parts->printDebug)
        xPrintLogDebug(socket, "Sent Command", text, "");
    const String line = text + "\r\n";
    if (!xSendBytes(socket, reinterpret_cast<const unsigned char*>(line.data()), static_cast<ULONG>(line.size()),
                    manner))
        return false;
    if (m_bufferedMode)
        m_parts->book.Update();
    m_parts->book.Count(NetCounterBlock::COMMANDS_OUT);
    return true;
}

bool NetTCPSession::xSendAllData(NetTCP* const socket, const unsigned char* data, ULONG length)
{
    return xSendLogged(socket, data, length, MANNER::POLITE);
}

bool NetTCPSession::xSendAllDataForce(NetTCP* const socket, const unsigned char* data, ULONG length)
{
    return xSendLogged(socket, data, length, MANNER::FORCED);
}

bool NetTCPSession::xSendLogged(NetTCP* const socket, const unsigned char* data, ULONG length, MANNER manner)
{
    if (m_parts->printDebug)
        xPrintLogDebug(socket, "Sent Data", data, length);
    return xSendBytes(socket, data, length, manner);
}

/// Through the send buffer in buffered mode, else at once.
bool NetTCPSession::xSendBytes(NetTCP* const socket, const unsigned char* data, ULONG length, MANNER manner)
{
    if (!m_bufferedMode || !m_parts->sendBuffer.IsMade())
        return xSendDirect(socket, data, length, manner);
    return m_parts->sendBuffer.Add(
        data, length, [&](const unsigned char* full, ULONG size) { return xSendDirect(socket, full, size, manner); });
}

/// To the socket, or to the replies that are held back for it.
bool NetTCPSession::xSendDirect(NetTCP* const socket, const unsigned char* data, ULONG length, MANNER manner)
{
    if (m_parts->replies.IsIdle() || length == 0)
        return xSendOut(socket, data, length, manner);
    if (socket == m_mainSocket.get())
        return xSendWithHeld(data, length, manner);
    xSendHeldReplies(); // the client is to see things in the order in which they were said
    return xSendOut(socket, data, length, manner);
}

/// A send over the main socket while replies are held back, or to be.
bool NetTCPSession::xSendWithHeld(const unsigned char* data, ULONG length, MANNER manner)
{
    if (!m_mainSocket->IsConnected() || (manner == MANNER::POLITE && xMustStopWaiting()))
        return false;
    const MANNER mannerOfHeld = manner == MANNER::POLITE ? MANNER::HELD : manner;
    const bool wait = manner == MANNER::POLITE && m_parts->replies.IsOpen();
    if (m_parts->replies.Add(data, length))
        return wait || xSendHeld(mannerOfHeld);
    return xSendHeld(mannerOfHeld) && xSendOut(m_mainSocket.get(), data, length, manner);
}

void NetTCPSession::xSetBatchReplies(bool on)
{
    m_parts->replies.SetOn(on);
    if (!on)
        xSendHeldReplies();
}

bool NetTCPSession::xSendHeldReplies()
{
    return xSendHeld(MANNER::HELD);
}

/// What fails is not tried again.
bool NetTCPSession::xSendHeld(MANNER manner)
{
    if (m_parts->replies.IsIdle())
        return true;
    const std::string bytes = m_parts->replies.Take();
    return bytes.empty() || xSendOut(m_mainSocket.get(), reinterpret_cast<const unsigned char*>(bytes.data()),
                                     static_cast<ULONG>(bytes.size()), manner);
}

bool NetTCPSession::xSendOut(NetTCP* const socket, const unsigned char* data, ULONG length, MANNER manner)
{
    if (!socket->IsConnected())
        return false;
    const bool force = manner == MANNER::FORCED;
    const NETSTATE state = xsGetNetState(socket);
    while (length > 0) {
        if (manner == MANNER::POLITE && xMustStopWaiting())
            return false;
        ULONG sent = length;
        if (!socket->Send(data, sent)) {
            xEndBroken(socket, state);
            return false;
        }
        if (sent > 0) {
            m_parts->book.UpdateAndCount(NetCounterBlock::DATA_OUT_BYTES, sent);
            m_parts->timeOut.NoteSend();
            data += sent;
            length -= sent;
        }
        // Asked before the test for the end: a no after the last bytes makes the whole send fail, kept on purpose.
        if (!force && !xWaitingForNetShouldWait())
            return false;
        if (sent == 0 && manner == MANNER::HELD && xMustStopWaiting())
            return false;
        if (sent == 0 && socket->GetBlockTimeMs() == 0)
            platform::SleepMs(IDLE_SLEEP_MS);
    }
    return true;
}

bool NetTCPSession::xSendPurgeSendBuf(NetTCP* const socket)
{
    return xSendGathered(socket, MANNER::POLITE);
}

bool NetTCPSession::xSendPurgeSendBufForce(NetTCP* const socket)
{
    return xSendGathered(socket, MANNER::FORCED);
}

bool NetTCPSession::xSendGathered(NetTCP* const socket, MANNER manner)
{
    return !m_bufferedMode || m_parts->sendBuffer.Purge([&](const unsigned char* data, ULONG length) {
        return xSendDirect(socket, data, length, manner);
    });
}

void NetTCPSession::xSetBufMode(NetTCP* const socket, bool on)
{
    if (on)
        m_parts->sendBuffer.Make(socket != nullptr && socket->IsConnected() ? GetBufCapacity(*socket)
                                                                            : UNCONNECTED_BUF_SIZE);
    else
        m_parts->sendBuffer.Discard();
}

void NetTCPSession::xSetDataMode(bool on)
{
    m_parts->dataMode = on;
}

void NetTCPSession::xSetMaxCmdSize(ULONG size)
{
    m_parts->splitter.SetMaxSize(static_cast<std::uint32_t>(size));
}

void NetTCPSession::xSetCmdEndIncludesLF(bool on)
{
    m_parts->splitter.SetEndIncludesLF(on);
}

void NetTCPSession::xSetPeriodicMilliSecs(ULONG milliSecs)
{
    m_parts->periodicMs = static_cast<std::uint32_t>(milliSecs);
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
