// LogCommand: "kq log", questions to the session log and the activity log of a service.
#pragma once

namespace CLI {
class App;
}

namespace kq {

/// Adds "log sessions FOLDER" and "log activity FOLDER". The command runs within the parse. exitCode: 0 when the log
/// was read, also when it holds nothing of the time asked for; 2 when it is not there, cannot be read, or the output
/// cannot be written. Must outlive the parse.
void AddLogCommand(CLI::App& app, int& exitCode);

} // namespace kq
