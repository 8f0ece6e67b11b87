// RunGuarded: a step that calls a host's code, on a thread that goes on whatever leaves it. Inside the libraries only.
#pragma once

#include "common/CurrentExceptionText.h"
#include "common/String.h"
#include "common/WithinMemory.h"

#include <utility>

namespace kqlib {

/// Runs a step. False: an exception left it, which why tells (nothing, where there is no memory for the text); what the
/// step held is released.
template <class STEP> bool RunGuarded(STEP&& step, String& why)
{
    try {
        std::forward<STEP>(step)();
        return true;
    } catch (...) {
        static_cast<void>(RunWithinMemory([&why] { why = CurrentExceptionText(); }));
        return false;
    }
}

/// The same for who does not ask why.
template <class STEP> bool RunGuarded(STEP&& step)
{
    try {
        std::forward<STEP>(step)();
        return true;
    } catch (...) {
        return false;
    }
}

} // namespace kqlib
