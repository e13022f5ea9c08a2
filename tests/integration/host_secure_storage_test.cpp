// Secure storage of the host platform, and quillon-platform's secure-read / secure-write, in a
// private platform root per test.
#include <dirent.h>
#include <fcntl.h>
#include <ftw.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "../../include/pxm_credential.h"
#include "secure_storage_files.h"
#include "ss_manager.h"

namespace {

const unsigned int kWordsA[5] = {1, 2, 3, 4, 5};
const unsigned int kWordsB[5] = {1, 2, 3, 4, 6};

ss_credential_s Cred(const unsigned int words[5], int type = 1, int flags = 0) {
    ss_credential_s cred;
    EXPECT_EQ(SS_ERROR_NONE, ss_init_credential(&cred, words, type, flags));
    return cred;
}

std::string Slurp(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void Spit(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

std::vector<std::string> Entries(const std::string& dir) {
    std::vector<std::string> names;
    if (DIR* d = opendir(dir.c_str())) {
        while (dirent* e = readdir(d)) {
            std::string n = e->d_name;
            if (n != "." && n != "..")
                names.push_back(n);
        }
        closedir(d);
    }
    return names;
}

int Write(const std::string& name, const std::string& text, ss_credential_s cred) {
    return ss_write(text.data(), text.size(), -1, 0, name.c_str(), &cred, 1);
}

// The item's text, or "<error N>".
std::string Read(const std::string& name, ss_credential_s cred) {
    char* buffer = nullptr;
    size_t size = 65535;
    int rc = ss_read(&buffer, &size, -1, 0, name.c_str(), &cred, 1);
    if (rc != SS_ERROR_NONE)
        return "<error " + std::to_string(rc) + ">";
    EXPECT_EQ('\0', buffer[size]);
    std::string text(buffer, size);
    ss_free_buffer(buffer);
    return text;
}

std::string Err(int rc) {
    return "<error " + std::to_string(rc) + ">";
}

class SecureStorageTest : public ::testing::Test {
protected:
    void SetUp() override {
        char tmpl[] = "/tmp/quillon-ss-XXXXXX";
        ASSERT_NE(nullptr, mkdtemp(tmpl));
        root_ = tmpl;
        setenv("QUILLON_PLATFORM_ROOT", root_.c_str(), 1);
        items_ = root_ + "/secure";
    }
    void TearDown() override {
        nftw(
            root_.c_str(),
            [](const char* path, const struct stat*, int, struct FTW*) { return remove(path); }, 16,
            FTW_DEPTH | FTW_PHYS);
    }

    // Runs quillon-platform with stdin from `input`; returns its exit status.
    int Tool(const std::vector<std::string>& args, const std::string& input, std::string* out,
             std::string* err) {
        const char* bin = std::getenv("QUILLON_BIN_DIR");
        if (!bin)
            ADD_FAILURE() << "QUILLON_BIN_DIR is not set";
        std::string exe = std::string(bin ? bin : ".") + "/quillon-platform";
        std::string in_path = root_ + "/.tool-in", out_path = root_ + "/.tool-out",
                    err_path = root_ + "/.tool-err";
        Spit(in_path, input);
        pid_t pid = fork();
        if (pid == 0) {
            int in = open(in_path.c_str(), O_RDONLY);
            int o = open(out_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
            int e = open(err_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
            dup2(in, 0);
            dup2(o, 1);
            dup2(e, 2);
            std::vector<char*> argv{const_cast<char*>(exe.c_str())};
            for (const std::string& a : args)
                argv.push_back(const_cast<char*>(a.c_str()));
            argv.push_back(nullptr);
            execv(exe.c_str(), argv.data());
            _exit(127);
        }
        int status = 0;
        waitpid(pid, &status, 0);
        *out = Slurp(out_path);
        *err = Slurp(err_path);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    std::string root_;
    std::string items_;
};

TEST_F(SecureStorageTest, RoundTripsWithoutLeavingPlainTextOnDisk) {
    ss_credential_s a = Cred(kWordsA);
    const std::string text = std::string("2\n[{\"devname\":\"Living room phone\"}]\0tail", 40);
    ASSERT_EQ(SS_ERROR_NONE, Write("PXM_DEVICE_LIST", text, a));
    EXPECT_EQ(text, Read("PXM_DEVICE_LIST", a));

    std::string raw = Slurp(items_ + "/PXM_DEVICE_LIST");
    EXPECT_EQ(0u, raw.rfind("QSSI", 0)) << "header magic first";
    EXPECT_EQ(std::string::npos, raw.find("Living room phone"));

    // A shorter replacement and an empty item read back exactly.
    ASSERT_EQ(SS_ERROR_NONE, Write("PXM_DEVICE_LIST", "2\n[]", a));
    EXPECT_EQ("2\n[]", Read("PXM_DEVICE_LIST", a));
    ASSERT_EQ(SS_ERROR_NONE, Write("empty", "", a));
    EXPECT_EQ("", Read("empty", a));
    EXPECT_EQ(Err(SS_ERROR_NO_SUCH_ITEM), Read("never_written", a));

    // Nothing but items in the directory: temporary files are gone.
    std::vector<std::string> entries = Entries(items_);
    std::sort(entries.begin(), entries.end());
    EXPECT_EQ((std::vector<std::string>{"PXM_DEVICE_LIST", "empty"}), entries);
}

TEST_F(SecureStorageTest, KeyAndDirectoryArePrivateAndTheKeyIsMadeOnce) {
    ss_credential_s a = Cred(kWordsA);
    ASSERT_EQ(SS_ERROR_NONE, Write("one", "1", a));
    struct stat st;
    ASSERT_EQ(0, stat((root_ + "/secure.key").c_str(), &st));
    EXPECT_EQ(0600u, st.st_mode & 07777);
    EXPECT_EQ(32, st.st_size);
    ASSERT_EQ(0, stat(items_.c_str(), &st));
    EXPECT_EQ(0700u, st.st_mode & 07777);
    ASSERT_EQ(0, stat((items_ + "/one").c_str(), &st));
    EXPECT_EQ(0u, st.st_mode & 077) << "items are not readable by others";

    std::string key = Slurp(root_ + "/secure.key");
    ASSERT_EQ(SS_ERROR_NONE, Write("two", "2", a));
    EXPECT_EQ(key, Slurp(root_ + "/secure.key"));
}

TEST_F(SecureStorageTest, ProcessesRacingOnAFreshRootShareOneKey) {
    // Every child waits on the pipe, so all of them create the key at about the same time.
    int gate[2];
    ASSERT_EQ(0, pipe(gate));
    std::vector<pid_t> children;
    for (int i = 0; i < 6; ++i) {
        pid_t pid = fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            close(gate[1]);
            char c;
            while (read(gate[0], &c, 1) > 0) {
            }
            ss_credential_s a = Cred(kWordsA);
            std::string name = "racer" + std::to_string(i);
            _exit(-Write(name, name, a));
        }
        children.push_back(pid);
    }
    close(gate[0]);
    close(gate[1]);
    for (pid_t pid : children) {
        int status = 0;
        ASSERT_EQ(pid, waitpid(pid, &status, 0));
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }
    ss_credential_s a = Cred(kWordsA);
    for (int i = 0; i < 6; ++i) {
        std::string name = "racer" + std::to_string(i);
        EXPECT_EQ(name, Read(name, a)) << "written under a key that lost the race";
    }
    for (const std::string& entry : Entries(root_))
        EXPECT_EQ(std::string::npos, entry.find("key-"));
}

TEST_F(SecureStorageTest, AnotherCredentialCannotReadOrRemoveAndDoesNotDamage) {
    ss_credential_s a = Cred(kWordsA);
    ASSERT_EQ(SS_ERROR_NONE, Write("item", "secret", a));
    const std::string before = Slurp(items_ + "/item");

    EXPECT_EQ(Err(SS_ERROR_AUTH), Read("item", Cred(kWordsB)));
    EXPECT_EQ(Err(SS_ERROR_AUTH), Read("item", Cred(kWordsA, 2, 0))) << "type is bound";
    EXPECT_EQ(Err(SS_ERROR_AUTH), Read("item", Cred(kWordsA, 1, 1))) << "flags are bound";
    ss_credential_s b = Cred(kWordsB);
    EXPECT_EQ(SS_ERROR_AUTH, ss_clear_storage("item", &b, 0));

    // Not corruption: the item stays where it is, untouched, and its owner still reads it.
    EXPECT_EQ((std::vector<std::string>{"item"}), Entries(items_));
    EXPECT_EQ(before, Slurp(items_ + "/item"));
    EXPECT_EQ("secret", Read("item", a));
}

TEST_F(SecureStorageTest, DamagedItemsAreRefusedAndKeptAsideUnderATimestampedName) {
    ss_credential_s a = Cred(kWordsA);
    const std::string path = items_ + "/PXM_DEVICE_LIST";
    auto expect_moved_aside = [&](const std::string& damaged, size_t aside_count) {
        std::vector<std::string> aside;
        for (const std::string& e : Entries(items_)) {
            if (e != "PXM_DEVICE_LIST")
                aside.push_back(e);
        }
        ASSERT_EQ(aside_count, aside.size());
        bool found = false;
        for (const std::string& e : aside) {
            EXPECT_EQ(0u, e.rfind("PXM_DEVICE_LIST.corrupt-", 0)) << e;
            EXPECT_TRUE(host::secure::IsAsideName(e)) << e;
            found = found || Slurp(items_ + "/" + e) == damaged;
        }
        EXPECT_TRUE(found) << "the damaged bytes are kept as they were";
        EXPECT_NE(0, access(path.c_str(), F_OK)) << "damaged item left under its name";
    };

    // One flipped bit in the sealed text.
    ASSERT_EQ(SS_ERROR_NONE, Write("PXM_DEVICE_LIST", "2\n[1]", a));
    std::string bytes = Slurp(path);
    bytes[bytes.size() - 3] ^= 0x01;
    Spit(path, bytes);
    EXPECT_EQ(Err(SS_ERROR_AUTH), Read("PXM_DEVICE_LIST", a));
    expect_moved_aside(bytes, 1);

    // Truncated to half its header: never parsed, also kept aside, never replaced.
    ASSERT_EQ(SS_ERROR_NONE, Write("PXM_DEVICE_LIST", "2\n[2]", a));
    std::string truncated = Slurp(path).substr(0, 20);
    Spit(path, truncated);
    EXPECT_EQ(Err(SS_ERROR_AUTH), Read("PXM_DEVICE_LIST", a));
    expect_moved_aside(truncated, 2);

    // A whole valid item copied under another name is a forgery: the name is bound.
    ASSERT_EQ(SS_ERROR_NONE, Write("other", "2\n[3]", a));
    Spit(path, Slurp(items_ + "/other"));
    EXPECT_EQ(Err(SS_ERROR_AUTH), Read("PXM_DEVICE_LIST", a));
    EXPECT_NE(0, access(path.c_str(), F_OK));

    // The storage keeps working afterwards.
    ASSERT_EQ(SS_ERROR_NONE, Write("PXM_DEVICE_LIST", "2\n[4]", a));
    EXPECT_EQ("2\n[4]", Read("PXM_DEVICE_LIST", a));
}

TEST_F(SecureStorageTest, AFailedWriteLeavesThePreviousItemByteForByte) {
    ss_credential_s a = Cred(kWordsA);
    ASSERT_EQ(SS_ERROR_NONE, Write("PXM_DEVICE_LIST", "2\n[\"previous\"]", a));
    const std::string before = Slurp(items_ + "/PXM_DEVICE_LIST");

    // A file size limit makes the write fail part way, as a full disk would.
    pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
        signal(SIGXFSZ, SIG_IGN);
        struct rlimit limit = {64, 64};
        setrlimit(RLIMIT_FSIZE, &limit);
        _exit(-Write("PXM_DEVICE_LIST", std::string(4096, 'x'), a));
    }
    int status = 0;
    ASSERT_EQ(pid, waitpid(pid, &status, 0));
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(-SS_ERROR_IO, WEXITSTATUS(status));

    EXPECT_EQ(before, Slurp(items_ + "/PXM_DEVICE_LIST"));
    EXPECT_EQ((std::vector<std::string>{"PXM_DEVICE_LIST"}), Entries(items_))
        << "the temporary file is removed";
    EXPECT_EQ("2\n[\"previous\"]", Read("PXM_DEVICE_LIST", a));
}

TEST_F(SecureStorageTest, ClearingWithoutANameRemovesOnlyThatCredentialsItems) {
    ss_credential_s a = Cred(kWordsA), b = Cred(kWordsB);
    EXPECT_EQ(SS_ERROR_NONE, ss_clear_storage(nullptr, &a, 0)) << "nothing stored yet";
    ASSERT_EQ(SS_ERROR_NONE, Write("a1", "x", a));
    ASSERT_EQ(SS_ERROR_NONE, Write("a2", "y", a));
    ASSERT_EQ(SS_ERROR_NONE, Write("b1", "z", b));

    // A damaged item of the same credential, kept aside: evidence that clearing keeps.
    ASSERT_EQ(SS_ERROR_NONE, Write("a3", "w", a));
    std::string bytes = Slurp(items_ + "/a3");
    bytes.back() ^= 0x01;
    Spit(items_ + "/a3", bytes);
    ASSERT_EQ(Err(SS_ERROR_AUTH), Read("a3", a));

    EXPECT_EQ(SS_ERROR_NONE, ss_clear_storage(nullptr, &a, 0));
    std::vector<std::string> left = Entries(items_);
    std::sort(left.begin(), left.end());
    ASSERT_EQ(2u, left.size());
    EXPECT_EQ(0u, left[0].rfind("a3.corrupt-", 0)) << left[0];
    EXPECT_EQ("b1", left[1]);
    EXPECT_EQ(Err(SS_ERROR_NO_SUCH_ITEM), Read("a1", a));
    EXPECT_EQ(Err(SS_ERROR_NO_SUCH_ITEM), Read("a2", a));
    EXPECT_EQ("z", Read("b1", b));

    EXPECT_EQ(SS_ERROR_NO_SUCH_ITEM, ss_clear_storage("a1", &a, 0));
    EXPECT_EQ(SS_ERROR_NONE, ss_clear_storage("b1", &b, 0));
    EXPECT_EQ(1u, Entries(items_).size());
}

TEST_F(SecureStorageTest, RefusesUnusableNamesAndArguments) {
    ss_credential_s a = Cred(kWordsA);
    for (const char* name : {"", "/", "..", ".", "a/b", ".hidden", "x.corrupt-20261121T153000Z"}) {
        EXPECT_EQ(SS_ERROR_INVALID_PARAMETER, Write(name, "t", a)) << name;
        EXPECT_EQ(Err(SS_ERROR_INVALID_PARAMETER), Read(name, a)) << name;
        EXPECT_EQ(SS_ERROR_INVALID_PARAMETER, ss_clear_storage(name, &a, 0)) << name;
    }
    EXPECT_EQ(SS_ERROR_INVALID_PARAMETER, ss_write("t", 1, -1, 0, nullptr, &a, 1));
    EXPECT_EQ(SS_ERROR_INVALID_PARAMETER, ss_write("t", 1, -1, 0, "n", nullptr, 1));
    EXPECT_EQ(SS_ERROR_INVALID_PARAMETER, ss_write(nullptr, 1, -1, 0, "n", &a, 1));
    size_t size = 0;
    EXPECT_EQ(SS_ERROR_INVALID_PARAMETER, ss_read(nullptr, &size, -1, 0, "n", &a, 1));
    EXPECT_TRUE(Entries(items_).empty());
}

TEST_F(SecureStorageTest, ConcurrentWritersLeaveOneWholeItem) {
    ss_credential_s a = Cred(kWordsA);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t, a] {
            for (int i = 0; i < 20; ++i) {
                EXPECT_EQ(SS_ERROR_NONE, Write("shared", std::string(100 + t, 'a' + t), a));
            }
        });
    }
    for (std::thread& t : threads)
        t.join();
    std::string text = Read("shared", a);
    ASSERT_GE(text.size(), 100u);
    EXPECT_EQ(std::string(text.size(), text[0]), text);
    EXPECT_EQ(100u + (text[0] - 'a'), text.size());
    EXPECT_EQ((std::vector<std::string>{"shared"}), Entries(items_));
}

TEST_F(SecureStorageTest, ToolReadsAndWritesUnderTheDaemonsCredential) {
    std::string out, err;
    ASSERT_EQ(0, Tool({"secure-write", "PXM_DEVICE_LIST"}, "1\n<PXM>\nlegacy", &out, &err)) << err;
    ss_credential_s daemon =
        Cred(kPxmAppCredential, PXM_SS_CREDENTIAL_TYPE, PXM_SS_CREDENTIAL_FLAGS);
    EXPECT_EQ("1\n<PXM>\nlegacy", Read("PXM_DEVICE_LIST", daemon));

    ASSERT_EQ(SS_ERROR_NONE, Write("PXM_DEVICE_LIST", "2\n[]", daemon));
    EXPECT_EQ(0, Tool({"secure-read", "PXM_DEVICE_LIST"}, "", &out, &err)) << err;
    EXPECT_EQ("2\n[]", out);

    Spit(root_ + "/seed.txt", "from a file");
    EXPECT_EQ(0, Tool({"secure-write", "seeded", root_ + "/seed.txt"}, "", &out, &err)) << err;
    EXPECT_EQ("from a file", Read("seeded", daemon));

    EXPECT_EQ(1, Tool({"secure-read", "missing"}, "", &out, &err));
    EXPECT_NE(std::string::npos, err.find("missing"));

    std::string bytes = Slurp(items_ + "/seeded");
    bytes.back() ^= 0x40;
    Spit(items_ + "/seeded", bytes);
    EXPECT_EQ(1, Tool({"secure-read", "seeded"}, "", &out, &err));
    EXPECT_TRUE(out.empty());
    EXPECT_NE(std::string::npos, err.find("damaged")) << err;
    // The host log line operators look for names where the item went.
    EXPECT_NE(std::string::npos, err.find("item seeded is damaged; kept aside as seeded.corrupt-"))
        << err;
}

TEST_F(SecureStorageTest, ToolRejectsBadArgumentsWithStatusTwoAndChangesNothing) {
    const std::vector<std::vector<std::string>> bad = {
        {"secure-read"},
        {"secure-read", "a", "b"},
        {"secure-read", "../escape"},
        {"secure-write"},
        {"secure-write", "item", "/nonexistent/file", "extra"},
        {"secure-write", "item", root_ + "/no-such-file"},
        {"secure-write", ""},
    };
    for (const std::vector<std::string>& args : bad) {
        std::string out, err;
        EXPECT_EQ(2, Tool(args, "text", &out, &err)) << args[0] << " " << args.size();
        EXPECT_NE(std::string::npos, err.find("usage: quillon-platform")) << err;
    }
    EXPECT_TRUE(Entries(items_).empty());
}

}  // namespace
