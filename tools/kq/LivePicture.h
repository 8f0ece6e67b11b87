// LivePicture: what kqftpd tells administrators about itself, as text for a terminal.
#pragma once

#include "common/STRINGS.h"

#include <cstdint>
#include <string>
#include <vector>

namespace kq {

/// One look at a server. A plain value.
struct LIVEPICTURE
{
    /// A session, in the words of the server.
    struct SESSION
    {
        std::string number;
        std::string user;
        std::string client; ///< address:port
        std::string action; ///< and what with
    };

    std::vector<SESSION> sessions;
    std::uint64_t connectionsIn = 0; ///< totals since the server started
    std::uint64_t bytesIn = 0;
    std::uint64_t bytesOut = 0;
    std::uint64_t commandsIn = 0;
    std::string since;      ///< when it started
    std::uint32_t tick = 0; ///< of this look, milliseconds

    /// Reads the lines of SITE WHO and SITE STAT. What does not look like them is passed over.
    void Read(const kqlib::STRINGS& who, const kqlib::STRINGS& totals);
};

/// The picture as lines of at most width characters. before: the look before this one, for the rates; null for none.
std::string DrawLivePicture(const std::string& server, const LIVEPICTURE& picture, const LIVEPICTURE* before,
                            unsigned width);

} // namespace kq
