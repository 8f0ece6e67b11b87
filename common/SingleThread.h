// SingleThread: an object with a thread of its own, without a pool.
#pragma once

#include "common/Types.h"
#include "platform/Export.h"

#include <memory>

namespace kqlib {

/// As SingleThreadByPool, on a thread made for it alone.
///
/// The most derived destructor calls xEndThread first. Ownership: owns its thread. Threads: xRunThread and xEndThread
/// one thread at a time, the others any thread. Errors: xRunThread answers false. An exception that leaves xThread ends
/// the thread and no more.
class KQCOMMON_API SingleThread
{
public:
    /// The thread must have ended (checked in debug builds).
    virtual ~SingleThread();
    SingleThread(const SingleThread&) = delete;
    SingleThread& operator=(const SingleThread&) = delete;

private:
    /// The thread's body. It ends soon after xShouldThreadEnd turns true.
    virtual void xThread() = 0;

protected:
    /// Nothing runs yet.
    SingleThread();

    /// Starts the thread; threadId receives the system's id of it. True at once when it runs already. False: the system
    /// has no thread to give.
    bool xRunThread(unsigned long& threadId);
    /// Asks the thread to end and waits for it. Nothing when it never ran. On the object's own thread it only asks.
    void xEndThread();
    /// Only asks.
    void xEndThreadAsync();
    /// True from the success of xRunThread until the body has returned.
    bool xIsThreadRunning() const;
    /// True once an end was asked for; every loop polls it.
    bool xShouldThreadEnd() const;

private:
    struct CONTROL;
    std::unique_ptr<CONTROL> m_control;
};

} // namespace kqlib
