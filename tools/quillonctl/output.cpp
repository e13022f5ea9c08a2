#include "output.h"

#include <cstdio>
#include <memory>

namespace quillonctl {

namespace {

// Texts with blanks are quoted so that a line still splits into its fields.
std::string Quoted(const std::string& text) {
    if (!text.empty() && text.find_first_of(" \t\"") == std::string::npos) {
        return text;
    }
    std::string out = "\"";
    for (char c : text) {
        if (c == '"' || c == '\\') {
            out += '\\';
        }
        out += c;
    }
    return out + "\"";
}

}  // namespace

Json::Value DeviceJson(GVariant* element) {
    const gchar *name, *bt, *wifi, *p2p, *zel, *mirroring;
    gint32 devtype, devicon, devstatus, tv_init, no_ux, ux_always;
    g_variant_get(element, "(&s&s&s&siiiiii&s&s)", &name, &bt, &wifi, &p2p, &devtype, &devicon,
                  &devstatus, &tv_init, &no_ux, &ux_always, &zel, &mirroring);
    Json::Value device(Json::objectValue);
    device["devname"] = name;
    device["bt_mac"] = bt;
    device["wifi_mac"] = wifi;
    device["p2p_mac"] = p2p;
    device["devtype"] = devtype;
    device["devicon"] = devicon;
    device["devstatus"] = devstatus;
    device["tvInitMirroringSupport"] = tv_init;
    device["isNoUX"] = no_ux;
    device["isUXAlways"] = ux_always;
    device["zel_id"] = zel;
    device["mirroring_Id"] = mirroring;
    return device;
}

std::string DeviceText(const Json::Value& device) {
    int status = device["devstatus"].asInt();
    return Quoted(device["devname"].asString()) + "  bt=" + Quoted(device["bt_mac"].asString()) +
           " wifi=" + Quoted(device["wifi_mac"].asString()) +
           " p2p=" + Quoted(device["p2p_mac"].asString()) + " status=" + std::to_string(status) +
           " (" + VerdictMeaning(status) + ") type=" + std::to_string(device["devtype"].asInt()) +
           " icon=" + std::to_string(device["devicon"].asInt()) +
           " tv_init_mirroring=" + std::to_string(device["tvInitMirroringSupport"].asInt()) +
           " no_ux=" + std::to_string(device["isNoUX"].asInt()) +
           " ux_always=" + std::to_string(device["isUXAlways"].asInt()) +
           " zel_id=" + Quoted(device["zel_id"].asString()) +
           " mirroring_id=" + Quoted(device["mirroring_Id"].asString());
}

std::string VerdictMeaning(int status) {
    switch (status) {
        case 0:
            return "allowed";
        case 1:
            return "denied";
        case 2:
            return "undecided";
        case -1:
            return "not found";
        default:
            return "unknown";
    }
}

std::string SignalStatusMeaning(int status) {
    switch (status) {
        case 3:
            return "removed";
        case 4:
            return "all removed";
        default:
            return VerdictMeaning(status);
    }
}

void PrintJsonLine(const Json::Value& value) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    builder["emitUTF8"] = true;
    PrintLine(Json::writeString(builder, value));
}

void PrintLine(const std::string& text) {
    std::fputs(text.c_str(), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

}  // namespace quillonctl
