// quillon-platform's settings commands as scripts use them: exit statuses, output, and
// that a rejected command line never touches the platform root.
#include <glib.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

struct Result {
    int status = -1;
    std::string out;
    std::string err;
};

class PlatformTool : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/quillon-tool-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        root_ = pattern;
        const char* bin_dir = getenv("QUILLON_BIN_DIR");
        ASSERT_NE(bin_dir, nullptr) << "QUILLON_BIN_DIR must name the build's bin directory";
        tool_ = std::string(bin_dir) + "/quillon-platform";
    }
    void TearDown() override {
        std::error_code ignored;
        fs::remove_all(root_, ignored);
    }

    Result Run(const std::vector<std::string>& words) const {
        std::vector<std::string> argv_text{tool_};
        argv_text.insert(argv_text.end(), words.begin(), words.end());
        std::vector<char*> argv;
        for (auto& word : argv_text)
            argv.push_back(&word[0]);
        argv.push_back(nullptr);
        gchar** env =
            g_environ_setenv(g_get_environ(), "QUILLON_PLATFORM_ROOT", root_.c_str(), TRUE);
        gchar* out = nullptr;
        gchar* err = nullptr;
        gint wait_status = 0;
        GError* error = nullptr;
        Result result;
        if (g_spawn_sync(nullptr, argv.data(), env, G_SPAWN_DEFAULT, nullptr, nullptr, &out, &err,
                         &wait_status, &error)) {
            result.status = WIFEXITED(wait_status) ? WEXITSTATUS(wait_status) : -1;
            result.out = out ? out : "";
            result.err = err ? err : "";
        } else {
            ADD_FAILURE() << "could not run " << tool_ << ": " << error->message;
            g_error_free(error);
        }
        g_free(out);
        g_free(err);
        g_strfreev(env);
        return result;
    }

    // Every path under the root with its content ("<dir>" for directories).
    std::map<std::string, std::string> Snapshot() const {
        std::map<std::string, std::string> tree;
        for (const auto& entry : fs::recursive_directory_iterator(root_)) {
            std::string path = entry.path().string().substr(root_.size());
            if (entry.is_directory()) {
                tree[path] = "<dir>";
            } else {
                std::ifstream in(entry.path(), std::ios::binary);
                std::ostringstream content;
                content << in.rdbuf();
                tree[path] = content.str();
            }
        }
        return tree;
    }

    std::string root_;
    std::string tool_;
};

TEST_F(PlatformTool, InitSeedsDefaultsAndNeverOverwrites) {
    ASSERT_EQ(Run({"init"}).status, 0);
    EXPECT_EQ(Run({"get", "db/registertv/factoryreset"}).out, "0\n");
    EXPECT_EQ(Run({"get", "db/menu/network/devicemanager/accessnoti"}).out, "1\n");
    EXPECT_EQ(Run({"get", "memory/quillon/reqopt"}).out, "0\n");
    Result wizard = Run({"get", "memory/wizard/wizard_mode"});
    EXPECT_EQ(wizard.status, 0);
    EXPECT_EQ(wizard.out, "\n");

    ASSERT_EQ(Run({"set-int", "db/menu/network/devicemanager/accessnoti", "2"}).status, 0);
    ASSERT_EQ(Run({"set-str", "memory/wizard/wizard_mode", "PNP_SETUP"}).status, 0);
    // A key of another type is still an existing key.
    ASSERT_EQ(Run({"set-str", "db/registertv/factoryreset", "odd"}).status, 0);
    ASSERT_EQ(Run({"unset", "memory/quillon/reqopt"}).status, 0);

    ASSERT_EQ(Run({"init"}).status, 0);
    EXPECT_EQ(Run({"get", "db/menu/network/devicemanager/accessnoti"}).out, "2\n");
    EXPECT_EQ(Run({"get", "memory/wizard/wizard_mode"}).out, "PNP_SETUP\n");
    EXPECT_EQ(Run({"get", "db/registertv/factoryreset"}).out, "odd\n");
    // Only the missing key came back.
    EXPECT_EQ(Run({"get", "memory/quillon/reqopt"}).out, "0\n");
}

