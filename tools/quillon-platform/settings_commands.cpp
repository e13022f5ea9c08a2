// Settings commands: seed, read and change settings keys through the platform's own
// settings functions, exactly as the daemon sees them.
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "command.h"
#include "common/utc_time.h"
#include "parse_decimal.h"
#include "settings/settings_key.h"
#include "settings/settings_store.h"
#include "settings/settings_writer.h"
#include "vconf.h"

namespace quillon_platform {

int Written(int rc, const std::string& key) {
    if (rc == VCONF_OK && host::settings::Sync())
        return kExitOk;
    std::fprintf(stderr, "quillon-platform: could not write '%s'\n", key.c_str());
    return kExitFailed;
}

namespace {

struct DefaultSetting {
    const char* key;
    bool is_int;
    int number;
    const char* text;
};

// What a freshly installed TV holds before the daemon first starts.
const DefaultSetting kDefaults[] = {
    {"db/registertv/factoryreset", true, 0, nullptr},
    {"db/menu/network/devicemanager/accessnoti", true, 1, nullptr},
    {"memory/quillon/reqopt", true, 0, nullptr},
    {"memory/wizard/wizard_mode", false, 0, ""},
};

bool CheckKey(const Command& command, const std::string& key, int* status) {
    if (host::settings::IsValidKey(key.c_str()))
        return true;
    *status = BadInput(command, "invalid key '" + key +
                                    "' (printable ASCII without blanks, no '..', no '//', "
                                    "no '/' at either end)");
    return false;
}

// Whether the key reads as the type the daemon expects of it.
bool ReadsAsItsType(const DefaultSetting& setting) {
    int number = 0;
    if (setting.is_int)
        return vconf_get_int(setting.key, &number) == VCONF_OK;
    char* text = vconf_get_str(setting.key);
    free(text);
    return text != nullptr;
}

// "<file>.unparsable-<UTC time>" beside it, or empty on failure (errno).
std::string MoveAside(const std::string& key) {
    const std::string dir = host::settings::DirectoryPath();
    const std::string name = host::settings::KeyToFileName(key);
    std::string stamp = host::UtcTimeText(time(nullptr));
    stamp.erase(std::remove(stamp.begin(), stamp.end(), '-'), stamp.end());
    stamp.erase(std::remove(stamp.begin(), stamp.end(), ':'), stamp.end());
    const std::string aside = name + ".unparsable-" + stamp;
    if (rename((dir + "/" + name).c_str(), (dir + "/" + aside).c_str()) != 0)
        return std::string();
    return aside;
}

// Seeds the keys that are missing; a key whose file does not read as its type stops the
// daemon at start, so it is reported, and with --repair kept aside and seeded.
int RunInit(const Command& self, const std::vector<std::string>& args) {
    bool repair = false;
    for (const std::string& arg : args) {
        if (arg == "--repair" && !repair)
            repair = true;
        else
            return BadInput(self, "unexpected argument '" + arg + "'");
    }
    int result = kExitOk;
    for (const DefaultSetting& setting : kDefaults) {
        if (ReadsAsItsType(setting)) {
            std::printf("kept   %s\n", setting.key);
            continue;
        }
        const std::string path =
            host::settings::DirectoryPath() + "/" + host::settings::KeyToFileName(setting.key);
        if (access(path.c_str(), F_OK) == 0) {
            if (!repair) {
                std::printf(
                    "broken %s (quillon-platform init --repair keeps it aside and "
                    "seeds it)\n",
                    setting.key);
                result = kExitFailed;
                continue;
            }
            std::string aside = MoveAside(setting.key);
            if (aside.empty()) {
                std::fprintf(stderr, "quillon-platform: cannot move %s aside: %s\n", path.c_str(),
                             strerror(errno));
                return kExitFailed;
            }
            std::printf("broken %s kept aside as %s\n", setting.key, aside.c_str());
        }
        int rc = setting.is_int ? vconf_set_int(setting.key, setting.number)
                                : vconf_set_str(setting.key, setting.text);
        if (Written(rc, setting.key) != kExitOk)
            return kExitFailed;
        std::printf("seeded %s\n", setting.key);
    }
    return result;
}

int RunGet(const Command& self, const std::vector<std::string>& args) {
    int status = kExitOk;
    if (!ExpectArgs(self, args, 1, &status) || !CheckKey(self, args[0], &status))
        return status;
    const char* key = args[0].c_str();
    int number = 0;
    if (vconf_get_int(key, &number) == VCONF_OK || vconf_get_bool(key, &number) == VCONF_OK) {
        std::printf("%d\n", number);
        return kExitOk;
    }
    char* text = vconf_get_str(key);
    if (!text) {
        std::fprintf(stderr, "quillon-platform: no such key '%s'\n", key);
        return kExitFailed;
    }
    std::printf("%s\n", text);
    free(text);
    return kExitOk;
}

int RunSetInt(const Command& self, const std::vector<std::string>& args) {
    int status = kExitOk;
    if (!ExpectArgs(self, args, 2, &status) || !CheckKey(self, args[0], &status))
        return status;
    int number = 0;
    if (!quillon_tools::ParseDecimal(args[1], &number))
        return BadInput(self, "'" + args[1] + "' is not a decimal integer in the int range");
    return Written(vconf_set_int(args[0].c_str(), number), args[0]);
}

int RunSetStr(const Command& self, const std::vector<std::string>& args) {
    int status = kExitOk;
    if (!ExpectArgs(self, args, 2, &status) || !CheckKey(self, args[0], &status))
        return status;
    return Written(vconf_set_str(args[0].c_str(), args[1].c_str()), args[0]);
}

int RunSetBool(const Command& self, const std::vector<std::string>& args) {
    int status = kExitOk;
    if (!ExpectArgs(self, args, 2, &status) || !CheckKey(self, args[0], &status))
        return status;
    if (args[1] != "0" && args[1] != "1")
        return BadInput(self, "'" + args[1] + "' is not 0 or 1");
    return Written(vconf_set_bool(args[0].c_str(), args[1] == "1"), args[0]);
}

int RunUnset(const Command& self, const std::vector<std::string>& args) {
    int status = kExitOk;
    if (!ExpectArgs(self, args, 1, &status) || !CheckKey(self, args[0], &status))
        return status;
    if (vconf_unset(args[0].c_str()) == VCONF_OK)
        return Written(VCONF_OK, args[0]);
    std::fprintf(stderr, "quillon-platform: no such key '%s'\n", args[0].c_str());
    return kExitFailed;
}

const CommandRegistrar kRegistrar({
    {"init", "init [--repair]",
     "seed the default settings; never overwrites a key (exit 1 on a broken one); --repair "
     "keeps broken ones aside and seeds them",
     RunInit},
    {"get", "get KEY", "print a setting's value (exit 1 when it is missing)", RunGet},
    {"set-int", "set-int KEY N", "set an integer setting", RunSetInt},
    {"set-str", "set-str KEY TEXT", "set a text setting", RunSetStr},
    {"set-bool", "set-bool KEY 0|1", "set a boolean setting", RunSetBool},
    {"unset", "unset KEY", "remove a setting (exit 1 when it is missing)", RunUnset},
});

}  // namespace

}  // namespace quillon_platform
