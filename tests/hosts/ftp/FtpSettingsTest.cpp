// Tests of the settings and their file.
#include "hosts/ftp/FtpSettings.h"

#include "common/SettingsTransportSet.h"
#include "hosts/ftp/FtpPassword.h"
#include "hosts/ftpcommon/FtpPaths.h"
#include "tests/peers/TempFolder.h"

#include <algorithm>
#include <fstream>
#include <gtest/gtest.h>
#include <memory>

namespace kqlib {
namespace {

const char* const GUEST = R"({"name": "guest", "home": "/srv/guest", "anonymous": true})";

String WithGuest(const char* more)
{
    return String("{\"users\": [") + GUEST + "]" + more + "}";
}

String ErrorOf(const String& json)
{
    FtpSettings settings;
    String error;
    EXPECT_FALSE(settings.ReadJson(json, error)) << json.c_str();
    EXPECT_TRUE(settings == FtpSettings()) << "a refused text must change nothing";
    return error;
}

TEST(FtpSettings, ReadJson_OnlyAnAccount_RestIsDefault)
{
    FtpSettings settings;
    String error;
    ASSERT_TRUE(settings.ReadJson(WithGuest(""), error)) << error.c_str();
    EXPECT_EQ(settings.GetListen(), "127.0.0.1:2121");
    EXPECT_EQ(settings.GetMaxSessions(), 200U);
    EXPECT_EQ(settings.GetIdleSecs(), 300U);
    EXPECT_EQ(settings.GetStallSecs(), 120U);
    EXPECT_EQ(settings.GetConnectSecs(), 30U);
    EXPECT_EQ(settings.GetLoginAttempts(), 3U);
    EXPECT_EQ(settings.GetBlockTimeMs(), 2U);
    EXPECT_TRUE(settings.GetRequireTLSFarewell());
    EXPECT_FALSE(settings.GetHiddenUploads());
    EXPECT_EQ(settings.GetLogRotateMB(), 100U);
    EXPECT_FALSE(settings.GetLogRotateDaily());
    EXPECT_EQ(settings.GetLogOldFiles(), 10U);
    EXPECT_EQ(settings.GetTransferLog(), "none");
    EXPECT_TRUE(settings.GetLogFolder().empty());
    ASSERT_EQ(settings.GetUsers().size(), 1U);
    EXPECT_EQ(settings.GetUsers()[0].GetRights(), "read");
}

TEST(FtpSettings, ReadJson_EveryKey_TakenOver)
{
    FtpSettings settings;
    String error;
    ASSERT_TRUE(settings.ReadJson(WithGuest(R"(, "listen": "127.0.0.1:21, 10.0.0.1:2121", "max_sessions": 7,
        "passive_ports": "50000-50010", "external_address": "1.2.3.4", "idle_timeout_secs": 11,
        "hidden_uploads": true, "stall_timeout_secs": 12, "connect_timeout_secs": 13, "login_attempts": 4, "block_time_ms": 100,
        "greeting": "Hello", "log_folder": "/var/log/x", "require_logs": true, "log_debug": true,
        "log_rotate_mb": 4095, "log_rotate_daily": true, "log_old_files": 3, "transfer_log": "json",
        "update_host": "updates.example", "update_port": 8080, "update_path": "/v.txt",
        "listen_tls": "127.0.0.1:990, 991", "offer_tls": true, "require_tls": true, "require_tls_farewell": false,
        "tls_certificate": "/etc/x.crt",
        "tls_key": "/etc/x.key", "state_folder": "/var/lib/x")"),
                                  error))
        << error.c_str();
    USHORT first = 0;
    USHORT last = 0;
    EXPECT_EQ(settings.GetListen(), "127.0.0.1:21, 10.0.0.1:2121");
    EXPECT_EQ(settings.GetMaxSessions(), 7U);
    EXPECT_TRUE(settings.GetPassiveRange(first, last));
    EXPECT_EQ(first, 50000);
    EXPECT_EQ(last, 50010);
    EXPECT_EQ(settings.GetExternalAddress(), "1.2.3.4");
    EXPECT_EQ(settings.GetIdleSecs(), 11U);
    EXPECT_EQ(settings.GetStallSecs(), 12U);
    EXPECT_TRUE(settings.GetHiddenUploads());
    EXPECT_EQ(settings.GetConnectSecs(), 13U);
    EXPECT_EQ(settings.GetLoginAttempts(), 4U);
    EXPECT_EQ(settings.GetBlockTimeMs(), 100U);
    EXPECT_EQ(settings.GetGreeting(), "Hello");
    EXPECT_EQ(settings.GetLogFolder().GetText(), "/var/log/x");
    EXPECT_TRUE(settings.GetRequireLogs());
    EXPECT_EQ(settings.GetLogRotateMB(), 4095U);
    EXPECT_TRUE(settings.GetLogRotateDaily());
    EXPECT_EQ(settings.GetLogOldFiles(), 3U);
    EXPECT_EQ(settings.GetTransferLog(), "json");
    EXPECT_TRUE(settings.GetLogDebug());
    EXPECT_EQ(settings.GetUpdateHost(), "updates.example");
    EXPECT_EQ(settings.GetUpdatePort(), 8080U);
    EXPECT_EQ(settings.GetUpdatePath(), "/v.txt");
    EXPECT_EQ(settings.GetListenTLS(), "127.0.0.1:990, 991");
    EXPECT_TRUE(settings.IsTLSPort(990));
    EXPECT_TRUE(settings.IsTLSPort(991));
    EXPECT_FALSE(settings.IsTLSPort(21));
    EXPECT_TRUE(settings.GetOfferTLS());
    EXPECT_TRUE(settings.GetRequireTLS());
    EXPECT_FALSE(settings.GetRequireTLSFarewell());
    EXPECT_EQ(settings.GetTLSCertificate().GetText(), "/etc/x.crt");
    EXPECT_EQ(settings.GetTLSKey().GetText(), "/etc/x.key");
    EXPECT_EQ(settings.GetStateFolder().GetText(), "/var/lib/x");
}

TEST(FtpSettings, IsTLSWanted_AnyKeyThatAsksForIt)
{
    EXPECT_FALSE(FtpSettings().IsTLSWanted());
    for (const char* more : {R"(, "offer_tls": true)", R"(, "require_tls": true)", R"(, "listen_tls": "990")",
                             R"(, "tls_certificate": "a", "tls_key": "b")"})
    {
        FtpSettings settings;
        String error;
        ASSERT_TRUE(settings.ReadJson(WithGuest(more), error)) << error.c_str();
        EXPECT_TRUE(settings.IsTLSWanted()) << more;
    }
}

TEST(FtpSettings, ReadJson_TLSKeysThatDoNotGoTogether_NamedInTheError)
{
    for (const char* ports : {"127.0.0.1:0", "990,0", "127.0.0.1:2121", "10.0.0.1:990,2121", "x:y"})
        EXPECT_TRUE(
            ErrorOf(WithGuest((std::string(", \"listen_tls\": \"") + ports + "\"").c_str())).StartsWith("listen_tls: "))
            << ports;
    EXPECT_TRUE(ErrorOf(WithGuest(R"(, "tls_key": "b")")).StartsWith("tls_certificate, tls_key: "));
    EXPECT_TRUE(ErrorOf(WithGuest(R"(, "tls_certificate": "b")")).StartsWith("tls_certificate, tls_key: "));
}

TEST(FtpSettings, ReadJson_UnknownKey_NamedInTheError)
{
    EXPECT_EQ(ErrorOf(WithGuest(", \"lisen\": \"x\"")), "lisen: is not a known key");
    EXPECT_EQ(ErrorOf(R"({"users": [{"name": "a", "hom": "/"}]})"), "users[0].hom: is not a known key (account \"a\")");
}

TEST(FtpSettings, ReadJson_SameKeyTwice_NamedInTheError)
{
    EXPECT_EQ(ErrorOf(WithGuest(R"(, "greeting": "a", "greeting": "b")")), "greeting: is there twice");
    EXPECT_EQ(ErrorOf(WithGuest(R"(, "users": [])")), "users: is there twice");
    EXPECT_EQ(ErrorOf(R"({"users": [{"name": "a", "home": "/", "anonymous": true},
                                    {"name": "b", "home": "/", "home": "/srv", "anonymous": true}]})"),
              "users[1].home: is there twice");
    EXPECT_EQ(ErrorOf(R"({"a\nb": 1, "a\nb": 2})"), "a?b: is there twice");
}

