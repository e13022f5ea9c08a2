// Log lines of a method handler under the bus method's own name, also when the body is
// shared between a method and its "_reverse" twin.
#pragma once

#include "pxm_log.h"

#define HANDLER_LOG(method, level, fmt, ...) \
    PXM_LOG_AT("PXM_LOG", "pxmDBusServer", method, level, fmt, ##__VA_ARGS__)
#define HANDLER_LOGI(method, fmt, ...) HANDLER_LOG(method, DLOG_INFO, fmt, ##__VA_ARGS__)
#define HANDLER_LOGW(method, fmt, ...) HANDLER_LOG(method, DLOG_WARN, fmt, ##__VA_ARGS__)
#define HANDLER_LOGE(method, fmt, ...) HANDLER_LOG(method, DLOG_ERROR, fmt, ##__VA_ARGS__)
