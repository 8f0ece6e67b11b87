// Tests of passwords and accounts.
#include "hosts/ftp/FtpUsers.h"
#include "hosts/ftp/FtpPassword.h"

#include <atomic>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace kqlib {
namespace {

bool GoOn()
{
    return true;
}

FtpUserSettings MakeUser(const char* name, const String& password)
{
    FtpUserSettings user;
    user.SetName(name);
    user.SetHome("/somewhere");
    user.SetPassword(password);
    return user;
}

TEST(FtpPassword, HashThenVerify_OnlyTheSamePassword)
{
    const String stored = FtpPassword::sHash("p\xC3\xA4ss word");
    EXPECT_TRUE(stored.StartsWith("scrypt$16384$8$1$"));
    EXPECT_TRUE(FtpPassword::sIsWellFormed(stored));
    EXPECT_TRUE(FtpPassword::sVerify("p\xC3\xA4ss word", stored));
    EXPECT_FALSE(FtpPassword::sVerify("p\xC3\xA4ss", stored));
    EXPECT_FALSE(FtpPassword::sVerify("", stored));
}

TEST(FtpPassword, HashTwice_DifferentSalts)
{
    EXPECT_FALSE(FtpPassword::sHash("same") == FtpPassword::sHash("same"));
}

TEST(FtpPassword, Verify_KnownHashOfTheRFC_Fits)
{
    // RFC 7914, section 12: password "pleaseletmein", salt "SodiumChloride", N 16384, r 8, p 1 (its first 32 bytes).
    EXPECT_TRUE(FtpPassword::sVerify("pleaseletmein",
                                     "scrypt$16384$8$1$536F6469756D43686C6F72696465$"
                                     "7023bdcb3afd7348461c06cd81fd38ebfda8fbba904f8e3ea9b543f6545da1f2"));
}

TEST(FtpPassword, Verify_MalformedStoredForms_Refused)
{
    const String good = FtpPassword::sHash("x");
    const String tail = good.substr(good.find("$1$") + 3);
    const std::vector<String> stored = {"",
                                        "x",
                                        "scrypt",
                                        "scrypt$16384$8$1$" + tail + "00",
                                        "scrypt$16383$8$1$" + tail,
                                        "scrypt$0$8$1$" + tail,
                                        "scrypt$2097152$8$1$" + tail,
                                        "scrypt$16384$33$1$" + tail,
                                        "scrypt$16384$8$0$" + tail,
                                        "scrypt$16384$8$17$" + tail,
                                        "scrypt$99999999999$8$1$" + tail,
                                        "other$16384$8$1$" + tail,
                                        good + "$",
                                        good.substr(0, good.size() - 1),
                                        "scrypt$16384$8$1$zz" + tail};
    for (const String& text : stored) {
        EXPECT_FALSE(FtpPassword::sIsWellFormed(text)) << text.c_str();
        EXPECT_FALSE(FtpPassword::sVerify("x", text)) << text.c_str();
    }
}

TEST(FtpUsers, LogIn_RightWrongAndUnknown)
{
    const FtpUsers users({MakeUser("bob", FtpPassword::sHash("right"))});
    const FtpUserSettings* user = users.LogIn("bob", "right", GoOn);
    ASSERT_NE(user, nullptr);
    EXPECT_EQ(user->GetName(), "bob");
    EXPECT_EQ(users.LogIn("bob", "wrong", GoOn), nullptr);
    EXPECT_EQ(users.LogIn("bob", "", GoOn), nullptr);
    EXPECT_EQ(users.LogIn("BOB", "right", GoOn), nullptr);
    EXPECT_EQ(users.LogIn("nobody", "right", GoOn), nullptr);
}

TEST(FtpUsers, LogIn_Anonymous_TakesAnyPassword)
{
    FtpUserSettings guest = MakeUser("anonymous", String());
    guest.SetIsAnonymous(true);
    const FtpUsers users({guest});
    EXPECT_TRUE(users.IsAnonymous("anonymous"));
    EXPECT_FALSE(users.IsAnonymous("somebody"));
    EXPECT_NE(users.LogIn("anonymous", "me@example.com", GoOn), nullptr);
    EXPECT_NE(users.LogIn("anonymous", "", GoOn), nullptr);
    EXPECT_EQ(users.LogIn("somebody", "", GoOn), nullptr);
}

TEST(FtpUsers, LogIn_UnknownName_CostsAsMuchAsAWrongPassword)
{
    const FtpUsers users({MakeUser("bob", FtpPassword::sHash("right"))});
    const auto seconds = [&users](const char* name) {
        const auto start = std::chrono::steady_clock::now();
        for (int i = 0; i < 5; ++i)
            EXPECT_EQ(users.LogIn(name, "wrong", GoOn), nullptr);
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    };
    seconds("bob");
    const double known = seconds("bob");
    const double unknown = seconds("nobody");
    EXPECT_GT(unknown, known / 4); // an answer without a check would take a thousandth
}

TEST(FtpUsers, LogIn_ManyAtOnce_AllAnswered)
{
    const FtpUsers users({MakeUser("bob", FtpPassword::sHash("right"))});
    std::atomic<int> good{0};
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < 3 * FtpUsers::MAX_CHECKS; ++i)
        threads.emplace_back([&] { good += users.LogIn("bob", "right", GoOn) != nullptr ? 1 : 0; });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(good, static_cast<int>(3 * FtpUsers::MAX_CHECKS));
}

} // namespace
} // namespace kqlib
