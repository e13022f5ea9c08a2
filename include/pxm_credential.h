// The application credential under which the device list is kept in secure storage.
// The daemon and quillon-platform (which lets people inspect and seed the item) share it.
#pragma once

#define PXM_SS_CREDENTIAL_TYPE 1
#define PXM_SS_CREDENTIAL_FLAGS 0

static const unsigned int kPxmAppCredential[5] = {0x51a7c3e1u, 0x0b9d4f26u, 0x7e2c8a13u,
                                                  0xc4f06d95u, 0x2d81b7eau};
