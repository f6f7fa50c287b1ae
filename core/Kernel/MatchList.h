#pragma once

#include <cstdint>
#include <cstdlib>
#include <memory>

namespace tactora {

struct MatchPoint {
    float x;
    float y;
};

// The result of a colour or image search: `count` points in the order found, in points of a
// two-pixels-per-point screen. `points` is null when nothing was found. Both the record and the
// array come from malloc; free with releaseMatchList.
struct MatchList {
    std::int64_t count = 0;
    MatchPoint* points = nullptr;
};

inline void releaseMatchList(MatchList* list) {
    if (!list) return;
    std::free(list->points);
    std::free(list);
}

struct MatchListDeleter {
    void operator()(MatchList* list) const { releaseMatchList(list); }
};
using MatchListPtr = std::unique_ptr<MatchList, MatchListDeleter>;

}  // namespace tactora
