#include "Kernel/ImageSearch.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string_view>
#include <vector>

#include "Kernel/CaptureScreen.h"
#include "Kernel/ImageSearchCounting.h"
#include "Kernel/LuaBridge.h"
#include "Kernel/ScreenFunctions.h"
#include "Kernel/SearchKernels.h"
#include "Platform/ImageCodec.h"
#include "Platform/Platform.h"

namespace tactora {

namespace {

// The search state. Plain values: one search at a time, on the script thread.
std::int32_t howManyLimit = 0;
std::int32_t toleranceBudget = 0;
std::uint8_t* ignoreColors = nullptr;  // 3 bytes per colour: R, G, B
std::int32_t ignoreCount = -1;

// Appends one point, growing the array to 16 and then by doubling. False when out of memory;
// the array is then freed.
bool appendPoint(MatchList* list, std::uint32_t& capacity, float x, float y) {
    if (static_cast<std::uint64_t>(list->count) == capacity) {
        const std::uint32_t grown = capacity == 0 ? 16 : capacity * 2;
        void* more = grown > capacity ? std::realloc(list->points, sizeof(MatchPoint) * grown) : nullptr;
        if (!more) {
            std::free(list->points);
            list->points = nullptr;
            return false;
        }
        list->points = static_cast<MatchPoint*>(more);
        capacity = grown;
    }
    list->points[list->count++] = MatchPoint{x, y};
    return true;
}

inline std::uint32_t get_rgb_at(const std::uint8_t* p) {
    std::uint32_t v;
    std::memcpy(&v, p, 4);
    return v & 0x00FFFFFFu;
}

inline std::uint32_t threeBytes(const std::uint8_t* p) {
    return static_cast<std::uint32_t>(p[0]) | static_cast<std::uint32_t>(p[1]) << 8 |
           static_cast<std::uint32_t>(p[2]) << 16;
}

}  // namespace

std::uint32_t hex_to_rgc(std::uint32_t v) { return ((v << 16) & 0xFF0000u) | (v & 0xFF00u) | ((v >> 16) & 0xFFu); }

std::uint32_t rgb_to_hex(std::uint32_t r, std::uint32_t g, std::uint32_t b) { return (r << 16) + (g << 8) + b; }

std::uint32_t get_rgb(const PixelBuffer* buffer, std::uint64_t x, std::uint64_t y) {
    return threeBytes(buffer->data + y * buffer->bytesPerRow + x * buffer->bytesPerPixel);
}

bool is_same_rgb(std::uint32_t a, std::uint32_t b) { return (a & 0xFFFFFFu) == (b & 0xFFFFFFu); }

bool is_ignore_color(std::uint32_t rgc) {
    if (ignoreCount < 1 || !ignoreColors) return false;
    for (std::int32_t i = 0; i < ignoreCount; ++i)
        if (threeBytes(ignoreColors + 3 * i) == (rgc & 0xFFFFFFu)) return true;
    return false;
}

void set_howmany(std::int32_t howMany) { howManyLimit = howMany; }

void set_tolerance(std::uint64_t width, std::uint64_t height, float fuzzy) {
    const float pixels = static_cast<float>(width * height);
    toleranceBudget = static_cast<std::int32_t>((1 - fuzzy) * pixels);
}

void set_no_tolerance() { toleranceBudget = 0; }

void set_ignore(const std::int32_t* list) {
    const std::int32_t n = list ? list[0] : 0;
    std::free(ignoreColors);
    ignoreColors = nullptr;
    ignoreCount = n;
    if (n < 1) return;
    ignoreColors = static_cast<std::uint8_t*>(std::malloc(3 * static_cast<std::size_t>(n)));
    if (!ignoreColors) {
        ignoreCount = -1;
        return;
    }
    for (std::int32_t i = 0; i < n; ++i) {
        const auto color = static_cast<std::uint32_t>(list[i + 1]);
        ignoreColors[3 * i] = static_cast<std::uint8_t>(color >> 16);
        ignoreColors[3 * i + 1] = static_cast<std::uint8_t>(color >> 8);
        ignoreColors[3 * i + 2] = static_cast<std::uint8_t>(color);
    }
}

void set_no_ignore() {
    // The list is owned by whoever set it; findImage frees it through release_ignore.
    ignoreColors = nullptr;
}

void release_ignore() {
    if (!ignoreColors) return;
    std::free(ignoreColors);
    ignoreColors = nullptr;
    ignoreCount = -1;
}

std::int32_t get_howmany() { return howManyLimit; }
std::int32_t get_tolerance() { return toleranceBudget; }
std::int32_t ignore_colors_count() { return ignoreCount; }

bool match(const PixelBuffer* screen, std::uint64_t x, std::uint64_t y, const PixelBuffer* templ) {
    if (templ->height < 1) return true;
    std::int32_t budget = toleranceBudget;
    const std::int32_t ignoring = ignoreCount;
    for (std::uint64_t ty = 0; ty < templ->height; ++ty) {
        const std::uint8_t* s = screen->data + (y + ty) * screen->bytesPerRow + x * screen->bytesPerPixel;
        const std::uint8_t* t = templ->data + ty * templ->bytesPerRow;
        for (std::uint64_t tx = 0; tx < templ->width; ++tx, s += screen->bytesPerPixel, t += templ->bytesPerPixel) {
            if (s[0] == t[0] && s[1] == t[1] && s[2] == t[2]) continue;
            if (ignoring >= 1 && (is_ignore_color(threeBytes(s)) || is_ignore_color(threeBytes(t)))) continue;
            if (budget < 1) return false;
            --budget;
        }
    }
    return true;
}

namespace {

// The template as the fast search wants it: packed 32-bit pixels, and with an ignore list, per
// pixel whether its colour counts (0x00FFFFFF) or is ignored (0).
struct PreparedTemplate {
    std::vector<std::uint32_t> pixels;
    std::vector<std::uint32_t> care;
    std::uint32_t width = 0;
    std::uint32_t height = 0;
};

bool prepare(const PixelBuffer* templ, bool ignoring, PreparedTemplate& prepared) {
    prepared.width = static_cast<std::uint32_t>(templ->width);
    prepared.height = static_cast<std::uint32_t>(templ->height);
    const std::size_t count = static_cast<std::size_t>(templ->width) * templ->height;
    prepared.pixels.resize(count);
    for (std::uint64_t y = 0; y < templ->height; ++y)
        std::memcpy(prepared.pixels.data() + y * templ->width, templ->data + y * templ->bytesPerRow, templ->width * 4);
    // Only the search with an ignore list looks at `care`.
    if (ignoring) {
        prepared.care.resize(count);
        for (std::size_t i = 0; i < count; ++i) prepared.care[i] = is_ignore_color(prepared.pixels[i]) ? 0 : 0x00FFFFFFu;
    }
    return true;
}

struct Anchor {
    std::uint32_t x = 0;
    std::uint32_t y = 0;
    std::uint32_t color = 0;
};

// Two template pixels whose colours are rare on this screen: a position can only match where
// both are there. Candidates are the template's least frequent colours; a sample of the screen
// decides among them.
std::pair<Anchor, Anchor> chooseAnchors(const PixelBuffer* screen, const PreparedTemplate& templ) {
    // Template colours and how often each occurs, in a small open-addressing table. Only the
    // first `limit` distinct colours are counted: a template with more has rare colours among
    // those already, and one with fewer (a flat patch with a detail) is counted exactly.
    struct Entry {
        std::uint32_t color = 0;
        std::uint32_t count = 0;  // 0: free slot
        std::uint32_t first = 0;
    };
    constexpr std::size_t slots = 256, limit = 64;
    Entry table[slots];
    std::size_t distinct = 0;
    const std::size_t n = templ.pixels.size();
    for (std::size_t i = 0; i < n; ++i) {
        const std::uint32_t color = templ.pixels[i] & 0x00FFFFFFu;
        for (std::size_t slot = (color * 2654435761u) >> 24;; slot = (slot + 1) & (slots - 1)) {
            Entry& entry = table[slot];
            if (entry.count && entry.color == color) {
                ++entry.count;
                break;
            }
            if (!entry.count) {
                if (distinct < limit) {
                    entry = Entry{color, 1, static_cast<std::uint32_t>(i)};
                    ++distinct;
                }
                break;
            }
        }
    }
    std::vector<Entry> candidates;
    candidates.reserve(distinct);
    for (const Entry& entry : table)
        if (entry.count) candidates.push_back(entry);
    // Ties go to the colour seen first, so the choice does not depend on the table's order.
    const std::size_t keep = std::min<std::size_t>(candidates.size(), 12);
    std::partial_sort(candidates.begin(), candidates.begin() + static_cast<std::ptrdiff_t>(keep), candidates.end(),
                      [](const Entry& a, const Entry& b) { return a.count != b.count ? a.count < b.count : a.first < b.first; });
    candidates.resize(keep);
    // How often each candidate occurs among about 4096 pixels spread over the screen.
    std::vector<std::uint32_t> onScreen(keep, 0);
    const std::uint64_t stepY = std::max<std::uint64_t>(1, screen->height / 64);
    const std::uint64_t stepX = std::max<std::uint64_t>(1, screen->width / 64) | 1;
    for (std::uint64_t y = stepY / 2; y < screen->height; y += stepY)
        for (std::uint64_t x = (y / stepY) % stepX; x < screen->width; x += stepX) {
            const std::uint32_t color = get_rgb(screen, x, y);
            for (std::size_t c = 0; c < keep; ++c) onScreen[c] += candidates[c].color == color;
        }
    std::vector<std::size_t> order(keep);
    for (std::size_t c = 0; c < keep; ++c) order[c] = c;
    std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) { return onScreen[a] < onScreen[b]; });
    auto anchorAt = [&](std::uint32_t index) {
        return Anchor{index % templ.width, index / templ.width, templ.pixels[index] & 0x00FFFFFFu};
    };
    const Anchor first = anchorAt(candidates[order[0]].first);
    // The second anchor: a pixel of the next rarest colour (of the same one, if there is only
    // one) on the row nearest the first anchor's, so that the two rows scanned together are
    // close in memory. Not the first anchor's own pixel, unless the template has only that one.
    const std::uint32_t secondColor = candidates[order[keep > 1 ? 1 : 0]].color;
    std::uint32_t best = candidates[order[keep > 1 ? 1 : 0]].first;
    std::uint64_t bestDistance = ~std::uint64_t{0};
    for (std::size_t i = 0; i < n; ++i) {
        if ((templ.pixels[i] & 0x00FFFFFFu) != secondColor || i == candidates[order[0]].first) continue;
        const auto y = static_cast<std::int64_t>(i / templ.width) - first.y;
        const auto x = static_cast<std::int64_t>(i % templ.width) - first.x;
        const std::uint64_t distance = static_cast<std::uint64_t>(y * y) * 65536 + static_cast<std::uint64_t>(x * x);
        if (distance < bestDistance) {
            bestDistance = distance;
            best = static_cast<std::uint32_t>(i);
        }
    }
    return {first, anchorAt(best)};
}

