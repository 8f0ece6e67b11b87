// Demonstration: what kqftpd serves when it was given no settings.
#pragma once

#include "hosts/ftp/FtpSettings.h"

namespace kqlib {

/// A fresh folder with a few files and an account for it, on 127.0.0.1.
///
/// Ownership: a folder that it made in the system's folder for temporary files is removed with it, with everything
/// that was uploaded; one that was named stays. Threads: one at a time. Errors: by result with a sentence.
class Demonstration
{
public:
    static const char* const USER;
    static const char* const PASSWORD;

    Demonstration() = default;
    ~Demonstration();
    Demonstration(const Demonstration&) = delete;
    Demonstration& operator=(const Demonstration&) = delete;

    /// folder: where to serve from; empty: a new temporary one. Fills users, log folder
    /// and state folder of settings, and has TLS offered.
    [[nodiscard]] bool Make(const FilePath& folder, FtpSettings& settings, String& error);
    const FilePath& GetFolder() const { return m_folder; }

private:
    FilePath m_folder;
    bool m_isTemporary = false;
};

} // namespace kqlib
