#include "tests/common/logfaults/FaultyDisk.h"

#include <sqlite3.h>

#include <atomic>
#include <limits>

namespace kqlib::test {

struct FaultyDisk::STATE
{
    /// The result of the next write: SQLITE_OK lets it pass.
    int NextWrite()
    {
        if (allowed == UNLIMITED)
            return SQLITE_OK;
        if (allowed > 0) {
            --allowed;
            return SQLITE_OK;
        }
        failed = true;
        return fault == FAULT::FULL ? SQLITE_FULL : SQLITE_IOERR_WRITE;
    }

    static constexpr std::size_t UNLIMITED = std::numeric_limits<std::size_t>::max();
    std::atomic<std::size_t> allowed{UNLIMITED};
    std::atomic<FAULT> fault{FAULT::FULL};
    std::atomic<bool> failed{false};
    sqlite3_vfs* real = nullptr;
    sqlite3_vfs faulty = {};
};

namespace {

FaultyDisk::STATE* g_disk = nullptr;

/// A file of the faulty disk; the real one stands behind it in the same memory.
struct File
{
    sqlite3_file base;
    sqlite3_io_methods methods;
};

sqlite3_file* Real(sqlite3_file* file)
{
    return reinterpret_cast<sqlite3_file*>(reinterpret_cast<File*>(file) + 1);
}

/// One forwarding function for each method: the arguments go to the real file unchanged.
template <auto METHOD, class... ARGS> auto Forward(sqlite3_file* file, ARGS... args)
{
    return (Real(file)->pMethods->*METHOD)(Real(file), args...);
}

int Write(sqlite3_file* file, const void* data, int size, sqlite3_int64 offset)
{
    const int result = g_disk->NextWrite();
    return result == SQLITE_OK ? Forward<&sqlite3_io_methods::xWrite>(file, data, size, offset) : result;
}

int Open(sqlite3_vfs*, const char* name, sqlite3_file* file, int flags, int* outFlags)
{
    const int result = g_disk->real->xOpen(g_disk->real, name, Real(file), flags, outFlags);
    if (!Real(file)->pMethods)
        return result;
    using M = sqlite3_io_methods;
    M& methods = reinterpret_cast<File*>(file)->methods;
    methods = *Real(file)->pMethods;
    methods.xClose = &Forward<&M::xClose>;
    methods.xRead = &Forward<&M::xRead, void*, int, sqlite3_int64>;
    methods.xWrite = &Write;
    methods.xTruncate = &Forward<&M::xTruncate, sqlite3_int64>;
    methods.xSync = &Forward<&M::xSync, int>;
    methods.xFileSize = &Forward<&M::xFileSize, sqlite3_int64*>;
    methods.xLock = &Forward<&M::xLock, int>;
    methods.xUnlock = &Forward<&M::xUnlock, int>;
    methods.xCheckReservedLock = &Forward<&M::xCheckReservedLock, int*>;
    methods.xFileControl = &Forward<&M::xFileControl, int, void*>;
    methods.xSectorSize = &Forward<&M::xSectorSize>;
    methods.xDeviceCharacteristics = &Forward<&M::xDeviceCharacteristics>;
    methods.xShmMap = &Forward<&M::xShmMap, int, int, int, void volatile**>;
    methods.xShmLock = &Forward<&M::xShmLock, int, int, int>;
    methods.xShmBarrier = &Forward<&M::xShmBarrier>;
    methods.xShmUnmap = &Forward<&M::xShmUnmap, int>;
    // Without the third version's memory mapping every change is a write.
    methods.iVersion = 2;
    file->pMethods = &methods;
    return result;
}

} // namespace

FaultyDisk::FaultyDisk()
    : m_state(std::make_unique<STATE>())
{
    g_disk = m_state.get();
    sqlite3_initialize();
    m_state->real = sqlite3_vfs_find(nullptr);
    m_state->faulty = *m_state->real;
    m_state->faulty.zName = "faulty";
    m_state->faulty.pNext = nullptr;
    m_state->faulty.szOsFile += static_cast<int>(sizeof(File));
    m_state->faulty.xOpen = &Open;
    sqlite3_vfs_register(&m_state->faulty, 1);
}

FaultyDisk::~FaultyDisk()
{
    sqlite3_vfs_unregister(&m_state->faulty);
    sqlite3_vfs_register(m_state->real, 1);
    g_disk = nullptr;
}

void FaultyDisk::FailAfter(std::size_t allowed, FAULT fault)
{
    m_state->failed = false;
    m_state->fault = fault;
    m_state->allowed = allowed;
}

void FaultyDisk::Repair()
{
    m_state->allowed = STATE::UNLIMITED;
}

bool FaultyDisk::HasFailed() const
{
    return m_state->failed;
}

} // namespace kqlib::test
