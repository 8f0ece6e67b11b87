// NetIPControlEntry: one allow or deny rule of an address rule list.
#pragma once

#include "common/NetIP.h"
#include "common/SettingsTransferable.h"

#include <cstdint>

namespace kqlib {

/// One rule: a sign that allows or denies, and what it matches: an address, an address and mask, a range, a host name,
/// a pattern for the name that a reverse look-up of the peer gives, "the peer is the server's own address", or a
/// pattern for mail senders or recipients. How rules decide is NetIPControlQuery's.
///
/// The text form ("+ip=192.168.0.1", "-ipmask=10.0.0.0/255.0.0.0", "+iprange=10.0.0.1-10.0.0.99", "-host=mailhost",
/// "+rhost=*.lan", "+islocal", "-sender=*@lan", "+rcpt=postmaster@*") is what rule lists store. The display text is
/// for people. By itself an entry writes its display text as settings but reads the text form, so that what it wrote
/// does not read back; kept on purpose: rules are stored by their list.
///
/// Ownership: a plain value. Threads: one at a time. Errors: SetByString answers false; CheckErrors adds 84 to 88.
class KQNET_API NetIPControlEntry : public SettingsTransferable
{
public:
    /// What a rule matches: the keyword of its text form, and the fields that it uses.
    enum ENTRYTYPE : std::uint32_t
    {
        ET_IP = 0,      ///< "ip": IP
        ET_IPMASK = 1,  ///< "ipmask": IP under the mask IPHigh
        ET_IPRANGE = 2, ///< "iprange": IP to IPHigh, both inclusive
        ET_HOST = 3,    ///< "host": a name that is looked up
        ET_RHOST = 4,   ///< "rhost": a pattern for the peer's reverse name
        ET_ISLOCAL = 5, ///< "islocal": the peer is the local address
        ET_SENDER = 6,  ///< "sender": a pattern for the mail sender
        ET_RCPT = 7     ///< "rcpt": a pattern for the mail recipients
    };

    /// Message codes of CheckErrors. Their texts belong to the host.
    enum MESSAGE : int
    {
        MSG_RANGE_UPSIDE_DOWN = 84,   ///< the low end is above the high end
        MSG_HOST_EMPTY = 85,          ///< no text in a host rule
        MSG_REVERSE_HOST_EMPTY = 86,  ///< no text in a reverse-host rule
        MSG_SENDER_IS_ADDRESS = 87,   ///< complete where a pattern is expected
        MSG_RECIPIENT_IS_ADDRESS = 88 ///< likewise
    };

    /// Allows; ET_IP; IP 0.0.0.0; IPHigh 255.255.255.255; no text.
    NetIPControlEntry();
    NetIPControlEntry(const NetIPControlEntry&) = default;
    NetIPControlEntry& operator=(const NetIPControlEntry&) = default;

    void Reset() override;
    [[nodiscard]] SettingsTransferable* Spawn(bool copy) const override;

    // --- the fields: each call reads or writes one and never touches another

    /// The sign: true allows what the rule matches, false denies it.
    ///@{
    bool GetAllow() const { return m_allow; }
    void SetAllow(bool allow) { m_allow = allow; }
    ///@}
    /// Changing it leaves the other fields as they are.
    ///@{
    ENTRYTYPE GetType() const { return m_type; }
    void SetType(ENTRYTYPE type) { m_type = type; }
    ///@}
    /// The address, or the network address of a mask rule.
    ///@{
    const NetIP& GetIP() const { return m_ip; }
    void SetIP(const NetIP& ip) { m_ip = ip; }
    ///@}
    /// The same field as the low end of a range.
    ///@{
    const NetIP& GetIPLow() const { return m_ip; }
    void SetIPLow(const NetIP& ip) { m_ip = ip; }
    ///@}
    /// The high end of a range.
    ///@{
    const NetIP& GetIPHigh() const { return m_ipHigh; }
    void SetIPHigh(const NetIP& ip) { m_ipHigh = ip; }
    ///@}
    /// The same field as the mask.
    ///@{
    const NetIP& GetSubnetMask() const { return m_ipHigh; }
    void SetSubnetMask(const NetIP& mask) { m_ipHigh = mask; }
    ///@}
    /// Host name or host name pattern.
    ///@{
    const String& GetHost() const { return m_text; }
    void SetHost(const String& host) { m_text = host; }
    ///@}
    /// The same field as the mail address pattern.
    ///@{
    const String& GetAddress() const { return m_text; }
    void SetAddress(const String& address) { m_text = address; }
    ///@}

    /// Make this the rule that matches every address: ET_IPMASK with no bit of the mask set.
    ///@{
    void SetAllowAll();
    void SetDenyAll();
    ///@}

    /// Reads the text form; keywords in any case, no blank skipped anywhere. False: not a rule. The entry is then in
    /// its default state, but for the sign if there was one, and for the first address of a mask or range whose second
    /// part does not parse.
    bool SetByString(const String& text);
    /// The text form, as SetByString reads it: the sign alone for a type out of range.
    String GetAsString() const;
    /// The sign and a description in English, as "+10.0.0.1 -> 10.0.0.99" or "-Host = mailhost".
    String GetDisplayText() const;

    bool IsSame(const SettingsTransferable& other) const override;
    /// All five fields equal, the text by case.
    ///@{
    bool IsSame(const NetIPControlEntry& other) const;
    friend bool operator==(const NetIPControlEntry& left, const NetIPControlEntry& right)
    {
        return left.IsSame(static_cast<const SettingsTransferable&>(right));
    }
    ///@}

protected:
    /// "entry": the display text.
    bool xWriteTo(SettingsTransportSet& set) const override;
    /// "entry": the text form. One that does not parse is no failure and leaves what SetByString leaves.
    bool xReadFrom(const SettingsTransportSet& set) override;
    /// 84: range upside down. 85, 86: empty host text. 87, 88: sender or recipient text is a complete mail address (a
    /// pattern is expected; kept on purpose).
    void xCheckErrors(Messages& messages) const override;

private:
    void xReset();
    bool xSetAddressPair(const String& value, char separator, ENTRYTYPE type);

    bool m_allow = true;
    ENTRYTYPE m_type = ET_IP;
    NetIP m_ip;
    NetIP m_ipHigh;
    String m_text;
};

} // namespace kqlib
