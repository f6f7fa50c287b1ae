#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "FoundationFakes.h"
#include "host/FileTail.h"

using tactora::host::FileTail;
namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

TEST(FileTail, HandsOverWholeNewLinesAndStartsOverWhenTheFileIsBornCutOrReplaced) {
    tactora::testing::ScratchDirectory dir;
    const fs::path path = dir.path() / "trace.jsonl";
    auto append = [&](const std::string& text) { std::ofstream(path, std::ios::app) << text; };
    // A tail that only moves when the test polls it.
    auto follow = [&](Lines& seen) {
        return FileTail(path.string(), [&seen](const Lines& lines) { seen.insert(seen.end(), lines.begin(), lines.end()); },
                        false, std::chrono::hours(1));
    };
    Lines early, late;
    FileTail waiting = follow(early);  // the file does not exist yet
    waiting.poll();
    append("born\n");
    FileTail fresh = follow(late);  // what is there already is not news to this one
    waiting.poll();
    fresh.poll();
    EXPECT_EQ(early, (Lines{"born"}));
    EXPECT_TRUE(late.empty());

    append("first\nsec");
    fresh.poll();
    EXPECT_EQ(late, (Lines{"first"}));
    append("ond\r\nthird\n");
    fresh.poll();
    fresh.poll();
    EXPECT_EQ(late, (Lines{"first", "second", "third"}));

    std::ofstream(path, std::ios::trunc) << "cut\n";  // shorter than before
    waiting.poll();
    EXPECT_EQ(early, (Lines{"born", "cut"}));
    std::ofstream(dir.path() / "new") << "replaced and much longer than before\n";
    fs::rename(dir.path() / "new", path);
    waiting.poll();
    EXPECT_EQ(early.back(), "replaced and much longer than before");
}