// Collects matches in order and applies the how-many limit after each position.
class Collector {
public:
    explicit Collector(MatchList* list) : list_(list) {}
    // False when out of memory.
    bool add(std::int64_t x, std::int64_t y) {
        return appendPoint(list_, capacity_, static_cast<float>(x * 0.5), static_cast<float>(y * 0.5));
    }
    bool full() const { return howManyLimit >= 1 && list_->count >= howManyLimit; }

private:
    MatchList* list_;
    std::uint32_t capacity_ = 0;
};

// Visits the positions of one row in order: every x < cols, or only those marked in `bits`.
// `visit` returns false to stop the search.
template <class Visit>
bool forEachMarked(const std::vector<std::uint64_t>& bits, std::int64_t cols, Visit&& visit) {
    for (std::size_t word = 0; word < bits.size(); ++word)
        for (std::uint64_t w = bits[word]; w; w &= w - 1) {
            const std::int64_t x = static_cast<std::int64_t>(word * 64 + static_cast<std::size_t>(std::countr_zero(w)));
            if (x >= cols) return true;
            if (!visit(x)) return false;
        }
    return true;
}

enum class Outcome { done, outOfMemory, stopped };

// Exact search without an ignore list: only positions where both anchors agree are compared.
Outcome searchByAnchors(const PixelBuffer* screen, const PreparedTemplate& templ, std::int64_t rows,
                        std::int64_t cols, Collector& found) {
    const SearchKernels& k = searchKernels();
    const auto [a, b] = chooseAnchors(screen, templ);
    std::vector<std::uint64_t> candidates(bitWords(static_cast<std::uint32_t>(cols)));
    bool memory = true;
    for (std::int64_t y = 0; y < rows; ++y) {
        if (stopRequested()) return Outcome::stopped;
        const std::uint8_t* row = screen->data + static_cast<std::uint64_t>(y) * screen->bytesPerRow;
        if (!k.pairHits(row + a.y * screen->bytesPerRow + a.x * 4, row + b.y * screen->bytesPerRow + b.x * 4, a.color,
                        b.color, static_cast<std::uint32_t>(cols), candidates.data()))
            continue;
        const bool goOn = forEachMarked(candidates, cols, [&](std::int64_t x) {
            if (k.withinBudget(row + static_cast<std::uint64_t>(x) * 4, screen->bytesPerRow, templ.pixels.data(),
                               templ.width, templ.height, 0)) {
                if (!found.add(x, y)) return memory = false;
                if (found.full()) return false;
            }
            return true;
        });
        if (!goOn) break;
    }
    return memory ? Outcome::done : Outcome::outOfMemory;
}

