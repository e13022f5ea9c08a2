// Log lines of the daemon: platform log id 2, a tag per component, and the prefix
// "source: function(line) > " that operators grep for.
#pragma once

#include "dlog.h"

#define PXM_LOG_ID LOG_ID_SYSTEM

#define PXM_LOG_AT(tag, source, func, level, fmt, ...) \
    __dlog_print(PXM_LOG_ID, level, tag, "%s: %s(%d) > " fmt, source, func, __LINE__, ##__VA_ARGS__)

// Registry and persistence.
#define CORE_LOG(level, fmt, ...) \
    PXM_LOG_AT("PXM_CORE", "pxmCore", __func__, level, fmt, ##__VA_ARGS__)
#define CORE_LOGI(fmt, ...) CORE_LOG(DLOG_INFO, fmt, ##__VA_ARGS__)
#define CORE_LOGW(fmt, ...) CORE_LOG(DLOG_WARN, fmt, ##__VA_ARGS__)
#define CORE_LOGE(fmt, ...) CORE_LOG(DLOG_ERROR, fmt, ##__VA_ARGS__)
// For lines that carry the name of a step rather than of the C++ function.
#define CORE_LOG_FN(func, level, fmt, ...) \
    PXM_LOG_AT("PXM_CORE", "pxmCore", func, level, fmt, ##__VA_ARGS__)

// Bus server.
#define SRV_LOG(level, fmt, ...) \
    PXM_LOG_AT("PXM_LOG", "pxmDBusServer", __func__, level, fmt, ##__VA_ARGS__)
#define SRV_LOGI(fmt, ...) SRV_LOG(DLOG_INFO, fmt, ##__VA_ARGS__)
#define SRV_LOGW(fmt, ...) SRV_LOG(DLOG_WARN, fmt, ##__VA_ARGS__)
#define SRV_LOGE(fmt, ...) SRV_LOG(DLOG_ERROR, fmt, ##__VA_ARGS__)
// The registry operations inlined in the server's handlers log as the registry does.
#define SRV_CORE_LOG(level, fmt, ...) \
    PXM_LOG_AT("PXM_CORE", "pxmDBusServer", __func__, level, fmt, ##__VA_ARGS__)

// Backup client.
#define BNR_LOG(level, fmt, ...) \
    PXM_LOG_AT("PXM_LOG", "pxmBackupRestore", __func__, level, fmt, ##__VA_ARGS__)
#define BNR_LOGI(fmt, ...) BNR_LOG(DLOG_INFO, fmt, ##__VA_ARGS__)
#define BNR_LOGW(fmt, ...) BNR_LOG(DLOG_WARN, fmt, ##__VA_ARGS__)
#define BNR_LOGE(fmt, ...) BNR_LOG(DLOG_ERROR, fmt, ##__VA_ARGS__)

// Process entry.
#define MAIN_LOG(level, fmt, ...) PXM_LOG_AT("PXM_LOG", "main", __func__, level, fmt, ##__VA_ARGS__)
#define MAIN_LOGI(fmt, ...) MAIN_LOG(DLOG_INFO, fmt, ##__VA_ARGS__)
#define MAIN_LOGW(fmt, ...) MAIN_LOG(DLOG_WARN, fmt, ##__VA_ARGS__)
#define MAIN_LOGE(fmt, ...) MAIN_LOG(DLOG_ERROR, fmt, ##__VA_ARGS__)
// Start-up and teardown lines of the process entry: operators and the platform's log tools
// match them by "main: main(", whichever C++ function writes them.
#define ENTRY_LOG(level, fmt, ...) PXM_LOG_AT("PXM_LOG", "main", "main", level, fmt, ##__VA_ARGS__)
#define ENTRY_LOGI(fmt, ...) ENTRY_LOG(DLOG_INFO, fmt, ##__VA_ARGS__)
#define ENTRY_LOGE(fmt, ...) ENTRY_LOG(DLOG_ERROR, fmt, ##__VA_ARGS__)
