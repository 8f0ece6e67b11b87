// FtpCertificate: the files that kqftpd's TLS handshakes use.
#include "hosts/ftp/FtpCertificate.h"

#include "common/FileAccess.h"
#include "common/Messages.h"
#include "hosts/ftp/FtpSettings.h"
#include "hosts/ftpcommon/FtpPaths.h"
#include "net/ssl/NetSSLCertControl.h"
#include "net/ssl/NetSSLCertCreate.h"

namespace kqlib {

namespace {

namespace fs = std::filesystem;

bool CanBeRead(const FilePath& path)
{
    FileAccess file;
    return file.Open(path, FileAccess::AM_READ, false, false);
}

/// What a certificate says that nobody was asked about. Clients show it to people, who compare the fingerprint.
NetSSLCertCreate Describe()
{
    NetSSLCertCreate create;
    create.SetCommonName("kqftpd");
    create.SetUnit("made by the server itself");
    create.SetOrganization("kqftpd");
    create.SetEmail("postmaster@localhost");
    create.SetCity("unknown");
    create.SetState("unknown");
    create.SetCountry("ZZ");
    return create;
}

} // namespace

FtpCertificate::FtpCertificate(const FtpSettings& settings)
    : m_file(settings.GetTLSCertificate())
    , m_keyFile(settings.GetTLSKey())
{
    if (!m_file.empty() || settings.GetStateFolder().empty())
        return;
    m_folder = settings.GetStateFolder();
    const fs::path base = ToStdPath(m_folder) / "kqftpd";
    const auto named = [&base](const FilePath& extension) {
        return FilePath(FromStdPath(base).GetText() + extension.GetText());
    };
    m_file = named(NetSSLCertControl::sExtCertificate());
    m_keyFile = named(NetSSLCertControl::sExtPrivateKey());
    m_requestFile = named(NetSSLCertControl::sExtSigningRequest());
}

bool FtpCertificate::Provide(String& error) const
{
    if (m_file.empty()) {
        error = "tls_certificate: none is named, and there is no state_folder to make one in";
        return false;
    }
    if (CanBeRead(m_file) && CanBeRead(m_keyFile))
        return true;
    // A certificate that is there without its key was not made here, or something is wrong with it.
    if (!m_folder.empty() && !CanBeRead(m_file))
        return xMake(error);
    error = (CanBeRead(m_file) ? m_keyFile : m_file).GetText() + " cannot be read";
    return false;
}

/// The certificate gets its name last, so that what is found under it is always whole.
bool FtpCertificate::xMake(String& error) const
{
    std::error_code failure;
    const fs::path folder = ToStdPath(m_folder);
    if (fs::create_directories(folder, failure))
        fs::permissions(folder, fs::perms::owner_all, failure);
    const FilePath unfinished(m_file.GetText() + ".new");
    Messages messages;
    const bool isMade = !failure && NetSSLCertControl().CreateKeyCertificateAndSigningRequest(
                                        Describe(), unfinished, m_requestFile, m_keyFile, messages);
    if (isMade)
        fs::rename(ToStdPath(unfinished), ToStdPath(m_file), failure);
    if (!isMade || failure) {
        error = "no certificate can be made in " + m_folder.GetText();
        return false;
    }
    return true;
}

} // namespace kqlib
