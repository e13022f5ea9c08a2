// The host settings store: typed values in files under a private platform root, writes that
// never wait for the disk, and change callbacks on the default main context, also for
// changes made by another process.
#include <dlfcn.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "host_test_support.h"
#include "settings/settings_writer.h"
#include "vconf.h"

// fsync as the disk would answer it: held until released (a stalled disk), or failing.
namespace disk {
std::mutex lock;
std::condition_variable released;
bool stalled = false;
std::atomic<int> failure{0};
std::atomic<int> calls{0};
std::atomic<int> directories{0};
void Stall(bool on) {
    std::lock_guard<std::mutex> hold(lock);
    stalled = on;
    released.notify_all();
}
}  // namespace disk

extern "C" int fsync(int fd) {
    struct stat st;
    ++(fstat(fd, &st) == 0 && S_ISDIR(st.st_mode) ? disk::directories : disk::calls);
    {
        std::unique_lock<std::mutex> hold(disk::lock);
        disk::released.wait(hold, [] { return !disk::stalled; });
    }
    if (int failure = disk::failure.load()) {
        errno = failure;
        return -1;
    }
    static auto real = reinterpret_cast<int (*)(int)>(dlsym(RTLD_NEXT, "fsync"));
    return real(fd);
}

namespace fs = std::filesystem;
using host_test::Tool;
using test_common::RunUntil;
using Texts = std::vector<std::string>;

