#include "backup/backup_store.h"

#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <ctime>
#include <map>
#include <mutex>

#include "common/missing_service.h"
#include "common/platform_root.h"
#include "common/utc_time.h"
#include "dlog.h"

#define BACKUP_LOG(prio, ...) __dlog_print(LOG_ID_SYSTEM, prio, host::kHostLogTag, __VA_ARGS__)

namespace host {
namespace backup {

namespace {

constexpr int kBusyTimeoutMs = 10000;
constexpr int kKeptReports = 100;

// Full sync at every commit: an accepted version is on disk before the client hears of it.
const char kSchema[] =
    "PRAGMA journal_mode=WAL;"
    "PRAGMA synchronous=FULL;"
    "CREATE TABLE IF NOT EXISTS versions ("
    " number INTEGER PRIMARY KEY AUTOINCREMENT,"
    " time TEXT NOT NULL,"
    " payload TEXT NOT NULL);"
    "CREATE TABLE IF NOT EXISTS reports ("
    " id INTEGER PRIMARY KEY AUTOINCREMENT,"
    " time TEXT NOT NULL,"
    " outcome TEXT NOT NULL CHECK (outcome IN ('success', 'failure')));";

// Each database is opened once per process, its schema made or checked then, and kept open:
// closing the last connection would checkpoint the write-ahead log and remove it, two more
// flushes for every batch of backups. A Database holds the connection (and so the process's
// one lock on all of them) for its lifetime.
struct Connections {
    std::mutex lock;
    std::map<std::string, sqlite3*> open;  // by path; never closed
};

Connections& TheConnections() {
    static Connections* connections = new Connections();
    return *connections;
}

class Database {
public:
    // create: make the folder and the database when missing; otherwise a missing database
    // leaves the handle empty without a log line.
    Database(const std::string& client, bool create) : hold_(TheConnections().lock) {
        if (!IsValidClientId(client)) {
            BACKUP_LOG(DLOG_ERROR, "backup service: invalid client id '%s'", client.c_str());
            return;
        }
        path_ = DatabasePath(client);
        sqlite3*& cached = TheConnections().open[path_];
        // A file removed behind our back (a new root, a hand clean-up) is opened anew.
        if (cached != nullptr && access(path_.c_str(), F_OK) != 0) {
            sqlite3_close(cached);
            cached = nullptr;
        }
        if (cached != nullptr) {
            db_ = cached;
            return;
        }
        if (create && PlatformDir("backup").empty()) {
            BACKUP_LOG(DLOG_ERROR, "backup service: cannot create %s/backup",
                       PlatformRoot().c_str());
            return;
        }
        if (!create && access(path_.c_str(), F_OK) != 0)
            return;
        int flags = SQLITE_OPEN_READWRITE | (create ? SQLITE_OPEN_CREATE : 0);
        int rc = sqlite3_open_v2(path_.c_str(), &db_, flags, nullptr);
        if (rc == SQLITE_OK) {
            chmod(path_.c_str(), 0600);  // the service's alone, whatever the umask
            sqlite3_busy_timeout(db_, kBusyTimeoutMs);
            rc = sqlite3_exec(db_, kSchema, nullptr, nullptr, nullptr);
        }
        if (rc != SQLITE_OK) {
            Fail("open");
            sqlite3_close(db_);
            db_ = nullptr;
            return;
        }
        cached = db_;
    }
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    sqlite3* get() const { return db_; }
    bool Exec(const char* sql) {
        if (sqlite3_exec(db_, sql, nullptr, nullptr, nullptr) == SQLITE_OK)
            return true;
        Fail(sql);
        return false;
    }
    void Fail(const char* what) const {
        BACKUP_LOG(DLOG_ERROR, "backup service: %s on %s failed: %s", what, path_.c_str(),
                   db_ ? sqlite3_errmsg(db_) : "cannot open");
    }

private:
    std::lock_guard<std::mutex> hold_;
    std::string path_;
    sqlite3* db_ = nullptr;
};

// A prepared statement that finalizes itself.
class Statement {
public:
    Statement(Database& db, const char* sql) : db_(db) {
        if (sqlite3_prepare_v2(db.get(), sql, -1, &stmt_, nullptr) != SQLITE_OK) {
            db.Fail(sql);
            stmt_ = nullptr;
        }
    }
    ~Statement() { sqlite3_finalize(stmt_); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    bool ok() const { return stmt_ != nullptr; }
    sqlite3_stmt* get() const { return stmt_; }
    bool BindText(int at, const std::string& text) {
        return sqlite3_bind_text(stmt_, at, text.data(), static_cast<int>(text.size()),
                                 SQLITE_TRANSIENT) == SQLITE_OK;
    }
    // Steps to the end; false (logged) on an error.
    bool Run(const char* what) {
        int rc = sqlite3_step(stmt_);
        sqlite3_reset(stmt_);
        if (rc == SQLITE_DONE)
            return true;
        db_.Fail(what);
        return false;
    }

private:
    Database& db_;
    sqlite3_stmt* stmt_ = nullptr;
};

std::string ColumnText(sqlite3_stmt* stmt, int column) {
    const unsigned char* text = sqlite3_column_text(stmt, column);
    return text ? std::string(reinterpret_cast<const char*>(text),
                              static_cast<size_t>(sqlite3_column_bytes(stmt, column)))
                : std::string();
}

}  // namespace

bool IsValidClientId(const std::string& client) {
    if (client.empty() || client.size() > 64 || client[0] == '.')
        return false;
    for (unsigned char c : client) {
        bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                  c == '-' || c == '_' || c == '.';
        if (!ok)
            return false;
    }
    return true;
}

std::string DatabasePath(const std::string& client) {
    return PlatformRoot() + "/backup/" + client + ".db";
}

bool AppendVersions(const std::string& client, const std::vector<std::string>& payloads) {
    Database db(client, true);
    if (db.get() == nullptr || !db.Exec("BEGIN IMMEDIATE"))
        return false;
    bool ok = true;
    {
        Statement insert(db, "INSERT INTO versions (time, payload) VALUES (?1, ?2)");
        const std::string now = UtcTimeText(time(nullptr));
        ok = insert.ok();
        for (size_t i = 0; ok && i < payloads.size(); ++i) {
            ok = insert.BindText(1, now) && insert.BindText(2, payloads[i]) &&
                 insert.Run("store a version");
        }
        const std::string prune =
            "DELETE FROM versions WHERE number <= "
            "(SELECT MAX(number) FROM versions) - " +
            std::to_string(kKeptVersions);
        ok = ok && db.Exec(prune.c_str());
    }
    if (ok && db.Exec("COMMIT"))
        return true;
    // The connection stays open for the next batch: it must not stay inside this one.
    if (!sqlite3_get_autocommit(db.get()))
        db.Exec("ROLLBACK");
    return false;
}

std::optional<Version> NewestVersion(const std::string& client) {
    Database db(client, false);
    if (db.get() == nullptr)
        return std::nullopt;
    Statement query(db, "SELECT number, time, payload FROM versions ORDER BY number DESC LIMIT 1");
    if (!query.ok() || sqlite3_step(query.get()) != SQLITE_ROW)
        return std::nullopt;
    Version newest;
    newest.number = sqlite3_column_int64(query.get(), 0);
    newest.time = ColumnText(query.get(), 1);
    newest.payload = ColumnText(query.get(), 2);
    newest.size = static_cast<int64_t>(newest.payload.size());
    return newest;
}

bool History(const std::string& client, std::vector<Version>* versions,
             std::vector<Report>* reports) {
    versions->clear();
    reports->clear();
    if (!IsValidClientId(client))
        return false;
    if (access(DatabasePath(client).c_str(), F_OK) != 0)
        return true;
    Database db(client, false);
    if (db.get() == nullptr)
        return false;
    Statement listed(db,
                     "SELECT number, time, length(CAST(payload AS BLOB)) FROM versions "
                     "ORDER BY number DESC");
    Statement outcomes(db, "SELECT id, time, outcome FROM reports ORDER BY id DESC");
    if (!listed.ok() || !outcomes.ok())
        return false;
    while (sqlite3_step(listed.get()) == SQLITE_ROW) {
        Version v;
        v.number = sqlite3_column_int64(listed.get(), 0);
        v.time = ColumnText(listed.get(), 1);
        v.size = sqlite3_column_int64(listed.get(), 2);
        versions->push_back(v);
    }
    while (sqlite3_step(outcomes.get()) == SQLITE_ROW)
        reports->push_back(Report{sqlite3_column_int64(outcomes.get(), 0),
                                  ColumnText(outcomes.get(), 1),
                                  ColumnText(outcomes.get(), 2) == "success"});
    return true;
}

bool AddReport(const std::string& client, bool success) {
    Database db(client, true);
    if (db.get() == nullptr)
        return false;
    Statement insert(db, "INSERT INTO reports (time, outcome) VALUES (?1, ?2)");
    const std::string prune = "DELETE FROM reports WHERE id <= (SELECT MAX(id) FROM reports) - " +
                              std::to_string(kKeptReports);
    return insert.ok() && insert.BindText(1, UtcTimeText(time(nullptr))) &&
           insert.BindText(2, success ? "success" : "failure") && insert.Run("record a report") &&
           db.Exec(prune.c_str());
}

}  // namespace backup
}  // namespace host
