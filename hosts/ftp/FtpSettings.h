// FtpSettings: what kqftpd can be told, and its file.
#pragma once

#include "common/FilePath.h"
#include "common/STRINGS.h"
#include "common/SettingsTransferable.h"
#include "common/String.h"
#include "net/ipcontrol/NetIPControl.h"

#include <cstdint>
#include <vector>

namespace kqlib {

/// One account.
///
/// Settings keys: "name", "password" (the form of FtpPassword), "home" (a folder of the system), "rights" (any of
/// "read", "write", "delete", "admin", with "," between), "anonymous" (Bool: any password will do), "max_sessions"
/// (ULONG), "overwrite" (Bool).
/// Ownership, threads: a plain value. Errors: codes 320 to 324, see FtpSettings::sGetErrorText.
class FtpUserSettings : public SettingsTransferable
{
public:
    /// Bits of the rights.
    enum RIGHT : std::uint32_t
    {
        READ = 1,   ///< download and list
        WRITE = 2,  ///< upload, append, make folders, rename, set times and permissions
        REMOVE = 4, ///< delete files and folders, and replace a file by renaming
        ADMIN = 8   ///< the SITE commands that look at the server
    };

    void Reset() override;
    [[nodiscard]] FtpUserSettings* Spawn(bool copy) const override;
    bool IsSame(const SettingsTransferable& other) const override;
    friend bool operator==(const FtpUserSettings& left, const FtpUserSettings& right) { return left.IsSame(right); }

    const String& GetName() const { return m_name; }
    void SetName(const String& name) { m_name = name; }
    const String& GetPassword() const { return m_password; }
    void SetPassword(const String& stored) { m_password = stored; }
    const FilePath& GetHome() const { return m_home; }
    void SetHome(const FilePath& home) { m_home = home; }
    const String& GetRights() const { return m_rights; }
    void SetRights(const String& rights) { m_rights = rights; }
    bool GetIsAnonymous() const { return m_isAnonymous; }
    void SetIsAnonymous(bool anonymous) { m_isAnonymous = anonymous; }

    /// Sessions that the account may have at a time; 0: as the server's settings say.
    ULONG GetMaxSessions() const { return m_maxSessions; }
    void SetMaxSessions(ULONG count) { m_maxSessions = static_cast<std::uint32_t>(count); }
    /// False: uploads and renaming never cost what a file holds.
    bool GetOverwrite() const { return m_overwrite; }
    void SetOverwrite(bool overwrite) { m_overwrite = overwrite; }

    /// The rights as bits of RIGHT; none when the text is not understood.
    std::uint32_t GetRightBits() const;

protected:
    bool xWriteTo(SettingsTransportSet& set) const override;
    bool xReadFrom(const SettingsTransportSet& set) override;
    void xCheckErrors(Messages& messages) const override;

private:
    String m_name;
    String m_password;
    FilePath m_home;
    String m_rights = "read";
    bool m_isAnonymous = false;
    std::uint32_t m_maxSessions = 0;
    bool m_overwrite = true;
};

/// Everything that kqftpd can be told. The file of a person is plain JSON, one object with the keys below (all may be
/// absent); docs/kqftpd.md describes each.
///
/// Ownership: a plain value. Threads: one at a time; a running server shares constant copies.
/// Errors: ReadFile and ReadJson answer with a text that names the key; CheckErrors adds codes from 300 on.
class FtpSettings : public SettingsTransferable
{
public:
    using USERS = std::vector<FtpUserSettings>;

    void Reset() override;
    [[nodiscard]] FtpSettings* Spawn(bool copy) const override;
    bool IsSame(const SettingsTransferable& other) const override;
    friend bool operator==(const FtpSettings& left, const FtpSettings& right) { return left.IsSame(right); }

