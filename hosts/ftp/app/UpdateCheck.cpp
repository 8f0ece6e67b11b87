// UpdateCheck: asks whether there is a newer kqftpd.
#include "hosts/ftp/app/UpdateCheck.h"

#include "common/ThreadPool.h"
#include "hosts/ftpcommon/FtpText.h"
#include "net/sockets/NetSocket.h"
#include "net/update/NetAppUpdate.h"
#include "platform/Clock.h"

namespace kqlib {

namespace {

constexpr std::uint32_t LOOK_MS = 20;

bool Ask(const FtpSettings& settings, String& answer)
{
    ThreadPool pool;
    NetAppUpdate update(pool, FilePath(), KQFTPD_VERSION_NUMBER, "kqftpd " KQFTPD_VERSION, "kqftpd-");
    if (!update.CheckForUpdate("check", settings.GetUpdateHost(), static_cast<USHORT>(settings.GetUpdatePort()),
                               settings.GetUpdatePath()))
    {
        answer = "no thread to be had";
        return false;
    }
    while (update.IsBusy())
        platform::SleepMs(LOOK_MS);
    switch (update.GetStatus()) {
    case NetAppUpdate::ST_UPDATE_AVAILABLE:
        answer = "version " + String::sToString(update.GetUpdateVersion()) +
                 " is available: " + MakeVisible(update.GetUpdateDescription());
        return true;
    case NetAppUpdate::ST_NO_UPDATE:
        answer = "this is the newest version";
        return true;
    default:
        answer = "the update check failed: no connection, or no version file";
        return false;
    }
}

} // namespace

bool UpdateCheck::sRun(const FtpSettings& settings, String& answer)
{
    if (!NetSocket::sStartSockets()) {
        answer = "the system's sockets cannot be used";
        return false;
    }
    const bool asked = Ask(settings, answer);
    NetSocket::sEndSockets();
    return asked;
}

} // namespace kqlib
