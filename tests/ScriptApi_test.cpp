// The script API as authors meet it: every example of the README's and docs/script-api.md's
// script API runs as written on the simulated device, and pictures and search options mean what
// they mean on the phone.
#include <gtest/gtest.h>
#include <zlib.h>

#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include "FoundationFakes.h"
#include "ToolProcess.h"

using namespace tactora;
using namespace tactora::testing;
namespace fs = std::filesystem;

namespace {

// The example column of the README's script API table, or every ```LANGUAGE block of a file.
std::vector<std::string> examplesIn(const std::string& relative, const std::string& language = "") {
    std::vector<std::string> examples;
    std::string block;
    bool inside = false;
    for (const std::string& line : lines(readFile(fs::path(TACTORA_SOURCE_DIR) / relative))) {
        if (language.empty()) {
            inside = inside || line.rfind("| function | arguments → results | example |", 0) == 0;
            if (inside && line.empty()) break;
            const auto open = line.rfind("| `");
            if (inside && open != std::string::npos) examples.push_back(line.substr(open + 3, line.rfind("` |") - open - 3));
        } else if (!inside && line == "```" + language) {
            inside = true;
            block.clear();
        } else if (inside && line == "```") {
            inside = false;
            examples.push_back(block);
        } else if (inside) {
            block += line + "\n";
        }
    }
    return examples;
}

TEST(ScriptApi, EveryExampleOfTheReadmeAndTheDocsRunsAsWrittenAndIgnoreColorsMeansWhatItSays) {
    std::vector<std::string> examples = examplesIn("README.md");
    const std::size_t fromReadme = examples.size();
    for (std::string& example : examplesIn("docs/script-api.md", "lua")) examples.push_back(std::move(example));
    ASSERT_GE(fromReadme, 20u);
    ASSERT_GE(examples.size() - fromReadme, 8u);

    ScratchDirectory directory;
    const fs::path scripts = directory.path() / "root/var/mobile/Library/Tactora/Scripts";
    // The files the examples name as the author's own, beside the scripts.
    writeFile(scripts / "common.lua", "common = true");
    writeFile(scripts / "helpers.lua", "return {}");
    writeFile(scripts / "icon.png", solidPng(8, 8, 0x4BD863));
    writeFile(scripts / "ok-button.png", solidPng(8, 8, 0xFFFFFF));
    // Each example is a chunk of its own; a failure names it and the run goes on.
    std::string script = "local examples = {\n";
    for (const std::string& example : examples) script += "[==========[" + example + "]==========],\n";
    script += "}\nfor i, text in ipairs(examples) do\n"
              "  local chunk, problem = load(text, 'example ' .. i)\n"
              "  local ran = chunk and {pcall(chunk)} or {false, problem}\n"
              "  if not ran[1] then log('EXAMPLE FAILED: ' .. text .. ' -> ' .. tostring(ran[2])) end\n"
              "end\nlog('EXAMPLES RAN ' .. #examples)\n";
    // On a white screen with one red pixel, an all-white template matches at the corner only
    // when red is ignored, and only a table says so.
    std::vector<std::uint8_t> screen(std::size_t(640) * 1136 * 4, 0xFF);
    screen[1] = screen[2] = 0;
    auto picture = host::PngCodec().encodePng(screen.data(), 640, 1136, 640 * 4);
    ASSERT_TRUE(picture);
    writeFile(directory.path() / "screen.png", std::string(picture->begin(), picture->end()));
    writeFile(scripts / "white.png", solidPng(2, 2, 0xFFFFFF));
    const std::pair<const char*, const char*> ignoring[] = {
        {"nil", "found false"}, {"0xFF0000", "found false"}, {"true", "found false"}, {"{0xFF0000}", "found true"},
        {"'0xFF0000'", "ignoreColors must be a table, got string"},
    };
    script += "local function corner(ignore) local ok, hits = pcall(findImage, {imagePath = rootDir() .. "
              "'white.png', ignoreColors = ignore}) if not ok then return tostring(hits) end "
              "for _, p in ipairs(hits) do if p[1] == 0 and p[2] == 0 then return 'found true' end end "
              "return 'found false' end\n";
    for (std::size_t i = 0; i < std::size(ignoring); ++i)
        script += "log('case " + std::to_string(i) + ": ' .. corner(" + ignoring[i].first + "))\n";
    writeFile(scripts / "examples.lua", script);

    ToolRun run = runTool("--root root --screen screen.png play examples.lua --speed 1.9", "", directory.path());
    EXPECT_EQ(run.exitCode, 0) << run.err;
    const std::string log = readFile(directory.path() / "root/var/mobile/Library/Tactora/Library/log.log");
    EXPECT_EQ(log.find("EXAMPLE FAILED"), std::string::npos) << log;
    EXPECT_NE(log.find("EXAMPLES RAN " + std::to_string(examples.size())), std::string::npos) << log;
    EXPECT_EQ(run.err.find("tactora:"), std::string::npos) << run.err;
    for (std::size_t i = 0; i < std::size(ignoring); ++i) {
        const auto line = log.find("case " + std::to_string(i) + ": ");
        EXPECT_NE(log.substr(line, log.find('\n', line) - line).find(ignoring[i].second), std::string::npos)
            << ignoring[i].first << "\n" << log;
    }
    // An example that writes a picture leaves it where it says.
    const std::regex written(R"re(screenshot\w*\(rootDir\(\) \.\. "([^"]+)")re");
    std::size_t pictures = 0;
    for (const std::string& example : examples) {
        if (example.find("screenshot") == std::string::npos) continue;
        std::smatch match;
        ASSERT_TRUE(std::regex_search(example, match, written)) << "writes outside the scripts directory: " << example;
        EXPECT_TRUE(fs::is_regular_file(scripts / match[1].str())) << example;
        ++pictures;
    }
    EXPECT_GE(pictures, 3u);
}

TEST(ScriptApi, TheRecordingAndTraceExamplesRunAsWritten) {
    ScratchDirectory directory;
    const auto events = examplesIn("docs/recording.md", "json");
    const auto script = examplesIn("docs/trace-format.md", "lua");
    ASSERT_FALSE(events.empty());
    ASSERT_FALSE(script.empty());
    writeFile(directory.path() / "events.jsonl", events.front());
    writeFile(directory.path() / "trace.lua", script.front());
    ToolRun recorded = runTool("--root root record --input events.jsonl --output r.lua", "", directory.path());
    EXPECT_EQ(recorded.exitCode, 0) << recorded.err;
    EXPECT_NE(readFile(directory.path() / "r.lua").find("homeButtonUp()"), std::string::npos);
    ToolRun played = runTool("--root root play trace.lua --trace t.jsonl", "", directory.path());
    EXPECT_EQ(played.exitCode, 0) << played.err;
    EXPECT_EQ(countOf(readFile(directory.path() / "t.jsonl"), "\"kind\":\"keyboard\""), 2u);
}

TEST(ScriptApi, SixteenBitPicturesKeepTheHighByteOfEachSample) {
    // One row of 16-bit samples (2 gray + alpha, 3 RGB, 4 RGBA a pixel), without gamma, as image
    // editors write them.
    auto png = [](int colorType, const std::vector<std::uint16_t>& samples, std::uint32_t width) {
        auto be32 = [](std::uint32_t v) { return std::string{char(v >> 24), char(v >> 16), char(v >> 8), char(v)}; };
        auto chunk = [&](const std::string& type, const std::string& data) {
            const std::string body = type + data;
            return be32(std::uint32_t(data.size())) + body +
                   be32(std::uint32_t(crc32(0, reinterpret_cast<const Bytef*>(body.data()), uInt(body.size()))));
        };
        std::string row(1, '\0');  // filter: none
        for (std::uint16_t sample : samples) row += {char(sample >> 8), char(sample)};
        uLongf size = compressBound(uLong(row.size()));
        std::string compressed(size, '\0');
        compress(reinterpret_cast<Bytef*>(compressed.data()), &size, reinterpret_cast<const Bytef*>(row.data()),
                 uLong(row.size()));
        compressed.resize(size);
        return std::string("\x89PNG\r\n\x1a\n", 8) +
               chunk("IHDR", be32(width) + be32(1) + std::string{16, char(colorType), 0, 0, 0}) +
               chunk("IDAT", compressed) + chunk("IEND", "");
    };
    const struct {
        const char* what;
        std::string file;
        std::vector<std::uint8_t> rgba;  // premultiplied, as the codec gives them
    } cases[] = {
        {"RGB", png(2, {0x8080, 0x4040, 0xC0C0, 0xFFFF, 0x0000, 0x10FF}, 2),
         {0x80, 0x40, 0xC0, 0xFF, 0xFF, 0x00, 0x10, 0xFF}},
        {"gray and alpha", png(4, {0x8080, 0xFFFF, 0x40C0, 0x8000}, 2), {0x80, 0x80, 0x80, 0xFF, 0x20, 0x20, 0x20, 0x80}},
        {"RGBA", png(6, {0x8080, 0x4040, 0xC0C0, 0xFFFF}, 1), {0x80, 0x40, 0xC0, 0xFF}},
    };
    host::PngCodec codec;
    for (const auto& test : cases) {
        SCOPED_TRACE(test.what);
        auto bytes = reinterpret_cast<const std::uint8_t*>(test.file.data());
        PixelBufferPtr decoded = codec.decodePng(bytes, test.file.size());
        ASSERT_TRUE(decoded);
        ASSERT_EQ(decoded->width * decoded->height * 4, test.rgba.size());
        EXPECT_EQ(std::vector<std::uint8_t>(decoded->data, decoded->data + test.rgba.size()), test.rgba);
    }
}

}  // namespace