TEST(FtpSettings, ReadJson_ErrorInAnAccount_NamesIt)
{
    const auto with = [](const char* second) {
        return ErrorOf(String("{\"users\": [") + GUEST + ", " + second + "]}");
    };
    EXPECT_EQ(with(R"({"name": "bob", "home": "", "anonymous": true})"),
              "users[1].home: must name a folder (account \"bob\")");
    EXPECT_EQ(with(R"({"name": "bob", "home": "/b", "anonymous": true, "rights": "all"})"),
              "users[1].rights: only read, write, delete and admin are known (account \"bob\")");
    EXPECT_EQ(with(R"({"name": "bob", "home": "/b"})"),
              "users[1].password: missing, and the account is not anonymous (account \"bob\")");
    EXPECT_EQ(with(R"({"name": "guest", "home": "/b", "anonymous": true})"),
              "users: two accounts have the same name (account \"guest\")");
    EXPECT_EQ(with(R"({"home": "/b", "anonymous": true})"),
              "users[1].name: must be from 1 to 31 characters without control characters");
    EXPECT_EQ(with(R"({"name": "bob", "home": 1})"), "users[1].home: must be a text in quotes (account \"bob\")");
}

TEST(FtpSettings, ReadJson_WrongType_NamedInTheError)
{
    EXPECT_EQ(ErrorOf(WithGuest(", \"max_sessions\": \"7\"")),
              "max_sessions: must be a whole number from 0 to 4294967295");
    for (const char* number : {"-1", "1.5", "4294967296", "true", "null"})
        EXPECT_TRUE(ErrorOf(WithGuest((std::string(", \"max_sessions\": ") + number).c_str()))
                        .StartsWith("max_sessions: must be a whole number"))
            << number;
    EXPECT_EQ(ErrorOf(WithGuest(", \"listen\": 21")), "listen: must be a text in quotes");
    EXPECT_EQ(ErrorOf(WithGuest(", \"log_debug\": 1")), "log_debug: must be true or false");
    EXPECT_EQ(ErrorOf(R"({"users": {}})"), "users: must be a list, [ ... ]");
    EXPECT_EQ(ErrorOf(R"({"users": [1]})"), "users[0]: must be an object, { ... }");
    EXPECT_EQ(ErrorOf("[]"), "the file: must be an object, { ... }");
}

