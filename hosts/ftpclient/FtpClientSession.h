// FtpClientSession: one connection to an FTP server, driven by requests.
#pragma once

#include "hosts/ftpclient/FtpClientRequest.h"
#include "hosts/ftpclient/FtpClientSettings.h"
#include "hosts/ftpclient/FtpListParser.h"
#include "hosts/ftpclient/FtpReply.h"
#include "hosts/ftpcommon/FtpDataAddress.h"
#include "hosts/ftpcommon/FtpFile.h"
#include "net/session/NetTCPSessionControllableSSL.h"
#include "net/sockets/NetTCPSSL.h"

#include <atomic>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace kqlib {

/// Carries out requests (RFC 959, 2389, 2428, 3659, 4217) one after the other: connects and logs in when the first one
/// needs it, keeps the connection alive while none waits, and connects again when it was lost meanwhile. A cancelled
/// request ends its transfer in order (ABOR), and the connection goes on.
///
/// The sources are split by theme: FtpClientSession (the queue, dispatch, keeping alive), FtpClientSessionControl
/// (commands and replies), FtpClientSessionLogin (connecting, TLS, log-in), FtpClientSessionData (data connections),
/// FtpClientSessionListing and FtpClientSessionTransfer.
///
/// Ownership: as its base; the service-less session belongs to who makes it. The destructor cancels what is queued.
/// Threads: the public operations any thread; everything else the session's own.
/// Errors: every request has its result, with a sentence. Making a connection and a TLS handshake are not cut short by
/// cancelling.
class FtpClientSession : public NetTCPSessionControllableSSL
{
public:
    /// The action codes of the state besides the codes of requests.
    static constexpr ULONG ACT_IDLE = 0;
    /// A request was given up, and the server's replies to it are still to come.
    static constexpr ULONG ACT_CATCHING_UP = 100;

    /// Starts the session's thread; nothing is connected before the first request.
    FtpClientSession(ThreadPool& pool, NetDNSCache& cache, DataLogTime& activityLog, EventLog& eventLog,
                     const EventLogSessionID& id, const FtpClientSettings& settings);
    ~FtpClientSession() override;

    /// Queues a request; the result is its id.
    ULONG Queue(const FtpClientRequest& request);
    /// Waits at most milliSecs for the result of a request and takes it. False: not done in time, or not known.
    [[nodiscard]] bool WaitForResult(ULONG id, FtpClientResult& result, ULONG milliSecs);
    FtpClientProgress GetProgress() const;
    /// Whether the server lets the time of a file be set, as far as the last connection told.
    bool CanSetTimes() const { return m_canSetTimes; }

protected:
    void xHandleCtrlReq(ULONG id, ULONG code, bool& unused) override;
    void xHandleCtrlReqCancelled(ULONG id, ULONG code, bool& unused) override;
    void xHandleCtrlReqComplete(ULONG id, ULONG code) override;
    /// Leaves the server; the session itself goes on.
    void xHandleCtrlTimedOut() override;
    void xHandleCtrlTimeOutPrevent() override;
    void xEventSessionEnd() override;
    bool xWaitingForNetShouldWait() override;

private:
    using OUTCOME = FtpClientResult::OUTCOME;
    using REQUEST = FtpClientRequest;
    using FORM = FtpListParser::FORM;

    /// What the server says it can do.
    struct FEATURES
    {
        bool mayRestart = true; // REST, until it is refused
        bool hasEpsv = true;    // until they are refused
        bool hasEprt = true;
        FORM listForm = FORM::FACTS; // the best one that was not refused
        bool mayListAll = true;      // LIST -a shows names that begin with a dot
    };

    // FtpClientSession.cpp
    bool xCarryOut(const REQUEST& request);
    void xNoteProgress(ULONG8 moved);
    void xBeginProgress(const String& name, ULONG8 moved, ULONG8 total);

