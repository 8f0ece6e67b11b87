#include "common/EventLogFile.h"

#include "common/FileAccess.h"
#include "common/NativePath.h"
#include "common/String.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <system_error>

namespace kqlib {

namespace {

constexpr char LINE_END = '\n';

FilePath GetOldPath(const FilePath& path, ULONG8 number)
{
    FilePath old = path;
    old += "." + String::sToString(number);
    return old;
}

/// Whether there is a file, also one that may not be read.
bool Exists(const FilePath& path)
{
    std::filesystem::path native;
    std::error_code failure;
    return ToNativePath(path, native) && std::filesystem::exists(native, failure);
}

} // namespace

std::unique_ptr<EventLogFile> EventLogFile::sOpen(const FilePath& path)
{
    // The object first: a handle that it does not have yet would be lost where there is no memory.
    std::unique_ptr<EventLogFile> file(new EventLogFile(path));
    if (!file->xOpen())
        return nullptr;
    return file;
}

EventLogFile::EventLogFile(const FilePath& path)
    : m_path(path)
{
}

bool EventLogFile::xOpen()
{
    m_handle = platform::OpenFileToAppend(m_path.c_str(), platform::FileRights::OWNER_AND_GROUP);
    if (m_handle == platform::INVALID_FILE_HANDLE)
        return false;
    std::int64_t writtenMs = 0;
    platform::CalendarTime written = {};
    if (!platform::GetFileSize(m_handle, m_size) || m_size == 0)
        return true;
    if (platform::GetFileWriteTime(m_handle, writtenMs) && platform::ToLocalTime(writtenMs, written))
        m_day = sGetDay(written);
    m_withinLine = xEndsWithinLine();
    return true;
}

EventLogFile::~EventLogFile()
{
    platform::CloseFile(m_handle);
}

/// Looks at the last byte. A file that may not be read counts as one of whole lines.
bool EventLogFile::xEndsWithinLine() const
{
    FileAccess file;
    unsigned char last = 0;
    ULONG size = 1;
    return file.Open(m_path, FileAccess::AM_READ, false, false) && file.Seek(m_size - 1) && file.Read(&last, size) &&
           size == 1 && last != LINE_END;
}

bool EventLogFile::WriteLine(std::string line)
{
    if (m_withinLine)
        line.insert(0, 1, LINE_END);
    line += LINE_END;
    std::size_t written = 0;
    const bool whole = platform::WriteFile(m_handle, line.data(), line.size(), nullptr, &written);
    m_size += written;
    if (written != 0)
        m_withinLine = line[written - 1] != LINE_END;
    return whole;
}

bool EventLogFile::sRotate(const FilePath& path, ULONG keep)
{
    // Emptied and not deleted: a name that is deleted while the file is open stays there on some systems.
    if (keep == 0) {
        FileAccess file;
        return file.Open(path, FileAccess::AM_WRITE, false, true);
    }
    // 1. Find the first number that is free; the file of the last one that may be kept is overwritten.
    ULONG free = 1;
    while (free < keep && Exists(GetOldPath(path, free)))
        ++free;
    // 2. Move up to it, the oldest first, so that a failure overwrites nothing.
    for (ULONG number = free; number > 1; --number)
        if (!platform::ReplaceFileBy(GetOldPath(path, number - 1).c_str(), GetOldPath(path, number).c_str()))
            return false;
    if (!platform::ReplaceFileBy(path.c_str(), GetOldPath(path, 1).c_str()))
        return false;
    // 3. Fewer may be kept now than before.
    ULONG8 old = ULONG8{keep} + 1;
    while (FileAccess::sDelete(GetOldPath(path, old)))
        ++old;
    return true;
}

} // namespace kqlib
