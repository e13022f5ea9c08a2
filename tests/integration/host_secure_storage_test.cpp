// Secure storage of the host platform, and quillon-platform's secure-read / secure-write, in a
// private platform root per test.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <thread>
#include <vector>

#include "host_test_support.h"
#include "pxm_credential.h"
#include "secure_storage/secure_storage_files.h"
#include "ss_manager.h"
#include "vconf.h"

using host_test::Entries;
using host_test::ReadFile;
using host_test::RunTool;
using host_test::WriteFile;
using Names = std::vector<std::string>;

namespace {

const unsigned int kWordsA[5] = {1, 2, 3, 4, 5};
const unsigned int kWordsB[5] = {1, 2, 3, 4, 6};

ss_credential_s Cred(const unsigned int words[5], int type = 1, int flags = 0) {
    ss_credential_s cred;
    EXPECT_EQ(SS_ERROR_NONE, ss_init_credential(&cred, words, type, flags));
    return cred;
}

int Write(const std::string& name, const std::string& text, ss_credential_s cred) {
    return ss_write(text.data(), text.size(), -1, 0, name.c_str(), &cred, 1);
}

std::string Err(int rc) {
    return "<error " + std::to_string(rc) + ">";
}

// The item's text, or "<error N>".
std::string Read(const std::string& name, ss_credential_s cred) {
    char* buffer = nullptr;
    size_t size = 65535;
    int rc = ss_read(&buffer, &size, -1, 0, name.c_str(), &cred, 1);
    if (rc != SS_ERROR_NONE)
        return Err(rc);
    EXPECT_EQ('\0', buffer[size]);
    std::string text(buffer, size);
    ss_free_buffer(buffer);
    return text;
}

class SecureStorageTest : public ::testing::Test {
protected:
    host_test::TempRoot temp_;
    std::string root_ = temp_.path();
    std::string items_ = root_ + "/secure";
    ss_credential_s a_ = Cred(kWordsA);
};

TEST_F(SecureStorageTest, RoundTripsWithoutPlainTextOnDiskUnderAPrivateKeyMadeOnce) {
    const std::string text = std::string("2\n[{\"devname\":\"Living room phone\"}]\0tail", 40);
    ASSERT_EQ(SS_ERROR_NONE, Write("PXM_DEVICE_LIST", text, a_));
    EXPECT_EQ(text, Read("PXM_DEVICE_LIST", a_));
    std::string raw = ReadFile(items_ + "/PXM_DEVICE_LIST");
    EXPECT_EQ(0u, raw.rfind("QSSI", 0)) << "header magic first";
    EXPECT_EQ(std::string::npos, raw.find("Living room phone"));

    struct stat st;
    ASSERT_EQ(0, stat((root_ + "/secure.key").c_str(), &st));
    EXPECT_EQ(0600u, st.st_mode & 07777);
    EXPECT_EQ(32, st.st_size);
    ASSERT_EQ(0, stat(items_.c_str(), &st));
    EXPECT_EQ(0700u, st.st_mode & 07777);
    ASSERT_EQ(0, stat((items_ + "/PXM_DEVICE_LIST").c_str(), &st));
    EXPECT_EQ(0u, st.st_mode & 077) << "items are not readable by others";
    const std::string key = ReadFile(root_ + "/secure.key");

    // A shorter replacement and an empty item read back exactly, under the same key.
    ASSERT_EQ(SS_ERROR_NONE, Write("PXM_DEVICE_LIST", "2\n[]", a_));
    EXPECT_EQ("2\n[]", Read("PXM_DEVICE_LIST", a_));
    ASSERT_EQ(SS_ERROR_NONE, Write("empty", "", a_));
    EXPECT_EQ("", Read("empty", a_));
    EXPECT_EQ(Err(SS_ERROR_NO_SUCH_ITEM), Read("never_written", a_));
    EXPECT_EQ(key, ReadFile(root_ + "/secure.key"));
    // Nothing but items in the directory: temporary files are gone.
    EXPECT_EQ((Names{"PXM_DEVICE_LIST", "empty"}), Entries(items_));
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
            std::string name = "racer" + std::to_string(i);
            _exit(-Write(name, name, Cred(kWordsA)));
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
    for (int i = 0; i < 6; ++i) {
        std::string name = "racer" + std::to_string(i);
        EXPECT_EQ(name, Read(name, a_)) << "written under a key that lost the race";
    }
    for (const std::string& entry : Entries(root_))
        EXPECT_EQ(std::string::npos, entry.find("key-"));
}

TEST_F(SecureStorageTest, AnotherCredentialCannotReadOrRemoveAndDoesNotDamage) {
    ASSERT_EQ(SS_ERROR_NONE, Write("item", "secret", a_));
    const std::string before = ReadFile(items_ + "/item");

    EXPECT_EQ(Err(SS_ERROR_AUTH), Read("item", Cred(kWordsB)));
    EXPECT_EQ(Err(SS_ERROR_AUTH), Read("item", Cred(kWordsA, 2, 0))) << "type is bound";
    EXPECT_EQ(Err(SS_ERROR_AUTH), Read("item", Cred(kWordsA, 1, 1))) << "flags are bound";
    ss_credential_s b = Cred(kWordsB);
    EXPECT_EQ(SS_ERROR_AUTH, ss_clear_storage("item", &b, 0));

    // Not corruption: the item stays where it is, untouched, and its owner still reads it.
    EXPECT_EQ(Names{"item"}, Entries(items_));
    EXPECT_EQ(before, ReadFile(items_ + "/item"));
    EXPECT_EQ("secret", Read("item", a_));
}

TEST_F(SecureStorageTest, DamagedItemsAreRefusedAndKeptAsideUnderATimestampedName) {
    const std::string path = items_ + "/PXM_DEVICE_LIST";
    auto expect_moved_aside = [&](const std::string& damaged, size_t aside_count) {
        Names aside = Entries(items_);
        ASSERT_EQ(aside_count, aside.size()) << "damaged item left under its name?";
        bool found = false;
        for (const std::string& e : aside) {
            EXPECT_EQ(0u, e.rfind("PXM_DEVICE_LIST.corrupt-", 0)) << e;
            EXPECT_TRUE(host::secure::IsAsideName(e)) << e;
            found = found || ReadFile(items_ + "/" + e) == damaged;
        }
        EXPECT_TRUE(found) << "the damaged bytes are kept as they were";
    };

    // One flipped bit in the sealed text.
    ASSERT_EQ(SS_ERROR_NONE, Write("PXM_DEVICE_LIST", "2\n[1]", a_));
    std::string bytes = ReadFile(path);
    bytes[bytes.size() - 3] ^= 0x01;
    WriteFile(path, bytes);
    EXPECT_EQ(Err(SS_ERROR_AUTH), Read("PXM_DEVICE_LIST", a_));
    expect_moved_aside(bytes, 1);

    // Truncated to half its header: never parsed, also kept aside, never replaced.
    ASSERT_EQ(SS_ERROR_NONE, Write("PXM_DEVICE_LIST", "2\n[2]", a_));
    std::string truncated = ReadFile(path).substr(0, 20);
    WriteFile(path, truncated);
    EXPECT_EQ(Err(SS_ERROR_AUTH), Read("PXM_DEVICE_LIST", a_));
    expect_moved_aside(truncated, 2);

    // A whole valid item copied under another name of the same length is a forgery: the
    // name itself is bound, not only its length.
    ASSERT_EQ(SS_ERROR_NONE, Write("PXM_DEVICE_COPY", "2\n[3]", a_));
    WriteFile(path, ReadFile(items_ + "/PXM_DEVICE_COPY"));
    EXPECT_EQ(Err(SS_ERROR_AUTH), Read("PXM_DEVICE_LIST", a_));
    EXPECT_NE(0, access(path.c_str(), F_OK));

    // The storage keeps working afterwards.
    ASSERT_EQ(SS_ERROR_NONE, Write("PXM_DEVICE_LIST", "2\n[4]", a_));
    EXPECT_EQ("2\n[4]", Read("PXM_DEVICE_LIST", a_));
}

// An item that could not be read is never written over: the first write keeps it aside, so
// the only copy of a list survives whatever made it unreadable.
TEST_F(SecureStorageTest, AnItemThatCouldNotBeReadIsKeptAsideBeforeTheNextWrite) {
    const std::string item = "PXM_DEVICE_LIST";
    auto expect_kept = [&](const std::string& old_bytes, const char* why) {
        Names entries = Entries(items_);
        ASSERT_EQ(2u, entries.size()) << why;
        EXPECT_EQ(item, entries[0]) << why;
        EXPECT_EQ(0u, entries[1].rfind(item + ".unreadable-", 0)) << why << ": " << entries[1];
        EXPECT_TRUE(host::secure::IsAsideName(entries[1])) << why;
        EXPECT_EQ(old_bytes, ReadFile(items_ + "/" + entries[1])) << why;
        EXPECT_EQ("2\n[\"new\"]", Read(item, a_)) << why;
        unlink((items_ + "/" + entries[1]).c_str());
    };

    // The key file is gone: whether read first or not, the old item stays, a new key is made.
    for (bool read_first : {true, false}) {
        ASSERT_EQ(SS_ERROR_NONE, Write(item, "2\n[\"old\"]", a_));
        const std::string old_bytes = ReadFile(items_ + "/" + item);
        ASSERT_EQ(0, unlink((root_ + "/secure.key").c_str()));
        if (read_first) {
            EXPECT_EQ(Err(SS_ERROR_AUTH), Read(item, a_));
        }
        ASSERT_EQ(SS_ERROR_NONE, Write(item, "2\n[\"new\"]", a_));
        expect_kept(old_bytes, read_first ? "missing key, read first" : "missing key");
    }

    // Another credential's item under our name.
    ASSERT_EQ(SS_ERROR_NONE, Write(item, "2\n[\"theirs\"]", Cred(kWordsB)));
    const std::string theirs = ReadFile(items_ + "/" + item);
    EXPECT_EQ(Err(SS_ERROR_AUTH), Read(item, a_));
    ASSERT_EQ(SS_ERROR_NONE, Write(item, "2\n[\"new\"]", a_));
    expect_kept(theirs, "other credential");

    // A folder the reader may not enter (as an unprivileged user: root reads anything).
    ASSERT_EQ(SS_ERROR_NONE, Write(item, "2\n[\"old\"]", a_));
    const std::string old_bytes = ReadFile(items_ + "/" + item);
    if (getuid() == 0) {
        ASSERT_EQ(0, system(("chown -R 65534:65534 " + root_).c_str()));
    }
    pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
        if (getuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0))
            _exit(10);
        chmod(items_.c_str(), 0);
        int rc = Read(item, a_) == Err(SS_ERROR_IO) ? 0 : 11;
        chmod(items_.c_str(), 0700);
        if (rc == 0)
            rc = Write(item, "2\n[\"new\"]", a_) == SS_ERROR_NONE ? 0 : 12;
        _exit(rc);
    }
    int status = 0;
    ASSERT_EQ(pid, waitpid(pid, &status, 0));
    ASSERT_TRUE(WIFEXITED(status));
    ASSERT_EQ(0, WEXITSTATUS(status));
    expect_kept(old_bytes, "unreadable folder");
}

