// Secure storage on the host: one encrypted file per item under <root>/secure.
//
// A read that fails authentication is told apart by the item's owner tag (a keyed hash of the
// credential in the clear header): a tag of another credential means "not yours" and the item
// is left where it is; a broken header, or a matching tag whose sealed text does not
// authenticate, means damage, and the file is moved aside under a timestamped name.
#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <dirent.h>

#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "common/missing_service.h"
#include "common/platform_root.h"
#include "dlog.h"
#include "secure_storage/secure_storage_files.h"
#include "secure_storage/secure_storage_format.h"
#include "secure_storage/secure_storage_key.h"
#include "ss_manager.h"

#define SS_LOG(prio, ...) __dlog_print(LOG_ID_SYSTEM, prio, host::kHostLogTag, __VA_ARGS__)

namespace {

using host::secure::OpenResult;

// Serialises this process's callers; other processes are kept in step by the lock file and
// by rename, which swaps whole items.
std::mutex g_storage_mutex;

// Items this process failed to read, with why: the first write over one keeps the old file
// aside, so that a list nobody could read is never replaced for good. Under g_storage_mutex.
std::map<std::string, std::string> g_unreadable;

constexpr size_t kMaxNameBytes = 200;  // leaves room for the aside suffix within NAME_MAX

// Item names are file names in one flat directory: no separators, nothing hidden (temporary
// files start with '.'), nothing that looks like a kept-aside copy.
bool ValidItemName(const char* name) {
    if (!name || !*name || name[0] == '.')
        return false;
    size_t len = strlen(name);
    if (len > kMaxNameBytes || strchr(name, '/'))
        return false;
    return !host::secure::IsAsideName(name);
}

// Temporary files of writers that were killed (some hold older lists) go once per process,
// before its first read or write of an item.
void RemoveStaleTempsOnce(const std::string& dir) {
    static std::once_flag cleaned;
    std::call_once(cleaned, [&] { host::RemoveStaleTemps(dir); });
}

std::string ItemsDir() {
    std::string dir = host::PlatformDir("secure");
    // An older or hand-made directory may be looser than the items deserve.
    if (!dir.empty()) {
        chmod(dir.c_str(), 0700);
        RemoveStaleTempsOnce(dir);
    }
    return dir;
}

std::string LockPath() {
    return host::PlatformRoot() + "/secure.lock";
}

struct SecureKey {
    uint8_t bytes[host::secure::kKeyBytes];
    ~SecureKey() { sodium_memzero(bytes, sizeof(bytes)); }
};

// Moves a damaged item aside unless another process replaced it after we read it.
void KeepAside(const std::string& dir, const std::string& name, const struct stat& read_stat) {
    host::secure::ExclusiveFileLock lock(LockPath());
    struct stat now;
    const std::string path = dir + "/" + name;
    if (lstat(path.c_str(), &now) != 0 || now.st_ino != read_stat.st_ino ||
        now.st_dev != read_stat.st_dev) {
        SS_LOG(DLOG_WARN, "secure storage: item %s was replaced while being read; left in place",
               name.c_str());
        return;
    }
    std::string aside;
    int rc = host::secure::MoveAside(dir, name, host::secure::kCorrupt, &aside);
    if (rc != 0) {
        SS_LOG(DLOG_ERROR, "secure storage: item %s is damaged and could not be moved aside: %s",
               name.c_str(), strerror(rc));
        return;
    }
    SS_LOG(DLOG_ERROR, "secure storage: item %s is damaged; kept aside as %s", name.c_str(),
           aside.c_str());
}

// Reads a file of the items' directory, bounded. 0 or an errno value.
int ReadItemFile(const std::string& path, std::vector<uint8_t>* bytes, struct stat* st) {
    int fd = open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0)
        return errno;
    int rc = fstat(fd, st) == 0 ? 0 : errno;
    if (rc == 0 && !S_ISREG(st->st_mode))
        rc = EISDIR;
    if (rc == 0)
        rc = host::ReadAll(fd, host::secure::kMaxItemBytes, bytes);
    close(fd);
    return rc;
}

