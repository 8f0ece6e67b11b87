// The step from our addresses to those of the platform layer. Inside the library only.
#pragma once

#include "common/NetIP.h"
#include "platform/Sockets.h"

#include <cstring>

namespace kqlib {

/// The family of an address type.
inline platform::Family ToFamily(NetIP::IPTYPE type)
{
    return type == NetIP::IP_6 ? platform::Family::IP6 : platform::Family::IP4;
}

/// ip:port as an address of the given type, whatever the type of ip: its first 4 or its 16 bytes.
inline platform::Endpoint MakeEndpoint(NetIP::IPTYPE type, const NetIP& ip, unsigned short port)
{
    platform::Endpoint end;
    end.family = ToFamily(type);
    end.port = port;
    // An IPv4 address keeps its other 12 bytes zero, so that both families can be read from any address.
    std::memcpy(end.bytes, ip.GetBytes(), end.family == platform::Family::IP4 ? 4 : sizeof(end.bytes));
    return end;
}

} // namespace kqlib
