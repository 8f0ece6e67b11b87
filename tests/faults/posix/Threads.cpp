// The wrapper's threads and memory, which the C++ library asks of the system: a thread that cannot be had becomes
// std::system_error there, a block that cannot be had is std::bad_alloc here.
#include "tests/faults/posix/Interposition.h"

#include <cerrno>
#include <memory>
#include <new>
#include <pthread.h>
#include <utility>

namespace kqlib::test {

namespace {

thread_local bool isLibraryThread = false;

struct START
{
    void* (*body)(void*);
    void* argument;
};

void* RunLibraryThread(void* start)
{
    isLibraryThread = true;
    const START begin = *std::unique_ptr<START>(static_cast<START*>(start));
    return begin.body(begin.argument);
}

/// Whether an allocation is to fail.
bool IsMemoryShort(std::size_t size)
{
    if (FaultPlan::sIsMemoryScripted(size))
        return (isLibraryThread || FaultPlan::sFailsEverywhere()) && !IsUndisturbed() && IsCalledByLibraries() &&
               FaultPlan::sTakeScriptedMemory();
    if (size < LARGE_BLOCK || FaultPlan::sGetKind() != FaultPlan::KIND::HARSH || IsUndisturbed() ||
        !FaultPlan::sDraw(FAULT::NO_MEMORY) || !IsCalledByLibraries())
        return false;
    FaultPlan::sCount(FAULT::NO_MEMORY);
    return true;
}

} // namespace

bool IsLibraryThread()
{
    return isLibraryThread;
}

} // namespace kqlib::test

extern "C" __attribute__((visibility("default"))) int
pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*), void* argument) noexcept
{
    using namespace kqlib::test;
    const auto real = Real<&pthread_create>();
    if (IsUndisturbed() || !IsCalledByLibraries())
        return real(thread, attributes, body, argument);
    if (FaultPlan::sDraw(FAULT::NO_THREAD)) {
        FaultPlan::sCount(FAULT::NO_THREAD);
        return EAGAIN;
    }
    auto start = std::make_unique<START>(START{body, argument});
    const int result = real(thread, attributes, RunLibraryThread, start.get());
    if (result == 0)
        static_cast<void>(start.release());
    return result;
}

void* operator new(std::size_t size)
{
    using namespace kqlib::test;
    if (IsMemoryShort(size))
        throw std::bad_alloc();
    return Real<static_cast<void* (*)(std::size_t)>(&operator new)>()(size);
}

void* operator new[](std::size_t size)
{
    using namespace kqlib::test;
    if (IsMemoryShort(size))
        throw std::bad_alloc();
    return Real<static_cast<void* (*)(std::size_t)>(&operator new[])>()(size);
}
