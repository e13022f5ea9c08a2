#include "wake_tables/wake_tables_db.h"

#include <sqlite3.h>
#include <stdio.h>
#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <mutex>
#include <system_error>
#include <thread>

#include "common/missing_service.h"
#include "common/platform_root.h"
#include "dlog.h"

#define WAKE_LOG(prio, ...) __dlog_print(LOG_ID_SYSTEM, prio, host::kHostLogTag, __VA_ARGS__)

namespace host {
namespace wake {

namespace {

constexpr int kBusyTimeoutMs = 10000;

// Addresses are unique without regard to case: "aa:bb" and "AA:BB" are one device.
// Write-ahead logging with NORMAL sync: a change costs one fsync at checkpoint instead
// of several per statement, and a crash still leaves the tables consistent (at worst
// without the last change, which the daemon's next allow or remove rewrites).
const char kSchema[] =
    "PRAGMA journal_mode=WAL;"
    "PRAGMA synchronous=NORMAL;"
    "CREATE TABLE IF NOT EXISTS bt_headless ("
    " address TEXT NOT NULL PRIMARY KEY COLLATE NOCASE,"
    " device_type TEXT NOT NULL,"
    " permission INTEGER NOT NULL,"
    " registered INTEGER NOT NULL DEFAULT 0,"
    " added_at INTEGER NOT NULL);"
    "CREATE TABLE IF NOT EXISTS wowl_wakers ("
    " address TEXT NOT NULL PRIMARY KEY COLLATE NOCASE,"
    " flags INTEGER NOT NULL);";

const char* const kProbes[] = {
    "SELECT address, device_type, permission, registered, added_at FROM bt_headless",
    "SELECT address, flags FROM wowl_wakers"};

// Committed pages the write-ahead log may hold before a checkpoint copies them into the
// database (SQLite's own default).
constexpr int kCheckpointPages = 1000;
constexpr int kMaxLogPages = 10 * kCheckpointPages;

// A checkpoint flushes the disk twice, so it never runs on the caller's thread: a thread of
// its own, on a connection of its own, copies the log back while callers go on writing
// (SQLite's passive checkpoint waits for nobody). One at a time.
std::atomic<bool> g_checkpointing{false};

void Checkpoint(std::string path) {
    sqlite3* db = nullptr;
    if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr) == SQLITE_OK) {
        sqlite3_busy_timeout(db, kBusyTimeoutMs);
        int rc =
            sqlite3_wal_checkpoint_v2(db, nullptr, SQLITE_CHECKPOINT_PASSIVE, nullptr, nullptr);
        if (rc != SQLITE_OK && rc != SQLITE_BUSY) {
            WAKE_LOG(DLOG_WARN, "wake tables: checkpoint of %s failed: %s", path.c_str(),
                     sqlite3_errmsg(db));
        }
    }
    // Not the last connection (the shared one stays open), so closing checkpoints nothing.
    sqlite3_close(db);
    g_checkpointing = false;
}

// Called by SQLite after each commit, in place of its automatic checkpoint.
int OnCommit(void*, sqlite3* db, const char* name, int pages) {
    // Writers that never pause leave a passive checkpoint behind for good; past this the
    // committing thread catches up itself, as SQLite's own checkpoint would have.
    if (pages >= kMaxLogPages) {
        sqlite3_wal_checkpoint_v2(db, name, SQLITE_CHECKPOINT_PASSIVE, nullptr, nullptr);
        return SQLITE_OK;
    }
    if (pages >= kCheckpointPages && !g_checkpointing.exchange(true)) {
        const char* file = sqlite3_db_filename(db, name);
        try {
            std::thread(Checkpoint, std::string(file ? file : "")).detach();
        } catch (const std::system_error&) {
            g_checkpointing = false;  // the next commit tries again
        }
    }
    return SQLITE_OK;
}

// One connection per process: the schema is checked once and no checkpoint runs per call.
// Never destroyed, so a late call at exit still finds it.
struct Shared {
    std::mutex mutex;
    sqlite3* db = nullptr;
    std::string path;      // the file db is open on; another root means another file
    bool damaged = false;  // a statement found the file damaged: move it aside at next use
};

Shared& TheShared() {
    static Shared* shared = new Shared();
    return *shared;
}

bool IsDamage(int rc) {
    return rc == SQLITE_NOTADB || rc == SQLITE_CORRUPT;
}

// The database and its write-ahead files go aside under one timestamped name.
void MoveAside(const std::string& path, const char* why) {
    char stamp[32] = "unknown";
    time_t now = time(nullptr);
    struct tm utc;
    if (gmtime_r(&now, &utc) != nullptr)
        strftime(stamp, sizeof(stamp), "%Y%m%dT%H%M%SZ", &utc);
    const std::string aside = path + ".corrupt-" + stamp;
    for (const char* suffix : {"", "-wal", "-shm"}) {
        const std::string from = path + suffix;
        if (rename(from.c_str(), (aside + suffix).c_str()) != 0 && errno != ENOENT) {
            WAKE_LOG(DLOG_ERROR, "wake tables: cannot move %s aside: %s", from.c_str(),
                     strerror(errno));
        }
    }
    WAKE_LOG(DLOG_ERROR, "wake tables: %s %s; kept aside as %s and made anew", path.c_str(), why,
             aside.c_str());
}

// Opens path with its schema; an SQLite result code, *db set only on success.
int TryOpen(const std::string& path, sqlite3** db, std::string* error) {
    sqlite3* opened = nullptr;
    // FULLMUTEX: the daemon's threads share the connection.
    int rc = sqlite3_open_v2(path.c_str(), &opened,
                             SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX,
                             nullptr);
    if (rc == SQLITE_OK) {
        sqlite3_busy_timeout(opened, kBusyTimeoutMs);
        rc = sqlite3_exec(opened, kSchema, nullptr, nullptr, nullptr);
        // Replaces the automatic checkpoint, which would flush on the committing thread.
        sqlite3_wal_hook(opened, OnCommit, nullptr);
    }
    // Tables of another shape under our names would fail every later statement.
    for (const char* probe : kProbes) {
        sqlite3_stmt* stmt = nullptr;
        if (rc == SQLITE_OK &&
            sqlite3_prepare_v2(opened, probe, -1, &stmt, nullptr) == SQLITE_ERROR)
            rc = SQLITE_CORRUPT;
        sqlite3_finalize(stmt);
    }
    if (rc != SQLITE_OK) {
        *error = opened ? sqlite3_errmsg(opened) : sqlite3_errstr(rc);
        sqlite3_close(opened);
        return rc;
    }
    // Whatever the umask of the launch: the tables are the service's alone. SQLite gives its
    // write-ahead files the database's mode.
    chmod(path.c_str(), 0600);
    *db = opened;
    return SQLITE_OK;
}

// The connection, opened or healed as needed; the caller holds the mutex.
sqlite3* ConnectionLocked(Shared& shared) {
    const std::string path = DatabasePath();
    if (shared.db != nullptr && (shared.path != path || shared.damaged)) {
        sqlite3_close(shared.db);
        shared.db = nullptr;
        if (shared.damaged)
            MoveAside(shared.path, "is damaged");
        shared.damaged = false;
    }
    if (shared.db != nullptr)
        return shared.db;
    if (PlatformDir("").empty()) {
        WAKE_LOG(DLOG_ERROR, "wake tables: cannot create %s", PlatformRoot().c_str());
        return nullptr;
    }
    std::string error;
    int rc = TryOpen(path, &shared.db, &error);
    if (IsDamage(rc)) {
        MoveAside(path, ("cannot be used (" + error + ")").c_str());
        rc = TryOpen(path, &shared.db, &error);
    }
    if (rc != SQLITE_OK) {
        WAKE_LOG(DLOG_ERROR, "wake tables: open %s failed: %s", path.c_str(), error.c_str());
        return nullptr;
    }
    shared.path = path;
    return shared.db;
}

// Runs one statement; the caller holds the mutex.
int ExecuteLocked(Shared& shared, const char* what, const char* sql,
                  const std::vector<Param>& params) {
    sqlite3* db = ConnectionLocked(shared);
    if (db == nullptr)
        return -1;
    sqlite3_stmt* stmt = nullptr;
    int rc = sqlite3_prepare_v2(db, sql, -1, &stmt, nullptr);
    for (size_t i = 0; rc == SQLITE_OK && i < params.size(); ++i) {
        const Param& p = params[i];
        int at = static_cast<int>(i) + 1;
        rc = p.is_text ? sqlite3_bind_text(stmt, at, p.text.c_str(), -1, SQLITE_TRANSIENT)
                       : sqlite3_bind_int64(stmt, at, p.number);
    }
    if (rc == SQLITE_OK) {
        rc = sqlite3_step(stmt);
        if (rc == SQLITE_DONE)
            rc = SQLITE_OK;
    }
    int changed = sqlite3_changes(db);
    if (rc != SQLITE_OK) {
        WAKE_LOG(DLOG_ERROR, "wake tables: %s failed: %s", what, sqlite3_errmsg(db));
        shared.damaged = shared.damaged || IsDamage(sqlite3_errcode(db) & 0xff);
    }
    sqlite3_finalize(stmt);
    return rc == SQLITE_OK ? changed : -1;
}

std::string ColumnText(sqlite3_stmt* stmt, int column) {
    const unsigned char* text = sqlite3_column_text(stmt, column);
    return text ? reinterpret_cast<const char*>(text) : "";
}

}  // namespace

