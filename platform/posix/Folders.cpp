// Work beneath one folder, on POSIX: walking from one open folder to the next.
#include "platform/Folders.h"

#include "platform/PathWalk.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace kqlib::platform {

namespace {

constexpr int NO_DESCRIPTOR = -1;
constexpr mode_t NEW_FILE_MODE = 0666;   // reduced by the mask of the process
constexpr mode_t NEW_FOLDER_MODE = 0777; // likewise

/// Owns one descriptor.
class Descriptor
{
public:
    explicit Descriptor(int descriptor = NO_DESCRIPTOR)
        : m_descriptor(descriptor)
    {
    }
    Descriptor(Descriptor&& other) noexcept
        : m_descriptor(std::exchange(other.m_descriptor, NO_DESCRIPTOR))
    {
    }
    Descriptor& operator=(Descriptor&& other) noexcept
    {
        std::swap(m_descriptor, other.m_descriptor);
        return *this;
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor()
    {
        if (m_descriptor != NO_DESCRIPTOR)
            ::close(m_descriptor);
    }
    int Get() const { return m_descriptor; }
    int Release() { return std::exchange(m_descriptor, NO_DESCRIPTOR); }
    bool IsOpen() const { return m_descriptor != NO_DESCRIPTOR; }

private:
    int m_descriptor;
};

FileResult FromErrno(int error)
{
    switch (error) {
    case ENOENT:
        return FileResult::NOT_FOUND;
    case EEXIST:
        return FileResult::EXISTS;
    case ENOTEMPTY:
        return FileResult::NOT_EMPTY;
    case ENOTDIR:
        return FileResult::NOT_FOLDER;
    case EISDIR:
        return FileResult::IS_FOLDER;
    case EACCES:
    case EPERM:
    case EROFS:
    case EBUSY:
    case ETXTBSY:
        return FileResult::DENIED;
    case ELOOP: // a link that appeared where the walk had seen none
        return FileResult::ESCAPES;
    case ENAMETOOLONG:
    case EILSEQ:
        return FileResult::BAD_NAME;
    case ENXIO: // a pipe without a reader, a device without hardware
    case ENODEV:
        return FileResult::NOT_FILE;
    case ENOSPC:
    case EDQUOT:
        return FileResult::DISK_FULL;
    case EXDEV:
        return FileResult::OTHER_DISK;
    default:
        return FileResult::FAILED;
    }
}

FileResult LastResult()
{
    return FromErrno(errno);
}

FileResult FromCall(int result)
{
    return result == 0 ? FileResult::DONE : LastResult();
}

template <class Call> int Repeat(Call call)
{
    int result = 0;
    do {
        result = call();
    } while (result < 0 && errno == EINTR);
    return result;
}

FileFacts FactsOf(const struct stat& status)
{
    FileFacts facts;
    if (S_ISREG(status.st_mode))
        facts.kind = FileKind::FILE;
    else if (S_ISDIR(status.st_mode))
        facts.kind = FileKind::FOLDER;
    else if (S_ISLNK(status.st_mode))
        facts.kind = FileKind::LINK;
    facts.size = facts.kind == FileKind::FILE ? static_cast<std::uint64_t>(status.st_size) : 0;
    facts.modifiedMs = std::int64_t{status.st_mtim.tv_sec} * 1000 + status.st_mtim.tv_nsec / 1000000;
    facts.permissions = status.st_mode & 0777U;
    facts.links = static_cast<std::uint32_t>(status.st_nlink);
    facts.volume = status.st_dev;
    facts.serial = status.st_ino;
    return facts;
}

/// What the walk needs of the system.
struct PosixFolders
{
    using HANDLE_TYPE = int;
    using PLACE = Descriptor;

    static bool IsName(const std::string& /*name*/) { return true; }

