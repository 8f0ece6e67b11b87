// FtpSession: one client's conversation.
#pragma once

#include "hosts/ftp/FtpBase.h"
#include "hosts/ftp/FtpConfig.h"
#include "hosts/ftp/FtpFileSystem.h"
#include "hosts/ftp/FtpGate.h"
#include "hosts/ftp/FtpHash.h"
#include "hosts/ftp/FtpListing.h"
#include "hosts/ftp/FtpLiveBoard.h"
#include "hosts/ftp/FtpPattern.h"
#include "hosts/ftp/FtpTransferLog.h"
#include "hosts/ftp/FtpUploads.h"
#include "hosts/ftpcommon/FtpDataAddress.h"
#include "hosts/ftpcommon/FtpFile.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kqlib {

/// Reads commands, looks them up in a table and answers them (RFC 959, 1123, 2389, 2428, 3659, 4217).
///
/// The sources are split by theme: FtpSession (the loop, replies, watching the control connection),
/// FtpSessionAccess (logging in, questions about the server), FtpSessionTLS (what is
/// protected), FtpSessionFiles (folders, names, times), FtpSessionHash (hashes of files),
/// FtpSessionData (data connections) and FtpSessionTransfer (files and listings over them).
///
/// Ownership: the service owns the session, the session its sockets; it shares its settings and borrows the board.
/// Threads: everything on the session's own thread, save what the base says.
/// Errors: every command gets its reply. A reply that cannot be sent is not looked after: the next read of a command
/// finds the reason and ends the session.
class FtpSession : public FtpSessionBase
{
public:
    /// The action codes of the live status.
    enum ACTION : std::uint32_t
    {
        ACT_IDLE = 0,
        ACT_LIST = 1,
        ACT_DOWNLOAD = 2,
        ACT_UPLOAD = 3,
        ACT_HASH = 4
    };

    /// Starts the session's thread.
    FtpSession(ThreadPool& pool, NetDNSCache& cache, DataLogTime& activityLog, EventLog& eventLog,
               const EventLogSessionID& id, FtpSocket* const connection, std::shared_ptr<const FtpConfig> config,
               FtpGate& gate, FtpUploads& uploads, FtpTransferLog& transferLog, FtpLiveBoard& board);
    ~FtpSession() override;

protected:
    void xHandleSession() override;
    void xEventControlMsgDisconnectRecv(const String& text) override;
    void xEventSessionEnd() override;
    /// Asked in every wait of the base: looks after control messages and, while a transfer runs, after the control
    /// connection. False: the transfer must stop.
    bool xWaitingForNetShouldWait() override;

private:
    using RESULT = FtpFileSystem::RESULT;
    using RECORDER = std::function<void(bool success, const String& reason)>;
    using COMMANDFUNC = void (FtpSession::*)(const String& argument);

    /// What a command expects behind its name.
    enum class ARGUMENT : std::uint8_t
    {
        NONE,
        ALLOWED,
        REQUIRED
    };
    struct COMMAND
    {
        const char* name;
        COMMANDFUNC run; // null: known, not offered
        ARGUMENT argument;
        bool needsLogin;
        const char* syntax; // for HELP
    };

    /// Why a transfer came to its end.
    enum class END : std::uint8_t
    {
        COMPLETE,      // everything was moved
        NOT_CONNECTED, // no data connection came about
        FOREIGN,       // somebody else than the client connected to the passive port
        UNPROTECTED,   // it would go in the clear, which the settings do not allow
        NOT_SECURED,   // the TLS handshake of the data connection failed
        DATA_LOST,     // the data connection broke
        NO_FAREWELL,   // an upload over TLS ended without its farewell
        ABORTED,       // the client said ABOR
        STOPPED,       // the administrator said so
        STALLED,       // nothing moved for too long
        HUNG_UP,       // the control connection is gone
        DISCONNECTED,  // the administrator ends the session
        ENDING,        // the service ends
        NAME_TAKEN,    // meanwhile, and the user may not replace a file
        READ_FAILED,
        WRITE_FAILED,
        DISK_FULL
    };

    /// What the client is told then.
    struct ENDING
    {
        END end;
        unsigned code;
        const char* text;
    };

    /// Where the next data connection comes from.
    enum class DATAMODE : std::uint8_t
    {
        NONE,
        PASSIVE,
        ACTIVE
    };

    /// The transfer that runs; a hash of a file counts as one.
    struct TRANSFER
    {
        bool isActive = false;
        const char* verb = "";
        String path;
        ACTION action = ACT_IDLE;
        ULONG start = 0;          // tick
        ULONG8 moved = 0;         // bytes on the data connection, or hashed
        END stop = END::COMPLETE; // set while it runs: why it must stop
    };

    // FtpSession.cpp: the loop, replies, the watch over the control connection.
    bool xReadCommand(String& command);
    void xExecute(String command);
    bool xMayRun(const COMMAND& command, const String& argument);
    static const COMMAND* xsFindCommand(const String& name);
    static const std::vector<COMMAND>& xsGetCommands();
    bool xPassGate();
    void xRefuseClient(FtpGate::VERDICT verdict);
    void xDisplace(const FtpGate::DISPLACED& session);
    ULONG xGetPatienceSecs() const;
    void xSayWhyEnded();
    void xSayLastWords(const String& reply);
    bool xShouldGoOn();

