// DescriptorShortage: leaves the process without a free descriptor for a scope. It is a test of a POSIX limit and needs
// setrlimit; IsPossible tells where it cannot be had, and the test must say so. The undefined-behaviour sanitizer,
// which is built together with the address sanitizer, opens a pipe to look at the type of an object before a virtual
// call, and reports a good one as bad when it gets none: tests that make such calls in the scope ask
// IsPossibleWithVirtualCalls.
#pragma once

#include "platform/Sockets.h"

#if __has_include(<sys/resource.h>)
#include <sys/resource.h>

namespace kqlib::test {

class DescriptorShortage
{
public:
    static constexpr bool IsPossible() { return true; }
#ifdef __SANITIZE_ADDRESS__
    static constexpr bool IsPossibleWithVirtualCalls()
    {
        return false;
    }
#else
    static constexpr bool IsPossibleWithVirtualCalls()
    {
        return true;
    }
#endif

    DescriptorShortage()
    {
        getrlimit(RLIMIT_NOFILE, &m_before);
        // The system gives the lowest free descriptor: when the limit is there, none is left.
        const platform::SocketHandle lowest = platform::OpenSocket(true, platform::Family::IP4);
        platform::CloseSocket(lowest);
        rlimit none = m_before;
        none.rlim_cur = lowest;
        m_isApplied = setrlimit(RLIMIT_NOFILE, &none) == 0;
    }
    ~DescriptorShortage()
    {
        setrlimit(RLIMIT_NOFILE, &m_before);
    }
    DescriptorShortage(const DescriptorShortage&) = delete;
    DescriptorShortage& operator=(const DescriptorShortage&) = delete;

    bool IsApplied() const
    {
        return m_isApplied;
    }

private:
    rlimit m_before{};
    bool m_isApplied = false;
};

} // namespace kqlib::test

#else

namespace kqlib::test {

class DescriptorShortage
{
public:
    static constexpr bool IsPossible() { return false; }
    static constexpr bool IsPossibleWithVirtualCalls() { return false; }
    bool IsApplied() const { return false; }
};

} // namespace kqlib::test

#endif
