// FtpSession: data connections, made from and to the client's own address only.
#include "hosts/ftp/FtpSession.h"

#include "common/TimedEvent.h"
#include "hosts/ftpcommon/FtpText.h"
#include "platform/Threads.h"

namespace kqlib {

namespace {

/// How long one wait for the data connection may take: it wakes as soon as something happens, so this only bounds how
/// late an abort is seen.
constexpr ULONG DATA_BLOCK_TIME_MS = 50;
/// Ports below are services of other programs, which no client may have connected to (RFC 2577, section 3).
constexpr USHORT FIRST_USER_PORT = 1024;
/// Of the network protocol in EPSV and EPRT.
constexpr std::size_t MAX_FAMILY_DIGITS = 5;

} // namespace

// --- PASV and EPSV: the client connects

void FtpSession::xCmdPasv(const String&)
{
    if (!xIsSetupAllowed())
        return;
    if (!xListenPassive())
        return xReply(425, "No port can be opened");
    const FtpDataAddress place{xGetPassiveAddress(), m_data->GetLocalPort()};
    xReply(227, "Entering Passive Mode (" + place.FormatNumbers() + ").");
}

void FtpSession::xCmdEpsv(const String& argument)
{
    if (argument.MatchesI("ALL")) {
        m_isOnlyEpsv = true;
        return xReply(200, "Only EPSV from now on");
    }
    if (!(argument == "1") && IsDecimal(argument, MAX_FAMILY_DIGITS))
        return xReply(522, "Network protocol not supported, use (1)");
    if (!argument.empty() && !(argument == "1"))
        return xReplySyntaxError();
    if (!xListenPassive())
        return xReply(425, "No port can be opened");
    xReply(229, "Entering Extended Passive Mode (|||" + String::sToString(m_data->GetLocalPort()) + "|)");
}

/// After EPSV ALL every other way to prepare a data connection is refused (RFC 2428, section 4).
bool FtpSession::xIsSetupAllowed()
{
    if (!m_isOnlyEpsv)
        return true;
    xReply(503, "Not after EPSV ALL");
    return false;
}

/// Listens on the address that the client connected to, on a port of the range in the settings, beginning at a random
/// one so that the next port cannot be guessed.
bool FtpSession::xListenPassive()
{
    xCloseData(false);
    USHORT first = 0;
    USHORT last = 0;
    if (!m_config->settings.GetPassiveRange(first, last))
        return false;
    const ULONG count = static_cast<ULONG>(last) - first + 1;
    const ULONG start = (platform::RandNext() * 32768U + platform::RandNext()) % count;
    const String address = xGetMainNetState().localIP.GetText();
    m_data = xMakeDataSocket();
    for (ULONG i = 0; i < count; ++i) {
        const auto port = static_cast<USHORT>(first + (start + i) % count);
        const bool isLast = i + 1 == count;
        if (xListen(m_data.get(), isLast, port, address)) {
            m_dataMode = DATAMODE::PASSIVE;
            return true;
        }
    }
    m_data.reset();
    return false;
}

/// The address to tell: the one that the client connected to, unless the settings name another for clients that do not
/// come from this machine.
NetIP FtpSession::xGetPassiveAddress() const
{
    const NETSTATE& state = xGetMainNetState();
    const bool isLocal = state.localIP == state.remoteIP || state.localIP.GetBytes()[0] == 127;
    NetIP external;
    if (isLocal || !external.Set(m_config->settings.GetExternalAddress()))
        return state.localIP;
    return external;
}

// --- PORT and EPRT: the server connects

void FtpSession::xCmdPort(const String& argument)
{
    if (!xIsSetupAllowed())
        return;
    FtpDataAddress place;
    if (!place.ParseNumbers(argument))
        return xReplySyntaxError();
    xSetActive(place);
}

void FtpSession::xCmdEprt(const String& argument)
{
    if (!xIsSetupAllowed())
        return;
    FtpDataAddress::EXTENDED fields;
    if (!FtpDataAddress::sSplitExtended(argument, fields) || !IsDecimal(fields.family, MAX_FAMILY_DIGITS))
        return xReplySyntaxError();
    if (!(fields.family == "1"))
        return xReply(522, "Network protocol not supported, use (1)");
    FtpDataAddress place;
    if (!place.address.Set(fields.address) || !place.address.IsIP4() || !place.ParsePort(fields.port))
        return xReplySyntaxError();
    xSetActive(place);
}

/// No client may send data to anybody else or to a system port (RFC 2577, section 3).
void FtpSession::xSetActive(const FtpDataAddress& place)
{
    xCloseData(false);
    if (!(place.address == xGetMainNetState().remoteIP))
        return xReply(500, "Data connections go to your own address only");
    if (place.port < FIRST_USER_PORT)
        return xReply(504, "Data connections go to ports from 1024 on only");
    m_dataMode = DATAMODE::ACTIVE;
    m_dataHost = place.address.GetText();
    m_dataPort = place.port;
    xReply(200, "Data port taken over");
}

// --- making and ending it

std::unique_ptr<FtpSocket> FtpSession::xMakeDataSocket()
{
    auto socket = std::make_unique<FtpSocket>(NetIP::LOOKUP_ANY, m_cache);
    socket->SetBlockTime(DATA_BLOCK_TIME_MS);
    return socket;
}

/// Makes the data connection that was prepared. COMPLETE: m_data is connected, and secured as the client asked.
FtpSession::END FtpSession::xOpenData()
{
    const DATAMODE mode = std::exchange(m_dataMode, DATAMODE::NONE);
    const END opened = mode == DATAMODE::PASSIVE ? xAcceptData() : xConnectData();
    return opened == END::COMPLETE && m_isDataProtected ? xSecureData() : opened;
}

FtpSession::END FtpSession::xConnectData()
{
    m_data = xMakeDataSocket();
    const String localAddress = xGetMainNetState().localIP.GetText();
    const bool isConnected = xConnect(m_data.get(), m_dataHost, m_dataPort, localAddress);
    return isConnected ? END::COMPLETE : END::NOT_CONNECTED;
}

/// Waits until the client has connected. Somebody else who was faster is turned away, and with it this transfer: the
/// port is spent.
FtpSession::END FtpSession::xAcceptData()
{
    const ULONG start = TimedEvent::sGetNow();
    const TimedEvent limit(start, m_config->settings.GetConnectSecs() * 1000, false);
    while (!xSelfAccept(m_data.get())) {
        if (!m_data->IsListening() || limit.IsTriggered(TimedEvent::sGetNow()))
            return END::NOT_CONNECTED;
        if (!xShouldGoOn())
            return xWhyStopped();
    }
    if (m_data->GetRemotePort() == 0) // it was reset before it was taken: nobody knows any more whose it was
        return END::NOT_CONNECTED;
    return m_data->GetRemoteIP() == xGetMainNetState().remoteIP ? END::COMPLETE : END::FOREIGN;
}

/// Ends the data connection, or the listening for it. inOrder: the other end learns that everything was sent.
void FtpSession::xCloseData(bool inOrder)
{
    m_dataMode = DATAMODE::NONE;
    if (!m_data)
        return;
    if (inOrder)
        xShutdownAndClose(m_data.get());
    else
        xClose(m_data.get());
    m_data.reset();
}

} // namespace kqlib
