#include "commands.h"

#include <cstdio>
#include <map>

#include "bus_call.h"
#include "exit_status.h"
#include "output.h"

namespace quillonctl {

namespace {

constexpr int kDefaultTimeoutSeconds = 25;

Verdict RequestVerdict(int code) {
    switch (code) {
        case 0:
            return {kExitOk, "allowed"};
        case 1:
            return {kExitOk, "denied"};
        case 2:
            return {kExitOk, "undecided: the user is being asked"};
        default:
            return {kExitNegative, "refused: a prompt is on screen, or no decision was possible"};
    }
}

Verdict StatusVerdict(int code) {
    return {code == -1 ? kExitNegative : kExitOk, VerdictMeaning(code)};
}

Verdict SetStatusVerdict(int code) {
    switch (code) {
        case 1:
            return {kExitOk, "changed"};
        case 2:
            return {kExitOk, "unchanged: the device already had that status"};
        case 3:
            return {kExitNegative, "invalid status (only 0 and 1 can be set)"};
        case 4:
            return {kExitNegative, "not found"};
        default:
            return {kExitNegative, "failed"};
    }
}

Verdict RemoveVerdict(int code) {
    return code == 1 ? Verdict{kExitOk, "removed"} : Verdict{kExitNegative, "not found"};
}

Verdict RemoveAllVerdict(int code) {
    return code == 1 ? Verdict{kExitOk, "all removed"}
                     : Verdict{kExitNegative, "failed: the wake-up tables could not be cleared"};
}

// The daemon answers 0 for the reverse list even when it emptied it.
Verdict RemoveAllReverseVerdict(int code) {
    return {kExitOk, code == 1 ? "all removed" : "all removed (the daemon always answers 0 here)"};
}

Verdict MirroringVerdict(int code) {
    return code == 1 ? Verdict{kExitOk, "changed"}
                     : Verdict{kExitNegative, "unchanged: same value, or not found"};
}

Verdict ParamVerdict(int code) {
    return code == 1 ? Verdict{kExitOk, "done"} : Verdict{kExitNegative, "not found"};
}

const char kRecordUsage[] = "[DEVICE OPTIONS]";

size_t PositionalCount(ArgShape shape) {
    switch (shape) {
        case ArgShape::kMacInd:
            return 2;
        case ArgShape::kMacIndValue:
            return 3;
        case ArgShape::kMacIndParam:
            return 4;
        default:
            return 0;
    }
}

GVariant* RecordParameters(const Command& command, const Options& options, std::string* error) {
    int numbers[6];
    const char* names[6] = {"type", "icon", "status", "tv-init-mirroring", "no-ux", "ux-always"};
    for (int i = 0; i < 6; ++i) {
        bool is_status = std::string(names[i]) == "status";
        std::optional<std::string> value = options.Value(names[i]);
        numbers[i] = 0;
        if (value &&
            !(is_status ? ParseVerdict(*value, "--status", &numbers[i], error)
                        : ParseInt(*value, std::string("--") + names[i], &numbers[i], error))) {
            return nullptr;
        }
    }
    // An answer without a verdict is never meant: the prompt always says which.
    if (command.reply == ReplyShape::kEmpty && !options.Value("status")) {
        *error = command.name + " needs --status (allow, deny, undecided or 0, 1, 2)";
        return nullptr;
    }
    auto text = [&options](const char* name) { return options.Value(name).value_or(""); };
    for (const char* address : {"bt", "wifi", "p2p"}) {
        const std::string mac = text(address);
        if (!mac.empty() && mac != "0" && !CheckMac(mac, "--" + std::string(address), error))
            return nullptr;
    }
    for (const char* name : {"name", "zel-id", "mirroring-id"}) {
        if (!g_utf8_validate(text(name).c_str(), -1, nullptr)) {
            *error = "--" + std::string(name) + " is not valid UTF-8 text";
            return nullptr;
        }
    }
    return g_variant_new("(ssssssiiiiii)", text("name").c_str(), text("bt").c_str(),
                         text("wifi").c_str(), text("p2p").c_str(), text("zel-id").c_str(),
                         text("mirroring-id").c_str(), numbers[0], numbers[1], numbers[2],
                         numbers[3], numbers[4], numbers[5]);
}

bool ParamType(const std::string& text, int* out, std::string* error) {
    if (text == "name") {
        *out = 1;
        return true;
    }
    if (text == "zel-id") {
        *out = 2;
        return true;
    }
    return ParseInt(text, "TYPE (name, zel-id or a number)", out, error);
}

// Null with an empty *error for a method without arguments.
GVariant* Parameters(const Command& command, const Options& options, std::string* error) {
    const std::vector<std::string>& p = options.positionals;
    if (p.size() != PositionalCount(command.args)) {
        *error =
            command.name + " takes " + (command.usage.empty() ? "no arguments" : command.usage);
        return nullptr;
    }
    if (command.args == ArgShape::kRecord) {
        return RecordParameters(command, options, error);
    }
    if (command.args == ArgShape::kNone) {
        return nullptr;
    }
    int ind = 0;
    if (!CheckMac(p[0], "MAC", error) || !ParseIndicator(p[1], &ind, error)) {
        return nullptr;
    }
    if (command.args == ArgShape::kMacInd) {
        return g_variant_new("(si)", p[0].c_str(), ind);
    }
    if (command.args == ArgShape::kMacIndValue) {
        int value = 0;
        // set-status takes a verdict; set-mirroring a plain number.
        bool parsed = command.method == std::string("pxm_set_status")
                          ? ParseVerdict(p[2], "STATUS", &value, error)
                          : ParseInt(p[2], "the value", &value, error);
        if (!parsed) {
            return nullptr;
        }
        return g_variant_new("(sii)", p[0].c_str(), ind, value);
    }
    int type = 0;
    if (!ParamType(p[3], &type, error)) {
        return nullptr;
    }
    if (!g_utf8_validate(p[2].c_str(), -1, nullptr)) {
        *error = "PARAM is not valid UTF-8 text";
        return nullptr;
    }
    return g_variant_new("(sisi)", p[0].c_str(), ind, p[2].c_str(), type);
}

const GVariantType* ReplyType(ReplyShape shape) {
    switch (shape) {
        case ReplyShape::kCode:
            return G_VARIANT_TYPE("(i)");
        case ReplyShape::kEmpty:
            return G_VARIANT_TYPE_UNIT;
        default:
            return G_VARIANT_TYPE("(a(ssssiiiiiiss)i)");
    }
}

int PrintCode(const Command& command, GVariant* reply, bool json) {
    gint32 code = 0;
    g_variant_get(reply, "(i)", &code);
    Verdict verdict = command.judge(code);
    if (json) {
        Json::Value out(Json::objectValue);
        out["method"] = command.method;
        out["result"] = code;
        out["meaning"] = verdict.meaning;
        PrintJsonLine(out);
    } else {
        PrintLine(std::to_string(code) + " " + verdict.meaning);
    }
    return verdict.exit_status;
}

int PrintDevices(const Command& command, GVariant* reply, bool json) {
    GVariantIter* iter = nullptr;
    gint32 number = 0;
    g_variant_get(reply, "(a(ssssiiiiiiss)i)", &iter, &number);
    Json::Value devices(Json::arrayValue);
    GVariant* element = nullptr;
    while ((element = g_variant_iter_next_value(iter)) != nullptr) {
        devices.append(DeviceJson(element));
        g_variant_unref(element);
    }
    g_variant_iter_free(iter);

    bool device = command.reply == ReplyShape::kDevice;
    if (json) {
        Json::Value out(Json::objectValue);
        out["method"] = command.method;
        out["result"] = number;
        if (device) {
            out["found"] = number == 1;
            out["device"] = devices.empty() ? Json::Value() : devices[0];
        } else {
            out["count"] = number;
            out["devices"] = devices;
        }
        PrintJsonLine(out);
    } else if (device) {
        PrintLine(number == 1 && !devices.empty() ? DeviceText(devices[0]) : "not found");
    } else {
        PrintLine(std::to_string(number) + (number == 1 ? " device" : " devices"));
        for (const Json::Value& d : devices) {
            PrintLine(DeviceText(d));
        }
    }
    return device && number != 1 ? kExitNegative : kExitOk;
}

}  // namespace

const std::vector<Command>& MethodCommands() {
    static const std::vector<Command> commands = {
        {"request", kRecordUsage, "ask for access for a device (normal list)",
         QUILLON_SET_INTERFACE, "pxm_request_access", ArgShape::kRecord, ReplyShape::kCode,
         RequestVerdict},
        {"request-reverse", kRecordUsage, "the same on the reverse list", QUILLON_SET_INTERFACE,
         "pxm_request_access_reverse", ArgShape::kRecord, ReplyShape::kCode, RequestVerdict},
        {"status", "MAC IND", "the stored verdict of a device", QUILLON_GET_INTERFACE,
         "pxm_get_status", ArgShape::kMacInd, ReplyShape::kCode, StatusVerdict},
        {"set-status", "MAC IND STATUS", "set a device's verdict (0 allow, 1 deny)",
         QUILLON_SET_INTERFACE, "pxm_set_status", ArgShape::kMacIndValue, ReplyShape::kCode,
         SetStatusVerdict},
        {"device", "MAC IND", "one device of the normal list", QUILLON_GET_INTERFACE,
         "pxm_get_device", ArgShape::kMacInd, ReplyShape::kDevice, nullptr},
        {"device-reverse", "MAC IND", "one device of the reverse list", QUILLON_GET_INTERFACE,
         "pxm_get_device_reverse", ArgShape::kMacInd, ReplyShape::kDevice, nullptr},
        {"list", "", "every device of the normal list", QUILLON_GET_INTERFACE, "pxm_get_list",
         ArgShape::kNone, ReplyShape::kList, nullptr},
        {"list-reverse", "", "every device of the reverse list", QUILLON_GET_INTERFACE,
         "pxm_get_list_reverse", ArgShape::kNone, ReplyShape::kList, nullptr},
        {"remove", "MAC IND", "remove a device from the normal list", QUILLON_SET_INTERFACE,
         "pxm_remove_device", ArgShape::kMacInd, ReplyShape::kCode, RemoveVerdict},
        {"remove-reverse", "MAC IND", "remove a device from the reverse list",
         QUILLON_SET_INTERFACE, "pxm_remove_device_reverse", ArgShape::kMacInd, ReplyShape::kCode,
         RemoveVerdict},
        {"remove-all", "", "empty the normal list and the wake-up tables", QUILLON_SET_INTERFACE,
         "pxm_remove_all", ArgShape::kNone, ReplyShape::kCode, RemoveAllVerdict},
        {"remove-all-reverse", "", "empty the reverse list", QUILLON_SET_INTERFACE,
         "pxm_remove_all_reverse", ArgShape::kNone, ReplyShape::kCode, RemoveAllReverseVerdict},
        {"set-mirroring", "MAC IND VALUE", "set a device's TV-initiated mirroring support",
         QUILLON_SET_INTERFACE, "pxm_set_tv_init_mirroring_status", ArgShape::kMacIndValue,
         ReplyShape::kCode, MirroringVerdict},
        {"set-param", "MAC IND PARAM TYPE",
         "set a device's name (TYPE name or 1) or desktop-mode id (zel-id or 2)",
         QUILLON_SET_INTERFACE, "pxm_set_device_extended_param_string", ArgShape::kMacIndParam,
         ReplyShape::kCode, ParamVerdict},
        {"feedback", std::string("--status N ") + kRecordUsage,
         "answer a prompt as the prompt application does", QUILLON_UX_INTERFACE, "pxm_feedback_ux",
         ArgShape::kRecord, ReplyShape::kEmpty, nullptr},
    };
    return commands;
}

const Command* FindMethodCommand(const std::string& name) {
    for (const Command& command : MethodCommands()) {
        if (command.name == name) {
            return &command;
        }
    }
    return nullptr;
}

int RunMethodCommand(const Command& command, const Options& options) {
    std::string error;
    int seconds = kDefaultTimeoutSeconds;
    if (!PositiveOption(options, "timeout", "1 second", &seconds, &error)) {
        std::fprintf(stderr, "quillonctl: %s\n", error.c_str());
        return kExitUsage;
    }
    if (command.args != ArgShape::kRecord) {
        for (const auto& [name, value] : options.values) {
            if (name != "timeout") {
                std::fprintf(stderr, "quillonctl: %s does not take --%s\n", command.name.c_str(),
                             name.c_str());
                return kExitUsage;
            }
        }
    } else if (options.Value("count")) {
        std::fprintf(stderr, "quillonctl: %s does not take --count\n", command.name.c_str());
        return kExitUsage;
    }
    GVariant* parameters = Parameters(command, options, &error);
    if (!error.empty()) {
        std::fprintf(stderr, "quillonctl: %s\n", error.c_str());
        return kExitUsage;
    }
    if (parameters != nullptr) {
        g_variant_ref_sink(parameters);
    }

    GDBusConnection* bus = ConnectSystemBus(&error);
    if (bus == nullptr) {
        if (parameters != nullptr) {
            g_variant_unref(parameters);
        }
        std::fprintf(stderr, "quillonctl: %s\n", error.c_str());
        return kExitUnreachable;
    }
    int failure_status = kExitUnreachable;
    GVariant* reply = CallDaemon(bus, command.interface, command.method, parameters,
                                 ReplyType(command.reply), seconds * 1000, &error, &failure_status);
    if (parameters != nullptr) {
        g_variant_unref(parameters);
    }
    g_object_unref(bus);
    if (reply == nullptr) {
        std::fprintf(stderr, "quillonctl: %s\n", error.c_str());
        return failure_status;
    }

    int status = kExitOk;
    switch (command.reply) {
        case ReplyShape::kCode:
            status = PrintCode(command, reply, options.json);
            break;
        case ReplyShape::kDevice:
        case ReplyShape::kList:
            status = PrintDevices(command, reply, options.json);
            break;
        case ReplyShape::kEmpty:
            if (options.json) {
                Json::Value out(Json::objectValue);
                out["method"] = command.method;
                out["answered"] = true;
                PrintJsonLine(out);
            } else {
                PrintLine("answered");
            }
            break;
    }
    g_variant_unref(reply);
    return status;
}

}  // namespace quillonctl