TEST(FtpSettings, ReadJson_NotJson_SaysSo)
{
    for (const char* text : {"", "{", "{\"listen\": }", "{} x", "nonsense"})
        EXPECT_TRUE(ErrorOf(text).StartsWith("not valid JSON: ")) << text;
}

TEST(FtpSettings, ReadJson_BadValues_NamedInTheError)
{
    const struct
    {
        const char* more;
        const char* key;
    } cases[] = {
        {R"(, "update_host": "a b")", "update_host: "},
        {R"(, "update_port": 0)", "update_port: "},
        {R"(, "update_port": 65536)", "update_port: "},
        {R"(, "update_path": "v.txt")", "update_path: "},
        {R"(, "update_path": "/v\r\nX: y")", "update_path: "},
        {", \"listen\": \"\"", "listen:"},
        {", \"listen\": \"127.0.0.1\"", "listen:"},
        {", \"listen\": \"127.0.0.1:\"", "listen:"},
        {", \"listen\": \":21\"", "listen:"},
        {", \"listen\": \"999.1.1.1:21\"", "listen:"},
        {", \"listen\": \"1.2.3:21\"", "listen:"},
        {", \"listen\": \"127.0.0.1:21, 1.2.3.4.5:21\"", "listen:"},
        {", \"listen\": \"a b:21\"", "listen:"},
        {", \"listen\": \"127.0.0.1:21x\"", "listen:"},
        {", \"listen\": \"127.0.0.1:21, 127.0.0.1:65536\"", "listen:"},
        {", \"max_sessions\": 0", "max_sessions:"},
        {", \"passive_ports\": \"5\"", "passive_ports:"},
        {", \"passive_ports\": \"6-5\"", "passive_ports:"},
        {", \"passive_ports\": \"0-5\"", "passive_ports:"},
        {", \"passive_ports\": \"1-65536\"", "passive_ports:"},
        {", \"passive_ports\": \"1-2x\"", "passive_ports:"},
        {", \"external_address\": \"host.example\"", "external_address:"},
        {", \"external_address\": \"::1\"", "external_address:"},
        {", \"log_rotate_mb\": 4096", "log_rotate_mb:"},
        {", \"log_old_files\": 1001", "log_old_files:"},
        {", \"refused_names\": \"*.exe\"", "refused_names: must be a list"},
        {", \"refused_names\": [\"a\", 1]", "refused_names[1]: must be a text"},
        {", \"refused_names\": [\"\"]", "refused_names: each must"},
        {", \"refused_names\": [\"a/b\"]", "refused_names: each must"},
        {", \"refused_names\": [\"a\\n\"]", "refused_names: each must"},
        {", \"max_sessions_per_user\": true", "max_sessions_per_user:"},
        {", \"transfer_log\": \"xferlog\"", "transfer_log:"},
        {", \"login_timeout_secs\": 0", "login_timeout_secs:"},
        {", \"login_timeout_secs\": 86401", "login_timeout_secs:"},
        {", \"reserved_sessions\": 1001", "reserved_sessions:"},
        {", \"reserved_addresses\": [\"+iprange=10.0.0.2-10.0.0.1\"]", "reserved_addresses:"},
        {", \"idle_timeout_secs\": 0", "idle_timeout_secs:"},
        {", \"idle_timeout_secs\": 86401", "idle_timeout_secs:"},
        {", \"stall_timeout_secs\": 0", "stall_timeout_secs:"},
        {", \"connect_timeout_secs\": 0", "connect_timeout_secs:"},
        {", \"login_attempts\": 0", "login_attempts:"},
        {", \"block_time_ms\": 0", "block_time_ms:"},
        {", \"block_time_ms\": 1001", "block_time_ms:"},
        {", \"greeting\": \"a\\r\\n220 b\"", "greeting:"},
        {", \"connection_rules\": \"+islocal\"", "connection_rules: must be a list"},
        {", \"connection_rules\": [\"+islocal\", \"ip=1.2.3.4\"]", "connection_rules[1]: is not a rule"},
        {", \"connection_rules\": [1]", "connection_rules[0]: is not a rule"},
        {", \"connection_rules\": [\"+iprange=1.2.3.4-1.2.3.3\"]", "connection_rules: a range"},
        {", \"hammer_exemptions\": [\"\"]", "hammer_exemptions[0]: is not a rule"},
        {", \"hammer_exemptions\": [\"-iprange=::1-1.2.3.3\"]", "hammer_exemptions: a range"},
        {", \"hammer_attempts\": -1", "hammer_attempts:"},
        {", \"max_sessions_per_address\": \"2\"", "max_sessions_per_address:"},
    };
    for (const auto& entry : cases)
        EXPECT_TRUE(ErrorOf(WithGuest(entry.more)).StartsWith(entry.key)) << entry.more;
}

