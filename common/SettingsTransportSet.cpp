#include "common/SettingsTransportSet.h"

#include "common/FileAccess.h"
#include "common/NativePath.h"
#include "common/RunAllSteps.h"
#include "common/SettingsTransferable.h"
#include "common/WithinMemory.h"
#include "platform/Files.h"
#include "platform/Threads.h"

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <iterator>
#include <limits>
#include <nlohmann/json.hpp>
#include <system_error>
#include <type_traits>

namespace kqlib {

namespace {

using nlohmann::json;

/// Sub-sets within sub-sets that a file may hold; more is taken for damage.
constexpr int MAX_DEPTH = 100;

/// Brackets that are open at once at that depth: three for each sub-set around, three for an item of the innermost.
constexpr int MAX_OPEN_BRACKETS = 3 * MAX_DEPTH + 3;

/// Each byte becomes the code point of its value, in UTF-8: JSON texts hold no arbitrary bytes.
std::string ToUtf8(const String& text)
{
    std::string utf8;
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if (byte < 0x80) {
            utf8 += character;
        } else {
            utf8 += static_cast<char>(0xC0 | byte >> 6);
            utf8 += static_cast<char>(0x80 | (byte & 0x3F));
        }
    }
    return utf8;
}

/// False when utf8 (valid, as the parser checked) holds a code point past 255.
bool FromUtf8(const std::string& utf8, String& text)
{
    String bytes;
    for (std::size_t index = 0; index < utf8.size(); ++index) {
        const auto first = static_cast<unsigned char>(utf8[index]);
        if (first < 0x80) {
            bytes += utf8[index];
            continue;
        }
        if (first > 0xC3 || index + 1 == utf8.size())
            return false;
        const auto second = static_cast<unsigned char>(utf8[++index]);
        bytes += static_cast<char>((first & 0x03) << 6 | (second & 0x3F));
    }
    text = bytes;
    return true;
}

String ToHex(const BinaryStore& store)
{
    String text;
    for (ULONG index = 0; index < store.GetSize(); ++index) {
        char high = 0;
        char low = 0;
        String::sToHex(static_cast<char>(store.GetData()[index]), high, low);
        text += high;
        text += low;
    }
    return text;
}

int HexDigit(char character)
{
    if (character >= '0' && character <= '9')
        return character - '0';
    if (character >= 'A' && character <= 'F')
        return character - 'A' + 10;
    if (character >= 'a' && character <= 'f')
        return character - 'a' + 10;
    return -1;
}

bool FromHex(const std::string& text, BinaryStore& store)
{
    std::vector<unsigned char> bytes;
    if (text.size() % 2 != 0)
        return false;
    for (std::size_t index = 0; index < text.size(); index += 2) {
        const int high = HexDigit(text[index]);
        const int low = HexDigit(text[index + 1]);
        if (high < 0 || low < 0)
            return false;
        bytes.push_back(static_cast<unsigned char>(high << 4 | low));
    }
    store.Set(bytes.data(), static_cast<ULONG>(bytes.size()));
    return true;
}

/// A whole number that fits the type; nothing else is one, and nothing is cut to fit.
template <class T> bool ReadNumber(const json& from, T& number)
{
    if (from.is_number_unsigned()) {
        const auto value = from.get<std::uint64_t>();
        number = static_cast<T>(value);
        return value <= static_cast<std::uint64_t>(std::numeric_limits<T>::max());
    }
    if (!from.is_number_integer() || std::is_unsigned_v<T>)
        return false;
    number = static_cast<T>(from.get<std::int64_t>()); // below 0; only the 64-bit type gets here
    return true;
}

/// Looked at before the text is parsed, so that no depth costs stack or memory.
bool NestsTooDeep(std::string_view text)
{
    int open = 0;
    bool inString = false;
    for (std::size_t index = 0; index < text.size(); ++index) {
        const char character = text[index];
        if (character == '"')
            inString = !inString;
        else if (inString)
            index += character == '\\' ? 1 : 0;
        else if (character == '[' || character == '{')
            ++open;
        else if (character == ']' || character == '}')
            --open;
        if (open > MAX_OPEN_BRACKETS)
            return true;
    }
    return false;
}

/// Links that may lead to one another before the file comes.
constexpr int MAX_LINKS = 40;

/// Names tried for a new file: others may be in use by savers that work, or were left by one that died.
constexpr int MAX_NAMES = 100;

/// The file that is meant by path: what it leads to where it is a link. False: the links go round in circles, or what
/// is there is no file; true also when nothing is there.
bool FindTarget(const FilePath& path, FilePath& target)
{
    std::filesystem::path native;
    if (!ToNativePath(path, native))
        return false;
    std::error_code failure;
    int links = 0;
    for (; links < MAX_LINKS && std::filesystem::is_symlink(native, failure); ++links)
        native = native.parent_path() / std::filesystem::read_symlink(native, failure);
    const auto type = std::filesystem::status(native, failure).type();
    if (links == MAX_LINKS ||
        (type != std::filesystem::file_type::regular && type != std::filesystem::file_type::not_found))
        return false;
    const std::u8string text = native.u8string();
    target = links == 0 ? path : FilePath(String(std::string(text.begin(), text.end())));
    return true;
}

/// Makes a file beside the target that nobody else has, for its owner only. INVALID_FILE_HANDLE when none can be had.
platform::FileHandle MakeFileBeside(const FilePath& target, FilePath& made)
{
    static std::atomic<std::uint32_t> count{0};
    for (int attempt = 0; attempt < MAX_NAMES; ++attempt) {
        // The number only makes another name likely; that it is one is seen when the file is made.
        const std::uint32_t number = platform::CurrentThreadId() * 1000U + count.fetch_add(1);
        made = target;
        made += "." + String::sToString(number) + ".tmp";
        const platform::FileHandle file = platform::MakeNewFile(made.c_str(), platform::FileRights::OWNER);
        if (file != platform::INVALID_FILE_HANDLE)
            return file;
    }
    return platform::INVALID_FILE_HANDLE;
}

/// Puts the text into the file and waits until it is on the medium. The rights are those of the target, where it is
/// there.
bool FillFile(platform::FileHandle file, const String& text, const FilePath& target)
{
    std::error_code failure;
    std::filesystem::path native;
    const bool isNew = ToNativePath(target, native) && !std::filesystem::exists(native, failure);
    return platform::WriteFile(file, text.data(), text.size()) &&
           (isNew || platform::CopyFileRights(target.c_str(), file)) && platform::FlushFile(file);
}

} // namespace

