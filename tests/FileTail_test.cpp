#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "host/FileTail.h"

using tactora::host::FileTail;
namespace fs = std::filesystem;

namespace {

struct TailedFile {
    fs::path path = fs::temp_directory_path() / ("tactora-tail-" + std::to_string(getpid()) + "-" +
                                                 ::testing::UnitTest::GetInstance()->current_test_info()->name());
    std::vector<std::string> seen;
    ~TailedFile() { fs::remove(path); }
    void append(const std::string& text) { std::ofstream(path, std::ios::app) << text; }
    // A tail that only moves when the test polls it.
    std::unique_ptr<FileTail> follow(bool fromStart) {
        return std::make_unique<FileTail>(
            path.string(), [this](const std::vector<std::string>& lines) { seen.insert(seen.end(), lines.begin(), lines.end()); },
            fromStart, std::chrono::hours(1));
    }
};

using Lines = std::vector<std::string>;

}  // namespace

TEST(FileTail, HandsOverCompleteLinesOnlyAndHoldsBackAHalfWrittenOne) {
    TailedFile file;
    file.append("old line\n");
    auto tail = file.follow(false);
    tail->poll();
    EXPECT_TRUE(file.seen.empty());  // what was there before is not news

    file.append("first\nsec");
    tail->poll();
    EXPECT_EQ(file.seen, (Lines{"first"}));
    file.append("ond\r\nthird\n");
    tail->poll();
    tail->poll();  // nothing new: nothing handed over twice
    EXPECT_EQ(file.seen, (Lines{"first", "second", "third"}));
}

TEST(FileTail, WaitsForAFileThatDoesNotExistYetAndStartsOverWhenItIsReplacedOrCut) {
    TailedFile file;
    auto tail = file.follow(false);
    tail->poll();
    file.append("born\n");
    tail->poll();
    EXPECT_EQ(file.seen, (Lines{"born"}));

    std::ofstream(file.path, std::ios::trunc) << "cut\n";  // shorter than before
    tail->poll();
    EXPECT_EQ(file.seen, (Lines{"born", "cut"}));

    const fs::path other = file.path.string() + ".new";
    std::ofstream(other) << "replaced and much longer than before\n";
    fs::rename(other, file.path);
    tail->poll();
    EXPECT_EQ(file.seen.back(), "replaced and much longer than before");
}
