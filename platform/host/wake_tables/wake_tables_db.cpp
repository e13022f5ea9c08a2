#include "wake_tables/wake_tables_db.h"

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

sqlite3* OpenDatabase() {
    if (PlatformDir("").empty()) {
        WAKE_LOG(DLOG_ERROR, "wake tables: cannot create %s", PlatformRoot().c_str());
        return nullptr;
    }
    const std::string path = DatabasePath();
    sqlite3* db = nullptr;
    // FULLMUTEX: one handle may be used from several of the daemon's threads.
    int rc = sqlite3_open_v2(path.c_str(), &db,
                             SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX,
                             nullptr);
    if (rc != SQLITE_OK) {
        WAKE_LOG(DLOG_ERROR, "wake tables: open %s failed: %s", path.c_str(),
                 db ? sqlite3_errmsg(db) : sqlite3_errstr(rc));
        sqlite3_close(db);
        return nullptr;
    }
    sqlite3_busy_timeout(db, kBusyTimeoutMs);
    char* error = nullptr;
    if (sqlite3_exec(db, kSchema, nullptr, nullptr, &error) != SQLITE_OK) {
        WAKE_LOG(DLOG_ERROR, "wake tables: schema of %s failed: %s", path.c_str(),
                 error ? error : "unknown error");
        sqlite3_free(error);
        sqlite3_close(db);
        return nullptr;
    }
    return db;
}

int Execute(sqlite3* db, const char* what, const char* sql, const std::vector<Param>& params) {
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
    // Read before finalize: another thread on this handle could change them afterwards.
    int changed = sqlite3_changes(db);
    if (rc != SQLITE_OK) {
        WAKE_LOG(DLOG_ERROR, "wake tables: %s failed: %s", what, sqlite3_errmsg(db));
    }
    sqlite3_finalize(stmt);
    return rc == SQLITE_OK ? changed : -1;
}

bool ReadTables(std::vector<HeadlessDevice>* headless, std::vector<Waker>* wakers) {
    sqlite3* db = OpenDatabase();
    if (!db)
        return false;
    bool ok = true;
    sqlite3_stmt* stmt = nullptr;
    // One read transaction, so the two tables are shown as of one moment.
    ok = sqlite3_exec(db, "BEGIN", nullptr, nullptr, nullptr) == SQLITE_OK;
    if (ok && sqlite3_prepare_v2(db,
                                 "SELECT address, device_type, permission, registered, added_at "
                                 "FROM bt_headless ORDER BY rowid",
                                 -1, &stmt, nullptr) == SQLITE_OK) {
        int rc;
        while ((rc = sqlite3_step(stmt)) == SQLITE_ROW) {
            HeadlessDevice d;
            d.address = reinterpret_cast<const char*>(sqlite3_column_text(stmt, 0));
            d.device_type = reinterpret_cast<const char*>(sqlite3_column_text(stmt, 1));
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
            w.address = reinterpret_cast<const char*>(sqlite3_column_text(stmt, 0));
            w.flags = sqlite3_column_int(stmt, 1);
            wakers->push_back(w);
        }
        ok = rc == SQLITE_DONE;
    } else {
        ok = false;
    }
    sqlite3_finalize(stmt);
    if (!ok)
        WAKE_LOG(DLOG_ERROR, "wake tables: reading failed: %s", sqlite3_errmsg(db));
    sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr);
    sqlite3_close(db);
    return ok;
}

}  // namespace wake
}  // namespace host
