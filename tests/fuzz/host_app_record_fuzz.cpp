// Arbitrary bytes as a running-app record, which a restarted daemon reads from a folder
// other processes write. Beyond crashes: a record that parses writes back to one that parses
// to the same app.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "apps/app_records.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string content(reinterpret_cast<const char*>(data), size);
    host::apps::RunningApp app;
    if (!host::apps::ParseRecord(content, 4242, &app))
        return 0;
    host::apps::RunningApp again;
    if (!host::apps::ParseRecord(host::apps::FormatRecord(app), 4242, &again))
        abort();
    if (again.pid != app.pid || again.appid != app.appid || again.pkg_name != app.pkg_name ||
        again.executable != app.executable || again.start_time != app.start_time ||
        again.launcher != app.launcher)
        abort();
    return 0;
}
