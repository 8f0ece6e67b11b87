// Demonstration: what kqftpd serves when it was given no settings.
#include "hosts/ftp/app/Demonstration.h"

#include "hosts/ftp/FtpPassword.h"
#include "hosts/ftpcommon/FtpPaths.h"

#include <filesystem>
#include <fstream>
#include <random>

namespace kqlib {

namespace {

namespace fs = std::filesystem;

/// Makes a folder of a name that nobody has, for this user alone. Empty on failure.
fs::path MakeTemporaryFolder()
{
    constexpr int TRIES = 100;
    std::error_code error;
    const fs::path parent = fs::temp_directory_path(error);
    std::random_device random;
    for (int i = 0; i < TRIES && !error; ++i) {
        const fs::path folder = parent / ("kqftpd-" + std::to_string(random()));
        if (!fs::create_directory(folder, error))
            continue;
        fs::permissions(folder, fs::perms::owner_all, error);
        return error ? fs::path() : folder;
    }
    return {};
}

bool WriteText(const fs::path& file, const char* text)
{
    std::ofstream stream(file, std::ios::binary);
    stream << text;
    return stream.good();
}

} // namespace

const char* const Demonstration::USER = "demo";
const char* const Demonstration::PASSWORD = "demo";

Demonstration::~Demonstration()
{
    std::error_code ignored; // what cannot be removed stays; nothing else can be done
    if (m_isTemporary)
        fs::remove_all(ToStdPath(m_folder), ignored);
}

bool Demonstration::Make(const FilePath& folder, FtpSettings& settings, String& error)
{
    const fs::path top = folder.empty() ? MakeTemporaryFolder() : ToStdPath(folder);
    std::error_code failure;
    m_isTemporary = folder.empty() && !top.empty();
    m_folder = FromStdPath(top);
    const fs::path home = top / "files";
    fs::create_directories(home / "incoming", failure);
    if (top.empty() || failure || !WriteText(home / "readme.txt", "This is the demonstration folder of kqftpd.\n")) {
        error = "the demonstration folder cannot be made";
        return false;
    }
    FtpUserSettings user;
    user.SetName(USER);
    user.SetPassword(FtpPassword::sHash(PASSWORD));
    user.SetHome(FromStdPath(home));
    user.SetRights("read,write,delete,admin");
    settings.SetUsers({user});
    settings.SetOfferTLS(true);
    settings.SetMaxSessionsPerAddress(0); // on 127.0.0.1 all clients have the same one
    if (settings.GetStateFolder().empty())
        settings.SetStateFolder(FromStdPath(top / "state"));
    if (settings.GetLogFolder().empty())
        settings.SetLogFolder(FromStdPath(top / "logs"));
    return true;
}

} // namespace kqlib
