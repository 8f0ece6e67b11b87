// The wrapper's files, the event log's among them, and what else is asked of the system.
#include "platform/Files.h"
#include "platform/ResolverConfig.h"

#include "tests/faults/posix/Interposition.h"

namespace kqlib::platform {

using test::Call;
using test::FAULT;
using test::Real;

FileHandle OpenFile(const char* path, FileMode mode, bool create, bool truncate, FileRights rights)
{
    const Call call(__builtin_return_address(0));
    return call.Draw(FAULT::FILE_OPEN_FAILS) ? INVALID_FILE_HANDLE
                                             : Real<&OpenFile>()(path, mode, create, truncate, rights);
}

FileHandle OpenFileToAppend(const char* path, FileRights rights)
{
    const Call call(__builtin_return_address(0));
    return call.Draw(FAULT::FILE_OPEN_FAILS) ? INVALID_FILE_HANDLE : Real<&OpenFileToAppend>()(path, rights);
}

FileHandle MakeNewFile(const char* path, FileRights rights)
{
    const Call call(__builtin_return_address(0));
    return call.Draw(FAULT::FILE_OPEN_FAILS) ? INVALID_FILE_HANDLE : Real<&MakeNewFile>()(path, rights);
}

bool ReadFile(FileHandle handle, void* buffer, std::size_t size, std::size_t& got)
{
    const Call call(__builtin_return_address(0));
    if (!call.Draw(FAULT::FILE_READ_FAILS))
        return Real<&ReadFile>()(handle, buffer, size, got);
    got = 0;
    return false;
}

bool WriteFile(FileHandle handle, const void* data, std::size_t size, bool* diskFull, std::size_t* written)
{
    const Call call(__builtin_return_address(0));
    const auto draw = call.Draw(FAULT::DISK_FULL);
    if (!draw)
        return Real<&WriteFile>()(handle, data, size, diskFull, written);
    // What still fitted is there.
    std::size_t fitted = size > 0 ? static_cast<std::size_t>(draw.Below(size)) : 0;
    Real<&WriteFile>()(handle, data, fitted, nullptr, &fitted);
    if (diskFull != nullptr)
        *diskFull = true;
    if (written != nullptr)
        *written = fitted;
    return false;
}

bool SeekFile(FileHandle handle, std::uint64_t offset)
{
    const Call call(__builtin_return_address(0));
    return !call.Draw(FAULT::FILE_READ_FAILS) && Real<&SeekFile>()(handle, offset);
}

bool GetFileSize(FileHandle handle, std::uint64_t& size)
{
    const Call call(__builtin_return_address(0));
    return !call.Draw(FAULT::FILE_READ_FAILS) && Real<&GetFileSize>()(handle, size);
}

bool GetFileWriteTime(FileHandle handle, std::int64_t& wallMs)
{
    const Call call(__builtin_return_address(0));
    return !call.Draw(FAULT::FILE_READ_FAILS) && Real<&GetFileWriteTime>()(handle, wallMs);
}

bool IsFileAt(FileHandle handle, const char* path)
{
    const Call call(__builtin_return_address(0));
    return !call.Draw(FAULT::FILE_READ_FAILS) && Real<&IsFileAt>()(handle, path);
}

bool CopyFileRights(const char* from, FileHandle to)
{
    const Call call(__builtin_return_address(0));
    return !call.Draw(FAULT::FILE_OPEN_FAILS) && Real<&CopyFileRights>()(from, to);
}

bool SetFileSize(FileHandle handle, std::uint64_t size)
{
    const Call call(__builtin_return_address(0));
    return !call.Draw(FAULT::DISK_FULL) && Real<&SetFileSize>()(handle, size);
}

bool FlushFile(FileHandle handle)
{
    const Call call(__builtin_return_address(0));
    return !call.Draw(FAULT::FLUSH_FAILS) && Real<&FlushFile>()(handle);
}

bool FlushFolderOf(const char* path)
{
    const Call call(__builtin_return_address(0));
    return !call.Draw(FAULT::FLUSH_FAILS) && Real<&FlushFolderOf>()(path);
}

bool ReplaceFileBy(const char* from, const char* to)
{
    const Call call(__builtin_return_address(0));
    return !call.Draw(FAULT::REPLACE_FAILS) && Real<&ReplaceFileBy>()(from, to);
}

bool RemoveFile(const char* path)
{
    const Call call(__builtin_return_address(0));
    return !call.Draw(FAULT::REPLACE_FAILS) && Real<&RemoveFile>()(path);
}

void AppendNameServiceServers(std::vector<std::string>& addresses)
{
    const Call call(__builtin_return_address(0));
    if (!call.Draw(FAULT::LOOKUP_FAILS))
        Real<&AppendNameServiceServers>()(addresses);
}

bool AppendServerSettings(std::vector<std::string>& texts)
{
    const Call call(__builtin_return_address(0));
    return !call.Draw(FAULT::LOOKUP_FAILS) && Real<&AppendServerSettings>()(texts);
}

} // namespace kqlib::platform