// Temporary files of killed writers (secure items and settings alike) go at the first use;
// those of a live writer stay.
TEST_F(SecureStorageTest, TemporaryFilesOfKilledWritersGoAtStart) {
    pid_t dead = fork();
    ASSERT_GE(dead, 0);
    if (dead == 0)
        _exit(0);
    waitpid(dead, nullptr, 0);
    const std::string settings = root_ + "/settings";
    ASSERT_EQ(0, system(("mkdir -p " + items_ + " " + settings).c_str()));
    const std::string stale = ".tmp-" + std::to_string(dead) + "-AbC123";
    const std::string live = ".tmp-" + std::to_string(getppid()) + "-XyZ789";
    for (const std::string& dir : {items_, settings}) {
        for (const std::string& name : {stale, live, std::string(".tmp-Q1w2E3")})
            WriteFile(dir + "/" + name, "leftover");
    }
    EXPECT_EQ(Err(SS_ERROR_NO_SUCH_ITEM), Read("PXM_DEVICE_LIST", a_));
    int number = 0;
    EXPECT_EQ(VCONF_ERROR, vconf_get_int("db/registertv/factoryreset", &number));
    EXPECT_EQ(Names{live}, Entries(items_));
    EXPECT_EQ(Names{live}, Entries(settings));
}

