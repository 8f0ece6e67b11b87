// CertCommand: "kq cert", keys, certificates and signing requests of TLS services.
#pragma once

namespace CLI {
class App;
}

namespace kq {

/// Adds "cert create", "cert show FILE", "cert import CERT KEY" and "cert check [CERT KEY]". The command runs within
/// the parse; exitCode: 0 done or fine, 1 settings or files are refused (each reason is printed), 2 a file cannot be
/// used or would be overwritten. Must outlive the parse.
void AddCertCommand(CLI::App& app, int& exitCode);

} // namespace kq
