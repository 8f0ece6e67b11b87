// The exit codes of kqftp.
#pragma once

namespace kqlib {

constexpr int EXIT_OK = 0;
constexpr int EXIT_FAILED = 1;    ///< something was refused or could not be transferred
constexpr int EXIT_USAGE = 2;     ///< wrong URL, password file and the like
constexpr int EXIT_NO_SERVER = 3; ///< no connection, or no log-in
constexpr int EXIT_NO_TLS = 4;    ///< no TLS, or a certificate that is not trusted
constexpr int EXIT_CANCELLED = 130;

} // namespace kqlib
