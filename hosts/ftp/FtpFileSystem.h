// FtpFileSystem: the files of one user, under virtual paths.
#pragma once

#include "common/FilePath.h"
#include "platform/Folders.h"

namespace kqlib {

/// One user's home folder as the tree that the user sees: "/" is the home, names are separated by "/", and there is a
/// current folder that relative names start from.
///
/// A virtual path is brought to its plain form by its text alone ("/a/../b" is "/b", ".." above "/" stays at "/"). What
/// lies under that path is then found by the platform's walk, which follows links only as long as they stay beneath the
/// home: an absolute link, or one whose ".." leads above the home, is refused, however it came to its place.
///
/// Ownership: owns the open home folder. Threads: one at a time. Errors: by result; Describe gives the sentence for it.
class FtpFileSystem
{
public:
    using RESULT = platform::FileResult;
    using FACTS = platform::FileFacts;

    /// The longest virtual path in bytes.
    static constexpr std::size_t MAX_PATH = 4096;

    /// Opens the home; the current folder becomes "/".
    [[nodiscard]] RESULT Open(const FilePath& home);
    void Close();

    /// Makes the plain virtual path of what the user wrote; an empty text is the current folder. BAD_NAME: a control
    /// character, or too long.
    [[nodiscard]] RESULT Resolve(const String& text, String& path) const;
    const String& GetFolder() const { return m_folder; }
    /// Makes a plain virtual path the current folder. NOT_FOLDER when it is not one.
    [[nodiscard]] RESULT SetFolder(const String& path);

    /// The path in the host's own file system, for logs.
    FilePath GetRealPath(const String& path) const;
    /// The verbs that take a plain virtual path.
    const platform::RootFolder& GetRoot() const { return m_root; }

    /// True for a folder that the user may enter.
    bool IsFolder(const String& path) const;
    /// The facts of an entry as the user gets to see it: of a link, those of what it leads to. A link that leads out of
    /// the home or nowhere is not shown: ESCAPES, NOT_FOUND and the like.
    [[nodiscard]] RESULT GetShownFacts(const String& path, FACTS& facts) const;
    /// Renames. replace: a file at to may be replaced; a folder never is (EXISTS).
    [[nodiscard]] RESULT Rename(const String& from, const String& to, bool replace) const;

    /// folder + "/" + name.
    static String sJoin(const String& folder, const String& name);
    /// The sentence that tells a user what went wrong.
    static const char* sDescribe(RESULT result);

private:
    platform::RootFolder m_root;
    FilePath m_home;
    String m_folder = "/";
};

} // namespace kqlib
