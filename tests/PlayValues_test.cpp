// The desktop takes only the repeat counts, intervals and speeds the phone's play settings panel
// can give; anything else is a usage error that names the option and its range, and plays or
// stores nothing.
#include <gtest/gtest.h>

#include "FoundationFakes.h"
#include "ToolProcess.h"

using namespace tactora::testing;
namespace fs = std::filesystem;

namespace {

struct Result {
    int status = -1;
    std::string text;  // standard output and error
};

Result runTool(const fs::path& root, const std::string& arguments) {
    const std::string command =
        std::string("'") + TACTORA_CLI + "' --root '" + root.string() + "' " + arguments + " 2>&1";
    Result result;
    FILE* pipe = ::popen(command.c_str(), "r");
    if (!pipe) return result;
    char buffer[4096];
    for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) result.text.append(buffer, n);
    const int status = ::pclose(pipe);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}

}  // namespace

TEST(PlayValues, ValuesThePanelCannotGiveAreRefusedByPlayAndSettings) {
    struct Case {
        const char* option;
        const char* value;
        const char* range;  // part of the message
    };
    const Case refused[] = {
        {"--speed", "2", "0.1 to 1.9"},     {"--speed", "0.09", "0.1 to 1.9"}, {"--speed", "1.91", "0.1 to 1.9"},
        {"--speed", "-inf", "0.1 to 1.9"},  {"--speed", "inf", "0.1 to 1.9"},  {"--speed", "nan", "0.1 to 1.9"},
        {"--speed", "1x", "0.1 to 1.9"},    {"--speed", "0", "0.1 to 1.9"},
        {"--interval", "-1", "0 to 1000000"}, {"--interval", "1000001", "0 to 1000000"},
        {"--interval", "1.5", "0 to 1000000"}, {"--interval", "nan", "0 to 1000000"},
        {"--repeat", "-1", "0 or more"},    {"--repeat", "inf", "0 or more"},
        {"--repeat", "99999999999999999999", "0 or more"},
    };
    ScratchDirectory root;
    const fs::path scripts = root.path() / "var/mobile/Library/Tactora/Scripts";
    writeFile(scripts / "ran.lua", "log('it ran')");
    for (const Case& test : refused) {
        for (std::string command : {"play '" + (scripts / "ran.lua").string() + "'", std::string("settings --script ran.lua")}) {
            SCOPED_TRACE(command + " " + test.option + " " + test.value);
            Result result = runTool(root.path(), command + " " + test.option + " " + test.value);
            EXPECT_EQ(result.status, 2) << result.text;
            EXPECT_NE(result.text.find(std::string(test.option) + " must be"), std::string::npos) << result.text;
            EXPECT_NE(result.text.find(test.range), std::string::npos) << result.text;
        }
    }
    EXPECT_FALSE(fs::exists(root.path() / "var/mobile/Library/Tactora/Library/log.log")) << "a refused run played";
    EXPECT_EQ(runTool(root.path(), "settings").text.find("ran.lua"), std::string::npos) << "a refused value was stored";

    // The panel's own limits are taken.
    Result edges = runTool(root.path(), "settings --script ran.lua --speed 0.1 --interval 1000000 --repeat 0");
    EXPECT_EQ(edges.status, 0) << edges.text;
    EXPECT_NE(edges.text.find("1000000s    0.1"), std::string::npos) << edges.text;
    Result top = runTool(root.path(), "settings --script ran.lua --speed 1.9 --interval 0 --repeat 1000001");
    EXPECT_EQ(top.status, 0) << top.text;
    EXPECT_NE(top.text.find("1000001"), std::string::npos) << top.text;
}
