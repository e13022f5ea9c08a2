#include "secure_storage/secure_storage_format.h"

#include <cstring>

namespace host {
namespace secure {

namespace {

const uint8_t kMagic[kMagicBytes] = {'Q', 'S', 'S', 'I'};
// Eight characters, as libsodium's key derivation wants.
const char kKdfContext[crypto_kdf_CONTEXTBYTES + 1] = "QSSTORE1";
constexpr uint64_t kOwnerSubkeyId = 1;
constexpr uint64_t kSealSubkeyId = 2;
constexpr size_t kCredentialBytes = 4 * (SS_APP_CREDENTIAL_WORDS + 2);
constexpr size_t kTagOffset = kMagicBytes + 4;
constexpr size_t kNonceOffset = kTagOffset + kOwnerTagBytes;

void PutU32(uint8_t* out, uint32_t v) {
    for (int i = 0; i < 4; ++i)
        out[i] = static_cast<uint8_t>(v >> (8 * i));
}

// Little-endian words, so the binding does not depend on the machine.
void CredentialBytes(const ss_credential_s& cred, uint8_t out[kCredentialBytes]) {
    for (int i = 0; i < SS_APP_CREDENTIAL_WORDS; ++i)
        PutU32(out + 4 * i, cred.app_credential[i]);
    PutU32(out + 4 * SS_APP_CREDENTIAL_WORDS, static_cast<uint32_t>(cred.type));
    PutU32(out + 4 * (SS_APP_CREDENTIAL_WORDS + 1), static_cast<uint32_t>(cred.flags));
}

void Subkey(const uint8_t key[kKeyBytes], uint64_t id, uint8_t out[kKeyBytes]) {
    crypto_kdf_derive_from_key(out, kKeyBytes, id, kKdfContext, key);
}

// Header fields before the nonce, the credential and the name: all of it is authenticated.
std::vector<uint8_t> AssociatedData(const uint8_t* header, const ss_credential_s& cred,
                                    const std::string& item_name) {
    // Sized once and filled with memcpy: GCC's array-bounds check misreads the inserts.
    std::vector<uint8_t> ad(kNonceOffset + kCredentialBytes + item_name.size());
    memcpy(ad.data(), header, kNonceOffset);
    CredentialBytes(cred, ad.data() + kNonceOffset);
    memcpy(ad.data() + kNonceOffset + kCredentialBytes, item_name.data(), item_name.size());
    return ad;
}

}  // namespace

void OwnerTag(const uint8_t key[kKeyBytes], const ss_credential_s& cred,
              uint8_t tag[kOwnerTagBytes]) {
    uint8_t subkey[kKeyBytes];
    Subkey(key, kOwnerSubkeyId, subkey);
    uint8_t cred_bytes[kCredentialBytes];
    CredentialBytes(cred, cred_bytes);
    crypto_generichash(tag, kOwnerTagBytes, cred_bytes, kCredentialBytes, subkey, kKeyBytes);
    sodium_memzero(subkey, sizeof(subkey));
}

std::vector<uint8_t> SealItem(const uint8_t key[kKeyBytes], const ss_credential_s& cred,
                              const std::string& item_name, const uint8_t* plain, size_t size) {
    std::vector<uint8_t> out(kHeaderBytes + size + kMacBytes);
    uint8_t* header = out.data();
    std::memcpy(header, kMagic, kMagicBytes);
    header[kMagicBytes] = kFormatVersion;
    OwnerTag(key, cred, header + kTagOffset);
    randombytes_buf(header + kNonceOffset, kNonceBytes);

    std::vector<uint8_t> ad = AssociatedData(header, cred, item_name);
    uint8_t subkey[kKeyBytes];
    Subkey(key, kSealSubkeyId, subkey);
    unsigned long long sealed_size = 0;
    crypto_aead_xchacha20poly1305_ietf_encrypt(out.data() + kHeaderBytes, &sealed_size, plain, size,
                                               ad.data(), ad.size(), nullptr, header + kNonceOffset,
                                               subkey);
    sodium_memzero(subkey, sizeof(subkey));
    out.resize(kHeaderBytes + sealed_size);
    return out;
}

OpenResult CheckOwner(const uint8_t key[kKeyBytes], const ss_credential_s& cred,
                      const uint8_t* bytes, size_t size) {
    if (size < kHeaderBytes + kMacBytes || size > kMaxItemBytes)
        return OpenResult::kDamaged;
    if (std::memcmp(bytes, kMagic, kMagicBytes) != 0)
        return OpenResult::kDamaged;
    if (bytes[kMagicBytes] != kFormatVersion)
        return OpenResult::kUnknownVersion;
    for (size_t i = kMagicBytes + 1; i < kTagOffset; ++i) {
        if (bytes[i] != 0)
            return OpenResult::kDamaged;
    }
    uint8_t tag[kOwnerTagBytes];
    OwnerTag(key, cred, tag);
    if (sodium_memcmp(tag, bytes + kTagOffset, kOwnerTagBytes) != 0) {
        return OpenResult::kOtherCredential;
    }
    return OpenResult::kOk;
}

OpenResult OpenItem(const uint8_t key[kKeyBytes], const ss_credential_s& cred,
                    const std::string& item_name, const std::vector<uint8_t>& sealed,
                    std::vector<uint8_t>* plain) {
    OpenResult owner = CheckOwner(key, cred, sealed.data(), sealed.size());
    if (owner != OpenResult::kOk)
        return owner;

    std::vector<uint8_t> ad = AssociatedData(sealed.data(), cred, item_name);
    uint8_t subkey[kKeyBytes];
    Subkey(key, kSealSubkeyId, subkey);
    size_t body = sealed.size() - kHeaderBytes;
    plain->assign(body - kMacBytes, 0);
    unsigned long long plain_size = 0;
    int rc = crypto_aead_xchacha20poly1305_ietf_decrypt(
        plain->data(), &plain_size, nullptr, sealed.data() + kHeaderBytes, body, ad.data(),
        ad.size(), sealed.data() + kNonceOffset, subkey);
    sodium_memzero(subkey, sizeof(subkey));
    if (rc != 0) {
        plain->clear();
        // The owner tag matched, so this credential wrote it: the bytes were changed.
        return OpenResult::kDamaged;
    }
    plain->resize(plain_size);
    return OpenResult::kOk;
}

}  // namespace secure
}  // namespace host
