// FtpRefusedNames: names that nobody may give.
#include "hosts/ftp/FtpRefusedNames.h"

#include "hosts/ftpcommon/FtpText.h"

#include <algorithm>

namespace kqlib {

FtpRefusedNames::FtpRefusedNames(const STRINGS& patterns)
{
    for (const String& pattern : patterns)
        m_patterns.emplace_back(pattern, FtpPattern::LETTERS::IGNORE_CASE);
}

bool FtpRefusedNames::Refuses(const String& path) const
{
    if (m_patterns.empty())
        return false;
    STRINGS names;
    names.AddByLine(path, static_cast<unsigned char>('/'), true, false);
    return std::any_of(names.begin(), names.end(), [this](const String& name) {
        return std::any_of(m_patterns.begin(), m_patterns.end(),
                           [&name](const FtpPattern& pattern) { return pattern.Matches(name); });
    });
}

bool FtpRefusedNames::sIsPattern(const String& text)
{
    return !text.empty() && !HasControlCharacter(text) && text.find('/') == String::npos;
}

} // namespace kqlib
