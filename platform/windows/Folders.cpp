// Work beneath one folder, on Windows: walking from one open folder to the next. Links are symbolic links (relative
// ones are followed by the walk, absolute ones lead out) and junctions (always absolute).
#include "platform/Folders.h"

#include "platform/PathWalk.h"
#include "platform/windows/FileTime.h"
#include "platform/windows/NativeCalls.h"
#include "platform/windows/WideText.h"

#include <winioctl.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

namespace kqlib::platform {

namespace {

constexpr std::size_t LONGEST_NAME = 255; // 16-bit characters

constexpr ACCESS_MASK LOOK_ACCESS = FILE_READ_ATTRIBUTES | FILE_TRAVERSE;

HANDLE ToNative(std::intptr_t handle)
{
    return reinterpret_cast<HANDLE>(handle);
}

std::uint64_t Join(DWORD high, DWORD low)
{
    return (std::uint64_t{high} << 32) | low;
}

bool IsLinkTag(DWORD attributes, DWORD tag)
{
    return (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 &&
           (tag == IO_REPARSE_TAG_SYMLINK || tag == IO_REPARSE_TAG_MOUNT_POINT);
}

bool IsLink(HANDLE handle)
{
    FILE_ATTRIBUTE_TAG_INFO info{};
    return GetFileInformationByHandleEx(handle, FileAttributeTagInfo, &info, sizeof(info)) &&
           IsLinkTag(info.FileAttributes, info.ReparseTag);
}

std::uint32_t NearestPermissions(DWORD attributes, FileKind kind)
{
    constexpr std::uint32_t readAll = 0444;
    constexpr std::uint32_t writeAll = 0222;
    constexpr std::uint32_t enterAll = 0111;
    const bool readOnly = kind == FileKind::FILE && (attributes & FILE_ATTRIBUTE_READONLY) != 0;
    return readAll | (readOnly ? 0 : writeAll) | (kind == FileKind::FILE ? 0 : enterAll);
}

/// What the attributes, size and time of anything on a disk say.
FileFacts MakeFacts(DWORD attributes, bool isLink, std::uint64_t size, const FILETIME& modified)
{
    FileFacts facts;
    if (isLink)
        facts.kind = FileKind::LINK;
    else
        facts.kind = (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ? FileKind::FOLDER : FileKind::FILE;
    facts.size = facts.kind == FileKind::FILE ? size : 0;
    facts.modifiedMs = MsFromFileTime(modified);
    facts.permissions = NearestPermissions(attributes, facts.kind);
    return facts;
}

FileResult FactsOf(HANDLE handle, FileFacts& out)
{
    if (GetFileType(handle) != FILE_TYPE_DISK) {
        out = {};
        return FileResult::DONE;
    }
    BY_HANDLE_FILE_INFORMATION info{};
    if (!GetFileInformationByHandle(handle, &info))
        return FromSystemError(GetLastError());
    out = MakeFacts(info.dwFileAttributes, IsLink(handle), Join(info.nFileSizeHigh, info.nFileSizeLow),
                    info.ftLastWriteTime);
    out.links = info.nNumberOfLinks;
    out.volume = info.dwVolumeSerialNumber;
    out.serial = Join(info.nFileIndexHigh, info.nFileIndexLow);
    return FileResult::DONE;
}

/// The text of the symbolic link or junction that is open here, separated by "/", with a leading "/" when absolute.
FileResult ReadLink(HANDLE link, std::string& text)
{
    // The block: tag (4 bytes), data size (2), reserved (2), then offset and size of the real name (2 + 2) and of the
    // name to show (2 + 2), in bytes from the start of the names; symbolic links have flags (4) before the names.
    constexpr std::size_t realNameAt = 8;
    constexpr std::size_t flagsAt = 16;
    constexpr std::size_t namesAt = 20;
    constexpr std::uint32_t relativeFlag = 1;
    std::vector<unsigned char> block(MAXIMUM_REPARSE_DATA_BUFFER_SIZE);
    DWORD size = 0;
    if (!DeviceIoControl(link, FSCTL_GET_REPARSE_POINT, nullptr, 0, block.data(), static_cast<DWORD>(block.size()),
                         &size, nullptr))
        return FromSystemError(GetLastError());
    const auto number = [&block](std::size_t at, std::size_t bytes) {
        std::uint32_t value = 0;
        std::memcpy(&value, block.data() + at, bytes);
        return value;
    };
    if (size < namesAt || number(0, 4) != IO_REPARSE_TAG_SYMLINK || (number(flagsAt, 4) & relativeFlag) == 0) {
        text = "/";
        return FileResult::DONE;
    }
    const std::size_t start = namesAt + number(realNameAt, 2);
    const std::size_t length = number(realNameAt + 2, 2);
    if (start + length > size)
        return FileResult::BAD_NAME;
    std::wstring wide(length / sizeof(wchar_t), L'\0');
    std::memcpy(wide.data(), block.data() + start, wide.size() * sizeof(wchar_t));
    text = FromWide(wide.c_str());
    std::replace(text.begin(), text.end(), '\\', '/');
    return FileResult::DONE;
}

/// Names that mean a device wherever they stand, whatever follows a dot.
bool IsDeviceName(const std::string& name)
{
    constexpr std::array<std::string_view, 4> whole = {"CON", "PRN", "AUX", "NUL"};
    std::string stem = name.substr(0, name.find('.'));
    while (!stem.empty() && stem.back() == ' ')
        stem.pop_back();
    std::transform(stem.begin(), stem.end(), stem.begin(),
                   [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; });
    if (std::find(whole.begin(), whole.end(), stem) != whole.end())
        return true;
    return stem.size() == 4 && (stem.starts_with("COM") || stem.starts_with("LPT")) && stem[3] >= '1' && stem[3] <= '9';
}

/// What the walk needs of the system.
struct WindowsFolders
{
    using HANDLE_TYPE = HANDLE;
    using PLACE = NativeHandle;

    // The native layer would take names that other programs of the system cannot name again.
    static bool IsName(const std::string& name)
    {
        const auto forbidden = [](char c) {
            return static_cast<unsigned char>(c) < 32 ||
                   std::string_view("\"*:<>?\\|").find(c) != std::string_view::npos;
        };
        return ToWide(name.c_str()).size() <= LONGEST_NAME && std::none_of(name.begin(), name.end(), forbidden) &&
               name.back() != '.' && name.back() != ' ' && !IsDeviceName(name);
    }

    static FileResult Find(HANDLE folder, const std::string& name, FOUND_NAME<NativeHandle>& out)
    {
        FileFacts facts;
        FileResult result = OpenRelative(folder, name, {LOOK_ACCESS, FILE_OPEN, 0}, out.place);
        if (result == FileResult::DONE)
            result = FactsOf(out.place.Get(), facts);
        out.kind = facts.kind;
        return result == FileResult::DONE && out.kind == FileKind::LINK ? ReadLink(out.place.Get(), out.linkText)
                                                                        : result;
    }
};

using Walk = PathWalk<WindowsFolders>;

/// Opens the end of a walk as itself: the name in the folder, or the folder reached.
FileResult OpenEnd(const Walk& walk, ACCESS_MASK access, ULONG options, NativeHandle& out)
{
    if (walk.IsFolderItself())
        return Reopen(walk.GetFolder(), access, out);
    return OpenRelative(walk.GetFolder(), walk.GetName(), {access, FILE_OPEN, options}, out);
}

FileResult ReadFacts(std::intptr_t root, const std::string& path, bool follow, FileFacts& out)
{
    Walk walk(ToNative(root));
    NativeHandle found;
    FileResult result = walk.To(path, follow);
    if (result == FileResult::DONE)
        result = OpenEnd(walk, FILE_READ_ATTRIBUTES, 0, found);
    return result == FileResult::DONE ? FactsOf(found.Get(), out) : result;
}

/// Opens what is to be removed, as itself, and tells what it is.
FileResult OpenForRemoval(std::intptr_t root, const std::string& path, NativeHandle& out, FileKind& kind)
{
    Walk walk(ToNative(root));
    FileFacts facts;
    FileResult result = walk.ToName(path);
    if (result == FileResult::DONE)
        result = OpenEnd(walk, DELETE | FILE_READ_ATTRIBUTES, 0, out);
    if (result == FileResult::DONE)
        result = FactsOf(out.Get(), facts);
    kind = facts.kind;
    return result;
}

ACCESS_MASK AccessFor(FileMode mode)
{
    switch (mode) {
    case FileMode::READ:
        return GENERIC_READ;
    case FileMode::WRITE:
        return GENERIC_WRITE | FILE_READ_ATTRIBUTES;
    case FileMode::READWRITE:
        break;
    }
    return GENERIC_READ | GENERIC_WRITE;
}

} // namespace

RootFolder::RootFolder() = default;

RootFolder::~RootFolder()
{
    Close();
}

FileResult RootFolder::Open(const char* path)
{
    Close();
    const std::wstring name = ToWide(path);
    if (name.empty())
        return FileResult::NOT_FOUND;
    NativeHandle folder(CreateFileW(name.c_str(), FILE_LIST_DIRECTORY | LOOK_ACCESS | SYNCHRONIZE,
                                    FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                                    FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    if (!folder.IsOpen())
        return FromSystemError(GetLastError());
    FileFacts facts;
    if (const FileResult result = FactsOf(folder.Get(), facts); result != FileResult::DONE)
        return result;
    if (facts.kind != FileKind::FOLDER)
        return FileResult::NOT_FOLDER;
    m_handle = reinterpret_cast<std::intptr_t>(folder.Release());
    return FileResult::DONE;
}

void RootFolder::Close()
{
    if (IsOpen())
        CloseHandle(ToNative(m_handle));
    m_handle = INVALID_FILE_HANDLE;
}

bool RootFolder::IsOpen() const
{
    return m_handle != INVALID_FILE_HANDLE;
}

FileResult RootFolder::GetFacts(const std::string& path, FileFacts& out) const
{
    return ReadFacts(m_handle, path, true, out);
}

FileResult RootFolder::GetOwnFacts(const std::string& path, FileFacts& out) const
{
    return ReadFacts(m_handle, path, false, out);
}

FileResult RootFolder::OpenFile(const std::string& path, FileMode mode, bool create, FileHandle& handle,
                                bool& made) const
{
    handle = INVALID_FILE_HANDLE;
    made = false;
    Walk walk(ToNative(m_handle));
    if (const FileResult result = walk.To(path, true); result != FileResult::DONE)
        return result;
    if (walk.IsFolderItself())
        return FileResult::IS_FOLDER;

    NativeHandle file;
    const RELATIVE_OPEN how = {AccessFor(mode), static_cast<ULONG>(create ? FILE_OPEN_IF : FILE_OPEN),
                               FILE_NON_DIRECTORY_FILE};
    if (const FileResult result = OpenRelative(walk.GetFolder(), walk.GetName(), how, file, &made);
        result != FileResult::DONE)
        return result;
    FileFacts facts;
    if (const FileResult result = FactsOf(file.Get(), facts); result != FileResult::DONE)
        return result;
    if (facts.kind == FileKind::LINK) // appeared where the walk had seen none
        return FileResult::ESCAPES;
    if (facts.kind != FileKind::FILE)
        return FileResult::NOT_FILE;
    handle = reinterpret_cast<FileHandle>(file.Release());
    return FileResult::DONE;
}

FileResult RootFolder::MakeFolder(const std::string& path) const
{
    Walk walk(ToNative(m_handle));
    if (const FileResult result = walk.To(path, false); result != FileResult::DONE)
        return result;
    if (walk.IsFolderItself())
        return FileResult::EXISTS;
    NativeHandle folder;
    return OpenRelative(walk.GetFolder(), walk.GetName(), {FILE_READ_ATTRIBUTES, FILE_CREATE, FILE_DIRECTORY_FILE},
                        folder);
}

FileResult RootFolder::RemoveFolder(const std::string& path) const
{
    NativeHandle folder;
    FileKind kind = FileKind::OTHER;
    if (const FileResult result = OpenForRemoval(m_handle, path, folder, kind); result != FileResult::DONE)
        return result;
    return kind == FileKind::FOLDER ? MarkForRemoval(folder.Get()) : FileResult::NOT_FOLDER;
}

FileResult RootFolder::RemoveFile(const std::string& path) const
{
    NativeHandle file;
    FileKind kind = FileKind::OTHER;
    if (const FileResult result = OpenForRemoval(m_handle, path, file, kind); result != FileResult::DONE)
        return result;
    return kind == FileKind::FOLDER ? FileResult::IS_FOLDER : MarkForRemoval(file.Get());
}

FileResult RootFolder::Rename(const std::string& from, const std::string& to, bool replace) const
{
    Walk source(ToNative(m_handle));
    Walk target(ToNative(m_handle));
    if (const FileResult result = source.ToName(from); result != FileResult::DONE)
        return result;
    if (const FileResult result = target.ToName(to); result != FileResult::DONE)
        return result;
    NativeHandle moved;
    if (const FileResult result = OpenEnd(source, DELETE | FILE_READ_ATTRIBUTES, 0, moved); result != FileResult::DONE)
        return result;
    return RenameRelative(moved.Get(), target.GetFolder(), target.GetName(), replace);
}

FileResult RootFolder::SetModified(const std::string& path, std::int64_t modifiedMs) const
{
    FILETIME modified;
    if (!MsToFileTime(modifiedMs, modified))
        return FileResult::FAILED;
    Walk walk(ToNative(m_handle));
    NativeHandle found;
    FileResult result = walk.To(path, true);
    if (result == FileResult::DONE)
        result = OpenEnd(walk, FILE_WRITE_ATTRIBUTES, 0, found);
    if (result != FileResult::DONE)
        return result;
    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    return SetFileTime(found.Get(), nullptr, &now, &modified) ? FileResult::DONE : FromSystemError(GetLastError());
}

FileResult RootFolder::SetPermissions(const std::string& path, std::uint32_t permissions) const
{
    constexpr std::uint32_t ownerWrites = 0200;
    Walk walk(ToNative(m_handle));
    NativeHandle found;
    FileFacts facts;
    FileResult result = walk.To(path, true);
    if (result == FileResult::DONE)
        result = OpenEnd(walk, FILE_READ_ATTRIBUTES | FILE_WRITE_ATTRIBUTES, 0, found);
    if (result == FileResult::DONE)
        result = FactsOf(found.Get(), facts);
    if (result != FileResult::DONE || facts.kind == FileKind::FOLDER)
        return result;
    if (facts.kind != FileKind::FILE)
        return facts.kind == FileKind::LINK ? FileResult::ESCAPES : FileResult::NOT_FILE;
    FILE_BASIC_INFO info{};
    if (!GetFileInformationByHandleEx(found.Get(), FileBasicInfo, &info, sizeof(info)))
        return FromSystemError(GetLastError());
    info.FileAttributes &= ~static_cast<DWORD>(FILE_ATTRIBUTE_READONLY);
    if ((permissions & ownerWrites) == 0)
        info.FileAttributes |= FILE_ATTRIBUTE_READONLY;
    if (info.FileAttributes == 0) // which would mean that they stay
        info.FileAttributes = FILE_ATTRIBUTE_NORMAL;
    return SetFileInformationByHandle(found.Get(), FileBasicInfo, &info, sizeof(info))
               ? FileResult::DONE
               : FromSystemError(GetLastError());
}

FileResult RootFolder::GetFreeBytes(const std::string& path, std::uint64_t& out) const
{
    Walk walk(ToNative(m_handle));
    NativeHandle folder;
    FileFacts facts;
    FileResult result = walk.To(path, true);
    if (result == FileResult::DONE)
        result = OpenEnd(walk, FILE_READ_ATTRIBUTES, 0, folder);
    if (result == FileResult::DONE)
        result = FactsOf(folder.Get(), facts);
    if (result == FileResult::DONE && facts.kind != FileKind::FOLDER)
        result = FileResult::NOT_FOLDER;
    if (result != FileResult::DONE)
        return result;
    // The system tells it for a path only.
    const DWORD length = GetFinalPathNameByHandleW(folder.Get(), nullptr, 0, FILE_NAME_NORMALIZED);
    std::wstring name(length, L'\0');
    const DWORD written = GetFinalPathNameByHandleW(folder.Get(), name.data(), length, FILE_NAME_NORMALIZED);
    ULARGE_INTEGER bytes{};
    if (written == 0 || written >= length || !GetDiskFreeSpaceExW(name.c_str(), &bytes, nullptr, nullptr))
        return FromSystemError(GetLastError());
    out = bytes.QuadPart;
    return FileResult::DONE;
}

struct FolderReader::STATE
{
    /// Reads the next block of entries. False at the end and on failure.
    bool Fill()
    {
        next = 0;
        return GetFileInformationByHandleEx(folder.Get(), FileIdBothDirectoryInfo, block.data(),
                                            static_cast<DWORD>(block.size())) != FALSE;
    }

    /// Takes one entry out of the block; filled tells whether the block still holds more. The number of names that a
    /// file has is not listed: one.
    void Take(std::string& name, FileFacts& facts)
    {
        FILE_ID_BOTH_DIR_INFO entry{};
        std::memcpy(&entry, block.data() + next, offsetof(FILE_ID_BOTH_DIR_INFO, FileName));
        std::wstring wide(entry.FileNameLength / sizeof(wchar_t), L'\0');
        std::memcpy(wide.data(), block.data() + next + offsetof(FILE_ID_BOTH_DIR_INFO, FileName),
                    wide.size() * sizeof(wchar_t));
        name = FromWide(wide.c_str());
        FILETIME modified{};
        modified.dwLowDateTime = entry.LastWriteTime.LowPart;
        modified.dwHighDateTime = static_cast<DWORD>(entry.LastWriteTime.HighPart);
        facts = MakeFacts(entry.FileAttributes, IsLinkTag(entry.FileAttributes, entry.EaSize), // the tag of a link
                          static_cast<std::uint64_t>(entry.EndOfFile.QuadPart), modified);
        facts.volume = volume;
        facts.serial = static_cast<std::uint64_t>(entry.FileId.QuadPart);
        filled = entry.NextEntryOffset != 0;
        next += entry.NextEntryOffset;
    }

    static constexpr std::size_t BLOCK_BYTES = 64 * 1024;

    NativeHandle folder;
    std::uint64_t volume = 0; // of the folder, and so of what it holds
    std::vector<unsigned char> block = std::vector<unsigned char>(BLOCK_BYTES);
    std::size_t next = 0;
    bool filled = false;
};

FolderReader::FolderReader()
    : m_state(std::make_unique<STATE>())
{
}

FolderReader::~FolderReader() = default;

FileResult FolderReader::Open(const RootFolder& root, const std::string& path)
{
    Close();
    Walk walk(ToNative(root.m_handle));
    if (const FileResult result = walk.To(path, true); result != FileResult::DONE)
        return result;
    FileFacts facts;
    FileResult result = OpenEnd(walk, FILE_LIST_DIRECTORY | LOOK_ACCESS, FILE_DIRECTORY_FILE, m_state->folder);
    if (result == FileResult::DONE)
        result = FactsOf(m_state->folder.Get(), facts);
    m_state->volume = facts.volume;
    return result;
}

void FolderReader::Close()
{
    m_state->folder = NativeHandle();
    m_state->filled = false;
}

bool FolderReader::Read(std::string& name, FileFacts& facts)
{
    while (m_state->folder.IsOpen()) {
        if (!m_state->filled && !m_state->Fill())
            return false;
        m_state->Take(name, facts);
        if (!name.empty() && name != "." && name != "..")
            return true;
    }
    return false;
}

} // namespace kqlib::platform
