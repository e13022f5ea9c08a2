#include "secure_storage/secure_storage_key.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <vector>

#include "common/missing_service.h"
#include "common/platform_root.h"
#include "dlog.h"
#include "secure_storage/secure_storage_files.h"

namespace host {
namespace secure {

namespace {

// 0 when read, ENOENT when absent, another errno value otherwise.
int ReadKeyFile(const std::string& path, uint8_t key[kKeyBytes]) {
    int fd = open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0)
        return errno;
    std::vector<uint8_t> bytes;
    int rc = ReadAll(fd, kKeyBytes, &bytes);
    close(fd);
    if (rc == 0 && bytes.size() != kKeyBytes)
        rc = EBADMSG;
    if (rc == 0)
        std::memcpy(key, bytes.data(), kKeyBytes);
    sodium_memzero(bytes.data(), bytes.size());
    return rc;
}

// The full key is written and synced under a private name, then linked in: link() refuses an
// existing name, so a racing creator loses cleanly and every reader sees a complete key.
int CreateKeyFile(const std::string& root, const std::string& path) {
    std::string tmp = root + "/.secure.key-XXXXXX";
    std::vector<char> tmp_path(tmp.begin(), tmp.end());
    tmp_path.push_back('\0');
    int fd = mkostemp(tmp_path.data(), O_CLOEXEC);  // O_EXCL, mode 0600
    if (fd < 0)
        return errno;
    uint8_t key[kKeyBytes];
    randombytes_buf(key, sizeof(key));
    int rc = WriteAll(fd, key, sizeof(key));
    sodium_memzero(key, sizeof(key));
    if (rc == 0 && fchmod(fd, 0600) != 0)
        rc = errno;
    if (rc == 0 && fsync(fd) != 0)
        rc = errno;
    if (close(fd) != 0 && rc == 0)
        rc = errno;
    if (rc == 0 && link(tmp_path.data(), path.c_str()) != 0 && errno != EEXIST)
        rc = errno;
    unlink(tmp_path.data());
    if (rc == 0)
        FsyncDir(root);
    return rc;
}

}  // namespace

std::string KeyPath() {
    return PlatformRoot() + "/secure.key";
}

int LoadKey(bool create, uint8_t key[kKeyBytes]) {
    if (sodium_init() < 0) {
        __dlog_print(LOG_ID_SYSTEM, DLOG_ERROR, host::kHostLogTag,
                     "secure storage: libsodium could not initialise");
        return SS_ERROR_IO;
    }
    const std::string path = KeyPath();
    int rc = ReadKeyFile(path, key);
    if (rc == ENOENT && create) {
        // Makes the root and the items' directory, both 0700.
        rc = PlatformDir("secure").empty() ? errno : CreateKeyFile(PlatformRoot(), path);
        if (rc == 0)
            rc = ReadKeyFile(path, key);
    }
    if (rc == 0)
        return SS_ERROR_NONE;
    if (rc == ENOENT)
        return SS_ERROR_NO_SUCH_ITEM;
    // Never replaced: a new key would make every stored item unreadable.
    __dlog_print(LOG_ID_SYSTEM, DLOG_ERROR, host::kHostLogTag,
                 "secure storage: key file %s unusable: %s", path.c_str(),
                 rc == EBADMSG ? "wrong size" : strerror(rc));
    return SS_ERROR_IO;
}

}  // namespace secure
}  // namespace host