TEST(FtpSettings, ReadJson_BadAccounts_NamedInTheError)
{
    const struct
    {
        const char* users;
        const char* start;
    } cases[] = {
        {"", "users: needs"},
        {R"({"name": "", "home": "/x", "anonymous": true})", "users[0].name:"},
        {R"({"name": "12345678901234567890123456789012", "home": "/x", "anonymous": true})", "users[0].name:"},
        {R"({"name": "a\u0001", "home": "/x", "anonymous": true})", "users[0].name:"},
        {R"({"name": "a", "anonymous": true})", "users[0].home:"},
        {R"({"name": "a", "home": "/x", "anonymous": true, "rights": "read,fly"})", "users[0].rights:"},
        {R"({"name": "a", "home": "/x"})", "users[0].password: missing"},
        {R"({"name": "a", "home": "/x", "password": "plain"})", "users[0].password: must"},
        {R"({"name": "a", "home": "/x", "anonymous": true}, {"name": "a", "home": "/y", "anonymous": true})",
         "users: two"},
    };
    for (const auto& entry : cases)
        EXPECT_TRUE(ErrorOf(String("{\"users\": [") + entry.users + "]}").StartsWith(entry.start)) << entry.users;
}

TEST(FtpSettings, ReadJson_SecondAccountWithoutRights_DoesNotInheritThoseOfTheFirst)
{
    FtpSettings settings;
    String error;
    ASSERT_TRUE(settings.ReadJson(R"({"users": [
        {"name": "a", "home": "/a", "anonymous": true, "rights": "read,write,delete,admin"},
        {"name": "b", "home": "/b", "anonymous": true}]})",
                                  error));
    EXPECT_EQ(settings.GetUsers()[0].GetRightBits(),
              FtpUserSettings::READ | FtpUserSettings::WRITE | FtpUserSettings::REMOVE | FtpUserSettings::ADMIN);
    EXPECT_EQ(settings.GetUsers()[1].GetRightBits(), static_cast<std::uint32_t>(FtpUserSettings::READ));
}

