// The on-disk form of one secure-storage item: a small clear header, then the sealed text.
#pragma once

#include <sodium.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "ss_manager.h"

namespace host {
namespace secure {

constexpr size_t kKeyBytes = crypto_aead_xchacha20poly1305_ietf_KEYBYTES;
constexpr size_t kMagicBytes = 4;
constexpr uint8_t kFormatVersion = 1;
constexpr size_t kOwnerTagBytes = 16;
constexpr size_t kNonceBytes = crypto_aead_xchacha20poly1305_ietf_NPUBBYTES;
// magic, version, three reserved zero bytes, owner tag, nonce.
constexpr size_t kHeaderBytes = kMagicBytes + 4 + kOwnerTagBytes + kNonceBytes;
constexpr size_t kMacBytes = crypto_aead_xchacha20poly1305_ietf_ABYTES;
constexpr size_t kMaxPlainBytes = 16u * 1024u * 1024u;
constexpr size_t kMaxItemBytes = kHeaderBytes + kMaxPlainBytes + kMacBytes;

// What an item's bytes turned out to be when opened with one credential.
enum class OpenResult {
    kOk,
    // Structurally broken, or the owner matched and authentication still failed: damage.
    kDamaged,
    // Sealed for another credential (or its tag byte got hit): not ours, not proof of damage.
    kOtherCredential,
    // A header version this build does not know: left alone for the build that wrote it.
    kUnknownVersion,
};

// Derives the owner tag of a credential: a keyed hash, so the file reveals no credential.
void OwnerTag(const uint8_t key[kKeyBytes], const ss_credential_s& cred,
              uint8_t tag[kOwnerTagBytes]);

// Seals plain text for (credential, item name) with a fresh random nonce.
std::vector<uint8_t> SealItem(const uint8_t key[kKeyBytes], const ss_credential_s& cred,
                              const std::string& item_name, const uint8_t* plain, size_t size);

// Opens sealed bytes; `plain` is filled only on kOk.
OpenResult OpenItem(const uint8_t key[kKeyBytes], const ss_credential_s& cred,
                    const std::string& item_name, const std::vector<uint8_t>& sealed,
                    std::vector<uint8_t>* plain);

// Only the header: whether the bytes are a well-formed item of this credential.
OpenResult CheckOwner(const uint8_t key[kKeyBytes], const ss_credential_s& cred,
                      const uint8_t* bytes, size_t size);

}  // namespace secure
}  // namespace host