// Does the template match at `at` (its top-left pixel on the screen)? At most `budget` pixels
// may differ without an ignored colour on either side.
class PositionCheck {
public:
    PositionCheck(const PixelBuffer* screen, const PreparedTemplate& templ, std::int64_t budget, bool ignoring)
        : k_(searchKernels()), screen_(screen), templ_(templ), budget_(budget), ignoring_(ignoring),
          differing_(bitWords(templ.width)) {}
    bool operator()(const std::uint8_t* at) {
        if (!ignoring_)
            return k_.withinBudget(at, screen_->bytesPerRow, templ_.pixels.data(), templ_.width, templ_.height, budget_);
        // A pixel that differs counts unless the screen's colour is ignored (the template's ignored
        // colours are already out of `care`).
        std::int64_t left = budget_;
        for (std::uint32_t ty = 0; ty < templ_.height; ++ty, at += screen_->bytesPerRow) {
            const std::size_t offset = static_cast<std::size_t>(ty) * templ_.width;
            if (!k_.rowMismatchBits(at, templ_.pixels.data() + offset, templ_.care.data() + offset, templ_.width,
                                    differing_.data()))
                continue;
            const bool within = forEachMarked(differing_, templ_.width, [&](std::int64_t tx) {
                if (is_ignore_color(get_rgb_at(at + tx * 4))) return true;
                return --left >= 0;
            });
            if (!within) return false;
        }
        return true;
    }

private:
    const SearchKernels& k_;
    const PixelBuffer* screen_;
    const PreparedTemplate& templ_;
    std::int64_t budget_;
    bool ignoring_;
    std::vector<std::uint64_t> differing_;
};

