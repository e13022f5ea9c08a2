// The wake-up tables' shared SQLite database under the platform root: the Bluetooth headless
// (power-on) devices and the Wake-on-WLAN wakers, one table each.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <string>
#include <vector>

namespace host {
namespace wake {

// <root>/wake_tables.db
std::string DatabasePath();

// Opens (creating when needed) the database with its schema and a busy timeout, so other
// connections and processes wait for each other instead of failing. nullptr on failure (logged).
sqlite3* OpenDatabase();

// Runs one statement with text and integer parameters bound in order; returns the number of
// rows it changed, or -1 on failure (logged with `what`).
struct Param {
    bool is_text;
    std::string text;
    int64_t number;
};
Param Text(const std::string& text);
Param Number(int64_t number);
int Execute(sqlite3* db, const char* what, const char* sql, const std::vector<Param>& params);

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

}  // namespace wake
}  // namespace host
