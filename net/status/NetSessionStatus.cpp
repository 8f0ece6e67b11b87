#include "net/status/NetSessionStatus.h"

#include "common/LittleEndian.h"

#include <algorithm>
#include <cstring>

namespace kqlib {

// What users of the DLL link to when they need its address.
constexpr ULONG NetSessionStatus::BLOCK_SIZE;
constexpr ULONG NetSessionStatus::USER_SIZE;

namespace {

// Offsets in the block, in bytes. Fields stand unaligned: bytes are copied, never pointed into.
constexpr ULONG SESSION_ID = 0;
constexpr ULONG LOCAL_IP = 12;
constexpr ULONG LOCAL_PORT = 32;
constexpr ULONG REMOTE_IP = 34;
constexpr ULONG REMOTE_PORT = 54;
constexpr ULONG COUNTERS = 56;
constexpr ULONG RESERVED_1 = 160;
constexpr ULONG USER = 164;
constexpr ULONG RESERVED_2 = 196;
constexpr ULONG RESERVED_2_SIZE = 96;

static_assert(SESSION_ID + sizeof(EventLogSessionID::DATA) == LOCAL_IP);
static_assert(LOCAL_IP + sizeof(NetIP) == LOCAL_PORT && LOCAL_PORT + 2 == REMOTE_IP);
static_assert(REMOTE_IP + sizeof(NetIP) == REMOTE_PORT && REMOTE_PORT + 2 == COUNTERS);
static_assert(COUNTERS + NetCounterBlock::SIZE == RESERVED_1 && RESERVED_1 + 4 == USER);
static_assert(USER + NetSessionStatus::USER_SIZE == RESERVED_2);
static_assert(RESERVED_2 + RESERVED_2_SIZE == NetSessionStatus::BLOCK_SIZE);

NetIP LoadIP(const unsigned char* field)
{
    NetIP ip;
    std::memcpy(&ip, field, sizeof ip);
    return ip;
}

void StoreIP(unsigned char* field, const NetIP& ip)
{
    std::memcpy(field, &ip, sizeof ip);
}

// The text of a user field, bounded by the field when stored bytes lack the terminator.
String LoadUser(const unsigned char* field)
{
    const unsigned char* end = std::find(field, field + NetSessionStatus::USER_SIZE, 0);
    return String(field, static_cast<String::size_type>(end - field));
}

void StoreUser(unsigned char* field, const String& user)
{
    // Nothing stays of a longer name that stood there before.
    std::fill_n(field, NetSessionStatus::USER_SIZE, static_cast<unsigned char>(0));
    String::sCpystr(reinterpret_cast<char*>(field), user, NetSessionStatus::USER_SIZE);
}

} // namespace

NetSessionStatus::NetSessionStatus()
    : DataLogEntryRecord(BLOCK_SIZE)
{
}

NetSessionStatus::NetSessionStatus(const BinaryStore* store)
    : DataLogEntryRecord(BLOCK_SIZE, store)
{
}

NetSessionStatus* NetSessionStatus::Spawn(bool copy) const
{
    return copy ? new NetSessionStatus(*this) : new NetSessionStatus();
}

void NetSessionStatus::xMergeInto(unsigned char* target) const
{
    DataLogEntryRecord::xMergeInto(target);
    xFoldInto(target, NetCounterBlock::FOLD::MERGE);
}

void NetSessionStatus::xSimpleCombineInto(unsigned char* target) const
{
    DataLogEntryRecord::xSimpleCombineInto(target);
    xFoldInto(target, NetCounterBlock::FOLD::COMBINE);
}

ULONG NetSessionStatus::xGetSizeReq() const
{
    return DataLogEntryRecord::xGetSizeReq() + BLOCK_SIZE;
}

void NetSessionStatus::xMakeStringsSafe()
{
    DataLogEntryRecord::xMakeStringsSafe();
    xMakeStringSafe(USER, USER_SIZE);
}

DataLogEntryRecord* NetSessionStatus::SpawnEntry(unsigned long, bool copy) const
{
    return Spawn(copy);
}

EventLogSessionID NetSessionStatus::GetSessionID() const
{
    EventLogSessionID::DATA data;
    std::memcpy(&data, xGetData() + SESSION_ID, sizeof data);
    return EventLogSessionID(data);
}

void NetSessionStatus::SetSessionID(const EventLogSessionID& id)
{
    std::memcpy(xGetData() + SESSION_ID, &id.GetDataDirect(), sizeof(EventLogSessionID::DATA));
}

NetIP NetSessionStatus::GetLocalIP() const
{
    return LoadIP(xGetData() + LOCAL_IP);
}

void NetSessionStatus::SetLocalIP(NetIP ip)
{
    StoreIP(xGetData() + LOCAL_IP, ip);
}

USHORT NetSessionStatus::GetLocalPort() const
{
    return LoadLittleEndian<USHORT>(xGetData() + LOCAL_PORT);
}

void NetSessionStatus::SetLocalPort(unsigned short port)
{
    StoreLittleEndian<USHORT>(xGetData() + LOCAL_PORT, port);
}

NetIP NetSessionStatus::GetRemoteIP() const
{
    return LoadIP(xGetData() + REMOTE_IP);
}

void NetSessionStatus::SetRemoteIP(NetIP ip)
{
    StoreIP(xGetData() + REMOTE_IP, ip);
}

USHORT NetSessionStatus::GetRemotePort() const
{
    return LoadLittleEndian<USHORT>(xGetData() + REMOTE_PORT);
}

void NetSessionStatus::SetRemotePort(unsigned short port)
{
    StoreLittleEndian<USHORT>(xGetData() + REMOTE_PORT, port);
}

String NetSessionStatus::GetUser() const
{
    return LoadUser(xGetData() + USER);
}

void NetSessionStatus::SetUser(const String& user)
{
    StoreUser(xGetData() + USER, user);
}

unsigned char* NetSessionStatus::xGetCounters()
{
    return xGetData() + COUNTERS;
}

const unsigned char* NetSessionStatus::xGetCounters() const
{
    return xGetData() + COUNTERS;
}

void NetSessionStatus::xFoldInto(unsigned char* target, NetCounterBlock::FOLD fold) const
{
    unsigned char* block = target + DataLogEntryRecord::xGetSizeReq();
    NetCounterBlock::sFoldInto(block + COUNTERS, xGetCounters(), fold);
    StoreUser(block + USER, GetUser());
}

} // namespace kqlib