    void xReply(unsigned code, const String& text);
    /// first and last carry the code, body (whole lines ending in CR LF) stands between them.
    void xReplyLines(unsigned code, const String& first, const std::string& body, const String& last);
    /// Replies with code and text when result is DONE, else as xReplyFailure.
    void xReplyResult(RESULT result, unsigned code, const String& text, unsigned failCode = 550);
    /// Replies with failCode (or 452 where it says more) and the sentence for result.
    void xReplyFailure(RESULT result, unsigned failCode = 550);
    void xReplySyntaxError(const char* text = "Syntax error in the argument");

    void xWatch();
    void xTakeMessages();
    void xReadAhead();
    void xLookAtQueue();
    bool xGetQueuedLine(ULONG& position, String& line) const;
    void xReplyTransferState();

    bool xHasRight(FtpUserSettings::RIGHT right) const;
    /// Makes the virtual path of an argument; replies with failCode and answers false when it is no name. RFC 959,
    /// section 5.4, lists 553 for commands that give a name to a file, 550 for most others and 501 for listings.
    bool xResolve(const String& argument, String& path, unsigned failCode = 550);
    /// Whether the settings allow a file or folder of that name to be made, written or renamed to.
    bool xMayName(const String& path) const;
    FtpListing::RIGHTS xGetListingRights() const;
    void xLogOut();

    // FtpSessionAccess.cpp
    void xCmdUser(const String& name);
    void xCmdPass(const String& password);
    void xEnter(const FtpUserSettings& user);
    void xRefuseGuess();
    void xRefuseLogin(const String& reason, bool isLast = false);
    void xCmdQuit(const String&);
    void xCmdNoop(const String&);
    void xCmdSyst(const String&);
    void xCmdFeat(const String&);
    void xCmdOpts(const String& argument);
    void xCmdHelp(const String& argument);
    void xCmdStat(const String& argument);
    void xCmdAllo(const String& argument);
    void xCmdSite(const String& argument);
    void xSiteWho();
    void xSiteStat();
    void xSiteChmod(const String& argument);
    void xSiteUtime(const String& argument);
    void xSiteStepIn(bool isKick, const String& argument);
    void xCmdType(const String& argument);
    void xCmdStru(const String& argument);
    void xCmdMode(const String& argument);

    // FtpSessionTLS.cpp
    void xCmdAuth(const String& mechanism);
    void xCmdPbsz(const String& size);
    void xCmdProt(const String& level);
    void xCmdCcc(const String&);
    bool xIsControlSecured() const;
    /// Replies and answers false when the settings want TLS first.
    bool xMayLogIn();
    bool xSecureControl();
    END xSecureData();
    void xStartAnew();

    // FtpSessionFiles.cpp
    void xCmdPwd(const String&);
    void xCmdCwd(const String& argument);
    void xCmdCdup(const String&);
    void xCmdMkd(const String& argument);
    void xCmdRmd(const String& argument);
    void xCmdDele(const String& argument);
    void xCmdRnfr(const String& argument);
    void xCmdRnto(const String& argument);
    void xCmdSize(const String& argument);
    void xCmdMdtm(const String& argument);
    void xCmdMfmt(const String& argument);
    void xCmdMlst(const String& argument);

    void xCmdAvbl(const String& argument);
    RESULT xSetModified(const String& path, std::int64_t timeMs) const;

    // FtpSessionHash.cpp
    void xCmdHash(const String& argument);
    void xCmdXmd5(const String& argument);
    void xCmdXsha1(const String& argument);
    void xCmdXsha256(const String& argument);
    void xCmdXsha512(const String& argument);
    void xReplyHash(const char* verb, const String& argument, const String& kind);
    bool xMakeHash(const char* verb, const String& name, const String& kind, String& hash, ULONG8& size);
    END xHashFile(const FtpFile& file, const String& kind, String& hash);

    // FtpSessionData.cpp
    void xCmdPasv(const String&);
    void xCmdEpsv(const String& argument);
    void xCmdPort(const String& argument);
    void xCmdEprt(const String& argument);
    bool xIsSetupAllowed();
    bool xListenPassive();
    void xSetActive(const FtpDataAddress& place);
    NetIP xGetPassiveAddress() const;
    std::unique_ptr<FtpSocket> xMakeDataSocket();
    END xOpenData();
    END xConnectData();
    END xAcceptData();
    void xCloseData(bool inOrder);

