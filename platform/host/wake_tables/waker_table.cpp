// The Wake-on-WLAN waker table on the host: rows of the wake-up tables' database, on the
// process's one connection.
#include "wake_tables/wake_tables_db.h"
#include "wowl.h"

namespace {

int Change(const char* what, const char* sql, const std::vector<host::wake::Param>& params,
           bool absent_is_error) {
    int changed = host::wake::Execute(what, sql, params);
    if (changed < 0)
        return WOWL_ERROR_OPERATION_FAILED;
    if (changed == 0 && absent_is_error)
        return WOWL_ERROR_NOT_FOUND;
    return WOWL_ERROR_NONE;
}

}  // namespace

extern "C" {

// An address already present is replaced with the new flags.
int wowl_add_waker_device(const char* mac, int flags) {
    if (!mac || !*mac)
        return WOWL_ERROR_INVALID_PARAMETER;
    return Change("waker add", "INSERT OR REPLACE INTO wowl_wakers (address, flags) VALUES (?, ?)",
                  {host::wake::Text(mac), host::wake::Number(flags)}, false);
}

int wowl_del_waker_device(const char* mac, int /*flags*/) {
    if (!mac || !*mac)
        return WOWL_ERROR_INVALID_PARAMETER;
    return Change("waker delete", "DELETE FROM wowl_wakers WHERE address = ?",
                  {host::wake::Text(mac)}, true);
}

int wowl_clear_waker_table(void) {
    return Change("waker clear", "DELETE FROM wowl_wakers", {}, false);
}
}