TEST_F(PlatformTool, BadInputExitsTwoAndWritesNothing) {
    const std::vector<std::vector<std::string>> bad = {
        {"frob"},
        {"get"},
        {"get", "a", "b"},
        {"get", "../outside"},
        {"init", "extra"},
        {"set-int", "memory/quillon/reqopt"},
        {"set-int", "memory/quillon/reqopt", "1", "2"},
        {"set-int", "memory/quillon/reqopt", ""},
        {"set-int", "memory/quillon/reqopt", "12x"},
        {"set-int", "memory/quillon/reqopt", " 5"},
        {"set-int", "memory/quillon/reqopt", "0x10"},
        {"set-int", "memory/quillon/reqopt", "-"},
        {"set-int", "memory/quillon/reqopt", "2147483648"},
        {"set-int", "memory/quillon/reqopt", "-2147483649"},
        {"set-int", "memory/..", "1"},
        {"set-bool", "memory/test/flag", "2"},
        {"set-bool", "memory/test/flag", "true"},
        {"set-bool", "memory/test/flag"},
        {"set-str", "memory/wizard/wizard_mode"},
        {"set-str", "a/../b", "text"},
        {"set-str", "", "text"},
        {"unset"},
        {"unset", ".."},
    };
    // Once on an empty root (nothing may be created), once on a seeded one.
    for (bool seeded : {false, true}) {
        if (seeded) {
            ASSERT_EQ(Run({"init"}).status, 0);
        }
        const auto before = Snapshot();
        for (const auto& words : bad) {
            std::string line;
            for (const auto& word : words)
                line += "[" + word + "]";
            Result result = Run(words);
            EXPECT_EQ(result.status, 2) << line;
            EXPECT_NE(result.err.find("quillon-platform: "), std::string::npos) << line;
            EXPECT_EQ(Snapshot(), before) << line;
        }
    }
}

TEST_F(PlatformTool, GetOfMissingKeyExitsOneAndValuesRoundTrip) {
    Result missing = Run({"get", "memory/quillon/reqopt"});
    EXPECT_EQ(missing.status, 1);
    EXPECT_EQ(missing.out, "");
    EXPECT_NE(missing.err.find("memory/quillon/reqopt"), std::string::npos);
    EXPECT_EQ(Run({"unset", "memory/quillon/reqopt"}).status, 1);

    // The ends of the int range are accepted, not just the middle.
    ASSERT_EQ(Run({"set-int", "memory/test/max", "2147483647"}).status, 0);
    ASSERT_EQ(Run({"set-int", "memory/test/min", "-2147483648"}).status, 0);
    ASSERT_EQ(Run({"set-bool", "memory/test/flag", "1"}).status, 0);
    ASSERT_EQ(Run({"set-str", "memory/test/text", "two words"}).status, 0);
    EXPECT_EQ(Run({"get", "memory/test/max"}).out, "2147483647\n");
    EXPECT_EQ(Run({"get", "memory/test/min"}).out, "-2147483648\n");
    EXPECT_EQ(Run({"get", "memory/test/flag"}).out, "1\n");
    EXPECT_EQ(Run({"get", "memory/test/text"}).out, "two words\n");

    ASSERT_EQ(Run({"unset", "memory/test/text"}).status, 0);
    EXPECT_EQ(Run({"get", "memory/test/text"}).status, 1);
}

TEST_F(PlatformTool, UsageListsTheSettingsCommands) {
    for (const std::vector<std::string>& words :
         {std::vector<std::string>{}, std::vector<std::string>{"--help"}}) {
        Result usage = Run(words);
        EXPECT_EQ(usage.status, 0);
        for (const char* line : {"init", "get KEY", "set-int KEY N", "set-str KEY TEXT",
                                 "set-bool KEY 0|1", "unset KEY"})
            EXPECT_NE(usage.out.find(std::string("  ") + line + " "), std::string::npos) << line;
    }
}

}  // namespace