TEST_F(SecureStorageTest, AFailedWriteLeavesThePreviousItemByteForByte) {
    ASSERT_EQ(SS_ERROR_NONE, Write("PXM_DEVICE_LIST", "2\n[\"previous\"]", a_));
    const std::string before = ReadFile(items_ + "/PXM_DEVICE_LIST");

    // A file size limit makes the write fail part way, as a full disk would.
    pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
        signal(SIGXFSZ, SIG_IGN);
        struct rlimit limit = {64, 64};
        setrlimit(RLIMIT_FSIZE, &limit);
        _exit(-Write("PXM_DEVICE_LIST", std::string(4096, 'x'), a_));
    }
    int status = 0;
    ASSERT_EQ(pid, waitpid(pid, &status, 0));
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(-SS_ERROR_IO, WEXITSTATUS(status));

    EXPECT_EQ(before, ReadFile(items_ + "/PXM_DEVICE_LIST"));
    EXPECT_EQ(Names{"PXM_DEVICE_LIST"}, Entries(items_)) << "the temporary file is removed";
    EXPECT_EQ("2\n[\"previous\"]", Read("PXM_DEVICE_LIST", a_));
}

TEST_F(SecureStorageTest, ClearingWithoutANameRemovesOnlyThatCredentialsItems) {
    ss_credential_s b = Cred(kWordsB);
    EXPECT_EQ(SS_ERROR_NONE, ss_clear_storage(nullptr, &a_, 0)) << "nothing stored yet";
    ASSERT_EQ(SS_ERROR_NONE, Write("a1", "x", a_));
    ASSERT_EQ(SS_ERROR_NONE, Write("a2", "y", a_));
    ASSERT_EQ(SS_ERROR_NONE, Write("b1", "z", b));

    // A damaged item of the same credential, kept aside: evidence that clearing keeps.
    ASSERT_EQ(SS_ERROR_NONE, Write("a3", "w", a_));
    std::string bytes = ReadFile(items_ + "/a3");
    bytes.back() ^= 0x01;
    WriteFile(items_ + "/a3", bytes);
    ASSERT_EQ(Err(SS_ERROR_AUTH), Read("a3", a_));

    EXPECT_EQ(SS_ERROR_NONE, ss_clear_storage(nullptr, &a_, 0));
    Names left = Entries(items_);
    ASSERT_EQ(2u, left.size());
    EXPECT_EQ(0u, left[0].rfind("a3.corrupt-", 0)) << left[0];
    EXPECT_EQ("b1", left[1]);
    EXPECT_EQ(Err(SS_ERROR_NO_SUCH_ITEM), Read("a1", a_));
    EXPECT_EQ(Err(SS_ERROR_NO_SUCH_ITEM), Read("a2", a_));
    EXPECT_EQ("z", Read("b1", b));

    EXPECT_EQ(SS_ERROR_NO_SUCH_ITEM, ss_clear_storage("a1", &a_, 0));
    EXPECT_EQ(SS_ERROR_NONE, ss_clear_storage("b1", &b, 0));
    EXPECT_EQ(1u, Entries(items_).size());
}

