// NetSSLCertCreate: what a user enters to have a key, a certificate and a signing request made.
#pragma once

#include "common/BinaryStore.h"
#include "common/SettingsTransferable.h"
#include "common/String.h"
#include "common/TimePos.h"

#include <cstdint>

namespace kqlib {

/// The subject's name fields, the expiry, the key size and the user's random data. Fill it, ask CheckErrors, hand it
/// to NetSSLCertControl.
///
/// Settings keys in this order: "name", "commonname", "unit", "organization", "email", "city", "state", "country"
/// (String), "expire" (TimePos), "bits" (ULONG), "seed" (BinaryStore).
///
/// Ownership: a plain value. Threads: one at a time. Errors: setters refuse nothing; CheckErrors adds one code per
/// failing field, in the order 71 name, 72 common name, 75 e-mail, 74 organization, 73 unit, 76 city, 77 state,
/// 78 country, 79 expiry less than a whole day ahead, 80 seed empty, 81 seed over 2000 bytes.
class KQNET_API NetSSLCertCreate : public SettingsTransferable
{
public:
    /// What CheckErrors adds, one code per field.
    enum MESSAGE : int
    {
        MSG_NAME = 71,         ///< empty, or with a character that it must not hold (GetCommonName)
        MSG_COMMON_NAME = 72,  ///< likewise
        MSG_UNIT = 73,         ///< likewise
        MSG_ORGANIZATION = 74, ///< likewise
        MSG_EMAIL = 75,        ///< likewise
        MSG_CITY = 76,         ///< likewise
        MSG_STATE = 77,        ///< likewise
        MSG_COUNTRY = 78,      ///< likewise, or no code of ISO 3166-1
        MSG_EXPIRE = 79,       ///< past, or less than a whole day ahead
        MSG_SEED_EMPTY = 80,   ///< no random data
        MSG_SEED_TOO_LONG = 81 ///< more than 2000 bytes
    };

    /// Texts and seed empty, expiry 730 days from now, 2048 bits.
    NetSSLCertCreate();
    NetSSLCertCreate(const NetSSLCertCreate&) = default;
    NetSSLCertCreate& operator=(const NetSSLCertCreate&) = default;

    void Reset() override;
    [[nodiscard]] SettingsTransferable* Spawn(bool copy) const override;

    /// A name for the set of files; it goes into no certificate.
    ///@{
    const String& GetName() const { return m_name; }
    void SetName(const String& name) { m_name = name; }
    ///@}
    /// CN, the host name that clients ask for. CheckErrors refuses a text field that is empty or holds a CR, LF, TAB or
    /// any of `<>~!#$%^*\/?,&`, this one and the name also with an "@"; at most 99 characters go into a certificate.
    ///@{
    const String& GetCommonName() const { return m_commonName; }
    void SetCommonName(const String& name) { m_commonName = name; }
    ///@}
    /// OU, O, emailAddress, L and ST of the subject, in this order.
    ///@{
    const String& GetUnit() const { return m_unit; }
    void SetUnit(const String& unit) { m_unit = unit; }
    const String& GetOrganization() const { return m_organization; }
    void SetOrganization(const String& organization) { m_organization = organization; }
    const String& GetEmail() const { return m_email; }
    void SetEmail(const String& email) { m_email = email; }
    const String& GetCity() const { return m_city; }
    void SetCity(const String& city) { m_city = city; }
    const String& GetState() const { return m_state; }
    void SetState(const String& state) { m_state = state; }
    ///@}
    /// C of the subject: two-letter code of ISO 3166-1.
    ///@{
    const String& GetCountry() const { return m_country; }
    void SetCountry(const String& country) { m_country = country; }
    ///@}
    /// When the certificate becomes invalid. Its distance from now counts when the certificate is made, in signed
    /// 32-bit seconds: about 68 years. One further away is refused then.
    ///@{
    const TimePos& GetExpire() const { return m_expire; }
    void SetExpire(const TimePos& expire) { m_expire = expire; }
    ///@}
    /// RSA key size in bits; the low 32 bits of the number count.
    ///@{
    ULONG GetBits() const { return m_bits; }
    void SetBits(ULONG bits) { m_bits = static_cast<std::uint32_t>(bits); }
    ///@}
    /// The user's random data, 1 to 2000 bytes.
    ///@{
    const BinaryStore& GetSeed() const { return m_seed; }
    BinaryStore& GetSeed() { return m_seed; }
    void SetSeed(const BinaryStore& seed) { m_seed = seed; }
    ///@}

    bool IsSame(const SettingsTransferable& other) const override;
    /// All eleven fields are equal.
    ///@{
    bool IsSame(const NetSSLCertCreate& other) const;
    friend bool operator==(const NetSSLCertCreate& left, const NetSSLCertCreate& right) { return left.IsSame(right); }
    ///@}

protected:
    /// What Reset does, without a virtual call.
    void xReset();
    bool xWriteTo(SettingsTransportSet& set) const override;
    bool xReadFrom(const SettingsTransportSet& set) override;
    void xCheckErrors(Messages& messages) const override;

private:
    String m_name;
    String m_commonName;
    String m_unit;
    String m_organization;
    String m_email;
    String m_city;
    String m_state;
    String m_country;
    TimePos m_expire;
    std::uint32_t m_bits = 0;
    BinaryStore m_seed;
};

} // namespace kqlib
