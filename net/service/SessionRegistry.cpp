#include "net/service/SessionRegistry.h"

#include "common/WithinMemory.h"

namespace kqlib {

void SessionRegistry::Reserve(LIST& list)
{
    const ThreadGatewayGuard guard(m_lists);
    list.ReserveOne();
}

void SessionRegistry::Add(LIST& list, NetTCPSession* session)
{
    const ThreadGatewayGuard guard(m_lists);
    list.Give(session);
    session->xCountEndIn(m_ended);
    m_cameSinceLook = true;
}

ULONG SessionRegistry::RemoveDone(const RETIRE& retire)
{
    // With thousands of sessions a look at each would cost every pass more than its accept.
    const std::uint32_t ended = m_ended->load();
    if (ended == m_endedAtLook && !m_cameSinceLook)
        return 0;
    m_endedAtLook = ended;
    m_cameSinceLook = false;
    ULONG removed = 0;
    const bool all = RunWithinMemory([&] {
        removed = xRemoveDone(m_outgoing, retire);
        removed += xRemoveDone(m_incoming, retire);
    });
    if (!all)
        m_cameSinceLook = true; // the next look finds those that are left
    return removed;
}

ULONG SessionRegistry::xRemoveDone(LIST& list, const RETIRE& retire)
{
    ULONG removed = 0;
    for (ULONG index = 0; index < list.GetCount();) {
        if (!list.Get(index).IsComplete()) {
            ++index;
            continue;
        }
        retire(list.Get(index));
        xDelete(list, index);
        ++removed;
    }
    return removed;
}

void SessionRegistry::CloseAll(const RETIRE& retire)
{
    xClose(m_incoming, retire);
    xClose(m_outgoing, retire);
}

void SessionRegistry::xClose(LIST& list, const RETIRE& retire)
{
    while (list.GetCount() > 0) {
        list.Get(0).ForceComplete();
        // There is no next look: where there is no memory for its sums, a session goes without them.
        static_cast<void>(RunWithinMemory([&] { retire(list.Get(0)); }));
        xDelete(list, 0);
    }
}

void SessionRegistry::AskAll()
{
    ForEach([](NetTCPSession& session) { session.ForceCompleteAsync(); });
}

void SessionRegistry::xDelete(LIST& list, ULONG index)
{
    std::unique_ptr<NetTCPSession> session; // deleted after the lists are free again
    const ThreadGatewayGuard guard(m_lists);
    session.reset(list.Remove(index));
}

} // namespace kqlib
