// The records of the data logs, from stored bytes. Input: one byte (bit 0: which record; bit 1: how two are folded),
// then the bytes of two records.
#include "fuzz/Check.h"
#include "fuzz/Input.h"
#include "net/status/NetSessionActivity.h"
#include "net/status/NetSessionStatus.h"

#include <algorithm>
#include <string>

using namespace kqlib;
using namespace kqlib::fuzz;

namespace {

constexpr std::size_t SESSION_OWN = 16; // start and end
constexpr std::size_t SESSION_SIZE = SESSION_OWN + 292;
constexpr std::size_t SESSION_COUNTERS = SESSION_OWN + 56;
constexpr std::size_t USER = SESSION_OWN + 164;
constexpr std::size_t USER_SIZE = 32;
constexpr std::size_t ACTIVITY_OWN = 4; // time unit
constexpr std::size_t ACTIVITY_SIZE = ACTIVITY_OWN + 136;
constexpr unsigned COUNTERS = 22;

std::string RawOf(const DataLogEntry& entry)
{
    return {reinterpret_cast<const char*>(entry.GetRawData()), entry.GetRawSize()};
}

bool SetRaw(DataLogEntry& entry, const std::string& bytes)
{
    return entry.SetRawData(reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<ULONG>(bytes.size()));
}

std::uint64_t Load(const std::string& bytes, std::size_t offset, std::size_t size)
{
    std::uint64_t value = 0;
    for (std::size_t i = size; i-- > 0;)
        value = value << 8 | static_cast<unsigned char>(bytes[offset + i]);
    return value;
}

void Store(std::string& bytes, std::size_t offset, std::size_t size, std::uint64_t value)
{
    for (std::size_t i = 0; i < size; ++i, value >>= 8)
        bytes[offset + i] = static_cast<char>(value & 0xFF);
}

/// The text field as it may be shown: its last byte ends it, no control character stands before its end, and nothing of
/// an older text behind it.
void MakeUserSafe(std::string& bytes)
{
    bytes[USER + USER_SIZE - 1] = '\0';
    std::size_t i = USER;
    for (; bytes[i] != '\0'; ++i) {
        const auto byte = static_cast<unsigned char>(bytes[i]);
        if (byte < 32 || byte == 127)
            bytes[i] = '_';
    }
    std::fill(bytes.begin() + static_cast<std::ptrdiff_t>(i), bytes.begin() + USER + USER_SIZE, '\0');
}

/// Adds the counters of source to those of target; larger: the first two take the larger value.
void FoldCounters(std::string& target, const std::string& source, std::size_t offset, bool larger)
{
    for (unsigned i = 0; i < COUNTERS; ++i) {
        const std::size_t size = i >= 5 && i <= 8 ? 8 : 4;
        const std::uint64_t a = Load(target, offset, size);
        const std::uint64_t b = Load(source, offset, size);
        Store(target, offset, size, larger && i < 2 ? std::max(a, b) : a + b);
        offset += size;
    }
}

/// An unset start is filled; of two ends the later stays, an unset one is none.
void FoldTimes(std::string& target, const std::string& source)
{
    if (Load(target, 0, 8) == 0)
        Store(target, 0, 8, Load(source, 0, 8));
    const auto targetEnd = static_cast<std::int64_t>(Load(target, 8, 8));
    const auto sourceEnd = static_cast<std::int64_t>(Load(source, 8, 8));
    if (targetEnd == 0 || (sourceEnd != 0 && sourceEnd > targetEnd))
        Store(target, 8, 8, static_cast<std::uint64_t>(sourceEnd));
}

/// Takes over exactly size bytes, and nothing of any other number.
template <class T> void CheckSize(const std::string& bytes, std::size_t size)
{
    T record;
    KQ_FUZZ_CHECK(record.GetRawSize() == size);
    KQ_FUZZ_CHECK(SetRaw(record, bytes) == (bytes.size() == size));
    KQ_FUZZ_CHECK(bytes.size() == size || record == T());
    // The other way in: short bytes are padded with zeros, long ones cut.
    const BinaryStore store(bytes.data(), static_cast<ULONG>(bytes.size()));
    std::string fitted = bytes;
    fitted.resize(size, '\0');
    const std::string stored = RawOf(T(&store));
    KQ_FUZZ_CHECK(stored.size() == size &&
                  stored.compare(0, std::min(USER, size), fitted, 0, std::min(USER, size)) == 0);
}

template <class T> bool Fold(const T& source, T& target, bool larger)
{
    Messages messages;
    return (larger ? source.MergeInto(target, messages) : source.SimpleCombineInto(target, messages)) &&
           messages.GetMessageCount() == 0;
}

void CheckSession(std::string first, std::string second, bool larger)
{
    NetSessionStatus source;
    NetSessionStatus target;
    KQ_FUZZ_CHECK(SetRaw(source, first) && SetRaw(target, second));
    MakeUserSafe(first);
    MakeUserSafe(second);
    KQ_FUZZ_CHECK(RawOf(source) == first && RawOf(target) == second);
    KQ_FUZZ_CHECK(source.GetUser() == String(first.c_str() + USER));
    KQ_FUZZ_CHECK(source.GetLocalPort() == Load(first, SESSION_OWN + 32, 2));
    KQ_FUZZ_CHECK(source.GetRemotePort() == Load(first, SESSION_OWN + 54, 2));
    KQ_FUZZ_CHECK(source.GetSessionID().GetSession() == Load(first, SESSION_OWN, 4));
    source.GetLocalIP().GetText();
    source.GetRemoteIP().GetText();

    KQ_FUZZ_CHECK(Fold(source, target, larger));
    FoldTimes(second, first);
    FoldCounters(second, first, SESSION_COUNTERS, larger);
    KQ_FUZZ_CHECK(target.GetUser() == source.GetUser());
    std::string folded = RawOf(target);
    folded.replace(USER, USER_SIZE, second, USER, USER_SIZE); // compared above
    KQ_FUZZ_CHECK(folded == second);
}

void CheckActivity(const std::string& first, std::string second, bool larger)
{
    NetSessionActivity source;
    NetSessionActivity target;
    KQ_FUZZ_CHECK(SetRaw(source, first) && SetRaw(target, second));
    KQ_FUZZ_CHECK(RawOf(source) == first && RawOf(target) == second);
    KQ_FUZZ_CHECK(source.GetTimeUnit() == Load(first, 0, 4));

    KQ_FUZZ_CHECK(Fold(source, target, larger));
    if (Load(second, 0, 4) == 0)
        Store(second, 0, 4, Load(first, 0, 4));
    FoldCounters(second, first, ACTIVITY_OWN, larger);
    KQ_FUZZ_CHECK(RawOf(target) == second);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    const std::uint8_t options = input.Byte();
    const bool isSession = (options & 1) != 0;
    const bool larger = (options & 2) != 0;
    const std::string bytes(input.Rest());
    CheckSize<NetSessionStatus>(bytes, SESSION_SIZE);
    CheckSize<NetSessionActivity>(bytes, ACTIVITY_SIZE);

    // Two records; what is missing of them is zero.
    const std::size_t recordSize = isSession ? SESSION_SIZE : ACTIVITY_SIZE;
    std::string records = bytes;
    records.resize(2 * recordSize, '\0');
    const std::string first = records.substr(0, recordSize);
    const std::string second = records.substr(recordSize);
    isSession ? CheckSession(first, second, larger) : CheckActivity(first, second, larger);
    return 0;
}
