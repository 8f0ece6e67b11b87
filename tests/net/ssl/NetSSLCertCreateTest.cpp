#include "net/ssl/NetSSLCertCreate.h"

#include "common/SettingsTransportSet.h"
#include "tests/peers/MovedClocks.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace {

using namespace kqlib;
using namespace kqlib::test;

constexpr SLONG8 DAY_MS = 86400000;
constexpr SLONG8 NOW_MS = 1700000000123;

std::vector<int> Codes(const NetSSLCertCreate& create)
{
    Messages messages;
    const bool passed = create.CheckErrors(messages);
    std::vector<int> codes;
    for (ULONG i = 0; i < messages.GetMessageCount(); ++i)
        codes.push_back(messages.Get(i));
    EXPECT_EQ(passed, codes.empty());
    return codes;
}

/// Passes every check.
NetSSLCertCreate Valid()
{
    NetSSLCertCreate create;
    create.SetName("files");
    create.SetCommonName("ftp.example.org");
    create.SetUnit("Unit");
    create.SetOrganization("Organization");
    create.SetEmail("someone@example.org");
    create.SetCity("City");
    create.SetState("State");
    create.SetCountry("DE");
    create.SetSeed(BinaryStore("random", 6));
    return create;
}

struct FIELD
{
    const char* name;
    int code;
    bool isName; ///< may not hold "@"
    void (NetSSLCertCreate::*set)(const String&);
    const String& (NetSSLCertCreate::*get)() const;
};

constexpr FIELD FIELDS[] = {
    {"name", 71, true, &NetSSLCertCreate::SetName, &NetSSLCertCreate::GetName},
    {"commonname", 72, true, &NetSSLCertCreate::SetCommonName, &NetSSLCertCreate::GetCommonName},
    {"email", 75, false, &NetSSLCertCreate::SetEmail, &NetSSLCertCreate::GetEmail},
    {"organization", 74, false, &NetSSLCertCreate::SetOrganization, &NetSSLCertCreate::GetOrganization},
    {"unit", 73, false, &NetSSLCertCreate::SetUnit, &NetSSLCertCreate::GetUnit},
    {"city", 76, false, &NetSSLCertCreate::SetCity, &NetSSLCertCreate::GetCity},
    {"state", 77, false, &NetSSLCertCreate::SetState, &NetSSLCertCreate::GetState},
    {"country", 78, false, &NetSSLCertCreate::SetCountry, &NetSSLCertCreate::GetCountry},
};

TEST(NetSSLCertCreate, CheckErrors_DefaultObject_CodesInOrderAndExpiryPasses)
{
    EXPECT_EQ(Codes(NetSSLCertCreate()), (std::vector<int>{71, 72, 75, 74, 73, 76, 77, 78, 80}));
}

TEST(NetSSLCertCreate, CheckErrors_EverythingWrong_OneCodePerFieldInOrder)
{
    NetSSLCertCreate create;
    for (const FIELD& field : FIELDS)
        (create.*field.set)("<>@");
    create.SetExpire(TimePos());
    create.SetSeed(BinaryStore(std::string(2001, 'x').data(), 2001));
    EXPECT_EQ(Codes(create), (std::vector<int>{71, 72, 75, 74, 73, 76, 77, 78, 79, 81}));
}

TEST(NetSSLCertCreate, CheckErrors_ValidObject_NoCode)
{
    EXPECT_EQ(Codes(Valid()), std::vector<int>{});
}

TEST(NetSSLCertCreate, CheckErrors_EachFieldWithEachForbiddenCharacter_CodeOfThatField)
{
    for (const FIELD& field : FIELDS) {
        NetSSLCertCreate create = Valid();
        (create.*field.set)("");
        EXPECT_EQ(Codes(create), std::vector<int>{field.code}) << field.name << " empty";
        for (const char character : std::string("<>~!#$%^*\\/?,&\r\n\t")) {
            create = Valid();
            // At either end of the text.
            (create.*field.set)(String("DE" + std::string(1, character)));
            EXPECT_EQ(Codes(create), std::vector<int>{field.code}) << field.name << " " << int{character};
            (create.*field.set)(String(std::string(1, character) + "DE"));
            EXPECT_EQ(Codes(create), std::vector<int>{field.code}) << field.name << " " << int{character};
        }
    }
}

