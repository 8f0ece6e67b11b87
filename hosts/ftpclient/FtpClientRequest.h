// FtpClientRequest: what the client session is asked for, and what came of it.
#pragma once

#include "common/FilePath.h"
#include "common/STRINGS.h"
#include "hosts/ftpclient/FtpRemoteEntry.h"

#include <vector>

namespace kqlib {

/// One request. Remote paths begin in the user's folder, or at the root with a leading "/". A plain value.
struct FtpClientRequest
{
    enum CODE : std::uint32_t
    {
        CONNECT = 1,  ///< be connected and logged in, which every other request sees to by itself
        LIST = 2,     ///< the entries of the folder at remotePath
        FACTS = 3,    ///< the one entry at remotePath
        DOWNLOAD = 4, ///< remotePath to localName in localFolder
        UPLOAD = 5,   ///< localName in localFolder to remotePath
        MAKE_FOLDER = 6,
        REMOVE_FILE = 7,
        REMOVE_FOLDER = 8,
        SITE = 9 ///< what stands in remotePath, as a SITE command (RFC 959, section 4.1.3)
    };

    CODE code = CONNECT;
    String remotePath;
    FilePath localFolder; ///< transfers never leave it
    String localName;     ///< beneath that folder, names separated by "/"
    /// DOWNLOAD: the version that is wanted, as a listing told it; without a name the server is asked first.
    FtpRemoteEntry version;
    /// LIST: every file has its size and time, if the server tells them at all, though it takes questions one by one.
    bool wantsTimes = false;
    /// UPLOAD: the server may hold a part of this very version.
    bool mayResume = true;
};

/// What came of one. A plain value.
struct FtpClientResult
{
    enum class OUTCOME : std::uint8_t
    {
        DONE,
        CANCELLED,
        NO_CONNECTION, ///< the server cannot be reached, or does not want this client
        NO_LOGIN,
        NO_TLS,   ///< TLS cannot be had, or the certificate is not trusted
        LOST,     ///< the connection broke, or nothing came for too long
        REFUSED,  ///< the server said no: see replyCode
        CONFUSED, ///< the server says what makes no sense
        LOCAL,    ///< a file of this machine cannot be read or written
        DIFFERENT ///< not as many bytes as the file has
    };

    OUTCOME outcome = OUTCOME::DONE;
    unsigned replyCode = 0;              ///< REFUSED and its kin: the server's code
    String text;                         ///< why, for people
    std::vector<FtpRemoteEntry> entries; ///< LIST and FACTS
    STRINGS lines;                       ///< SITE: what the reply holds between its first and its last line
    ULONG8 moved = 0;                    ///< bytes that went over the data connection

    bool IsDone() const { return outcome == OUTCOME::DONE; }
    /// The same may well go better on a new connection.
    bool IsWorthAnotherTry() const
    {
        return outcome == OUTCOME::LOST || replyCode == 421 || replyCode == 425 || replyCode == 426;
    }
};

/// How far the running transfer is. A plain value.
struct FtpClientProgress
{
    String name;      ///< empty: no transfer is running
    ULONG8 moved = 0; ///< bytes that are there, those of an earlier part included
    ULONG8 total = 0; ///< 0: not known
};

} // namespace kqlib
