#include "common/missing_service.h"

#include <mutex>
#include <set>
#include <string>

#include "dlog.h"

namespace host {

void WarnMissingService(const char* service, const char* function) {
    // Never destroyed: the daemon's exit-time destructors still call into missing services
    // after static objects of this file would be gone.
    static std::mutex* lock = new std::mutex;
    static std::set<std::string>* warned = new std::set<std::string>;
    {
        std::lock_guard<std::mutex> hold(*lock);
        if (!warned->insert(function).second)
            return;
    }
    __dlog_print(LOG_ID_SYSTEM, DLOG_WARN, kHostLogTag, "host platform: no %s yet (%s)", service,
                 function);
}

}  // namespace host
