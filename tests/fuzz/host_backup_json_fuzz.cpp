// Arbitrary bytes as a backup payload. The check that bnr_backup makes on the caller's thread
// must never let through what JsonCpp refuses when it reads strictly (no comments, trailing
// commas, single quotes, special floats or text after the value; any value at the top).
#include <json/json.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

#include "backup/json_check.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const char* text = reinterpret_cast<const char*>(data);
    if (!host::backup::IsJson(text, size, nullptr))
        return 0;
    Json::CharReaderBuilder builder;
    builder["allowComments"] = false;
    builder["allowTrailingCommas"] = false;
    builder["failIfExtra"] = true;
    builder["allowSpecialFloats"] = false;
    builder["allowSingleQuotes"] = false;
    std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value root;
    try {
        if (!reader->parse(text, text + size, &root, nullptr))
            abort();
    } catch (const std::exception&) {
        abort();
    }
    return 0;
}
