#include "common/SingleThreadByPool.h"

#include "common/ThreadControl.h"
#include "common/ThreadPool.h"
#include "common/WithinMemory.h"

#include <cassert>
#include <utility>

namespace kqlib {

struct SingleThreadByPool::CONTROL : ThreadControl
{
};

SingleThreadByPool::SingleThreadByPool(ThreadPool& pool)
    : m_pool(pool)
    , m_control(std::make_shared<CONTROL>())
{
}

SingleThreadByPool::~SingleThreadByPool()
{
    assert(!m_control->IsRunning() && "the most derived destructor must end the thread");
}

bool SingleThreadByPool::xRunThread()
{
    if (!m_control->Start())
        return true;
    bool had = false;
    static_cast<void>(RunWithinMemory([this, &had] {
        had = m_pool.Run(
            [this, control = m_control] {
                control->EnterBody();
                xThread();
            },
            [control = m_control] { control->LeaveBody(); });
    }));
    if (!had)
        m_control->CancelStart();
    return had;
}

void SingleThreadByPool::xEndThread()
{
    m_control->RequestEnd();
    m_control->WaitUntilEnded();
}

void SingleThreadByPool::xEndThreadAsync()
{
    m_control->RequestEnd();
}

bool SingleThreadByPool::xIsThreadRunning() const
{
    return m_control->IsRunning();
}

bool SingleThreadByPool::xShouldThreadEnd() const
{
    return m_control->IsEndRequested();
}

ThreadPool& SingleThreadByPool::xGetPool() const
{
    return m_pool;
}

void SingleThreadByPool::xCountEndIn(std::shared_ptr<std::atomic<std::uint32_t>> counter)
{
    m_control->CountEndIn(std::move(counter));
}

} // namespace kqlib
