// Arbitrary bytes as a settings value file, as an operator's edit or a torn disk could leave
// one. Beyond crashes: a bool never reads as anything but 0 or 1, and what parses as a
// number was written with nothing but digits around it.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "settings/settings_store.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string content(reinterpret_cast<const char*>(data), size);
    host::settings::Value value;
    if (!host::settings::ParseValueFile(content, &value))
        return 0;
    if (value.type == host::settings::Type::kBool && value.number != 0 && value.number != 1)
        abort();
    // A number file is its type line, the digits (with a sign) and one optional line feed.
    if (value.type != host::settings::Type::kString) {
        std::string rest = content.substr(content.find('\n') + 1);
        if (!rest.empty() && rest.back() == '\n')
            rest.pop_back();
        if (rest.find_first_not_of("+-0123456789") != std::string::npos)
            abort();
    }
    return 0;
}
