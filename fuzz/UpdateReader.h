// UpdateReader: the readers of the update client, fed from memory instead of a server.
#pragma once

#include "common/ThreadPool.h"
#include "fuzz/MemorySocket.h"
#include "net/update/NetAppUpdate.h"

namespace kqlib::fuzz {

/// An update client of which only the readers are used: its thread never runs.
class UpdateReader : public NetAppUpdate
{
public:
    explicit UpdateReader(ThreadPool& pool)
        : NetAppUpdate(pool, FilePath(), 0, String(), String())
    {
    }
    using NetAppUpdate::RECVBUF;
    using NetAppUpdate::xParseURL;
    using NetAppUpdate::xPrepareBuffer;
    using NetAppUpdate::xReceiveHeader;
    using NetAppUpdate::xReceiveVersionFile;
};

} // namespace kqlib::fuzz
