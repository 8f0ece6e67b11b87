// kqftp: the command line.
#include "hosts/ftpclient/app/Commands.h"
#include "hosts/ftpclient/app/ExitCodes.h"
#include "hosts/ftpclient/app/StopWatcher.h"
#include "platform/Signals.h"

#include <CLI/CLI.hpp>

int main(int argc, char** argv)
{
    using namespace kqlib;
    CLI::App app("kqftp: a file-transfer (FTP) client");
    app.set_version_flag("--version", "kqftp " KQFTP_VERSION);
    app.allow_windows_style_options(false); // "/x" is a path on every system
    Options options;
    options.Define(app);
    CLI11_PARSE(app, argc, argv);
    Output output(options.isQuiet);
    FtpClientSettings settings;
    String path;
    String error;
    if (!options.MakeSettings(settings, path, error)) {
        output.PrintFailure(error);
        return EXIT_USAGE;
    }
    platform::HoldProcessRequests(); // before there are threads, and after somebody may have typed a password
    FtpClient client(settings);
    const StopWatcher watcher([&client] { client.Cancel(); });
    return Commands(client, options, output).Run(path);
}
