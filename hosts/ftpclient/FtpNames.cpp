// FtpNames: names and paths that come from a server or go to one.
#include "hosts/ftpclient/FtpNames.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>

namespace kqlib {

namespace {

constexpr const char* PART_START = ".kqftp-";
constexpr const char* PART_END = ".part";
constexpr std::size_t PART_DIGITS = 16;

/// FNV-1a, 64 bits: short names for long ones; nothing depends on nobody being able to find another text for one.
class Hash
{
public:
    void Add(const String& text)
    {
        for (const char character : text)
            m_value = (m_value ^ static_cast<unsigned char>(character)) * 1099511628211U;
        m_value *= 1099511628211U; // the end of a text counts, too
    }
    std::uint64_t Get() const { return m_value; }

private:
    std::uint64_t m_value = 14695981039346656037U;
};

} // namespace

bool FtpNames::sIsPlain(const String& name)
{
    return !name.empty() && !(name == ".") && !(name == "..") && name.find('/') == String::npos &&
           name.find('\0') == String::npos;
}

bool FtpNames::sCanBeSent(const String& text)
{
    return std::none_of(text.begin(), text.end(), [](char c) { return c == '\0' || c == '\r' || c == '\n'; });
}

String FtpNames::sJoin(const String& folder, const String& name)
{
    if (folder.empty() || name.empty())
        return folder + name;
    return folder.EndsWith("/") ? folder + name : folder + "/" + name;
}

String FtpNames::sFolderOf(const String& path)
{
    const String::size_type slash = path.rfind('/');
    if (slash == String::npos)
        return {};
    return slash == 0 ? String("/") : path.substr(0, slash);
}

String FtpNames::sNameOf(const String& path)
{
    const String::size_type slash = path.rfind('/');
    return slash == String::npos ? path : path.substr(slash + 1);
}

String FtpNames::sMakePartName(const FtpRemoteEntry& version)
{
    Hash hash;
    hash.Add(version.name);
    hash.Add(version.size ? String::sToString(*version.size) : String("?"));
    hash.Add(version.modifiedMs ? String(std::to_string(*version.modifiedMs)) : String("?"));
    char digits[PART_DIGITS + 1];
    std::snprintf(digits, sizeof digits, "%016" PRIx64, hash.Get());
    return String(PART_START) + digits + PART_END;
}

bool FtpNames::sIsPartName(const String& name)
{
    return name.size() == String(PART_START).size() + PART_DIGITS + String(PART_END).size() &&
           name.StartsWith(PART_START) && name.EndsWith(PART_END);
}

bool FtpNames::sUnquote(const String& text, String& path)
{
    path.clear();
    String::size_type i = text.find('"');
    if (i == String::npos)
        return false;
    for (++i; i < text.size(); ++i) {
        if (text[i] == '"' && (i + 1 == text.size() || text[++i] != '"'))
            return !path.empty();
        path += text[i];
    }
    return false;
}

} // namespace kqlib
