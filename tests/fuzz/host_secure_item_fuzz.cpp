// Arbitrary bytes as a stored secure item: the header is parsed before anything is
// authenticated, so it meets whatever a damaged disk holds. The seed is a real item sealed
// under another key, so every input is someone else's or damaged: none may open, and the
// header check must agree with the full open about whose item it is.
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "secure_storage/secure_storage_format.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const uint8_t key[host::secure::kKeyBytes] = {9, 9, 9};
    static ss_credential_s cred = [] {
        ss_credential_s c{};
        static const unsigned int words[5] = {1, 2, 3, 4, 5};
        ss_init_credential(&c, words, 1, 0);
        return c;
    }();
    using host::secure::OpenResult;
    const std::vector<uint8_t> sealed(data, data + size);
    std::vector<uint8_t> plain;
    OpenResult opened = host::secure::OpenItem(key, cred, "PXM_DEVICE_LIST", sealed, &plain);
    if (opened == OpenResult::kOk || !plain.empty())
        abort();  // a forgery: nothing but our own seal may open
    OpenResult owner = host::secure::CheckOwner(key, cred, data, size);
    if (owner == OpenResult::kOk && opened == OpenResult::kOtherCredential)
        abort();
    return 0;
}
