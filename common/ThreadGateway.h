// ThreadGateway: the mutex of the library, and its scope guard.
#pragma once

#include "platform/Export.h"

#include <mutex>

namespace kqlib {

/// A mutex that the thread which holds it may take again (each Lock needs its Unlock). Any thread.
class KQCOMMON_API ThreadGateway
{
public:
    ThreadGateway() = default;
    ThreadGateway(const ThreadGateway&) = delete;
    ThreadGateway& operator=(const ThreadGateway&) = delete;

    /// Waits until no other thread holds it.
    void Lock() const { m_mutex.lock(); }
    void Unlock() const { m_mutex.unlock(); }

private:
    mutable std::recursive_mutex m_mutex;
};

/// Holds a ThreadGateway for a scope.
class ThreadGatewayGuard
{
public:
    explicit ThreadGatewayGuard(const ThreadGateway& gateway)
        : m_gateway(gateway)
    {
        m_gateway.Lock();
    }
    ~ThreadGatewayGuard() { m_gateway.Unlock(); }
    ThreadGatewayGuard(const ThreadGatewayGuard&) = delete;
    ThreadGatewayGuard& operator=(const ThreadGatewayGuard&) = delete;

private:
    const ThreadGateway& m_gateway;
};

} // namespace kqlib
