// Bundles: a real in-memory key/value list, journaled like every platform call.
#include "bundle.h"
#include "common/fake_state.h"

using fake::detail::Callback;
using fake::detail::CallScope;
using fake::detail::Ptr;
using fake::detail::Text;

extern "C" {

bundle* bundle_create(void) {
    CallScope call("bundle_create", {});
    if (call.failed()) {
        return nullptr;
    }
    return new bundle();
}

int bundle_add(bundle* b, const char* key, const char* val) {
    CallScope call("bundle_add", {Ptr(b), Text(key), Text(val)});
    if (call.failed()) {
        return *call.scripted();
    }
    if (b == nullptr || key == nullptr || val == nullptr) {
        return BUNDLE_ERROR_INVALID_PARAMETER;
    }
    for (const auto& entry : b->entries) {
        if (entry.first == key) {
            return BUNDLE_ERROR_KEY_EXISTS;
        }
    }
    b->entries.emplace_back(key, val);
    return BUNDLE_ERROR_NONE;
}

const char* bundle_get_val(bundle* b, const char* key) {
    CallScope call("bundle_get_val", {Ptr(b), Text(key)}, false);
    if (b == nullptr || key == nullptr) {
        return nullptr;
    }
    for (const auto& entry : b->entries) {
        if (entry.first == key) {
            return entry.second.c_str();
        }
    }
    return nullptr;
}

int bundle_get_count(bundle* b) {
    CallScope call("bundle_get_count", {Ptr(b)});
    if (call.scripted()) {
        return *call.scripted();
    }
    return b ? static_cast<int>(b->entries.size()) : 0;
}

void bundle_iterate(bundle* b, bundle_iterate_cb_t cb, void* data) {
    CallScope call("bundle_iterate", {Ptr(b), Callback(cb), Ptr(data)}, false);
    if (b == nullptr || cb == nullptr) {
        return;
    }
    auto entries = b->entries;
    call.Release();
    for (const auto& entry : entries) {
        cb(entry.first.c_str(), entry.second.c_str(), data);
    }
}

int bundle_free(bundle* b) {
    CallScope call("bundle_free", {Ptr(b)});
    int result = b ? BUNDLE_ERROR_NONE : BUNDLE_ERROR_INVALID_PARAMETER;
    // Freed whatever the script says, so that a scripted failure leaks nothing.
    delete b;
    return call.scripted() ? *call.scripted() : result;
}

}  // extern "C"
