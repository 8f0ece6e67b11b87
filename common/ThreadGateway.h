// ThreadGateway: the mutex of the library, and its scope guard.
#pragma once

#include "platform/Export.h"

#include <mutex>

namespace kqlib {

/// A mutex that the thread which holds it may take again (each Lock needs its Unlock). Any thread.
class KQCOMMON_API ThreadGateway
{
public:
    /// Held by nobody.
    ThreadGateway() = default;
    ThreadGateway(const ThreadGateway&) = delete;
    ThreadGateway& operator=(const ThreadGateway&) = delete;

    /// Waits until no other thread holds it.
    void Lock() const { m_mutex.lock(); }
    /// Takes one Lock of the same thread back; others get in once all of them are.
    void Unlock() const { m_mutex.unlock(); }

private:
    mutable std::recursive_mutex m_mutex;
};

/// Holds a ThreadGateway for a scope.
class ThreadGatewayGuard
{
public:
    /// Locks, after waiting as Lock does. Borrows the gateway, which must outlive this object.
    explicit ThreadGatewayGuard(const ThreadGateway& gateway)
        : m_gateway(gateway)
    {
        m_gateway.Lock();
    }
    /// Unlocks; on the thread that made it.
    ~ThreadGatewayGuard() { m_gateway.Unlock(); }
    ThreadGatewayGuard(const ThreadGatewayGuard&) = delete;
    ThreadGatewayGuard& operator=(const ThreadGatewayGuard&) = delete;

private:
    const ThreadGateway& m_gateway;
};

} // namespace kqlib