TEST(NetSSLCertCreate, CheckErrors_AtSign_OnlyTheTwoNamesRefuseIt)
{
    for (const FIELD& field : FIELDS) {
        NetSSLCertCreate create = Valid();
        (create.*field.set)("a@b");
        const bool refused = field.isName || field.code == 78; // no country is called so
        EXPECT_EQ(Codes(create), refused ? std::vector<int>{field.code} : std::vector<int>{}) << field.name;
    }
}

TEST(NetSSLCertCreate, CheckErrors_OtherCharacters_Allowed)
{
    NetSSLCertCreate create = Valid();
    for (const FIELD& field : FIELDS)
        if (field.code != 78)
            (create.*field.set)("A b-c_d.e;f:g'h\"i(j)k+l=m|n`o{p}[q] \xC3\xBC\x01");
    EXPECT_EQ(Codes(create), std::vector<int>{});
}

TEST(NetSSLCertCreate, CheckErrors_CountryUnknown_78)
{
    NetSSLCertCreate create = Valid();
    for (const char* country : {"XX", "D", "DEU", "Germany", " DE", "DE "}) {
        create.SetCountry(country);
        EXPECT_EQ(Codes(create), std::vector<int>{78}) << country;
    }
    for (const char* country : {"US", "de", "Fr"}) {
        create.SetCountry(country);
        EXPECT_EQ(Codes(create), std::vector<int>{}) << country;
    }
}

TEST(NetSSLCertCreate, CheckErrors_SeedSizes_80And81)
{
    NetSSLCertCreate create = Valid();
    const std::string bytes(2001, '\0');
    const auto codesOf = [&](ULONG size) {
        create.SetSeed(BinaryStore(bytes.data(), size));
        return Codes(create);
    };
    EXPECT_EQ(codesOf(0), std::vector<int>{80});
    EXPECT_EQ(codesOf(1), std::vector<int>{});
    EXPECT_EQ(codesOf(2000), std::vector<int>{});
    EXPECT_EQ(codesOf(2001), std::vector<int>{81});
}

TEST(NetSSLCertCreate, CheckErrors_Expiry_LessThanAWholeDayAheadOrPast79)
{
    const MovedCalendar calendar(NOW_MS);
    const TimePos now = TimePos::sNow();
    NetSSLCertCreate create = Valid();
    const auto codesOf = [&](SLONG8 ahead) {
        create.SetExpire(TimePos(now.GetMilliSeconds() + ahead));
        return Codes(create);
    };
    const std::vector<int> refused{79};
    EXPECT_EQ(codesOf(0), refused);
    EXPECT_EQ(codesOf(DAY_MS - 1), refused);
    EXPECT_EQ(codesOf(DAY_MS), std::vector<int>{});
    EXPECT_EQ(codesOf(2 * DAY_MS), std::vector<int>{});
    EXPECT_EQ(codesOf(-1), refused);
    EXPECT_EQ(codesOf(-DAY_MS), refused);
    EXPECT_EQ(codesOf(-730 * DAY_MS), refused);
}

TEST(NetSSLCertCreate, CheckErrors_BitsOfAnyValue_NotChecked)
{
    NetSSLCertCreate create = Valid();
    for (const ULONG bits : {0UL, 511UL, 4294967295UL}) {
        create.SetBits(bits);
        EXPECT_EQ(create.GetBits(), bits);
        EXPECT_EQ(Codes(create), std::vector<int>{});
    }
}

TEST(NetSSLCertCreate, CheckWarnings_DefaultObject_NoCode)
{
    Messages messages;
    EXPECT_TRUE(NetSSLCertCreate().CheckWarnings(messages));
    EXPECT_EQ(messages.GetMessageCount(), 0U);
}

TEST(NetSSLCertCreate, Defaults_NewAndReset_EmptyTwoYears2048Bits)
{
    const MovedCalendar calendar(NOW_MS);
    NetSSLCertCreate used = Valid();
    used.SetBits(4096);
    used.SetExpire(TimePos(1));
    used.Reset();
    for (const NetSSLCertCreate& create : {NetSSLCertCreate(), used}) {
        for (const FIELD& field : FIELDS)
            EXPECT_TRUE((create.*field.get)().empty()) << field.name;
        EXPECT_EQ(create.GetExpire().GetMilliSeconds(), TimePos::sNow().GetMilliSeconds() + 730 * DAY_MS);
        EXPECT_EQ(create.GetBits(), 2048U);
        EXPECT_EQ(create.GetSeed().GetSize(), 0U);
    }
}

