// UpdateCommand: "kq update", a version check and download by the library's own update client.
#pragma once

namespace CLI {
class App;
}

namespace kq {

/// Adds "update check HOST PATH" and "update download HOST PATH". The command runs within the parse. exitCode: 0 when
/// there is an update (and it was downloaded), 1 when there is none, 2 when the check or the download failed. Must
/// outlive the parse.
void AddUpdateCommand(CLI::App& app, int& exitCode);

} // namespace kq
