// Bluetooth product layer. The headless table lives in SQLite on a host and needs no
// adapter, so there is nothing to bring up or down.
#include "bluetooth_product.h"

extern "C" int bt_product_init(void) {
    return BT_ERROR_NONE;
}

extern "C" int bt_product_deinit(void) {
    return BT_ERROR_NONE;
}
