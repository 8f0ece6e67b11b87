// ThreadSafe: the base of classes that lock themselves.
#pragma once

#include "common/ThreadGateway.h"

namespace kqlib {

/// Gives a derived class a mutex of its own, which the holding thread may take again.
class KQCOMMON_API ThreadSafe
{
protected:
    /// The mutex is held by nobody.
    ThreadSafe() = default;
    ~ThreadSafe() = default;

    /// As ThreadGateway: each xLock needs its xUnlock.
    ///@{
    void xLock() const { m_gateway.Lock(); }
    void xUnlock() const { m_gateway.Unlock(); }
    ///@}

    /// Holds the lock of an object for a scope.
    class Guard
    {
    public:
        /// Locks. Borrows the object, which must outlive the guard.
        explicit Guard(const ThreadSafe& object)
            : m_guard(object.m_gateway)
        {
        }

    private:
        ThreadGatewayGuard m_guard;
    };

private:
    ThreadGateway m_gateway;
};

} // namespace kqlib
