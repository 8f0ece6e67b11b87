// The library classes that kqftpd is built on, named in one place.
#pragma once

#include "net/service/NetTCPServiceSSL.h"
#include "net/session/NetTCPSessionSSL.h"
#include "net/sockets/NetTCPSSL.h"

namespace kqlib {

using FtpServiceBase = NetTCPServiceSSL;
using FtpSessionBase = NetTCPSessionSSL;
/// Control and data connections; TLS is off at first.
using FtpSocket = NetTCPSSL;

} // namespace kqlib