TEST(NetSSLCertCreate, Settings_WriteToAndReadFrom_SameValuesUnderTheirKeys)
{
    NetSSLCertCreate create = Valid();
    create.SetBits(4294967295UL);
    create.SetExpire(TimePos(1234567890123));
    SettingsTransportSet set;
    ASSERT_TRUE(create.WriteTo(set));
    std::vector<std::string> keys;
    for (ULONG i = 0; i < set.GetDataCount(); ++i)
        keys.push_back(set.GetDataKey(i).str());
    EXPECT_EQ(keys, (std::vector<std::string>{"name", "commonname", "unit", "organization", "email", "city", "state",
                                              "country", "expire", "bits", "seed"}));
    for (const FIELD& field : FIELDS) {
        String text;
        EXPECT_TRUE(set.GetString(field.name, text)) << field.name;
        EXPECT_EQ(text, (create.*field.get)()) << field.name;
    }
    TimePos expire;
    EXPECT_TRUE(set.GetTimePos("expire", expire));
    EXPECT_EQ(expire, create.GetExpire());
    ULONG bits = 0;
    EXPECT_TRUE(set.GetULONG("bits", bits));
    EXPECT_EQ(bits, 4294967295UL);
    BinaryStore seed;
    EXPECT_TRUE(set.GetBinaryStore("seed", seed));
    EXPECT_EQ(seed, create.GetSeed());

    NetSSLCertCreate read;
    EXPECT_TRUE(read.ReadFrom(set));
    EXPECT_TRUE(read == create);

    SettingsTransportSet file;
    ASSERT_TRUE(file.FromJson(set.ToJson()));
    NetSSLCertCreate readFromFile;
    EXPECT_TRUE(readFromFile.ReadFrom(file));
    EXPECT_TRUE(readFromFile == create);
}

TEST(NetSSLCertCreate, Settings_ReadFromEmptySet_NothingChanges)
{
    const NetSSLCertCreate create = Valid();
    NetSSLCertCreate read = create;
    EXPECT_TRUE(read.ReadFrom(SettingsTransportSet()));
    EXPECT_TRUE(read == create);
}

TEST(NetSSLCertCreate, IsSame_EachFieldChanged_False)
{
    const NetSSLCertCreate create = Valid();
    EXPECT_TRUE(create.IsSame(create));
    for (const FIELD& field : FIELDS) {
        NetSSLCertCreate other = create;
        (other.*field.set)((create.*field.get)() + "x");
        EXPECT_FALSE(create.IsSame(other)) << field.name;
    }
    NetSSLCertCreate other = create;
    other.SetExpire(TimePos(create.GetExpire().GetMilliSeconds() + 1));
    EXPECT_FALSE(create.IsSame(other));
    other = create;
    other.SetBits(2049);
    EXPECT_FALSE(create.IsSame(other));
    other = create;
    other.GetSeed().Append("x", 1);
    EXPECT_FALSE(create.IsSame(other));
}

/// Settings of another class.
class OtherSettings : public SettingsTransferable
{
public:
    void Reset() override {}
    SettingsTransferable* Spawn(bool) const override { return new OtherSettings; }
    bool IsSame(const SettingsTransferable&) const override { return true; }
};

TEST(NetSSLCertCreate, IsSame_ThroughTheBase_ClassAndValues)
{
    const NetSSLCertCreate create = Valid();
    const SettingsTransferable& base = create;
    EXPECT_TRUE(base.IsSame(NetSSLCertCreate(create)));
    EXPECT_FALSE(base.IsSame(NetSSLCertCreate()));
    EXPECT_FALSE(base.IsSame(OtherSettings()));
}

TEST(NetSSLCertCreate, Spawn_CopyOrNot_CopyOrDefaults)
{
    const MovedCalendar calendar(NOW_MS);
    const NetSSLCertCreate create = Valid();
    const std::unique_ptr<SettingsTransferable> copy(create.Spawn(true));
    const std::unique_ptr<SettingsTransferable> fresh(create.Spawn(false));
    EXPECT_TRUE(create.IsSame(*copy));
    EXPECT_TRUE(NetSSLCertCreate().IsSame(*fresh));
}

} // namespace