    // FtpSessionTransfer.cpp
    void xCmdRest(const String& argument);
    void xCmdRetr(const String& argument);
    void xCmdStor(const String& argument);
    void xCmdAppe(const String& argument);
    void xCmdStou(const String& argument);
    void xCmdAbor(const String&);
    void xCmdList(const String& argument);
    void xCmdNlst(const String& argument);
    void xCmdMlsd(const String& argument);
    /// Says 150 and opens the data connection. COMPLETE: the transfer may begin.
    END xBeginTransfer(const char* verb, const String& path, ACTION action, const String& announcement);
    /// Closes the data connection, has the outcome recorded, and gives the reply.
    void xFinishTransfer(END end, const RECORDER& record);
    void xLogTransfer(const TRANSFER& transfer, bool isComplete, const String& reason);
    void xNoteTransfer(const char* verb, const String& path, ACTION action);
    static const ENDING& xsDescribeEnd(END end);
    END xWhyStopped() const;
    END xSendFile(platform::FileHandle file);
    END xSendFileAsText(platform::FileHandle file);
    bool xSendText(NetTCP* socket, const std::string& text);
    END xReceiveFile(platform::FileHandle file);
    END xJudgeUploadEnd() const;

    /// How an upload gets its place.
    enum class HOW : std::uint8_t
    {
        STORE,  // under the name that the client gives
        APPEND, // behind what is there
        UNIQUE  // under a name that nothing has
    };
    /// An upload on its way into a file.
    struct UPLOAD
    {
        explicit UPLOAD(FtpUploads& uploads)
            : claim(uploads)
        {
        }
        bool IsHidden() const { return !(target == path); }

        HOW how = HOW::STORE;
        String announcement = "Ready to receive";
        String path;   // what the client named, or a unique name
        String target; // what is written to: the same, or a hidden name beside it
        FtpFile file;
        FtpUploadClaim claim;
    };
    void xUpload(const String& argument, HOW how);
    RESULT xOpenUpload(UPLOAD& upload, ULONG8 from);
    RESULT xOpenUnique(UPLOAD& upload, const String& argument);
    RESULT xOpenHidden(UPLOAD& upload);
    bool xWouldOverwrite(const UPLOAD& upload, ULONG8 from) const;
    END xMoveUpload(UPLOAD& upload, ULONG8 from);
    END xShowUpload(const UPLOAD& upload, END end);

    /// A listing: one entry is turned into text at a time.
    enum class LISTFORM : std::uint8_t
    {
        LONG,
        NAMES,
        FACTS
    };
    struct LISTING
    {
        LISTFORM form;
        String path;   // what is listed
        String prefix; // before each name
        std::int64_t nowMs;
        std::optional<FtpPattern> pattern = std::nullopt; // of the names that are shown; none: all
    };
    String xTakePattern(const String& argument, LISTING& listing) const;
    void xList(const char* verb, LISTFORM form, const String& argument, const String& prefix);
    struct ENTRY
    {
        std::string name;
        FtpFileSystem::FACTS facts;
    };
    void xAddEntry(std::string& out, const LISTING& listing, const String& name, FtpFileSystem::FACTS facts) const;
    void xAddListedItself(std::string& out, const LISTING& listing) const;
    bool xReadEntries(const LISTING& listing, platform::FolderReader& reader, std::vector<ENTRY>& entries);
    /// Sends the listing of a folder (or of a single file) to the socket.
    END xSendListing(NetTCP* socket, const LISTING& listing, platform::FolderReader& reader);
    void xListOnControl(const String& argument);

    // Set once at construction.
    NetDNSCache& m_cache;
    const std::shared_ptr<const FtpConfig> m_config;
    FtpGate& m_gate;
    FtpUploads& m_uploads;
    FtpTransferLog& m_transferLog;
    FtpLiveBoard& m_board;

    // Used by the session's thread only.
    std::vector<unsigned char> m_commandBytes;
    NetTCP::RECVBUF m_commandBuffer;
    bool m_isDiscarding = false; // the rest of an oversized line is still to come
    bool m_isQuitting = false;
    std::optional<FtpGate::PLACE> m_place; // none: the gate did not let this session in
    ULONG m_strangerSince = 0;             // tick from which the time for logging in counts
    bool m_isWatching = false;             // inside xWaitingForNetShouldWait
    ULONG m_lastWatchTick = 0;

    String m_userName;                       // as given by USER
    const FtpUserSettings* m_user = nullptr; // null: not logged in; belongs to m_config
    std::uint32_t m_rights = 0;              // bits of FtpUserSettings::RIGHT, 0 before log-in
    ULONG m_failedLogins = 0;
    FtpFileSystem m_files;
    bool m_hasProtectionSize = false; // PBSZ was given
    bool m_isDataProtected = false;   // PROT P
    String m_renameFrom;              // empty: no RNFR before
    ULONG8 m_restart = 0;
    bool m_isAscii = true;
    bool m_isOnlyEpsv = false;
    std::uint32_t m_facts = FtpListing::ALL_FACTS;
    String m_hash = FtpHash::DEFAULT; // of HASH

    DATAMODE m_dataMode = DATAMODE::NONE;
    std::unique_ptr<FtpSocket> m_data;
    String m_dataHost; // active mode
    USHORT m_dataPort = 0;
    TRANSFER m_transfer;
};

} // namespace kqlib
