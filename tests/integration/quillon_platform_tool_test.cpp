// quillon-platform's settings commands as scripts use them: exit statuses, output, and
// that a rejected command line never touches the platform root.
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "host_test_support.h"

namespace fs = std::filesystem;

namespace {

using Result = host_test::ToolResult;

std::vector<std::string> Split(const std::string& text, char separator) {
    std::vector<std::string> parts;
    for (size_t at = 0, end = 0; end != std::string::npos; at = end + 1) {
        end = text.find(separator, at);
        parts.push_back(text.substr(at, end == std::string::npos ? end : end - at));
    }
    return parts;
}

class PlatformTool : public ::testing::Test {
protected:
    static Result Run(const std::vector<std::string>& words) { return host_test::RunTool(words); }

    // Every path under the root with its content ("<dir>" for directories).
    std::map<std::string, std::string> Snapshot() const {
        std::map<std::string, std::string> tree;
        for (const auto& entry : fs::recursive_directory_iterator(root_)) {
            std::string path = entry.path().string().substr(root_.size());
            if (entry.is_directory()) {
                tree[path] = "<dir>";
            } else {
                tree[path] = host_test::ReadFile(entry.path().string());
            }
        }
        return tree;
    }

    host_test::TempRoot temp_;
    std::string root_ = temp_.path();
};

TEST_F(PlatformTool, InitSeedsDefaultsNeverOverwritesAndRepairsOnlyWhatCannotBeRead) {
    ASSERT_EQ(Run({"init"}).status, 0);
    EXPECT_EQ(Run({"get", "db/registertv/factoryreset"}).out, "0\n");
    EXPECT_EQ(Run({"get", "db/menu/network/devicemanager/accessnoti"}).out, "1\n");
    EXPECT_EQ(Run({"get", "memory/quillon/reqopt"}).out, "0\n");
    Result wizard = Run({"get", "memory/wizard/wizard_mode"});
    EXPECT_EQ(wizard.status, 0);
    EXPECT_EQ(wizard.out, "\n");

    ASSERT_EQ(Run({"set-int", "db/menu/network/devicemanager/accessnoti", "2"}).status, 0);
    ASSERT_EQ(Run({"set-str", "memory/wizard/wizard_mode", "PNP_SETUP"}).status, 0);
    ASSERT_EQ(Run({"unset", "memory/quillon/reqopt"}).status, 0);
    // Keys the daemon cannot read as their type would stop it at every start.
    const std::string settings = root_ + "/settings/";
    host_test::WriteFile(settings + "db%2Fregistertv%2Ffactoryreset", "int\n1x\n");
    ASSERT_EQ(Run({"set-int", "memory/wizard/wizard_mode", "3"}).status, 0);

    // Plain init reports them and leaves them alone.
    Result plain = Run({"init"});
    EXPECT_EQ(plain.status, 1);
    EXPECT_NE(plain.out.find("broken db/registertv/factoryreset"), std::string::npos) << plain.out;
    EXPECT_EQ(host_test::ReadFile(settings + "db%2Fregistertv%2Ffactoryreset"), "int\n1x\n");
    EXPECT_EQ(Run({"get", "memory/quillon/reqopt"}).out, "0\n") << "only the missing key came";

    // --repair keeps them aside and seeds them; readable keys stay as they are.
    Result repaired = Run({"init", "--repair"});
    EXPECT_EQ(repaired.status, 0) << repaired.out;
    EXPECT_EQ(Run({"get", "db/registertv/factoryreset"}).out, "0\n");
    EXPECT_EQ(Run({"get", "memory/wizard/wizard_mode"}).out, "\n");
    EXPECT_EQ(Run({"get", "db/menu/network/devicemanager/accessnoti"}).out, "2\n");
    int kept = 0;
    for (const std::string& name : host_test::Entries(settings)) {
        if (name.rfind("db%2Fregistertv%2Ffactoryreset.unparsable-", 0) == 0) {
            EXPECT_EQ(host_test::ReadFile(settings + name), "int\n1x\n");
            ++kept;
        }
        kept += name.rfind("memory%2Fwizard%2Fwizard_mode.unparsable-", 0) == 0;
    }
    EXPECT_EQ(kept, 2);
    EXPECT_EQ(Run({"init"}).status, 0);
}

TEST_F(PlatformTool, BadInputExitsTwoAndWritesNothing) {
    // Command lines between ';', their words between '|'.
    const std::string bad =
        "frob;get;get|a|b;get|../outside;init|extra;init|--repair|--repair;set-int|memory/quillon/reqopt;"
        "set-int|memory/quillon/reqopt|1|2;set-int|memory/quillon/reqopt|;"
        "set-int|memory/quillon/reqopt|12x;set-int|memory/quillon/reqopt| 5;"
        "set-int|memory/quillon/reqopt|0x10;set-int|memory/quillon/reqopt|-;"
        "set-int|memory/quillon/reqopt|2147483648;set-int|memory/quillon/reqopt|-2147483649;"
        "set-int|memory/..|1;set-bool|memory/test/flag|2;set-bool|memory/test/flag|true;"
        "set-bool|memory/test/flag;set-str|memory/wizard/wizard_mode;set-str|a/../b|text;"
        "set-str||text;unset;unset|..";
    // Once on an empty root (nothing may be created), once on a seeded one.
    for (bool seeded : {false, true}) {
        if (seeded) {
            ASSERT_EQ(Run({"init"}).status, 0);
        }
        const auto before = Snapshot();
        for (const std::string& line : Split(bad, ';')) {
            Result result = Run(Split(line, '|'));
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

// The package ships the prompt's registration; one made under the state root wins over it.
TEST_F(PlatformTool, ShippedRegistrationsAreFoundAndTheStateRootsWin) {
    const std::string vendor = root_ + "/vendor-apps";
    fs::create_directories(vendor);
    host_test::WriteFile(vendor + "/org.nuvak.quillon-ux", "/usr/bin/quillon-ux\n");
    setenv("QUILLON_VENDOR_APPS_DIR", vendor.c_str(), 1);
    EXPECT_EQ(Run({"apps"}).out, "registered\torg.nuvak.quillon-ux\t/usr/bin/quillon-ux\n");
    ASSERT_EQ(Run({"register-app", "org.nuvak.quillon-ux", "/opt/ux"}).status, 0);
    EXPECT_EQ(Run({"apps"}).out, "registered\torg.nuvak.quillon-ux\t/opt/ux\n");
    setenv("QUILLON_VENDOR_APPS_DIR", "", 1);
}

}  // namespace

