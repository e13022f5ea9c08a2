// Wake-on-WLAN waker table, kept as an ordered set of addresses.
#include <algorithm>

#include "common/fake_state.h"
#include "wowl.h"

using fake::detail::CallScope;
using fake::detail::Num;
using fake::detail::Text;

extern "C" {

int wowl_add_waker_device(const char* mac, int flags) {
    CallScope call("wowl_add_waker_device", {Text(mac), Num(flags)});
    if (call.failed()) {
        return *call.scripted();
    }
    if (mac == nullptr) {
        return WOWL_ERROR_INVALID_PARAMETER;
    }
    auto& table = call.data().waker_table;
    if (std::find(table.begin(), table.end(), mac) == table.end()) {
        table.emplace_back(mac);
    }
    return WOWL_ERROR_NONE;
}

int wowl_del_waker_device(const char* mac, int flags) {
    CallScope call("wowl_del_waker_device", {Text(mac), Num(flags)});
    if (call.failed()) {
        return *call.scripted();
    }
    if (mac == nullptr) {
        return WOWL_ERROR_INVALID_PARAMETER;
    }
    auto& table = call.data().waker_table;
    auto it = std::find(table.begin(), table.end(), mac);
    if (it == table.end()) {
        return call.scripted() ? *call.scripted() : WOWL_ERROR_NOT_FOUND;
    }
    table.erase(it);
    return WOWL_ERROR_NONE;
}

int wowl_clear_waker_table(void) {
    CallScope call("wowl_clear_waker_table", {});
    if (call.failed()) {
        return *call.scripted();
    }
    call.data().waker_table.clear();
    return WOWL_ERROR_NONE;
}

}  // extern "C"

namespace fake {

std::vector<std::string> WakerTable() {
    auto& s = detail::GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    return s.data.waker_table;
}

}  // namespace fake
