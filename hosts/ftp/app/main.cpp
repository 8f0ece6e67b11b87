// kqftpd: the command line.
#include "hosts/ftp/FtpPassword.h"
#include "hosts/ftp/FtpServer.h"
#include "hosts/ftp/FtpSettingsCheck.h"
#include "hosts/ftp/app/Demonstration.h"
#include "hosts/ftp/app/UpdateCheck.h"
#include "platform/Memory.h"
#include "platform/Signals.h"
#include "platform/Terminal.h"

#include <CLI/CLI.hpp>
#include <iostream>
#include <optional>
#include <string>

namespace {

using namespace kqlib;

constexpr unsigned FIRST_PORT = 2121; // of a demonstration that names none
constexpr unsigned PORTS_TRIED = 100; // when others have that one
constexpr std::uint32_t REQUEST_WAIT_MS = 60000;
constexpr int EXIT_OK = 0;
constexpr int EXIT_SETTINGS = 2;
constexpr int EXIT_START = 3;
constexpr int EXIT_UPDATE = 4;

struct OPTIONS
{
    std::string settingsFile;
    std::string folder;
    std::string logFolder;
    std::optional<unsigned> port;
    std::optional<unsigned> tlsPort;
    std::optional<unsigned> blockTimeMs;
    bool printPort = false;
    bool logDebug = false;
    bool hashPassword = false;
    bool checkOnly = false;
    bool checkUpdate = false;
};

void AddOptions(CLI::App& app, OPTIONS& options)
{
    app.set_version_flag("--version", "kqftpd " KQFTPD_VERSION);
    app.add_option("--settings", options.settingsFile, "Settings file (JSON); without it a demonstration is served");
    app.add_option("--port", options.port, "Listen on 127.0.0.1 and this port only (0: any free one)")
        ->check(CLI::Range(0, 65535));
    app.add_option("--tls-port", options.tlsPort, "Listen on 127.0.0.1 and this port, TLS from the first byte")
        ->check(CLI::Range(1, 65535));
    app.add_option("--folder", options.folder, "Demonstration: serve from here and keep it (default: temporary)");
    app.add_option("--log-folder", options.logFolder, "Folder of the logs");
    app.add_option("--block-time", options.blockTimeMs, "Milliseconds of one wait for a control connection")
        ->check(CLI::Range(1, 1000));
    app.add_flag("--log-debug", options.logDebug, "Log every command and reply, passwords included");
    app.add_flag("--print-port", options.printPort, "Print the number of the first port on a line of its own first");
    app.add_flag("--hash-password", options.hashPassword, "Read a password from standard input, print its stored form");
    app.add_flag("--check", options.checkOnly, "Check the settings file and exit");
    app.add_flag("--check-update", options.checkUpdate, "Say whether there is a newer version, and exit");
}

int Fail(int code, const String& text)
{
    std::cerr << "kqftpd: " << text.c_str() << std::endl;
    return code;
}

int HashPassword()
{
    // A person types it twice, for it is not shown.
    const bool isPerson = platform::IsInputTerminal();
    std::string password;
    if (isPerson)
        std::cerr << "Password: " << std::flush;
    if (!platform::ReadHiddenLine(password) || password.empty())
        return Fail(EXIT_SETTINGS, "no password on standard input");
    std::string again = password;
    if (isPerson)
        std::cerr << "Again: " << std::flush;
    if (isPerson && (!platform::ReadHiddenLine(again) || again != password))
        return Fail(EXIT_SETTINGS, "the two are not the same");
    std::cout << FtpPassword::sHash(String(password)).c_str() << std::endl;
    return EXIT_OK;
}

int CheckUpdate(const FtpSettings& settings)
{
    if (settings.GetUpdateHost().empty())
        return Fail(EXIT_SETTINGS, "update_host: must be set for an update check");
    String answer;
    if (!UpdateCheck::sRun(settings, answer))
        return Fail(EXIT_UPDATE, answer);
    std::cout << answer.c_str() << std::endl;
    return EXIT_OK;
}

/// Reads the settings file and what the command line says on top of it.
bool ReadSettings(const OPTIONS& options, FtpSettings& settings, String& error)
{
    if (!options.settingsFile.empty() && !settings.ReadFile(FilePath(String(options.settingsFile)), error)) {
        error = String(options.settingsFile) + ": " + error;
        return false;
    }
    if (!options.logFolder.empty())
        settings.SetLogFolder(FilePath(String(options.logFolder)));
    if (options.logDebug)
        settings.SetLogDebug(true);
    if (options.blockTimeMs)
        settings.SetBlockTimeMs(*options.blockTimeMs);
    if (options.port) {
        settings.SetListen("127.0.0.1:" + String::sToString(*options.port));
        settings.SetListenTLS(String());
    }
    if (options.tlsPort)
        settings.SetListenTLS("127.0.0.1:" + String::sToString(*options.tlsPort));
    return true;
}

bool Start(const OPTIONS& options, FtpServer& server, FtpSettings& settings, String& error)
{
    if (!options.settingsFile.empty() || options.port)
        return server.Start(settings, error);
    for (unsigned port = FIRST_PORT; port < FIRST_PORT + PORTS_TRIED; ++port) {
        settings.SetListen("127.0.0.1:" + String::sToString(port));
        if (server.Start(settings, error))
            return true;
    }
    return false;
}

/// Looks at everything that the settings name.
int CheckOnly(const OPTIONS& options, const FtpSettings& settings)
{
    NetSocket::sStartSockets();
    const STRINGS faults = FtpSettingsCheck::sFindFaults(settings);
    NetSocket::sEndSockets();
    for (const String& fault : faults)
        Fail(EXIT_SETTINGS, String(options.settingsFile) + ": " + fault);
    if (!faults.empty())
        return EXIT_SETTINGS;
    std::cout << "settings are good" << std::endl;
    return EXIT_OK;
}

void PrintWarnings(const FtpServer& server)
{
    for (const String& warning : server.GetWarnings())
        std::cerr << "kqftpd: warning: " << warning.c_str() << std::endl;
}

/// Says where it listens; who started it reads that.
void PrintPorts(FtpServer& server, bool portFirst)
{
    Vector<NetServiceStatus::ACTIVEPORT> ports;
    server.GetService().GetListeningPorts(ports);
    if (portFirst && ports.GetCount() != 0)
        std::cout << ports.Get(0).port << "\n";
    for (const NetServiceStatus::ACTIVEPORT& entry : ports)
        std::cout << "listening on " << entry.ip.GetText().c_str() << ":" << entry.port << "\n";
    std::cout << std::flush;
}

/// What a person can paste into another terminal.
void PrintHowToTry(FtpServer& server, const FtpSettings& settings)
{
    Vector<NetServiceStatus::ACTIVEPORT> ports;
    server.GetService().GetListeningPorts(ports);
    const String place = "127.0.0.1:" + String::sToString(ports.Get(0).port);
    const String account = String(Demonstration::USER) + ":" + Demonstration::PASSWORD;
    std::cout << "serving " << settings.GetUsers().front().GetHome().c_str() << " for user " << Demonstration::USER
              << ", password " << Demonstration::PASSWORD << "\n\nTry it:\n"
              << "  curl -u " << account.c_str() << " ftp://" << place.c_str() << "/\n"
              << "  curl -u " << account.c_str() << " -T SOME_FILE ftp://" << place.c_str() << "/\n"
              << "  lftp -u " << Demonstration::USER << "," << Demonstration::PASSWORD << " ftp://" << place.c_str()
              << "/\n\nCtrl-C ends." << std::endl;
}

void Reload(const OPTIONS& options, FtpServer& server)
{
    FtpSettings settings;
    String error;
    // The log comes first: whoever has moved it waits for that, whatever the settings say.
    if (!server.ReopenLog(error))
        Fail(EXIT_SETTINGS, error);
    if (options.settingsFile.empty())
        return; // a demonstration has nothing to read again
    if (!ReadSettings(options, settings, error) || !server.Reload(settings, error)) {
        Fail(EXIT_SETTINGS, error + "; nothing was changed");
        return;
    }
    PrintWarnings(server);
    PrintPorts(server, false);
}

int Serve(const OPTIONS& options, FtpSettings& settings)
{
    platform::HoldProcessRequests(); // from here on there is something to be ended in order
    Demonstration demonstration;
    FtpServer server;
    String error;
    const bool isDemonstration = options.settingsFile.empty();
    if (isDemonstration && !demonstration.Make(FilePath(String(options.folder)), settings, error))
        return Fail(EXIT_START, error);
    if (!Start(options, server, settings, error))
        return Fail(EXIT_START, error);
    PrintWarnings(server);
    PrintPorts(server, options.printPort);
    if (isDemonstration)
        PrintHowToTry(server, settings);
    for (;;) {
        switch (platform::WaitForProcessRequest(REQUEST_WAIT_MS)) {
        case platform::ProcessRequest::STOP:
            server.Stop();
            return EXIT_OK;
        case platform::ProcessRequest::RELOAD:
            Reload(options, server);
            break;
        case platform::ProcessRequest::NONE:
            break;
        }
    }
}

} // namespace

int main(int argc, char** argv)
{
    platform::GiveBackLargeBlocks(); // each password check takes 16 MiB for a moment
    CLI::App app("kqftpd: a file-transfer (FTP) server");
    app.allow_windows_style_options(false); // "/x" is a path on every system
    OPTIONS options;
    AddOptions(app, options);
    CLI11_PARSE(app, argc, argv);
    if (options.hashPassword)
        return HashPassword();
    FtpSettings settings;
    String error;
    if (!ReadSettings(options, settings, error))
        return Fail(EXIT_SETTINGS, error);
    if (options.checkOnly)
        return CheckOnly(options, settings);
    if (options.checkUpdate)
        return CheckUpdate(settings);
    return Serve(options, settings);
}
