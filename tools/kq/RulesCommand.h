// RulesCommand: "kq rules", address rules tried out and looked through.
#pragma once

namespace CLI {
class App;
}

namespace kq {

/// Adds "rules check FILE --peer IP ..." and "rules lint FILE". The command runs within the parse; exitCode: check: 0
/// allowed, 1 denied; lint: 0 no error (warnings do not count), 1 errors; both: 2 the file cannot be used. Must outlive
/// the parse.
void AddRulesCommand(CLI::App& app, int& exitCode);

} // namespace kq