/// The conversion to and from JSON; reaches the members of a set.
struct SettingsTransportSet::JSON
{
    /// A value type in the file: its name, and how its value is read. False: not of that type.
    struct TYPE
    {
        const char* name;
        bool (*read)(const json& from, VALUE& value);
    };
    /// In the order of the variant's alternatives.
    static const TYPE TYPES[];

    static bool ReadUSHORT(const json& from, VALUE& value);
    static bool ReadULONG(const json& from, VALUE& value);
    static bool ReadBool(const json& from, VALUE& value);
    static bool ReadString(const json& from, VALUE& value);
    static bool ReadTimePos(const json& from, VALUE& value);
    static bool ReadBinaryStore(const json& from, VALUE& value);

    static json ToValue(const VALUE& value);
    static bool FromValue(const std::string& type, const json& from, VALUE& value);
    static json ToTree(const SettingsTransportSet& set);
    static bool FromTree(const json& tree, SettingsTransportSet& set);
    static bool ReadData(const json& tree, SettingsTransportSet& set);
    static bool ReadSets(const json& tree, SettingsTransportSet& set);
    static bool FitsDepth(const SettingsTransportSet& set, int depth);
};

const char* const SettingsTransportSet::UNNAMED = "";

SettingsTransportSet::SettingsTransportSet() = default;

SettingsTransportSet::SettingsTransportSet(const SettingsTransportSet& other)
    : m_data(other.m_data)
{
    for (const auto& [key, set] : other.m_sets)
        m_sets.emplace_back(key, std::make_unique<SettingsTransportSet>(*set));
}

SettingsTransportSet::SettingsTransportSet(SettingsTransportSet&& other) noexcept = default;

