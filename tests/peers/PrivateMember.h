// PrivateMember: reaches a private data member from a test, where waiting for its value would take days.
#pragma once

namespace kqlib::test {

/// Instantiated explicitly with a tag and a pointer to the member: access is not checked there. The tag declares the
/// function that this defines:
///
///     struct NextNumber
///     {
///         friend std::uint32_t Owner::* GetPrivateMember(NextNumber);
///     };
///     template struct PrivateMember<NextNumber, &Owner::m_nextNumber>;
///     …
///     owner.*GetPrivateMember(NextNumber()) = 0xFFFFFFFFU;
template <class TAG, auto MEMBER> struct PrivateMember
{
    friend auto GetPrivateMember(TAG) -> decltype(MEMBER) { return MEMBER; }
};

} // namespace kqlib::test