// Every position, each with its own budget of `budget` differing pixels that are not ignored.
Outcome searchEveryPosition(const PixelBuffer* screen, const PreparedTemplate& templ, std::int64_t rows,
                            std::int64_t cols, std::int64_t budget, bool ignoring, Collector& found) {
    PositionCheck matches(screen, templ, budget, ignoring);
    for (std::int64_t y = 0; y < rows; ++y) {
        if (stopRequested()) return Outcome::stopped;
        const std::uint8_t* row = screen->data + static_cast<std::uint64_t>(y) * screen->bytesPerRow;
        for (std::int64_t x = 0; x < cols; ++x) {
            if (matches(row + static_cast<std::uint64_t>(x) * 4) && !found.add(x, y)) return Outcome::outOfMemory;
            if (found.full()) return Outcome::done;
        }
    }
    return Outcome::done;
}

// Nanoseconds per template pixel compared by the position-by-position search, roughly.
double comparisonCost(const SearchKernels& k) {
    const std::string_view name = k.name;
    if (name == "avx512") return 0.06;
    if (name == "avx2") return 0.1;
    if (name == "sse2" || name == "neon") return 0.2;
    return 1.0;
}

inline const std::uint8_t* pixelAt(const PixelBuffer* screen, std::int64_t x, std::int64_t y) {
    return screen->data + static_cast<std::uint64_t>(y) * screen->bytesPerRow + static_cast<std::uint64_t>(x) * 4;
}

