// Interposition: how the wrapper stands before the platform layer.
//
// The program defines the exported functions of the layer once more. The dynamic linker takes a program's definitions
// before those of its libraries, so the calls of libkqnet and libkqcommon come here, also those from one file of a
// library to another; each passes on to the next definition, which is the real one.
#pragma once

#include "tests/faults/posix/FaultPlan.h"

#include <cstdint>
#include <string>
#include <vector>

namespace kqlib::test {

/// The definition of one of this program's functions that comes after it in the search order. Ends the program when
/// there is none.
void* FindNext(const void* own);

/// The same, as a function to call: Real<&platform::OpenSocket>()(true, family).
template <auto OWN> auto Real()
{
    static const auto real = reinterpret_cast<decltype(OWN)>(FindNext(reinterpret_cast<const void*>(OWN)));
    return real;
}

/// The real tick.
std::uint32_t GetRealTick();

/// Whether an address lies in the code of libkqnet or libkqcommon.
bool IsInLibraries(const void* code);

/// Whether the call that is being made comes from the two libraries: whether, going up from here, their code stands
/// before that of the test program. Code of the standard library, wherever it was compiled, counts for neither. Slow.
bool IsCalledByLibraries();

/// Whether an Undisturbed scope, or a wrapper, is being run on the calling thread.
bool IsUndisturbed();

/// Whether the calling thread was started by the libraries.
bool IsLibraryThread();

/// The mangled names of the functions of kqlib::platform that libkqcommon exports and that this program does not
/// define.
std::vector<std::string> GetUnwrappedFunctions();

/// The call that is being made, for the scope of a wrapper. A call of the real layer to itself is none.
class Call
{
public:
    /// returnAddress: of the wrapper.
    explicit Call(const void* returnAddress);
    ~Call();
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;

    /// Whether the plan in force may do something to it: it is the libraries' call.
    explicit operator bool() const { return m_isStruck; }
    [[nodiscard]] bool IsFromLibraries() const { return m_isFromLibraries; }
    /// Draws, and counts what strikes.
    [[nodiscard]] FaultPlan::DRAW Draw(FAULT fault) const;

private:
    const bool m_isFromLibraries; ///< and made directly, not inside another one
    const bool m_isStruck;
};

/// For a scope on this thread nothing is done to calls.
class Undisturbed
{
public:
    Undisturbed();
    ~Undisturbed();
    Undisturbed(const Undisturbed&) = delete;
    Undisturbed& operator=(const Undisturbed&) = delete;
};

} // namespace kqlib::test