TEST(FtpSettings, ReadJson_LimitsOfAccountsAndNames_TakenOver)
{
    FtpSettings settings;
    EXPECT_EQ(settings.GetMaxSessionsPerUser(), 0U);
    EXPECT_TRUE(settings.GetRefusedNames().empty());
    EXPECT_EQ(FtpUserSettings().GetMaxSessions(), 0U);
    EXPECT_TRUE(FtpUserSettings().GetOverwrite());
    String error;
    ASSERT_TRUE(settings.ReadJson(R"({"max_sessions_per_user": 4, "refused_names": ["*.exe", "a b"], "users": [
        {"name": "a", "home": "/a", "anonymous": true, "max_sessions": 3, "overwrite": false},
        {"name": "b", "home": "/b", "anonymous": true}]})",
                                  error))
        << error.c_str();
    EXPECT_EQ(settings.GetMaxSessionsPerUser(), 4U);
    ASSERT_EQ(settings.GetRefusedNames().size(), 2U);
    EXPECT_EQ(settings.GetRefusedNames()[1], "a b");
    EXPECT_EQ(settings.GetUsers()[0].GetMaxSessions(), 3U);
    EXPECT_FALSE(settings.GetUsers()[0].GetOverwrite());
    EXPECT_EQ(settings.GetUsers()[1].GetMaxSessions(), 0U);
    EXPECT_TRUE(settings.GetUsers()[1].GetOverwrite());
    SettingsTransportSet set;
    ASSERT_TRUE(settings.WriteTo(set));
    FtpSettings copy;
    copy.SetRefusedNames(settings.GetRefusedNames()); // replaced, not appended to
    EXPECT_FALSE(copy == settings);
    ASSERT_TRUE(copy.ReadFrom(set));
    EXPECT_TRUE(copy == settings);
    FtpUserSettings user = settings.GetUsers()[0];
    user.SetOverwrite(true);
    EXPECT_FALSE(user == settings.GetUsers()[0]);
}

