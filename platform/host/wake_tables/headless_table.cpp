// The Bluetooth headless (power-on) table on the host: rows of the wake-up tables' database.
// There is no adapter here, so registering a device with it only sets the row's flag.
#include <ctime>

#include "bluetooth_product.h"
#include "wake_tables/wake_tables_db.h"

// The tables live on the process's one connection; a handle only says it was opened.
struct bt_headless_db_s {};

namespace {

bool Usable(const char* text) {
    return text && *text;
}

// A row-changing statement on the handle: BT_ERROR_NOT_FOUND when it touched no row.
int ChangeRows(const char* what, const char* sql, const std::vector<host::wake::Param>& params,
               bool absent_is_error) {
    int changed = host::wake::Execute(what, sql, params);
    if (changed < 0)
        return BT_ERROR_OPERATION_FAILED;
    if (changed == 0 && absent_is_error)
        return BT_ERROR_NOT_FOUND;
    return BT_ERROR_NONE;
}

// The adapter calls have no handle of their own.
int SetRegistered(const char* address, int registered, bool absent_is_error) {
    if (!Usable(address))
        return BT_ERROR_INVALID_PARAMETER;
    return ChangeRows("adapter registration",
                      "UPDATE bt_headless SET registered = ? WHERE address = ?",
                      {host::wake::Number(registered), host::wake::Text(address)}, absent_is_error);
}

}  // namespace

extern "C" {

int bt_headless_open_db(bt_headless_db_h* handle) {
    if (!handle)
        return BT_ERROR_INVALID_PARAMETER;
    *handle = nullptr;
    if (!host::wake::OpenDatabase())
        return BT_ERROR_OPERATION_FAILED;
    *handle = new bt_headless_db_s{};
    return BT_ERROR_NONE;
}

int bt_bluetooth_delete_headless_mobile_in_DB(bt_headless_db_h handle, const char* address) {
    if (!handle || !Usable(address))
        return BT_ERROR_INVALID_PARAMETER;
    return ChangeRows("headless delete", "DELETE FROM bt_headless WHERE address = ?",
                      {host::wake::Text(address)}, true);
}

// An address already present is replaced (and moves to the end: it is the newest entry).
int bt_add_headless_device_with_permission_in_DB(bt_headless_db_h handle, const char* address,
                                                 const char* device_type, int permission) {
    if (!handle || !Usable(address) || !device_type)
        return BT_ERROR_INVALID_PARAMETER;
    return ChangeRows(
        "headless add",
        "INSERT OR REPLACE INTO bt_headless "
        "(address, device_type, permission, registered, added_at) "
        "VALUES (?, ?, ?, 0, ?)",
        {host::wake::Text(address), host::wake::Text(device_type), host::wake::Number(permission),
         host::wake::Number(static_cast<int64_t>(time(nullptr)))},
        false);
}

int bt_bluetooth_delete_all_headless_mobile_in_DB(bt_headless_db_h handle) {
    if (!handle)
        return BT_ERROR_INVALID_PARAMETER;
    return ChangeRows("headless clear", "DELETE FROM bt_headless", {}, false);
}

int bt_mobileheadless_close_db(bt_headless_db_h* handle) {
    if (!handle || !*handle)
        return BT_ERROR_INVALID_PARAMETER;
    delete *handle;
    *handle = nullptr;
    return BT_ERROR_NONE;
}

// Registering needs the device in the table; unregistering one that is gone (the daemon
// deletes the row first) is already done.
int bt_adapter_register_headless_device(const char* address) {
    return SetRegistered(address, 1, true);
}

int bt_adapter_unregister_headless_device(const char* address) {
    return SetRegistered(address, 0, false);
}
}
