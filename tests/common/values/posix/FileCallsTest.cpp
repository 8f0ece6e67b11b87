// Which calls the file classes make to the system, and what they do when one fails: the program stands between the
// library and the C library.
#include "common/FileAccessBuf.h"
#include "common/SettingsTransportSet.h"
#include "tests/peers/TempFolder.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <dlfcn.h>
#include <fstream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace {

/// Reads that are let through before one fails; below 0: all.
int g_readsLeft = -1;
/// What was asked of the system: "F" a file flushed, "D" a folder flushed, "R" a name replaced.
std::string g_calls;
bool g_isNoting = false;

template <class FUNCTION> FUNCTION Next(const char* name)
{
    return reinterpret_cast<FUNCTION>(dlsym(RTLD_NEXT, name));
}

} // namespace

extern "C" __attribute__((visibility("default"))) ssize_t read(int file, void* buffer, std::size_t size)
{
    static const auto real = Next<ssize_t (*)(int, void*, std::size_t)>("read");
    if (g_readsLeft == 0) {
        errno = EIO;
        return -1;
    }
    g_readsLeft -= g_readsLeft > 0 ? 1 : 0;
    return real(file, buffer, size);
}

extern "C" __attribute__((visibility("default"))) int fsync(int file)
{
    static const auto real = Next<int (*)(int)>("fsync");
    struct stat status = {};
    if (g_isNoting)
        g_calls += ::fstat(file, &status) == 0 && S_ISDIR(status.st_mode) ? "D" : "F";
    return real(file);
}

extern "C" __attribute__((visibility("default"))) int rename(const char* from, const char* to) noexcept
{
    static const auto real = Next<int (*)(const char*, const char*)>("rename");
    if (g_isNoting)
        g_calls += "R";
    return real(from, to);
}

namespace kqlib {
namespace {

class FileCallsTest : public ::testing::Test
{
protected:
    FilePath xGetPath(const std::string& name) const { return (m_folder / name).string().c_str(); }

    test::TempFolder m_folder;
};

// A power failure after the renaming must find the content on the medium.
TEST_F(FileCallsTest, SaveToFile_ContentIsFlushedBeforeTheRenamingAndTheFolderAfterIt)
{
    SettingsTransportSet set;
    set.AddULONG("number", 1);
    for (int round = 0; round < 2; ++round) {
        g_calls.clear();
        g_isNoting = true;
        EXPECT_TRUE(set.SaveToFile(xGetPath("settings.json")));
        g_isNoting = false;
        EXPECT_EQ(g_calls, "FRD");
    }
}

TEST_F(FileCallsTest, ReadLine_FileBreaksWithinALine_FalseAndEmpty)
{
    std::ofstream(m_folder / "file") << "whole\n" << std::string(100000, 'x') << "\nlast\n";
    FileAccessBuf file;
    ASSERT_TRUE(file.Open(xGetPath("file"), FileAccess::AM_READ, false));
    g_readsLeft = 2;
    String line;
    EXPECT_TRUE(file.ReadLine(line));
    EXPECT_EQ(line, "whole");
    EXPECT_FALSE(file.ReadLine(line));
    EXPECT_TRUE(line.empty());
    EXPECT_FALSE(file.ReadLine(line));
    g_readsLeft = -1;
}

TEST_F(FileCallsTest, LoadFromFile_FileBreaks_FalseAndUnchanged)
{
    SettingsTransportSet set;
    set.AddString("text", String(200000, 'x'));
    ASSERT_TRUE(set.SaveToFile(xGetPath("settings.json")));
    SettingsTransportSet read;
    read.AddBool("old", true);
    g_readsLeft = 1;
    EXPECT_FALSE(read.LoadFromFile(xGetPath("settings.json")));
    g_readsLeft = -1;
    bool old = false;
    EXPECT_TRUE(read.GetBool("old", old) && old);
}

} // namespace
} // namespace kqlib
