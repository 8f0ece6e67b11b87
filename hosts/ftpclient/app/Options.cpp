// Options: what the command line says.
#include "hosts/ftpclient/app/Options.h"

#include "hosts/ftpclient/FtpNames.h"
#include "hosts/ftpclient/FtpURL.h"
#include "hosts/ftpcommon/FtpPaths.h"
#include "platform/Terminal.h"

#include <CLI/CLI.hpp>
#include <fstream>
#include <iostream>

namespace kqlib {

namespace {

constexpr unsigned MAX_SECS = 86400;

struct COMMAND_TEXT
{
    Options::COMMAND command;
    const char* name;
    const char* help;
};

constexpr COMMAND_TEXT COMMANDS[] = {
    {Options::COMMAND::LIST, "ls", "Lists a folder"},
    {Options::COMMAND::GET, "get", "Downloads a file"},
    {Options::COMMAND::PUT, "put", "Uploads a file"},
    {Options::COMMAND::MAKE_FOLDER, "mkdir", "Makes a folder"},
    {Options::COMMAND::REMOVE_FILE, "rm", "Deletes a file"},
    {Options::COMMAND::REMOVE_FOLDER, "rmdir", "Deletes an empty folder"},
    {Options::COMMAND::MIRROR_DOWN, "mirror", "Downloads a folder with everything in it, but what is here already"},
    {Options::COMMAND::MIRROR_UP, "mirror-up", "Uploads a folder with everything in it, but what is there already"},
};

void AddArguments(CLI::App& command, Options::COMMAND which, Options& options)
{
    const bool isLocalFirst = which == Options::COMMAND::PUT || which == Options::COMMAND::MIRROR_UP;
    if (isLocalFirst)
        command.add_option("local", options.local, "What to upload")->required();
    command.add_option("url", options.url, "ftp[s]://[user[:password]@]host[:port]/path")->required();
    if (which == Options::COMMAND::GET)
        command.add_option("local", options.local, "File or folder to download to (default: the current folder)");
    if (which == Options::COMMAND::MIRROR_DOWN)
        command.add_option("local", options.local, "Folder to download to, made when missing")->required();
    if (which == Options::COMMAND::LIST)
        command.add_flag("--names", options.isNamesOnly, "Print names alone");
}

} // namespace

void Options::Define(CLI::App& app)
{
    app.require_subcommand(1);
    app.fallthrough(); // switches may stand behind the command
    for (const COMMAND_TEXT& text : COMMANDS) {
        CLI::App* const sub = app.add_subcommand(text.name, text.help);
        AddArguments(*sub, text.command, *this);
        sub->callback([this, which = text.command] { command = which; });
    }
    app.add_option("--tls", tls, "explicit (AUTH TLS), implicit (from the first byte) or none (default)")
        ->check(CLI::IsMember({"explicit", "implicit", "none"}));
    app.add_option("--check-certificate", trusted,
                   "Verify the server's certificate with those in this file (PEM), or those of the \"system\"");
    app.add_option("--password-file", passwordFile, "The password is the first line of this file (-: standard input)");
    app.add_flag("--active", isActive, "Have the server make the data connections");
    app.add_flag("--in-place", isInPlace, "Upload straight under the file's name: no renaming, no resuming");
    app.add_option("--timeout", timeOutSecs, "Seconds to wait for a silent server (default: 60)")
        ->check(CLI::Range(1U, MAX_SECS));
    app.add_option("--keep-alive", keepAliveSecs, "Seconds between signs of life while idle (default: 30; 0: none)")
        ->check(CLI::Range(0U, MAX_SECS));
    app.add_option("--retries", retries, "How often to go on after a lost connection (default: 2)")
        ->check(CLI::Range(0U, 1000U));
    app.add_option("--log-folder", logFolder, "Keep an event log in this folder");
    app.add_flag("--log-debug", isLogDebug, "Log every command and reply, passwords included");
    app.add_flag("--quiet", isQuiet, "Print failures only");
}

bool Options::MakeSettings(FtpClientSettings& settings, String& path, String& error) const
{
    using TLS = FtpClientSettings::TLS;
    FtpURL place;
    if (!place.Parse(String(url), error))
        return false;
    settings.host = place.host;
    settings.port = place.port;
    settings.tls = place.isImplicit ? TLS::IMPLICIT : tls == "explicit" ? TLS::EXPLICIT : TLS::NONE;
    if (tls == "implicit")
        settings.tls = TLS::IMPLICIT;
    if (place.isImplicit && !tls.empty() && tls != "implicit") {
        error = "ftps:// and --tls " + String(tls) + " contradict each other";
        return false;
    }
    if (!trusted.empty() && settings.tls == TLS::NONE) {
        error = "without TLS there is no certificate to check";
        return false;
    }
    if (!place.user.empty()) {
        settings.user = place.user;
        settings.password = place.password;
    }
    settings.trusted = String(trusted);
    settings.isActive = isActive;
    settings.isInPlace = isInPlace;
    settings.timeOutSecs = timeOutSecs;
    settings.keepAliveSecs = keepAliveSecs;
    settings.retries = retries;
    settings.logFolder = FilePath(String(logFolder));
    settings.isLogDebug = isLogDebug;
    path = place.path;
    return passwordFile.empty() || xReadPassword(settings.password, error);
}

bool Options::xReadPassword(String& password, String& error) const
{
    std::string line;
    bool isRead = false;
    if (passwordFile == "-") {
        if (platform::IsInputTerminal())
            std::cerr << "Password: " << std::flush;
        isRead = platform::ReadHiddenLine(line);
    } else {
        std::ifstream file(ToStdPath(FilePath(String(passwordFile))));
        isRead = static_cast<bool>(std::getline(file, line));
    }
    if (!line.empty() && line.back() == '\r')
        line.pop_back();
    password = String(line);
    if (isRead && FtpNames::sCanBeSent(password))
        return true;
    error = "no password can be read from " + String(passwordFile);
    return false;
}

} // namespace kqlib
