// FtpClientSession: commands and replies.
#include "hosts/ftpclient/FtpClientSession.h"

#include "hosts/ftpclient/FtpNames.h"
#include "hosts/ftpcommon/FtpText.h"

namespace kqlib {

namespace {

constexpr unsigned SERVICE_ENDS = 421;

} // namespace

// --- outcomes

bool FtpClientSession::xFail(OUTCOME outcome, const String& text)
{
    m_result.outcome = outcome;
    m_result.text = text;
    return false;
}

bool FtpClientSession::xFailBroken()
{
    if (xIsCurrentReqCancelled(false))
        return xFail(OUTCOME::CANCELLED, "cancelled");
    if (xShouldSessionEnd())
        return xFail(OUTCOME::CANCELLED, "the session ends");
    const bool isTimedOut = xIsTimedOut();
    xDropConnection();
    return xFail(OUTCOME::LOST, isTimedOut ? "the server says nothing any more" : "the connection was lost");
}

bool FtpClientSession::xFailRefused(OUTCOME outcome)
{
    m_result.replyCode = m_reply.GetCode();
    const String text = "the server says: " + String::sToString(m_reply.GetCode()) + " " + m_reply.GetWholeText();
    return xFail(outcome, MakeVisible(text));
}

// --- commands

bool FtpClientSession::xSend(const String& verb, const String& argument)
{
    if (!FtpNames::sCanBeSent(argument))
        return xFail(OUTCOME::LOCAL, "a name with a line end in it cannot be sent");
    if (xShouldReqEnd())
        return xFailBroken();
    xResetTimeOut();
    // Commands are short: one that was cancelled while it went out did go out.
    ++m_repliesDue;
    return xSendCommand(xGetMainSocket(), argument.empty() ? verb : verb + " " + argument) || xFailBroken();
}

bool FtpClientSession::xReadReply()
{
    for (;;) {
        String line;
        bool isOversized = false;
        if (!xRecvCommand(xGetMainSocket(), xGetMainNetState(), m_replyBuffer, line, isOversized))
            return xFailBroken();
        const FtpReply::STATE state = isOversized ? FtpReply::STATE::WRONG : m_reply.AddLine(line);
        if (state == FtpReply::STATE::INCOMPLETE)
            continue;
        if (state == FtpReply::STATE::WRONG) {
            xDropConnection();
            return xFail(OUTCOME::CONFUSED, "the server does not speak FTP");
        }
        if (!m_reply.IsPreliminary() && m_repliesDue > 0)
            --m_repliesDue;
        if (m_reply.GetCode() != SERVICE_ENDS)
            return true;
        xFailRefused();
        xDropConnection();
        return false;
    }
}

bool FtpClientSession::xReadFinalReply()
{
    do {
        if (!xReadReply())
            return false;
    } while (m_reply.IsPreliminary());
    return true;
}

bool FtpClientSession::xAsk(const String& verb, const String& argument)
{
    return xSend(verb, argument) && xReadFinalReply();
}

bool FtpClientSession::xDemand(const String& verb, const String& argument)
{
    return xAsk(verb, argument) && (m_reply.IsSuccess() || xFailRefused());
}

bool FtpClientSession::xHasControlInput()
{
    if (m_replyBuffer.position < m_replyBuffer.length)
        return true;
    m_replyBuffer.length = m_replyBuffer.capacity;
    m_replyBuffer.position = 0;
    const ULONG blockTimeMs = xGetMainSocket()->GetBlockTimeMs();
    xGetMainSocket()->SetBlockTime(0);
    const bool isOpen = xRecvData(xGetMainSocket(), xGetMainNetState(), m_replyBuffer.buffer, m_replyBuffer.length);
    xGetMainSocket()->SetBlockTime(blockTimeMs);
    return isOpen && m_replyBuffer.length > 0;
}

void FtpClientSession::xCatchUp(ULONG limitMs)
{
    if (m_repliesDue == 0 || !xGetMainSocket()->IsConnected())
        return;
    m_catchUpLimit.SetIntervalMS(limitMs);
    m_catchUpLimit.Restart(TimedEvent::sGetNow());
    m_isCatchingUp = true;
    xUpdateState(true, xGetMainSocket(), xGetMainSocketSSL()->IsSSLOn(), ACT_CATCHING_UP);
    xResetTimeOut();
    while (m_repliesDue > 0) {
        String line;
        bool isOversized = false;
        if (!xRecvCommand(xGetMainSocket(), xGetMainNetState(), m_replyBuffer, line, isOversized))
            break;
        // A line whose beginning was read before the giving up is no reply of its own.
        if (m_reply.AddLine(line) == FtpReply::STATE::COMPLETE && !m_reply.IsPreliminary())
            --m_repliesDue;
    }
    m_isCatchingUp = false;
    if (m_repliesDue > 0)
        xDropConnection();
}

} // namespace kqlib
