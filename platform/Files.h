// File operations that the standard library lacks or does differently on each system. Paths are 8-bit texts
// (UTF-8 on every system); the separator of the system, or "/" everywhere.
// Inside the library only.
#pragma once

#include "platform/Export.h"

#include <cstddef>
#include <cstdint>

namespace kqlib::platform {

/// An open file. Not inherited by child processes.
using FileHandle = std::intptr_t;
inline constexpr FileHandle INVALID_FILE_HANDLE = -1;

enum class FileMode : std::uint8_t
{
    READ,
    WRITE,
    READWRITE
};

/// Who may use a file that is made. A file that is there keeps its rights, except in OpenFile with OWNER. On Windows
/// the group is the machine's administrators.
enum class FileRights : std::uint8_t
{
    USUAL,          ///< what the system gives to a new file
    OWNER,          ///< its owner reads and writes, nobody else
    OWNER_AND_GROUP ///< the group may read it, too
};

/// Opens a file. create: made when missing, with these rights. truncate: emptied. With OWNER all others lose their
/// rights to a file that exists before it is emptied. INVALID_FILE_HANDLE on failure (also for a folder, or when the
/// rights cannot be taken).
KQCOMMON_API FileHandle OpenFile(const char* path, FileMode mode, bool create, bool truncate,
                                 FileRights rights = FileRights::USUAL);

/// Opens a file, made when missing, whose every write goes to the end that it has then, also when other processes
/// append to it. INVALID_FILE_HANDLE on failure (also for a folder).
KQCOMMON_API FileHandle OpenFileToAppend(const char* path, FileRights rights);

/// Makes a file for writing. INVALID_FILE_HANDLE when the name exists already, even as a link that leads nowhere.
KQCOMMON_API FileHandle MakeNewFile(const char* path, FileRights rights);

/// Nothing for INVALID_FILE_HANDLE.
KQCOMMON_API void CloseFile(FileHandle handle);

/// Reads at most size bytes from the file position. False on failure. got: bytes read, 0 at the end of the file.
KQCOMMON_API bool ReadFile(FileHandle handle, void* buffer, std::size_t size, std::size_t& got);

/// Writes all bytes at the file position, going on after partial writes. False on failure. diskFull, when given:
/// whether it failed for want of space or quota. written, when given: bytes that got into the file all the same.
KQCOMMON_API bool WriteFile(FileHandle handle, const void* data, std::size_t size, bool* diskFull = nullptr,
                            std::size_t* written = nullptr);

/// Moves the file position to offset bytes from the start. False on failure.
KQCOMMON_API bool SeekFile(FileHandle handle, std::uint64_t offset);

/// The file's size in bytes. False on failure.
KQCOMMON_API bool GetFileSize(FileHandle handle, std::uint64_t& size);

/// When the file was written last, in milliseconds since 1970 UTC. False on failure.
KQCOMMON_API bool GetFileWriteTime(FileHandle handle, std::int64_t& wallMs);

/// Whether the path names this very file. False also when the path names none.
KQCOMMON_API bool IsFileAt(FileHandle handle, const char* path);

/// Cuts or extends the file to size bytes. False on failure.
KQCOMMON_API bool SetFileSize(FileHandle handle, std::uint64_t size);

/// Returns when what was written is on the medium. False on failure.
KQCOMMON_API bool FlushFile(FileHandle handle);

/// Puts the file `from` in the place of `to`, atomically, on the same volume; `to` may exist. False on failure.
KQCOMMON_API bool ReplaceFileBy(const char* from, const char* to);

/// Gives the file that is open as `to`, made just now by MakeNewFile, the rights of the file at path `from`, and its
/// owner and group as far as this process may. A group that cannot be given loses its rights. True also on a volume
/// that knows no rights. False: they could not be read or given.
KQCOMMON_API bool CopyFileRights(const char* from, FileHandle to);

/// Returns when the names in the path's folder are on the medium, after ReplaceFileBy for example. False when the
/// system cannot tell.
KQCOMMON_API bool FlushFolderOf(const char* path);

/// Deletes a file. False when it is not there or cannot be deleted.
KQCOMMON_API bool RemoveFile(const char* path);

/// The separator that the system writes between folders.
KQCOMMON_API char PathSeparator();

} // namespace kqlib::platform
