// Key/value bundles handed to launched applications, kept in insertion order because
// the launcher passes them on as arguments in that order.
#include "bundle.h"

#include <new>
#include <string>
#include <utility>
#include <vector>

struct _bundle_t {
    std::vector<std::pair<std::string, std::string>> entries;

    const std::pair<std::string, std::string>* Find(const char* key) const {
        for (const auto& entry : entries)
            if (entry.first == key)
                return &entry;
        return nullptr;
    }
};

extern "C" bundle* bundle_create(void) {
    return new (std::nothrow) _bundle_t();
}

extern "C" int bundle_add(bundle* b, const char* key, const char* val) {
    if (!b || !key || !*key || !val)
        return BUNDLE_ERROR_INVALID_PARAMETER;
    if (b->Find(key))
        return BUNDLE_ERROR_KEY_EXISTS;
    try {
        b->entries.emplace_back(key, val);
    } catch (const std::bad_alloc&) {
        return BUNDLE_ERROR_OUT_OF_MEMORY;
    }
    return BUNDLE_ERROR_NONE;
}

extern "C" const char* bundle_get_val(bundle* b, const char* key) {
    if (!b || !key)
        return nullptr;
    const auto* entry = b->Find(key);
    return entry ? entry->second.c_str() : nullptr;
}

extern "C" int bundle_get_count(bundle* b) {
    return b ? static_cast<int>(b->entries.size()) : 0;
}

extern "C" void bundle_iterate(bundle* b, bundle_iterate_cb_t cb, void* data) {
    if (!b || !cb)
        return;
    for (const auto& entry : b->entries)
        cb(entry.first.c_str(), entry.second.c_str(), data);
}

extern "C" int bundle_free(bundle* b) {
    if (!b)
        return BUNDLE_ERROR_INVALID_PARAMETER;
    delete b;
    return BUNDLE_ERROR_NONE;
}
