// Secure storage of the host platform, and quillon-platform's secure-read / secure-write, in a
// private platform root per test.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
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
    // The folder holds `item` and one copy kept aside as `why` with exactly `bytes`.
    void ExpectKeptAside(const std::string& item, const char* why, const std::string& bytes) {
        Names entries = Entries(items_);
        ASSERT_EQ(2u, entries.size()) << why;
        EXPECT_EQ(item, entries[0]) << why;
        EXPECT_EQ(0u, entries[1].rfind(item + "." + why + "-", 0)) << entries[1];
        EXPECT_TRUE(host::secure::IsAsideName(entries[1])) << entries[1];
        EXPECT_EQ(bytes, ReadFile(items_ + "/" + entries[1])) << why;
        unlink((items_ + "/" + entries[1]).c_str());
    }
    host_test::TempRoot temp_;
    std::string root_ = temp_.path();
    std::string items_ = root_ + "/secure";
    ss_credential_s a_ = Cred(kWordsA);
};

TEST_F(SecureStorageTest, ItemsRoundTripSealedUnderAPrivateKeyAndBadNamesAreRefused) {
    const std::string text = std::string("2\n[{\"devname\":\"Living room phone\"}]\0tail", 40);
    ASSERT_EQ(SS_ERROR_NONE, Write("PXM_DEVICE_LIST", text, a_));
    EXPECT_EQ(text, Read("PXM_DEVICE_LIST", a_));
    EXPECT_EQ(std::string::npos, ReadFile(items_ + "/PXM_DEVICE_LIST").find("Living room phone"));
    EXPECT_EQ(0600, host_test::Mode(root_ + "/secure.key"));
    EXPECT_EQ(0700, host_test::Mode(items_));
    EXPECT_EQ(0, host_test::Mode(items_ + "/PXM_DEVICE_LIST") & 077);
    const std::string key = ReadFile(root_ + "/secure.key");
    EXPECT_EQ(32u, key.size());
    // A shorter replacement and an empty item read back exactly, under the same key.
    ASSERT_EQ(SS_ERROR_NONE, Write("PXM_DEVICE_LIST", "2\n[]", a_));
    EXPECT_EQ("2\n[]", Read("PXM_DEVICE_LIST", a_));
    ASSERT_EQ(SS_ERROR_NONE, Write("empty", "", a_));
    EXPECT_EQ("", Read("empty", a_));
    EXPECT_EQ(Err(SS_ERROR_NO_SUCH_ITEM), Read("never_written", a_));
    EXPECT_EQ(key, ReadFile(root_ + "/secure.key"));
    for (const char* name : {"", "/", "..", ".", "a/b", ".hidden", "x.corrupt-20261121T153000Z"}) {
        EXPECT_EQ(SS_ERROR_INVALID_PARAMETER, Write(name, "t", a_)) << name;
        EXPECT_EQ(Err(SS_ERROR_INVALID_PARAMETER), Read(name, a_)) << name;
    }
    // Nothing but items in the directory: temporary files are gone.
    EXPECT_EQ((Names{"PXM_DEVICE_LIST", "empty"}), Entries(items_));
    // quillon-platform writes what it reads on its standard input under the daemon's credential.
    ss_credential_s daemon =
        Cred(kPxmAppCredential, PXM_SS_CREDENTIAL_TYPE, PXM_SS_CREDENTIAL_FLAGS);
    ASSERT_EQ(0, RunTool({"secure-write", "seeded"}, "1\n<PXM>\nlegacy").status);
    EXPECT_EQ("1\n<PXM>\nlegacy", Read("seeded", daemon));
    EXPECT_EQ(1, RunTool({"secure-read", "missing"}).status);
    EXPECT_EQ(2, RunTool({"secure-read", "../escape"}).status);
    EXPECT_EQ((Names{"secure", "secure.key", "secure.lock"}), Entries(root_));
}

// Another credential's item is neither read nor removed nor damaged; clearing without a name
// removes only the caller's own live items.
TEST_F(SecureStorageTest, OnlyTheOwningCredentialReadsOrRemovesAnItem) {
    ss_credential_s b = Cred(kWordsB);
    EXPECT_EQ(SS_ERROR_NONE, ss_clear_storage(nullptr, &a_, 0)) << "nothing stored yet";
    for (const char* name : {"a1", "a2", "a3"})
        ASSERT_EQ(SS_ERROR_NONE, Write(name, name, a_));
    ASSERT_EQ(SS_ERROR_NONE, Write("b1", "secret", b));
    const std::string before = ReadFile(items_ + "/b1");
    EXPECT_EQ(Err(SS_ERROR_AUTH), Read("b1", a_));
    EXPECT_EQ(Err(SS_ERROR_AUTH), Read("b1", Cred(kWordsB, 2, 0))) << "type is bound";
    EXPECT_EQ(Err(SS_ERROR_AUTH), Read("b1", Cred(kWordsB, 1, 1))) << "flags are bound";
    EXPECT_EQ(SS_ERROR_AUTH, ss_clear_storage("b1", &a_, 0));
    EXPECT_EQ(before, ReadFile(items_ + "/b1"));
    // A damaged item of the caller, kept aside: evidence that clearing keeps.
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
    EXPECT_EQ("secret", Read("b1", b));
    EXPECT_EQ(SS_ERROR_NO_SUCH_ITEM, ss_clear_storage("a1", &a_, 0));
    EXPECT_EQ(SS_ERROR_NONE, ss_clear_storage("b1", &b, 0));
    EXPECT_EQ(1u, Entries(items_).size());
}

