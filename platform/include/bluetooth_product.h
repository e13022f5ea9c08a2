/* Bluetooth product layer and its headless (power-on) device table. */
#ifndef QUILLON_PLATFORM_BLUETOOTH_PRODUCT_H
#define QUILLON_PLATFORM_BLUETOOTH_PRODUCT_H

#ifdef __cplusplus
extern "C" {
#endif

#define BT_ERROR_NONE 0
#define BT_ERROR_OPERATION_FAILED -1
#define BT_ERROR_INVALID_PARAMETER -22
#define BT_ERROR_NOT_FOUND -2 /* the address is not in the table */

/* Open table; a null handle means none. */
typedef struct bt_headless_db_s* bt_headless_db_h;

/* Negative on failure. */
int bt_product_init(void);
int bt_product_deinit(void);

int bt_headless_open_db(bt_headless_db_h* handle);
int bt_bluetooth_delete_headless_mobile_in_DB(bt_headless_db_h handle, const char* address);
int bt_add_headless_device_with_permission_in_DB(bt_headless_db_h handle, const char* address,
                                                 const char* device_type, int permission);
int bt_bluetooth_delete_all_headless_mobile_in_DB(bt_headless_db_h handle);
int bt_mobileheadless_close_db(bt_headless_db_h* handle);
int bt_adapter_register_headless_device(const char* address);
int bt_adapter_unregister_headless_device(const char* address);

#ifdef __cplusplus
}
#endif
#endif
