// NumberedAddress: as many addresses as a test wants.
#pragma once

#include "common/NetIP.h"

#include <cstdint>

namespace kqlib::test {

/// The IPv4 address that this number is.
inline NetIP NumberedAddress(std::uint32_t number)
{
    const unsigned char bytes[] = {static_cast<unsigned char>(number >> 24), static_cast<unsigned char>(number >> 16),
                                   static_cast<unsigned char>(number >> 8), static_cast<unsigned char>(number)};
    NetIP ip;
    ip.Set(NetIP::IP_4, bytes);
    return ip;
}

} // namespace kqlib::test
