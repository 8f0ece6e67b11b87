#include "common/SingleThread.h"

#include "common/RunGuarded.h"
#include "common/ThreadControl.h"
#include "platform/Threads.h"

#include <cassert>
#include <cstdint>
#include <future>
#include <new>
#include <system_error>
#include <thread>
#include <utility>

namespace kqlib {

struct SingleThread::CONTROL : ThreadControl
{
    /// Waits until the thread of the last run is gone.
    void Join()
    {
        if (thread.joinable())
            thread.join();
    }

    std::thread thread;         ///< the owner's calls only
    std::uint32_t threadId = 0; ///< the owner's calls only
};

SingleThread::SingleThread()
    : m_control(std::make_unique<CONTROL>())
{
}

SingleThread::~SingleThread()
{
    assert(!m_control->IsRunning() && "the most derived destructor must end the thread");
    m_control->Join();
}

bool SingleThread::xRunThread(unsigned long& threadId)
{
    if (!m_control->Start()) {
        threadId = m_control->threadId;
        return true;
    }
    m_control->Join();
    // The thread uses the control block after the body has returned; the destructor waits for that.
    try {
        std::promise<std::uint32_t> idSource;
        std::future<std::uint32_t> id = idSource.get_future();
        m_control->thread = std::thread([this, control = m_control.get(), source = std::move(idSource)]() mutable {
            source.set_value(platform::CurrentThreadId());
            control->EnterBody();
            static_cast<void>(RunGuarded([this] { xThread(); })); // nobody is left to tell of an exception
            control->LeaveBody();
        });
        m_control->threadId = id.get();
        threadId = m_control->threadId;
        return true;
    } catch (const std::system_error&) {
        // The system has no thread to give.
    } catch (const std::bad_alloc&) {
        // Nor memory for one.
    }
    m_control->CancelStart();
    return false;
}

void SingleThread::xEndThread()
{
    m_control->RequestEnd();
    if (m_control->IsOwnThread())
        return;
    m_control->WaitUntilEnded();
    m_control->Join();
}

void SingleThread::xEndThreadAsync()
{
    m_control->RequestEnd();
}

bool SingleThread::xIsThreadRunning() const
{
    return m_control->IsRunning();
}

bool SingleThread::xShouldThreadEnd() const
{
    return m_control->IsEndRequested();
}

} // namespace kqlib
