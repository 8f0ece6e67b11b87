// FtpClientSession: data connections.
#include "hosts/ftpclient/FtpClientSession.h"

#include <algorithm>

namespace kqlib {

namespace {

/// How long one wait for a data connection may take: it wakes as soon as something happens, so this only bounds how
/// late a cancelling is seen.
constexpr ULONG DATA_BLOCK_TIME_MS = 20;
/// How long a server may take to leave a data connection on which everything was said.
constexpr ULONG LEAVE_MS = 10000;
constexpr unsigned PASSIVE = 227;
constexpr unsigned EXTENDED_PASSIVE = 229;

/// What is in the parentheses of a reply's text; the text itself when there are none.
String InParentheses(const String& text)
{
    const String::size_type open = text.find('(');
    const String::size_type close = text.rfind(')');
    return open == String::npos || close == String::npos || close < open ? text
                                                                         : text.substr(open + 1, close - open - 1);
}

/// The first run of digits and commas: some servers put their numbers into no parentheses (RFC 1123, section 4.1.2.6).
String FirstNumbers(const String& text)
{
    const auto isNumber = [](char c) { return (c >= '0' && c <= '9') || c == ','; };
    const auto first = std::find_if(text.begin(), text.end(), isNumber);
    return String(std::string(first, std::find_if_not(first, text.end(), isNumber)));
}

} // namespace

bool FtpClientSession::xBeginTransfer(const String& verb, const String& argument, ULONG8& from)
{
    m_isFinalReplyRead = false;
    if (!xPrepareData())
        return false;
    if (from != 0) {
        if (!m_features.mayRestart || !xAsk("REST", String::sToString(from))) {
            if (!m_result.IsDone())
                return false;
            from = 0;
        } else if (!m_reply.IsIntermediate()) {
            m_features.mayRestart = false;
            from = 0;
        }
    }
    if (!xSend(verb, argument) || !xReadReply())
        return false;
    if (!m_reply.IsPreliminary() && !m_reply.IsSuccess())
        return xFailRefused();
    m_isFinalReplyRead = !m_reply.IsPreliminary();
    return (!m_settings.isActive || xAcceptData()) && xSecureData();
}

bool FtpClientSession::xEndTransfer(bool isMoved)
{
    xCloseData(isMoved);
    const bool isCancelled = xIsCurrentReqCancelled(false) || xShouldSessionEnd();
    if (!isMoved && isCancelled) {
        // Two replies are due now: how the transfer ended, and that of ABOR itself (RFC 959, section 4.1.3).
        if (!m_isFinalReplyRead && xGetMainSocket()->IsConnected()) {
            ++m_repliesDue;
            xSendCommandForce(xGetMainSocket(), "ABOR");
        }
        return false;
    }
    if (!xGetMainSocket()->IsConnected())
        return isMoved ? xFailBroken() : false;
    if (m_isFinalReplyRead)
        return isMoved;
    const FtpClientResult ownResult = m_result;
    if (!xReadFinalReply())
        return false;
    // The server may know better than this end why the data did not get through.
    const bool isServersAffair = isMoved || ownResult.outcome == OUTCOME::LOST || ownResult.outcome == OUTCOME::NO_TLS;
    if (!m_reply.IsSuccess() && isServersAffair)
        return xFailRefused();
    m_result = ownResult;
    return isMoved;
}

// --- preparing

bool FtpClientSession::xPrepareData()
{
    xCloseData(false);
    m_data = std::make_unique<NetTCPSSL>(NetIP::LOOKUP_ANY, m_cache);
    m_data->SetBlockTime(DATA_BLOCK_TIME_MS);
    return m_settings.isActive ? xPrepareActive() : xPreparePassive();
}

/// Connects to the port that the server opened, always at the address of the control connection: a server that names
/// another one would have this client talk to somebody else, or does not know how it is seen from here.
bool FtpClientSession::xPreparePassive()
{
    USHORT port = 0;
    if (!xReadPassivePort(port))
        return false;
    const NetIP& server = xGetMainNetState().remoteIP;
    const String host = server == NetIP() ? m_settings.host : server.GetText(); // not known over IPv6
    return xConnect(m_data.get(), host, port) || xFail(OUTCOME::LOST, "no data connection to the server");
}

bool FtpClientSession::xReadPassivePort(USHORT& port)
{
    FtpDataAddress place;
    if (m_features.hasEpsv) {
        if (!xAsk("EPSV"))
            return false;
        FtpDataAddress::EXTENDED fields;
        if (m_reply.GetCode() == EXTENDED_PASSIVE) {
            const bool isGood = FtpDataAddress::sSplitExtended(InParentheses(m_reply.GetText()), fields) &&
                                place.ParsePort(fields.port) && place.port != 0;
            port = place.port;
            return isGood || xFail(OUTCOME::CONFUSED, "the server's answer to EPSV makes no sense");
        }
        if (!m_reply.IsNotOffered() && m_reply.GetCode() != 522)
            return xFailRefused();
        m_features.hasEpsv = false;
    }
    if (!xAsk("PASV"))
        return false;
    if (m_reply.GetCode() != PASSIVE)
        return xFailRefused();
    const bool isGood = place.ParseNumbers(FirstNumbers(m_reply.GetText())) && place.port != 0;
    port = place.port;
    return isGood || xFail(OUTCOME::CONFUSED, "the server's answer to PASV makes no sense");
}

/// Listens where the control connection comes from, and tells the server.
bool FtpClientSession::xPrepareActive()
{
    const NetIP& own = xGetMainNetState().localIP;
    if (own == NetIP() || !xListen(m_data.get(), true, 0, own.GetText()))
        return xFail(OUTCOME::LOCAL, "no port can be opened for the data connection");
    const FtpDataAddress place{own, m_data->GetLocalPort()};
    if (m_features.hasEprt) {
        if (!xAsk("EPRT", place.FormatExtended()))
            return false;
        if (m_reply.IsSuccess())
            return true;
        if (!m_reply.IsNotOffered() && m_reply.GetCode() != 522)
            return xFailRefused();
        m_features.hasEprt = false;
    }
    return xDemand("PORT", place.FormatNumbers());
}

// --- having it stand

/// Waits for the server. A word on the control connection means that it does not come.
bool FtpClientSession::xAcceptData()
{
    while (!xSelfAccept(m_data.get())) {
        if (!m_data->IsListening())
            return xFail(OUTCOME::LOST, "the data connection cannot be accepted");
        if (xShouldReqEnd() || xIsTimedOut())
            return xFailBroken();
        if (m_isFinalReplyRead)
            return xFail(OUTCOME::LOST, "the server did not make a data connection");
        if (xHasControlInput()) {
            if (!xReadFinalReply())
                return false;
            m_isFinalReplyRead = true;
            if (!m_reply.IsSuccess())
                return xFailRefused();
        } else if (!xGetMainSocket()->IsConnected()) {
            return xFailBroken();
        }
    }
    return m_data->GetRemoteIP() == xGetMainNetState().remoteIP ||
           xFail(OUTCOME::CONFUSED, "somebody else than the server made the data connection");
}

bool FtpClientSession::xSecureData()
{
    if (m_settings.tls == FtpClientSettings::TLS::NONE)
        return true;
    if (!xConnectSSL(m_data.get(), xsGetNetState(m_data.get()), "Data connection")) {
        xFail(OUTCOME::NO_TLS, "the TLS handshake of the data connection failed");
        return xEndTransfer(false); // the server says more
    }
    return xCheckCertificate(*m_data);
}

/// After an upload over TLS: says that this was all, and waits until the server has read it and leaves. Closing at once
/// would break the connection off when TLS of the server has said something meanwhile, and lose what is on its way.
void FtpClientSession::xEndSending()
{
    if (!m_data->SSLEndSending())
        return;
    const TimedEvent limit(TimedEvent::sGetNow(), LEAVE_MS, false);
    const NETSTATE state = xsGetNetState(m_data.get());
    for (bool isOpen = true; isOpen && !limit.IsTriggered(TimedEvent::sGetNow()) && xShouldReqContinue();) {
        ULONG got = static_cast<ULONG>(m_chunk.size());
        isOpen = xRecvData(m_data.get(), state, m_chunk.data(), got); // of no interest
    }
    xClose(m_data.get()); // a farewell that does not come is not waited for any longer
}

void FtpClientSession::xCloseData(bool inOrder)
{
    if (!m_data)
        return;
    if (inOrder)
        xShutdownAndClose(m_data.get());
    else
        xClose(m_data.get());
    m_data.reset();
}

bool FtpClientSession::xReceiveData(ULONG& got, bool& isOpen)
{
    if (xShouldReqEnd() || xIsTimedOut())
        return xFailBroken();
    got = static_cast<ULONG>(m_chunk.size());
    isOpen = xRecvData(m_data.get(), xsGetNetState(m_data.get()), m_chunk.data(), got);
    if (got != 0)
        xResetTimeOut();
    return true;
}

} // namespace kqlib
