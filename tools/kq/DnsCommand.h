// DnsCommand: "kq dns", look-ups by the library's own resolver.
#pragma once

namespace CLI {
class App;
}

namespace kq {

/// Adds "dns a|mx|ptr|txt|spf NAME" and "dns servers". The command runs within the parse; exitCode: 0 when every
/// look-up gave records (or servers were found), else 1. Must outlive the parse.
void AddDnsCommand(CLI::App& app, int& exitCode);

} // namespace kq
