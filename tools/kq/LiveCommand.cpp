#include "tools/kq/LiveCommand.h"

#include "hosts/ftpclient/FtpClient.h"
#include "hosts/ftpclient/FtpURL.h"
#include "platform/Clock.h"
#include "platform/Terminal.h"
#include "tools/kq/LivePicture.h"
#include "tools/kq/LogTime.h"
#include "tools/kq/MessageTexts.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>

namespace kq {

using namespace kqlib;

namespace {

constexpr int EXIT_SHOWN = 0;
constexpr int EXIT_FAILED = 2;
/// Goes to the first line and clears what is there (ECMA-48, CUP and ED).
const char* const CLEAR = "\x1B[H\x1B[J";

struct OPTIONS
{
    std::string url;
    std::string passwordFile;
    std::string tls;
    std::uint32_t interval = 2; ///< seconds
    unsigned long count = 0;    ///< pictures; 0: for ever
    unsigned width = 100;
};

int Fail(const std::string& text)
{
    std::fflush(stdout);
    std::fprintf(stderr, "kq: %s\n", text.c_str());
    return EXIT_FAILED;
}

bool ReadPassword(const std::string& path, String& password)
{
    std::ifstream file;
    if (path != "-")
        file.open(path);
    std::string line;
    const bool isRead = static_cast<bool>(std::getline(path == "-" ? std::cin : file, line));
    if (!line.empty() && line.back() == '\r')
        line.pop_back();
    password = String(line);
    return isRead;
}

/// Whom to ask, and as whom. False: error says what is wrong.
bool MakeSettings(const OPTIONS& options, FtpClientSettings& settings, std::string& error)
{
    using TLS = FtpClientSettings::TLS;
    FtpURL place;
    String why;
    if (!place.Parse(String(options.url), why)) {
        error = Printable(why);
        return false;
    }
    settings.host = place.host;
    settings.port = place.port;
    settings.user = place.user;
    settings.password = place.password;
    settings.tls = place.isImplicit ? TLS::IMPLICIT : options.tls == "explicit" ? TLS::EXPLICIT : TLS::NONE;
    error = "no password can be read from " + options.passwordFile;
    return options.passwordFile.empty() || ReadPassword(options.passwordFile, settings.password);
}

/// One question to the server. False: said why on the standard error.
bool Ask(FtpClient& client, const char* question, STRINGS& lines)
{
    FtpClientRequest request;
    request.code = FtpClientRequest::SITE;
    request.remotePath = question;
    FtpClientResult result = client.Run(request);
    lines = std::move(result.lines);
    if (!result.IsDone())
        Fail("SITE " + std::string(question) + ": " + Printable(result.text));
    return result.IsDone();
}

int Run(const OPTIONS& options)
{
    FtpClientSettings settings;
    std::string error;
    if (!MakeSettings(options, settings, error))
        return Fail(error);
    const std::string server = Printable(settings.host) + ":" + std::to_string(settings.port);
    const bool isTerminal = platform::IsOutputTerminal();
    FtpClient client(settings);
    LIVEPICTURE before;
    for (unsigned long shown = 0; options.count == 0 || shown < options.count; ++shown) {
        if (shown > 0)
            platform::SleepMs(options.interval * 1000);
        LIVEPICTURE picture;
        STRINGS who;
        STRINGS totals;
        if (!Ask(client, "WHO", who) || !Ask(client, "STAT", totals))
            return EXIT_FAILED;
        picture.tick = platform::TickMs();
        picture.Read(who, totals);
        const std::string text = DrawLivePicture(server, picture, shown > 0 ? &before : nullptr, options.width);
        std::printf("%s%s", isTerminal ? CLEAR : shown > 0 ? "\n" : "", text.c_str());
        if (std::fflush(stdout) != 0)
            return EXIT_FAILED; // nobody reads any more
        before = std::move(picture);
    }
    return EXIT_SHOWN;
}

} // namespace

void AddLiveCommand(CLI::App& app, int& exitCode)
{
    CLI::App* const live = app.add_subcommand("live", "Shows the sessions of a running kqftpd as they change");
    const auto options = std::make_shared<OPTIONS>();
    live->add_option("url", options->url, "ftp[s]://administrator[:password]@host[:port]")->required();
    live->add_option("--password-file", options->passwordFile,
                     "The password is the first line of this file (-: standard input)");
    live->add_option("--tls", options->tls, "explicit (AUTH TLS) or none (default)")
        ->check(CLI::IsMember({"explicit", "none"}));
    live->add_option_function<std::string>(
        "--interval",
        [options](const std::string& text) {
            if (!ReadSpan(text, options->interval) || options->interval > 3600)
                throw CLI::ValidationError("no interval of 1s to 1h: " + text);
        },
        "Time between two pictures (default: 2s)");
    live->add_option("--count", options->count, "How many pictures (default: until stopped)");
    live->add_option("--width", options->width, "Characters in a line (default: 100)")->check(CLI::Range(20U, 1000U));
    live->callback([options, &exitCode] { exitCode = Run(*options); });
}

} // namespace kq
