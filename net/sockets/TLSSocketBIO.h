// The bridge between OpenSSL and a socket handle of the platform layer. Inside the library only.
#pragma once

#include "platform/Sockets.h"

#include <openssl/bio.h>

namespace kqlib {

/// A new BIO that sends and receives through the platform layer: never blocks, raises no signal, closes nothing. Null
/// on failure. The caller owns it; the handle must stay open as long as it is used.
BIO* NewSocketBIO(platform::SocketHandle handle);

} // namespace kqlib