int RemoveOwnedItem(const std::string& dir, const std::string& name, const SecureKey& key,
                    ss_credential_s* cred, bool* removed) {
    std::vector<uint8_t> bytes;
    struct stat st;
    *removed = false;
    int rc = ReadItemFile(dir + "/" + name, &bytes, &st);
    if (rc == ENOENT)
        return SS_ERROR_NO_SUCH_ITEM;
    OpenResult owner = OpenResult::kDamaged;
    if (rc == 0)
        owner = host::secure::CheckOwner(key.bytes, *cred, bytes.data(), bytes.size());
    if (owner != OpenResult::kOk)
        return SS_ERROR_AUTH;
    if (unlink((dir + "/" + name).c_str()) != 0) {
        SS_LOG(DLOG_ERROR, "secure storage: removing item %s failed: %s", name.c_str(),
               strerror(errno));
        return SS_ERROR_IO;
    }
    *removed = true;
    return SS_ERROR_NONE;
}

// Live items of the folder (not temporary, not kept aside); false when it cannot be listed.
bool LiveItems(const std::string& dir, std::vector<std::string>* names) {
    DIR* d = opendir(dir.c_str());
    if (!d)
        return false;
    while (struct dirent* e = readdir(d)) {
        if (ValidItemName(e->d_name))
            names->push_back(e->d_name);
    }
    closedir(d);
    return true;
}

int ClearAllOwned(const std::string& dir, const SecureKey& key, ss_credential_s* cred) {
    std::vector<std::string> names;
    if (!LiveItems(dir, &names))
        return SS_ERROR_IO;
    int result = SS_ERROR_NONE;
    bool any = false;
    for (const std::string& name : names) {
        bool removed = false;
        int rc = RemoveOwnedItem(dir, name, key, cred, &removed);
        any = any || removed;
        if (rc == SS_ERROR_IO)
            result = SS_ERROR_IO;  // other owners' items just stay
    }
    if (any)
        host::FsyncDir(dir);
    return result;
}

// Keeps dir/name aside as unreadable before it is written over. False (logged) when it is
// still there and could not be moved: the caller must not write.
bool KeepUnreadableAside(const std::string& dir, const std::string& name, const std::string& why) {
    std::string aside;
    int rc = host::secure::MoveAside(dir, name, host::secure::kUnreadable, &aside);
    if (rc == ENOENT)
        return true;
    if (rc != 0) {
        SS_LOG(DLOG_ERROR,
               "secure storage: item %s could not be read (%s) and cannot be moved aside (%s); "
               "not writing over it",
               name.c_str(), why.c_str(), strerror(rc));
        return false;
    }
    SS_LOG(DLOG_ERROR, "secure storage: item %s could not be read (%s); kept aside as %s",
           name.c_str(), why.c_str(), aside.c_str());
    return true;
}

// Holds an exclusive lock on the items' folder, across processes, for its lifetime.
class FolderLock {
public:
    explicit FolderLock(const std::string& dir)
        : fd_(open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
        while (fd_ >= 0 && flock(fd_, LOCK_EX) != 0 && errno == EINTR) {
        }
    }
    ~FolderLock() {
        if (fd_ >= 0)
            close(fd_);
    }
    FolderLock(const FolderLock&) = delete;
    FolderLock& operator=(const FolderLock&) = delete;

private:
    int fd_;
};

