// FtpClientSession: connecting, TLS, log-in, and the end of a connection.
#include "hosts/ftpclient/FtpClientSession.h"

#include "hosts/ftpclient/FtpNames.h"
#include "hosts/ftpclient/FtpPeerCertificate.h"
#include "hosts/ftpcommon/FtpText.h"

#include <algorithm>

namespace kqlib {

namespace {

constexpr unsigned NEED_PASSWORD = 331;
constexpr unsigned TLS_BEGINS = 234;

using TLS = FtpClientSettings::TLS;

} // namespace

/// Connects and logs in, unless that was done and still holds.
bool FtpClientSession::xBeConnected()
{
    // What comes unasked between two requests is a farewell.
    if (m_isLoggedIn && xGetMainSocket()->IsConnected() && !xHasControlInput() && xGetMainSocket()->IsConnected())
        return true;
    xDropConnection();
    xResetTimeOut();
    if (!xConnect(xGetMainSocket(), m_settings.host, m_settings.port))
        return xFail(OUTCOME::NO_CONNECTION, "no connection to " + MakeVisible(m_settings.host) + ", port " +
                                                 String::sToString(m_settings.port));
    xSetPrimaryConnectionStatus(xGetMainSocket());
    m_isLoggedIn = (m_settings.tls != TLS::IMPLICIT || xSecureControl()) && xGreet() &&
                   (m_settings.tls != TLS::EXPLICIT || xStartTLS()) && xLogIn() && xSetUp();
    if (!m_isLoggedIn)
        xDropConnection();
    return m_isLoggedIn;
}

bool FtpClientSession::xGreet()
{
    m_repliesDue = 1;
    if (xReadFinalReply())
        return m_reply.IsSuccess() || xFailRefused(OUTCOME::NO_CONNECTION);
    if (m_result.outcome == OUTCOME::REFUSED)
        m_result.outcome = OUTCOME::NO_CONNECTION;
    return false;
}

/// AUTH TLS (RFC 4217, section 4). What stands behind the reply in the clear is not from the server that is about to
/// prove itself: somebody on the way put it there, to be taken for a reply under TLS.
bool FtpClientSession::xStartTLS()
{
    if (!xAsk("AUTH", "TLS"))
        return false;
    if (m_reply.GetCode() != TLS_BEGINS)
        return xFailRefused(OUTCOME::NO_TLS);
    if (m_replyBuffer.position < m_replyBuffer.length)
        return xFail(OUTCOME::NO_TLS, "something came in the clear after the last plain reply");
    return xSecureControl();
}

bool FtpClientSession::xSecureControl()
{
    if (!xConnectSSL(xGetMainSocketSSL(), xGetMainNetState(), "Control connection"))
        return xFail(OUTCOME::NO_TLS, "the TLS handshake failed");
    return xCheckCertificate(*xGetMainSocketSSL());
}

bool FtpClientSession::xCheckCertificate(const NetTCPSSL& socket)
{
    String error;
    if (m_settings.trusted.empty() ||
        FtpPeerCertificate::sIsTrusted(socket.GetPeerCertificates(), m_settings.trusted, m_settings.host, error))
        return true;
    return xFail(OUTCOME::NO_TLS, "the server's certificate is not trusted: " + error);
}

bool FtpClientSession::xLogIn()
{
    bool isGoodSoFar = xAsk("USER", m_settings.user);
    if (isGoodSoFar && m_reply.GetCode() == NEED_PASSWORD)
        isGoodSoFar = xAsk("PASS", m_settings.password);
    if (!isGoodSoFar)
        return false;
    const bool isLoggedIn = m_reply.IsSuccess();
    xRecordLoginAttempt(xGetMainNetState(), isLoggedIn, m_settings.host, m_settings.user, String(), m_reply.GetText());
    if (!isLoggedIn)
        return xFailRefused(OUTCOME::NO_LOGIN);
    xSetCurrentUser(m_settings.user);
    return true;
}

/// Protected data connections, the server's features, the user's folder, the type of all transfers.
bool FtpClientSession::xSetUp()
{
    if (m_settings.tls != TLS::NONE && (!xDemand("PBSZ", "0") || !xDemand("PROT", "P"))) {
        if (m_result.outcome == OUTCOME::REFUSED)
            m_result.outcome = OUTCOME::NO_TLS;
        return false;
    }
    if (!xAsk("FEAT"))
        return false;
    xReadFeatures();
    if (!xAsk("OPTS", "UTF8 ON") || !xAsk("PWD")) // names are UTF-8 where the server knows it; where not, so be it
        return false;
    if (!m_reply.IsSuccess() || !FtpNames::sUnquote(m_reply.GetText(), m_home))
        m_home = "/";
    return xDemand("TYPE", "I");
}

void FtpClientSession::xReadFeatures()
{
    m_features = FEATURES();
    const STRINGS& lines = m_reply.GetInnerLines();
    m_canSetTimes =
        std::any_of(lines.begin(), lines.end(), [](const String& line) { return line.StartsWithI(" MFMT"); });
}

/// Says goodbye, and does not wait for the answer.
void FtpClientSession::xLeave()
{
    if (m_isLoggedIn && xGetMainSocket()->IsConnected() && m_repliesDue == 0)
        xSendCommandForce(xGetMainSocket(), "QUIT");
    xDropConnection();
}

void FtpClientSession::xDropConnection()
{
    xCloseData(false);
    if (xGetMainSocket()->IsConnected())
        xClose(xGetMainSocket());
    m_isLoggedIn = false;
    m_repliesDue = 0;
    m_reply.Reset();
    m_replyBuffer.length = 0;
    m_replyBuffer.position = 0;
    m_replyBuffer.lastWasCR = false;
}

String FtpClientSession::xFullPath(const String& path) const
{
    return path.StartsWith("/") ? path : FtpNames::sJoin(m_home, path);
}

} // namespace kqlib
