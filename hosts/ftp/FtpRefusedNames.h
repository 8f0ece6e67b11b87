// FtpRefusedNames: names that nobody may give.
#pragma once

#include "common/STRINGS.h"
#include "hosts/ftp/FtpPattern.h"

#include <vector>

namespace kqlib {

/// The patterns of a set of settings. ASCII letters count the same in capitals, since "X.EXE" is what "*.exe" means.
///
/// Ownership: owns its patterns. Threads: any thread. Errors: none.
class FtpRefusedNames
{
public:
    explicit FtpRefusedNames(const STRINGS& patterns);

    /// Whether any name of the path, folders included, fits one of the patterns.
    bool Refuses(const String& path) const;

    /// Whether the text can be such a pattern: not empty, without "/" and control characters.
    static bool sIsPattern(const String& text);

private:
    std::vector<FtpPattern> m_patterns; // set once
};

} // namespace kqlib
