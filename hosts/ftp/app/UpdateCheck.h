// UpdateCheck: asks whether there is a newer kqftpd.
#pragma once

#include "hosts/ftp/FtpSettings.h"

namespace kqlib {

class UpdateCheck
{
public:
    /// Fetches the version file that the settings name and waits for it. True: answer is one line that says what was
    /// found. False: answer says what went wrong.
    [[nodiscard]] static bool sRun(const FtpSettings& settings, String& answer);
};

} // namespace kqlib
