#include "platform/Files.h"

#include "platform/windows/FileTime.h"
#include "platform/windows/LimitedRights.h"
#include "platform/windows/SystemHeaders.h"
#include "platform/windows/WideText.h"

#include <algorithm>
#include <vector>

namespace kqlib::platform {

namespace {

// One call moves at most this much: its counts have 32 bits.
constexpr std::size_t MAX_CHUNK_BYTES = std::size_t{1} << 30;

// Others may read, write, rename and delete a file while it is open here, as on the other systems.
constexpr DWORD SHARE_ALL = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

HANDLE ToNative(FileHandle handle)
{
    return reinterpret_cast<HANDLE>(handle); // NOLINT(performance-no-int-to-ptr): a handle, not an address
}

DWORD GetAccess(FileMode mode)
{
    switch (mode) {
    case FileMode::READ:
        return GENERIC_READ;
    case FileMode::WRITE:
        return GENERIC_WRITE;
    case FileMode::READWRITE:
        break;
    }
    return GENERIC_READ | GENERIC_WRITE;
}

// CREATE_ALWAYS would also change the attributes of a file that exists: a truncating open empties the file afterwards.
DWORD GetDisposition(bool create)
{
    return create ? OPEN_ALWAYS : OPEN_EXISTING;
}

FileHandle Open(const char* path, DWORD access, DWORD disposition, FileRights rights)
{
    const std::wstring name = ToWide(path);
    if (name.empty())
        return INVALID_FILE_HANDLE;
    LimitedRights limited(rights);
    if (!limited.IsValid())
        return INVALID_FILE_HANDLE;
    HANDLE const handle = CreateFileW(name.c_str(), access, SHARE_ALL, limited.GetAttributes(), disposition,
                                      FILE_ATTRIBUTE_NORMAL, nullptr);
    return handle == INVALID_HANDLE_VALUE ? INVALID_FILE_HANDLE : reinterpret_cast<FileHandle>(handle);
}

// Whether the call that has just failed did so because the volume knows no rights (FAT, for example).
bool VolumeKnowsNoRights()
{
    const DWORD error = GetLastError();
    return error == ERROR_NOT_SUPPORTED || error == ERROR_INVALID_FUNCTION;
}

// Takes a file from everybody but the user of this process. True also on a volume that knows no rights.
bool MakeOwnerOnly(FileHandle file)
{
    LimitedRights limited(FileRights::OWNER);
    if (!limited.IsValid())
        return false;
    return SetKernelObjectSecurity(ToNative(file), DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION,
                                   limited.GetAttributes()->lpSecurityDescriptor) ||
           VolumeKnowsNoRights();
}

} // namespace

FileHandle OpenFile(const char* path, FileMode mode, bool create, bool truncate, FileRights rights)
{
    const bool ownerOnly = rights == FileRights::OWNER;
    const DWORD access = GetAccess(mode) | (truncate ? GENERIC_WRITE : 0) | (ownerOnly ? WRITE_DAC : 0);
    const FileHandle file = Open(path, access, GetDisposition(create), rights);
    if (file == INVALID_FILE_HANDLE)
        return file;
    // The rights first: nobody else shall read what comes.
    if ((ownerOnly && !MakeOwnerOnly(file)) || (truncate && !SetFileSize(file, 0))) {
        CloseFile(file);
        return INVALID_FILE_HANDLE;
    }
    return file;
}

FileHandle OpenFileToAppend(const char* path, FileRights rights)
{
    // Without the right to write elsewhere, the system puts each write at the end.
    return Open(path, FILE_APPEND_DATA | FILE_READ_ATTRIBUTES | SYNCHRONIZE, OPEN_ALWAYS, rights);
}

FileHandle MakeNewFile(const char* path, FileRights rights)
{
    // WRITE_DAC is for CopyFileRights.
    return Open(path, GENERIC_WRITE | WRITE_DAC, CREATE_NEW, rights);
}

void CloseFile(FileHandle handle)
{
    if (handle != INVALID_FILE_HANDLE)
        CloseHandle(ToNative(handle));
}

bool ReadFile(FileHandle handle, void* buffer, std::size_t size, std::size_t& got)
{
    DWORD moved = 0;
    const auto wanted = static_cast<DWORD>(std::min(size, MAX_CHUNK_BYTES));
    const bool done = ::ReadFile(ToNative(handle), buffer, wanted, &moved, nullptr) != FALSE;
    got = done ? moved : 0;
    return done;
}

bool WriteFile(FileHandle handle, const void* data, std::size_t size, bool* diskFull, std::size_t* written)
{
    const auto* const from = static_cast<const unsigned char*>(data);
    std::size_t done = 0;
    DWORD error = ERROR_SUCCESS;
    DWORD moved = 1;
    while (done < size && moved > 0) {
        const auto wanted = static_cast<DWORD>(std::min(size - done, MAX_CHUNK_BYTES));
        if (!::WriteFile(ToNative(handle), from + done, wanted, &moved, nullptr)) {
            error = ::GetLastError();
            moved = 0;
        }
        done += moved;
    }
    if (diskFull != nullptr)
        *diskFull = error == ERROR_DISK_FULL || error == ERROR_HANDLE_DISK_FULL;
    if (written != nullptr)
        *written = done;
    return done == size;
}

bool SeekFile(FileHandle handle, std::uint64_t offset)
{
    LARGE_INTEGER position;
    position.QuadPart = static_cast<LONGLONG>(offset);
    return SetFilePointerEx(ToNative(handle), position, nullptr, FILE_BEGIN) != FALSE;
}

bool GetFileSize(FileHandle handle, std::uint64_t& size)
{
    LARGE_INTEGER bytes;
    if (!GetFileSizeEx(ToNative(handle), &bytes))
        return false;
    size = static_cast<std::uint64_t>(bytes.QuadPart);
    return true;
}

bool GetFileWriteTime(FileHandle handle, std::int64_t& wallMs)
{
    FILETIME time = {};
    if (!GetFileTime(ToNative(handle), nullptr, nullptr, &time))
        return false;
    wallMs = MsFromFileTime(time);
    return true;
}

bool IsFileAt(FileHandle handle, const char* path)
{
    const FileHandle named = Open(path, FILE_READ_ATTRIBUTES, OPEN_EXISTING, FileRights::USUAL);
    BY_HANDLE_FILE_INFORMATION first = {};
    BY_HANDLE_FILE_INFORMATION second = {};
    const bool same = named != INVALID_FILE_HANDLE && GetFileInformationByHandle(ToNative(handle), &first) &&
                      GetFileInformationByHandle(ToNative(named), &second) &&
                      first.dwVolumeSerialNumber == second.dwVolumeSerialNumber &&
                      first.nFileIndexHigh == second.nFileIndexHigh && first.nFileIndexLow == second.nFileIndexLow;
    CloseFile(named);
    return same;
}

bool SetFileSize(FileHandle handle, std::uint64_t size)
{
    // Leaves the file position where it is.
    FILE_END_OF_FILE_INFO end;
    end.EndOfFile.QuadPart = static_cast<LONGLONG>(size);
    return SetFileInformationByHandle(ToNative(handle), FileEndOfFileInfo, &end, sizeof(end)) != FALSE;
}

bool FlushFile(FileHandle handle)
{
    return FlushFileBuffers(ToNative(handle)) != FALSE;
}

bool ReplaceFileBy(const char* from, const char* to)
{
    const std::wstring source = ToWide(from);
    const std::wstring target = ToWide(to);
    return !source.empty() && !target.empty() &&
           MoveFileExW(source.c_str(), target.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != FALSE;
}

bool CopyFileRights(const char* from, FileHandle to)
{
    // Who owns a file is not copied: only administrators may give files away.
    const std::wstring name = ToWide(from);
    DWORD size = 0;
    if (name.empty())
        return false;
    GetFileSecurityW(name.c_str(), DACL_SECURITY_INFORMATION, nullptr, 0, &size);
    if (size == 0)
        return VolumeKnowsNoRights();
    std::vector<unsigned char> descriptor(size);
    return GetFileSecurityW(name.c_str(), DACL_SECURITY_INFORMATION, descriptor.data(), size, &size) != FALSE &&
           (SetKernelObjectSecurity(ToNative(to), DACL_SECURITY_INFORMATION, descriptor.data()) ||
            VolumeKnowsNoRights());
}

bool FlushFolderOf(const char* /*path*/)
{
    // ReplaceFileBy has waited for the medium already.
    return true;
}

bool RemoveFile(const char* path)
{
    const std::wstring name = ToWide(path);
    return !name.empty() && DeleteFileW(name.c_str()) != FALSE;
}

char PathSeparator()
{
    return '\\';
}

} // namespace kqlib::platform