// The search by counting equal pixels, when the cost model finds it cheaper; positions it cannot
// rule out are compared here.
Outcome searchByCounting(const PixelBuffer* screen, const PreparedTemplate& templ, std::int64_t rows, std::int64_t cols,
                         std::int64_t budget, bool ignoring, Collector& found, bool& declined) {
    CountingQuery query;
    query.screen = screen;
    query.templ = templ.pixels.data();
    query.care = ignoring ? templ.care.data() : nullptr;
    query.width = templ.width;
    query.height = templ.height;
    query.rows = rows;
    query.cols = cols;
    query.budget = budget;
    if (ignoring)
        for (std::int32_t i = 0; i < ignoreCount; ++i) query.ignored.push_back(threeBytes(ignoreColors + 3 * i));
    // Comparing position by position: one that does not match costs at least budget + 1
    // comparisons (whole rows are compared before the count is looked at), one that matches costs
    // every pixel. How many match comes from a sample of positions spread over the screen.
    PositionCheck matches(screen, templ, budget, ignoring);
    std::int64_t sampled = 0, matched = 0;
    const std::int64_t stepY = std::max<std::int64_t>(1, rows / 16), stepX = std::max<std::int64_t>(1, cols / 16);
    for (std::int64_t y = stepY / 2; y < rows; y += stepY)
        for (std::int64_t x = stepX / 2; x < cols; x += stepX, ++sampled)
            matched += matches(pixelAt(screen, x, y));
    const auto pixels = static_cast<double>(templ.pixels.size());
    const double fraction = static_cast<double>(matched) / static_cast<double>(sampled);
    const double perPosition =
        fraction * pixels + (1 - fraction) * std::min(pixels, static_cast<double>(budget + 1 + templ.width));
    // With a how-many limit, comparing ends after about limit / fraction positions.
    double tried = static_cast<double>(rows) * static_cast<double>(cols);
    if (howManyLimit >= 1 && matched > 0) tried = std::min(tried, howManyLimit / fraction);
    query.directNanoseconds = tried * perPosition * comparisonCost(searchKernels()) * (ignoring ? 2 : 1);
    bool memory = true;
    const CountingOutcome outcome = tactora::searchByCounting(query, [&](std::int64_t x, std::int64_t y, bool certain) {
        if (!certain && !matches(pixelAt(screen, x, y))) return true;
        if (!found.add(x, y)) return memory = false;
        return !found.full();
    });
    declined = outcome == CountingOutcome::declined;
    if (outcome == CountingOutcome::stopped) return Outcome::stopped;
    return memory ? Outcome::done : Outcome::outOfMemory;
}

// The position-by-position search in its plain form, for buffers that are not 4 bytes a pixel.
Outcome searchPlainly(const PixelBuffer* screen, const PixelBuffer* templ, std::int64_t rows, std::int64_t cols,
                      Collector& found) {
    for (std::int64_t y = 0; y < rows; ++y) {
        if (stopRequested()) return Outcome::stopped;
        for (std::int64_t x = 0; x < cols; ++x) {
            if (match(screen, static_cast<std::uint64_t>(x), static_cast<std::uint64_t>(y), templ) && !found.add(x, y))
                return Outcome::outOfMemory;
            if (found.full()) return Outcome::done;
        }
    }
    return Outcome::done;
}

}  // namespace

// The result is the plain one (every position in row-major order, each compared pixel by pixel
// with its own budget, stopping at the limit) computed faster: a position matches exactly when
// at most max(tolerance, 0) of its pixels differ without an ignored colour on either side, so
// the order of comparisons inside a position does not matter, and positions that cannot match
// need not be compared.
MatchList* xfindImage(const PixelBuffer* screen, const PixelBuffer* templ) {
    auto* list = static_cast<MatchList*>(std::calloc(1, sizeof(MatchList)));
    if (!list) return nullptr;
    const std::int64_t rows = static_cast<std::int64_t>(screen->height) - static_cast<std::int64_t>(templ->height);
    const std::int64_t cols = static_cast<std::int64_t>(screen->width) - static_cast<std::int64_t>(templ->width);
    if (rows < 1 || cols < 1) return list;
    Collector found(list);
    const bool ignoring = ignoreCount >= 1 && ignoreColors;
    const std::int64_t budget = std::max<std::int32_t>(toleranceBudget, 0);
    Outcome outcome;
    if (screen->bytesPerPixel != 4 || templ->bytesPerPixel != 4 || templ->width < 1 || templ->height < 1 ||
        templ->width > 0xFFFFFFFFu || templ->height > 0xFFFFFFFFu) {
        outcome = searchPlainly(screen, templ, rows, cols, found);
    } else {
        PreparedTemplate prepared;
        prepare(templ, ignoring, prepared);
        if (budget == 0 && !ignoring) {
            outcome = searchByAnchors(screen, prepared, rows, cols, found);
        } else {
            bool declined = false;
            outcome = searchByCounting(screen, prepared, rows, cols, budget, ignoring, found, declined);
            if (declined) outcome = searchEveryPosition(screen, prepared, rows, cols, budget, ignoring, found);
        }
    }
    if (outcome == Outcome::outOfMemory) {
        std::free(list);
        return nullptr;
    }
    // A run told to stop ends at once: the search found nothing.
    if (outcome == Outcome::stopped) {
        std::free(list->points);
        *list = MatchList{};
    }
    return list;
}