SettingsTransportSet& SettingsTransportSet::operator=(const SettingsTransportSet& other)
{
    if (this != &other)
        *this = SettingsTransportSet(other);
    return *this;
}

SettingsTransportSet& SettingsTransportSet::operator=(SettingsTransportSet&& other) noexcept = default;

SettingsTransportSet::~SettingsTransportSet() = default;

void SettingsTransportSet::Reset()
{
    m_data.clear();
    m_sets.clear();
}

bool SettingsTransportSet::AddUSHORT(const String& key, USHORT value)
{
    m_data.emplace_back(key, value);
    return true;
}

bool SettingsTransportSet::AddULONG(const String& key, ULONG value)
{
    m_data.emplace_back(key, ULONG_VALUE{static_cast<std::uint32_t>(value)});
    return true;
}

bool SettingsTransportSet::AddBool(const String& key, bool value)
{
    m_data.emplace_back(key, value);
    return true;
}

bool SettingsTransportSet::AddString(const String& key, const String& value)
{
    m_data.emplace_back(key, value);
    return true;
}

bool SettingsTransportSet::AddTimePos(const String& key, const TimePos& value)
{
    m_data.emplace_back(key, value);
    return true;
}

bool SettingsTransportSet::AddBinaryStore(const String& key, const BinaryStore& value)
{
    m_data.emplace_back(key, value);
    return true;
}

template <class T> const T* SettingsTransportSet::xFind(const String& key) const
{
    for (const auto& [name, value] : m_data)
        if (name == key && std::holds_alternative<T>(value))
            return &std::get<T>(value);
    return nullptr;
}

bool SettingsTransportSet::GetUSHORT(const String& key, USHORT& out) const
{
    const auto* value = xFind<USHORT>(key);
    if (value != nullptr)
        out = *value;
    return value != nullptr;
}

bool SettingsTransportSet::GetULONG(const String& key, ULONG& out) const
{
    const auto* value = xFind<ULONG_VALUE>(key);
    if (value != nullptr)
        out = value->value;
    return value != nullptr;
}

bool SettingsTransportSet::GetBool(const String& key, bool& out) const
{
    const auto* value = xFind<bool>(key);
    if (value != nullptr)
        out = *value;
    return value != nullptr;
}

bool SettingsTransportSet::GetString(const String& key, String& out) const
{
    const auto* value = xFind<String>(key);
    if (value != nullptr)
        out = *value;
    return value != nullptr;
}

bool SettingsTransportSet::GetTimePos(const String& key, TimePos& out) const
{
    const auto* value = xFind<TimePos>(key);
    if (value != nullptr)
        out = *value;
    return value != nullptr;
}

bool SettingsTransportSet::GetBinaryStore(const String& key, BinaryStore& out) const
{
    const auto* value = xFind<BinaryStore>(key);
    if (value != nullptr)
        out = *value;
    return value != nullptr;
}

SettingsTransportSet* SettingsTransportSet::AddSet(const String& key)
{
    m_sets.emplace_back(key, std::make_unique<SettingsTransportSet>());
    return m_sets.back().second.get();
}

ULONG SettingsTransportSet::GetSetCount() const
{
    return static_cast<ULONG>(m_sets.size());
}

const SettingsTransportSet& SettingsTransportSet::GetSet(ULONG index) const
{
    return *m_sets.at(index).second;
}

const String& SettingsTransportSet::GetSetKey(ULONG index) const
{
    return m_sets.at(index).first;
}

const SettingsTransportSet* SettingsTransportSet::FindSet(const String& key) const
{
    const auto found = std::find_if(m_sets.begin(), m_sets.end(), [&](const auto& item) { return item.first == key; });
    return found != m_sets.end() ? found->second.get() : nullptr;
}

bool SettingsTransportSet::AddSettings(const String& key, const SettingsTransferable& object)
{
    return object.WriteTo(*AddSet(key));
}

bool SettingsTransportSet::GetSettings(SettingsTransferable& object) const
{
    return object.ReadFrom(*this);
}

