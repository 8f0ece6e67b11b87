// FtpLogFolder: the folder that the logs go to.
#pragma once

#include "common/FilePath.h"
#include "common/String.h"

namespace kqlib {

/// Whether logs can be had in a folder. Ownership: none. Threads: any thread. Errors: by result with a sentence that
/// begins with the key "log_folder".
class FtpLogFolder
{
public:
    /// Makes the folder when it is missing, for its owner and group, and tries to write in it.
    [[nodiscard]] static bool sProvide(const FilePath& folder, String& error);
    /// Whether sProvide would do it; makes nothing that stays.
    [[nodiscard]] static bool sCanBeUsed(const FilePath& folder, String& error);
};

} // namespace kqlib
