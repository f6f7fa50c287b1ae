#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>

#include "CryptTestSupport.h"
#include "ToolProcess.h"

using namespace tactora::crypttest;

namespace {

int exitCode(const std::string& command) {
    int status = std::system(command.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

int runTool(const std::string& arguments) { return tactora::testing::runTool(arguments).exitCode; }

std::vector<std::string> names(const ScratchDirectory& dir) {
    std::vector<std::string> out;
    for (const auto& entry : std::filesystem::directory_iterator(std::filesystem::path(dir.file("")).parent_path()))
        out.push_back(entry.path().filename().string());
    std::sort(out.begin(), out.end());
    return out;
}

}  // namespace

TEST(EncryptCommand, RoundTripsBinaryWithEachWayOfGivingThePassword) {
    ScratchDirectory dir;
    std::mt19937 random(5);
    Bytes plain = randomBytes(70000, random);
    writeFile(dir.file("data.bin"), plain);
    writeFile(dir.file("pw.txt"), bytesOf("pässwörd\n"));

    ASSERT_EQ(runTool("encrypt '" + dir.file("data.bin") + "' --password-file '" + dir.file("pw.txt") + "'"), 0);
    EXPECT_EQ(referenceDecrypt(*readFile(dir.file("data.bin.e")), "pässwörd"), plain);

    ASSERT_EQ(runTool("decrypt '" + dir.file("data.bin.e") + "' -o '" + dir.file("a.bin") + "' --password 'pässwörd'"), 0);
    EXPECT_EQ(readFile(dir.file("a.bin")), plain);
    // No password anywhere and no terminal to ask on (setsid drops the controlling terminal).
    EXPECT_EQ(exitCode("setsid -w '" + std::string(TACTORA_CLI) + "' decrypt '" + dir.file("data.bin.e") + "' -o '" +
                       dir.file("b.bin") + "' </dev/null >/dev/null 2>&1"),
              2);
    EXPECT_FALSE(std::filesystem::exists(dir.file("b.bin")));
    std::filesystem::remove(dir.file("data.bin"));
    ASSERT_EQ(exitCode("TACTORA_PASSWORD='pässwörd' '" + std::string(TACTORA_CLI) + "' decrypt '" +
                       dir.file("data.bin.e") + "' >/dev/null 2>&1"),
              0);
    EXPECT_EQ(readFile(dir.file("data.bin")), plain);
}

TEST(EncryptCommand, WrongPasswordOrForeignFileFailsAndLeavesNothing) {
    ScratchDirectory dir;
    writeFile(dir.file("s.lua"), bytesOf(std::string(100000, 'x')));
    ASSERT_EQ(runTool("encrypt '" + dir.file("s.lua") + "' --password right"), 0);
    std::filesystem::remove(dir.file("s.lua"));
    std::vector<std::string> before = names(dir);

    EXPECT_EQ(runTool("decrypt '" + dir.file("s.lua.e") + "' --password wrong"), 1);
    writeFile(dir.file("junk.e"), Bytes(200, 9));
    EXPECT_EQ(runTool("decrypt '" + dir.file("junk.e") + "' --password right"), 1);
    writeFile(dir.file("short.e"), Bytes(40, 3));
    EXPECT_EQ(runTool("decrypt '" + dir.file("short.e") + "' --password right"), 1);

    // Neither the outputs nor their temporary files remain.
    std::vector<std::string> after = names(dir);
    std::erase(after, "junk.e");
    std::erase(after, "short.e");
    EXPECT_EQ(after, before);
}
