// FtpSettings: what kqftpd can be told, and its file.
#include "hosts/ftp/FtpSettings.h"

#include "common/FileAccess.h"
#include "common/NetIP.h"
#include "common/STRINGS.h"
#include "common/SettingsTransportSet.h"
#include "hosts/ftp/FtpPassword.h"
#include "hosts/ftp/FtpRefusedNames.h"
#include "hosts/ftp/FtpTransferLog.h"
#include "hosts/ftpcommon/FtpPaths.h"
#include "hosts/ftpcommon/FtpText.h"
#include "net/ports/NetPortBinds.h"

#include <algorithm>
#include <filesystem>
#include <functional>
#include <nlohmann/json.hpp>
#include <set>
#include <string>

namespace kqlib {

namespace {

using JSON = nlohmann::json;

constexpr ULONG MAX_SECS = 86400;
constexpr ULONG MAX_RESERVED = 1000;
constexpr ULONG MAX_LOG_MB = 4095; // what 32 bits hold as bytes
constexpr ULONG MAX_OLD_LOGS = 1000;
constexpr ULONG MAX_BLOCK_TIME_MS = 1000;
constexpr ULONG MAX_SETTINGS_BYTES = 16U * 1024 * 1024;
constexpr ULONG8 MAX_NUMBER = ALL_BITS_32;

/// The codes of CheckErrors, each with its sentence.
enum CODE : int
{
    BAD_LISTEN = 300,
    BAD_MAX_SESSIONS,
    BAD_PASSIVE_PORTS,
    BAD_EXTERNAL_ADDRESS,
    BAD_IDLE,
    BAD_STALL,
    BAD_CONNECT,
    BAD_ATTEMPTS,
    BAD_BLOCK_TIME,
    BAD_GREETING,
    NO_USERS,
    SAME_NAME,
    BAD_CONNECTION_RULE,
    BAD_HAMMER_EXEMPTION,
    BAD_UPDATE_HOST,
    BAD_UPDATE_PORT,
    BAD_UPDATE_PATH,
    BAD_LISTEN_TLS,
    HALF_KEY_PAIR,
    BAD_USER_NAME = 320,
    NO_HOME,
    BAD_RIGHTS,
    BAD_PASSWORD,
    NO_PASSWORD,
    // From 330: of the server again.
    BAD_LOG_IN_SECS = 330,
    BAD_RESERVED_SESSIONS,
    BAD_RESERVED_ADDRESSES,
    BAD_LOG_ROTATE_MB,
    BAD_LOG_OLD_FILES,
    BAD_TRANSFER_LOG,
    BAD_REFUSED_NAME
};

struct CODE_TEXT
{
    int code;
    const char* text;
};

constexpr CODE_TEXT CODE_TEXTS[] = {
    {BAD_LISTEN, "listen: must be \"address:port\", more of them with \",\" between"},
    {BAD_MAX_SESSIONS, "max_sessions: must be at least 1"},
    {BAD_PASSIVE_PORTS, "passive_ports: must be empty or \"first-last\", ports from 1 to 65535"},
    {BAD_EXTERNAL_ADDRESS, "external_address: must be empty or an IPv4 address"},
    {BAD_LOG_IN_SECS, "login_timeout_secs: must be from 1 to 86400"},
    {BAD_RESERVED_SESSIONS, "reserved_sessions: must be from 0 to 1000"},
    {BAD_RESERVED_ADDRESSES, "reserved_addresses: a range begins behind its end, or a host name is empty"},
    {BAD_LOG_ROTATE_MB, "log_rotate_mb: must be from 0 to 4095"},
    {BAD_LOG_OLD_FILES, "log_old_files: must be from 0 to 1000"},
    {BAD_TRANSFER_LOG, "transfer_log: must be \"none\", \"standard\" or \"json\""},
    {BAD_REFUSED_NAME, "refused_names: each must be a pattern for a name, without \"/\" and control characters"},
    {BAD_IDLE, "idle_timeout_secs: must be from 1 to 86400"},
    {BAD_STALL, "stall_timeout_secs: must be from 1 to 86400"},
    {BAD_CONNECT, "connect_timeout_secs: must be from 1 to 86400"},
    {BAD_ATTEMPTS, "login_attempts: must be at least 1"},
    {BAD_BLOCK_TIME, "block_time_ms: must be from 1 to 1000"},
    {BAD_GREETING, "greeting: must be one line"},
    {NO_USERS, "users: needs at least one account"},
    {SAME_NAME, "users: two accounts have the same name"},
    {BAD_CONNECTION_RULE, "connection_rules: a range begins behind its end, or a host name is empty"},
    {BAD_HAMMER_EXEMPTION, "hammer_exemptions: a range begins behind its end, or a host name is empty"},
    {BAD_UPDATE_HOST, "update_host: must be a host name or an address, without blanks"},
    {BAD_UPDATE_PORT, "update_port: must be from 1 to 65535"},
    {BAD_UPDATE_PATH, "update_path: must begin with \"/\", without blanks"},
    {BAD_LISTEN_TLS, "listen_tls: must be \"address:port\", with ports that are neither 0 nor in \"listen\""},
    {HALF_KEY_PAIR, "tls_certificate, tls_key: one of them is missing"},
    {BAD_USER_NAME, "users.name: must be from 1 to 31 characters without control characters"},
    {NO_HOME, "users.home: must name a folder"},
    {BAD_RIGHTS, "users.rights: only read, write, delete and admin are known"},
    {BAD_PASSWORD, "users.password: must be what kqftpd --hash-password prints"},
    {NO_PASSWORD, "users.password: missing, and the account is not anonymous"},
};

enum class FORM
{
    NUMBER,
    TEXT,
    FLAG,
    RULES,
    TEXTS,
    USERS
};

struct KEY
{
    const char* name;
    FORM form;
};

constexpr KEY SERVER_KEYS[] = {
    {"listen", FORM::TEXT},
    {"listen_tls", FORM::TEXT},
    {"offer_tls", FORM::FLAG},
    {"require_tls", FORM::FLAG},
    {"require_tls_farewell", FORM::FLAG},
    {"tls_certificate", FORM::TEXT},
    {"tls_key", FORM::TEXT},
    {"state_folder", FORM::TEXT},
    {"max_sessions", FORM::NUMBER},
    {"reserved_sessions", FORM::NUMBER},
    {"reserved_addresses", FORM::RULES},
    {"passive_ports", FORM::TEXT},
    {"external_address", FORM::TEXT},
    {"login_timeout_secs", FORM::NUMBER},
    {"idle_timeout_secs", FORM::NUMBER},
    {"stall_timeout_secs", FORM::NUMBER},
    {"connect_timeout_secs", FORM::NUMBER},
    {"hidden_uploads", FORM::FLAG},
    {"login_attempts", FORM::NUMBER},
    {"block_time_ms", FORM::NUMBER},
    {"greeting", FORM::TEXT},
    {"log_folder", FORM::TEXT},
    {"require_logs", FORM::FLAG},
    {"log_rotate_mb", FORM::NUMBER},
    {"log_rotate_daily", FORM::FLAG},
    {"log_old_files", FORM::NUMBER},
    {"transfer_log", FORM::TEXT},
    {"log_debug", FORM::FLAG},
    {"connection_rules", FORM::RULES},
    {"hammer_attempts", FORM::NUMBER},
    {"hammer_window_secs", FORM::NUMBER},
    {"hammer_block_secs", FORM::NUMBER},
    {"hammer_exemptions", FORM::RULES},
    {"max_sessions_per_address", FORM::NUMBER},
    {"max_sessions_per_user", FORM::NUMBER},
    {"refused_names", FORM::TEXTS},
    {"update_host", FORM::TEXT},
    {"update_port", FORM::NUMBER},
    {"update_path", FORM::TEXT},
    {"users", FORM::USERS},
};

constexpr KEY USER_KEYS[] = {
    {"name", FORM::TEXT},      {"password", FORM::TEXT},       {"home", FORM::TEXT},      {"rights", FORM::TEXT},
    {"anonymous", FORM::FLAG}, {"max_sessions", FORM::NUMBER}, {"overwrite", FORM::FLAG},
};

/// What an error in an account ends with.
String NameAccount(const String& name)
{
    return name.empty() ? String() : " (account \"" + MakeVisible(name) + "\")";
}

String NameAccount(const JSON& user)
{
    const auto name = user.is_object() ? user.find("name") : user.end();
    return user.is_object() && name != user.end() && name->is_string() ? NameAccount(String(name->get<std::string>()))
                                                                       : String();
}

/// Finds a key that stands twice in one object, of which the later one would silently win. Handed to the JSON reader,
/// which calls it for each thing that it has read.
class TwinFinder
{
public:
    bool operator()(int, JSON::parse_event_t event, JSON& value)
    {
        using EVENT = JSON::parse_event_t;
        if (event == EVENT::object_start || event == EVENT::array_start)
            xEnter(event == EVENT::array_start);
        else if (event == EVENT::object_end || event == EVENT::array_end)
            m_levels.pop_back();
        else if (event == EVENT::key)
            xNoteKey(value.get<std::string>());
        return true;
    }
    /// "users[1].home" and the like; empty: none.
    const String& GetTwin() const { return m_twin; }

private:
    struct LEVEL
    {
        bool isList;
        ULONG8 count = 0; // objects and lists in a list so far
        std::string key;  // the last one
        std::set<std::string> keys;
    };

