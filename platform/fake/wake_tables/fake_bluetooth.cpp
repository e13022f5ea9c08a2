// Bluetooth product layer and its headless (power-on) table, kept as an ordered set.
#include <algorithm>

#include "bluetooth_product.h"
#include "common/fake_state.h"

using fake::detail::CallScope;
using fake::detail::Num;
using fake::detail::Ptr;
using fake::detail::Text;

namespace {

// The open table handle only has to be non-null; the table itself lives in the state.
char g_table_token;

int Plain(const char* fn, std::vector<std::string> args) {
    CallScope call(fn, std::move(args));
    return call.scripted() ? *call.scripted() : BT_ERROR_NONE;
}

}  // namespace

extern "C" {

int bt_product_init(void) {
    return Plain("bt_product_init", {});
}

int bt_product_deinit(void) {
    return Plain("bt_product_deinit", {});
}

int bt_headless_open_db(bt_headless_db_h* handle) {
    CallScope call("bt_headless_open_db", {Ptr(handle)});
    if (call.failed()) {
        return *call.scripted();
    }
    if (handle == nullptr) {
        return BT_ERROR_INVALID_PARAMETER;
    }
    *handle = reinterpret_cast<bt_headless_db_h>(&g_table_token);
    return BT_ERROR_NONE;
}

int bt_bluetooth_delete_headless_mobile_in_DB(bt_headless_db_h handle, const char* address) {
    CallScope call("bt_bluetooth_delete_headless_mobile_in_DB", {Ptr(handle), Text(address)});
    if (call.failed()) {
        return *call.scripted();
    }
    if (handle == nullptr || address == nullptr) {
        return BT_ERROR_INVALID_PARAMETER;
    }
    auto& table = call.data().headless_table;
    auto it = std::find(table.begin(), table.end(), address);
    if (it == table.end()) {
        return call.scripted() ? *call.scripted() : BT_ERROR_NOT_FOUND;
    }
    table.erase(it);
    return BT_ERROR_NONE;
}

int bt_add_headless_device_with_permission_in_DB(bt_headless_db_h handle, const char* address,
                                                 const char* device_type, int permission) {
    CallScope call("bt_add_headless_device_with_permission_in_DB",
                   {Ptr(handle), Text(address), Text(device_type), Num(permission)});
    if (call.failed()) {
        return *call.scripted();
    }
    if (handle == nullptr || address == nullptr) {
        return BT_ERROR_INVALID_PARAMETER;
    }
    auto& table = call.data().headless_table;
    if (std::find(table.begin(), table.end(), address) == table.end()) {
        table.emplace_back(address);
    }
    return BT_ERROR_NONE;
}

int bt_bluetooth_delete_all_headless_mobile_in_DB(bt_headless_db_h handle) {
    CallScope call("bt_bluetooth_delete_all_headless_mobile_in_DB", {Ptr(handle)});
    if (call.failed()) {
        return *call.scripted();
    }
    if (handle == nullptr) {
        return BT_ERROR_INVALID_PARAMETER;
    }
    call.data().headless_table.clear();
    return BT_ERROR_NONE;
}

int bt_mobileheadless_close_db(bt_headless_db_h* handle) {
    CallScope call("bt_mobileheadless_close_db", {Ptr(handle)});
    if (call.failed()) {
        return *call.scripted();
    }
    if (handle == nullptr) {
        return BT_ERROR_INVALID_PARAMETER;
    }
    *handle = nullptr;
    return BT_ERROR_NONE;
}

int bt_adapter_register_headless_device(const char* address) {
    return Plain("bt_adapter_register_headless_device", {Text(address)});
}

int bt_adapter_unregister_headless_device(const char* address) {
    return Plain("bt_adapter_unregister_headless_device", {Text(address)});
}

}  // extern "C"

namespace fake {

std::vector<std::string> HeadlessTable() {
    auto& s = detail::GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    return s.data.headless_table;
}

}  // namespace fake