// The key, made when missing. Items sealed under a lost key can never be read again with a
// new one, so they are kept aside first, each named in the log. Deciding that the key is lost
// and making the new one happen under the folder's lock, with the key read again there:
// another process may have made the key, and written an item under it, since the first read.
int LoadOrMakeKey(const std::string& dir, SecureKey* key) {
    int rc = host::secure::LoadKey(false, key->bytes);
    if (rc != SS_ERROR_NO_SUCH_ITEM)
        return rc;
    FolderLock lock(dir);
    rc = host::secure::LoadKey(false, key->bytes);
    if (rc != SS_ERROR_NO_SUCH_ITEM)
        return rc;
    std::vector<std::string> orphans;
    LiveItems(dir, &orphans);
    if (!orphans.empty()) {
        SS_LOG(DLOG_ERROR,
               "secure storage: the key file %s is missing while %zu item(s) exist; they are "
               "kept aside and a new key is made",
               host::secure::KeyPath().c_str(), orphans.size());
    }
    for (const std::string& name : orphans) {
        if (!KeepUnreadableAside(dir, name, "its key file is missing"))
            return SS_ERROR_IO;
        g_unreadable.erase(name);
    }
    return host::secure::LoadKey(true, key->bytes);
}

}  // namespace

extern "C" {

int ss_init_credential(ss_credential_s* cred, const unsigned int app_credential[5], int type,
                       int flags) {
    if (!cred || !app_credential)
        return SS_ERROR_INVALID_PARAMETER;
    memset(cred, 0, sizeof(*cred));
    memcpy(cred->app_credential, app_credential, sizeof(cred->app_credential));
    cred->type = type;
    cred->flags = flags;
    return SS_ERROR_NONE;
}

// The host always encrypts and always replaces the whole item: offsets other than the
// "whole item" values (-1, 0) are refused rather than half supported.
int ss_write(const char* data, size_t size, int offset, int /*flags*/, const char* item_name,
             ss_credential_s* cred, int /*encrypt*/) {
    if (!cred || !ValidItemName(item_name) || (!data && size > 0) || offset > 0 ||
        size > host::secure::kMaxPlainBytes) {
        return SS_ERROR_INVALID_PARAMETER;
    }
    std::lock_guard<std::mutex> guard(g_storage_mutex);
    const std::string dir = ItemsDir();
    if (dir.empty()) {
        SS_LOG(DLOG_ERROR, "secure storage: no items directory under %s",
               host::PlatformRoot().c_str());
        return SS_ERROR_IO;
    }
    SecureKey key;
    if (LoadOrMakeKey(dir, &key) != SS_ERROR_NONE)
        return SS_ERROR_IO;

    std::vector<uint8_t> sealed = host::secure::SealItem(
        key.bytes, *cred, item_name, reinterpret_cast<const uint8_t*>(data), size);
    host::secure::ExclusiveFileLock lock(LockPath());
    auto unreadable = g_unreadable.find(item_name);
    if (unreadable != g_unreadable.end()) {
        if (!KeepUnreadableAside(dir, item_name, unreadable->second))
            return SS_ERROR_IO;
        g_unreadable.erase(unreadable);
    }
    int err = host::secure::ReplaceDurably(dir, item_name, sealed);
    if (err != 0) {
        SS_LOG(DLOG_ERROR, "secure storage: writing item %s failed: %s", item_name, strerror(err));
        return SS_ERROR_IO;
    }
    return SS_ERROR_NONE;
}

int ss_read(char** buffer, size_t* size, int offset, int /*flags*/, const char* item_name,
            ss_credential_s* cred, int /*decrypt*/) {
    if (!buffer || !size || !cred || !ValidItemName(item_name) || offset > 0) {
        return SS_ERROR_INVALID_PARAMETER;
    }
    *buffer = nullptr;
    std::lock_guard<std::mutex> guard(g_storage_mutex);
    const std::string dir = host::PlatformRoot() + "/secure";
    RemoveStaleTempsOnce(dir);
    std::vector<uint8_t> sealed;
    struct stat st;
    int err = ReadItemFile(dir + "/" + item_name, &sealed, &st);
    if (err == ENOENT) {
        g_unreadable.erase(item_name);
        return SS_ERROR_NO_SUCH_ITEM;
    }
    if (err != 0 && err != EFBIG) {
        SS_LOG(DLOG_ERROR, "secure storage: reading item %s failed: %s", item_name, strerror(err));
        g_unreadable[item_name] = std::string("reading it failed: ") + strerror(err);
        return SS_ERROR_IO;
    }

    SecureKey key;
    int rc = host::secure::LoadKey(false, key.bytes);
    if (rc == SS_ERROR_NO_SUCH_ITEM) {
        // Without the key nothing can be authenticated; the item may still be fine.
        SS_LOG(DLOG_ERROR, "secure storage: item %s exists but the key file %s is missing",
               item_name, host::secure::KeyPath().c_str());
        g_unreadable[item_name] = "its key file is missing";
        return SS_ERROR_AUTH;
    }
    if (rc != SS_ERROR_NONE) {
        g_unreadable[item_name] = "its key file is unusable";
        return rc;
    }

    std::vector<uint8_t> plain;
    OpenResult result = err == EFBIG
                            ? OpenResult::kDamaged
                            : host::secure::OpenItem(key.bytes, *cred, item_name, sealed, &plain);
    switch (result) {
        case OpenResult::kOk:
            break;
        case OpenResult::kOtherCredential:
            SS_LOG(DLOG_WARN, "secure storage: item %s belongs to another credential", item_name);
            g_unreadable[item_name] = "it belongs to another credential";
            return SS_ERROR_AUTH;
        case OpenResult::kUnknownVersion:
            SS_LOG(DLOG_WARN, "secure storage: item %s has a format this build does not know",
                   item_name);
            g_unreadable[item_name] = "its format is unknown to this build";
            return SS_ERROR_AUTH;
        case OpenResult::kDamaged:
            // Should moving it aside fail, the next write still must not replace it.
            g_unreadable[item_name] = "it is damaged";
            KeepAside(dir, item_name, st);
            return SS_ERROR_AUTH;
    }
    g_unreadable.erase(item_name);

    char* copy = static_cast<char*>(malloc(plain.size() + 1));
    if (!copy) {
        sodium_memzero(plain.data(), plain.size());
        return SS_ERROR_OUT_OF_MEMORY;
    }
    if (!plain.empty())
        memcpy(copy, plain.data(), plain.size());
    copy[plain.size()] = '\0';
    *size = plain.size();
    *buffer = copy;
    sodium_memzero(plain.data(), plain.size());
    return SS_ERROR_NONE;
}

void ss_free_buffer(char* buffer) {
    free(buffer);
}

// Only the credential's own items go: a named item of another credential is refused
// (SS_ERROR_AUTH), and with no name other credentials' and damaged items stay.
int ss_clear_storage(const char* item_name, ss_credential_s* cred, int /*flags*/) {
    if (!cred || (item_name && !ValidItemName(item_name)))
        return SS_ERROR_INVALID_PARAMETER;
    std::lock_guard<std::mutex> guard(g_storage_mutex);
    const std::string dir = host::PlatformRoot() + "/secure";
    struct stat st;
    if (stat(dir.c_str(), &st) != 0) {
        return item_name ? SS_ERROR_NO_SUCH_ITEM : SS_ERROR_NONE;
    }
    SecureKey key;
    int rc = host::secure::LoadKey(false, key.bytes);
    if (rc == SS_ERROR_NO_SUCH_ITEM) {
        // No key, so nothing here can be this credential's.
        if (!item_name)
            return SS_ERROR_NONE;
        return access((dir + "/" + item_name).c_str(), F_OK) == 0 ? SS_ERROR_AUTH
                                                                  : SS_ERROR_NO_SUCH_ITEM;
    }
    if (rc != SS_ERROR_NONE)
        return rc;

    host::secure::ExclusiveFileLock lock(LockPath());
    if (!item_name)
        return ClearAllOwned(dir, key, cred);
    bool removed = false;
    rc = RemoveOwnedItem(dir, item_name, key, cred, &removed);
    if (removed)
        host::FsyncDir(dir);
    return rc;
}
}
