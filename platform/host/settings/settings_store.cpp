#include "settings/settings_store.h"

#include <errno.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "common/platform_root.h"
#include "common/whole_file.h"
#include "settings/settings_key.h"
#include "settings/settings_writer.h"
#include "vconf.h"

namespace host {
namespace settings {

namespace {

// A setting is a few bytes; anything far larger is not one of ours.
constexpr size_t kMaxFileSize = 1 << 20;

// The number in an int or bool file: decimal, one optional trailing line feed.
bool ParseNumber(std::string text, long min, long max, int* number) {
    if (!text.empty() && text.back() == '\n')
        text.pop_back();
    // Digits with an optional sign and nothing else: strtol alone would skip leading blanks
    // of any kind (form feeds, carriage returns) and take what a hand edit left broken.
    size_t digits = (!text.empty() && (text[0] == '-' || text[0] == '+')) ? 1 : 0;
    if (digits == text.size() || text.find_first_not_of("0123456789", digits) != std::string::npos)
        return false;
    errno = 0;
    char* end = nullptr;
    long parsed = std::strtol(text.c_str(), &end, 10);
    if (errno != 0 || *end != '\0' || parsed < min || parsed > max)
        return false;
    *number = static_cast<int>(parsed);
    return true;
}

}  // namespace

bool ParseValueFile(const std::string& content, Value* value) {
    size_t newline = content.find('\n');
    if (newline == std::string::npos)
        return false;
    std::string type = content.substr(0, newline);
    std::string rest = content.substr(newline + 1);
    if (type == "string") {
        value->type = Type::kString;
        value->number = 0;
        value->text = rest;
        return true;
    }
    if (type == "int") {
        value->type = Type::kInt;
        value->text.clear();
        return ParseNumber(rest, INT_MIN, INT_MAX, &value->number);
    }
    if (type == "bool") {
        value->type = Type::kBool;
        value->text.clear();
        return ParseNumber(rest, 0, 1, &value->number);
    }
    return false;
}

namespace {

std::string Serialize(const Value& value) {
    switch (value.type) {
        case Type::kInt:
            return "int\n" + std::to_string(value.number) + "\n";
        case Type::kBool:
            return std::string("bool\n") + (value.number ? "1" : "0") + "\n";
        case Type::kString:
            break;
    }
    return "string\n" + value.text;
}

}  // namespace

std::string DirectoryPath() {
    return PlatformRoot() + "/settings";
}

// What a killed writer left behind goes once per process, before its first read or write.
void RemoveStaleTempsOnce() {
    static std::once_flag cleaned;
    std::call_once(cleaned, [] { RemoveStaleTemps(DirectoryPath()); });
}

std::string EnsureDirectory() {
    RemoveStaleTempsOnce();
    return PlatformDir("settings");
}

bool Read(const std::string& key, Value* value) {
    if (!IsValidKey(key.c_str()))
        return false;
    RemoveStaleTempsOnce();
    const std::string name = KeyToFileName(key);
    std::string content;
    // This process's own writes count before they reach the disk.
    switch (Queued(name, &content)) {
        case Pending::kWrite:
            return ParseValueFile(content, value);
        case Pending::kRemove:
            return false;
        case Pending::kNone:
            break;
    }
    if (!ReadSmallFile(DirectoryPath() + "/" + name, kMaxFileSize, &content))
        return false;
    return ParseValueFile(content, value);
}

bool Write(const std::string& key, const Value& value) {
    if (!IsValidKey(key.c_str()) || EnsureDirectory().empty())
        return false;
    QueueWrite(KeyToFileName(key), Serialize(value));
    return true;
}

bool Remove(const std::string& key) {
    if (!IsValidKey(key.c_str()))
        return false;
    const std::string name = KeyToFileName(key);
    Pending queued = Queued(name, nullptr);
    if (queued == Pending::kRemove ||
        (queued == Pending::kNone && access((DirectoryPath() + "/" + name).c_str(), F_OK) != 0))
        return false;
    QueueRemove(name);
    return true;
}

}  // namespace settings
}  // namespace host

using host::settings::Type;
using host::settings::Value;

extern "C" int vconf_get_int(const char* key, int* intval) {
    Value value;
    if (!key || !intval || !host::settings::Read(key, &value) || value.type != Type::kInt)
        return VCONF_ERROR;
    *intval = value.number;
    return VCONF_OK;
}

extern "C" int vconf_get_bool(const char* key, int* boolval) {
    Value value;
    if (!key || !boolval || !host::settings::Read(key, &value) || value.type != Type::kBool)
        return VCONF_ERROR;
    *boolval = value.number;
    return VCONF_OK;
}

extern "C" char* vconf_get_str(const char* key) {
    Value value;
    if (!key || !host::settings::Read(key, &value) || value.type != Type::kString)
        return nullptr;
    return strdup(value.text.c_str());
}

extern "C" int vconf_set_int(const char* key, int intval) {
    Value value;
    value.type = Type::kInt;
    value.number = intval;
    return key && host::settings::Write(key, value) ? VCONF_OK : VCONF_ERROR;
}

extern "C" int vconf_set_bool(const char* key, int boolval) {
    Value value;
    value.type = Type::kBool;
    value.number = boolval ? 1 : 0;
    return key && host::settings::Write(key, value) ? VCONF_OK : VCONF_ERROR;
}

extern "C" int vconf_set_str(const char* key, const char* strval) {
    if (!key || !strval)
        return VCONF_ERROR;
    Value value;
    value.type = Type::kString;
    value.text = strval;
    return host::settings::Write(key, value) ? VCONF_OK : VCONF_ERROR;
}

extern "C" int vconf_unset(const char* key) {
    return key && host::settings::Remove(key) ? VCONF_OK : VCONF_ERROR;
}