    // FtpClientSessionControl.cpp
    /// Gives the request its outcome; the result is always false.
    bool xFail(OUTCOME outcome, const String& text);
    /// The same after a wait that gave up, or a connection that broke.
    bool xFailBroken();
    /// The same with the reply just read.
    bool xFailRefused(OUTCOME outcome = OUTCOME::REFUSED);
    bool xSend(const String& verb, const String& argument = String());
    /// Reads the next reply, of whatever kind.
    bool xReadReply();
    /// Reads the reply that says how a command ended.
    bool xReadFinalReply();
    /// Sends a command and reads its final reply.
    bool xAsk(const String& verb, const String& argument = String());
    /// The same, and the reply must be a success.
    bool xDemand(const String& verb, const String& argument = String());
    /// Whether something came on the control connection that nobody has read. False also when it has ended.
    bool xHasControlInput();
    /// After a request that gave up early: takes the replies that are still to come, so that the next one reads its
    /// own. A connection on which they do not come within the limit is given up.
    void xCatchUp(ULONG limitMs);

    // FtpClientSessionLogin.cpp
    bool xBeConnected();
    bool xGreet();
    bool xSecureControl();
    bool xStartTLS();
    bool xCheckCertificate(const NetTCPSSL& socket);
    bool xLogIn();
    bool xSetUp();
    void xReadFeatures();
    void xLeave();
    void xDropConnection();
    String xFullPath(const String& path) const;

    // FtpClientSessionData.cpp
    /// Prepares a data connection, gives the command (from position from on) and has the connection stand.
    bool xBeginTransfer(const String& verb, const String& argument, ULONG8& from);
    /// Reads how it ended. isMoved: everything went over the data connection.
    bool xEndTransfer(bool isMoved);
    bool xPrepareData();
    bool xPreparePassive();
    bool xReadPassivePort(USHORT& port);
    bool xPrepareActive();
    bool xAcceptData();
    void xEndSending();
    bool xSecureData();
    void xCloseData(bool inOrder);
    /// Receives once. False: the request failed. isOpen: whether more may come.
    bool xReceiveData(ULONG& got, bool& isOpen);

    // FtpClientSessionListing.cpp
    bool xList(const REQUEST& request);
    bool xListAs(FORM form, const String& folder, std::vector<FtpRemoteEntry>& entries);
    bool xReadLongListing(std::string& text);
    bool xListNames(const String& folder, std::vector<FtpRemoteEntry>& entries);
    bool xReadListing(const String& verb, const String& argument, std::string& text);
    bool xProbeKinds(const String& folder, std::vector<FtpRemoteEntry>& entries);
    bool xProbeTimes(const String& folder, std::vector<FtpRemoteEntry>& entries);
    bool xGetFacts(const String& path, FtpRemoteEntry& entry);
    bool xAskSizeAndTime(const String& path, FtpRemoteEntry& entry);
    bool xIsFolder(const String& path, bool& isFolder);

    // FtpClientSessionTransfer.cpp
    bool xDownload(const REQUEST& request);
    bool xReceiveFile(const String& path, const FtpRemoteEntry& version, FtpFile& file, ULONG8 from);
    bool xReceiveBytes(platform::FileHandle file, ULONG8 moved, const FtpRemoteEntry& version);
    bool xUpload(const REQUEST& request);
    bool xSendFile(const String& path, const FtpRemoteEntry& version, FtpFile& file, bool mayResume);
    bool xSendBytes(platform::FileHandle file, ULONG8 moved, ULONG8 size);
    bool xAskPartSize(const String& path, ULONG8 limit, ULONG8& size);
    bool xGiveName(const String& part, const String& path);
    bool xFailFile(platform::FileResult result, const String& name);

    // Set once at construction.
    NetDNSCache& m_cache;
    const FtpClientSettings m_settings;

    std::atomic<bool> m_canSetTimes{false}; // MFMT

    std::map<ULONG, REQUEST> m_waiting; // by id; guarded by the control lock, as the next one
    FtpClientProgress m_progress;

    std::mutex m_resultLock; // guards the next two
    std::condition_variable m_resultCame;
    std::map<ULONG, FtpClientResult> m_results;

    // The session's thread only.
    FtpClientResult m_result; // of the running request
    std::vector<unsigned char> m_replyBytes;
    NetTCP::RECVBUF m_replyBuffer;
    FtpReply m_reply;
    unsigned m_repliesDue = 0; // final ones that the server still owes
    bool m_isCatchingUp = false;
    TimedEvent m_catchUpLimit;
    bool m_isLoggedIn = false;
    FEATURES m_features;
    String m_home;
    std::unique_ptr<NetTCPSSL> m_data;
    bool m_isFinalReplyRead = false; // of the running transfer
    std::vector<unsigned char> m_chunk;
};

} // namespace kqlib
