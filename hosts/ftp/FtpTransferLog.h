// FtpTransferLog: one line per transfer, for programs that read it.
#pragma once

#include "common/FilePath.h"
#include "common/LineLog.h"
#include "common/NetIP.h"
#include "common/String.h"

namespace kqlib {

/// Files that were moved, or should have been, in one of two forms: the standard one of transfer logs, which analysers
/// read, and JSON, one object per line. docs/kqftpd.md describes both. Each form has a file of its own, so that no file
/// ever holds both.
///
/// Ownership: owns the files. Threads: any thread. Errors: a line that cannot be written is dropped.
class FtpTransferLog
{
public:
    /// One transfer, as it ended.
    struct TRANSFER
    {
        const char* command = "RETR"; ///< RETR, STOR, STOU or APPE
        String user;
        bool isAnonymous = false;
        NetIP address; ///< the client's
        FilePath path; ///< of this machine
        bool isUpload = false;
        bool isText = false;    ///< TYPE A
        bool isSecured = false; ///< the data connection was to speak TLS
        ULONG8 bytes = 0;       ///< on the data connection
        ULONG milliSecs = 0;    ///< from 150 to the end
        bool isComplete = false;
        String reason; ///< why it is not
    };

    /// The names of the forms in the settings.
    static constexpr const char* NONE = "none";
    static constexpr const char* STANDARD = "standard";
    static constexpr const char* JSON = "json";
    static bool sIsForm(const String& form);
    /// The name of a form's file; empty for "none".
    static String sGetFileName(const String& form);

    /// Goes on in that form. where: folder and rotation; the names of the files are this object's affair. What is as
    /// before stays untouched.
    void SetSettings(const String& form, const EventLogSettings& where);
    /// False: lines are wanted, and there is no file for them.
    bool IsUsable() const;
    /// Goes on in the file that the path names now. False: it cannot be had, the old one stays in use.
    [[nodiscard]] bool Reopen();

    void Print(const TRANSFER& transfer);

    /// The line of a transfer that ended at that time.
    ///@{
    static String sMakeStandardLine(const TRANSFER& transfer, const TimePos& now);
    static String sMakeJsonLine(const TRANSFER& transfer, const TimePos& now);
    ///@}

private:
    LineLog m_standard;
    LineLog m_json;
};

} // namespace kqlib
