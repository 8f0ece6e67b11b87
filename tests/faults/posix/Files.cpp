// The wrapper's files, the event log's lines, and what else is asked of the system.
#include "platform/Files.h"
#include "platform/ResolverConfig.h"

#include "tests/faults/posix/Interposition.h"

#include <cstdio>

namespace kqlib::platform {

using test::Call;
using test::FAULT;
using test::Real;

FileHandle OpenFile(const char* path, FileMode mode, bool create, bool truncate, bool ownerOnly)
{
    const Call call(__builtin_return_address(0));
    return call.Draw(FAULT::FILE_OPEN_FAILS) ? INVALID_FILE_HANDLE
                                             : Real<&OpenFile>()(path, mode, create, truncate, ownerOnly);
}

bool ReadFile(FileHandle handle, void* buffer, std::size_t size, std::size_t& got)
{
    const Call call(__builtin_return_address(0));
    if (!call.Draw(FAULT::FILE_READ_FAILS))
        return Real<&ReadFile>()(handle, buffer, size, got);
    got = 0;
    return false;
}

bool WriteFile(FileHandle handle, const void* data, std::size_t size, bool* diskFull)
{
    const Call call(__builtin_return_address(0));
    const auto draw = call.Draw(FAULT::DISK_FULL);
    if (!draw)
        return Real<&WriteFile>()(handle, data, size, diskFull);
    // What still fitted is there.
    if (size > 0)
        Real<&WriteFile>()(handle, data, static_cast<std::size_t>(draw.Below(size)), nullptr);
    if (diskFull != nullptr)
        *diskFull = true;
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

// The event log writes through the C library.
extern "C" __attribute__((visibility("default"))) std::size_t fwrite(const void* data, std::size_t size,
                                                                     std::size_t count, std::FILE* file)
{
    using namespace kqlib::test;
    const Call call(__builtin_return_address(0));
    return call.Draw(FAULT::LOG_FAILS) ? 0 : Real<&fwrite>()(data, size, count, file);
}
