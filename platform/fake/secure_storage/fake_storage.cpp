// Secure storage: items kept as plain text by name. Save threads write here while the
// test thread reads, so every access goes through the shared lock.
#include <cstdlib>
#include <cstring>

#include "common/fake_state.h"
#include "ss_manager.h"

using fake::detail::CallScope;
using fake::detail::Data;
using fake::detail::Num;
using fake::detail::Ptr;
using fake::detail::Text;

namespace {

void Remember(Data& d, const ss_credential_s* cred) {
    if (cred != nullptr) {
        d.last_credential.assign(cred->app_credential,
                                 cred->app_credential + SS_APP_CREDENTIAL_WORDS);
    }
}

}  // namespace

extern "C" {

int ss_init_credential(ss_credential_s* cred, const unsigned int app_credential[5], int type,
                       int flags) {
    CallScope call("ss_init_credential", {Ptr(cred), Ptr(app_credential), Num(type), Num(flags)});
    if (call.failed()) {
        return *call.scripted();
    }
    if (cred == nullptr || app_credential == nullptr) {
        return SS_ERROR_INVALID_PARAMETER;
    }
    std::memcpy(cred->app_credential, app_credential, sizeof(cred->app_credential));
    cred->type = type;
    cred->flags = flags;
    Remember(call.data(), cred);
    return SS_ERROR_NONE;
}

int ss_write(const char* data, size_t size, int offset, int flags, const char* item_name,
             ss_credential_s* cred, int encrypt) {
    std::string text = data ? std::string(data, size) : std::string("(null)");
    CallScope call("ss_write", {text, Num(static_cast<long long>(size)), Num(offset), Num(flags),
                                Text(item_name), Ptr(cred), Num(encrypt)});
    Remember(call.data(), cred);
    if (call.failed()) {
        return *call.scripted();
    }
    if (data == nullptr || item_name == nullptr) {
        return SS_ERROR_INVALID_PARAMETER;
    }
    call.data().secure_items[item_name] = text;
    return SS_ERROR_NONE;
}

int ss_read(char** buffer, size_t* size, int offset, int flags, const char* item_name,
            ss_credential_s* cred, int decrypt) {
    CallScope call("ss_read", {Ptr(buffer), Ptr(size), Num(offset), Num(flags), Text(item_name),
                               Ptr(cred), Num(decrypt)});
    Remember(call.data(), cred);
    if (call.failed()) {
        return *call.scripted();
    }
    if (buffer == nullptr || size == nullptr || item_name == nullptr) {
        return SS_ERROR_INVALID_PARAMETER;
    }
    auto it = call.data().secure_items.find(item_name);
    if (it == call.data().secure_items.end()) {
        return call.scripted() ? *call.scripted() : SS_ERROR_NO_SUCH_ITEM;
    }
    const std::string& text = it->second;
    char* copy = static_cast<char*>(std::malloc(text.size() + 1));
    if (copy == nullptr) {
        return SS_ERROR_OUT_OF_MEMORY;
    }
    std::memcpy(copy, text.data(), text.size());
    copy[text.size()] = '\0';
    *buffer = copy;
    *size = text.size();
    return SS_ERROR_NONE;
}

void ss_free_buffer(char* buffer) {
    CallScope call("ss_free_buffer", {Ptr(buffer)}, false);
    std::free(buffer);
}

int ss_clear_storage(const char* item_name, ss_credential_s* cred, int flags) {
    CallScope call("ss_clear_storage", {Text(item_name), Ptr(cred), Num(flags)});
    Remember(call.data(), cred);
    if (call.failed()) {
        return *call.scripted();
    }
    auto& items = call.data().secure_items;
    if (item_name == nullptr) {
        items.clear();
        return SS_ERROR_NONE;
    }
    if (items.erase(item_name) == 0) {
        return call.scripted() ? *call.scripted() : SS_ERROR_NO_SUCH_ITEM;
    }
    return SS_ERROR_NONE;
}

}  // extern "C"

namespace fake {

std::optional<std::string> SecureItem(const std::string& item) {
    auto& s = detail::GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    auto it = s.data.secure_items.find(item);
    if (it == s.data.secure_items.end()) {
        return std::nullopt;
    }
    return it->second;
}

void SetSecureItem(const std::string& item, const std::string& text) {
    auto& s = detail::GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.data.secure_items[item] = text;
}

std::vector<unsigned int> LastCredential() {
    auto& s = detail::GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    return s.data.last_credential;
}

}  // namespace fake