MatchList* findImage(const PixelBuffer* screen, const PixelBuffer* templ, std::int32_t howMany,
                     const std::int32_t* ignoreList, float fuzzy) {
    set_howmany(howMany);
    if (fuzzy > 0 && fuzzy <= 1)
        set_tolerance(templ->width, templ->height, fuzzy);
    else
        set_no_tolerance();
    if (ignoreList && ignoreList[0] >= 1)
        set_ignore(ignoreList);
    else
        set_no_ignore();
    MatchList* result = xfindImage(screen, templ);
    release_ignore();
    return result;
}

// --- the screen-level entry points -------------------------------------------------------------

std::uint32_t getColor(double x, double y) {
    const double s = get_screen_scale_factor();
    const ScreenImage image = CaptureScreen::captureScreen();
    const double width = image.empty() ? 0 : image.width;
    const double height = image.empty() ? 0 : image.height;
    if (s * x > width || s * y > height) return 0xFFFFFFFFu;
    // The byte index into the RGBA drawing of the capture. x = width / s passes the bound above
    // and reads the start of the next row; an index outside the pixels reads nothing.
    const double index = std::trunc(s * x * 4 + s * (width * 4) * y);
    if (!(index >= 0 && index + 3 <= width * height * 4)) return 0xFFFFFFFFu;
    const auto at = static_cast<std::size_t>(index);
    // Byte i of the RGBA drawing is channel i % 4 of pixel i / 4: R, G, B from bytes 2, 1, 0
    // of the B, G, R, X capture; alpha is 255.
    auto rgbaByte = [&](std::size_t i) -> std::uint32_t {
        static constexpr int source[4] = {2, 1, 0, -1};
        const int channel = source[i % 4];
        return channel < 0 ? 0xFFu : image.pixels[i / 4 * 4 + static_cast<std::size_t>(channel)];
    };
    return rgb_to_hex(rgbaByte(at), rgbaByte(at + 1), rgbaByte(at + 2));
}

MatchList* findColor(std::uint32_t color, std::int64_t howMany) {
    return findColorInCapture(CaptureScreen::captureScreen(), color, howMany);
}

MatchList* findColorInCapture(const ScreenImage& image, std::uint32_t color, std::int64_t howMany) {
    auto* list = static_cast<MatchList*>(std::malloc(sizeof(MatchList)));
    if (!list) return nullptr;
    *list = MatchList{};
    if (image.empty()) return list;
    // Searched in the capture itself, without drawing it into RGBA first: the B, G, R bytes read
    // little-endian are 0xRRGGBB, which is the colour as given, so the same pixels match.
    const std::uint32_t wanted = color & 0x00FFFFFFu;
    const SearchKernels& k = searchKernels();
    const auto width = static_cast<std::uint32_t>(image.width);
    std::vector<std::uint64_t> hits(bitWords(width));
    std::uint32_t capacity = 0;
    for (std::int32_t y = 0; y < image.height; ++y) {
        const std::uint8_t* row = image.pixels.get() + static_cast<std::size_t>(y) * image.bytesPerRow();
        if (!k.pairHits(row, row, wanted, wanted, width, hits.data())) continue;
        bool stop = false;
        for (std::size_t word = 0; word < hits.size() && !stop; ++word)
            for (std::uint64_t w = hits[word]; w; w &= w - 1) {
                const std::size_t x = word * 64 + static_cast<std::size_t>(std::countr_zero(w));
                if (!appendPoint(list, capacity, static_cast<float>(x * 0.5), static_cast<float>(y * 0.5f))) {
                    std::free(list);
                    return nullptr;
                }
                if (howMany >= 1 && list->count >= howMany) {
                    stop = true;
                    break;
                }
            }
        if (stop) break;
    }
    return list;
}

MatchList* findImageWrapper(const char* path, std::int64_t howMany, const std::int32_t* ignoreList, float fuzzy) {
    const ScreenImage image = CaptureScreen::captureScreen();
    std::vector<std::uint8_t> bytes;
    if (path) {
        std::ifstream file(mappedScriptPath(path), std::ios::binary);
        if (file) bytes.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }
    PixelBufferPtr templ = platform().imageCodec->decodePng(bytes.data(), bytes.size());
    // A template that cannot be read finds nothing.
    if (!templ) return static_cast<MatchList*>(std::calloc(1, sizeof(MatchList)));
    PixelBufferPtr screen(getImageData(image));
    if (!screen) return nullptr;
    return findImage(screen.get(), templ.get(), static_cast<std::int32_t>(howMany), ignoreList, fuzzy);
}

}  // namespace tactora
