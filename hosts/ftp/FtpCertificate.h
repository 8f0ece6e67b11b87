// FtpCertificate: the files that kqftpd's TLS handshakes use.
#pragma once

#include "common/FilePath.h"
#include "common/String.h"

namespace kqlib {

class FtpSettings;

/// Certificate chain and key: those that the settings name, or else a pair that is made in the state folder once and
/// used from then on, "kqftpd.crt" and "kqftpd.key" (for its owner alone), with the signing request "kqftpd.csr" for
/// who wants to have it signed. Every handshake reads the files anew, so that exchanging them is all it takes.
///
/// Ownership: a plain value. Threads: any, but Provide one at a time. Errors: by result with a sentence.
class FtpCertificate
{
public:
    /// Looks at no file.
    explicit FtpCertificate(const FtpSettings& settings);

    const FilePath& GetFile() const { return m_file; }
    const FilePath& GetKeyFile() const { return m_keyFile; }

    /// Whether two files (PEM) can be read, hold a certificate and a key without a pass phrase, and belong together.
    /// False: error names the file and what is wrong.
    [[nodiscard]] static bool sCheckPair(const FilePath& file, const FilePath& keyFile, String& error);
    /// Sees to it that both files are there and belong together; makes them if they are to be made. False: error says
    /// what is missing or wrong.
    [[nodiscard]] bool Provide(String& error) const;

private:
    bool xMake(String& error) const;

    FilePath m_file;    // empty: no file is named, and no folder to make it in
    FilePath m_keyFile; // the same
    FilePath m_requestFile;
    FilePath m_folder; // to be made in; empty: the settings name the files
};

} // namespace kqlib
