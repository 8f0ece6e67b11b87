// FtpRemoteEntry: one file or folder of the server.
#pragma once

#include "common/String.h"

#include <cstdint>
#include <optional>

namespace kqlib {

/// What the server says about it, which may be nothing but the name; the name may be any text whatever. A plain value.
struct FtpRemoteEntry
{
    enum class KIND : std::uint8_t
    {
        FILE,
        FOLDER,
        LINK,
        OTHER ///< a device and the like, or nothing that is understood
    };

    String name;
    KIND kind = KIND::OTHER;
    std::optional<ULONG8> size;             ///< bytes
    std::optional<std::int64_t> modifiedMs; ///< milliseconds since 1970 UTC, whole seconds
};

} // namespace kqlib
