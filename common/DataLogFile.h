// DataLogFile: the database file of a data log. Inside the library only.
#pragma once

#include "common/FilePath.h"
#include "common/Types.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

struct sqlite3;
struct sqlite3_stmt;

namespace kqlib {

/// One connection to a database of rows (time, data): what is stored, without regard to what it means.
///
/// The file is in write-ahead mode: a row is safe against the death of the process when the call has returned, readers
/// of other connections and processes see whole transactions and hinder nobody. Two tables, of which a connection uses
/// one: "records" may hold several rows of one time (milliseconds since 1970 UTC), "units" holds one row per time
/// (seconds since 1970 UTC); data is an entry's whole buffer.
///
/// Ownership: owns the connection. Threads: one at a time. Errors: by result; a call that fails changes nothing.
/// IsBroken tells whether the connection can go on afterwards.
class DataLogFile
{
public:
    /// Which of the two tables the connection uses.
    enum class TABLE : std::uint8_t
    {
        RECORDS, ///< several rows may have one time, in milliseconds
        UNITS    ///< one row per time, in seconds
    };
    /// What the connection is for.
    enum class ACCESS : std::uint8_t
    {
        WRITE, ///< the file is made when it is missing
        READ   ///< nothing is changed
    };
    /// Takes one row; false ends the reading.
    using TAKE_ROW = std::function<bool(SLONG8 time, const unsigned char* data, ULONG size)>;

    /// Null when the file cannot be opened, is damaged, is not of this format or cannot be written when it should.
    static std::unique_ptr<DataLogFile> sOpen(const FilePath& path, TABLE table, ACCESS access);
    /// Closes the connection.
    ~DataLogFile();
    DataLogFile(const DataLogFile&) = delete;
    DataLogFile& operator=(const DataLogFile&) = delete;

    /// A transaction round the calls of a scope, rolled back at its end unless committed. One at a time.
    class Transaction
    {
    public:
        /// Waits for other writers. Commit fails when it could not begin.
        explicit Transaction(DataLogFile& file);
        /// Rolls back what was not committed.
        ~Transaction();
        Transaction(const Transaction&) = delete;
        Transaction& operator=(const Transaction&) = delete;

        /// False: it could not begin, or is over.
        bool HasBegun() const { return m_open; }
        /// False: rolled back.
        [[nodiscard]] bool Commit();

    private:
        DataLogFile& m_file;
        bool m_open;
    };

    /// Stores a row; in "units" it takes the place of the row of that time.
    [[nodiscard]] bool Put(SLONG8 time, const unsigned char* data, ULONG size);
    /// Calls take for the rows of the times from..to (both inclusive), oldest first; those of wantedSize bytes only
    /// unless it is 0; after passing over skip of them; at most maxCount, 0 = all. False: a failure, or take was false.
    [[nodiscard]] bool Read(SLONG8 from, SLONG8 to, ULONG wantedSize, ULONG skip, ULONG maxCount, const TAKE_ROW& take);
    /// The oldest time held in from..to (both inclusive); unless width is 1, the oldest that is no multiple of width.
    /// found: false when there is none.
    [[nodiscard]] bool FindFirst(SLONG8 from, SLONG8 to, SLONG8 width, SLONG8& time, bool& found);
    /// Deletes at most maxCount rows of the times from..to (both inclusive), oldest first. deleted: how many.
    [[nodiscard]] bool Delete(SLONG8 from, SLONG8 to, ULONG maxCount, ULONG& deleted);

    /// Pages that were written by this connection and are not folded into the database yet, as of its last commit.
    int GetUnfoldedPages() const { return m_unfoldedPages; }
    /// Folds the write-ahead file into the database as far as readers allow; waits for the medium, for nobody else.
    /// Called on a connection of its own, so that those who add rows do not wait. False: a failure; nothing is lost.
    [[nodiscard]] bool FoldIn();

    /// True when the connection must be opened anew: a failure came that is not one of space or of other writers, or
    /// the file was moved or deleted.
    bool IsBroken();

private:
    struct CLOSE_DATABASE
    {
        void operator()(sqlite3* database) const;
    };
    struct END_STATEMENT
    {
        void operator()(sqlite3_stmt* statement) const;
    };
    using STATEMENT = std::unique_ptr<sqlite3_stmt, END_STATEMENT>;
    class Use;

    DataLogFile() = default;

    bool xOpen(const FilePath& path, TABLE table, ACCESS access);
    bool xCheckFormat(ACCESS access);
    bool xStep(const STATEMENT& statement);
    void xRollback();
    bool xRunText(const std::string& sql);
    bool xPrepareAll(TABLE table, ACCESS access);
    bool xNote(int result);
    static int xsNoteCommit(void* file, sqlite3* database, const char* name, int pages);

    std::unique_ptr<sqlite3, CLOSE_DATABASE> m_database; ///< before the statements: they go first
    STATEMENT m_begin;
    STATEMENT m_commit;
    STATEMENT m_rollback;
    STATEMENT m_put;
    STATEMENT m_read;
    STATEMENT m_findFirst;
    STATEMENT m_delete;
    int m_unfoldedPages = 0;
    bool m_broken = false;
};

} // namespace kqlib
