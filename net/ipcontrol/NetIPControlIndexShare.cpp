#include "net/ipcontrol/NetIPControlIndexShare.h"

#include <memory>
#include <new>

namespace kqlib {

NetIPControlIndexShare::~NetIPControlIndexShare()
{
    delete m_index.load(std::memory_order_acquire);
}

const NetIPControlIndex* NetIPControlIndexShare::Get(const NetIPControl& rules)
{
    const NetIPControlIndex* const index = m_index.load(std::memory_order_acquire);
    if (index != nullptr)
        return index;
    // One caller alone counts to exactly this number.
    return m_walks.fetch_add(1, std::memory_order_relaxed) == WALKS ? xMake(rules) : nullptr;
}

const NetIPControlIndex* NetIPControlIndexShare::xMake(const NetIPControl& rules)
{
    try {
        auto index = std::make_unique<const NetIPControlIndex>(rules);
        const NetIPControlIndex* none = nullptr;
        // The count has come round meanwhile when there is one already.
        return m_index.compare_exchange_strong(none, index.get(), std::memory_order_acq_rel) ? index.release() : none;
    } catch (const std::bad_alloc&) {
        m_walks.store(0, std::memory_order_relaxed); // tried again after as many walks
        return nullptr;
    }
}

} // namespace kqlib
