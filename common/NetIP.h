// NetIP: an IP address value of exactly 20 bytes.
#pragma once

#include "common/String.h"

#include <cstdint>
#include <type_traits>

namespace kqlib {

/// An IPv4 or IPv6 address.
///
/// Trivially copyable and 20 bytes long, for it is copied byte for byte into stored records: 4 bytes type in the
/// machine's (little-endian) order, then 16 address bytes in network order, of which an IPv4 address uses the first 4
/// and keeps the others zero. A default-constructed address is IPv4 0.0.0.0.
///
/// Ownership: none. Threads: a plain value. Errors: Set reports by its result and leaves the object unchanged on
/// failure.
class KQCOMMON_API NetIP
{
public:
    /// The two kinds of address. Part of the stored form.
    enum IPTYPE : std::uint32_t
    {
        IP_4 = 0, ///< 4 address bytes
        IP_6 = 1  ///< 16 address bytes
    };

    /// Stored and handed on by sockets and resolvers; nothing depends on its value.
    enum IPLOOKUPMODE : std::uint32_t
    {
        LOOKUP_IP4 = 0, ///< IPv4 only
        LOOKUP_IP6 = 1, ///< IPv6 only
        LOOKUP_ANY = 2  ///< either
    };

    /// IPv4 0.0.0.0.
    static const NetIP ANY_IP4;

    /// IPv4 0.0.0.0.
    constexpr NetIP() noexcept = default;
    /// As Set(text); 0.0.0.0 when text is no address.
    explicit NetIP(const String& text);

    /// Reads "1.2.3.4" (exactly four decimal parts of one to three digits, 0 to 255) or an IPv6 address in the forms of
    /// RFC 4291 without a zone. No blanks, no port. False: not an address, object unchanged.
    bool Set(const String& text);
    /// bytes: 4 or 16 in network order, by type. False for another type or null, object unchanged.
    bool Set(IPTYPE type, const unsigned char* bytes);
    /// Back to IPv4 0.0.0.0.
    void Reset() noexcept;

    /// The type, and whether it is IPv4.
    ///@{
    IPTYPE GetType() const noexcept { return static_cast<IPTYPE>(m_type); }
    bool IsIP4() const noexcept { return m_type == IP_4; }
    ///@}
    /// 4 or 16 bytes in network order, valid as long as the object is.
    const unsigned char* GetBytes() const noexcept { return m_bytes; }
    /// Dotted text, or the form of RFC 5952.
    String GetText() const;
    /// The octets reversed and dotted, for reverse look-ups (IPv6: the nibbles).
    String GetTextReverseByteOrder() const;

    /// True when both addresses and the mask are of one type and the addresses are equal in the bits that mask has set;
    /// always true when no bit of mask is set, whatever the types.
    bool IsSame(const NetIP& other, const NetIP& mask) const noexcept;
    /// The any-address of a type (IPv4 for an unknown one).
    static NetIP sGetAnyIP(IPTYPE type);

    /// A total order: the type first, then the bytes.
    ///@{
    friend KQCOMMON_API bool operator==(const NetIP& left, const NetIP& right) noexcept;
    friend KQCOMMON_API bool operator<(const NetIP& left, const NetIP& right) noexcept;
    friend bool operator<=(const NetIP& left, const NetIP& right) noexcept { return !(right < left); }
    friend bool operator>(const NetIP& left, const NetIP& right) noexcept { return right < left; }
    friend bool operator>=(const NetIP& left, const NetIP& right) noexcept { return !(left < right); }
    ///@}

private:
    std::uint32_t m_type = IP_4;
    unsigned char m_bytes[16] = {};
};

static_assert(sizeof(NetIP) == 20, "stored records hold addresses of 20 bytes");
static_assert(std::is_trivially_copyable_v<NetIP>, "stored records copy addresses byte for byte");

} // namespace kqlib