TEST_F(SecureStorageTest, RefusesUnusableNamesAndArguments) {
    for (const char* name : {"", "/", "..", ".", "a/b", ".hidden", "x.corrupt-20261121T153000Z"}) {
        EXPECT_EQ(SS_ERROR_INVALID_PARAMETER, Write(name, "t", a_)) << name;
        EXPECT_EQ(Err(SS_ERROR_INVALID_PARAMETER), Read(name, a_)) << name;
        EXPECT_EQ(SS_ERROR_INVALID_PARAMETER, ss_clear_storage(name, &a_, 0)) << name;
    }
    EXPECT_EQ(SS_ERROR_INVALID_PARAMETER, ss_write("t", 1, -1, 0, nullptr, &a_, 1));
    EXPECT_EQ(SS_ERROR_INVALID_PARAMETER, ss_write("t", 1, -1, 0, "n", nullptr, 1));
    EXPECT_EQ(SS_ERROR_INVALID_PARAMETER, ss_write(nullptr, 1, -1, 0, "n", &a_, 1));
    size_t size = 0;
    EXPECT_EQ(SS_ERROR_INVALID_PARAMETER, ss_read(nullptr, &size, -1, 0, "n", &a_, 1));
    EXPECT_TRUE(Entries(items_).empty());
}

