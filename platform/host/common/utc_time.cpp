#include "common/utc_time.h"

namespace host {

std::string UtcTimeText(time_t when) {
    struct tm utc;
    char text[32] = "?";
    if (gmtime_r(&when, &utc) != nullptr)
        std::strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%SZ", &utc);
    return text;
}

}  // namespace host
