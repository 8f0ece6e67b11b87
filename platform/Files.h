// File operations that the standard library lacks or does differently on each system. Paths are 8-bit texts
// (UTF-8 on every system); the separator of the system, or "/" everywhere.
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

/// Opens a file. create: made when missing. truncate: emptied. ownerOnly: a file that is made can be read and written
/// by its owner alone, and from one that exists all others lose their rights before it is emptied.
/// INVALID_FILE_HANDLE on failure (also for a folder, or when the rights cannot be taken).
KQCOMMON_API FileHandle OpenFile(const char* path, FileMode mode, bool create, bool truncate, bool ownerOnly = false);
KQCOMMON_API void CloseFile(FileHandle handle);

/// Reads at most size bytes from the file position. False on failure. got: bytes read, 0 at the end of the file.
KQCOMMON_API bool ReadFile(FileHandle handle, void* buffer, std::size_t size, std::size_t& got);

/// Writes all bytes at the file position, going on after partial writes. False on failure. diskFull, when given:
/// whether it failed for want of space or quota.
KQCOMMON_API bool WriteFile(FileHandle handle, const void* data, std::size_t size, bool* diskFull = nullptr);

/// Moves the file position to offset bytes from the start. False on failure.
KQCOMMON_API bool SeekFile(FileHandle handle, std::uint64_t offset);

/// The file's size in bytes. False on failure.
KQCOMMON_API bool GetFileSize(FileHandle handle, std::uint64_t& size);

/// Cuts or extends the file to size bytes. False on failure.
KQCOMMON_API bool SetFileSize(FileHandle handle, std::uint64_t size);

/// Returns when what was written is on the medium. False on failure.
KQCOMMON_API bool FlushFile(FileHandle handle);

/// Puts the file `from` in the place of `to`, atomically, on the same volume; `to` may exist. False on failure.
KQCOMMON_API bool ReplaceFileBy(const char* from, const char* to);

/// Deletes a file. False when it is not there or cannot be deleted.
KQCOMMON_API bool RemoveFile(const char* path);

/// The separator that the system writes between folders.
KQCOMMON_API char PathSeparator();

} // namespace kqlib::platform
