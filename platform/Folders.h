// Work beneath one folder that no name leads out of: opening, listing, changing and removing what lies below it.
//
// Every verb takes the root (an open folder) and a path beneath it. The path is 8-bit text (UTF-8), its names are
// separated by "/", empty names and "." are skipped, an empty path is the root itself. The walk goes from one open
// folder to the next and never hands the system a path of more than one name, so that another process that exchanges a
// folder for a link meanwhile gains nothing. Links are followed by the walk itself, at most MAX_LINKS of them: a link
// that is absolute, and a ".." (in the path or in a link) above the root, end it with ESCAPES. A verb that says "the
// link itself" does not follow a link in the last place.
//
// A root and its readers are used by one thread at a time; different roots need no lock.
// Inside the library only.
#pragma once

#include "platform/Export.h"
#include "platform/Files.h"

#include <cstdint>
#include <memory>
#include <string>

namespace kqlib::platform {

/// What a verb came to.
enum class FileResult : std::uint8_t
{
    DONE,
    NOT_FOUND,  ///< a name of the path is not there
    EXISTS,     ///< something of that name is there already
    NOT_FOLDER, ///< a name that must be a folder is something else
    IS_FOLDER,  ///< a file was wanted, a folder is there
    NOT_FILE,   ///< neither a plain file nor a folder (a device, a pipe)
    NOT_EMPTY,  ///< the folder still holds something
    DENIED,     ///< the system refuses, or the root itself was to be removed or renamed
    ESCAPES,    ///< a link or ".." leads out of the root
    TOO_MANY_LINKS,
    BAD_NAME,   ///< a name that the system cannot have: too long, or with a character it does not allow
    DISK_FULL,  ///< no space or quota left
    OTHER_DISK, ///< a rename from one volume to another
    FAILED      ///< any other failure
};

enum class FileKind : std::uint8_t
{
    FILE,
    FOLDER,
    LINK,
    OTHER
};

struct FileFacts
{
    FileKind kind = FileKind::OTHER;
    std::uint64_t size = 0;        ///< bytes, 0 unless a file
    std::int64_t modifiedMs = 0;   ///< milliseconds since 1970 UTC
    std::uint32_t permissions = 0; ///< the nine bits rwxrwxrwx of the system, or what comes nearest
    std::uint32_t links = 1;       ///< names that the file has
    std::uint64_t volume = 0;      ///< volume and serial together tell one file from every other
    std::uint64_t serial = 0;
};

/// How many links one walk follows.
inline constexpr unsigned MAX_LINKS = 32;

/// An open folder, the root of every walk. Owns the system's handle; not copyable.
class KQCOMMON_API RootFolder
{
public:
    /// Nothing is open; every verb fails.
    RootFolder();
    ~RootFolder();
    RootFolder(const RootFolder&) = delete;
    RootFolder& operator=(const RootFolder&) = delete;

    /// Opens the folder at a path of the system, links in it followed. What was open is closed first.
    [[nodiscard]] FileResult Open(const char* path);
    void Close();
    [[nodiscard]] bool IsOpen() const;

    /// The facts of what path leads to.
    [[nodiscard]] FileResult GetFacts(const std::string& path, FileFacts& out) const;
    /// The same, of the link itself.
    [[nodiscard]] FileResult GetOwnFacts(const std::string& path, FileFacts& out) const;

    /// Opens a plain file. create: made when it is missing; made: whether that happened. Nothing is cut off. IS_FOLDER
    /// or NOT_FILE for anything else. handle: the caller closes it; INVALID_FILE_HANDLE unless DONE.
    [[nodiscard]] FileResult OpenFile(const std::string& path, FileMode mode, bool create, FileHandle& handle,
                                      bool& made) const;

    /// Makes a folder in one that is there. EXISTS when anything has the name.
    [[nodiscard]] FileResult MakeFolder(const std::string& path) const;
    /// Removes an empty folder (never a link to one).
    [[nodiscard]] FileResult RemoveFolder(const std::string& path) const;
    /// Removes a file or the link itself.
    [[nodiscard]] FileResult RemoveFile(const std::string& path) const;
    /// Gives the file, the folder or the link itself at from the name to. replace: a file at to is replaced in one
    /// step, otherwise EXISTS.
    [[nodiscard]] FileResult Rename(const std::string& from, const std::string& to, bool replace) const;
    /// Sets the time of the last change; the time of the last access becomes now.
    [[nodiscard]] FileResult SetModified(const std::string& path, std::int64_t modifiedMs) const;
    /// Sets the nine bits rwxrwxrwx of a file or a folder; NOT_FILE for anything else. On Windows only the owner's w of
    /// a file has a meaning, the rest is ignored.
    [[nodiscard]] FileResult SetPermissions(const std::string& path, std::uint32_t permissions) const;
    /// The bytes that this process may still write on the volume of the folder that path leads to. NOT_FOLDER when it
    /// is something else.
    [[nodiscard]] FileResult GetFreeBytes(const std::string& path, std::uint64_t& out) const;

private:
    friend class FolderReader;
    std::intptr_t m_handle = -1;
};

/// The entries of one folder, one after the other in the system's order, without "." and "..".
class KQCOMMON_API FolderReader
{
public:
    FolderReader();
    ~FolderReader();
    FolderReader(const FolderReader&) = delete;
    FolderReader& operator=(const FolderReader&) = delete;

    /// Starts reading the folder that path leads to. NOT_FOLDER when it is something else. The root may be closed
    /// afterwards.
    [[nodiscard]] FileResult Open(const RootFolder& root, const std::string& path);
    void Close();
    /// The next entry with its own facts (a link's are the link's). An entry that vanished meanwhile is left out.
    /// False at the end and on failure.
    [[nodiscard]] bool Read(std::string& name, FileFacts& facts);

private:
    struct STATE;
    std::unique_ptr<STATE> m_state;
};

} // namespace kqlib::platform
