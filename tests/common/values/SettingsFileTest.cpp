// The file form of SettingsTransportSet, and what damaged files do to it: nothing.
#include "common/SettingsTransportSet.h"

#include "common/FileAccess.h"
#include "platform/Files.h"
#include "tests/peers/FileRights.h"
#include "tests/peers/TempFolder.h"

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

namespace kqlib {
namespace {

constexpr int MAX_DEPTH = 100;

String AllBytes()
{
    String text;
    for (int byte = 0; byte < 256; byte++)
        text += static_cast<char>(byte);
    return text;
}

SettingsTransportSet MakeTree()
{
    SettingsTransportSet set;
    set.AddUSHORT("ushort", 65535);
    set.AddULONG("ulong", 0xFFFFFFFFUL);
    set.AddBool("yes", true);
    set.AddBool("no", false);
    set.AddString("", "");
    set.AddTimePos("time", TimePos(-1));
    set.AddBinaryStore("bytes", BinaryStore("\x00\x7F\x80\xFF", 4));
    set.AddUSHORT("ushort", 0);
    SettingsTransportSet* const list = set.AddSet("list");
    list->AddSet(SettingsTransportSet::UNNAMED)->AddString("name", "b");
    list->AddSet(SettingsTransportSet::UNNAMED);
    list->AddSet(SettingsTransportSet::UNNAMED)->AddString("name", "a");
    set.AddSet("empty");
    set.AddSet("empty");
    return set;
}

/// A set in which sets are nested that many deep.
SettingsTransportSet MakeNested(int depth)
{
    SettingsTransportSet set;
    SettingsTransportSet* inner = &set;
    for (int level = 0; level < depth; level++)
        inner = inner->AddSet("in");
    return set;
}

String Repeated(int count, const char* text)
{
    String repeated;
    for (int i = 0; i < count; i++)
        repeated += text;
    return repeated;
}

/// The text without the blanks and line ends between its parts; MakeTree has none within them.
String Compact(const String& text)
{
    String compact;
    for (const char character : text)
        if (character != ' ' && character != '\n')
            compact += character;
    return compact;
}

/// One item of the type with that value, as text of the file.
String ItemText(const char* type, const char* value)
{
    return String("{\"data\":[[\"key\",\"") + type + "\"," + value + "]],\"sets\":[]}";
}

void ExpectRefused(const String& text)
{
    SettingsTransportSet set = MakeTree();
    EXPECT_FALSE(set.FromJson(text)) << text.substr(0, 100).str();
    EXPECT_TRUE(set == MakeTree());
}

TEST(SettingsJsonTest, ToJson_ThenFromJson_Same)
{
    SettingsTransportSet read;
    ASSERT_TRUE(read.FromJson(MakeTree().ToJson()));
    EXPECT_TRUE(read == MakeTree());
}

TEST(SettingsJsonTest, ToJson_TheFormOfTheFile)
{
    SettingsTransportSet set;
    set.AddUSHORT("a", 1);
    set.AddULONG("b", 2);
    set.AddBool("c", true);
    set.AddString("d", "x");
    set.AddTimePos("e", TimePos(3));
    set.AddBinaryStore("f", BinaryStore("\xAB", 1));
    set.AddSet("s");
    EXPECT_EQ(Compact(set.ToJson()),
              R"({"data":[["a","USHORT",1],["b","ULONG",2],["c","Bool",true],["d","String","x"],)"
              R"(["e","TimePos",3],["f","BinaryStore","AB"]],"sets":[["s",{"data":[],"sets":[]}]]})");
}

TEST(SettingsJsonTest, FromJson_NotEmptyBefore_Replaced)
{
    SettingsTransportSet set = MakeTree();
    ASSERT_TRUE(set.FromJson(R"( { "sets" : [ ] , "data" : [ ] } )"));
    EXPECT_TRUE(set == SettingsTransportSet());
}

TEST(SettingsJsonTest, Strings_EveryByteValue_KeptInKeysAndValues)
{
    SettingsTransportSet set;
    set.AddString(AllBytes(), AllBytes() + AllBytes());
    set.AddSet(AllBytes());
    const String text = set.ToJson();
    for (const char character : text)
        ASSERT_FALSE(String::sIs8bitChar(character));
    SettingsTransportSet read;
    ASSERT_TRUE(read.FromJson(text));
    EXPECT_TRUE(read == set);
}

TEST(SettingsJsonTest, FromJson_CodePoints_BytesUpTo255OthersRefused)
{
    SettingsTransportSet set;
    String text;
    ASSERT_TRUE(set.FromJson(ItemText("String", "\"\xC3\xA4\\u00fF\\u0000\"")));
    ASSERT_TRUE(set.GetString("key", text));
    EXPECT_EQ(text, String("\xE4\xFF\0", 3));
    ExpectRefused(ItemText("String", "\"\\u0100\""));
    ExpectRefused(ItemText("String", "\"\xE2\x82\xAC\""));
    ExpectRefused(ItemText("String", "\"\\ud83d\\ude00\""));
}

TEST(SettingsJsonTest, FromJson_InvalidUtf8_Refused)
{
    for (const char* bytes : {"\xE4", "\xC3", "\x80", "\xC0\x80", "\xED\xA0\x80", "\xFF", "\xF5\x80\x80\x80"}) {
        const String quoted = String("\"") + bytes + "\"";
        ExpectRefused(ItemText("String", quoted.c_str()));
    }
    ExpectRefused(ItemText("String", "\"\\ud800\""));
}

TEST(SettingsJsonTest, FromJson_BordersOfTheNumbers_Kept)
{
    SettingsTransportSet set;
    String text;
    const std::pair<const char*, const char*> cases[] = {
        {"USHORT", "0"},
        {"USHORT", "65535"},
        {"ULONG", "0"},
        {"ULONG", "4294967295"},
        {"TimePos", "0"},
        {"TimePos", "9223372036854775807"},
        {"TimePos", "-9223372036854775808"},
    };
    for (const auto& [type, number] : cases) {
        ASSERT_TRUE(set.FromJson(ItemText(type, number))) << type << ' ' << number;
        EXPECT_TRUE(set.GetDataAsString(0, text));
        EXPECT_EQ(text, number);
        SettingsTransportSet read;
        EXPECT_TRUE(read.FromJson(set.ToJson()));
        EXPECT_TRUE(read == set);
    }
}

TEST(SettingsJsonTest, FromJson_ValueDoesNotFitItsType_Refused)
{
    const std::string huge = "1" + std::string(5000, '0');
    const std::pair<const char*, std::vector<const char*>> cases[] = {
        {"USHORT",
         {"65536", "-1", "1.0", "1e2", "true", "\"1\"", "null", "[]", "{}", "4294967296", "1e400", huge.c_str()}},
        {"ULONG", {"4294967296", "-1", "0.5", "true", "\"1\"", "null", "18446744073709551616", "-1e400", huge.c_str()}},
        {"Bool", {"0", "1", "\"true\"", "null", "[true]"}},
        {"String", {"0", "true", "null", "[]", "{}"}},
        {"TimePos", {"9223372036854775808", "-9223372036854775809", "18446744073709551615", "1.5", "\"1\"", "null"}},
        {"BinaryStore", {"\"A\"", "\"AG\"", "\"0x\"", "\" 0\"", "\"A A\"", "0", "null", "[1,2]"}},
    };
    for (const auto& [type, values] : cases)
        for (const char* value : values)
            ExpectRefused(ItemText(type, value));
}

TEST(SettingsJsonTest, FromJson_UnknownType_Refused)
{
    for (const char* type : {"", "ushort", "Double", "USHORT ", "ULONG8"})
        ExpectRefused(ItemText(type, "1"));
}

TEST(SettingsJsonTest, FromJson_OtherShapes_Refused)
{
    for (const char* text : {
             "",
             " ",
             "null",
             "true",
             "1",
             "\"\"",
             "[]",
             "{}",
             R"({"data":[]})",
             R"({"sets":[]})",
             R"({"data":[],"sets":[],"more":[]})",
             R"({"data":{},"sets":[]})",
             R"({"data":[],"sets":{}})",
             R"({"data":null,"sets":null})",
             R"({"data":[1],"sets":[]})",
             R"({"data":[[]],"sets":[]})",
             R"({"data":[["a","USHORT"]],"sets":[]})",
             R"({"data":[["a","USHORT",1,2]],"sets":[]})",
             R"({"data":[[1,"USHORT",1]],"sets":[]})",
             R"({"data":[["a",1,1]],"sets":[]})",
             R"({"data":[],"sets":[[]]})",
             R"({"data":[],"sets":[["a"]]})",
             R"({"data":[],"sets":[["a",[]]]})",
             R"({"data":[],"sets":[[1,{"data":[],"sets":[]}]]})",
             R"({"data":[],"sets":[["a",{"data":[],"sets":[]},1]]})",
             R"({"data":[],"sets":[["a",{"data":[["k","Bool",1]],"sets":[]}]]})",
             R"({"Data":[],"Sets":[]})",
             R"({"data":[],"sets":[]} x)",
             R"({"data":[],"sets":[]}{})",
             R"({'data':[],'sets':[]})",
             R"({"data":[],"sets":[],})",
             R"(// {"data":[],"sets":[]})",
         })
        ExpectRefused(text);
    ExpectRefused(String("{\"data\":[],\"sets\":[]}\0", 22));
}

TEST(SettingsJsonTest, FromJson_CutAtEveryByte_Refused)
{
    const String text = MakeTree().ToJson();
    ASSERT_EQ(text[text.size() - 1], '}');
    SettingsTransportSet set;
    set.AddBool("old", true);
    const SettingsTransportSet old(set);
    for (std::size_t length = 0; length < text.size(); length++) {
        ASSERT_FALSE(set.FromJson(text.substr(0, length))) << length;
        ASSERT_TRUE(set == old);
    }
}

TEST(SettingsJsonTest, FromJson_EachByteChanged_RefusedOrWholeAndStable)
{
    const String text = Compact(MakeTree().ToJson());
    for (std::size_t index = 0; index < text.size(); index++)
        for (const char byte : {'\0', '"', '}', ']', '9', '\\', '\x80'}) {
            String changed(text);
            changed[index] = byte;
            SettingsTransportSet set;
            if (!set.FromJson(changed)) {
                ASSERT_TRUE(set == SettingsTransportSet());
                continue;
            }
            SettingsTransportSet again;
            ASSERT_TRUE(again.FromJson(set.ToJson()));
            ASSERT_TRUE(again == set);
        }
}

TEST(SettingsJsonTest, FromJson_SetsNested_UpToTheLimit)
{
    SettingsTransportSet read;
    ASSERT_TRUE(read.FromJson(MakeNested(MAX_DEPTH).ToJson()));
    EXPECT_TRUE(read == MakeNested(MAX_DEPTH));
    ExpectRefused(MakeNested(MAX_DEPTH + 1).ToJson());
}

TEST(SettingsJsonTest, FromJson_SetWithAnItemAtTheLimit_Accepted)
{
    SettingsTransportSet set;
    SettingsTransportSet* inner = &set;
    for (int level = 0; level < MAX_DEPTH; level++) {
        inner->AddString("brackets in texts do not count", "[[{{\"\\" + String(1000, '['));
        inner = inner->AddSet("]]\"}}");
    }
    inner->AddString("innermost", "\\\"[");
    SettingsTransportSet read;
    ASSERT_TRUE(read.FromJson(set.ToJson()));
    EXPECT_TRUE(read == set);
}

TEST(SettingsJsonTest, FromJson_NestedAMillionDeep_RefusedWithoutACrash)
{
    constexpr int depth = 1000000;
    ExpectRefused(Repeated(depth, "["));
    ExpectRefused(Repeated(depth, "[") + Repeated(depth, "]"));
    ExpectRefused(Repeated(depth, "{\"data\":"));
    ExpectRefused("{\"sets\":[],\"data\":" + Repeated(depth, "[") + Repeated(depth, "]") + "}");
}

TEST(SettingsJsonTest, FromJson_SetsNestedVeryDeep_RefusedWithoutACrash)
{
    constexpr int depth = 1000000;
    const String inside = "{\"data\":[],\"sets\":[]}";
    ExpectRefused(Repeated(depth, "{\"data\":[],\"sets\":[[\"\",") + inside + Repeated(depth, "]]}"));
}

class SettingsFileTest : public ::testing::Test
{
protected:
    FilePath GetPath(const std::string& name) const { return (m_folder / name).string().c_str(); }