TEST_F(SecureStorageTest, DamagedItemsAreRefusedAndKeptAsideUnderATimestampedName) {
    const std::string path = items_ + "/PXM_DEVICE_LIST";
    // One flipped bit in the sealed text; then cut to half its header: never parsed.
    for (size_t cut : {size_t(0), size_t(20)}) {
        ASSERT_EQ(SS_ERROR_NONE, Write("PXM_DEVICE_LIST", "2\n[1]", a_));
        std::string bytes = ReadFile(path);
        if (cut > 0)
            bytes.resize(cut);
        else
            bytes[bytes.size() - 3] ^= 0x01;
        WriteFile(path, bytes);
        EXPECT_EQ(Err(SS_ERROR_AUTH), Read("PXM_DEVICE_LIST", a_));
        EXPECT_NE(0, access(path.c_str(), F_OK)) << "damaged item left under its name";
        ASSERT_EQ(SS_ERROR_NONE, Write("PXM_DEVICE_LIST", "2\n[2]", a_));
        ExpectKeptAside("PXM_DEVICE_LIST", "corrupt", bytes);
    }
    // A whole valid item copied under another name of the same length is a forgery: the
    // name itself is bound, not only its length.
    ASSERT_EQ(SS_ERROR_NONE, Write("PXM_DEVICE_COPY", "2\n[3]", a_));
    WriteFile(path, ReadFile(items_ + "/PXM_DEVICE_COPY"));
    EXPECT_EQ(Err(SS_ERROR_AUTH), Read("PXM_DEVICE_LIST", a_));
    EXPECT_NE(0, access(path.c_str(), F_OK));
    ASSERT_EQ(SS_ERROR_NONE, Write("PXM_DEVICE_LIST", "2\n[4]", a_));
    EXPECT_EQ("2\n[4]", Read("PXM_DEVICE_LIST", a_));
}

// An item that could not be read is never written over: the first write keeps it aside, so
// the only copy of a list survives whatever made it unreadable.
TEST_F(SecureStorageTest, AnItemThatCouldNotBeReadIsKeptAsideBeforeTheNextWrite) {
    const std::string item = "PXM_DEVICE_LIST";
    auto write_new = [&](const std::string& old_bytes, const char* why) {
        ASSERT_EQ(SS_ERROR_NONE, Write(item, "2\n[\"new\"]", a_)) << why;
        EXPECT_EQ("2\n[\"new\"]", Read(item, a_)) << why;
        ExpectKeptAside(item, "unreadable", old_bytes);
    };
    // The key file is gone: whether read first or not, the old item stays, a new key is made.
    for (bool read_first : {true, false}) {
        ASSERT_EQ(SS_ERROR_NONE, Write(item, "2\n[\"old\"]", a_));
        const std::string old_bytes = ReadFile(items_ + "/" + item);
        ASSERT_EQ(0, unlink((root_ + "/secure.key").c_str()));
        EXPECT_EQ(read_first ? Err(SS_ERROR_AUTH) : "", read_first ? Read(item, a_) : "");
        write_new(old_bytes, read_first ? "missing key, read first" : "missing key");
    }
    // Another credential's item under our name.
    ASSERT_EQ(SS_ERROR_NONE, Write(item, "2\n[\"theirs\"]", Cred(kWordsB)));
    const std::string theirs = ReadFile(items_ + "/" + item);
    EXPECT_EQ(Err(SS_ERROR_AUTH), Read(item, a_));
    write_new(theirs, "other credential");
}

// Temporary files of killed writers (secure items and settings alike) go at the first use;
// those of a live writer stay. A write that fails part way leaves the old item whole.
TEST_F(SecureStorageTest, WritesNeverLeaveHalfAnItemNorTemporaryFilesOfTheDead) {
    const int dead = std::stoi(ReadFile("/proc/sys/kernel/pid_max")) + 1;  // no process has it
    const std::string settings = root_ + "/settings";
    ASSERT_EQ(0, system(("mkdir -p " + items_ + " " + settings).c_str()));
    const std::string live = ".tmp-" + std::to_string(getppid()) + "-XyZ789";
    for (const std::string& dir : {items_, settings}) {
        for (const std::string& name :
             {".tmp-" + std::to_string(dead) + "-AbC123", live, std::string(".tmp-Q1w2E3")})
            WriteFile(dir + "/" + name, "leftover");
    }
    EXPECT_EQ(Err(SS_ERROR_NO_SUCH_ITEM), Read("PXM_DEVICE_LIST", a_));
    int number = 0;
    EXPECT_EQ(VCONF_ERROR, vconf_get_int("db/registertv/factoryreset", &number));
    EXPECT_EQ(Names{live}, Entries(items_));
    EXPECT_EQ(Names{live}, Entries(settings));
    unlink((items_ + "/" + live).c_str());
    // A file size limit makes the write fail part way, as a full disk would.
    ASSERT_EQ(SS_ERROR_NONE, Write("PXM_DEVICE_LIST", "2\n[\"previous\"]", a_));
    const std::string before = ReadFile(items_ + "/PXM_DEVICE_LIST");
    EXPECT_EQ(-SS_ERROR_IO, host_test::InChild([&] {
        signal(SIGXFSZ, SIG_IGN);
        struct rlimit limit = {64, 64};
        setrlimit(RLIMIT_FSIZE, &limit);
        return -Write("PXM_DEVICE_LIST", std::string(4096, 'x'), a_);
    }));
    EXPECT_EQ(before, ReadFile(items_ + "/PXM_DEVICE_LIST"));
    EXPECT_EQ(Names{"PXM_DEVICE_LIST"}, Entries(items_)) << "the temporary file is removed";
    EXPECT_EQ("2\n[\"previous\"]", Read("PXM_DEVICE_LIST", a_));
}

}  // namespace