std::string DatabasePath() {
    return PlatformRoot() + "/wake_tables.db";
}

Param Text(const std::string& text) {
    return Param{true, text, 0};
}
Param Number(int64_t number) {
    return Param{false, std::string(), number};
}

bool OpenDatabase() {
    Shared& shared = TheShared();
    std::lock_guard<std::mutex> hold(shared.mutex);
    return ConnectionLocked(shared) != nullptr;
}

int Execute(const char* what, const char* sql, const std::vector<Param>& params) {
    Shared& shared = TheShared();
    std::lock_guard<std::mutex> hold(shared.mutex);
    return ExecuteLocked(shared, what, sql, params);
}

bool ReadTables(std::vector<HeadlessDevice>* headless, std::vector<Waker>* wakers) {
    Shared& shared = TheShared();
    std::lock_guard<std::mutex> hold(shared.mutex);
    sqlite3* db = ConnectionLocked(shared);
    if (!db)
        return false;
    sqlite3_stmt* stmt = nullptr;
    // One read transaction, so the two tables are shown as of one moment.
    bool ok = sqlite3_exec(db, "BEGIN", nullptr, nullptr, nullptr) == SQLITE_OK;
    if (ok && sqlite3_prepare_v2(db,
                                 "SELECT address, device_type, permission, registered, added_at "
                                 "FROM bt_headless ORDER BY rowid",
                                 -1, &stmt, nullptr) == SQLITE_OK) {
        int rc;
        while ((rc = sqlite3_step(stmt)) == SQLITE_ROW) {
            HeadlessDevice d;
            d.address = ColumnText(stmt, 0);
            d.device_type = ColumnText(stmt, 1);
            d.permission = sqlite3_column_int(stmt, 2);
            d.registered = sqlite3_column_int(stmt, 3) != 0;
            d.added_at = sqlite3_column_int64(stmt, 4);
            headless->push_back(d);
        }
        ok = rc == SQLITE_DONE;
    } else {
        ok = false;
    }
    sqlite3_finalize(stmt);
    stmt = nullptr;
    if (ok && sqlite3_prepare_v2(db, "SELECT address, flags FROM wowl_wakers ORDER BY rowid", -1,
                                 &stmt, nullptr) == SQLITE_OK) {
        int rc;
        while ((rc = sqlite3_step(stmt)) == SQLITE_ROW) {
            Waker w;
            w.address = ColumnText(stmt, 0);
            w.flags = sqlite3_column_int(stmt, 1);
            wakers->push_back(w);
        }
        ok = rc == SQLITE_DONE;
    } else {
        ok = false;
    }
    sqlite3_finalize(stmt);
    if (!ok) {
        WAKE_LOG(DLOG_ERROR, "wake tables: reading failed: %s", sqlite3_errmsg(db));
        shared.damaged = shared.damaged || IsDamage(sqlite3_errcode(db) & 0xff);
    }
    sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr);
    return ok;
}