    /// Replaces everything by what the file says; relative folders are taken from the file's folder. False: error says
    /// what is wrong and where, nothing changed.
    [[nodiscard]] bool ReadFile(const FilePath& file, String& error);
    /// The same from a text; relative folders stay as they are.
    [[nodiscard]] bool ReadJson(const String& json, String& error);
    /// The first thing that CheckErrors finds wrong, as a sentence that names the key, and the account if it is one of
    /// an account; empty when it finds nothing.
    String FindError() const;
    /// The sentence for a code of CheckErrors; it names the key.
    static String sGetErrorText(int code);

    /// Port bindings as one line, "address:port" with "," between.
    const String& GetListen() const { return m_listen; }
    void SetListen(const String& line) { m_listen = line; }
    /// The same for ports that speak TLS from the first byte; empty: none. Their numbers are neither 0 nor in the other
    /// line, since a connection is known by its port.
    const String& GetListenTLS() const { return m_listenTLS; }
    void SetListenTLS(const String& line) { m_listenTLS = line; }
    /// True for a port of that line.
    bool IsTLSPort(USHORT port) const;
    /// AUTH TLS on the other ports, too.
    bool GetOfferTLS() const { return m_offerTLS; }
    void SetOfferTLS(bool offer) { m_offerTLS = offer; }
    /// No log-in and no data in the clear.
    bool GetRequireTLS() const { return m_requireTLS; }
    void SetRequireTLS(bool require) { m_requireTLS = require; }
    /// An upload over TLS is whole only when the client ended it with the farewell of TLS.
    bool GetRequireTLSFarewell() const { return m_requireTLSFarewell; }
    void SetRequireTLSFarewell(bool require) { m_requireTLSFarewell = require; }
    /// True when anything asks for TLS; the server then needs a certificate, and AUTH TLS is offered.
    bool IsTLSWanted() const;
    /// Certificate chain and key (PEM); both empty: the server makes them itself in the state folder.
    const FilePath& GetTLSCertificate() const { return m_tlsCertificate; }
    void SetTLSCertificate(const FilePath& file) { m_tlsCertificate = file; }
    const FilePath& GetTLSKey() const { return m_tlsKey; }
    void SetTLSKey(const FilePath& file) { m_tlsKey = file; }
    /// Where the server keeps what it makes itself. A settings file that names none means "state" beside it.
    const FilePath& GetStateFolder() const { return m_stateFolder; }
    void SetStateFolder(const FilePath& folder) { m_stateFolder = folder; }
    ULONG GetMaxSessions() const { return m_maxSessions; }
    void SetMaxSessions(ULONG count) { m_maxSessions = static_cast<std::uint32_t>(count); }
    /// Places beyond those, for administrators and for the addresses below; 0: none.
    ULONG GetReservedSessions() const { return m_reservedSessions; }
    void SetReservedSessions(ULONG count) { m_reservedSessions = static_cast<std::uint32_t>(count); }
    /// The addresses that these rules allow may take such a place with any account; not used while empty.
    const NetIPControl& GetReservedAddresses() const { return m_reservedAddresses; }
    void SetReservedAddresses(const NetIPControl& rules) { m_reservedAddresses = rules; }
    /// "first-last"; empty: any port.
    const String& GetPassivePorts() const { return m_passivePorts; }
    void SetPassivePorts(const String& range) { m_passivePorts = range; }
    /// The range as numbers, 0 and 0 for any port. False: not a range.
    [[nodiscard]] bool GetPassiveRange(USHORT& first, USHORT& last) const;
    /// The address told to passive clients that do not come from this machine; empty: the one they connected to.
    const String& GetExternalAddress() const { return m_externalAddress; }
    void SetExternalAddress(const String& address) { m_externalAddress = address; }
    /// Seconds in which a client must have logged in.
    ULONG GetLogInSecs() const { return m_logInSecs; }
    void SetLogInSecs(ULONG secs) { m_logInSecs = static_cast<std::uint32_t>(secs); }
    /// Seconds without a command until a session ends.
    ULONG GetIdleSecs() const { return m_idleSecs; }
    void SetIdleSecs(ULONG secs) { m_idleSecs = static_cast<std::uint32_t>(secs); }
    /// Seconds without a byte moved until a transfer ends.
    ULONG GetStallSecs() const { return m_stallSecs; }
    void SetStallSecs(ULONG secs) { m_stallSecs = static_cast<std::uint32_t>(secs); }
    /// Seconds in which a passive client must make its data connection.
    ULONG GetConnectSecs() const { return m_connectSecs; }
    void SetConnectSecs(ULONG secs) { m_connectSecs = static_cast<std::uint32_t>(secs); }
    /// Uploads go to a hidden name and get their own when they are whole.
    bool GetHiddenUploads() const { return m_hiddenUploads; }
    void SetHiddenUploads(bool hidden) { m_hiddenUploads = hidden; }
    /// Wrong passwords until a session is closed.
    ULONG GetLoginAttempts() const { return m_loginAttempts; }
    void SetLoginAttempts(ULONG count) { m_loginAttempts = static_cast<std::uint32_t>(count); }
    /// Milliseconds that one wait for the control connection may take.
    ULONG GetBlockTimeMs() const { return m_blockTimeMs; }
    void SetBlockTimeMs(ULONG milliSecs) { m_blockTimeMs = static_cast<std::uint32_t>(milliSecs); }
    /// The text of the greeting.
    const String& GetGreeting() const { return m_greeting; }
    void SetGreeting(const String& text) { m_greeting = text; }
    /// Where the event log and the data logs go; empty: no logs.
    const FilePath& GetLogFolder() const { return m_logFolder; }
    void SetLogFolder(const FilePath& folder) { m_logFolder = folder; }
    /// No start without logs; otherwise the server serves, and says that it has none.
    bool GetRequireLogs() const { return m_requireLogs; }
    void SetRequireLogs(bool require) { m_requireLogs = require; }
    /// Megabytes (of 1024 * 1024 bytes) from which on the event log begins a new file; 0: however large it is.
    ULONG GetLogRotateMB() const { return m_logRotateMB; }
    void SetLogRotateMB(ULONG megabytes) { m_logRotateMB = static_cast<std::uint32_t>(megabytes); }
    /// It begins one each day, too.
    bool GetLogRotateDaily() const { return m_logRotateDaily; }
    void SetLogRotateDaily(bool daily) { m_logRotateDaily = daily; }
    /// How many old files of it are kept.
    ULONG GetLogOldFiles() const { return m_logOldFiles; }
    void SetLogOldFiles(ULONG count) { m_logOldFiles = static_cast<std::uint32_t>(count); }
    /// The form of the transfer log: "none", "standard" or "json".
    const String& GetTransferLog() const { return m_transferLog; }
    void SetTransferLog(const String& form) { m_transferLog = form; }
    bool GetLogDebug() const { return m_logDebug; }
    void SetLogDebug(bool debug) { m_logDebug = debug; }
    /// Who may connect at all; what no rule matches may.
    const NetIPControl& GetConnectionRules() const { return m_connectionRules; }
    void SetConnectionRules(const NetIPControl& rules) { m_connectionRules = rules; }
    /// Failed log-ins until an address is blocked; 0: never.
    ULONG GetHammerAttempts() const { return m_hammerAttempts; }
    void SetHammerAttempts(ULONG count) { m_hammerAttempts = static_cast<std::uint32_t>(count); }
    /// Seconds after which a failed log-in is forgotten when no other followed.
    ULONG GetHammerWindowSecs() const { return m_hammerWindowSecs; }
    void SetHammerWindowSecs(ULONG secs) { m_hammerWindowSecs = static_cast<std::uint32_t>(secs); }
    /// Seconds that an address stays blocked.
    ULONG GetHammerBlockSecs() const { return m_hammerBlockSecs; }
    void SetHammerBlockSecs(ULONG secs) { m_hammerBlockSecs = static_cast<std::uint32_t>(secs); }
    /// Lifts the blocks of the addresses that it allows; not used while empty.
    const NetIPControl& GetHammerExemptions() const { return m_hammerExemptions; }
    void SetHammerExemptions(const NetIPControl& rules) { m_hammerExemptions = rules; }
    /// Sessions that one address may have at a time; 0: any number.
    ULONG GetMaxSessionsPerAddress() const { return m_maxSessionsPerAddress; }
    void SetMaxSessionsPerAddress(ULONG count) { m_maxSessionsPerAddress = static_cast<std::uint32_t>(count); }
    /// Sessions that one account may have at a time, unless it says so itself; 0: any number.
    ULONG GetMaxSessionsPerUser() const { return m_maxSessionsPerUser; }
    void SetMaxSessionsPerUser(ULONG count) { m_maxSessionsPerUser = static_cast<std::uint32_t>(count); }
    /// Patterns of names that nobody may give to a file or folder.
    const STRINGS& GetRefusedNames() const { return m_refusedNames; }
    void SetRefusedNames(const STRINGS& patterns) { m_refusedNames = patterns; }
    /// Where --check-update looks for the version file; an empty host: nowhere.
    const String& GetUpdateHost() const { return m_updateHost; }
    void SetUpdateHost(const String& host) { m_updateHost = host; }
    ULONG GetUpdatePort() const { return m_updatePort; }
    void SetUpdatePort(ULONG port) { m_updatePort = static_cast<std::uint32_t>(port); }
    const String& GetUpdatePath() const { return m_updatePath; }
    void SetUpdatePath(const String& path) { m_updatePath = path; }
    const USERS& GetUsers() const { return m_users; }
    void SetUsers(const USERS& users) { m_users = users; }

protected:
    bool xWriteTo(SettingsTransportSet& set) const override;
    bool xReadFrom(const SettingsTransportSet& set) override;
    void xCheckErrors(Messages& messages) const override;

private:
    void xMakePathsAbsolute(const FilePath& file);

