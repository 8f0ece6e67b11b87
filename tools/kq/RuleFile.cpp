#include "tools/kq/RuleFile.h"

#include "common/SettingsTransportSet.h"

#include <nlohmann/json.hpp>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

namespace kq {

using namespace kqlib;

namespace {

using nlohmann::json;

constexpr const char* BLANKS = " \t\r";

void AddRule(FILERULES& rules, const std::string& text, const std::string& where)
{
    FILERULE& added = rules.emplace_back();
    added.text = text;
    added.where = where;
    added.isRule = added.rule.SetByString(String(text));
}

std::string Trimmed(const std::string& line)
{
    const std::size_t first = line.find_first_not_of(BLANKS);
    return first == std::string::npos ? "" : line.substr(first, line.find_last_not_of(BLANKS) - first + 1);
}

void ReadLines(const std::string& bytes, FILERULES& rules)
{
    std::istringstream stream(bytes);
    int number = 0;
    for (std::string line; std::getline(stream, line);) {
        const std::string text = Trimmed(line);
        ++number;
        if (!text.empty() && text[0] != '#')
            AddRule(rules, text, "line " + std::to_string(number));
    }
}

/// The library's own file form of settings: the list stands in a sub-set, or is the whole file.
bool ReadSettingsFile(const std::string& bytes, const std::string& key, FILERULES& rules)
{
    SettingsTransportSet file;
    if (!file.FromJson(String(bytes)))
        return false;
    const SettingsTransportSet* const named = file.FindSet(String(key));
    const SettingsTransportSet& list = named != nullptr ? *named : file;
    String text;
    for (ULONG i = 0; list.GetDataAsString(i, text); ++i)
        AddRule(rules, text.str(), "item [" + std::to_string(i) + "]");
    return true;
}

/// The list in a JSON document: itself, or what stands under key.
const json* FindList(const json& document, const std::string& key)
{
    if (document.is_array())
        return &document;
    const auto found = document.find(key);
    return found != document.end() && found->is_array() ? &*found : nullptr;
}

bool ReadJson(const std::string& bytes, const std::string& key, FILERULES& rules, std::string& error)
{
    if (ReadSettingsFile(bytes, key, rules))
        return true;
    const json document = json::parse(bytes, nullptr, false);
    if (document.is_discarded()) {
        error = "not valid JSON";
        return false;
    }
    const json* const list = FindList(document, key);
    if (list == nullptr) {
        error = "has no list of rules \"" + key + "\" (--key names another)";
        return false;
    }
    for (std::size_t i = 0; i < list->size(); ++i) {
        const json& item = (*list)[i];
        const std::string place = "[" + std::to_string(i) + "]";
        AddRule(rules, item.is_string() ? item.get<std::string>() : item.dump(),
                document.is_array() ? "item " + place : key + place);
    }
    return true;
}

} // namespace

bool ReadRuleFile(const std::string& path, const std::string& key, FILERULES& rules, std::string& error)
{
    rules.clear();
    std::error_code ignored; // what is no file cannot be opened either
    std::ifstream file;
    if (!std::filesystem::is_directory(path, ignored))
        file.open(path, std::ios::binary);
    if (!file.is_open()) {
        error = "cannot be read";
        return false;
    }
    const std::string bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    const std::size_t first = bytes.find_first_not_of(" \t\r\n");
    // A rule begins with its sign, so these can only be JSON.
    if (first != std::string::npos && (bytes[first] == '{' || bytes[first] == '['))
        return ReadJson(bytes, key, rules, error);
    ReadLines(bytes, rules);
    return true;
}

} // namespace kq
