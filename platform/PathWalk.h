// The walk along a path from one open folder to the next: what both halves of the platform do alike. Private to the
// platform sources.
// Inside the library only.
#pragma once

#include "platform/Folders.h"

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace kqlib::platform {

/// What one name of a folder turned out to be.
template <class Place> struct FOUND_NAME
{
    FileKind kind = FileKind::OTHER;
    Place place;          ///< the open folder, when kind is FOLDER
    std::string linkText; ///< what the link says, separated by "/", a leading "/" for absolute; when kind is LINK
};

/// One walk from the root to the place that a path names.
///
/// 1. The names of the path wait in m_names. 2. Each is opened as itself (never followed) in the folder reached so far.
/// 3. A folder becomes the folder reached; the ones above stay open, so that ".." goes back to the folder that the walk
/// came through, wherever it may have been moved since. 4. A link's text is put before the names that wait. 5. The walk
/// ends at the last name: GetName() in GetFolder(), or GetFolder() itself when IsFolderItself().
///
/// System supplies `HANDLE_TYPE` (a borrowed open folder), `PLACE` (owns one; movable; HANDLE_TYPE Get() const),
/// `static bool IsName(const std::string&)` (whether the system can have such a name at all) and
/// `static FileResult Find(HANDLE_TYPE folder, const std::string& name, FOUND_NAME<PLACE>& out)`.
template <class System> class PathWalk
{
public:
    using HANDLE_TYPE = typename System::HANDLE_TYPE;
    using PLACE = typename System::PLACE;

    /// Borrows the root.
    explicit PathWalk(HANDLE_TYPE root)
        : m_root(root)
    {
    }

    /// follow: a link in the last place is followed. A last name that is not there is no failure.
    [[nodiscard]] FileResult To(const std::string& path, bool follow)
    {
        if (path.find('\0') != std::string::npos)
            return FileResult::BAD_NAME;
        xPushNames(path);
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

    /// The same for a name that is to be changed, the link itself; the root has no name to change (DENIED).
    [[nodiscard]] FileResult ToName(const std::string& path)
    {
        const FileResult result = To(path, false);
        if (result != FileResult::DONE)
            return result;
        return IsFolderItself() ? FileResult::DENIED : FileResult::DONE;
    }

    HANDLE_TYPE GetFolder() const { return m_folders.empty() ? m_root : m_folders.back().Get(); }
    const std::string& GetName() const { return m_name; }
    bool IsFolderItself() const { return m_name.empty(); }

private:
    /// The names of a path, last one first, so that the next one is taken from the end.
    void xPushNames(const std::string& path)
    {
        std::size_t end = path.size();
        while (end > 0) {
            const std::size_t slash = path.rfind('/', end - 1);
            const std::size_t start = slash == std::string::npos ? 0 : slash + 1;
            if (start < end)
                m_names.push_back(path.substr(start, end - start));
            if (start == 0)
                break;
            end = start - 1;
        }
    }

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
        if (!System::IsName(name))
            return FileResult::BAD_NAME;
        const bool last = m_names.empty();
        if (last && !follow)
            return xArrive(name, arrived);
        FOUND_NAME<PLACE> found;
        const FileResult result = System::Find(GetFolder(), name, found);
        if (result != FileResult::DONE)
            return last && result == FileResult::NOT_FOUND ? xArrive(name, arrived) : result;
        if (found.kind == FileKind::LINK)
            return xFollow(found.linkText);
        if (found.kind == FileKind::FOLDER) {
            m_folders.push_back(std::move(found.place));
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

    FileResult xFollow(const std::string& linkText)
    {
        if (++m_linkCount > MAX_LINKS)
            return FileResult::TOO_MANY_LINKS;
        if (linkText.empty())
            return FileResult::BAD_NAME;
        if (linkText.front() == '/')
            return FileResult::ESCAPES;
        xPushNames(linkText);
        return FileResult::DONE;
    }

    HANDLE_TYPE m_root;
    std::vector<PLACE> m_folders;
    std::vector<std::string> m_names;
    std::string m_name;
    unsigned m_linkCount = 0;
};

} // namespace kqlib::platform
