// Secure-storage commands: read and write an item as plain text under the daemon's own
// credential, so people can inspect the stored device list and seed legacy data.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "command.h"
#include "common/platform_root.h"
#include "ss_manager.h"
#include "stored_list.h"

namespace quillon_platform {

namespace {

// Item names the storage takes: not empty, no '/', not hidden (so not "." or "..").
bool CheckItemName(const Command& command, const std::string& item, int* status) {
    if (!item.empty() && item[0] != '.' && item.find('/') == std::string::npos)
        return true;
    *status = BadInput(
        command, "invalid item name '" + item + "' (not empty, no '/', not starting with '.')");
    return false;
}

bool ReadStream(FILE* in, std::string* out) {
    char chunk[8192];
    size_t n;
    while ((n = std::fread(chunk, 1, sizeof(chunk), in)) > 0)
        out->append(chunk, n);
    return !std::ferror(in);
}

int RunSecureRead(const Command& self, const std::vector<std::string>& args) {
    int status = kExitOk;
    if (!ExpectArgs(self, args, 1, &status) || !CheckItemName(self, args[0], &status))
        return status;
    ss_credential_s cred = DaemonCredential();
    char* buffer = nullptr;
    size_t size = 0;
    int rc = ss_read(&buffer, &size, -1, 0, args[0].c_str(), &cred, 1);
    switch (rc) {
        case SS_ERROR_NONE:
            break;
        case SS_ERROR_NO_SUCH_ITEM:
            std::fprintf(stderr, "quillon-platform: no item '%s'\n", args[0].c_str());
            return kExitFailed;
        case SS_ERROR_AUTH:
            std::fprintf(stderr,
                         "quillon-platform: item '%s' could not be authenticated: it is damaged "
                         "(then kept aside as %s/secure/%s.corrupt-<time>) or not the daemon's\n",
                         args[0].c_str(), host::PlatformRoot().c_str(), args[0].c_str());
            return kExitFailed;
        case SS_ERROR_INVALID_PARAMETER:
            return BadInput(self, "item name '" + args[0] + "' refused by secure storage");
        default:
            std::fprintf(stderr, "quillon-platform: reading item '%s' failed (%d)\n",
                         args[0].c_str(), rc);
            return kExitFailed;
    }
    bool written = std::fwrite(buffer, 1, size, stdout) == size && std::fflush(stdout) == 0;
    ss_free_buffer(buffer);
    if (!written) {
        std::fprintf(stderr, "quillon-platform: writing to stdout failed\n");
        return kExitFailed;
    }
    return kExitOk;
}

int RunSecureWrite(const Command& self, const std::vector<std::string>& args) {
    int status = kExitOk;
    if (args.empty() || args.size() > 2) {
        return BadInput(self, args.empty() ? "missing arguments to secure-write"
                                           : "too many arguments to secure-write");
    }
    if (!CheckItemName(self, args[0], &status))
        return status;
    std::string text;
    if (args.size() == 2 && args[1] != "-") {
        FILE* in = std::fopen(args[1].c_str(), "rb");
        if (!in) {
            return BadInput(self, "cannot open '" + args[1] + "': " + std::strerror(errno));
        }
        bool ok = ReadStream(in, &text);
        std::fclose(in);
        if (!ok)
            return BadInput(self, "cannot read '" + args[1] + "'");
    } else if (!ReadStream(stdin, &text)) {
        std::fprintf(stderr, "quillon-platform: reading stdin failed\n");
        return kExitFailed;
    }
    ss_credential_s cred = DaemonCredential();
    int rc = ss_write(text.data(), text.size(), -1, 0, args[0].c_str(), &cred, 1);
    if (rc == SS_ERROR_INVALID_PARAMETER)
        return BadInput(self, "item '" + args[0] + "' or its size refused by secure storage");
    if (rc != SS_ERROR_NONE) {
        std::fprintf(stderr, "quillon-platform: writing item '%s' failed (%d)\n", args[0].c_str(),
                     rc);
        return kExitFailed;
    }
    return kExitOk;
}

const CommandRegistrar kRegistrar({
    {"secure-read", "secure-read ITEM", "print a secure-storage item (daemon's credential)",
     RunSecureRead},
    {"secure-write", "secure-write ITEM [FILE]",
     "store FILE (or stdin) as a secure-storage item (daemon's credential)", RunSecureWrite},
});

}  // namespace

}  // namespace quillon_platform
