// FileAccessBuf: a file read line by line.
#pragma once

#include "common/FileAccess.h"

#include <vector>

namespace kqlib {

/// Buffered line reading over a FileAccess.
///
/// Ownership: owns file and buffer; not copyable. Threads: one at a time. Errors: by result.
class KQCOMMON_API FileAccessBuf
{
public:
    /// Closes what was open, then opens path. create: made when missing. False: closed.
    [[nodiscard]] bool Open(const FilePath& path, FileAccess::ACCESS_MODE mode, bool create);
    /// Drops what was read ahead, too; nothing when no file is open.
    void Close();

    /// The next line without its LF or CR LF. False at the end, or when the file cannot be read; line is empty then,
    /// the beginning of a line that could not be read to its end is not delivered. A last line without LF is.
    bool ReadLine(String& line);

private:
    enum class FILL
    {
        DONE,
        AT_END,
        FAILED
    };
    FILL xFill();

    FileAccess m_file;
    std::vector<unsigned char> m_buffer;
    ULONG m_length = 0;
    ULONG m_position = 0;
};

} // namespace kqlib
