#include "common/DataLogFile.h"

#include "platform/Files.h"

#include <sqlite3.h>

#include <string>

namespace kqlib {

namespace {

/// How long a call waits for another process that is writing.
constexpr int BUSY_TIMEOUT_MS = 2000;

/// Unfolded pages (4096 bytes) at which the connection that writes folds them in itself. A purger does it earlier.
constexpr int FOLD_IN_AT_LAST = 8000;

/// "KQDL": marks the file as a data log.
constexpr int APPLICATION_ID = 0x4B51444C;
/// Version of the tables below.
constexpr int FORMAT_VERSION = 1;

/// Makes the tables, all or nothing; those that another process has made meanwhile stay.
std::string MakeTablesText()
{
    return "BEGIN IMMEDIATE;"
           "CREATE TABLE IF NOT EXISTS records(id INTEGER PRIMARY KEY, time INTEGER NOT NULL, data BLOB NOT NULL);"
           "CREATE INDEX IF NOT EXISTS records_time ON records(time);"
           "CREATE TABLE IF NOT EXISTS units(time INTEGER PRIMARY KEY, data BLOB NOT NULL);"
           "PRAGMA application_id=" +
           std::to_string(APPLICATION_ID) + ";PRAGMA user_version=" + std::to_string(FORMAT_VERSION) + ";COMMIT;";
}

/// The first column of the first row of a statement without parameters. False: no row, or a failure.
bool ReadNumber(sqlite3* database, const char* sql, int& number)
{
    sqlite3_stmt* statement = nullptr;
    bool found = sqlite3_prepare_v2(database, sql, -1, &statement, nullptr) == SQLITE_OK &&
                 sqlite3_step(statement) == SQLITE_ROW;
    if (found)
        number = sqlite3_column_int(statement, 0);
    return sqlite3_finalize(statement) == SQLITE_OK && found;
}

/// 0 = all, as a row limit.
sqlite3_int64 RowLimit(ULONG maxCount)
{
    return maxCount == 0 ? -1 : static_cast<sqlite3_int64>(maxCount);
}

} // namespace

/// Resets a statement, and forgets what was bound to it, at the end of a scope.
class DataLogFile::Use
{
public:
    explicit Use(const STATEMENT& statement)
        : m_statement(statement.get())
    {
    }
    ~Use()
    {
        sqlite3_reset(m_statement);
        sqlite3_clear_bindings(m_statement);
    }
    Use(const Use&) = delete;
    Use& operator=(const Use&) = delete;

