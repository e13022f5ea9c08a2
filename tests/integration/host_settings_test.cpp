// The host settings store: typed values in files under a private platform root, and change
// callbacks on the default main context, also for changes made by another process.
#include <glib.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "vconf.h"

namespace fs = std::filesystem;

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
    void SetUp() override {
        char pattern[] = "/tmp/quillon-settings-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        root_ = pattern;
        setenv("QUILLON_PLATFORM_ROOT", root_.c_str(), 1);
    }
    void TearDown() override {
        for (const auto& [key, cb] : registered_)
            vconf_ignore_key_changed(key.c_str(), cb);
        std::error_code ignored;
        fs::remove_all(root_, ignored);
    }

    void Watch(const std::string& key, vconf_callback_fn cb, Seen* seen) {
        ASSERT_EQ(vconf_notify_key_changed(key.c_str(), cb, seen), VCONF_OK) << key;
        registered_.emplace_back(key, cb);
    }

    // Runs the tool as another process would change a setting.
    static void RunTool(const std::vector<std::string>& words) {
        const char* bin_dir = getenv("QUILLON_BIN_DIR");
        ASSERT_NE(bin_dir, nullptr) << "QUILLON_BIN_DIR must name the build's bin directory";
        std::vector<std::string> argv_text{std::string(bin_dir) + "/quillon-platform"};
        argv_text.insert(argv_text.end(), words.begin(), words.end());
        std::vector<char*> argv;
        for (auto& word : argv_text)
            argv.push_back(&word[0]);
        argv.push_back(nullptr);
        gint status = -1;
        GError* error = nullptr;
        ASSERT_TRUE(g_spawn_sync(nullptr, argv.data(), nullptr, G_SPAWN_DEFAULT, nullptr, nullptr,
                                 nullptr, nullptr, &status, &error))
            << (error ? error->message : "");
        ASSERT_TRUE(g_spawn_check_wait_status(status, nullptr)) << "tool failed: " << words[0];
    }

    // Iterates the default main context until `done` or 5 s have passed.
    template <typename Pred>
    static bool RunLoopUntil(Pred done) {
        bool timed_out = false;
        guint timer = g_timeout_add(
            5000,
            [](gpointer flag) -> gboolean {
                *static_cast<bool*>(flag) = true;
                return G_SOURCE_REMOVE;
            },
            &timed_out);
        while (!done() && !timed_out)
            g_main_context_iteration(nullptr, TRUE);
        if (!timed_out)
            g_source_remove(timer);
        return done();
    }

    std::vector<std::string> SettingsEntries() const {
        std::vector<std::string> names;
        std::error_code ec;
        for (const auto& entry : fs::directory_iterator(root_ + "/settings", ec))
            names.push_back(entry.path().filename().string());
        return names;
    }

    std::string root_;
    std::vector<std::pair<std::string, vconf_callback_fn>> registered_;
};

TEST_F(HostSettings, CallbacksReceiveChangesMadeByAnotherProcess) {
    Seen reqopt, wizard, flag;
    Watch("memory/quillon/reqopt", Record, &reqopt);
    Watch("memory/wizard/wizard_mode", Record, &wizard);
    Watch("memory/test/flag", Record, &flag);
    // The watch must exist before anyone has written a key.
    EXPECT_TRUE(fs::is_directory(root_ + "/settings"));

    RunTool({"set-int", "memory/quillon/reqopt", "7"});
    ASSERT_TRUE(RunLoopUntil([&] { return !reqopt.names.empty(); }));
    EXPECT_EQ(reqopt.names, std::vector<std::string>{"memory/quillon/reqopt"});
    EXPECT_EQ(reqopt.types[0], VCONF_TYPE_INT);
    EXPECT_EQ(reqopt.ints[0], 7);
    EXPECT_EQ(reqopt.strs[0], "(null)");

    RunTool({"set-str", "memory/wizard/wizard_mode", "NETWORK_SETUP"});
    ASSERT_TRUE(RunLoopUntil([&] { return !wizard.names.empty(); }));
    EXPECT_EQ(wizard.types[0], VCONF_TYPE_STRING);
    EXPECT_EQ(wizard.strs[0], "NETWORK_SETUP");
    EXPECT_EQ(wizard.ints[0], -1);

    RunTool({"set-bool", "memory/test/flag", "1"});
    ASSERT_TRUE(RunLoopUntil([&] { return !flag.names.empty(); }));
    EXPECT_EQ(flag.types[0], VCONF_TYPE_BOOL);
    EXPECT_EQ(flag.bools[0], 1);

    // Each callback saw its own key and nothing else.
    EXPECT_EQ(reqopt.names.size(), 1u);
    EXPECT_EQ(wizard.names.size(), 1u);
}

TEST_F(HostSettings, OnlyTheChangedKeyIsReported) {
    Seen seen;
    Watch("db/menu/network/devicemanager/accessnoti", Record, &seen);
    // Events arrive in order: a misrouted change of the first key would be seen first.
    RunTool({"set-int", "db/menu/network/devicemanager/other", "5"});
    RunTool({"set-int", "db/menu/network/devicemanager/accessnoti", "2"});
    ASSERT_TRUE(RunLoopUntil([&] { return !seen.names.empty(); }));
    EXPECT_EQ(seen.names, std::vector<std::string>{"db/menu/network/devicemanager/accessnoti"});
    EXPECT_EQ(seen.ints, std::vector<int>{2});
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
    ASSERT_TRUE(RunLoopUntil([&] { return !second.names.empty(); }));
    EXPECT_TRUE(first.names.empty());
    EXPECT_EQ(second.ints, std::vector<int>{3});

    // The same function stays registered for its other key.
    ASSERT_EQ(vconf_set_str("memory/wizard/wizard_mode", "PNP_SETUP"), VCONF_OK);
    ASSERT_TRUE(RunLoopUntil([&] { return !other_key.names.empty(); }));
    EXPECT_EQ(other_key.strs, std::vector<std::string>{"PNP_SETUP"});
}

