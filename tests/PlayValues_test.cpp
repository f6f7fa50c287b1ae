// The desktop takes only the repeat counts, intervals and speeds the phone's play settings panel
// can give; anything else is a usage error that names the option and its range, and plays or
// stores nothing.
#include <gtest/gtest.h>

#include <map>

#include "FoundationFakes.h"
#include "ToolProcess.h"

using namespace tactora::testing;
namespace fs = std::filesystem;

TEST(PlayValues, ValuesThePanelCannotGiveAreRefusedByPlayAndSettings) {
    const std::pair<const char*, std::vector<const char*>> refused[] = {
        {"--speed", {"2", "0.09", "1.91", "-inf", "inf", "nan", "1x", "0"}},
        {"--interval", {"-1", "1000001", "1.5", "nan"}},
        {"--repeat", {"-1", "inf", "99999999999999999999"}},
    };
    const std::map<std::string, std::string> range = {
        {"--speed", "0.1 to 1.9"}, {"--interval", "0 to 1000000"}, {"--repeat", "0 or more"}};
    ScratchDirectory root;
    const std::string tool = "--root '" + root.path().string() + "' ";
    const fs::path scripts = root.path() / "var/mobile/Library/Tactora/Scripts";
    writeFile(scripts / "ran.lua", "log('it ran')");
    for (const auto& [option, values] : refused) {
        for (const char* value : values) {
            for (std::string command : {"play '" + (scripts / "ran.lua").string() + "'", std::string("settings --script ran.lua")}) {
                command += std::string(" ") + option + " " + value;
                SCOPED_TRACE(command);
                ToolRun result = runTool(tool + command);
                EXPECT_EQ(result.exitCode, 2) << result.output;
                EXPECT_NE(result.output.find(std::string(option) + " must be"), std::string::npos) << result.output;
                EXPECT_NE(result.output.find(range.at(option)), std::string::npos) << result.output;
            }
        }
    }
    EXPECT_FALSE(fs::exists(root.path() / "var/mobile/Library/Tactora/Library/log.log")) << "a refused run played";
    EXPECT_EQ(runTool(tool + "settings").output.find("ran.lua"), std::string::npos) << "a refused value was stored";

    // The panel's own limits are taken.
    ToolRun edges = runTool(tool + "settings --script ran.lua --speed 0.1 --interval 1000000 --repeat 0");
    EXPECT_EQ(edges.exitCode, 0) << edges.output;
    EXPECT_NE(edges.output.find("1000000s    0.1"), std::string::npos) << edges.output;
    ToolRun top = runTool(tool + "settings --script ran.lua --speed 1.9 --interval 0 --repeat 1000001");
    EXPECT_EQ(top.exitCode, 0) << top.output;
    EXPECT_NE(top.output.find("1000001"), std::string::npos) << top.output;
}
