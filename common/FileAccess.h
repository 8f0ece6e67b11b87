// FileAccess: plain reading and writing of one file.
#pragma once

#include "common/FilePath.h"

#include <cstdint>

namespace kqlib {

/// One open file. Open, read or write, Close; the destructor closes.
///
/// Ownership: owns the handle; not copyable. Threads: one at a time. Errors: by result; nothing throws.
class KQCOMMON_API FileAccess
{
public:
    /// Which way bytes may go; an operation for the other way fails.
    enum ACCESS_MODE
    {
        AM_READ = 0,     ///< Read
        AM_WRITE = 1,    ///< WriteAll, SetSize
        AM_READWRITE = 2 ///< both
    };

    /// No file.
    FileAccess() = default;
    /// As Close.
    ~FileAccess();
    FileAccess(const FileAccess&) = delete;
    FileAccess& operator=(const FileAccess&) = delete;

    /// Closes what was open, then opens path. create: made when missing. truncate: emptied. False: closed.
    [[nodiscard]] bool Open(const FilePath& path, ACCESS_MODE mode, bool create, bool truncate);
    /// The same for a file that, when it is made, only its owner may read or write.
    [[nodiscard]] bool OpenOwnerOnly(const FilePath& path, ACCESS_MODE mode, bool create, bool truncate);
    /// Nothing when no file is open. What was written is not waited for (Flush does that).
    void Close();
    /// A file is open, whether operations on it failed or not.
    bool IsOpen() const { return m_handle != NONE; }

    /// Reads once at the file position. size: in, room in buffer; out, bytes read (0 at the end).
    [[nodiscard]] bool Read(unsigned char* buffer, ULONG& size);
    /// Writes everything at the file position. False when not open or when anything could not be written.
    [[nodiscard]] bool WriteAll(const unsigned char* bytes, ULONG size);
    /// Moves the file position to offset bytes from the start.
    [[nodiscard]] bool Seek(ULONG8 offset);
    /// Cuts or extends the file to size bytes; the position stays.
    [[nodiscard]] bool SetSize(ULONG8 size);
    /// Returns when what was written is on the medium.
    [[nodiscard]] bool Flush();
    /// Size in bytes, 0 when not open.
    ULONG8 GetSize() const;
    /// The same, 0 also when it does not fit 32 bits.
    ULONG GetSizeULONG() const;

    /// Deletes a file. False when it was not there or could not be deleted.
    static bool sDelete(const FilePath& path);

private:
    /// The platform layer's handle of a file, and its value for none.
    using HANDLE_VALUE = std::intptr_t;
    static constexpr HANDLE_VALUE NONE = -1;

    HANDLE_VALUE m_handle = NONE;
};

} // namespace kqlib