ULONG SettingsTransportSet::GetDataCount() const
{
    return static_cast<ULONG>(m_data.size());
}

const String& SettingsTransportSet::GetDataKey(ULONG index) const
{
    return m_data.at(index).first;
}

bool SettingsTransportSet::GetDataAsString(ULONG index, String& out) const
{
    if (index >= m_data.size())
        return false;
    const VALUE& value = m_data[index].second;
    if (const auto* number = std::get_if<USHORT>(&value))
        out = String::sToString(*number);
    else if (const auto* wide = std::get_if<ULONG_VALUE>(&value))
        out = String::sToString(wide->value);
    else if (const auto* flag = std::get_if<bool>(&value))
        out = *flag ? "1" : "0";
    else if (const auto* text = std::get_if<String>(&value))
        out = *text;
    else if (const auto* time = std::get_if<TimePos>(&value))
        out = String(std::to_string(time->GetMilliSeconds()));
    else
        out = ToHex(std::get<BinaryStore>(value));
    return true;
}

json SettingsTransportSet::JSON::ToValue(const VALUE& value)
{
    if (const auto* number = std::get_if<USHORT>(&value))
        return *number;
    if (const auto* wide = std::get_if<ULONG_VALUE>(&value))
        return wide->value;
    if (const auto* flag = std::get_if<bool>(&value))
        return *flag;
    if (const auto* text = std::get_if<String>(&value))
        return ToUtf8(*text);
    if (const auto* time = std::get_if<TimePos>(&value))
        return time->GetMilliSeconds();
    return ToHex(std::get<BinaryStore>(value)).str();
}

bool SettingsTransportSet::JSON::ReadUSHORT(const json& from, VALUE& value)
{
    USHORT number = 0;
    if (!ReadNumber(from, number))
        return false;
    value = number;
    return true;
}

bool SettingsTransportSet::JSON::ReadULONG(const json& from, VALUE& value)
{
    ULONG_VALUE number{0};
    if (!ReadNumber(from, number.value))
        return false;
    value = number;
    return true;
}

bool SettingsTransportSet::JSON::ReadBool(const json& from, VALUE& value)
{
    if (!from.is_boolean())
        return false;
    value = from.get<bool>();
    return true;
}

bool SettingsTransportSet::JSON::ReadString(const json& from, VALUE& value)
{
    String text;
    if (!from.is_string() || !FromUtf8(from.get_ref<const std::string&>(), text))
        return false;
    value = std::move(text);
    return true;
}

bool SettingsTransportSet::JSON::ReadTimePos(const json& from, VALUE& value)
{
    SLONG8 milliSecs = 0;
    if (!ReadNumber(from, milliSecs))
        return false;
    value = TimePos(milliSecs);
    return true;
}

bool SettingsTransportSet::JSON::ReadBinaryStore(const json& from, VALUE& value)
{
    BinaryStore store;
    if (!from.is_string() || !FromHex(from.get_ref<const std::string&>(), store))
        return false;
    value = std::move(store);
    return true;
}

const SettingsTransportSet::JSON::TYPE SettingsTransportSet::JSON::TYPES[] = {
    {"USHORT", ReadUSHORT}, {"ULONG", ReadULONG},     {"Bool", ReadBool},
    {"String", ReadString}, {"TimePos", ReadTimePos}, {"BinaryStore", ReadBinaryStore},
};

bool SettingsTransportSet::JSON::FromValue(const std::string& type, const json& from, VALUE& value)
{
    const auto* const found =
        std::find_if(std::begin(TYPES), std::end(TYPES), [&](const TYPE& one) { return type == one.name; });
    return found != std::end(TYPES) && found->read(from, value);
}

json SettingsTransportSet::JSON::ToTree(const SettingsTransportSet& set)
{
    json data = json::array();
    for (const auto& [key, value] : set.m_data)
        data.push_back(json::array({ToUtf8(key), TYPES[value.index()].name, ToValue(value)}));
    json sets = json::array();
    for (const auto& [key, sub] : set.m_sets)
        sets.push_back(json::array({ToUtf8(key), ToTree(*sub)}));
    return json{{"data", std::move(data)}, {"sets", std::move(sets)}};
}

