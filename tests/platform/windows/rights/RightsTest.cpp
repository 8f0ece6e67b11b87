// Who may use what was opened: child processes and other users may not.
#include "platform/windows/SystemHeaders.h"

#include "platform/Files.h"
#include "platform/Sockets.h"
#include "tests/peers/Sockets.h"
#include "tests/peers/TempFolder.h"

#include <aclapi.h>
#include <fstream>
#include <gtest/gtest.h>

namespace kqlib::platform {
namespace {

using test::OwnedSocket;

bool IsInherited(const OwnedSocket& socket)
{
    DWORD flags = HANDLE_FLAG_INHERIT;
    EXPECT_TRUE(GetHandleInformation(reinterpret_cast<HANDLE>(socket.Get()), &flags));
    return (flags & HANDLE_FLAG_INHERIT) != 0;
}

TEST(RightsTest, OpenAndAccept_HandlesAreNotInherited)
{
    ASSERT_TRUE(StartSockets());
    {
        const OwnedSocket listener = test::MakeListener();
        const OwnedSocket client = test::ConnectTo(test::LocalPort(listener));
        const OwnedSocket server = test::AcceptFrom(listener);
        const OwnedSocket datagrams = test::MakeDatagramSocket();
        for (const OwnedSocket* socket : {&listener, &client, &server, &datagrams}) {
            ASSERT_TRUE(socket->IsOpen());
            EXPECT_FALSE(IsInherited(*socket));
        }
    }
    EndSockets();
}

/// How many entries of the file's list grant anything.
int CountGrants(const std::string& path)
{
    ACL* list = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    EXPECT_EQ(GetNamedSecurityInfoA(path.c_str(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr, &list,
                                    nullptr, &descriptor),
              static_cast<DWORD>(ERROR_SUCCESS));
    int grants = 0;
    for (DWORD i = 0; list != nullptr && i < list->AceCount; ++i) {
        void* entry = nullptr;
        EXPECT_TRUE(GetAce(list, i, &entry));
        grants += static_cast<const ACE_HEADER*>(entry)->AceType == ACCESS_ALLOWED_ACE_TYPE ? 1 : 0;
    }
    LocalFree(descriptor);
    return grants;
}

TEST(RightsTest, OpenFile_OwnerOnlyOverAnExistingFile_RightsAsOfANewOne)
{
    const test::TempFolder folder;
    const std::string made = (folder / "made").string();
    const std::string old = (folder / "old").string();
    std::ofstream(old) << "old";
    const int before = CountGrants(old);
    for (const std::string& path : {made, old}) {
        const FileHandle file = OpenFile(path.c_str(), FileMode::WRITE, true, true, FileRights::OWNER);
        ASSERT_NE(file, INVALID_FILE_HANDLE);
        EXPECT_TRUE(WriteFile(file, "new", 3));
        CloseFile(file);
    }
    EXPECT_EQ(CountGrants(old), CountGrants(made));
    EXPECT_LT(CountGrants(old), before);
    EXPECT_EQ(std::filesystem::file_size(old), 3U);
}

} // namespace
} // namespace kqlib::platform