TEST_F(SecureStorageTest, ConcurrentWritersLeaveOneWholeItem) {
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([this, t] {
            for (int i = 0; i < 20; ++i)
                EXPECT_EQ(SS_ERROR_NONE, Write("shared", std::string(100 + t, 'a' + t), a_));
        });
    }
    for (std::thread& t : threads)
        t.join();
    std::string text = Read("shared", a_);
    ASSERT_GE(text.size(), 100u);
    EXPECT_EQ(std::string(text.size(), text[0]), text);
    EXPECT_EQ(100u + (text[0] - 'a'), text.size());
    EXPECT_EQ(Names{"shared"}, Entries(items_));
}

TEST_F(SecureStorageTest, ToolReadsAndWritesUnderTheDaemonsCredentialAndRefusesBadInput) {
    ASSERT_EQ(0, RunTool({"secure-write", "PXM_DEVICE_LIST"}, "1\n<PXM>\nlegacy").status);
    ss_credential_s daemon =
        Cred(kPxmAppCredential, PXM_SS_CREDENTIAL_TYPE, PXM_SS_CREDENTIAL_FLAGS);
    EXPECT_EQ("1\n<PXM>\nlegacy", Read("PXM_DEVICE_LIST", daemon));
    ASSERT_EQ(SS_ERROR_NONE, Write("PXM_DEVICE_LIST", "2\n[]", daemon));
    host_test::ToolResult r = RunTool({"secure-read", "PXM_DEVICE_LIST"});
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_EQ("2\n[]", r.out);
    WriteFile(root_ + "/seed.txt", "from a file");
    EXPECT_EQ(0, RunTool({"secure-write", "seeded", root_ + "/seed.txt"}).status);
    EXPECT_EQ("from a file", Read("seeded", daemon));

    r = RunTool({"secure-read", "missing"});
    EXPECT_EQ(1, r.status);
    EXPECT_NE(std::string::npos, r.err.find("missing"));
    std::string bytes = ReadFile(items_ + "/seeded");
    bytes.back() ^= 0x40;
    WriteFile(items_ + "/seeded", bytes);
    r = RunTool({"secure-read", "seeded"});
    EXPECT_EQ(1, r.status);
    EXPECT_TRUE(r.out.empty());
    // The host log line operators look for names where the item went.
    EXPECT_NE(std::string::npos,
              r.err.find("item seeded is damaged; kept aside as seeded.corrupt-"))
        << r.err;

    const Names before = Entries(items_);
    for (const Names& args : std::vector<Names>{{"secure-read"},
                                                {"secure-read", "a", "b"},
                                                {"secure-read", "../escape"},
                                                {"secure-write"},
                                                {"secure-write", "item", "/nonexistent", "extra"},
                                                {"secure-write", "item", root_ + "/no-such-file"},
                                                {"secure-write", ""}}) {
        r = RunTool(args, "text");
        EXPECT_EQ(2, r.status) << args[0] << " " << args.size();
        EXPECT_NE(std::string::npos, r.err.find("usage: quillon-platform")) << r.err;
    }
    EXPECT_EQ(before, Entries(items_));
}

}  // namespace
