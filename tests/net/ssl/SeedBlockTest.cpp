#include "common/TimePos.h"
#include "net/ssl/NetSSLCertControl.h"
#include "platform/MachineState.h"
#include "platform/Threads.h"
#include "tests/peers/MovedClocks.h"
#include "tests/peers/WaitFor.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <numeric>
#include <openssl/bio.h>
#include <openssl/err.h>
#include <string>
#include <vector>

namespace {

using namespace kqlib;
using namespace kqlib::test;

constexpr SLONG8 NOW_MS = 1700000000123;
constexpr std::uint32_t TICK = 0xA1B2C3D4;
constexpr std::size_t AREA_OFFSET = 264;
constexpr std::size_t AREA_SIZE = 1560;

/// Makes what is protected callable.
class OpenedControl : public NetSSLCertControl
{
public:
    using NetSSLCertControl::SEED_BLOCK;
    using NetSSLCertControl::xCallback;
    using NetSSLCertControl::xsBuildSeedBlock;
};

using BLOCK = OpenedControl::SEED_BLOCK;

BLOCK Build(const unsigned char* data, unsigned long size)
{
    BLOCK block;
    block.fill(0xEE);
    OpenedControl::xsBuildSeedBlock(data, size, block);
    return block;
}

template <class T> T At(const BLOCK& block, std::size_t offset)
{
    T value;
    std::memcpy(&value, block.data() + offset, sizeof value);
    return value;
}

bool AllZero(const BLOCK& block, std::size_t offset, std::size_t size)
{
    return std::all_of(block.begin() + static_cast<std::ptrdiff_t>(offset),
                       block.begin() + static_cast<std::ptrdiff_t>(offset + size),
                       [](unsigned char byte) { return byte == 0; });
}

/// The 1560 bytes in the middle.
std::vector<unsigned char> Area(const BLOCK& block)
{
    return {block.begin() + AREA_OFFSET, block.begin() + AREA_OFFSET + AREA_SIZE};
}

/// What the area holds before the caller's bytes are copied over it.
std::vector<unsigned char> RandomArea(std::uint32_t seed)
{
    platform::RandSeed(seed);
    std::vector<unsigned char> bytes(AREA_SIZE);
    for (unsigned char& byte : bytes)
        byte = static_cast<unsigned char>(platform::RandNext());
    return bytes;
}

std::vector<unsigned char> Counting(std::size_t size)
{
    std::vector<unsigned char> bytes(size);
    std::iota(bytes.begin(), bytes.end(), static_cast<unsigned char>(1));
    return bytes;
}

TEST(SeedBlock, Build_FixedClocks_TickAndTimeAtTheirOffsets)
{
    const MovedCalendar calendar(NOW_MS);
    const MovedTick tick(TICK);
    const BLOCK block = Build(nullptr, 0);
    EXPECT_EQ(block.size(), 2344U);
    EXPECT_EQ(NetSSLCertControl::SEED_BLOCK_SIZE, 2344U);
    EXPECT_EQ(At<std::uint32_t>(block, 0), TICK);
    EXPECT_EQ(At<std::int64_t>(block, 40), NOW_MS / 1000);
}

TEST(SeedBlock, Build_MachineState_EachFieldAtItsOffset)
{
    const BLOCK block = Build(nullptr, 0);
    platform::MachineState state;
    platform::ReadMachineState(state);
    const auto same = [&block](std::size_t offset, const auto& field) {
        return std::memcmp(block.data() + offset, &field, sizeof field) == 0;
    };
    EXPECT_TRUE(same(4, state.systemInfo));
    EXPECT_FALSE(AllZero(block, 48, 16)) << "local time";
    EXPECT_TRUE(same(1824, state.userName));
    EXPECT_TRUE(same(2081, state.computerName));
    EXPECT_TRUE(same(2100, state.timeZone));
    EXPECT_EQ(At<std::uint32_t>(block, 2272), state.processId);
    EXPECT_EQ(At<std::uint32_t>(block, 2276), state.threadId);
    EXPECT_FALSE(AllZero(block, 2280, 32)) << "memory";
    EXPECT_EQ(At<std::uint64_t>(block, 2320), state.diskTotal);
    EXPECT_GE(state.diskTotal, At<std::uint64_t>(block, 2328));
    EXPECT_GE(At<std::uint64_t>(block, 2328), At<std::uint64_t>(block, 2312));
    EXPECT_EQ(At<std::uint32_t>(block, 2336), state.volumes);
}

TEST(SeedBlock, Build_RangesThatNoFieldCovers_ZeroAsKeptOnPurpose)
{
    const std::vector<unsigned char> data(2000, 0xFF);
    const BLOCK block = Build(data.data(), data.size());
    EXPECT_TRUE(AllZero(block, 64, 200));
    EXPECT_TRUE(AllZero(block, 2097, 3));
    EXPECT_TRUE(AllZero(block, 2340, 4));
}

TEST(SeedBlock, Build_NoData_AreaIsTheGeneratorSeededWithTheTime)
{
    const MovedCalendar calendar(NOW_MS);
    EXPECT_EQ(Area(Build(nullptr, 0)), RandomArea(static_cast<std::uint32_t>(NOW_MS / 1000)));
}

TEST(SeedBlock, Build_TimePast32Bits_LowBitsSeedTheGenerator)
{
    constexpr SLONG8 seconds = 0x1'0000'0007;
    const MovedCalendar calendar(seconds * 1000);
    const BLOCK block = Build(nullptr, 0);
    EXPECT_EQ(At<std::int64_t>(block, 40), seconds);
    EXPECT_EQ(Area(block), RandomArea(7));
}

TEST(SeedBlock, Build_DataOfAnySize_FirstBytesOverTheArea)
{
    const MovedCalendar calendar(NOW_MS);
    const std::vector<unsigned char> random = RandomArea(static_cast<std::uint32_t>(NOW_MS / 1000));
    const std::vector<unsigned char> data = Counting(2000);
    for (const std::size_t size :
         {std::size_t{0}, std::size_t{1}, std::size_t{100}, AREA_SIZE - 1, AREA_SIZE, AREA_SIZE + 1, std::size_t{2000}})
    {
        std::vector<unsigned char> expected = random;
        std::copy_n(data.begin(), std::min(size, AREA_SIZE), expected.begin());
        const BLOCK block = Build(data.data(), size);
        EXPECT_EQ(Area(block), expected) << size;
        // Nothing runs on into the user name.
        EXPECT_EQ(std::memcmp(block.data() + 1824, Build(nullptr, 0).data() + 1824, 257), 0) << size;
    }
}

TEST(SeedBlock, Seed_WithAndWithoutData_NoErrorLeft)
{
    const std::vector<unsigned char> data = Counting(2000);
    NetSSLCertControl::sSeed(data.data(), data.size());
    NetSSLCertControl::sSeed(nullptr, 0);
    EXPECT_EQ(ERR_peek_error(), 0U);
}

TEST(MachineState, Read_ThisSystem_WhatEverySystemKnows)
{
    platform::MachineState state;
    std::memset(&state, 0xEE, sizeof state);
    platform::ReadMachineState(state);
    EXPECT_EQ(state.userName[sizeof state.userName - 1], 0);
    EXPECT_EQ(state.computerName[sizeof state.computerName - 1], 0);
    EXPECT_NE(state.computerName[0], 0);
    EXPECT_NE(state.processId, 0U);
    EXPECT_EQ(state.threadId, platform::CurrentThreadId());
    EXPECT_GT(state.diskTotal, 0U);
    EXPECT_NE(state.volumes, 0U);
}

// The time once went in by the hour only, for its quick fields did not fit.
TEST(MachineState, Read_MillisecondsLater_LocalTimeDiffers)
{
    platform::MachineState first;
    platform::ReadMachineState(first);
    EXPECT_TRUE(WaitFor([&] {
        platform::MachineState later;
        platform::ReadMachineState(later);
        return std::memcmp(first.localTime, later.localTime, sizeof first.localTime) != 0;
    }));
}

TEST(KeyProgress, Callback_Stages_OneCharacterEach)
{
    const std::unique_ptr<BIO, decltype(&BIO_free_all)> bio(BIO_new(BIO_s_mem()), BIO_free_all);
    for (const int stage : {0, 1, 2, 3, 4, -1, 1000})
        OpenedControl::xCallback(stage, 17, bio.get());
    const char* text = nullptr;
    const long length = BIO_get_mem_data(bio.get(), &text);
    EXPECT_EQ(std::string(text, static_cast<std::size_t>(length)), ".+*\n***");
}

TEST(KeyProgress, Callback_NullArgument_NothingAndNoError)
{
    for (const int stage : {0, 1, 2, 3, 4})
        OpenedControl::xCallback(stage, 0, nullptr);
    EXPECT_EQ(ERR_peek_error(), 0U);
}

} // namespace
