// The paths of kqftpd's users, and what lies under them. Input: the folder to be in, LF, then the path.
#include "fuzz/Check.h"
#include "fuzz/Input.h"
#include "hosts/ftp/FtpFileSystem.h"
#include "hosts/ftpcommon/FtpPaths.h"
#include "hosts/ftpcommon/FtpText.h"
#include "tests/peers/TempFolder.h"

#include <fstream>
#include <map>
#include <set>
#include <string>
#include <utility>

using namespace kqlib;
using namespace kqlib::fuzz;

namespace {

using RESULT = FtpFileSystem::RESULT;
using KIND = platform::FileKind;
using FACTS = platform::FileFacts;
using PATH = std::vector<std::string>;

/// What stands under the home, by path; the empty path is the home.
struct ENTRY
{
    KIND kind;
    std::string target; // of a link
};
const std::map<std::string, ENTRY>& Tree()
{
    static const std::map<std::string, ENTRY> tree = {
        {"", {KIND::FOLDER, ""}},
        {"a", {KIND::FOLDER, ""}},
        {"a/b", {KIND::FOLDER, ""}},
        {"a/b/f", {KIND::FILE, ""}},
        {"a/f", {KIND::FILE, ""}},
        {"f", {KIND::FILE, ""}},
        {"in", {KIND::LINK, "a/b"}},
        {"up", {KIND::LINK, "a/b/../f"}},
        {"a/back", {KIND::LINK, "../in/../../f"}},
        {"out", {KIND::LINK, ".."}},
        {"a/out", {KIND::LINK, "../../outside"}},
        {"abs", {KIND::LINK, "/"}},
        {"loop", {KIND::LINK, "loop"}},
        {"ring", {KIND::LINK, "a/ring"}},
        {"a/ring", {KIND::LINK, "../ring"}},
        {"gone", {KIND::LINK, "a/nothing"}},
        {"past", {KIND::LINK, "f/x"}},
        {"here", {KIND::LINK, "./a//."}},
    };
    return tree;
}

PATH SplitPath(std::string_view text)
{
    PATH names;
    std::string name;
    for (const char character : text) {
        if (character != '/') {
            name += character;
            continue;
        }
        names.push_back(name);
        name.clear();
    }
    names.push_back(name);
    std::erase(names, "");
    return names;
}

std::string Join(const PATH& names)
{
    std::string text;
    for (const std::string& name : names)
        text += (text.empty() ? "" : "/") + name;
    return text;
}

/// A walk through the tree above, one name after the other.
class Walk
{
public:
    /// follow: a link in the last place, too. DONE: GetFound() is the path of the entry.
    RESULT To(const std::string& path, bool follow)
    {
        m_follow = follow;
        return xThrough(SplitPath(path), true);
    }
    std::string GetFound() const { return Join(m_place); }

private:
    /// isEnd: nothing comes behind these names.
    RESULT xThrough(const PATH& names, bool isEnd)
    {
        for (std::size_t i = 0; i < names.size(); ++i) {
            const RESULT result = xStep(names[i], isEnd && i + 1 == names.size());
            if (result != RESULT::DONE)
                return result;
        }
        return RESULT::DONE;
    }
    RESULT xStep(const std::string& name, bool isLast)
    {
        if (name == ".")
            return RESULT::DONE;
        if (name == ".." && m_place.empty())
            return RESULT::ESCAPES;
        if (name == "..") {
            m_place.pop_back();
            return RESULT::DONE;
        }
        m_place.push_back(name);
        const auto found = Tree().find(Join(m_place));
        if (found == Tree().end())
            return name.size() > MAX_NAME ? RESULT::BAD_NAME : RESULT::NOT_FOUND;
        if (found->second.kind == KIND::LINK && (m_follow || !isLast)) {
            m_place.pop_back();
            return xFollow(found->second.target, isLast);
        }
        return found->second.kind == KIND::FOLDER || isLast ? RESULT::DONE : RESULT::NOT_FOLDER;
    }
    RESULT xFollow(const std::string& target, bool isLast)
    {
        if (++m_links > platform::MAX_LINKS)
            return RESULT::TOO_MANY_LINKS;
        return target[0] == '/' ? RESULT::ESCAPES : xThrough(SplitPath(target), isLast);
    }

