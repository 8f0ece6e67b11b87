#include "platform/Threads.h"

#include <algorithm>
#include <memory>
#include <new>
#include <pthread.h>
#include <type_traits>
#include <unistd.h>

namespace kqlib::platform {

namespace {

constexpr std::size_t SMALLEST_STACK = std::size_t{64} * 1024;

static_assert(std::is_integral_v<pthread_t> && sizeof(pthread_t) <= sizeof(ThreadHandle));

struct Start
{
    void (*body)(void*);
    void* argument;
};

void* RunThread(void* start)
{
    const Start begin = *std::unique_ptr<Start>(static_cast<Start*>(start));
    begin.body(begin.argument);
    return nullptr;
}

/// What a thread is made with. The size of its stack is one of whole pages.
class Attributes
{
public:
    explicit Attributes(std::size_t stackBytes)
    {
        pthread_attr_init(&m_attributes);
        const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        const std::size_t wanted = std::max(stackBytes, SMALLEST_STACK);
        if (stackBytes != 0)
            pthread_attr_setstacksize(&m_attributes, (wanted + page - 1) / page * page);
    }
    ~Attributes() { pthread_attr_destroy(&m_attributes); }
    Attributes(const Attributes&) = delete;
    Attributes& operator=(const Attributes&) = delete;

    const pthread_attr_t* Get() const { return &m_attributes; }

private:
    pthread_attr_t m_attributes;
};

} // namespace

std::uint32_t CurrentThreadId()
{
    return static_cast<std::uint32_t>(::gettid());
}

bool StartThread(void (*body)(void*), void* argument, std::size_t stackBytes, ThreadHandle& thread)
{
    std::unique_ptr<Start> start(new (std::nothrow) Start{body, argument});
    const Attributes attributes(stackBytes);
    pthread_t started = {};
    if (!start || pthread_create(&started, attributes.Get(), RunThread, start.get()) != 0)
        return false;
    static_cast<void>(start.release()); // the thread's now
    thread = started;
    return true;
}

void JoinThread(ThreadHandle thread)
{
    pthread_join(static_cast<pthread_t>(thread), nullptr);
}

} // namespace kqlib::platform
