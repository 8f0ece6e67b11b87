// FtpSettingsCheck: whether settings can work on this machine.
#include "hosts/ftp/FtpSettingsCheck.h"

#include "hosts/ftp/FtpCertificate.h"
#include "hosts/ftp/FtpFileSystem.h"
#include "hosts/ftp/FtpLogFolder.h"
#include "hosts/ftp/FtpTransferLog.h"
#include "hosts/ftpcommon/FtpText.h"
#include "net/ports/NetPortBinds.h"
#include "net/sockets/NetTCP.h"

namespace kqlib {

namespace {

/// Each address to listen on is tried with a port that nobody else has: the real one may well be in use, by the server
/// that these settings are for.
void AddListenFaults(const char* key, const String& line, STRINGS& faults)
{
    NetPortBinds binds;
    binds.AddByLine(line);
    for (const NetPortBind& bind : binds) {
        NetTCP probe(NetIP::LOOKUP_ANY);
        if (bind.GetHost().empty() || probe.ListenSpecific(0, bind.GetHost()))
            continue;
        const bool isUnknown = probe.GetLastError() == NetSocket::ERR_RESOLVE;
        faults.push_back(String(key) + ": " + bind.GetHost() +
                         (isUnknown ? " is no address and no known host" : " is no address of this machine"));
    }
}

} // namespace

STRINGS FtpSettingsCheck::sFindFaults(const FtpSettings& settings)
{
    STRINGS faults;
    AddListenFaults("listen", settings.GetListen(), faults);
    AddListenFaults("listen_tls", settings.GetListenTLS(), faults);
    String error;
    if (!settings.GetTLSCertificate().empty() &&
        !FtpCertificate::sCheckPair(settings.GetTLSCertificate(), settings.GetTLSKey(), error))
        faults.push_back(error);
    if (!settings.GetLogFolder().empty() && !FtpLogFolder::sCanBeUsed(settings.GetLogFolder(), error))
        faults.push_back(error);
    if (settings.GetLogFolder().empty() && !(settings.GetTransferLog() == FtpTransferLog::NONE))
        faults.push_back("transfer_log: needs a log_folder");
    const STRINGS homes = sFindHomeFaults(settings);
    faults.insert(faults.end(), homes.begin(), homes.end());
    return faults;
}

STRINGS FtpSettingsCheck::sFindHomeFaults(const FtpSettings& settings)
{
    STRINGS faults;
    for (std::size_t i = 0; i < settings.GetUsers().size(); ++i) {
        const FtpUserSettings& user = settings.GetUsers()[i];
        const FtpFileSystem::RESULT result = FtpFileSystem().Open(user.GetHome());
        if (result != FtpFileSystem::RESULT::DONE)
            faults.push_back("users[" + String::sToString(static_cast<ULONG8>(i)) +
                             "].home: " + user.GetHome().GetText() + ": " + FtpFileSystem::sDescribe(result) +
                             " (account \"" + MakeVisible(user.GetName()) + "\")");
    }
    return faults;
}

} // namespace kqlib
