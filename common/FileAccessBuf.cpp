#include "common/FileAccessBuf.h"

namespace kqlib {

namespace {

constexpr ULONG BUFFER_SIZE = 16384;

} // namespace

bool FileAccessBuf::Open(const FilePath& path, FileAccess::ACCESS_MODE mode, bool create)
{
    m_length = 0;
    m_position = 0;
    return m_file.Open(path, mode, create, false);
}

void FileAccessBuf::Close()
{
    m_file.Close();
    m_length = 0;
    m_position = 0;
}

bool FileAccessBuf::ReadLine(String& line)
{
    line.clear();
    bool any = false;
    FILL filled = FILL::DONE;
    while (m_position < m_length || (filled = xFill()) == FILL::DONE) {
        any = true;
        const auto byte = static_cast<char>(m_buffer[m_position++]);
        if (byte == '\n') {
            if (!line.empty() && line[line.size() - 1] == '\r')
                line.pop_back();
            return true;
        }
        line += byte;
    }
    if (filled == FILL::FAILED)
        line.clear();
    return any && filled == FILL::AT_END;
}

/// Reads the next bytes of the file.
FileAccessBuf::FILL FileAccessBuf::xFill()
{
    m_buffer.resize(BUFFER_SIZE);
    m_position = 0;
    m_length = BUFFER_SIZE;
    const bool read = m_file.Read(m_buffer.data(), m_length);
    if (!read)
        m_length = 0;
    return m_length != 0 ? FILL::DONE : read ? FILL::AT_END : FILL::FAILED;
}

} // namespace kqlib
