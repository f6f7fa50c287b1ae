#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "host/FileTail.h"

using tactora::host::FileTail;
namespace fs = std::filesystem;

namespace {

using Lines = std::vector<std::string>;

struct TailedFile {
    fs::path path = fs::temp_directory_path() / ("tactora-tail-" + std::to_string(getpid()));
    ~TailedFile() { fs::remove(path); }
    void append(const std::string& text) { std::ofstream(path, std::ios::app) << text; }
    // A tail that only moves when the test polls it.
    std::unique_ptr<FileTail> follow(Lines& seen) {
        return std::make_unique<FileTail>(
            path.string(), [&seen](const Lines& lines) { seen.insert(seen.end(), lines.begin(), lines.end()); }, false,
            std::chrono::hours(1));
    }
};

}  // namespace

TEST(FileTail, HandsOverWholeNewLinesAndStartsOverWhenTheFileIsBornCutOrReplaced) {
    TailedFile file;
    Lines early, late;
    auto waiting = file.follow(early);  // the file does not exist yet
    waiting->poll();
    file.append("born\n");
    auto fresh = file.follow(late);  // what is there already is not news to this one
    waiting->poll();
    fresh->poll();
    EXPECT_EQ(early, (Lines{"born"}));
    EXPECT_TRUE(late.empty());

    file.append("first\nsec");
    fresh->poll();
    EXPECT_EQ(late, (Lines{"first"}));
    file.append("ond\r\nthird\n");
    fresh->poll();
    fresh->poll();
    EXPECT_EQ(late, (Lines{"first", "second", "third"}));

    std::ofstream(file.path, std::ios::trunc) << "cut\n";  // shorter than before
    waiting->poll();
    EXPECT_EQ(early, (Lines{"born", "cut"}));
    const fs::path other = file.path.string() + ".new";
    std::ofstream(other) << "replaced and much longer than before\n";
    fs::rename(other, file.path);
    waiting->poll();
    EXPECT_EQ(early.back(), "replaced and much longer than before");
}
