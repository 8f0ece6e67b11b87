#include "common/FileAccess.h"

#include "platform/Files.h"

#include <type_traits>

namespace kqlib {

namespace {

platform::FileMode ToFileMode(FileAccess::ACCESS_MODE mode)
{
    if (mode == FileAccess::AM_WRITE)
        return platform::FileMode::WRITE;
    return mode == FileAccess::AM_READWRITE ? platform::FileMode::READWRITE : platform::FileMode::READ;
}

} // namespace

FileAccess::~FileAccess()
{
    static_assert(std::is_same_v<HANDLE_VALUE, platform::FileHandle> && NONE == platform::INVALID_FILE_HANDLE);
    Close();
}

bool FileAccess::Open(const FilePath& path, ACCESS_MODE mode, bool create, bool truncate)
{
    Close();
    m_handle = platform::OpenFile(path.c_str(), ToFileMode(mode), create, truncate);
    return IsOpen();
}

bool FileAccess::OpenOwnerOnly(const FilePath& path, ACCESS_MODE mode, bool create, bool truncate)
{
    Close();
    m_handle = platform::OpenFile(path.c_str(), ToFileMode(mode), create, truncate, platform::FileRights::OWNER);
    return IsOpen();
}

void FileAccess::Close()
{
    platform::CloseFile(m_handle);
    m_handle = NONE;
}

bool FileAccess::Read(unsigned char* buffer, ULONG& size)
{
    std::size_t got = 0;
    const bool read = IsOpen() && platform::ReadFile(m_handle, buffer, size, got);
    size = static_cast<ULONG>(got);
    return read;
}

bool FileAccess::WriteAll(const unsigned char* bytes, ULONG size)
{
    return IsOpen() && platform::WriteFile(m_handle, bytes, size);
}

bool FileAccess::Seek(ULONG8 offset)
{
    return IsOpen() && platform::SeekFile(m_handle, offset);
}

bool FileAccess::SetSize(ULONG8 size)
{
    return IsOpen() && platform::SetFileSize(m_handle, size);
}

bool FileAccess::Flush()
{
    return IsOpen() && platform::FlushFile(m_handle);
}

ULONG8 FileAccess::GetSize() const
{
    std::uint64_t size = 0;
    return IsOpen() && platform::GetFileSize(m_handle, size) ? size : 0;
}

ULONG FileAccess::GetSizeULONG() const
{
    const ULONG8 size = GetSize();
    return size <= ALL_BITS_32 ? static_cast<ULONG>(size) : 0;
}

bool FileAccess::sDelete(const FilePath& path)
{
    return platform::RemoveFile(path.c_str());
}

} // namespace kqlib
