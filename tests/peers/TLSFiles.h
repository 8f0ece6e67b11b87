// TLSFiles: the certificate and key files of TLS tests.
#pragma once

#include "common/FilePath.h"
#include "tests/peers/TempFolder.h"

#include <string>

namespace kqlib::test {

/// A folder with a certificate and its RSA key of 2048 bits, and what else tests want to offer as such files.
/// Making one takes a moment; sGet gives one that the whole program shares.
class TLSFiles
{
public:
    /// The forms of a key that has a pass phrase, which is "secret".
    enum class FORM
    {
        TRADITIONAL, ///< with a line "DEK-Info:"
        PKCS8        ///< "BEGIN ENCRYPTED PRIVATE KEY"
    };

    explicit TLSFiles(const std::string& commonName);
    static const TLSFiles& sGet();

    FilePath GetCert() const { return xPath("server.crt"); }
    FilePath GetKey() const { return xPath("server.key"); }
    /// The pair's key with a pass phrase.
    FilePath MakeEncryptedKey(FORM form) const;
    /// The pair's certificate, encrypted with the same pass phrase as an old form of such files allows.
    FilePath MakeEncryptedCert() const;
    /// The pair's key as an elliptic curve one with a certificate of its own; cert and key receive the paths.
    void MakeCurvePair(FilePath& cert, FilePath& key) const;
    FilePath MakeFile(const std::string& name, const std::string& content) const;
    std::string ReadFile(const FilePath& path) const;

private:
    FilePath xPath(const std::string& name) const { return FilePath((m_folder / name).string().c_str()); }

    TempFolder m_folder;
};

} // namespace kqlib::test
