// Settings store: typed values per key, and change callbacks that only the test triggers.
#include <cstdlib>
#include <cstring>

#include "common/fake_state.h"
#include "vconf.h"

using fake::detail::Callback;
using fake::detail::CallScope;
using fake::detail::Num;
using fake::detail::Ptr;
using fake::detail::Setting;
using fake::detail::Text;

namespace {

int Store(const char* fn, const char* key, std::vector<std::string> args, const Setting& value) {
    CallScope call(fn, std::move(args));
    if (call.failed()) {
        return *call.scripted();
    }
    if (key == nullptr) {
        return VCONF_ERROR;
    }
    // The daemon's own writes never reach listeners: only the test's Change* deliver.
    call.data().settings[key] = value;
    return VCONF_OK;
}

int Read(const char* fn, const char* key, int* out, int type) {
    CallScope call(fn, {Text(key), Ptr(out)});
    if (call.failed()) {
        return *call.scripted();
    }
    if (key == nullptr || out == nullptr) {
        return VCONF_ERROR;
    }
    auto it = call.data().settings.find(key);
    if (it == call.data().settings.end() || it->second.type != type) {
        return call.scripted() ? *call.scripted() : VCONF_ERROR;
    }
    *out = it->second.ival;
    return VCONF_OK;
}

Setting MakeInt(int type, int value) {
    Setting s;
    s.type = type;
    s.ival = value;
    return s;
}

Setting MakeStr(const std::string& value) {
    Setting s;
    s.type = VCONF_TYPE_STRING;
    s.sval = value;
    return s;
}

void Put(const std::string& key, const Setting& value) {
    auto& s = fake::detail::GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.data.settings[key] = value;
}

// Stores the value, then calls every listener of the key with the lock released.
void Deliver(const std::string& key, const Setting& value) {
    std::vector<fake::detail::VconfListener> listeners;
    {
        auto& s = fake::detail::GetState();
        std::lock_guard<std::mutex> lock(s.mutex);
        s.data.settings[key] = value;
        for (const auto& l : s.data.vconf_listeners) {
            if (l.key == key) {
                listeners.push_back(l);
            }
        }
    }
    for (const auto& l : listeners) {
        _keynode_t node;
        node.name = key;
        node.type = value.type;
        node.ival = value.ival;
        node.sval = value.sval;
        l.cb(&node, l.user_data);
    }
}

}  // namespace

