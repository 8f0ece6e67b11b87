// NetIPControlIndex: finds the first rule of a list that matches an address, however long the list is. Inside the library
// only.
#pragma once

#include "common/NetIP.h"
#include "net/ipcontrol/NetIPControlLine.h"

#include <compare>
#include <cstdint>
#include <vector>

namespace kqlib {

class NetIPControl;
class NetIPControlEntry;

/// The rules of a list by what they match. The walk of the list is what it must equal: of all rules that match, the
/// first decides, and a rule with a name is asked only when no rule before it matches.
///
/// Ownership: keeps places in the list, not rules. Threads: any; it never changes. Errors: std::bad_alloc from the
/// constructor.
class NetIPControlIndex
{
public:
    /// No rule.
    static constexpr std::uint32_t NONE = 0xFFFFFFFFU;

    /// Of the rules as they are now.
    explicit NetIPControlIndex(const NetIPControl& rules);
    NetIPControlIndex(const NetIPControlIndex&) = delete;
    NetIPControlIndex& operator=(const NetIPControlIndex&) = delete;

    /// Whether the index knows addresses like this one. It does not when the type is none of NetIP's, or when an IPv4
    /// address has bytes behind its fourth; such addresses come from damaged records only.
    static bool sKnows(const NetIP& ip);
    /// The first of the rules that need nothing but addresses, or NONE. The index must know the peer.
    std::uint32_t FindFirst(const NetIP& local, const NetIP& peer) const;
    /// The sign of a rule, kept here so that the rule itself need not be read.
    bool IsAllowing(std::uint32_t place) const { return m_isAllowing[place]; }
    /// The rules that have to be asked one by one, ascending: those for names and mail addresses, and those with
    /// addresses that the index does not know.
    const std::vector<std::uint32_t>& GetAsked() const { return m_asked; }

private:
    /// The 16 bytes of an IPv6 address as a number.
    struct IP6KEY
    {
        std::uint64_t high = 0;
        std::uint64_t low = 0;

        IP6KEY operator~() const { return {~high, ~low}; }
        IP6KEY operator&(const IP6KEY& other) const { return {high & other.high, low & other.low}; }
        IP6KEY operator|(const IP6KEY& other) const { return {high | other.high, low | other.low}; }
        IP6KEY operator+(unsigned number) const { return {high + (low + number < low ? 1 : 0), low + number}; }
        friend auto operator<=>(const IP6KEY&, const IP6KEY&) = default;
    };
    using IP4LINE = NetIPControlLine<std::uint32_t>;
    using IP6LINE = NetIPControlLine<IP6KEY>;
    struct BUILDERS
    {
        IP4LINE::BUILDER ip4;
        IP6LINE::BUILDER ip6;
    };

    static std::uint64_t xsNumber(const unsigned char* bytes, int count);
    static std::uint32_t xsKey4(const NetIP& ip);
    static IP6KEY xsKey6(const NetIP& ip);
    static bool xsAddAddresses(BUILDERS& builders, const NetIPControlEntry& rule, std::uint32_t place);
    static void xsAddRange(BUILDERS& builders, const NetIP& low, const NetIP& high, std::uint32_t place);
    static void xsAddMask(BUILDERS& builders, const NetIP& ip, const NetIP& mask, std::uint32_t place);
    void xAdd(BUILDERS& builders, const NetIPControlEntry& rule, std::uint32_t place);

    IP4LINE m_ip4;
    IP6LINE m_ip6;
    std::uint32_t m_local = NONE; ///< the first rule for local peers
    std::vector<std::uint32_t> m_asked;
    std::vector<bool> m_isAllowing; ///< of each rule
};

} // namespace kqlib
