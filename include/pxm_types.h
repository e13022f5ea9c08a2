// The device record and the small enumerations that travel with it.
#pragma once

#include <cstdint>

#define PXM_DEVNAME_LEN 128
#define PXM_MAC_LEN 18
#define PXM_ID_LEN 32

// Fixed-size and copyable by assignment: lists hold records by value and callers receive
// calloc'd arrays of them.
struct pxm_core_device_s {
    char devname[PXM_DEVNAME_LEN];
    char bt_mac[PXM_MAC_LEN];
    char wifi_mac[PXM_MAC_LEN];
    char p2p_mac[PXM_MAC_LEN];
    int32_t devtype;
    int32_t devicon;
    int32_t devstatus;  // pxm_dev_status_e
    int32_t tvInitMirroringSupport;
    int32_t isNoUX;
    int32_t isUXAlways;
    uint64_t accessTime;  // ms since the epoch, from UTIL_GetTime
    int32_t updated;      // allowed stores since the last load or standby
    int32_t keyType;      // 0 Bluetooth, 1 Wi-Fi, 2 P2P, -1 none
    char zel_id[PXM_ID_LEN];
    char mirroring_Id[PXM_ID_LEN];
    int32_t dy_type;
};

enum pxm_dev_status_e {
    PXM_DEV_NOT_FOUND = -1,  // reported by lookups, never stored
    PXM_DEV_ALLOWED = 0,
    PXM_DEV_DENIED = 1,
    PXM_DEV_UNDECIDED = 2,
};

// Which address a lookup by address compares.
enum pxm_tech_ind_e {
    PXM_TECH_BT = 1,
    PXM_TECH_WIFI = 2,
    PXM_TECH_P2P = 3,
};

// keyType numbers the same addresses from 0.
enum pxm_key_type_e {
    PXM_KEY_NONE = -1,
    PXM_KEY_BT = 0,
    PXM_KEY_WIFI = 1,
    PXM_KEY_P2P = 2,
};

// 0 the normal list; any other value the reverse list.
enum dev_save_type {
    PXM_SAVE_NORMAL = 0,
    PXM_SAVE_REVERSE = 1,
};

// Operation on the external wake-up tables.
enum pxm_ctrl_ext_e {
    PXM_CTRL_EXT_ALLOW = 1,
    PXM_CTRL_EXT_REMOVE = 2,
    PXM_CTRL_EXT_CLEAR = 3,
};

// What caused a backup.
enum OP_TYPE {
    OP_ADD_OR_CHANGE = 0,
    OP_REMOVE = 1,
};

// Status codes carried by "pxm_signal_status_changed".
enum pxm_signal_status_e {
    PXM_SIGNAL_ALLOWED = 0,
    PXM_SIGNAL_DENIED = 1,
    PXM_SIGNAL_UNDECIDED = 2,
    PXM_SIGNAL_REMOVED = 3,
    PXM_SIGNAL_REMOVED_ALL = 4,
};
