// kq: one command-line tool with a sub-command for each subject of the library.
#include "net/sockets/NetSocket.h"
#include "tools/kq/CertCommand.h"
#include "tools/kq/DnsCommand.h"
#include "tools/kq/LiveCommand.h"
#include "tools/kq/LogCommand.h"
#include "tools/kq/RulesCommand.h"
#include "tools/kq/UpdateCommand.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <exception>

namespace {

/// Keeps the system's sockets started for a scope.
class SOCKETS
{
public:
    SOCKETS()
        : m_started(kqlib::NetSocket::sStartSockets())
    {
    }
    ~SOCKETS()
    {
        if (m_started)
            kqlib::NetSocket::sEndSockets();
    }
    SOCKETS(const SOCKETS&) = delete;
    SOCKETS& operator=(const SOCKETS&) = delete;

private:
    const bool m_started;
};

int Run(int argc, char** argv)
{
    const SOCKETS sockets;
    CLI::App app{"Tools of the kqnet library"};
    app.allow_windows_style_options(false); // "/x" is a path on every system
    app.set_version_flag("--version", "kq " KQ_VERSION);
    app.require_subcommand(1);
    int exitCode = 0;
    kq::AddCertCommand(app, exitCode);
    kq::AddDnsCommand(app, exitCode);
    kq::AddLiveCommand(app, exitCode);
    kq::AddLogCommand(app, exitCode);
    kq::AddRulesCommand(app, exitCode);
    kq::AddUpdateCommand(app, exitCode);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error);
    }
    return exitCode;
}

} // namespace

int main(int argc, char** argv)
{
    try {
        return Run(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "kq: %s\n", error.what());
        return 2;
    }
}