    void xEnter(bool isList)
    {
        if (!m_levels.empty())
            ++m_levels.back().count;
        m_levels.push_back({isList, 0, {}, {}});
    }
    void xNoteKey(const std::string& key)
    {
        m_levels.back().key = key;
        if (m_levels.back().keys.insert(key).second || !m_twin.empty())
            return;
        for (const LEVEL& level : m_levels)
            m_twin += level.isList ? "[" + String::sToString(level.count - 1) + "]"
                                   : (m_twin.empty() ? "" : ".") + MakeVisible(level.key);
    }

    std::vector<LEVEL> m_levels;
    String m_twin;
};

/// Puts a person's JSON into a settings set, refusing every key and every form that is not in the table.
class JsonReader
{
public:
    explicit JsonReader(String& error)
        : m_error(error)
    {
    }

    template <std::size_t count>
    bool ReadObject(const JSON& object, const KEY (&keys)[count], const String& where, SettingsTransportSet& set)
    {
        if (!object.is_object())
            return xFail(where.empty() ? "the file" : where, "must be an object, { ... }");
        for (const auto& [name, value] : object.items()) {
            const String path = where.empty() ? String(name) : where + "." + String(name);
            const auto* key = std::find_if(std::begin(keys), std::end(keys),
                                           [&known = name](const KEY& candidate) { return known == candidate.name; });
            if (key == std::end(keys))
                return xFail(path, "is not a known key");
            if (!xReadValue(value, *key, path, set))
                return false;
        }
        return true;
    }

private:
    bool xReadValue(const JSON& value, const KEY& key, const String& path, SettingsTransportSet& set)
    {
        switch (key.form) {
        case FORM::NUMBER:
            if (!value.is_number_unsigned() || value.get<ULONG8>() > MAX_NUMBER)
                return xFail(path, "must be a whole number from 0 to 4294967295");
            return set.AddULONG(key.name, static_cast<ULONG>(value.get<ULONG8>()));
        case FORM::TEXT:
            if (!value.is_string())
                return xFail(path, "must be a text in quotes");
            return set.AddString(key.name, String(value.get<std::string>()));
        case FORM::FLAG:
            if (!value.is_boolean())
                return xFail(path, "must be true or false");
            return set.AddBool(key.name, value.get<bool>());
        case FORM::RULES:
            return xReadList(value, key, path, set, &JsonReader::xReadRule);
        case FORM::TEXTS:
            return xReadList(value, key, path, set, &JsonReader::xReadText);
        case FORM::USERS:
            return xReadList(value, key, path, set, &JsonReader::xReadUser);
        }
        return false;
    }

