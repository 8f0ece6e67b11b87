// Work beneath one folder, on POSIX: walking from one open folder to the next.
#include "platform/Folders.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
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

/// The names of a path, last one first, so that the next one is taken from the end.
void PushNames(std::vector<std::string>& names, const std::string& path)
{
    std::size_t end = path.size();
    while (end > 0) {
        const std::size_t slash = path.rfind('/', end - 1);
        const std::size_t start = slash == std::string::npos ? 0 : slash + 1;
        if (start < end)
            names.push_back(path.substr(start, end - start));
        if (start == 0)
            break;
        end = start - 1;
    }
}

/// One walk from the root to the place that a path names.
///
/// 1. The names of the path wait in m_names. 2. Each is opened as itself (never followed) in the folder reached so far.
/// 3. A folder becomes the folder reached; the ones above stay open, so that ".." goes back to the folder that the walk
/// came through, wherever it may have been moved since. 4. A link's text is put before the names that wait. 5. The walk
/// ends at the last name: GetName() in GetFolder(), or GetFolder() itself when GetName() is empty.
class Walk
{
public:
    explicit Walk(int root)
        : m_root(root)
    {
    }

    /// follow: a link in the last place is followed. A last name that is not there is no failure.
    FileResult To(const std::string& path, bool follow)
    {
        if (path.find('\0') != std::string::npos)
            return FileResult::BAD_NAME;
        PushNames(m_names, path);
        while (!m_names.empty()) {
            const std::string name = std::move(m_names.back());
            m_names.pop_back();
            bool arrived = false;
            const FileResult result = xStep(name, follow, arrived);
            if (result != FileResult::DONE || arrived)
                return result;
        }
        return FileResult::DONE;
    }

    int GetFolder() const { return m_folders.empty() ? m_root : m_folders.back().Get(); }
    const char* GetName() const { return m_name.c_str(); }
    bool IsFolderItself() const { return m_name.empty(); }

private:
    FileResult xStep(const std::string& name, bool follow, bool& arrived)
    {
        if (name == ".")
            return FileResult::DONE;
        if (name == "..") {
            if (m_folders.empty())
                return FileResult::ESCAPES;
            m_folders.pop_back();
            return FileResult::DONE;
        }
        const bool last = m_names.empty();
        if (last && !follow)
            return xArrive(name, arrived);
        Descriptor found(Repeat([&] { return ::openat(GetFolder(), name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC); }));
        if (!found.IsOpen())
            return last && errno == ENOENT ? xArrive(name, arrived) : LastResult();
        struct stat status = {};
        if (::fstat(found.Get(), &status) != 0)
            return LastResult();
        if (S_ISLNK(status.st_mode))
            return xFollow(found.Get());
        if (S_ISDIR(status.st_mode)) {
            m_folders.push_back(std::move(found));
            return FileResult::DONE;
        }
        return last ? xArrive(name, arrived) : FileResult::NOT_FOLDER;
    }

    FileResult xArrive(const std::string& name, bool& arrived)
    {
        m_name = name;
        arrived = true;
        return FileResult::DONE;
    }

    FileResult xFollow(int link)
    {
        if (++m_linkCount > MAX_LINKS)
            return FileResult::TOO_MANY_LINKS;
        char target[PATH_MAX];
        const ssize_t length = ::readlinkat(link, "", target, sizeof target);
        if (length < 0)
            return LastResult();
        if (length == 0 || static_cast<std::size_t>(length) == sizeof target)
            return FileResult::BAD_NAME;
        if (target[0] == '/')
            return FileResult::ESCAPES;
        PushNames(m_names, std::string(target, static_cast<std::size_t>(length)));
        return FileResult::DONE;
    }

    int m_root; // borrowed
    std::vector<Descriptor> m_folders;
    std::vector<std::string> m_names;
    std::string m_name;
    unsigned m_linkCount = 0;
};

FileResult ReadFacts(int root, const std::string& path, bool follow, FileFacts& out)
{
    Walk walk(root);
    if (const FileResult result = walk.To(path, follow); result != FileResult::DONE)
        return result;
    struct stat status = {};
    const int failed = walk.IsFolderItself()
                           ? ::fstat(walk.GetFolder(), &status)
                           : ::fstatat(walk.GetFolder(), walk.GetName(), &status, AT_SYMLINK_NOFOLLOW);
    if (failed != 0)
        return LastResult();
    out = FactsOf(status);
    return FileResult::DONE;
}

/// Walks to the name that is to be changed, the link itself; the root has no name to change.
FileResult WalkToName(Walk& walk, const std::string& path)
{
    const FileResult result = walk.To(path, false);
    if (result != FileResult::DONE)
        return result;
    return walk.IsFolderItself() ? FileResult::DENIED : FileResult::DONE;
}

FileResult RenameWithoutReplacing(const Walk& from, const Walk& to)
{
    if (::renameat2(from.GetFolder(), from.GetName(), to.GetFolder(), to.GetName(), RENAME_NOREPLACE) == 0)
        return FileResult::DONE;
    if (errno != EINVAL && errno != ENOSYS)
        return LastResult();
    // A file system that cannot rename without replacing (or a folder moved into itself, which fails below again).
    struct stat status = {};
    if (::fstatat(to.GetFolder(), to.GetName(), &status, AT_SYMLINK_NOFOLLOW) == 0)
        return FileResult::EXISTS;
    return FromCall(::renameat(from.GetFolder(), from.GetName(), to.GetFolder(), to.GetName()));
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
        return Repeat([&] { return ::openat(walk.GetFolder(), walk.GetName(), flags | more, NEW_FILE_MODE); });
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
    return FromCall(::mkdirat(walk.GetFolder(), walk.GetName(), NEW_FOLDER_MODE));
}

FileResult RootFolder::RemoveFolder(const std::string& path) const
{
    Walk walk(static_cast<int>(m_handle));
    if (const FileResult result = WalkToName(walk, path); result != FileResult::DONE)
        return result;
    const FileResult result = FromCall(::unlinkat(walk.GetFolder(), walk.GetName(), AT_REMOVEDIR));
    return result == FileResult::EXISTS ? FileResult::NOT_EMPTY : result; // some systems say EEXIST
}

FileResult RootFolder::RemoveFile(const std::string& path) const
{
    Walk walk(static_cast<int>(m_handle));
    if (const FileResult result = WalkToName(walk, path); result != FileResult::DONE)
        return result;
    return FromCall(::unlinkat(walk.GetFolder(), walk.GetName(), 0));
}

FileResult RootFolder::Rename(const std::string& from, const std::string& to, bool replace) const
{
    Walk source(static_cast<int>(m_handle));
    Walk target(static_cast<int>(m_handle));
    if (const FileResult result = WalkToName(source, from); result != FileResult::DONE)
        return result;
    if (const FileResult result = WalkToName(target, to); result != FileResult::DONE)
        return result;
    if (!replace)
        return RenameWithoutReplacing(source, target);
    return FromCall(::renameat(source.GetFolder(), source.GetName(), target.GetFolder(), target.GetName()));
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
    const char* name = walk.IsFolderItself() ? "." : walk.GetName();
    return FromCall(::utimensat(walk.GetFolder(), name, times, AT_SYMLINK_NOFOLLOW));
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
    const char* name = walk.IsFolderItself() ? "." : walk.GetName();
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
