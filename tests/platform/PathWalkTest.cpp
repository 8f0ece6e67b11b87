#include "platform/PathWalk.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

namespace kqlib::platform {
namespace {

/// A system in memory, which has what a real one has only at times: names that cannot be, links without text.
struct ToySystem
{
    struct FOLDER;
    struct ENTRY
    {
        FileKind kind = FileKind::FILE;
        const FOLDER* folder = nullptr;
        std::string linkText;
    };
    struct FOLDER
    {
        std::map<std::string, ENTRY> entries;
    };
    struct PLACE
    {
        const FOLDER* Get() const { return folder; }
        const FOLDER* folder = nullptr;
    };
    using HANDLE_TYPE = const FOLDER*;

    static bool IsName(const std::string& name) { return name.find(':') == std::string::npos; }
    static FileResult Find(HANDLE_TYPE folder, const std::string& name, FOUND_NAME<PLACE>& out)
    {
        const auto found = folder->entries.find(name);
        if (found == folder->entries.end())
            return FileResult::NOT_FOUND;
        out.kind = found->second.kind;
        out.place.folder = found->second.folder;
        out.linkText = found->second.linkText;
        return FileResult::DONE;
    }
};

/// root/ file, sub/file, and links.
class PathWalkTest : public testing::Test
{
protected:
    PathWalkTest()
    {
        m_sub.entries["file"] = {};
        m_root.entries["file"] = {};
        m_root.entries["sub"] = {FileKind::FOLDER, &m_sub, ""};
        xLink("toSub", "sub");
        xLink("toFile", "sub/../sub/./file");
        xLink("empty", "");
        xLink("absolute", "/sub");
        xLink("badName", "sub/a:b");
    }

    FileResult Walk(const std::string& path, bool follow)
    {
        PathWalk<ToySystem> walk(&m_root);
        const FileResult result = walk.To(path, follow);
        m_folder = walk.GetFolder();
        m_name = walk.GetName();
        return result;
    }

    void xLink(const std::string& name, const std::string& text)
    {
        m_root.entries[name] = {FileKind::LINK, nullptr, text};
    }

    ToySystem::FOLDER m_root;
    ToySystem::FOLDER m_sub;
    const ToySystem::FOLDER* m_folder = nullptr; ///< where the last walk ended
    std::string m_name;                          ///< the name that it ended at
};

TEST_F(PathWalkTest, To_FileInAFolder_ItsNameInThatFolder)
{
    EXPECT_EQ(Walk("/sub//./file", true), FileResult::DONE);
    EXPECT_EQ(m_folder, &m_sub);
    EXPECT_EQ(m_name, "file");
    EXPECT_EQ(Walk("sub/../file", true), FileResult::DONE);
    EXPECT_EQ(m_folder, &m_root);
    EXPECT_EQ(m_name, "file");
}

TEST_F(PathWalkTest, To_NameThatTheSystemCannotHave_BadName)
{
    EXPECT_EQ(Walk("a:b", true), FileResult::BAD_NAME);
    EXPECT_EQ(Walk("a:b", false), FileResult::BAD_NAME);
    EXPECT_EQ(Walk("a:b/file", true), FileResult::BAD_NAME);
    EXPECT_EQ(Walk("badName", true), FileResult::BAD_NAME);
}

TEST_F(PathWalkTest, To_Link_FollowedUnlessItIsAskedItself)
{
    EXPECT_EQ(Walk("toFile", true), FileResult::DONE);
    EXPECT_EQ(m_folder, &m_sub);
    EXPECT_EQ(m_name, "file");
    EXPECT_EQ(Walk("toFile", false), FileResult::DONE);
    EXPECT_EQ(m_folder, &m_root);
    EXPECT_EQ(m_name, "toFile");
    EXPECT_EQ(Walk("toSub/new", false), FileResult::DONE);
    EXPECT_EQ(m_folder, &m_sub);
    EXPECT_EQ(m_name, "new");
}

TEST_F(PathWalkTest, To_LinkThatSaysNothing_BadName)
{
    EXPECT_EQ(Walk("empty", true), FileResult::BAD_NAME);
    EXPECT_EQ(Walk("empty/file", false), FileResult::BAD_NAME);
    EXPECT_EQ(Walk("empty", false), FileResult::DONE);
}

TEST_F(PathWalkTest, To_AbsoluteLink_Escapes)
{
    EXPECT_EQ(Walk("absolute", true), FileResult::ESCAPES);
    EXPECT_EQ(Walk("absolute/file", false), FileResult::ESCAPES);
}

TEST_F(PathWalkTest, To_ThroughAFile_NotFolder)
{
    EXPECT_EQ(Walk("file/x", true), FileResult::NOT_FOLDER);
    EXPECT_EQ(Walk("toFile/x", true), FileResult::NOT_FOLDER);
}

TEST_F(PathWalkTest, ToName_TheRootInAnyForm_Denied)
{
    for (const char* path : {"", "/", ".", "sub/.."}) {
        SCOPED_TRACE(path);
        PathWalk<ToySystem> walk(&m_root);
        EXPECT_EQ(walk.ToName(path), FileResult::DENIED);
        EXPECT_TRUE(walk.IsFolderItself());
    }
    PathWalk<ToySystem> walk(&m_root);
    EXPECT_EQ(walk.ToName("empty"), FileResult::DONE);
    EXPECT_EQ(walk.GetName(), "empty");
}

} // namespace
} // namespace kqlib::platform
