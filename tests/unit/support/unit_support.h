// Helpers the unit tests share: device records, bounded waits on the default main context,
// a probe for a lock left held, and checks on the fake platform's captured log and journal.
#pragma once

#include <gtest/gtest.h>
#include <json/json.h>

#include <string>
#include <vector>

#include "PXMUtil.h"
#include "pxm_types.h"

namespace unit {

// A record with only these fields set; keyType 0.
pxm_core_device_s Device(const char* name, const char* bt, const char* wifi = "",
                         const char* p2p = "", int status = 0);
// The records' names, separated by blanks.
std::string Names(const std::vector<pxm_core_device_s>& list);
// The words joined by the separator.
std::string Join(const std::vector<std::string>& words, const char* separator = " ");
// Every field of the record, "|"-separated, so that two records compare readably.
std::string Text(const pxm_core_device_s& d);
// Text of each record, one a line.
std::string Texts(const std::vector<pxm_core_device_s>& list);

// Another thread can take and release the lock: nobody left it held.
bool LockIsFree(PXMUtil::Mutex& lock);

// Each text in a captured log line after the line of the text before it.
::testing::AssertionResult LogsInOrder(const std::vector<std::string>& texts);
// The first argument of each journaled call of fn, in order.
std::vector<std::string> FirstArgs(const std::string& fn);

// The text parsed with the library's default reader; a failed parse fails the test and
// gives a value of type null that no expectation about an array or object can meet.
Json::Value ParseJson(const std::string& text);

}  // namespace unit
