// FaultyDisk: a disk under SQLite that fails when a test wants it to.
#pragma once

#include <cstddef>
#include <memory>

namespace kqlib::test {

/// Every database that is opened while it lives writes through it. One at a time, no database open at its end.
class FaultyDisk
{
public:
    enum class FAULT
    {
        FULL,   ///< no space left
        BROKEN, ///< input/output error
    };

    FaultyDisk();
    ~FaultyDisk();
    FaultyDisk(const FaultyDisk&) = delete;
    FaultyDisk& operator=(const FaultyDisk&) = delete;

    /// Lets allowed writes pass and fails those that follow, until Repair.
    void FailAfter(std::size_t allowed, FAULT fault);
    void Repair();
    /// True when a write has failed since FailAfter.
    bool HasFailed() const;

    struct STATE;

private:
    std::unique_ptr<STATE> m_state;
};

} // namespace kqlib::test
