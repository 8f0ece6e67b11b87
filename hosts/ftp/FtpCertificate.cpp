// FtpCertificate: the files that kqftpd's TLS handshakes use.
#include "hosts/ftp/FtpCertificate.h"

#include "common/FileAccess.h"
#include "common/Messages.h"
#include "hosts/ftp/FtpSettings.h"
#include "hosts/ftpcommon/FtpPaths.h"
#include "net/ssl/NetSSLCertControl.h"
#include "net/ssl/NetSSLCertCreate.h"

#include <memory>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

namespace kqlib {

namespace {

namespace fs = std::filesystem;

template <auto FREE> struct FREER
{
    template <class T> void operator()(T* object) const { FREE(object); }
};
using READER = std::unique_ptr<BIO, FREER<BIO_free_all>>;
using CERTIFICATE = std::unique_ptr<X509, FREER<X509_free>>;
using KEY = std::unique_ptr<EVP_PKEY, FREER<EVP_PKEY_free>>;

/// A server has nobody to ask.
int GiveNoPassPhrase(char*, int, int, void*)
{
    return -1;
}

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
        return sCheckPair(m_file, m_keyFile, error);
    // A certificate that is there without its key was not made here, or something is wrong with it.
    if (!m_folder.empty() && !CanBeRead(m_file))
        return xMake(error);
    error = (CanBeRead(m_file) ? m_keyFile : m_file).GetText() + " cannot be read";
    return false;
}

bool FtpCertificate::sCheckPair(const FilePath& file, const FilePath& keyFile, String& error)
{
    const READER certificateReader(BIO_new_file(file.c_str(), "rb"));
    const READER keyReader(BIO_new_file(keyFile.c_str(), "rb"));
    const CERTIFICATE certificate(
        certificateReader ? PEM_read_bio_X509(certificateReader.get(), nullptr, GiveNoPassPhrase, nullptr) : nullptr);
    const KEY key(keyReader ? PEM_read_bio_PrivateKey(keyReader.get(), nullptr, GiveNoPassPhrase, nullptr) : nullptr);
    const bool isPair = certificate && key && X509_check_private_key(certificate.get(), key.get()) == 1;
    ERR_clear_error();
    if (!certificateReader || !keyReader)
        error = (certificateReader ? "tls_key: " + keyFile.GetText() : "tls_certificate: " + file.GetText()) +
                " cannot be read";
    else if (!certificate)
        error = "tls_certificate: " + file.GetText() + " holds no certificate (PEM)";
    else if (!key)
        error = "tls_key: " + keyFile.GetText() + " holds no key without a pass phrase (PEM)";
    else if (!isPair)
        error = "tls_key: " + keyFile.GetText() + " does not belong to the certificate in " + file.GetText();
    return isPair;
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