TEST(FtpSettings, ReadJson_AddressControl_TakenOver)
{
    FtpSettings settings;
    EXPECT_EQ(settings.GetHammerAttempts(), 5U);
    EXPECT_EQ(settings.GetHammerWindowSecs(), 300U);
    EXPECT_EQ(settings.GetHammerBlockSecs(), 1800U);
    EXPECT_EQ(settings.GetMaxSessionsPerAddress(), 20U);
    EXPECT_EQ(settings.GetReservedSessions(), 5U);
    EXPECT_EQ(settings.GetReservedAddresses().GetCount(), 0U);
    EXPECT_EQ(settings.GetLogInSecs(), 60U);
    String error;
    ASSERT_TRUE(settings.ReadJson(WithGuest(R"(, "connection_rules": ["+islocal", "-ipmask=0.0.0.0/0.0.0.0"],
        "hammer_attempts": 0, "hammer_window_secs": 60, "hammer_block_secs": 4294967295,
        "hammer_exemptions": ["+RHOST=*.lan"], "max_sessions_per_address": 3, "reserved_sessions": 6,
        "reserved_addresses": ["+ip=1.2.3.4"], "login_timeout_secs": 7)"),
                                  error))
        << error.c_str();
    ASSERT_EQ(settings.GetConnectionRules().GetCount(), 2U);
    EXPECT_EQ(settings.GetConnectionRules().Get(1).GetAsString(), "-ipmask=0.0.0.0/0.0.0.0");
    ASSERT_EQ(settings.GetHammerExemptions().GetCount(), 1U);
    EXPECT_EQ(settings.GetHammerExemptions().Get(0).GetAsString(), "+rhost=*.lan");
    EXPECT_EQ(settings.GetHammerAttempts(), 0U);
    EXPECT_EQ(settings.GetHammerWindowSecs(), 60U);
    EXPECT_EQ(settings.GetHammerBlockSecs(), 4294967295U);
    EXPECT_EQ(settings.GetMaxSessionsPerAddress(), 3U);
    EXPECT_EQ(settings.GetReservedSessions(), 6U);
    ASSERT_EQ(settings.GetReservedAddresses().GetCount(), 1U);
    EXPECT_EQ(settings.GetReservedAddresses().Get(0).GetAsString(), "+ip=1.2.3.4");
    EXPECT_EQ(settings.GetLogInSecs(), 7U);
    FtpSettings copy;
    SettingsTransportSet set;
    ASSERT_TRUE(settings.WriteTo(set));
    copy.SetConnectionRules(settings.GetHammerExemptions()); // replaced, not appended to
    ASSERT_TRUE(copy.ReadFrom(set));
    EXPECT_TRUE(copy == settings);
    copy.SetMaxSessionsPerAddress(4);
    EXPECT_FALSE(copy == settings);
}

TEST(FtpSettings, ReadFile_RelativeFolders_AreTakenFromTheFilesFolder)
{
    const test::TempFolder folder;
    const FilePath absolute = FromStdPath(folder.GetPath().root_path() / "b");
    std::string absoluteText = absolute.c_str();
    std::replace(absoluteText.begin(), absoluteText.end(), '\\', '/'); // a backslash means something else in JSON
    std::ofstream(folder / "ftp.json") << R"({"log_folder": "logs", "users": [
        {"name": "a", "home": "../a", "anonymous": true}, {"name": "b", "home": ")"
                                       << absoluteText << R"(", "anonymous": true}]})";
    FtpSettings settings;
    String error;
    ASSERT_TRUE(settings.ReadFile(FromStdPath(folder / "ftp.json"), error)) << error.c_str();
    EXPECT_EQ(settings.GetLogFolder(), FromStdPath(folder / "logs"));
    EXPECT_EQ(settings.GetUsers()[0].GetHome(), FromStdPath(folder.GetPath().parent_path() / "a"));
    EXPECT_EQ(settings.GetUsers()[1].GetHome(), absolute);
}

TEST(FtpSettings, ReadFile_Missing_SaysSo)
{
    FtpSettings settings;
    String error;
    EXPECT_FALSE(settings.ReadFile("/nowhere/ftp.json", error));
    EXPECT_EQ(error, "cannot be read");
}

TEST(FtpSettings, WriteToAndReadFrom_EveryField_Same)
{
    FtpSettings settings;
    String error;
    ASSERT_TRUE(settings.ReadJson(WithGuest(R"(, "listen": "1.2.3.4:5", "max_sessions": 4294967295,
        "greeting": "x", "log_debug": true, "block_time_ms": 9, "transfer_log": "standard", "require_tls_farewell": false)"),
                                  error));
    SettingsTransportSet set;
    ASSERT_TRUE(settings.WriteTo(set));
    FtpSettings read;
    EXPECT_FALSE(read == settings);
    ASSERT_TRUE(read.ReadFrom(set));
    EXPECT_TRUE(read == settings);
    const std::unique_ptr<FtpSettings> copy(settings.Spawn(true));
    EXPECT_TRUE(*copy == settings);
    const std::unique_ptr<FtpSettings> fresh(settings.Spawn(false));
    EXPECT_TRUE(*fresh == FtpSettings());
    copy->Reset();
    EXPECT_TRUE(*copy == FtpSettings());
}

} // namespace
} // namespace kqlib
