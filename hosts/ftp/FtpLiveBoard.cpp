// FtpLiveBoard: what the service is doing, for sessions that want to show it or to step in.
#include "hosts/ftp/FtpLiveBoard.h"

#include "net/service/NetTCPService.h"
#include "platform/Clock.h"

namespace kqlib {

namespace {

constexpr ULONG WAIT_MS = 100;              // how long the thread waits for a question before it looks for its end
constexpr std::uint32_t ANSWER_WAIT_MS = 2; // between two looks for the answer

} // namespace

FtpLiveBoard::FtpLiveBoard(ThreadPool& pool, NetTCPService& service)
    : SingleThreadByPool(pool)
    , m_service(service)
{
}

FtpLiveBoard::~FtpLiveBoard()
{
    End();
}

bool FtpLiveBoard::Start()
{
    return xRunThread();
}

void FtpLiveBoard::End()
{
    xEndThreadAsync();
    m_wanted.Set();
    xEndThread();
}

std::shared_ptr<const FtpLiveBoard::SNAPSHOT> FtpLiveBoard::Take(const std::function<bool()>& goOn)
{
    std::uint64_t mine = 0;
    {
        const std::lock_guard lock(m_mutex);
        mine = ++m_askedCount;
    }
    m_wanted.Set();
    while (goOn() && xIsThreadRunning()) {
        {
            const std::lock_guard lock(m_mutex);
            if (m_drawnCount >= mine)
                return m_picture;
        }
        platform::SleepMs(ANSWER_WAIT_MS);
    }
    return nullptr;
}

void FtpLiveBoard::Disconnect(const EventLogSessionID& id, const String& text)
{
    m_service.SendControlMsgDisconnect(id, text);
}

void FtpLiveBoard::StopTransfer(const EventLogSessionID& id, const String& text)
{
    m_service.SendControlMsgStopTransfer(id, text);
}

void FtpLiveBoard::xThread()
{
    while (!xShouldThreadEnd()) {
        if (!m_wanted.Wait(WAIT_MS))
            continue;
        m_wanted.Reset();
        if (!xShouldThreadEnd())
            xDraw();
    }
}

void FtpLiveBoard::xDraw()
{
    std::uint64_t answered = 0;
    {
        const std::lock_guard lock(m_mutex);
        answered = m_askedCount;
    }
    auto picture = std::make_shared<SNAPSHOT>();
    m_service.GetLiveSessions(picture->sessions);
    m_service.GetStatus(picture->totals);
    const std::lock_guard lock(m_mutex);
    m_picture = std::move(picture);
    m_drawnCount = answered;
}

} // namespace kqlib
