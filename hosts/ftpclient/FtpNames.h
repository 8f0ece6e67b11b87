// FtpNames: names and paths that come from a server or go to one.
#pragma once

#include "hosts/ftpclient/FtpRemoteEntry.h"

namespace kqlib {

/// Ownership: none. Threads: any thread. Errors: by result.
class FtpNames
{
public:
    /// Whether a name of a listing can be the name of one file in a folder of ours: not empty, not "." or "..", with
    /// neither "/" nor a zero byte in it. What else a system does not allow in names, its folders refuse themselves.
    static bool sIsPlain(const String& name);
    /// Whether a text can be part of a command: no zero byte and no line end in it, which would begin another command.
    static bool sCanBeSent(const String& text);

    /// "folder/name"; an empty folder gives the name alone, "/" gives "/name".
    static String sJoin(const String& folder, const String& name);
    /// What is before the last "/" (the root: "/"; none: empty), and what is behind it.
    static String sFolderOf(const String& path);
    static String sNameOf(const String& path);

    /// The name under which a file is kept until it is complete. It tells one version of a file from every other, so
    /// that only what belongs together is ever put together; a version with an unknown size or time has one, too.
    static String sMakePartName(const FtpRemoteEntry& version);
    /// Whether a name is of that kind.
    static bool sIsPartName(const String& name);

    /// The path in the text of a 257 reply, in quotes that are doubled inside (RFC 959, appendix II). False: none.
    [[nodiscard]] static bool sUnquote(const String& text, String& path);
};

} // namespace kqlib
