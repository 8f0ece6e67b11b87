// SingleThread: an object with a thread of its own, without a pool.
#pragma once

#include "common/Types.h"
#include "platform/Export.h"

#include <memory>

namespace kqlib {

/// As SingleThreadByPool, on a thread made for it alone.
class KQCOMMON_API SingleThread
{
public:
    virtual ~SingleThread();
    SingleThread(const SingleThread&) = delete;
    SingleThread& operator=(const SingleThread&) = delete;

private:
    virtual void xThread() = 0;

protected:
    SingleThread();

    /// Starts the thread; threadId receives the system's id of it. True at once when it runs already. False: the system
    /// has no thread to give.
    bool xRunThread(unsigned long& threadId);
    /// Asks the thread to end and waits for it.
    void xEndThread();
    void xEndThreadAsync();
    bool xIsThreadRunning() const;
    bool xShouldThreadEnd() const;

private:
    struct CONTROL;
    std::shared_ptr<CONTROL> m_control;
};

} // namespace kqlib