extern "C" {

int vconf_get_int(const char* key, int* intval) {
    return Read("vconf_get_int", key, intval, VCONF_TYPE_INT);
}

int vconf_get_bool(const char* key, int* boolval) {
    return Read("vconf_get_bool", key, boolval, VCONF_TYPE_BOOL);
}

char* vconf_get_str(const char* key) {
    CallScope call("vconf_get_str", {Text(key)});
    if (call.failed() || key == nullptr) {
        return nullptr;
    }
    auto it = call.data().settings.find(key);
    if (it == call.data().settings.end() || it->second.type != VCONF_TYPE_STRING) {
        return nullptr;
    }
    return strdup(it->second.sval.c_str());
}

int vconf_set_int(const char* key, int intval) {
    return Store("vconf_set_int", key, {Text(key), Num(intval)}, MakeInt(VCONF_TYPE_INT, intval));
}

int vconf_set_bool(const char* key, int boolval) {
    return Store("vconf_set_bool", key, {Text(key), Num(boolval)},
                 MakeInt(VCONF_TYPE_BOOL, boolval ? 1 : 0));
}

int vconf_set_str(const char* key, const char* strval) {
    if (strval == nullptr) {
        CallScope call("vconf_set_str", {Text(key), Text(strval)});
        return call.failed() ? *call.scripted() : VCONF_ERROR;
    }
    return Store("vconf_set_str", key, {Text(key), Text(strval)}, MakeStr(strval));
}

int vconf_unset(const char* key) {
    CallScope call("vconf_unset", {Text(key)});
    if (call.failed()) {
        return *call.scripted();
    }
    if (key == nullptr || call.data().settings.erase(key) == 0) {
        return call.scripted() ? *call.scripted() : VCONF_ERROR;
    }
    return VCONF_OK;
}

int vconf_notify_key_changed(const char* key, vconf_callback_fn cb, void* user_data) {
    CallScope call("vconf_notify_key_changed", {Text(key), Callback(cb), Ptr(user_data)});
    if (call.failed()) {
        return *call.scripted();
    }
    if (key == nullptr || cb == nullptr) {
        return VCONF_ERROR;
    }
    call.data().vconf_listeners.push_back({key, cb, user_data});
    return VCONF_OK;
}

int vconf_ignore_key_changed(const char* key, vconf_callback_fn cb) {
    CallScope call("vconf_ignore_key_changed", {Text(key), Callback(cb)});
    if (call.failed()) {
        return *call.scripted();
    }
    if (key == nullptr || cb == nullptr) {
        return VCONF_ERROR;
    }
    auto& listeners = call.data().vconf_listeners;
    std::size_t before = listeners.size();
    for (auto it = listeners.begin(); it != listeners.end();) {
        it = (it->key == key && it->cb == cb) ? listeners.erase(it) : it + 1;
    }
    if (listeners.size() == before) {
        return call.scripted() ? *call.scripted() : VCONF_ERROR;
    }
    return VCONF_OK;
}

char* vconf_keynode_get_name(keynode_t* keynode) {
    CallScope call("vconf_keynode_get_name", {Ptr(keynode)}, false);
    return keynode ? &keynode->name[0] : nullptr;
}

int vconf_keynode_get_type(keynode_t* keynode) {
    CallScope call("vconf_keynode_get_type", {Ptr(keynode)});
    if (call.scripted()) {
        return *call.scripted();
    }
    return keynode ? keynode->type : VCONF_TYPE_NONE;
}

int vconf_keynode_get_int(keynode_t* keynode) {
    CallScope call("vconf_keynode_get_int", {Ptr(keynode)});
    if (call.scripted()) {
        return *call.scripted();
    }
    return (keynode && keynode->type == VCONF_TYPE_INT) ? keynode->ival : 0;
}

int vconf_keynode_get_bool(keynode_t* keynode) {
    CallScope call("vconf_keynode_get_bool", {Ptr(keynode)});
    if (call.scripted()) {
        return *call.scripted();
    }
    return (keynode && keynode->type == VCONF_TYPE_BOOL) ? keynode->ival : 0;
}

char* vconf_keynode_get_str(keynode_t* keynode) {
    CallScope call("vconf_keynode_get_str", {Ptr(keynode)}, false);
    if (keynode == nullptr || keynode->type != VCONF_TYPE_STRING) {
        return nullptr;
    }
    return &keynode->sval[0];
}

}  // extern "C"

namespace fake {

void SeedDefaultSettings() {
    SetInt("db/registertv/factoryreset", 0);
    SetInt("db/menu/network/devicemanager/accessnoti", 1);
    SetInt("memory/quillon/reqopt", 0);
    SetStr("memory/wizard/wizard_mode", "");
}

void SetInt(const std::string& key, int value) {
    Put(key, MakeInt(VCONF_TYPE_INT, value));
}

void SetBool(const std::string& key, bool value) {
    Put(key, MakeInt(VCONF_TYPE_BOOL, value ? 1 : 0));
}

void SetStr(const std::string& key, const std::string& value) {
    Put(key, MakeStr(value));
}

void Unset(const std::string& key) {
    auto& s = detail::GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.data.settings.erase(key);
}

std::optional<int> GetInt(const std::string& key) {
    auto& s = detail::GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    auto it = s.data.settings.find(key);
    if (it == s.data.settings.end() || it->second.type == VCONF_TYPE_STRING) {
        return std::nullopt;
    }
    return it->second.ival;
}

std::optional<std::string> GetStr(const std::string& key) {
    auto& s = detail::GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    auto it = s.data.settings.find(key);
    if (it == s.data.settings.end() || it->second.type != VCONF_TYPE_STRING) {
        return std::nullopt;
    }
    return it->second.sval;
}

void ChangeInt(const std::string& key, int value) {
    Deliver(key, MakeInt(VCONF_TYPE_INT, value));
}

void ChangeBool(const std::string& key, bool value) {
    Deliver(key, MakeInt(VCONF_TYPE_BOOL, value ? 1 : 0));
}

void ChangeStr(const std::string& key, const std::string& value) {
    Deliver(key, MakeStr(value));
}

std::size_t VconfListenerCount(const std::string& key) {
    auto& s = detail::GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    std::size_t n = 0;
    for (const auto& l : s.data.vconf_listeners) {
        n += (l.key == key) ? 1 : 0;
    }
    return n;
}

}  // namespace fake