    sqlite3_stmt* Get() const { return m_statement; }
    void Bind(int index, sqlite3_int64 number) { sqlite3_bind_int64(m_statement, index, number); }
    int Step() { return sqlite3_step(m_statement); }

private:
    sqlite3_stmt* const m_statement;
};

void DataLogFile::CLOSE_DATABASE::operator()(sqlite3* database) const
{
    sqlite3_close(database);
}

void DataLogFile::END_STATEMENT::operator()(sqlite3_stmt* statement) const
{
    sqlite3_finalize(statement);
}

DataLogFile::~DataLogFile() = default;

std::unique_ptr<DataLogFile> DataLogFile::sOpen(const FilePath& path, TABLE table, ACCESS access)
{
    std::unique_ptr<DataLogFile> file(new DataLogFile());
    if (!file->xOpen(path, table, access))
        file.reset();
    return file;
}

/// Opens the connection; what a failure leaves half open goes with the object.
bool DataLogFile::xOpen(const FilePath& path, TABLE table, ACCESS access)
{
    // A reading connection asks for writing too: without it the write-ahead file cannot be shared. Nothing is changed
    // through it all the same.
    const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX | (access == ACCESS::WRITE ? SQLITE_OPEN_CREATE : 0);
    // The database would make a file that everybody may read. Its companions have the rights of the file itself (on
    // Windows those of the folder).
    if (access == ACCESS::WRITE)
        platform::CloseFile(platform::MakeNewFile(path.c_str(), platform::FileRights::OWNER_AND_GROUP));
    sqlite3* database = nullptr;
    const int result = sqlite3_open_v2(path.c_str(), &database, flags, nullptr);
    m_database.reset(database);
    if (result != SQLITE_OK)
        return false;
    sqlite3_extended_result_codes(database, 1);
    sqlite3_busy_timeout(database, BUSY_TIMEOUT_MS);
    // Without the right to write, the system gives a connection that can only read.
    if (access == ACCESS::WRITE && sqlite3_db_readonly(database, "main") != 0)
        return false;
    return xCheckFormat(access) && xPrepareAll(table, access);
}

/// Makes the tables of a new file, refuses a file that is something else, and sets the connection up.
bool DataLogFile::xCheckFormat(ACCESS access)
{
    int version = 0;
    int application = 0;
    if (!ReadNumber(m_database.get(), "PRAGMA user_version", version) ||
        !ReadNumber(m_database.get(), "PRAGMA application_id", application))
        return false;

    if (version == 0 && application == 0 && access == ACCESS::WRITE) {
        int tables = 0;
        if (!ReadNumber(m_database.get(), "SELECT count(*) FROM sqlite_schema", tables) || tables != 0)
            return false;
        // Asking for the write-ahead mode may be refused on a volume that cannot have it; the file is as safe then.
        if (!xRunText("PRAGMA journal_mode=WAL") || !xRunText(MakeTablesText()))
            return false;
    } else if (version != FORMAT_VERSION || application != APPLICATION_ID) {
        return false;
    }
    if (access == ACCESS::WRITE)
        sqlite3_wal_hook(m_database.get(), xsNoteCommit, this);
    // NORMAL: no flush to the medium for each row, only when the write-ahead file is folded in.
    return xRunText(access == ACCESS::WRITE ? "PRAGMA synchronous=NORMAL" : "PRAGMA query_only=1");
}

bool DataLogFile::xRunText(const std::string& sql)
{
    return sqlite3_exec(m_database.get(), sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK;
}

bool DataLogFile::xPrepareAll(TABLE table, ACCESS access)
{
    const std::string name = table == TABLE::RECORDS ? "records" : "units";
    const auto prepare = [this](STATEMENT& target, const std::string& sql) {
        sqlite3_stmt* statement = nullptr;
        const int result =
            sqlite3_prepare_v3(m_database.get(), sql.c_str(), -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
        target.reset(statement);
        return result == SQLITE_OK;
    };
    if (!prepare(m_read, "SELECT time, data FROM " + name +
                             " WHERE time BETWEEN ?1 AND ?2 AND (?3 = 0 OR length(data) = ?3)"
                             " ORDER BY time, rowid LIMIT ?4 OFFSET ?5"))
        return false;
    if (access == ACCESS::READ)
        return true;
    return prepare(m_begin, "BEGIN IMMEDIATE") && prepare(m_commit, "COMMIT") && prepare(m_rollback, "ROLLBACK") &&
           prepare(m_put, "INSERT OR REPLACE INTO " + name + "(time, data) VALUES(?1, ?2)") &&
           prepare(m_findFirst, "SELECT time FROM " + name +
                                    " WHERE time BETWEEN ?1 AND ?2 AND (?3 = 1 OR time % ?3 <> 0)"
                                    " ORDER BY time LIMIT 1") &&
           prepare(m_delete, "DELETE FROM " + name + " WHERE rowid IN (SELECT rowid FROM " + name +
                                 " WHERE time BETWEEN ?1 AND ?2 ORDER BY time, rowid LIMIT ?3)");
}

/// True for the results of success. Notes the failures after which a new connection is needed.
bool DataLogFile::xNote(int result)
{
    switch (result & 0xFF) {
    case SQLITE_OK:
    case SQLITE_ROW:
    case SQLITE_DONE:
        return true;
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
    case SQLITE_FULL:
    case SQLITE_NOMEM:
    case SQLITE_CONSTRAINT:
    case SQLITE_TOOBIG:
        return false;
    default:
        m_broken = true;
        return false;
    }
}

/// Runs a statement without parameters or rows.
bool DataLogFile::xStep(const STATEMENT& statement)
{
    Use use(statement);
    return xNote(use.Step());
}

void DataLogFile::xRollback()
{
    // After some failures the database has rolled back by itself.
    if (sqlite3_get_autocommit(m_database.get()) == 0)
        xStep(m_rollback);
}

DataLogFile::Transaction::Transaction(DataLogFile& file)
    : m_file(file)
    , m_open(file.xStep(file.m_begin))
{
}

DataLogFile::Transaction::~Transaction()
{
    if (m_open)
        m_file.xRollback();
}

bool DataLogFile::Transaction::Commit()
{
    if (!m_open || !m_file.xStep(m_file.m_commit))
        return false;
    m_open = false;
    return true;
}

bool DataLogFile::Put(SLONG8 time, const unsigned char* data, ULONG size)
{
    Use use(m_put);
    use.Bind(1, time);
    // The bytes outlive the step; sizes of entries are far below the limit of int.
    if (!xNote(sqlite3_bind_blob64(use.Get(), 2, data, size, SQLITE_STATIC)))
        return false;
    return xNote(use.Step());
}

bool DataLogFile::Read(SLONG8 from, SLONG8 to, ULONG wantedSize, ULONG skip, ULONG maxCount, const TAKE_ROW& take)
{
    Use use(m_read);
    use.Bind(1, from);
    use.Bind(2, to);
    use.Bind(3, static_cast<sqlite3_int64>(wantedSize));
    use.Bind(4, RowLimit(maxCount));
    use.Bind(5, static_cast<sqlite3_int64>(skip));
    int result = use.Step();
    for (; result == SQLITE_ROW; result = use.Step()) {
        const void* const data = sqlite3_column_blob(use.Get(), 1);
        const int size = sqlite3_column_bytes(use.Get(), 1);
        if (!take(sqlite3_column_int64(use.Get(), 0), static_cast<const unsigned char*>(data),
                  static_cast<ULONG>(size)))
            return false;
    }
    return xNote(result);
}

bool DataLogFile::FindFirst(SLONG8 from, SLONG8 to, SLONG8 width, SLONG8& time, bool& found)
{
    Use use(m_findFirst);
    use.Bind(1, from);
    use.Bind(2, to);
    use.Bind(3, width);
    const int result = use.Step();
    found = result == SQLITE_ROW;
    if (found)
        time = sqlite3_column_int64(use.Get(), 0);
    return xNote(result);
}

bool DataLogFile::Delete(SLONG8 from, SLONG8 to, ULONG maxCount, ULONG& deleted)
{
    deleted = 0;
    Use use(m_delete);
    use.Bind(1, from);
    use.Bind(2, to);
    use.Bind(3, RowLimit(maxCount));
    if (!xNote(use.Step()))
        return false;
    deleted = static_cast<ULONG>(sqlite3_changes(m_database.get()));
    return true;
}

/// Called by the database after each commit of this connection.
int DataLogFile::xsNoteCommit(void* file, sqlite3* database, const char* name, int pages)
{
    static_cast<DataLogFile*>(file)->m_unfoldedPages = pages;
    // A failure here is no failure of the commit, and the next one tries again.
    if (pages >= FOLD_IN_AT_LAST)
        sqlite3_wal_checkpoint_v2(database, name, SQLITE_CHECKPOINT_PASSIVE, nullptr, nullptr);
    return SQLITE_OK;
}

bool DataLogFile::FoldIn()
{
    return xNote(sqlite3_wal_checkpoint_v2(m_database.get(), nullptr, SQLITE_CHECKPOINT_PASSIVE, nullptr, nullptr));
}

bool DataLogFile::IsBroken()
{
    int moved = 0;
    // Systems that keep an open file in its place do not know the question; it then stays answered by no.
    if (sqlite3_file_control(m_database.get(), "main", SQLITE_FCNTL_HAS_MOVED, &moved) == SQLITE_OK && moved != 0)
        m_broken = true;
    return m_broken;
}

} // namespace kqlib
