// StopWatcher: Ctrl-C.
#include "hosts/ftpclient/app/StopWatcher.h"

#include "hosts/ftpclient/app/ExitCodes.h"
#include "platform/Signals.h"

#include <cstdlib>
#include <utility>

namespace kqlib {

namespace {

constexpr std::uint32_t LOOK_MS = 50; // also how long ending may take

} // namespace

StopWatcher::StopWatcher(std::function<void()> onStop)
    : m_onStop(std::move(onStop))
    , m_thread([this] { xWatch(); })
{
}

StopWatcher::~StopWatcher()
{
    m_isOver = true;
    m_thread.join();
}

void StopWatcher::xWatch()
{
    bool isStopping = false;
    while (!m_isOver) {
        if (platform::WaitForProcessRequest(LOOK_MS) != platform::ProcessRequest::STOP)
            continue;
        if (isStopping)
            std::_Exit(EXIT_CANCELLED);
        isStopping = true;
        m_onStop();
    }
}

} // namespace kqlib