    static constexpr std::size_t MAX_NAME = 255;
    PATH m_place;
    unsigned m_links = 0;
    bool m_follow = true;
};

/// The tree on the disk, with something beside it that nobody may reach.
class Home
{
    test::TempFolder m_folder; // goes last, when nothing in it is open any more

public:
    Home()
    {
        namespace fs = std::filesystem;
        fs::create_directory(m_folder / "outside");
        std::ofstream(m_folder / "outside/secret") << "secret";
        std::error_code failed;
        for (const auto& [path, entry] : Tree()) {
            const fs::path place = path.empty() ? m_folder / "home" : m_folder / "home" / path;
            if (entry.kind == KIND::FOLDER)
                fs::create_directories(place);
            else if (entry.kind == KIND::FILE)
                std::ofstream(place) << path;
            else
                fs::create_symlink(entry.target, place, failed);
            m_hasLinks = m_hasLinks && !failed;
        }
        KQ_FUZZ_CHECK(files.Open(FromStdPath(m_folder / "home")) == RESULT::DONE);
        for (const auto& [path, entry] : Tree()) {
            FACTS facts;
            if (files.GetRoot().GetOwnFacts(path, facts) == RESULT::DONE)
                m_entries.emplace(std::pair(facts.volume, facts.serial), path);
        }
    }

    /// Every entry's facts name one of the tree, never anything beside it.
    bool Has(const FACTS& facts) const { return m_entries.contains({facts.volume, facts.serial}); }
    std::string PathOf(const FACTS& facts) const { return m_entries.at({facts.volume, facts.serial}); }
    /// Where the system or its standard library makes no links, names follow other rules, too (case, drives): there
    /// only what holds everywhere is looked at.
    bool IsLikeModel() const { return m_hasLinks; }

    FtpFileSystem files;

private:
    bool m_hasLinks = true;
    std::map<std::pair<std::uint64_t, std::uint64_t>, std::string> m_entries;
};

/// The plain form of a virtual path: a stack of names.
std::string ResolveLiterally(const String& folder, const String& text)
{
    PATH stack;
    std::string whole = text.str();
    if (!whole.starts_with("/"))
        whole = folder.str() + "/" + whole;
    for (const std::string& name : SplitPath(whole)) {
        if (name == "..") {
            if (!stack.empty())
                stack.pop_back();
        } else if (name != ".") {
            stack.push_back(name);
        }
    }
    return "/" + Join(stack);
}

void CheckWalk(const Home& home, const std::string& path, bool follow)
{
    FACTS facts;
    const platform::RootFolder& root = home.files.GetRoot();
    const RESULT result = follow ? root.GetFacts(path, facts) : root.GetOwnFacts(path, facts);
    KQ_FUZZ_CHECK(result != RESULT::DONE || home.Has(facts));
    if (!home.IsLikeModel() || path.find('\0') != std::string::npos)
        return;
    Walk walk;
    const RESULT expected = walk.To(path, follow);
    KQ_FUZZ_CHECK(result == expected);
    KQ_FUZZ_CHECK(result != RESULT::DONE || home.PathOf(facts) == walk.GetFound());
}

void CheckListing(const Home& home, const String& path)
{
    platform::FolderReader reader;
    if (reader.Open(home.files.GetRoot(), path.str()) != RESULT::DONE)
        return;
    std::string name;
    FACTS facts;
    while (reader.Read(name, facts))
        KQ_FUZZ_CHECK(home.Has(facts));
}

void CheckVirtual(Home& home, const String& text)
{
    String path;
    const RESULT resolved = home.files.Resolve(text, path);
    const std::string expected = ResolveLiterally(home.files.GetFolder(), text);
    const bool isName = !HasControlCharacter(text) && expected.size() <= FtpFileSystem::MAX_PATH;
    KQ_FUZZ_CHECK((resolved == RESULT::DONE) == isName);
    if (!isName)
        return;
    KQ_FUZZ_CHECK(path.str() == expected);
    CheckWalk(home, path.str(), true);
    CheckListing(home, path);
    FACTS facts;
    if (home.files.GetShownFacts(path, facts) == RESULT::DONE)
        KQ_FUZZ_CHECK(home.Has(facts));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static Home home;
    Input input(data, size);
    const String folder = input.Line();
    const String text(input.Rest());

    String plain;
    KQ_FUZZ_CHECK(home.files.SetFolder("/") == RESULT::DONE);
    if (home.files.Resolve(folder, plain) == RESULT::DONE) {
        const bool isFolder = home.files.IsFolder(plain);
        KQ_FUZZ_CHECK((home.files.SetFolder(plain) == RESULT::DONE) == isFolder);
        KQ_FUZZ_CHECK(home.files.GetFolder() == (isFolder ? plain : String("/")));
    }
    CheckVirtual(home, text);
    // The walk itself, past what a session would have taken off the path.
    CheckWalk(home, text.str(), true);
    CheckWalk(home, text.str(), false);
    return 0;
}
