// Tests of the wrapper itself: it stands before every function, each fault strikes, and a seed says which.
#include "tests/faults/posix/FaultPlan.h"
#include "tests/faults/posix/FaultRun.h"
#include "tests/faults/posix/Interposition.h"

#include "common/EventLog.h"
#include "common/SettingsTransportSet.h"
#include "common/ThreadPool.h"
#include "common/TimedEvent.h"
#include "net/sockets/NetTCP.h"
#include "platform/Clock.h"
#include "platform/Sockets.h"
#include "tests/peers/TempFolder.h"
#include "tests/peers/WaitFor.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <vector>

namespace kqlib::test {
namespace {

using KIND = FaultPlan::KIND;

class FaultPlanTest : public testing::Test
{
protected:
    void SetUp() override { FaultPlan::sSetFailEverywhere(true); }
    void TearDown() override
    {
        FaultPlan::sSetFailEverywhere(false);
        FaultPlan::sStop();
        FaultPlan::sRestoreClocks();
    }

    /// Without memory for it, a call has no answer to give.
    template <class ACTION> static void Try(const ACTION& action)
    {
        try {
            action();
        } catch (const std::bad_alloc&) {
        }
    }
    /// Two ends that talk until one of them cannot, the serving one on a thread of the libraries. Whatever fails,
    /// fails.
    static void UseSockets()
    {
        if (NetSocket::sStartSockets())
            NetSocket::sEndSockets();
        NetTCP listener(NetIP::LOOKUP_ANY);
        if (!listener.ListenSpecific(0, String("127.0.0.1")))
            return;
        const USHORT port = listener.GetLocalPort();
        ThreadPool pool;
        const auto serve = [&listener] {
            listener.SetBlockTime(20);
            const std::unique_ptr<NetTCP> served(listener.Accept());
            if (served)
                Move(*served);
        };
        static_cast<void>(pool.Run([&serve] { Try(serve); }));
        NetTCP client(NetIP::LOOKUP_ANY);
        if (client.Connect(NetIP(String("127.0.0.1")), port))
            Move(client);
        else if (FaultPlan::sGetCount(FAULT::LOOKUP_FAILS) == 0)
            static_cast<void>(client.Connect(String("localhost"), port));
    }
    /// Sends and receives some pieces.
    static void Move(NetTCP& socket)
    {
        socket.SetBlockTime(2);
        for (int count = 0; count < 20; ++count) {
            char bytes[64] = {};
            unsigned long size = socket.GetBufSendSize() != 0 ? sizeof bytes : 1;
            if (!socket.Send(bytes, size))
                return;
            size = sizeof bytes;
            if (!socket.Recv(bytes, size))
                return;
            platform::SleepMs(0);
            static_cast<void>(TimedEvent::sGetNow());
        }
    }
    /// Settings and a line of the event log.
    static void UseFiles(const TempFolder& folder)
    {
        const FilePath path((folder / "settings").string().c_str());
        SettingsTransportSet settings;
        settings.AddString("text", String(std::string(4 * LARGE_BLOCK, 'x')));
        static_cast<void>(settings.SaveToFile(path));
        static_cast<void>(settings.LoadFromFile(path));
        EventLogSettings logSettings;
        logSettings.SetEnabled(true);
        logSettings.SetFolder(folder.GetFilePath());
        logSettings.SetFileName("log");
        EventLog log;
        log.SetSettings(logSettings);
        log.PrintServiceNormal("event", "detail", "comment");
    }
    /// What a row of calls on this thread comes to.
    static std::vector<bool> Opened(KIND kind, std::uint64_t seed)
    {
        FaultPlan::sStart(kind, seed);
        std::vector<bool> opened;
        for (int count = 0; count < 500; ++count) {
            NetTCP socket(NetIP::LOOKUP_ANY);
            opened.push_back(socket.ListenSpecific(0, NetIP(String("127.0.0.1"))));
        }
        FaultPlan::sStop();
        return opened;
    }
};

/// What the wrapper leaves as it is, and why.
struct LEFT_ALONE
{
    std::string_view part; ///< of the mangled name
    const char* reason;
};
constexpr std::array<LEFT_ALONE, 29> LEFT_ALONE_FUNCTIONS = {{
    {"11CloseSocket", "cannot fail"},
    {"11AbortSocket", "cannot fail"},
    {"14ShutdownSocket", "its failures are of no consequence by its contract"},
    {"10EndSockets", "cannot fail"},
    {"9CloseFile", "cannot fail"},
    {"8ToNative", "only turns one form into another"},
    {"10FromNative", "only turns one form into another"},
    {"9ToUtcTime", "only computes"},
    {"13PathSeparator", "a constant"},
    {"15CurrentThreadId", "cannot fail"},
    {"11StartThread", "asks the C library for a thread, which is wrapped"},
    {"10JoinThread", "cannot fail"},
    {"6Waiter", "has a contract test of its own, and nothing of the library uses it"},
    {"8RandSeed", "cannot fail"},
    {"8RandNext", "any number is right"},
    {"16ReadMachineState", "a field that cannot be read stays zero, as it may be anyway"},
    {"21SetServerSettingsRoot", "for tests"},
    {"13OpenWithShell", "the last step of an update, which has tests with programs that cannot be started"},
    {"19GiveBackLargeBlocks", "cannot fail"},
    {"10RootFolder", "called by kqftpd alone"},
    {"12FolderReader", "called by kqftpd alone"},
    {"19HoldProcessRequests", "called by programs alone"},
    {"21WaitForProcessRequest", "called by programs alone"},
    {"16IsOutputTerminal", "called by programs alone"},
    {"15IsInputTerminal", "called by programs alone"},
    {"14ReadHiddenLine", "called by programs alone"},
    {"12SplitServers", "only computes"},
    {"12GetHostsFile", "a constant"},
    {"22GetServerSettingsReads", "for tests"},
}};

TEST_F(FaultPlanTest, Functions_EveryExportedOneOfTheLayer_WrappedOrListed)
{
    const std::vector<std::string> names = GetUnwrappedFunctions();
    const auto holds = [](const std::string& name, const LEFT_ALONE& function) {
        return name.find(function.part) != std::string::npos;
    };
    for (const std::string& name : names)
        EXPECT_TRUE(std::any_of(LEFT_ALONE_FUNCTIONS.begin(), LEFT_ALONE_FUNCTIONS.end(),
                                [&](const LEFT_ALONE& function) { return holds(name, function); }))
            << name << " is neither wrapped nor listed";
    for (const LEFT_ALONE& function : LEFT_ALONE_FUNCTIONS)
        EXPECT_TRUE(
            std::any_of(names.begin(), names.end(), [&](const std::string& name) { return holds(name, function); }))
            << function.part << " is listed (" << function.reason << "), but is wrapped or gone";
}

TEST_F(FaultPlanTest, Draws_SameSeedOneThread_SameSchedule)
{
    const std::vector<bool> first = Opened(KIND::HARSH, 7);
    EXPECT_EQ(Opened(KIND::HARSH, 7), first);
    EXPECT_NE(Opened(KIND::HARSH, 8), first);
    EXPECT_TRUE(std::find(first.begin(), first.end(), true) != first.end());
}

TEST_F(FaultPlanTest, Gentle_NothingFails)
{
    const std::vector<bool> opened = Opened(KIND::GENTLE, 7);
    EXPECT_TRUE(std::all_of(opened.begin(), opened.end(), [](bool open) { return open; }));
}

TEST_F(FaultPlanTest, NoPlan_NothingStrikes)
{
    const std::vector<bool> opened = Opened(KIND::NONE, 7);
    EXPECT_TRUE(std::all_of(opened.begin(), opened.end(), [](bool open) { return open; }));
    EXPECT_THAT(FaultPlan::sGetReport(), testing::HasSubstr(": 0 faults"));
}

TEST_F(FaultPlanTest, Calls_OfTheTestItself_NeverStruck)
{
    FaultPlan::sStart(KIND::HARSH, 7);
    for (int count = 0; count < 500; ++count) {
        const platform::SocketHandle handle = platform::OpenSocket(true, platform::Family::IP4);
        ASSERT_NE(handle, platform::INVALID_SOCKET_HANDLE);
        platform::CloseSocket(handle);
        const std::vector<char> memory(4 * LARGE_BLOCK);
        ASSERT_EQ(memory.size(), 4 * LARGE_BLOCK);
    }
    EXPECT_EQ(FaultPlan::sGetCount(FAULT::OPEN_FAILS), 0U);
    EXPECT_EQ(FaultPlan::sGetCount(FAULT::NO_MEMORY), 0U);
}

TEST_F(FaultPlanTest, Tick_UnderAPlan_WrapsSoon)
{
    FaultPlan::sStart(KIND::GENTLE, 3);
    EXPECT_GT(platform::TickMs(), 0xFFFFFFFFU - 400);
    FaultPlan::sStop();
    FaultPlan::sRestoreClocks();
    EXPECT_EQ(FaultPlan::sGetTickOffset(), 0U);
}

TEST_F(FaultPlanTest, NoThread_RunIsRefused)
{
    FaultPlan::sStart(KIND::HARSH, 1);
    int refused = 0;
    for (int count = 0; count < 200; ++count) {
        ThreadPool pool;
        refused += pool.Run([] {}) ? 0 : 1;
    }
    FaultPlan::sStop();
    EXPECT_GT(refused, 0);
    EXPECT_LT(refused, 200);
    EXPECT_EQ(FaultPlan::sGetCount(FAULT::NO_THREAD) + FaultPlan::sGetCount(FAULT::NO_MEMORY),
              static_cast<std::uint32_t>(refused));
}

TEST_F(FaultPlanTest, Harsh_EveryKindOfFault_Strikes)
{
    const TempFolder folder;
    ASSERT_TRUE(NetSocket::sStartSockets());
    FaultPlan::sStart(KIND::HARSH, 1);
    const auto allStruck = [] {
        for (std::size_t index = 0; index < static_cast<std::size_t>(FAULT::COUNT); ++index)
            if (FaultPlan::sGetCount(static_cast<FAULT>(index)) == 0)
                return false;
        return true;
    };
    EXPECT_TRUE(WaitFor(
        [&] {
            Try(UseSockets);
            Try([&folder] { UseFiles(folder); });
            return allStruck();
        },
        60000))
        << FaultPlan::sGetReport();
    NetSocket::sEndSockets();
}

} // namespace
} // namespace kqlib::test