bool RewriteTables(const std::vector<HeadlessDevice>& headless, const std::vector<Waker>& wakers) {
    Shared& shared = TheShared();
    std::lock_guard<std::mutex> hold(shared.mutex);
    bool ok = ExecuteLocked(shared, "repair", "BEGIN IMMEDIATE", {}) >= 0;
    if (!ok)
        return false;
    ok = ExecuteLocked(shared, "repair", "DELETE FROM bt_headless", {}) >= 0 &&
         ExecuteLocked(shared, "repair", "DELETE FROM wowl_wakers", {}) >= 0;
    for (const HeadlessDevice& d : headless) {
        ok = ok && ExecuteLocked(shared, "repair",
                                 "INSERT OR REPLACE INTO bt_headless (address, device_type, "
                                 "permission, registered, added_at) VALUES (?, ?, ?, ?, ?)",
                                 {Text(d.address), Text(d.device_type), Number(d.permission),
                                  Number(d.registered ? 1 : 0), Number(d.added_at)}) >= 0;
    }
    for (const Waker& w : wakers) {
        ok = ok && ExecuteLocked(shared, "repair",
                                 "INSERT OR REPLACE INTO wowl_wakers (address, flags) "
                                 "VALUES (?, ?)",
                                 {Text(w.address), Number(w.flags)}) >= 0;
    }
    ExecuteLocked(shared, "repair", ok ? "COMMIT" : "ROLLBACK", {});
    return ok;
}

}  // namespace wake
}  // namespace host
