// Options: what the command line says.
#pragma once

#include "hosts/ftpclient/FtpClientSettings.h"

#include <string>

namespace CLI {
class App;
}

namespace kqlib {

/// A plain value, filled by the parser.
struct Options
{
    enum class COMMAND : std::uint8_t
    {
        NONE,
        LIST,
        GET,
        PUT,
        MAKE_FOLDER,
        REMOVE_FILE,
        REMOVE_FOLDER,
        MIRROR_DOWN,
        MIRROR_UP
    };

    COMMAND command = COMMAND::NONE;
    std::string url;
    std::string local;
    std::string tls; // empty: as the URL says
    std::string passwordFile;
    std::string trusted;
    std::string logFolder;
    unsigned timeOutSecs = 60;
    unsigned keepAliveSecs = 30;
    unsigned retries = 2;
    bool isActive = false;
    bool isInPlace = false;
    bool isLogDebug = false;
    bool isQuiet = false;
    bool isNamesOnly = false;

    /// Defines all commands and switches. The object must outlive the parser.
    void Define(CLI::App& app);
    /// What to connect to, and how; path: the URL's. False: error says what is wrong.
    [[nodiscard]] bool MakeSettings(FtpClientSettings& settings, String& path, String& error) const;

private:
    bool xReadPassword(String& password, String& error) const;
};

} // namespace kqlib
