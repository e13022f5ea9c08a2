// The wake-up tables' shared SQLite database under the platform root: the Bluetooth headless
// (power-on) devices and the Wake-on-WLAN wakers, one table each.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace host {
namespace wake {

// <root>/wake_tables.db
std::string DatabasePath();

// Opens the process's one connection to the database on first use (creating the file and
// its schema once), with a busy timeout so processes wait for each other instead of failing.
// A file that is not a database, or is damaged, is moved aside as
// wake_tables.db.corrupt-<UTC time> and made anew (logged); so is one that a later
// statement finds damaged, at the next use. False when no database can be had (logged).
bool OpenDatabase();

// Runs one statement on that connection with text and integer parameters bound in order;
// returns the number of rows it changed, or -1 on failure (logged with `what`). Statements of
// several threads do not interleave.
struct Param {
    bool is_text;
    std::string text;
    int64_t number;
};
Param Text(const std::string& text);
Param Number(int64_t number);
int Execute(const char* what, const char* sql, const std::vector<Param>& params);

struct HeadlessDevice {
    std::string address;
    std::string device_type;
    int permission = 0;
    bool registered = false;
    int64_t added_at = 0;  // seconds since the epoch
};

struct Waker {
    std::string address;
    int flags = 0;
};

// Both tables, each in insertion order. False on failure (logged).
bool ReadTables(std::vector<HeadlessDevice>* headless, std::vector<Waker>* wakers);

// Replaces both tables' rows in one transaction (the repair of drift). False on failure.
bool RewriteTables(const std::vector<HeadlessDevice>& headless, const std::vector<Waker>& wakers);

}  // namespace wake
}  // namespace host