    static FileResult Find(int folder, const std::string& name, FOUND_NAME<Descriptor>& out)
    {
        out.place = Descriptor(Repeat([&] { return ::openat(folder, name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC); }));
        struct stat status = {};
        if (!out.place.IsOpen() || ::fstat(out.place.Get(), &status) != 0)
            return LastResult();
        out.kind = FactsOf(status).kind;
        return out.kind == FileKind::LINK ? ReadLink(out.place.Get(), out.linkText) : FileResult::DONE;
    }

private:
    static FileResult ReadLink(int link, std::string& text)
    {
        char target[PATH_MAX];
        const ssize_t length = ::readlinkat(link, "", target, sizeof target);
        if (length < 0)
            return LastResult();
        if (static_cast<std::size_t>(length) == sizeof target)
            return FileResult::BAD_NAME;
        text.assign(target, static_cast<std::size_t>(length));
        return FileResult::DONE;
    }
};

using Walk = PathWalk<PosixFolders>;

FileResult ReadFacts(int root, const std::string& path, bool follow, FileFacts& out)
{
    Walk walk(root);
    if (const FileResult result = walk.To(path, follow); result != FileResult::DONE)
        return result;
    struct stat status = {};
    const int failed = walk.IsFolderItself()
                           ? ::fstat(walk.GetFolder(), &status)
                           : ::fstatat(walk.GetFolder(), walk.GetName().c_str(), &status, AT_SYMLINK_NOFOLLOW);
    if (failed != 0)
        return LastResult();
    out = FactsOf(status);
    return FileResult::DONE;
}

FileResult RenameWithoutReplacing(const Walk& from, const Walk& to)
{
    if (::renameat2(from.GetFolder(), from.GetName().c_str(), to.GetFolder(), to.GetName().c_str(), RENAME_NOREPLACE) ==
        0)
        return FileResult::DONE;
    if (errno != EINVAL && errno != ENOSYS)
        return LastResult();
    // A file system that cannot rename without replacing (or a folder moved into itself, which fails below again).
    struct stat status = {};
    if (::fstatat(to.GetFolder(), to.GetName().c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0)
        return FileResult::EXISTS;
    return FromCall(::renameat(from.GetFolder(), from.GetName().c_str(), to.GetFolder(), to.GetName().c_str()));
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
    const int descriptor = Repeat([&] { return ::open(path, O_PATH | O_DIRECTORY | O_CLOEXEC); });
    if (descriptor < 0)
        return LastResult();
    m_handle = descriptor;
    return FileResult::DONE;
}

void RootFolder::Close()
{
    if (IsOpen())
        ::close(static_cast<int>(m_handle));
    m_handle = NO_DESCRIPTOR;
}

bool RootFolder::IsOpen() const
{
    return m_handle != NO_DESCRIPTOR;
}

FileResult RootFolder::GetFacts(const std::string& path, FileFacts& out) const
{
    return ReadFacts(static_cast<int>(m_handle), path, true, out);
}

FileResult RootFolder::GetOwnFacts(const std::string& path, FileFacts& out) const
{
    return ReadFacts(static_cast<int>(m_handle), path, false, out);
}

FileResult RootFolder::OpenFile(const std::string& path, FileMode mode, bool create, FileHandle& handle,
                                bool& made) const
{
    handle = INVALID_FILE_HANDLE;
    made = false;
    Walk walk(static_cast<int>(m_handle));
    if (const FileResult result = walk.To(path, true); result != FileResult::DONE)
        return result;
    if (walk.IsFolderItself())
        return FileResult::IS_FOLDER;

    // O_NONBLOCK: opening a pipe must not wait for its other end; plain files do not know it.
    int flags = O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
    flags |= mode == FileMode::READ ? O_RDONLY : mode == FileMode::WRITE ? O_WRONLY : O_RDWR;
    const auto open = [&](int more) {
        return Repeat([&] { return ::openat(walk.GetFolder(), walk.GetName().c_str(), flags | more, NEW_FILE_MODE); });
    };
    Descriptor file(open(0));
    if (!file.IsOpen() && errno == ENOENT && create) {
        file = Descriptor(open(O_CREAT | O_EXCL));
        made = file.IsOpen();
        if (!made && errno == EEXIST) // somebody else made it in between
            file = Descriptor(open(0));
    }
    if (!file.IsOpen())
        return LastResult();
    struct stat status = {};
    if (::fstat(file.Get(), &status) != 0)
        return LastResult();
    if (S_ISDIR(status.st_mode))
        return FileResult::IS_FOLDER;
    if (!S_ISREG(status.st_mode))
        return FileResult::NOT_FILE;
    handle = file.Release();
    return FileResult::DONE;
}

FileResult RootFolder::MakeFolder(const std::string& path) const
{
    Walk walk(static_cast<int>(m_handle));
    const FileResult result = walk.To(path, false);
    if (result != FileResult::DONE)
        return result;
    if (walk.IsFolderItself())
        return FileResult::EXISTS;
    return FromCall(::mkdirat(walk.GetFolder(), walk.GetName().c_str(), NEW_FOLDER_MODE));
}

FileResult RootFolder::RemoveFolder(const std::string& path) const
{
    Walk walk(static_cast<int>(m_handle));
    if (const FileResult result = walk.ToName(path); result != FileResult::DONE)
        return result;
    const FileResult result = FromCall(::unlinkat(walk.GetFolder(), walk.GetName().c_str(), AT_REMOVEDIR));
    return result == FileResult::EXISTS ? FileResult::NOT_EMPTY : result; // some systems say EEXIST
}

FileResult RootFolder::RemoveFile(const std::string& path) const
{
    Walk walk(static_cast<int>(m_handle));
    if (const FileResult result = walk.ToName(path); result != FileResult::DONE)
        return result;
    return FromCall(::unlinkat(walk.GetFolder(), walk.GetName().c_str(), 0));
}

FileResult RootFolder::Rename(const std::string& from, const std::string& to, bool replace) const
{
    Walk source(static_cast<int>(m_handle));
    Walk target(static_cast<int>(m_handle));
    if (const FileResult result = source.ToName(from); result != FileResult::DONE)
        return result;
    if (const FileResult result = target.ToName(to); result != FileResult::DONE)
        return result;
    if (!replace)
        return RenameWithoutReplacing(source, target);
    return FromCall(
        ::renameat(source.GetFolder(), source.GetName().c_str(), target.GetFolder(), target.GetName().c_str()));
}

FileResult RootFolder::SetModified(const std::string& path, std::int64_t modifiedMs) const
{
    Walk walk(static_cast<int>(m_handle));
    if (const FileResult result = walk.To(path, true); result != FileResult::DONE)
        return result;
    std::int64_t seconds = modifiedMs / 1000;
    std::int64_t rest = modifiedMs % 1000;
    if (rest < 0) { // before 1970: the part of a second still counts upwards
        rest += 1000;
        --seconds;
    }
    struct timespec times[2] = {};
    times[0].tv_nsec = UTIME_NOW;
    times[1].tv_sec = static_cast<time_t>(seconds);
    times[1].tv_nsec = static_cast<long>(rest) * 1000000;
    const char* name = walk.IsFolderItself() ? "." : walk.GetName().c_str();
    return FromCall(::utimensat(walk.GetFolder(), name, times, AT_SYMLINK_NOFOLLOW));
}

FileResult RootFolder::SetPermissions(const std::string& path, std::uint32_t permissions) const
{
    FileFacts facts;
    if (const FileResult result = GetFacts(path, facts); result != FileResult::DONE)
        return result;
    if (facts.kind != FileKind::FILE && facts.kind != FileKind::FOLDER)
        return FileResult::NOT_FILE;
    Walk walk(static_cast<int>(m_handle));
    if (const FileResult result = walk.To(path, true); result != FileResult::DONE)
        return result;
    const char* name = walk.IsFolderItself() ? "." : walk.GetName().c_str();
    const int failed = ::fchmodat(walk.GetFolder(), name, permissions & 0777U, AT_SYMLINK_NOFOLLOW);
    if (failed != 0 && errno == EOPNOTSUPP) // a link that appeared where the walk had seen none
        return FileResult::ESCAPES;
    return FromCall(failed);
}

FileResult RootFolder::GetFreeBytes(const std::string& path, std::uint64_t& out) const
{
    Walk walk(static_cast<int>(m_handle));
    if (const FileResult result = walk.To(path, true); result != FileResult::DONE)
        return result;
    const char* name = walk.IsFolderItself() ? "." : walk.GetName().c_str();
    const Descriptor folder(
        Repeat([&] { return ::openat(walk.GetFolder(), name, O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC); }));
    struct statvfs volume = {};
    if (!folder.IsOpen() || Repeat([&] { return ::fstatvfs(folder.Get(), &volume); }) != 0)
        return LastResult();
    out = std::uint64_t{volume.f_bavail} * volume.f_frsize;
    return FileResult::DONE;
}

struct FolderReader::STATE
{
    struct CLOSER
    {
        void operator()(DIR* folder) const { ::closedir(folder); }
    };
    std::unique_ptr<DIR, CLOSER> folder;
};

FolderReader::FolderReader()
    : m_state(std::make_unique<STATE>())
{
}
FolderReader::~FolderReader() = default;

FileResult FolderReader::Open(const RootFolder& root, const std::string& path)
{
    Close();
    Walk walk(static_cast<int>(root.m_handle));
    if (const FileResult result = walk.To(path, true); result != FileResult::DONE)
        return result;
    const char* name = walk.IsFolderItself() ? "." : walk.GetName().c_str();
    Descriptor folder(Repeat([&] {
        return ::openat(walk.GetFolder(), name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK);
    }));
    if (!folder.IsOpen())
        return LastResult();
    m_state->folder.reset(::fdopendir(folder.Get()));
    if (!m_state->folder)
        return LastResult();
    folder.Release(); // the stream owns it now
    return FileResult::DONE;
}

void FolderReader::Close()
{
    m_state->folder.reset();
}

bool FolderReader::Read(std::string& name, FileFacts& facts)
{
    while (m_state->folder) {
        const struct dirent* entry = ::readdir(m_state->folder.get());
        if (entry == nullptr)
            return false;
        if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0)
            continue;
        struct stat status = {};
        if (::fstatat(::dirfd(m_state->folder.get()), entry->d_name, &status, AT_SYMLINK_NOFOLLOW) != 0)
            continue;
        name = entry->d_name;
        facts = FactsOf(status);
        return true;
    }
    return false;
}

} // namespace kqlib::platform