bool SettingsTransportSet::JSON::FromTree(const json& tree, SettingsTransportSet& set)
{
    return tree.is_object() && tree.size() == 2 && tree.contains("data") && tree.contains("sets") &&
           ReadData(tree["data"], set) && ReadSets(tree["sets"], set);
}

bool SettingsTransportSet::JSON::ReadData(const json& tree, SettingsTransportSet& set)
{
    if (!tree.is_array())
        return false;
    for (const json& item : tree) {
        String key;
        VALUE value;
        if (!item.is_array() || item.size() != 3 || !item[0].is_string() || !item[1].is_string() ||
            !FromUtf8(item[0].get_ref<const std::string&>(), key) ||
            !FromValue(item[1].get_ref<const std::string&>(), item[2], value))
            return false;
        set.m_data.emplace_back(std::move(key), std::move(value));
    }
    return true;
}

bool SettingsTransportSet::JSON::ReadSets(const json& tree, SettingsTransportSet& set)
{
    if (!tree.is_array())
        return false;
    for (const json& item : tree) {
        String key;
        if (!item.is_array() || item.size() != 2 || !item[0].is_string() ||
            !FromUtf8(item[0].get_ref<const std::string&>(), key) || !FromTree(item[1], *set.AddSet(key)))
            return false;
    }
    return true;
}

bool SettingsTransportSet::JSON::FitsDepth(const SettingsTransportSet& set, int depth)
{
    return depth <= MAX_DEPTH && std::all_of(set.m_sets.begin(), set.m_sets.end(),
                                             [depth](const auto& item) { return FitsDepth(*item.second, depth + 1); });
}

String SettingsTransportSet::ToJson() const
{
    return String(JSON::ToTree(*this).dump(1, ' ', true));
}

bool SettingsTransportSet::FromJson(const String& text)
{
    // The parser would take a zero byte for the end of the text.
    if (text.find('\0') != String::npos || NestsTooDeep(text.view()))
        return false;
    const json tree = json::parse(text.view(), nullptr, false);
    SettingsTransportSet read;
    if (tree.is_discarded() || !JSON::FromTree(tree, read))
        return false;
    *this = std::move(read);
    return true;
}

bool SettingsTransportSet::SaveToFile(const FilePath& path) const
{
    if (!JSON::FitsDepth(*this, 0))
        return false;
    FilePath target;
    if (path.empty() || !FindTarget(path, target))
        return false;
    const String text = ToJson();
    FilePath temporary;
    const platform::FileHandle file = MakeFileBeside(target, temporary);
    if (file == platform::INVALID_FILE_HANDLE)
        return false;
    bool saved = false;
    RunAllSteps([&] { saved = FillFile(file, text, target); },
                [&] {
                    platform::CloseFile(file);
                    saved = saved && platform::ReplaceFileBy(temporary.c_str(), target.c_str());
                    if (!saved)
                        platform::RemoveFile(temporary.c_str());
                });
    // The new content stands; where the system cannot tell when its name is on the medium, it is no less saved.
    if (saved)
        static_cast<void>(RunWithinMemory([&] { platform::FlushFolderOf(target.c_str()); }));
    return saved;
}

bool SettingsTransportSet::LoadFromFile(const FilePath& path)
{
    FileAccess file;
    if (!file.Open(path, FileAccess::AM_READ, false, false))
        return false;
    String text;
    std::vector<unsigned char> piece(65536);
    for (;;) {
        ULONG size = static_cast<ULONG>(piece.size());
        if (!file.Read(piece.data(), size))
            return false;
        if (size == 0)
            return FromJson(text);
        text.append(reinterpret_cast<const char*>(piece.data()), size);
    }
}

bool operator==(const SettingsTransportSet& left, const SettingsTransportSet& right)
{
    return left.m_data == right.m_data && std::equal(left.m_sets.begin(), left.m_sets.end(), right.m_sets.begin(),
                                                     right.m_sets.end(), [](const auto& first, const auto& second) {
                                                         return first.first == second.first &&
                                                                *first.second == *second.second;
                                                     });
}

} // namespace kqlib
