// quillon-platform's settings and registration commands as scripts use them: exit statuses
// and output.
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "host_test_support.h"

namespace {

using host_test::Tool;
using Words = std::vector<std::string>;

// "status out" of a run.
std::string Ran(const Words& words) {
    host_test::ToolResult r = host_test::RunTool(words);
    return std::to_string(r.status) + " " + r.out;
}

TEST(PlatformTool, InitSeedsDefaultsNeverOverwritesAndRepairsOnlyWhatCannotBeRead) {
    host_test::TempRoot temp;
    const std::string settings = temp.path() + "/settings/";
    EXPECT_EQ(Ran({"get", "memory/quillon/reqopt"}), "1 ");
    EXPECT_EQ(Ran({"unset", "memory/quillon/reqopt"}), "1 ");
    ASSERT_EQ(Ran({"init"}).substr(0, 2), "0 ");
    for (const auto& [key, value] :
         std::map<std::string, std::string>{{"db/registertv/factoryreset", "0"},
                                            {"db/menu/network/devicemanager/accessnoti", "1"},
                                            {"memory/quillon/reqopt", "0"},
                                            {"memory/wizard/wizard_mode", ""}})
        EXPECT_EQ(Ran({"get", key}), "0 " + value + "\n") << key;
    Tool({"set-int", "db/menu/network/devicemanager/accessnoti", "2"});
    Tool({"unset", "memory/quillon/reqopt"});
    // Keys the daemon cannot read as their type would stop it at every start.
    host_test::WriteFile(settings + "db%2Fregistertv%2Ffactoryreset", "int\n1x\n");
    Tool({"set-int", "memory/wizard/wizard_mode", "3"});
    // Plain init reports them and leaves them alone; only the missing key comes.
    std::string plain = Ran({"init"});
    EXPECT_NE(plain.find("broken db/registertv/factoryreset"), std::string::npos) << plain;
    EXPECT_EQ(plain.substr(0, 2), "1 ");
    EXPECT_EQ(host_test::ReadFile(settings + "db%2Fregistertv%2Ffactoryreset"), "int\n1x\n");
    EXPECT_EQ(Tool({"get", "memory/quillon/reqopt"}), "0\n");
    // --repair keeps them aside and seeds them; readable keys stay as they are.
    EXPECT_EQ(Ran({"init", "--repair"}).substr(0, 2), "0 ");
    EXPECT_EQ(Tool({"get", "db/registertv/factoryreset"}), "0\n");
    EXPECT_EQ(Tool({"get", "memory/wizard/wizard_mode"}), "\n");
    EXPECT_EQ(Tool({"get", "db/menu/network/devicemanager/accessnoti"}), "2\n");
    // Each kept-aside file: its key's name, a timestamp, the old bytes.
    std::string kept;
    for (const std::string& name : host_test::Entries(settings)) {
        if (const size_t stamp = name.find(".unparsable-"); stamp != std::string::npos)
            kept += name.substr(0, stamp) + " " + host_test::ReadFile(settings + name);
    }
    EXPECT_EQ(kept,
              "db%2Fregistertv%2Ffactoryreset int\n1x\nmemory%2Fwizard%2Fwizard_mode int\n3\n");
    EXPECT_EQ(Ran({"init"}).substr(0, 2), "0 ");
}

}  // namespace