    void Write(const std::string& name, const String& bytes) const
    {
        std::ofstream(m_folder / name, std::ios::binary) << bytes.str();
    }

    std::ptrdiff_t CountFiles() const
    {
        return std::distance(std::filesystem::directory_iterator(m_folder.GetPath()),
                             std::filesystem::directory_iterator());
    }

    test::TempFolder m_folder;
};

TEST_F(SettingsFileTest, SaveToFile_ThenLoadFromFile_Same)
{
    SettingsTransportSet set = MakeTree();
    set.AddString("bytes", AllBytes());
    ASSERT_TRUE(set.SaveToFile(GetPath("settings.json")));
    SettingsTransportSet read;
    ASSERT_TRUE(read.LoadFromFile(GetPath("settings.json")));
    EXPECT_TRUE(read == set);
}

TEST_F(SettingsFileTest, SaveToFile_OldFile_ReplacedAndWhatOthersLeftStays)
{
    Write("settings.json", String(100000, 'x'));
    Write("settings.json.tmp", "what a process left when it died");
    ASSERT_TRUE(MakeTree().SaveToFile(GetPath("settings.json")));
    SettingsTransportSet read;
    EXPECT_TRUE(read.LoadFromFile(GetPath("settings.json")));
    EXPECT_TRUE(read == MakeTree());
    EXPECT_EQ(CountFiles(), 2);
}

TEST_F(SettingsFileTest, SaveToFile_SeveralSaversAtOnce_EachSavesAWholeFileAndNoneDisturbsAnother)
{
    constexpr int SAVERS = 4;
    constexpr int ROUNDS = 100;
    const auto make = [](int saver) {
        SettingsTransportSet set;
        set.AddString("text", String(20000 + 1000 * saver, static_cast<char>('a' + saver)));
        return set;
    };
    ASSERT_TRUE(make(0).SaveToFile(GetPath("settings.json")));
    std::atomic<int> running{SAVERS};
    std::atomic<int> failures{0};
    std::vector<std::thread> savers;
    for (int saver = 0; saver < SAVERS; ++saver)
        savers.emplace_back([&, saver] {
            const SettingsTransportSet set = make(saver);
            for (int round = 0; round < ROUNDS; ++round)
                failures += set.SaveToFile(GetPath("settings.json")) ? 0 : 1;
            --running;
        });
    const auto isWhole = [&] {
        SettingsTransportSet read;
        if (!read.LoadFromFile(GetPath("settings.json")))
            return false;
        for (int saver = 0; saver < SAVERS; ++saver)
            if (read == make(saver))
                return true;
        return false;
    };
    while (running > 0)
        EXPECT_TRUE(isWhole());
    for (std::thread& saver : savers)
        saver.join();
    EXPECT_TRUE(isWhole());
    EXPECT_EQ(CountFiles(), 1);
    // A system that lets nobody replace a file which is being read may refuse some.
    if (platform::PathSeparator() == '/') {
        EXPECT_EQ(failures, 0);
    }
}

TEST_F(SettingsFileTest, SaveToFile_PathIsALink_WrittenThrough)
{
    std::filesystem::create_directory(m_folder / "folder");
    Write("folder/real.json", "x");
    std::error_code failure;
    std::filesystem::create_symlink("folder/real.json", m_folder / "one", failure);
    std::filesystem::create_symlink("one", m_folder / "settings.json", failure);
    if (failure)
        GTEST_SKIP() << "no links on this system";
    ASSERT_TRUE(MakeTree().SaveToFile(GetPath("settings.json")));
    EXPECT_TRUE(std::filesystem::is_symlink(m_folder / "settings.json"));
    EXPECT_TRUE(std::filesystem::is_symlink(m_folder / "one"));
    SettingsTransportSet read;
    EXPECT_TRUE(read.LoadFromFile(GetPath("folder/real.json")));
    EXPECT_TRUE(read == MakeTree());
    EXPECT_EQ(CountFiles(), 3);
}

TEST_F(SettingsFileTest, SaveToFile_LinkToNothingOrToItselfOrToADevice_MadeOrFalse)
{
    std::error_code failure;
    std::filesystem::create_symlink("new.json", m_folder / "dangling", failure);
    std::filesystem::create_symlink("round", m_folder / "round", failure);
    std::filesystem::create_symlink("/dev/null", m_folder / "device", failure);
    if (failure)
        GTEST_SKIP() << "no links on this system";
    EXPECT_TRUE(MakeTree().SaveToFile(GetPath("dangling")));
    SettingsTransportSet read;
    EXPECT_TRUE(read.LoadFromFile(GetPath("new.json")));
    EXPECT_FALSE(MakeTree().SaveToFile(GetPath("round")));
    EXPECT_FALSE(MakeTree().SaveToFile(GetPath("device")));
    EXPECT_TRUE(std::filesystem::is_symlink(m_folder / "device"));
    EXPECT_EQ(CountFiles(), 4);
}

TEST_F(SettingsFileTest, SaveToFile_NotPossible_FalseAndNothingLeft)
{
    EXPECT_FALSE(MakeTree().SaveToFile(GetPath("none/settings.json")));
    EXPECT_FALSE(MakeTree().SaveToFile(FilePath()));
    // A folder that holds something cannot be replaced by a file.
    ASSERT_TRUE(std::filesystem::create_directories(m_folder / "folder/inside"));
    EXPECT_FALSE(MakeTree().SaveToFile(GetPath("folder")));
    EXPECT_EQ(CountFiles(), 1);
    EXPECT_TRUE(std::filesystem::is_directory(m_folder / "folder/inside"));
}

TEST_F(SettingsFileTest, SaveToFile_NestedTooDeepToBeLoaded_FalseAndOldFileStays)
{
    ASSERT_TRUE(MakeNested(MAX_DEPTH).SaveToFile(GetPath("settings.json")));
    EXPECT_FALSE(MakeNested(MAX_DEPTH + 1).SaveToFile(GetPath("settings.json")));
    SettingsTransportSet read;
    ASSERT_TRUE(read.LoadFromFile(GetPath("settings.json")));
    EXPECT_TRUE(read == MakeNested(MAX_DEPTH));
}

TEST_F(SettingsFileTest, SaveToFile_OldFile_KeepsItsRights)
{
    using std::filesystem::perms;
    if (platform::PathSeparator() != '/')
        GTEST_SKIP() << "the standard library shows no rights of others on this system";
    for (const perms rights : {perms(0600), perms(0640), perms(0664), perms(0404)}) {
        Write("settings.json", "x");
        std::filesystem::permissions(m_folder / "settings.json", rights);
        ASSERT_TRUE(MakeTree().SaveToFile(GetPath("settings.json")));
        EXPECT_EQ(std::filesystem::status(m_folder / "settings.json").permissions(), rights);
        std::filesystem::remove(m_folder / "settings.json");
    }
}

TEST_F(SettingsFileTest, SaveToFile_NewFile_ByItsOwnerOnly)
{
    ASSERT_TRUE(MakeTree().SaveToFile(GetPath("settings.json")));
    test::ExpectOwnerOnly(m_folder / "settings.json");
}

TEST_F(SettingsFileTest, LoadFromFile_MissingEmptyDamagedOrFolder_FalseAndUnchanged)
{
    Write("empty", "");
    Write("zeros", String(4096, '\0'));
    Write("cut", MakeTree().ToJson().substr(0, 100));
    SettingsTransportSet set;
    set.AddBool("old", true);
    const SettingsTransportSet old(set);
    for (const char* name : {"none", "empty", "zeros", "cut", "."}) {
        EXPECT_FALSE(set.LoadFromFile(GetPath(name))) << name;
        EXPECT_TRUE(set == old);
    }
}

TEST_F(SettingsFileTest, LoadFromFile_LargerThanOneRead_Whole)
{
    SettingsTransportSet set;
    for (int i = 0; i < 500; i++)
        set.AddSet("")->AddString("name", AllBytes());
    ASSERT_TRUE(set.SaveToFile(GetPath("large")));
    SettingsTransportSet read;
    ASSERT_TRUE(read.LoadFromFile(GetPath("large")));
    EXPECT_TRUE(read == set);
}

} // namespace
} // namespace kqlib
