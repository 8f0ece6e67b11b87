#include "tools/kq/UpdateCommand.h"

#include "common/ThreadPool.h"
#include "net/update/NetAppUpdate.h"
#include "platform/Clock.h"
#include "platform/Terminal.h"
#include "tools/kq/MessageTexts.h"

#include <CLI/CLI.hpp>

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

namespace kq {

using namespace kqlib;

namespace {

constexpr int EXIT_UPDATE = 0;
constexpr int EXIT_NO_UPDATE = 1;
constexpr int EXIT_FAILED = 2;

constexpr std::uint32_t LOOK_MS = 50;   // how often the client is asked how far it is
constexpr std::uint32_t LINE_MS = 1000; // between two lines of progress that are no bar
constexpr unsigned BAR_WIDTH = 40;

struct OPTIONS
{
    std::string host;
    std::string path;
    unsigned port = 80;
    unsigned long currentVersion = 0;
    std::string folder = ".";
    std::string prefix = "update";
    std::string referer = "kq";
    std::string detail;
};

/// Shows how far a download is: a bar that is drawn again and again on a terminal, a line now and then elsewhere.
class Progress
{
public:
    void Show(ULONG received, ULONG expected)
    {
        const std::uint32_t now = platform::TickMs();
        if (m_isTerminal) {
            xDrawBar(received, expected);
        } else if (!m_shown || now - m_lastTick >= LINE_MS) {
            std::printf("received %lu of %lu bytes\n", received, expected);
            m_lastTick = now;
        }
        m_shown = true;
        std::fflush(stdout);
    }
    void End(ULONG received, ULONG expected)
    {
        if (m_isTerminal) {
            xDrawBar(received, expected);
            std::printf("\n");
        } else {
            std::printf("received %lu of %lu bytes\n", received, expected);
        }
    }

private:
    static void xDrawBar(ULONG received, ULONG expected)
    {
        const unsigned percent = expected == 0 ? 0 : static_cast<unsigned>(ULONG8{received} * 100 / expected);
        const unsigned shown = percent > 100 ? 100 : percent;
        const unsigned full = shown * BAR_WIDTH / 100;
        std::printf("\r[%s%s] %3u %%  %lu of %lu bytes", std::string(full, '#').c_str(),
                    std::string(BAR_WIDTH - full, ' ').c_str(), shown, received, expected);
    }

    const bool m_isTerminal = platform::IsOutputTerminal();
    bool m_shown = false;
    std::uint32_t m_lastTick = 0;
};

NetAppUpdate::STATE WaitForEnd(const NetAppUpdate& update, Progress* progress)
{
    while (update.IsBusy()) {
        if (progress != nullptr)
            progress->Show(update.GetReceivedAmount(), update.GetMaxReceivingAmount());
        platform::SleepMs(LOOK_MS);
    }
    return update.GetStatus();
}

int Fail(const char* text)
{
    std::fflush(stdout);
    std::fprintf(stderr, "kq: %s\n", text);
    return EXIT_FAILED;
}

/// Looks for an update and says what came of it.
int Check(NetAppUpdate& update, const OPTIONS& options)
{
    if (!update.CheckForUpdate(options.detail, options.host, static_cast<USHORT>(options.port), String(options.path)))
        return Fail("no thread to be had");
    const NetAppUpdate::STATE state = WaitForEnd(update, nullptr);
    if (state == NetAppUpdate::ST_NO_UPDATE) {
        std::printf("no update: version %lu is the newest\n", options.currentVersion);
        return EXIT_NO_UPDATE;
    }
    if (state != NetAppUpdate::ST_UPDATE_AVAILABLE)
        return Fail("the check failed: no connection, or no version file");
    std::printf("version %lu: %s\n", update.GetUpdateVersion(), Printable(update.GetUpdateDescription()).c_str());
    std::fflush(stdout);
    return EXIT_UPDATE;
}

int Download(NetAppUpdate& update)
{
    Progress progress;
    if (!update.DownloadUpdate())
        return Fail("no thread to be had");
    const NetAppUpdate::STATE state = WaitForEnd(update, &progress);
    progress.End(update.GetReceivedAmount(), update.GetMaxReceivingAmount());
    if (state != NetAppUpdate::ST_DOWNLOADED)
        return Fail("the download failed; nothing is left on the disk");
    std::printf("downloaded %s\n", Printable(update.GetDownloadedUpdatePath().GetText()).c_str());
    return EXIT_UPDATE;
}

int Run(const OPTIONS& options, bool download)
{
    ThreadPool pool;
    NetAppUpdate update(pool, String(options.folder), options.currentVersion, options.referer, options.prefix);
    const int checked = Check(update, options);
    return checked == EXIT_UPDATE && download ? Download(update) : checked;
}

CLI::App* AddCommand(CLI::App& update, const char* name, const char* help, OPTIONS& options)
{
    CLI::App* const command = update.add_subcommand(name, help);
    command->add_option("host", options.host, "Host of the version file")->required();
    command->add_option("path", options.path, "Path of the version file")->required();
    command->add_option("--port", options.port, "Port of the host (default: 80)")->check(CLI::Range(1U, 65535U));
    command->add_option("--current-version", options.currentVersion, "Only a greater version is an update (default: 0)")
        ->check(CLI::Range(0UL, 4294967295UL));
    command->add_option("--referer", options.referer, "Product text of the requests (default: kq)");
    command->add_option("--detail", options.detail, "Text added to it in the check");
    return command;
}

} // namespace

void AddUpdateCommand(CLI::App& app, int& exitCode)
{
    CLI::App* const update = app.add_subcommand("update", "Looks for an update of an application and downloads it");
    update->require_subcommand(1);
    const auto options = std::make_shared<OPTIONS>();
    CLI::App* const check = AddCommand(*update, "check", "Reads the version file and says what it offers", *options);
    check->callback([options, &exitCode] { exitCode = Run(*options, false); });
    CLI::App* const download = AddCommand(*update, "download", "The same, and downloads the installer", *options);
    download->add_option("--folder", options->folder, "Folder to put the installer in (default: the current one)");
    download->add_option("--prefix", options->prefix, "Start of the installer's file name (default: update)");
    download->callback([options, &exitCode] { exitCode = Run(*options, true); });
}

} // namespace kq
