// The library classes that kqftpd is built on, named in one place.
#pragma once

#include "net/service/NetTCPService.h"
#include "net/session/NetTCPSession.h"
#include "net/sockets/NetTCP.h"

namespace kqlib {

using FtpServiceBase = NetTCPService;
using FtpSessionBase = NetTCPSession;
/// Control and data connections.
using FtpSocket = NetTCP;

} // namespace kqlib
