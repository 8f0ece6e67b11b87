// RunWithinMemory: a step that may find no memory, on a thread that goes on all the same. Inside the libraries only.
#pragma once

#include <new>
#include <utility>

namespace kqlib {

/// Runs a step. False: it was left because an allocation failed; what it held is released.
template <class STEP> bool RunWithinMemory(STEP&& step)
{
    try {
        std::forward<STEP>(step)();
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

} // namespace kqlib