    String m_listen = "127.0.0.1:2121";
    String m_listenTLS;
    bool m_offerTLS = false;
    bool m_requireTLS = false;
    bool m_requireTLSFarewell = true;
    FilePath m_tlsCertificate;
    FilePath m_tlsKey;
    FilePath m_stateFolder;
    std::uint32_t m_maxSessions = 200;
    std::uint32_t m_reservedSessions = 5;
    NetIPControl m_reservedAddresses;
    String m_passivePorts;
    String m_externalAddress;
    std::uint32_t m_logInSecs = 60;
    std::uint32_t m_idleSecs = 300;
    std::uint32_t m_stallSecs = 120;
    std::uint32_t m_connectSecs = 30;
    bool m_hiddenUploads = false;
    std::uint32_t m_loginAttempts = 3;
    std::uint32_t m_blockTimeMs = 2;
    String m_greeting = "kqftpd ready";
    FilePath m_logFolder;
    bool m_requireLogs = false;
    std::uint32_t m_logRotateMB = 100;
    bool m_logRotateDaily = false;
    std::uint32_t m_logOldFiles = 10;
    String m_transferLog = "none";
    bool m_logDebug = false;
    NetIPControl m_connectionRules;
    std::uint32_t m_hammerAttempts = 5;
    std::uint32_t m_hammerWindowSecs = 300;
    std::uint32_t m_hammerBlockSecs = 1800;
    NetIPControl m_hammerExemptions;
    std::uint32_t m_maxSessionsPerAddress = 20;
    std::uint32_t m_maxSessionsPerUser = 0;
    STRINGS m_refusedNames;
    String m_updateHost;
    std::uint32_t m_updatePort = 80;
    String m_updatePath = "/";
    USERS m_users;
};

} // namespace kqlib