    /// Puts one item of a list, which stands at where, into the set of the list, or says why not.
    using READ_ITEM = bool (JsonReader::*)(const JSON& item, const String& where, SettingsTransportSet& items);

    bool xReadList(const JSON& list, const KEY& key, const String& path, SettingsTransportSet& set, READ_ITEM readItem)
    {
        if (!list.is_array())
            return xFail(path, "must be a list, [ ... ]");
        SettingsTransportSet* items = set.AddSet(key.name);
        ULONG8 number = 0;
        for (const JSON& item : list)
            if (!(this->*readItem)(item, path + "[" + String::sToString(number++) + "]", *items))
                return false;
        return true;
    }

    bool xReadRule(const JSON& rule, const String& where, SettingsTransportSet& rules)
    {
        if (!rule.is_string() || !NetIPControlEntry().SetByString(String(rule.get<std::string>())))
            return xFail(where, "is not a rule");
        return rules.AddString(SettingsTransportSet::UNNAMED, String(rule.get<std::string>()));
    }

    bool xReadText(const JSON& text, const String& where, SettingsTransportSet& texts)
    {
        if (!text.is_string())
            return xFail(where, "must be a text in quotes");
        return texts.AddString(SettingsTransportSet::UNNAMED, String(text.get<std::string>()));
    }

    bool xReadUser(const JSON& user, const String& where, SettingsTransportSet& users)
    {
        if (ReadObject(user, USER_KEYS, where, *users.AddSet(SettingsTransportSet::UNNAMED)))
            return true;
        m_error += NameAccount(user);
        return false;
    }

