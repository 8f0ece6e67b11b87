// LiveCommand: "kq live", the sessions of a running kqftpd as they change.
#pragma once

namespace CLI {
class App;
}

namespace kq {

/// Adds "live URL". The command runs within the parse, until it has shown as many pictures as were asked for, or for
/// ever. exitCode: 0 when all were shown; 2 when the URL or the password cannot be used, or the server cannot be asked
/// (any more). Must outlive the parse.
void AddLiveCommand(CLI::App& app, int& exitCode);

} // namespace kq
