// The host settings store: typed values in files under a private platform root, writes that
// never wait for the disk, and change callbacks on the default main context, also for
// changes made by another process.
#include <dlfcn.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <string>
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
}  // namespace disk

extern "C" int fsync(int fd) {
    ++disk::calls;
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
using host_test::RunLoopUntil;
using host_test::Tool;

namespace {

struct Seen {
    std::vector<std::string> names;
    std::vector<int> types;
    std::vector<int> ints;
    std::vector<int> bools;
    std::vector<std::string> strs;  // "(null)" when the node had no text
};

void Record(keynode_t* node, void* user_data) {
    auto* seen = static_cast<Seen*>(user_data);
    const char* name = vconf_keynode_get_name(node);
    seen->names.push_back(name ? name : "(null)");
    seen->types.push_back(vconf_keynode_get_type(node));
    seen->ints.push_back(vconf_keynode_get_int(node));
    seen->bools.push_back(vconf_keynode_get_bool(node));
    const char* text = vconf_keynode_get_str(node);
    seen->strs.push_back(text ? text : "(null)");
}

// A second function with the same behaviour, so two registrations on one key differ.
void RecordToo(keynode_t* node, void* user_data) {
    Record(node, user_data);
}

class HostSettings : public ::testing::Test {
protected:
    void TearDown() override {
        for (const auto& [key, cb] : registered_)
            vconf_ignore_key_changed(key.c_str(), cb);
    }

    void Watch(const std::string& key, vconf_callback_fn cb, Seen* seen) {
        ASSERT_EQ(vconf_notify_key_changed(key.c_str(), cb, seen), VCONF_OK) << key;
        registered_.emplace_back(key, cb);
    }

    host_test::TempRoot root_;
    std::string settings_ = root_.path() + "/settings";
    std::vector<std::pair<std::string, vconf_callback_fn>> registered_;
};

TEST_F(HostSettings, ChangesByAnotherProcessReachOnlyTheCallbacksOfTheirKey) {
    Seen reqopt, wizard, flag;
    Watch("memory/quillon/reqopt", Record, &reqopt);
    Watch("memory/wizard/wizard_mode", Record, &wizard);
    Watch("memory/test/flag", Record, &flag);
    // The watch must exist before anyone has written a key.
    EXPECT_TRUE(fs::is_directory(settings_));

    // Events arrive in order: a misrouted change of the first key would be seen first.
    Tool({"set-int", "memory/quillon/other", "5"});
    Tool({"set-int", "memory/quillon/reqopt", "7"});
    ASSERT_TRUE(RunLoopUntil([&] { return !reqopt.names.empty(); }, 5000));
    EXPECT_EQ(reqopt.names, std::vector<std::string>{"memory/quillon/reqopt"});
    EXPECT_EQ(reqopt.types[0], VCONF_TYPE_INT);
    EXPECT_EQ(reqopt.ints[0], 7);
    EXPECT_EQ(reqopt.strs[0], "(null)");

    Tool({"set-str", "memory/wizard/wizard_mode", "NETWORK_SETUP"});
    ASSERT_TRUE(RunLoopUntil([&] { return !wizard.names.empty(); }, 5000));
    EXPECT_EQ(wizard.types[0], VCONF_TYPE_STRING);
    EXPECT_EQ(wizard.strs[0], "NETWORK_SETUP");
    EXPECT_EQ(wizard.ints[0], -1);

    Tool({"set-bool", "memory/test/flag", "1"});
    ASSERT_TRUE(RunLoopUntil([&] { return !flag.names.empty(); }, 5000));
    EXPECT_EQ(flag.types[0], VCONF_TYPE_BOOL);
    EXPECT_EQ(flag.bools[0], 1);
    EXPECT_EQ(reqopt.names.size(), 1u);
    EXPECT_EQ(wizard.names.size(), 1u);
}

TEST_F(HostSettings, IgnoreRemovesOnlyThatCallback) {
    Seen first, second, other_key;
    Watch("memory/quillon/reqopt", Record, &first);
    Watch("memory/quillon/reqopt", RecordToo, &second);
    Watch("memory/wizard/wizard_mode", Record, &other_key);

    EXPECT_EQ(vconf_ignore_key_changed("memory/quillon/reqopt", Record), VCONF_OK);
    EXPECT_EQ(vconf_ignore_key_changed("memory/quillon/reqopt", Record), VCONF_ERROR);

    // Callbacks of one change run in registration order, so once the second has run the
    // first would have run too had it still been registered.
    ASSERT_EQ(vconf_set_int("memory/quillon/reqopt", 3), VCONF_OK);
    ASSERT_TRUE(RunLoopUntil([&] { return !second.names.empty(); }, 5000));
    EXPECT_TRUE(first.names.empty());
    EXPECT_EQ(second.ints, std::vector<int>{3});

    // The same function stays registered for its other key.
    ASSERT_EQ(vconf_set_str("memory/wizard/wizard_mode", "PNP_SETUP"), VCONF_OK);
    ASSERT_TRUE(RunLoopUntil([&] { return !other_key.names.empty(); }, 5000));
    EXPECT_EQ(other_key.strs, std::vector<std::string>{"PNP_SETUP"});
}

TEST_F(HostSettings, TypedValuesMissingKeysMismatchesAndDamagedFiles) {
    const char* reset = "db/registertv/factoryreset";
    const char* wizard = "memory/wizard/wizard_mode";
    int number = 99;
    EXPECT_EQ(vconf_get_int(reset, &number), VCONF_ERROR);
    EXPECT_EQ(number, 99);
    EXPECT_EQ(vconf_get_str(wizard), nullptr);
    EXPECT_EQ(vconf_unset(reset), VCONF_ERROR);

    ASSERT_EQ(vconf_set_int(reset, -12), VCONF_OK);
    EXPECT_EQ(vconf_get_int(reset, &number), VCONF_OK);
    EXPECT_EQ(number, -12);
    int flag = 7;
    EXPECT_EQ(vconf_get_bool(reset, &flag), VCONF_ERROR);
    EXPECT_EQ(flag, 7);
    EXPECT_EQ(vconf_get_str(reset), nullptr);

    for (const char* text : {"line one\nline two", ""}) {
        ASSERT_EQ(vconf_set_str(wizard, text), VCONF_OK);
        EXPECT_EQ(vconf_get_int(wizard, &number), VCONF_ERROR);
        char* stored = vconf_get_str(wizard);
        ASSERT_NE(stored, nullptr);
        EXPECT_STREQ(stored, text);
        free(stored);
    }
    ASSERT_EQ(vconf_set_bool("memory/test/flag", 5), VCONF_OK);
    EXPECT_EQ(vconf_get_bool("memory/test/flag", &flag), VCONF_OK);
    EXPECT_EQ(flag, 1);

    // A new value may change the type.
    ASSERT_EQ(vconf_set_int(wizard, 4), VCONF_OK);
    EXPECT_EQ(vconf_get_str(wizard), nullptr);
    EXPECT_EQ(vconf_get_int(wizard, &number), VCONF_OK);
    EXPECT_EQ(number, 4);
    EXPECT_EQ(vconf_unset(wizard), VCONF_OK);
    EXPECT_EQ(vconf_get_int(wizard, &number), VCONF_ERROR);

    const std::string file = settings_ + "/memory%2Fquillon%2Freqopt";
    ASSERT_EQ(vconf_set_int("memory/quillon/reqopt", 1), VCONF_OK);
    ASSERT_TRUE(host::settings::Sync());
    ASSERT_TRUE(fs::exists(file));
    for (const char* damaged :
         {"int\n12abc\n", "int\n", "int 5\n", "float\n1.5\n", "int\n99999999999\n", "bool\n2\n",
          "bool\n\f\r0", "int\n\v7\n", "int\n+\n"}) {
        host_test::WriteFile(file, damaged);
        EXPECT_EQ(vconf_get_int("memory/quillon/reqopt", &number), VCONF_ERROR) << damaged;
        EXPECT_EQ(vconf_get_bool("memory/quillon/reqopt", &number), VCONF_ERROR) << damaged;
    }
    // An operator's own edit without the final line feed still reads.
    host_test::WriteFile(file, "int\n-5");
    EXPECT_EQ(vconf_get_int("memory/quillon/reqopt", &number), VCONF_OK);
    EXPECT_EQ(number, -5);
}

TEST_F(HostSettings, UnsafeKeysAreRefusedAndOthersMapToDistinctFlatFiles) {
    const std::vector<std::string> unsafe = {"",
                                             "..",
                                             "a/../b",
                                             "../settings",
                                             "memory/..",
                                             "/etc/passwd",
                                             "trailing/",
                                             "a//b",
                                             "with space",
                                             "tab\tkey",
                                             "back\\slash",
                                             "line\nfeed",
                                             "caf\xc3\xa9",
                                             std::string(256, 'k')};
    Seen seen;
    for (const auto& key : unsafe) {
        int number = 0;
        EXPECT_EQ(vconf_set_int(key.c_str(), 1), VCONF_ERROR) << key;
        EXPECT_EQ(vconf_set_str(key.c_str(), "x"), VCONF_ERROR) << key;
        EXPECT_EQ(vconf_set_bool(key.c_str(), 1), VCONF_ERROR) << key;
        EXPECT_EQ(vconf_get_int(key.c_str(), &number), VCONF_ERROR) << key;
        EXPECT_EQ(vconf_get_str(key.c_str()), nullptr) << key;
        EXPECT_EQ(vconf_unset(key.c_str()), VCONF_ERROR) << key;
        EXPECT_EQ(vconf_notify_key_changed(key.c_str(), Record, &seen), VCONF_ERROR) << key;
    }
    EXPECT_EQ(vconf_set_int(nullptr, 1), VCONF_ERROR);
    EXPECT_EQ(vconf_notify_key_changed("memory/quillon/reqopt", nullptr, &seen), VCONF_ERROR);
    EXPECT_TRUE(host_test::Entries(settings_).empty());
    // Nothing escaped the settings directory either.
    std::vector<std::string> root_entries = host_test::Entries(root_.path());
    EXPECT_TRUE(root_entries.empty() || root_entries == std::vector<std::string>{"settings"});

    // Keys that a careless encoding would merge or turn into paths or hidden files.
    const std::vector<std::string> keys = {
        "a/b", "a%2Fb", "a_2Fb", ".hidden", "x.y/z-w", "com.corvane/featureconf/tessel_support"};
    for (size_t i = 0; i < keys.size(); ++i)
        ASSERT_EQ(vconf_set_int(keys[i].c_str(), static_cast<int>(i) + 10), VCONF_OK) << keys[i];
    ASSERT_TRUE(host::settings::Sync());
    for (size_t i = 0; i < keys.size(); ++i) {
        int number = 0;
        EXPECT_EQ(vconf_get_int(keys[i].c_str(), &number), VCONF_OK) << keys[i];
        EXPECT_EQ(number, static_cast<int>(i) + 10) << keys[i];
    }
    std::vector<std::string> names = host_test::Entries(settings_);
    EXPECT_EQ(names.size(), keys.size());  // one file each, no temporary files left behind
    for (const auto& name : names) {
        EXPECT_TRUE(fs::is_regular_file(settings_ + "/" + name)) << name;
        EXPECT_NE(name[0], '.') << name;
    }
}

// A writer never waits for the disk: its value is seen here at once and lands on disk, last
// value winning, once the disk answers; a failing disk is retried and never tears a file.
TEST_F(HostSettings, WritesNeverWaitForTheDiskAndLandInOrder) {
    const char* key = "db/bleapp/db_updated";
    const std::string file = settings_ + "/db%2Fbleapp%2Fdb_updated";
    {
        std::lock_guard<std::mutex> hold(disk::lock);
        disk::stalled = true;
    }
    // With the disk stalled these would hang here if a write waited for it.
    for (int i = 1; i <= 50; ++i)
        ASSERT_EQ(vconf_set_int(key, i), VCONF_OK);
    int number = 0;
    EXPECT_EQ(vconf_get_int(key, &number), VCONF_OK);
    EXPECT_EQ(50, number);
    EXPECT_FALSE(host::settings::Sync(50));
    {
        std::lock_guard<std::mutex> hold(disk::lock);
        disk::stalled = false;
    }
    disk::released.notify_all();
    ASSERT_TRUE(host::settings::Sync());
    EXPECT_EQ("int\n50\n", host_test::ReadFile(file));
    EXPECT_EQ("50\n", Tool({"get", key}));
    EXPECT_LT(disk::calls.load(), 10) << "queued writes of one key are coalesced";

    // A removal queued behind a write wins, here at once and on disk.
    ASSERT_EQ(vconf_set_int(key, 51), VCONF_OK);
    ASSERT_EQ(vconf_unset(key), VCONF_OK);
    EXPECT_EQ(vconf_get_int(key, &number), VCONF_ERROR);
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
    for (const auto& name : host_test::Entries(settings_))
        EXPECT_NE(name[0], '.') << "temporary file left: " << name;
}

}  // namespace