TEST_F(HostSettings, TypedValuesMissingKeysAndMismatches) {
    int number = 99;
    EXPECT_EQ(vconf_get_int("db/registertv/factoryreset", &number), VCONF_ERROR);
    EXPECT_EQ(number, 99);
    EXPECT_EQ(vconf_get_str("memory/wizard/wizard_mode"), nullptr);
    EXPECT_EQ(vconf_unset("db/registertv/factoryreset"), VCONF_ERROR);

    ASSERT_EQ(vconf_set_int("db/registertv/factoryreset", -12), VCONF_OK);
    EXPECT_EQ(vconf_get_int("db/registertv/factoryreset", &number), VCONF_OK);
    EXPECT_EQ(number, -12);
    int flag = 7;
    EXPECT_EQ(vconf_get_bool("db/registertv/factoryreset", &flag), VCONF_ERROR);
    EXPECT_EQ(flag, 7);
    EXPECT_EQ(vconf_get_str("db/registertv/factoryreset"), nullptr);

    ASSERT_EQ(vconf_set_str("memory/wizard/wizard_mode", "line one\nline two"), VCONF_OK);
    EXPECT_EQ(vconf_get_int("memory/wizard/wizard_mode", &number), VCONF_ERROR);
    char* text = vconf_get_str("memory/wizard/wizard_mode");
    ASSERT_NE(text, nullptr);
    EXPECT_STREQ(text, "line one\nline two");
    free(text);

    ASSERT_EQ(vconf_set_str("memory/wizard/empty", ""), VCONF_OK);
    text = vconf_get_str("memory/wizard/empty");
    ASSERT_NE(text, nullptr);
    EXPECT_STREQ(text, "");
    free(text);

    ASSERT_EQ(vconf_set_bool("memory/test/flag", 5), VCONF_OK);
    EXPECT_EQ(vconf_get_bool("memory/test/flag", &flag), VCONF_OK);
    EXPECT_EQ(flag, 1);

    // A new value may change the type.
    ASSERT_EQ(vconf_set_int("memory/wizard/wizard_mode", 4), VCONF_OK);
    EXPECT_EQ(vconf_get_str("memory/wizard/wizard_mode"), nullptr);
    EXPECT_EQ(vconf_get_int("memory/wizard/wizard_mode", &number), VCONF_OK);
    EXPECT_EQ(number, 4);

    EXPECT_EQ(vconf_unset("memory/wizard/wizard_mode"), VCONF_OK);
    EXPECT_EQ(vconf_get_int("memory/wizard/wizard_mode", &number), VCONF_ERROR);
}

TEST_F(HostSettings, DamagedAndHandWrittenFiles) {
    ASSERT_EQ(vconf_set_int("memory/quillon/reqopt", 1), VCONF_OK);
    const std::string file = root_ + "/settings/memory%2Fquillon%2Freqopt";
    ASSERT_TRUE(fs::exists(file));
    int number = 0;
    const char* damaged[] = {"int\n12abc\n",       "int\n",    "int 5\n", "float\n1.5\n",
                             "int\n99999999999\n", "bool\n2\n"};
    for (const char* content : damaged) {
        std::ofstream(file, std::ios::trunc) << content;
        EXPECT_EQ(vconf_get_int("memory/quillon/reqopt", &number), VCONF_ERROR) << content;
        EXPECT_EQ(vconf_get_bool("memory/quillon/reqopt", &number), VCONF_ERROR) << content;
    }
    // An operator's own edit without the final line feed still reads.
    std::ofstream(file, std::ios::trunc) << "int\n-5";
    EXPECT_EQ(vconf_get_int("memory/quillon/reqopt", &number), VCONF_OK);
    EXPECT_EQ(number, -5);
}

TEST_F(HostSettings, UnsafeKeysAreRefusedAndWriteNothing) {
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
    EXPECT_TRUE(SettingsEntries().empty());
    // Nothing escaped the settings directory either.
    std::vector<std::string> root_entries;
    for (const auto& entry : fs::directory_iterator(root_))
        root_entries.push_back(entry.path().filename().string());
    EXPECT_TRUE(root_entries.empty() || root_entries == std::vector<std::string>{"settings"});
}

TEST_F(HostSettings, KeysMapToDistinctFilesInOneFlatDirectory) {
    // Keys that a careless encoding would merge or turn into paths or hidden files.
    const std::vector<std::string> keys = {
        "a/b", "a%2Fb", "a_2Fb", ".hidden", "x.y/z-w", "com.corvane/featureconf/tessel_support"};
    for (size_t i = 0; i < keys.size(); ++i)
        ASSERT_EQ(vconf_set_int(keys[i].c_str(), static_cast<int>(i) + 10), VCONF_OK) << keys[i];
    for (size_t i = 0; i < keys.size(); ++i) {
        int number = 0;
        EXPECT_EQ(vconf_get_int(keys[i].c_str(), &number), VCONF_OK) << keys[i];
        EXPECT_EQ(number, static_cast<int>(i) + 10) << keys[i];
    }
    std::vector<std::string> names = SettingsEntries();
    EXPECT_EQ(names.size(), keys.size());  // one file each, no temporary files left behind
    for (const auto& name : names) {
        EXPECT_TRUE(fs::is_regular_file(root_ + "/settings/" + name)) << name;
        EXPECT_NE(name[0], '.') << name;
    }
}

}  // namespace
