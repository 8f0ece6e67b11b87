// FtpSession: what is protected by TLS (RFC 2228, 4217).
#include "hosts/ftp/FtpSession.h"

#include "hosts/ftpcommon/FtpText.h"

namespace kqlib {

// --- commands

/// AUTH (RFC 4217, section 4). "TLS-C" is an older name of the same; "SSL" and "TLS-P" would protect data connections
/// unasked and are not offered.
void FtpSession::xCmdAuth(const String& mechanism)
{
    if (!m_config->settings.IsTLSWanted())
        return xReply(502, "Command not offered");
    if (!mechanism.MatchesI("TLS") && !mechanism.MatchesI("TLS-C"))
        return xReply(504, "Only AUTH TLS is offered");
    if (xIsControlSecured())
        return xReply(503, "TLS is on already");
    xReply(234, "Begin the TLS handshake");
    xStartAnew();
    if (!xSecureControl())
        m_isQuitting = true;
}

void FtpSession::xCmdPbsz(const String& size)
{
    if (!xIsControlSecured())
        return xReply(503, "AUTH TLS comes first");
    constexpr std::size_t MAX_DIGITS = 10; // of a 32-bit number (RFC 2228, section 3)
    if (!IsDecimal(size, MAX_DIGITS))
        return xReplySyntaxError();
    m_hasProtectionSize = true;
    xReply(200, "PBSZ=0"); // TLS has buffers of its own: whatever was asked for, it is none
}

void FtpSession::xCmdProt(const String& level)
{
    if (!m_hasProtectionSize)
        return xReply(503, xIsControlSecured() ? "PBSZ 0 comes first" : "AUTH TLS comes first");
    const bool isClear = level.MatchesI("C");
    if (level.MatchesI("S") || level.MatchesI("E"))
        return xReply(536, "TLS knows only the levels C and P");
    if (!isClear && !level.MatchesI("P"))
        return xReply(504, "Protection level not understood");
    if (isClear && m_config->settings.GetRequireTLS())
        return xReply(534, "Data connections must be protected");
    m_isDataProtected = !isClear;
    xReply(200, isClear ? "Data connections are clear" : "Data connections are private");
}

void FtpSession::xCmdCcc(const String&)
{
    if (!xIsControlSecured())
        return xReply(533, "TLS is not on");
    xReply(534, "The control connection stays protected");
}

// --- protecting

bool FtpSession::xIsControlSecured() const
{
    return xGetMainSocketSSL()->IsSSLOn();
}

bool FtpSession::xMayLogIn()
{
    if (!m_config->settings.GetRequireTLS() || xIsControlSecured())
        return true;
    xReply(530, "Logging in needs TLS, AUTH TLS comes first");
    return false;
}

/// Everything that was said in the clear counts no more (RFC 4217, section 4.2), and what came behind AUTH unprotected
/// is no command: somebody on the way may have put it there.
void FtpSession::xStartAnew()
{
    xCloseData(false);
    xLogOut();
    m_userName.clear();
    m_restart = 0;
    m_isAscii = true;
    m_isOnlyEpsv = false;
    m_facts = FtpListing::ALL_FACTS;
    m_commandBuffer.position = 0;
    m_commandBuffer.length = 0;
    m_commandBuffer.lastWasCR = false;
}

/// The handshake of the control connection. False: it failed and is logged, and the connection is closed. On a port
/// that speaks TLS from the first byte, data connections are protected until PROT says otherwise.
bool FtpSession::xSecureControl()
{
    const bool isFromTheStart = m_config->settings.IsTLSPort(xGetMainNetState().localPort);
    m_isDataProtected = isFromTheStart;
    return xAcceptSSL(xGetMainSocketSSL(), xGetMainNetState(), "Control connection", m_config->certificate.GetFile(),
                      m_config->certificate.GetKeyFile());
}

/// The handshake of the data connection, in which this end is the server whichever side connected (RFC 4217,
/// section 7).
FtpSession::END FtpSession::xSecureData()
{
    const NETSTATE state = {m_data->GetLocalIP(), m_data->GetLocalPort(), m_data->GetRemoteIP(),
                            m_data->GetRemotePort()};
    const bool isSecured = xAcceptSSL(m_data.get(), state, "Data connection", m_config->certificate.GetFile(),
                                      m_config->certificate.GetKeyFile());
    return isSecured ? END::COMPLETE : END::NOT_SECURED;
}

} // namespace kqlib
