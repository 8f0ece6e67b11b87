#include "platform/windows/NativeCalls.h"

#include "platform/windows/WideText.h"

#include <cstddef>
#include <cstring>
#include <vector>

namespace kqlib::platform {

namespace {

// Values that the headers for programs leave out.
constexpr NTSTATUS FILE_IS_A_DIRECTORY = static_cast<NTSTATUS>(0xC00000BA);
constexpr NTSTATUS NOT_A_DIRECTORY = static_cast<NTSTATUS>(0xC0000103);
constexpr auto RENAME_INFORMATION = static_cast<FILE_INFORMATION_CLASS>(10);
constexpr DWORD QUOTA_EXCEEDED = 1295;
constexpr ULONG CASE_INSENSITIVE = 0x40;
constexpr ULONG SHARE_ALL = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

FileResult FromStatus(NTSTATUS status)
{
    if (status >= 0)
        return FileResult::DONE;
    // The layer above reports both as "access denied" or a plain failure.
    if (status == FILE_IS_A_DIRECTORY)
        return FileResult::IS_FOLDER;
    if (status == NOT_A_DIRECTORY)
        return FileResult::NOT_FOLDER;
    return FromSystemError(RtlNtStatusToDosError(status));
}

FileResult Create(HANDLE folder, std::wstring& name, const RELATIVE_OPEN& how, NativeHandle& out, bool* made)
{
    UNICODE_STRING text{};
    text.Buffer = name.data();
    text.Length = static_cast<USHORT>(name.size() * sizeof(wchar_t));
    text.MaximumLength = text.Length;
    OBJECT_ATTRIBUTES object{};
    object.Length = sizeof(object);
    object.RootDirectory = folder;
    object.ObjectName = &text;
    object.Attributes = CASE_INSENSITIVE;

    HANDLE handle = nullptr;
    IO_STATUS_BLOCK outcome{};
    const NTSTATUS status = NtCreateFile(
        &handle, how.access | SYNCHRONIZE, &object, &outcome, nullptr, FILE_ATTRIBUTE_NORMAL, SHARE_ALL,
        how.disposition,
        how.options | FILE_SYNCHRONOUS_IO_NONALERT | FILE_OPEN_REPARSE_POINT | FILE_OPEN_FOR_BACKUP_INTENT, nullptr, 0);
    if (status < 0)
        return FromStatus(status);
    out = NativeHandle(handle);
    if (made)
        *made = outcome.Information == FILE_CREATED;
    return FileResult::DONE;
}

} // namespace

FileResult FromSystemError(DWORD error)
{
    switch (error) {
    case ERROR_SUCCESS:
        return FileResult::DONE;
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
        return FileResult::NOT_FOUND;
    case ERROR_ALREADY_EXISTS:
    case ERROR_FILE_EXISTS:
        return FileResult::EXISTS;
    case ERROR_DIRECTORY:
        return FileResult::NOT_FOLDER;
    case ERROR_DIR_NOT_EMPTY:
        return FileResult::NOT_EMPTY;
    case ERROR_ACCESS_DENIED:
    case ERROR_SHARING_VIOLATION:
    case ERROR_LOCK_VIOLATION:
    case ERROR_WRITE_PROTECT:
    case ERROR_BUSY:
        return FileResult::DENIED;
    case ERROR_INVALID_NAME:
    case ERROR_BAD_PATHNAME:
    case ERROR_FILENAME_EXCED_RANGE:
    case ERROR_NO_UNICODE_TRANSLATION:
        return FileResult::BAD_NAME;
    case ERROR_DISK_FULL:
    case ERROR_HANDLE_DISK_FULL:
    case QUOTA_EXCEEDED:
        return FileResult::DISK_FULL;
    case ERROR_NOT_SAME_DEVICE:
        return FileResult::OTHER_DISK;
    default:
        return FileResult::FAILED;
    }
}

FileResult OpenRelative(HANDLE folder, const std::string& name, const RELATIVE_OPEN& how, NativeHandle& out, bool* made)
{
    std::wstring wide = ToWide(name.c_str());
    if (wide.empty())
        return FileResult::BAD_NAME;
    return Create(folder, wide, how, out, made);
}

FileResult Reopen(HANDLE folder, ACCESS_MASK access, NativeHandle& out)
{
    // An empty name relative to a folder is that folder.
    std::wstring nothing;
    return Create(folder, nothing, {access, FILE_OPEN, FILE_DIRECTORY_FILE}, out, nullptr);
}

FileResult RenameRelative(HANDLE handle, HANDLE folder, const std::string& name, bool replace)
{
    const std::wstring wide = ToWide(name.c_str());
    if (wide.empty())
        return FileResult::BAD_NAME;
    const std::size_t nameBytes = wide.size() * sizeof(wchar_t);
    std::vector<unsigned char> block(sizeof(FILE_RENAME_INFO) + nameBytes);
    FILE_RENAME_INFO head{};
    head.ReplaceIfExists = replace ? TRUE : FALSE;
    head.RootDirectory = folder;
    head.FileNameLength = static_cast<DWORD>(nameBytes);
    std::memcpy(block.data(), &head, sizeof(head));
    std::memcpy(block.data() + offsetof(FILE_RENAME_INFO, FileName), wide.data(), nameBytes);

    IO_STATUS_BLOCK outcome{};
    return FromStatus(
        NtSetInformationFile(handle, &outcome, block.data(), static_cast<ULONG>(block.size()), RENAME_INFORMATION));
}

FileResult MarkForRemoval(HANDLE handle)
{
    FILE_DISPOSITION_INFO removal{};
    removal.DeleteFile = TRUE;
    if (SetFileInformationByHandle(handle, FileDispositionInfo, &removal, sizeof(removal)))
        return FileResult::DONE;
    return FromSystemError(GetLastError());
}

} // namespace kqlib::platform
