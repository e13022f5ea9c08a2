// What quillonctl prints: devices, result codes and signals, as text for people or as one
// JSON object per line (--json) for scripts.
#pragma once

#include <gio/gio.h>
#include <json/json.h>

#include <string>

namespace quillonctl {

// One element of the daemon's device lists, "(ssssiiiiiiss)", under the record's field names.
Json::Value DeviceJson(GVariant* element);

// The device on one line: "NAME  bt=... wifi=... p2p=... status=0 (allowed) ...".
std::string DeviceText(const Json::Value& device);

// Words for a stored verdict (0 allowed, 1 denied, 2 undecided, -1 not found).
std::string VerdictMeaning(int status);

// Words for the status code of pxm_signal_status_changed (0 to 4).
std::string SignalStatusMeaning(int status);

// The object on one line, then a line feed, flushed (monitor output feeds pipes).
void PrintJsonLine(const Json::Value& value);

// The text, then a line feed, flushed.
void PrintLine(const std::string& text);

}  // namespace quillonctl
