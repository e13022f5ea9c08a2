// The address rules shared by the registry's operations: which of a request's addresses can
// match a stored record, and copying only the usable addresses of a record.
#pragma once

#include <vector>

#include "CPXMCore.h"

namespace pxm_addr {

// A record shares an address with the request when one of the request's valid addresses
// equals the record's address of the same kind, without regard to case; invalid ones never
// match.
struct RequestAddresses {
    const pxm_core_device_s* dev;
    bool bt;  // whether each address of the request is valid
    bool wifi;
    bool p2p;

    bool BtMatches(const pxm_core_device_s& rec) const;
    bool WifiMatches(const pxm_core_device_s& rec) const;
    bool P2pMatches(const pxm_core_device_s& rec) const;
    bool Matches(const pxm_core_device_s& rec) const {
        return BtMatches(rec) || WifiMatches(rec) || P2pMatches(rec);
    }
};

RequestAddresses ValidAddresses(CPXMCore& core, const pxm_core_device_s* dev);

// Whether `field` holds `mac`, a valid address, without regard to case.
bool SameAddress(const char* mac, const char (&field)[PXM_MAC_LEN]);

// The first record of `list` for which UTIL_CompareMAC(record, mac, ind) holds, or null. A
// valid query is checked once, not once per record.
pxm_core_device_s* FirstWithAddress(CPXMCore& core, std::vector<pxm_core_device_s>& list,
                                    const char* mac, pxm_tech_ind_e ind);

// Copies the record's valid addresses into out; out's other addresses stay as they are.
void CopyValidAddresses(CPXMCore& core, const pxm_core_device_s& rec, pxm_core_device_s* out);

}  // namespace pxm_addr
