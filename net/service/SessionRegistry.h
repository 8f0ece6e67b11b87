// SessionRegistry: the sessions of one service. Inside the library only.
#pragma once

#include "common/ThreadGateway.h"
#include "common/Types.h"
#include "common/VectorPtr.h"
#include "net/session/NetTCPSession.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>

namespace kqlib {

/// Two lists of sessions, incoming and outgoing, in the order in which they came. It finds those that are complete and
/// closes those that are not; each is shown to its owner's RETIRE once before it is deleted.
///
/// Ownership: owns its sessions. Threads: the owner's lock is held by the caller of every operation but Tell, which any
/// thread may call without it. A second lock guards the lists for the moments in which they change and for a walk of
/// Tell; it is never held while a session is waited for or deleted.
/// Errors: only Reserve, and what is called back, may throw; a session is in its list, or gone, in either case.
class SessionRegistry
{
public:
    /// A list of sessions, in which only the registry puts any.
    using LIST = VectorPtr<NetTCPSession>;
    /// Called with a session that is complete, just before it is deleted.
    using RETIRE = std::function<void(const NetTCPSession&)>;

    /// No sessions.
    SessionRegistry() = default;
    SessionRegistry(const SessionRegistry&) = delete;
    SessionRegistry& operator=(const SessionRegistry&) = delete;

    /// The two lists, for the other operations and their counts.
    ///@{
    LIST& GetIncoming() { return m_incoming; }
    LIST& GetOutgoing() { return m_outgoing; }
    ///@}

    /// Makes sure that the next Add to the list needs no memory.
    void Reserve(LIST& list);
    /// Takes ownership of session, which may run or be complete already.
    void Add(LIST& list, NetTCPSession* session);

    /// Retires and deletes the complete sessions, outgoing ones first; returns how many. Costs next to nothing when
    /// none has ended and none has come since the last call.
    ULONG RemoveDone(const RETIRE& retire);
    /// Asks each session to end and waits for it, incoming ones first; retires and deletes it.
    void CloseAll(const RETIRE& retire);
    /// Asks every session to end.
    void AskAll();

    /// Calls action with each session, incoming ones first.
    template <class ACTION> void ForEach(ACTION&& action)
    {
        for (LIST* list : {&m_incoming, &m_outgoing})
            for (ULONG index = 0; index < list->GetCount(); ++index)
                action(list->Get(index));
    }
    /// The same on any thread, without the owner's lock; action must not wait for anything.
    template <class ACTION> void Tell(ACTION&& action)
    {
        const ThreadGatewayGuard guard(m_lists);
        ForEach(action);
    }

private:
    ULONG xRemoveDone(LIST& list, const RETIRE& retire);
    void xClose(LIST& list, const RETIRE& retire);
    void xDelete(LIST& list, ULONG index);

    ThreadGateway m_lists; // taken inside the owner's lock, never the other way round
    LIST m_incoming;       // changed under both locks, read under either; the next too
    LIST m_outgoing;
    /// Counts the ends of this registry's sessions; held in common with them.
    const std::shared_ptr<std::atomic<std::uint32_t>> m_ended = std::make_shared<std::atomic<std::uint32_t>>(0);
    std::uint32_t m_endedAtLook = 0; // what it was when RemoveDone looked through the lists last
    bool m_cameSinceLook = false;    // a session was added since; it may have ended before it was counted
};

} // namespace kqlib
