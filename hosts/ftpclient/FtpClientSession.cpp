// FtpClientSession: the queue, dispatch, keeping the connection alive.
#include "hosts/ftpclient/FtpClientSession.h"

#include <utility>

namespace kqlib {

namespace {

constexpr std::size_t MAX_REPLY_LINE = 8192;
constexpr std::size_t CHUNK_BYTES = 256 * 1024;
constexpr ULONG MS_PER_SECOND = 1000;
constexpr ULONG CATCH_UP_MS = 2000;

} // namespace

FtpClientSession::FtpClientSession(ThreadPool& pool, NetDNSCache& cache, DataLogTime& activityLog, EventLog& eventLog,
                                   const EventLogSessionID& id, const FtpClientSettings& settings)
    : NetTCPSessionControllableSSL(pool, cache, activityLog, eventLog, id, settings.timeOutSecs, nullptr)
    , m_cache(cache)
    , m_settings(settings)
    , m_replyBytes(MAX_REPLY_LINE)
    , m_replyBuffer{static_cast<ULONG>(m_replyBytes.size()), m_replyBytes.data(), 0, 0, false}
    , m_catchUpLimit(TimedEvent::sGetNow(), 0, false)
    , m_chunk(CHUNK_BYTES)
{
    xSetMaxCmdSize(MAX_REPLY_LINE);
    xSetCmdEndIncludesLF(true);
    xSetTimeOutPrevent(settings.keepAliveSecs != 0, settings.keepAliveSecs * MS_PER_SECOND);
    xConstrStartSession();
}

FtpClientSession::~FtpClientSession()
{
    CancelAllReqs();
    xDeconstrEndSession();
}

// --- for other threads

ULONG FtpClientSession::Queue(const FtpClientRequest& request)
{
    xLockCtrlData();
    const ULONG id = xAddReq(request.code, true);
    m_waiting.emplace(id, request);
    xUnlockCtrlData();
    return id;
}

bool FtpClientSession::WaitForResult(ULONG id, FtpClientResult& result, ULONG milliSecs)
{
    std::unique_lock lock(m_resultLock);
    if (!m_resultCame.wait_for(lock, std::chrono::milliseconds(milliSecs), [&] { return m_results.contains(id); }))
        return false;
    result = std::move(m_results.extract(id).mapped());
    return true;
}

FtpClientProgress FtpClientSession::GetProgress() const
{
    xLockCtrlData();
    FtpClientProgress progress = m_progress;
    xUnlockCtrlData();
    return progress;
}

// --- requests

void FtpClientSession::xHandleCtrlReq(ULONG id, ULONG code, bool&)
{
    xLockCtrlData();
    const REQUEST request = std::move(m_waiting.extract(id).mapped());
    xUnlockCtrlData();
    m_result = FtpClientResult();
    xResetTimeOut();
    xUpdateState(true, xGetMainSocket(), xGetMainSocketSSL()->IsSSLOn(), code);
    // Whoever has this result finds the session fit for the next request.
    if (!xCarryOut(request) && m_result.IsDone())
        xFail(OUTCOME::CONFUSED, "the request failed");
    xCloseData(false);
    xCatchUp(CATCH_UP_MS);
    xBeginProgress(String(), 0, 0);
    xUpdateState(true, xGetMainSocket(), xGetMainSocketSSL()->IsSSLOn(), ACT_IDLE);
}

bool FtpClientSession::xCarryOut(const REQUEST& request)
{
    if (xShouldReqEnd())
        return xFailBroken();
    if (!xBeConnected())
        return false;
    const String path = xFullPath(request.remotePath);
    switch (request.code) {
    case REQUEST::CONNECT:
        return true;
    case REQUEST::LIST:
        return xList(request);
    case REQUEST::FACTS:
        return xGetFacts(path, m_result.entries.emplace_back());
    case REQUEST::DOWNLOAD:
        return xDownload(request);
    case REQUEST::UPLOAD:
        return xUpload(request);
    case REQUEST::MAKE_FOLDER:
        return xDemand("MKD", path);
    case REQUEST::REMOVE_FILE:
        return xDemand("DELE", path);
    case REQUEST::REMOVE_FOLDER:
        return xDemand("RMD", path);
    case REQUEST::SITE:
        if (!xDemand("SITE", request.remotePath))
            return false;
        m_result.lines = m_reply.GetInnerLines();
        return true;
    }
    return xFail(OUTCOME::CONFUSED, "no such request");
}

void FtpClientSession::xHandleCtrlReqCancelled(ULONG id, ULONG, bool&)
{
    xLockCtrlData();
    m_waiting.erase(id);
    xUnlockCtrlData();
    m_result = FtpClientResult();
    xFail(OUTCOME::CANCELLED, "cancelled before it began");
}

void FtpClientSession::xHandleCtrlReqComplete(ULONG id, ULONG)
{
    {
        const std::lock_guard lock(m_resultLock);
        m_results[id] = std::move(m_result);
    }
    m_resultCame.notify_all();
}

// --- while nothing is asked

void FtpClientSession::xHandleCtrlTimedOut()
{
    xLeave();
    xResetTimeOut();
    xUpdateState(true, xGetMainSocket(), false, ACT_IDLE);
}

void FtpClientSession::xHandleCtrlTimeOutPrevent()
{
    if (!xGetMainSocket()->IsConnected())
        return;
    // Not as a request's command: a cancelling that came while nothing ran must not count here.
    ++m_repliesDue;
    xResetTimeOut();
    xSendCommandForce(xGetMainSocket(), "NOOP");
    xCatchUp(m_settings.timeOutSecs * MS_PER_SECOND); // any answer will do
    xUpdateState(true, xGetMainSocket(), xGetMainSocketSSL()->IsSSLOn(), ACT_IDLE);
}

void FtpClientSession::xEventSessionEnd()
{
    xCloseData(false);
    xLeave();
}

/// Replies that are caught up with come after the request was cancelled, so the base would not wait for them.
bool FtpClientSession::xWaitingForNetShouldWait()
{
    if (m_isCatchingUp)
        return !m_catchUpLimit.IsTriggered(TimedEvent::sGetNow());
    return NetTCPSessionControllableSSL::xWaitingForNetShouldWait();
}

// --- progress

void FtpClientSession::xBeginProgress(const String& name, ULONG8 moved, ULONG8 total)
{
    xLockCtrlData();
    m_progress = {name, moved, total};
    xUnlockCtrlData();
}

void FtpClientSession::xNoteProgress(ULONG8 moved)
{
    xLockCtrlData();
    m_progress.moved += moved;
    xUnlockCtrlData();
    m_result.moved += moved;
}

} // namespace kqlib