    bool xFail(const String& path, const char* what)
    {
        m_error = path + ": " + what;
        return false;
    }

    String& m_error;
};

bool ReadWholeFile(const FilePath& path, String& text)
{
    FileAccess file;
    if (!file.Open(path, FileAccess::AM_READ, false, false))
        return false;
    unsigned char buffer[8192];
    while (text.size() <= MAX_SETTINGS_BYTES) {
        ULONG got = sizeof buffer;
        if (!file.Read(buffer, got))
            return false;
        if (got == 0)
            return true;
        text += String(buffer, got);
    }
    return false;
}

/// The bits of a rights line. False: an unknown word.
bool ParseRights(const String& line, std::uint32_t& rights)
{
    STRINGS words;
    words.AddByLine(line);
    rights = 0;
    for (const String& word : words) {
        if (word == "read")
            rights |= FtpUserSettings::READ;
        else if (word == "write")
            rights |= FtpUserSettings::WRITE;
        else if (word == "delete")
            rights |= FtpUserSettings::REMOVE;
        else if (word == "admin")
            rights |= FtpUserSettings::ADMIN;
        else
            return false;
    }
    return true;
}

/// Reads a number that is kept in 32 bits; absent: unchanged.
void ReadNumber(const SettingsTransportSet& set, const char* key, std::uint32_t& value)
{
    ULONG read = 0;
    if (set.GetULONG(key, read))
        value = static_cast<std::uint32_t>(read);
}

void ReadPath(const SettingsTransportSet& set, const char* key, FilePath& path)
{
    String text;
    if (set.GetString(key, text))
        path = FilePath(text);
}

/// Reads a list of rules; absent: unchanged.
void ReadRules(const SettingsTransportSet& set, const char* key, NetIPControl& rules)
{
    const SettingsTransportSet* items = set.FindSet(key);
    if (items == nullptr)
        return;
    rules.Reset(); // reading appends
    rules.ReadFrom(*items);
}

/// Reads a list of texts; absent: unchanged.
void ReadTexts(const SettingsTransportSet& set, const char* key, STRINGS& texts)
{
    const SettingsTransportSet* items = set.FindSet(key);
    if (items == nullptr)
        return;
    texts.clear();
    String text;
    for (ULONG i = 0; i < items->GetDataCount(); ++i)
        if (items->GetDataAsString(i, text))
            texts.push_back(text);
}

/// True when no rule can be told to be wrong. That a mail rule names one address only is nothing to this server.
bool AreRulesGood(const NetIPControl& rules)
{
    for (ULONG i = 0; i < rules.GetCount(); ++i) {
        const NetIPControlEntry& rule = rules.Get(i);
        const bool isMail =
            rule.GetType() == NetIPControlEntry::ET_SENDER || rule.GetType() == NetIPControlEntry::ET_RCPT;
        Messages messages;
        if (!isMail && !rule.CheckErrors(messages))
            return false;
    }
    return true;
}

bool ParsePort(const String& text, USHORT& port)
{
    port = IsDecimal(text) ? text.ToUSHORT() : USHORT{0};
    return port != 0;
}

/// True when the text can stand in the first lines of a request as it is.
bool IsWithoutBlanks(const String& text)
{
    return !HasControlCharacter(text) && text.find(' ') == String::npos;
}

/// True for the name of a host, and for an address; what consists of digits and dots must be one.
bool IsHost(const String& text)
{
    NetIP address;
    const bool isNumeric = text.str().find_first_not_of("0123456789.") == std::string::npos;
    return IsWithoutBlanks(text) && (!isNumeric || (address.Set(text) && address.IsIP4()));
}

/// A line of port bindings reads any text as something; what is written by a person must be "address:port" or a port.
bool IsListenLine(const String& line)
{
    STRINGS items;
    items.AddByLine(line);
    return !items.empty() && std::all_of(items.begin(), items.end(), [](const String& item) {
        const String::size_type colon = item.find(':');
        const String port = colon == String::npos ? item : item.substr(colon + 1);
        USHORT number = 0;
        const bool isHost = colon == String::npos || (colon != 0 && IsHost(item.substr(0, colon)));
        return isHost && (port == "0" || ParsePort(port, number));
    });
}

bool HasPort(const String& line, USHORT port)
{
    NetPortBinds binds;
    binds.AddByLine(line);
    for (ULONG i = 0; i < binds.GetCount(); ++i) {
        if (binds.Get(i).GetPort() == port)
            return true;
    }
    return false;
}

/// True when no port of the line is 0 or in the other line.
bool HasOwnPorts(const String& line, const String& other)
{
    NetPortBinds binds;
    binds.AddByLine(line);
    for (ULONG i = 0; i < binds.GetCount(); ++i) {
        const USHORT port = binds.Get(i).GetPort();
        if (port == 0 || HasPort(other, port))
            return false;
    }
    return true;
}

} // namespace

// --- one account

void FtpUserSettings::Reset()
{
    *this = FtpUserSettings();
}

FtpUserSettings* FtpUserSettings::Spawn(bool copy) const
{
    return copy ? new FtpUserSettings(*this) : new FtpUserSettings();
}

bool FtpUserSettings::IsSame(const SettingsTransferable& other) const
{
    const auto* user = dynamic_cast<const FtpUserSettings*>(&other);
    return user != nullptr && m_name == user->m_name && m_password == user->m_password && m_home == user->m_home &&
           m_rights == user->m_rights && m_isAnonymous == user->m_isAnonymous && m_maxSessions == user->m_maxSessions &&
           m_overwrite == user->m_overwrite;
}

std::uint32_t FtpUserSettings::GetRightBits() const
{
    std::uint32_t rights = 0;
    return ParseRights(m_rights, rights) ? rights : 0;
}

bool FtpUserSettings::xWriteTo(SettingsTransportSet& set) const
{
    return set.AddString("name", m_name) && set.AddString("password", m_password) &&
           set.AddString("home", m_home.GetText()) && set.AddString("rights", m_rights) &&
           set.AddBool("anonymous", m_isAnonymous) && set.AddULONG("max_sessions", m_maxSessions) &&
           set.AddBool("overwrite", m_overwrite);
}

bool FtpUserSettings::xReadFrom(const SettingsTransportSet& set)
{
    set.GetString("name", m_name);
    set.GetString("password", m_password);
    ReadPath(set, "home", m_home);
    set.GetString("rights", m_rights);
    set.GetBool("anonymous", m_isAnonymous);
    ReadNumber(set, "max_sessions", m_maxSessions);
    set.GetBool("overwrite", m_overwrite);
    return true;
}

void FtpUserSettings::xCheckErrors(Messages& messages) const
{
    constexpr std::size_t MAX_NAME = 31; // what a session record holds of it
    if (m_name.empty() || m_name.size() > MAX_NAME || HasControlCharacter(m_name))
        messages.AddMessage(BAD_USER_NAME);
    if (m_home.empty())
        messages.AddMessage(NO_HOME);
    std::uint32_t rights = 0;
    if (!ParseRights(m_rights, rights))
        messages.AddMessage(BAD_RIGHTS);
    if (m_password.empty() && !m_isAnonymous)
        messages.AddMessage(NO_PASSWORD);
    if (!m_password.empty() && !FtpPassword::sIsWellFormed(m_password))
        messages.AddMessage(BAD_PASSWORD);
}

// --- the server

void FtpSettings::Reset()
{
    *this = FtpSettings();
}

FtpSettings* FtpSettings::Spawn(bool copy) const
{
    return copy ? new FtpSettings(*this) : new FtpSettings();
}

bool FtpSettings::IsSame(const SettingsTransferable& other) const
{
    const auto* that = dynamic_cast<const FtpSettings*>(&other);
    return that != nullptr && m_listen == that->m_listen && m_listenTLS == that->m_listenTLS &&
           m_offerTLS == that->m_offerTLS && m_requireTLS == that->m_requireTLS &&
           m_requireTLSFarewell == that->m_requireTLSFarewell && m_tlsCertificate == that->m_tlsCertificate &&
           m_tlsKey == that->m_tlsKey && m_stateFolder == that->m_stateFolder && m_maxSessions == that->m_maxSessions &&
           m_reservedSessions == that->m_reservedSessions && m_reservedAddresses == that->m_reservedAddresses &&
           m_logInSecs == that->m_logInSecs && m_passivePorts == that->m_passivePorts &&
           m_externalAddress == that->m_externalAddress && m_idleSecs == that->m_idleSecs &&
           m_stallSecs == that->m_stallSecs && m_connectSecs == that->m_connectSecs &&
           m_hiddenUploads == that->m_hiddenUploads && m_loginAttempts == that->m_loginAttempts &&
           m_blockTimeMs == that->m_blockTimeMs && m_greeting == that->m_greeting && m_logFolder == that->m_logFolder &&
           m_requireLogs == that->m_requireLogs && m_logRotateMB == that->m_logRotateMB &&
           m_logRotateDaily == that->m_logRotateDaily && m_logOldFiles == that->m_logOldFiles &&
           m_transferLog == that->m_transferLog && m_logDebug == that->m_logDebug &&
           m_connectionRules == that->m_connectionRules && m_hammerAttempts == that->m_hammerAttempts &&
           m_hammerWindowSecs == that->m_hammerWindowSecs && m_hammerBlockSecs == that->m_hammerBlockSecs &&
           m_hammerExemptions == that->m_hammerExemptions && m_maxSessionsPerAddress == that->m_maxSessionsPerAddress &&
           m_maxSessionsPerUser == that->m_maxSessionsPerUser && m_refusedNames == that->m_refusedNames &&
           m_updateHost == that->m_updateHost && m_updatePort == that->m_updatePort &&
           m_updatePath == that->m_updatePath && m_users == that->m_users;
}

bool FtpSettings::ReadFile(const FilePath& file, String& error)
{
    String text;
    if (!ReadWholeFile(file, text)) {
        error = "cannot be read";
        return false;
    }
    if (!ReadJson(text, error))
        return false;
    xMakePathsAbsolute(file);
    return true;
}

bool FtpSettings::ReadJson(const String& json, String& error)
{
    JSON root;
    TwinFinder twins;
    try {
        root = JSON::parse(json.str(), std::ref(twins));
    } catch (const JSON::exception& failure) {
        error = String("not valid JSON: ") + failure.what();
        return false;
    }
    if (!twins.GetTwin().empty()) {
        error = twins.GetTwin() + ": is there twice";
        return false;
    }
    SettingsTransportSet set;
    FtpSettings read;
    if (!JsonReader(error).ReadObject(root, SERVER_KEYS, String(), set) || !read.ReadFrom(set))
        return false;
    if (const String found = read.FindError(); !found.empty()) {
        error = found;
        return false;
    }
    *this = read;
    return true;
}

String FtpSettings::FindError() const
{
    Messages messages;
    if (CheckErrors(messages))
        return {};
    const int code = messages.Get(0);
    std::set<String> names;
    for (std::size_t i = 0; i < m_users.size(); ++i) {
        const String& name = m_users[i].GetName();
        Messages own;
        if (code == SAME_NAME && !names.insert(name).second)
            return sGetErrorText(code) + NameAccount(name);
        if (m_users[i].CheckErrors(own) || own.Get(0) != code)
            continue;
        // "users.home: ..." becomes "users[0].home: ..."
        const String text = sGetErrorText(code);
        const String::size_type dot = text.find('.');
        return text.substr(0, dot) + "[" + String::sToString(static_cast<ULONG8>(i)) + "]" + text.substr(dot) +
               NameAccount(name);
    }
    return sGetErrorText(code);
}

String FtpSettings::sGetErrorText(int code)
{
    const auto* found = std::find_if(std::begin(CODE_TEXTS), std::end(CODE_TEXTS),
                                     [code](const CODE_TEXT& candidate) { return candidate.code == code; });
    return found == std::end(CODE_TEXTS) ? "code " + String::sToString(code) : String(found->text);
}

bool FtpSettings::IsTLSPort(USHORT port) const
{
    return HasPort(m_listenTLS, port);
}

bool FtpSettings::IsTLSWanted() const
{
    return m_offerTLS || m_requireTLS || !m_listenTLS.empty() || !m_tlsCertificate.empty();
}

bool FtpSettings::GetPassiveRange(USHORT& first, USHORT& last) const
{
    first = last = 0;
    if (m_passivePorts.empty())
        return true;
    const String::size_type dash = m_passivePorts.find('-');
    return dash != String::npos && ParsePort(m_passivePorts.substr(0, dash), first) &&
           ParsePort(m_passivePorts.substr(dash + 1), last) && first <= last;
}

bool FtpSettings::xWriteTo(SettingsTransportSet& set) const
{
    set.AddString("listen", m_listen);
    set.AddString("listen_tls", m_listenTLS);
    set.AddBool("offer_tls", m_offerTLS);
    set.AddBool("require_tls", m_requireTLS);
    set.AddBool("require_tls_farewell", m_requireTLSFarewell);
    set.AddString("tls_certificate", m_tlsCertificate.GetText());
    set.AddString("tls_key", m_tlsKey.GetText());
    set.AddString("state_folder", m_stateFolder.GetText());
    set.AddULONG("max_sessions", m_maxSessions);
    set.AddULONG("reserved_sessions", m_reservedSessions);
    set.AddSettings("reserved_addresses", m_reservedAddresses);
    set.AddString("passive_ports", m_passivePorts);
    set.AddString("external_address", m_externalAddress);
    set.AddULONG("login_timeout_secs", m_logInSecs);
    set.AddULONG("idle_timeout_secs", m_idleSecs);
    set.AddULONG("stall_timeout_secs", m_stallSecs);
    set.AddULONG("connect_timeout_secs", m_connectSecs);
    set.AddBool("hidden_uploads", m_hiddenUploads);
    set.AddULONG("login_attempts", m_loginAttempts);
    set.AddULONG("block_time_ms", m_blockTimeMs);
    set.AddString("greeting", m_greeting);
    set.AddString("log_folder", m_logFolder.GetText());
    set.AddBool("require_logs", m_requireLogs);
    set.AddULONG("log_rotate_mb", m_logRotateMB);
    set.AddBool("log_rotate_daily", m_logRotateDaily);
    set.AddULONG("log_old_files", m_logOldFiles);
    set.AddString("transfer_log", m_transferLog);
    set.AddBool("log_debug", m_logDebug);
    set.AddSettings("connection_rules", m_connectionRules);
    set.AddULONG("hammer_attempts", m_hammerAttempts);
    set.AddULONG("hammer_window_secs", m_hammerWindowSecs);
    set.AddULONG("hammer_block_secs", m_hammerBlockSecs);
    set.AddSettings("hammer_exemptions", m_hammerExemptions);
    set.AddULONG("max_sessions_per_address", m_maxSessionsPerAddress);
    set.AddULONG("max_sessions_per_user", m_maxSessionsPerUser);
    SettingsTransportSet* refused = set.AddSet("refused_names");
    for (const String& pattern : m_refusedNames)
        refused->AddString(SettingsTransportSet::UNNAMED, pattern);
    set.AddString("update_host", m_updateHost);
    set.AddULONG("update_port", m_updatePort);
    set.AddString("update_path", m_updatePath);
    SettingsTransportSet* users = set.AddSet("users");
    for (const FtpUserSettings& user : m_users)
        users->AddSettings(SettingsTransportSet::UNNAMED, user);
    return true;
}

bool FtpSettings::xReadFrom(const SettingsTransportSet& set)
{
    set.GetString("listen", m_listen);
    set.GetString("listen_tls", m_listenTLS);
    set.GetBool("offer_tls", m_offerTLS);
    set.GetBool("require_tls", m_requireTLS);
    set.GetBool("require_tls_farewell", m_requireTLSFarewell);
    ReadPath(set, "tls_certificate", m_tlsCertificate);
    ReadPath(set, "tls_key", m_tlsKey);
    ReadPath(set, "state_folder", m_stateFolder);
    ReadNumber(set, "max_sessions", m_maxSessions);
    ReadNumber(set, "reserved_sessions", m_reservedSessions);
    ReadRules(set, "reserved_addresses", m_reservedAddresses);
    set.GetString("passive_ports", m_passivePorts);
    set.GetString("external_address", m_externalAddress);
    ReadNumber(set, "login_timeout_secs", m_logInSecs);
    ReadNumber(set, "idle_timeout_secs", m_idleSecs);
    ReadNumber(set, "stall_timeout_secs", m_stallSecs);
    ReadNumber(set, "connect_timeout_secs", m_connectSecs);
    set.GetBool("hidden_uploads", m_hiddenUploads);
    ReadNumber(set, "login_attempts", m_loginAttempts);
    ReadNumber(set, "block_time_ms", m_blockTimeMs);
    set.GetString("greeting", m_greeting);
    ReadPath(set, "log_folder", m_logFolder);
    set.GetBool("require_logs", m_requireLogs);
    ReadNumber(set, "log_rotate_mb", m_logRotateMB);
    set.GetBool("log_rotate_daily", m_logRotateDaily);
    ReadNumber(set, "log_old_files", m_logOldFiles);
    set.GetString("transfer_log", m_transferLog);
    set.GetBool("log_debug", m_logDebug);
    ReadRules(set, "connection_rules", m_connectionRules);
    ReadNumber(set, "hammer_attempts", m_hammerAttempts);
    ReadNumber(set, "hammer_window_secs", m_hammerWindowSecs);
    ReadNumber(set, "hammer_block_secs", m_hammerBlockSecs);
    ReadRules(set, "hammer_exemptions", m_hammerExemptions);
    ReadNumber(set, "max_sessions_per_address", m_maxSessionsPerAddress);
    ReadNumber(set, "max_sessions_per_user", m_maxSessionsPerUser);
    ReadTexts(set, "refused_names", m_refusedNames);
    set.GetString("update_host", m_updateHost);
    ReadNumber(set, "update_port", m_updatePort);
    set.GetString("update_path", m_updatePath);
    const SettingsTransportSet* users = set.FindSet("users");
    if (users == nullptr)
        return true;
    m_users.clear();
    for (ULONG i = 0; i < users->GetSetCount(); ++i) {
        FtpUserSettings user; // a new one each time: what a set leaves out must not come from the account before it
        user.ReadFrom(users->GetSet(i));
        m_users.push_back(user);
    }
    return true;
}

void FtpSettings::xCheckErrors(Messages& messages) const
{
    const auto check = [&messages](bool good, CODE code) {
        if (!good)
            messages.AddMessage(code);
    };
    const auto isTime = [](ULONG secs) { return secs >= 1 && secs <= MAX_SECS; };
    check(IsListenLine(m_listen), BAD_LISTEN);
    check(m_listenTLS.empty() || (IsListenLine(m_listenTLS) && HasOwnPorts(m_listenTLS, m_listen)), BAD_LISTEN_TLS);
    check(m_tlsCertificate.empty() == m_tlsKey.empty(), HALF_KEY_PAIR);
    check(m_maxSessions != 0, BAD_MAX_SESSIONS);
    USHORT first = 0;
    USHORT last = 0;
    check(GetPassiveRange(first, last), BAD_PASSIVE_PORTS);
    NetIP address;
    check(m_externalAddress.empty() || (address.Set(m_externalAddress) && address.IsIP4()), BAD_EXTERNAL_ADDRESS);
    check(m_reservedSessions <= MAX_RESERVED, BAD_RESERVED_SESSIONS);
    check(AreRulesGood(m_reservedAddresses), BAD_RESERVED_ADDRESSES);
    check(isTime(m_logInSecs), BAD_LOG_IN_SECS);
    check(m_logRotateMB <= MAX_LOG_MB, BAD_LOG_ROTATE_MB);
    check(m_logOldFiles <= MAX_OLD_LOGS, BAD_LOG_OLD_FILES);
    check(FtpTransferLog::sIsForm(m_transferLog), BAD_TRANSFER_LOG);
    check(isTime(m_idleSecs), BAD_IDLE);
    check(isTime(m_stallSecs), BAD_STALL);
    check(isTime(m_connectSecs), BAD_CONNECT);
    check(m_loginAttempts != 0, BAD_ATTEMPTS);
    check(m_blockTimeMs >= 1 && m_blockTimeMs <= MAX_BLOCK_TIME_MS, BAD_BLOCK_TIME);
    check(!HasControlCharacter(m_greeting), BAD_GREETING);
    check(AreRulesGood(m_connectionRules), BAD_CONNECTION_RULE);
    check(AreRulesGood(m_hammerExemptions), BAD_HAMMER_EXEMPTION);
    check(std::all_of(m_refusedNames.begin(), m_refusedNames.end(), FtpRefusedNames::sIsPattern), BAD_REFUSED_NAME);
    check(IsWithoutBlanks(m_updateHost), BAD_UPDATE_HOST);
    check(m_updatePort >= 1 && m_updatePort <= 65535, BAD_UPDATE_PORT);
    check(m_updatePath.StartsWith("/") && IsWithoutBlanks(m_updatePath), BAD_UPDATE_PATH);
    check(!m_users.empty(), NO_USERS);
    std::set<String> names;
    for (const FtpUserSettings& user : m_users) {
        user.CheckErrors(messages);
        check(names.insert(user.GetName()).second, SAME_NAME);
    }
}

void FtpSettings::xMakePathsAbsolute(const FilePath& file)
{
    std::error_code ignored; // the path then stays as it was written, and opening it says what is wrong
    const std::filesystem::path folder = std::filesystem::absolute(ToStdPath(file), ignored).parent_path();
    const auto absolute = [&folder](const FilePath& path) {
        return path.empty() ? path : FromStdPath((folder / ToStdPath(path)).lexically_normal());
    };
    m_logFolder = absolute(m_logFolder);
    m_tlsCertificate = absolute(m_tlsCertificate);
    m_tlsKey = absolute(m_tlsKey);
    m_stateFolder = absolute(m_stateFolder.empty() ? FilePath("state") : m_stateFolder);
    for (FtpUserSettings& user : m_users)
        user.SetHome(absolute(user.GetHome()));
}

} // namespace kqlib
