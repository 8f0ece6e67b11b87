// NetIPControlIndexShare: the index of a rule list, shared by its copies. Inside the library only.
#pragma once

#include "net/ipcontrol/NetIPControlIndex.h"

#include <atomic>
#include <cstdint>

namespace kqlib {

/// The index of one content of a rule list. All copies of a list share one such object; whoever changes a list gives it
/// a new one.
///
/// An index costs as much as some dozens of walks of its list. So a list is walked at first, and indexed once it has
/// been walked that often. A host that changes its list before each decision never pays for an index in vain.
///
/// Ownership: owns the index. Threads: any; one of them makes the index, and the others walk meanwhile. Errors: none;
/// without memory for an index the list goes on being walked.
class NetIPControlIndexShare
{
public:
    /// How often a list is walked before it is indexed.
    static constexpr std::uint32_t WALKS = 64;

    /// No walk yet.
    NetIPControlIndexShare() = default;
    ~NetIPControlIndexShare();
    NetIPControlIndexShare(const NetIPControlIndexShare&) = delete;
    NetIPControlIndexShare& operator=(const NetIPControlIndexShare&) = delete;

    /// The index of the rules, whose content this object must belong to. Null: walk them.
    const NetIPControlIndex* Get(const NetIPControl& rules);

private:
    const NetIPControlIndex* xMake(const NetIPControl& rules);

    std::atomic<const NetIPControlIndex*> m_index{nullptr}; ///< set once
    std::atomic<std::uint32_t> m_walks{0};
};

} // namespace kqlib