namespace {

// Each call as "name type int bool text", the text "-" when the node has none.
void Record(keynode_t* node, void* seen) {
    const char* text = vconf_keynode_get_str(node);
    static_cast<Texts*>(seen)->push_back(std::string(vconf_keynode_get_name(node)) + " " +
                                         std::to_string(vconf_keynode_get_type(node)) + " " +
                                         std::to_string(vconf_keynode_get_int(node)) + " " +
                                         std::to_string(vconf_keynode_get_bool(node)) + " " +
                                         (text ? text : "-"));
}
// A second function with the same behaviour, so two registrations on one key differ.
void RecordToo(keynode_t* node, void* seen) {
    Record(node, seen);
}

// A read of each type as "int bool text": the value, or "-" where the read fails and leaves its
// output alone.
std::string Typed(const std::string& key) {
    int number = 99, flag = 99;
    auto shown = [](int result, int value) {
        return result == VCONF_OK ? std::to_string(value) : value == 99 ? "-" : "touched";
    };
    const int as_int = vconf_get_int(key.c_str(), &number);
    const int as_bool = vconf_get_bool(key.c_str(), &flag);
    char* text = vconf_get_str(key.c_str());
    std::string out =
        shown(as_int, number) + " " + shown(as_bool, flag) + " " + (text ? text : "-");
    free(text);
    return out;
}

class HostSettings : public ::testing::Test {
protected:
    void TearDown() override {
        for (const auto& [key, cb] : registered_)
            vconf_ignore_key_changed(key.c_str(), cb);
    }
    void Watch(const std::string& key, vconf_callback_fn cb, Texts* seen) {
        ASSERT_EQ(vconf_notify_key_changed(key.c_str(), cb, seen), VCONF_OK) << key;
        registered_.emplace_back(key, cb);
    }
    host_test::TempRoot root_;
    std::string settings_ = root_.path() + "/settings";
    std::vector<std::pair<std::string, vconf_callback_fn>> registered_;
};

TEST_F(HostSettings, CallbacksHearTheChangesOfTheirKeyByAnyProcessUntilIgnored) {
    Texts reqopt, reqopt_too, wizard, flag;
    Watch("memory/quillon/reqopt", Record, &reqopt);
    Watch("memory/quillon/reqopt", RecordToo, &reqopt_too);
    Watch("memory/wizard/wizard_mode", Record, &wizard);
    Watch("memory/test/flag", Record, &flag);
    // Another process; a change misrouted to another key would be seen.
    Tool({"set-int", "memory/quillon/other", "5"});
    Tool({"set-int", "memory/quillon/reqopt", "7"});
    Tool({"set-str", "memory/wizard/wizard_mode", "NETWORK_SETUP"});
    Tool({"set-bool", "memory/test/flag", "1"});
    ASSERT_TRUE(RunUntil([&] { return !flag.empty(); }, 5000));
    EXPECT_EQ(reqopt, Texts{"memory/quillon/reqopt 41 7 -1 -"});
    EXPECT_EQ(reqopt_too, reqopt);
    EXPECT_EQ(wizard, Texts{"memory/wizard/wizard_mode 40 -1 -1 NETWORK_SETUP"});
    EXPECT_EQ(flag, Texts{"memory/test/flag 43 -1 1 -"});
    // Ignoring removes only that function's registration; once the later registration of a
    // key has run, the earlier would have too.
    EXPECT_EQ(vconf_ignore_key_changed("memory/quillon/reqopt", Record), VCONF_OK);
    EXPECT_EQ(vconf_ignore_key_changed("memory/quillon/reqopt", Record), VCONF_ERROR);
    ASSERT_EQ(vconf_set_int("memory/quillon/reqopt", 3), VCONF_OK);
    ASSERT_EQ(vconf_set_str("memory/wizard/wizard_mode", "PNP_SETUP"), VCONF_OK);
    ASSERT_TRUE(RunUntil([&] { return wizard.size() == 2; }, 5000));
    EXPECT_EQ(reqopt.size(), 1u);
    EXPECT_EQ(reqopt_too.back(), "memory/quillon/reqopt 41 3 -1 -");
    EXPECT_EQ(wizard.back(), "memory/wizard/wizard_mode 40 -1 -1 PNP_SETUP");
}

TEST_F(HostSettings, ValuesKeepTheirTypeAndDamagedFilesReadAsErrors) {
    const char* reset = "db/registertv/factoryreset";
    const char* wizard = "memory/wizard/wizard_mode";
    EXPECT_EQ(Typed(reset), "- - -");
    EXPECT_EQ(vconf_unset(reset), VCONF_ERROR);
    ASSERT_EQ(vconf_set_int(reset, -12), VCONF_OK);
    EXPECT_EQ(Typed(reset), "-12 - -");
    for (const char* text : {"line one\nline two", ""}) {
        ASSERT_EQ(vconf_set_str(wizard, text), VCONF_OK);
        EXPECT_EQ(Typed(wizard), std::string("- - ") + text);
    }
    ASSERT_EQ(vconf_set_bool("memory/test/flag", 5), VCONF_OK);
    EXPECT_EQ(Typed("memory/test/flag"), "- 1 -");
    // A new value may change the type.
    ASSERT_EQ(vconf_set_int(wizard, 4), VCONF_OK);
    EXPECT_EQ(Typed(wizard), "4 - -");
    const std::string file = settings_ + "/memory%2Fquillon%2Freqopt";
    ASSERT_EQ(vconf_set_int("memory/quillon/reqopt", 1), VCONF_OK);
    ASSERT_TRUE(host::settings::Sync());
    ASSERT_EQ(host_test::ReadFile(file), "int\n1\n");
    for (const char* damaged :
         {"int\n12abc\n", "int\n", "int 5\n", "float\n1.5\n", "int\n99999999999\n", "bool\n2\n",
          "bool\n\f\r0", "int\n\v7\n", "int\n+\n"}) {
        host_test::WriteFile(file, damaged);
        EXPECT_EQ(Typed("memory/quillon/reqopt"), "- - -") << damaged;
    }
    // An operator's own edit without the final line feed still reads.
    host_test::WriteFile(file, "int\n-5");
    EXPECT_EQ(Typed("memory/quillon/reqopt"), "-5 - -");
}

TEST_F(HostSettings, UnsafeKeysAreRefusedAndOthersMapToDistinctFlatFiles) {
    Texts seen;
    for (const std::string& key :
         Texts{"", "..", "a/../b", "memory/..", "/etc/passwd", "trailing/", "a//b", "with space",
               "tab\tkey", "back\\slash", "line\nfeed", "caf\xc3\xa9", std::string(256, 'k')}) {
        EXPECT_EQ(vconf_set_int(key.c_str(), 1), VCONF_ERROR) << key;
        EXPECT_EQ(Typed(key), "- - -") << key;
        EXPECT_EQ(vconf_notify_key_changed(key.c_str(), Record, &seen), VCONF_ERROR) << key;
    }
    EXPECT_TRUE(host_test::Entries(root_.path()).empty()) << "nothing written, nothing escaped";
    // Keys that a careless encoding would merge or turn into paths or hidden files.
    const Texts keys = {"a/b",     "a%2Fb",   "a_2Fb",
                        ".hidden", "x.y/z-w", "com.corvane/featureconf/tessel_support"};
    for (size_t i = 0; i < keys.size(); ++i)
        ASSERT_EQ(vconf_set_int(keys[i].c_str(), static_cast<int>(i) + 10), VCONF_OK) << keys[i];
    ASSERT_TRUE(host::settings::Sync());
    for (size_t i = 0; i < keys.size(); ++i)
        EXPECT_EQ(Typed(keys[i]), std::to_string(i + 10) + " - -") << keys[i];
    // One file each, none hidden, no temporary files left behind.
    EXPECT_EQ(host_test::Entries(settings_),
              (Texts{"%2Ehidden", "a%252Fb", "a%2Fb", "a_2Fb",
                     "com.corvane%2Ffeatureconf%2Ftessel_support", "x.y%2Fz-w"}));
}

// A writer never waits for the disk: its value is seen here at once and lands on disk, last
// value winning, once the disk answers; a failing disk is retried and never tears a file.
TEST_F(HostSettings, WritesNeverWaitForTheDiskAndLandInOrder) {
    const char* key = "db/bleapp/db_updated";
    const std::string file = settings_ + "/db%2Fbleapp%2Fdb_updated";
    disk::Stall(true);
    // The first write's batch waits at the disk while the newer ones queue behind it.
    ASSERT_EQ(vconf_set_int(key, 1), VCONF_OK);
    for (int wait = 0; wait < 5000 && disk::calls == 0; ++wait)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    for (int i = 2; i <= 50; ++i)
        ASSERT_EQ(vconf_set_int(key, i), VCONF_OK);
    EXPECT_EQ(Typed(key), "50 - -");
    EXPECT_FALSE(host::settings::Sync(50));
    disk::Stall(false);
    ASSERT_TRUE(host::settings::Sync());
    EXPECT_EQ("int\n50\n", host_test::ReadFile(file));
    EXPECT_EQ("50\n", Tool({"get", key}));
    EXPECT_LT(disk::calls.load(), 10) << "queued writes of one key are coalesced";
    EXPECT_GT(disk::directories.load(), 0) << "the rename into place is made durable too";
    // A removal queued behind a write wins, here at once and on disk.
    ASSERT_EQ(vconf_set_int(key, 51), VCONF_OK);
    ASSERT_EQ(vconf_unset(key), VCONF_OK);
    EXPECT_EQ(Typed(key), "- - -");
    EXPECT_EQ(vconf_unset(key), VCONF_ERROR);
    ASSERT_TRUE(host::settings::Sync());
    EXPECT_FALSE(fs::exists(file));
    // A failing disk: Sync says so, the file keeps its whole old value, the write is retried.
    ASSERT_EQ(vconf_set_int(key, 60), VCONF_OK);
    ASSERT_TRUE(host::settings::Sync());
    disk::failure = EIO;
    ASSERT_EQ(vconf_set_int(key, 61), VCONF_OK);
    EXPECT_FALSE(host::settings::Sync());
    EXPECT_EQ("int\n60\n", host_test::ReadFile(file));
    disk::failure = 0;
    ASSERT_TRUE(host::settings::Sync());
    EXPECT_EQ("int\n61\n", host_test::ReadFile(file));
    EXPECT_EQ(host_test::Entries(settings_), Texts{"db%2Fbleapp%2Fdb_updated"})
        << "no temporary file left";
}

}  // namespace
