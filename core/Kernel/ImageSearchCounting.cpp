#include "Kernel/ImageSearchCounting.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "Kernel/LuaBridge.h"

namespace tactora {

namespace {

std::atomic<CountingChoice> choice{CountingChoice::byCost};

// Rough costs in nanoseconds on one core, for choosing between the ways; only their ratios to
// each other and to the caller's estimate matter.
constexpr double labelCost = 2.0;      // per screen pixel: which template colour it is
constexpr double scatterCost = 1.5;    // per screen pixel and template pixel of one colour
constexpr double tableCost = 1.5;      // per screen pixel: one summed-area table
constexpr double rectangleCost = 0.8;  // per position and rectangle
constexpr double scanCost = 0.5;       // per position: zeroing, then reading the count

inline std::uint32_t colorAt(const std::uint8_t* p) {
    std::uint32_t v;
    std::memcpy(&v, p, 4);
    return v & 0x00FFFFFFu;
}

// Colour -> label (1-based index of the colour; 0: not one the search counts). Most screen
// colours are none of the template's: a bit per hash value in a table small enough for the
// cache turns those away before the hash table is probed.
class ColorTable {
public:
    explicit ColorTable(std::size_t entries) : seen_(std::size_t{1} << (seenBits - 6), 0) {
        std::size_t size = 16;
        while (size < 2 * entries) size *= 2;
        keys_.assign(size, empty);
        labels_.assign(size, 0);
        mask_ = size - 1;
    }
    // The label of `color`, inserting it with `label` when absent.
    std::uint16_t insert(std::uint32_t color, std::uint16_t label) {
        std::size_t slot = find(color);
        if (keys_[slot] == empty) {
            keys_[slot] = color;
            labels_[slot] = label;
            const std::uint32_t bit = seenBit(color);
            seen_[bit / 64] |= std::uint64_t{1} << (bit % 64);
        }
        return labels_[slot];
    }
    std::uint16_t label(std::uint32_t color) const {
        const std::uint32_t bit = seenBit(color);
        if (!(seen_[bit / 64] >> (bit % 64) & 1)) return 0;
        return labels_[find(color)];
    }

private:
    static constexpr unsigned seenBits = 21;  // 256 KB
    static std::uint32_t seenBit(std::uint32_t color) { return (color * 0x9E3779B1u) >> (32 - seenBits); }
    std::vector<std::uint64_t> seen_;
    static constexpr std::uint32_t empty = 0xFFFFFFFFu;  // never a colour: colours have 24 bits
    std::size_t find(std::uint32_t color) const {
        std::size_t slot = (color * 2654435761u >> 7) & mask_;
        while (keys_[slot] != empty && keys_[slot] != color) slot = (slot + 1) & mask_;
        return slot;
    }
    std::vector<std::uint32_t> keys_;
    std::vector<std::uint16_t> labels_;
    std::size_t mask_ = 0;
};

struct Rectangle {
    std::uint32_t x0, y0, x1, y1;  // template pixels [x0, x1) x [y0, y1)
};

// The pixels (indices, rows first) cut into rectangles: the runs of each row, a run continuing
// the rectangle above it when that one spans exactly the same columns.
std::vector<Rectangle> rectanglesOf(const std::uint32_t* pixels, std::size_t count, std::uint32_t width) {
    std::vector<Rectangle> done, open, next;  // open: those reaching the row before, by column
    std::size_t i = 0;
    while (i < count) {
        const std::uint32_t y = pixels[i] / width;
        if (!open.empty() && open.front().y1 != y) {  // a row without any: nothing continues
            done.insert(done.end(), open.begin(), open.end());
            open.clear();
        }
        std::size_t above = 0;
        next.clear();
        while (i < count && pixels[i] / width == y) {
            const std::uint32_t x0 = pixels[i] % width;
            std::uint32_t x1 = x0 + 1;
            for (++i; i < count && pixels[i] == pixels[i - 1] + 1 && pixels[i] / width == y; ++i) ++x1;
            while (above < open.size() && open[above].x0 < x0) done.push_back(open[above++]);
            if (above < open.size() && open[above].x0 == x0 && open[above].x1 == x1) {
                Rectangle r = open[above++];
                r.y1 = y + 1;
                next.push_back(r);
            } else {
                next.push_back(Rectangle{x0, y, x1, y + 1});
            }
        }
        while (above < open.size()) done.push_back(open[above++]);
        open.swap(next);
    }
    done.insert(done.end(), open.begin(), open.end());
    return done;
}

enum class Way : std::uint8_t { uncounted, scatter, rectangles, bounded };

// Screen-sized arrays that are not cleared up front: clearing megabytes at once would keep a stop
// waiting. Fresh pages from calloc read as zero and are touched row by row, between stop checks.
template <class T>
struct Plane {
    explicit Plane(std::size_t count, bool zeroed)
        : data(static_cast<T*>(zeroed ? std::calloc(count ? count : 1, sizeof(T))
                                      : std::malloc((count ? count : 1) * sizeof(T)))) {}
    ~Plane() { std::free(data); }
    Plane(const Plane&) = delete;
    Plane& operator=(const Plane&) = delete;
    T* data;
};

}  // namespace

void useCounting(CountingChoice chosen) { choice.store(chosen, std::memory_order_relaxed); }

CountingOutcome searchByCounting(const CountingQuery& q,
                                 const std::function<bool(std::int64_t, std::int64_t, bool)>& visit) {
    const CountingChoice mode = choice.load(std::memory_order_relaxed);
    if (mode == CountingChoice::never) return CountingOutcome::declined;
    const std::uint32_t tw = q.width, th = q.height;
    const std::size_t pixels = static_cast<std::size_t>(tw) * th;
    // The screen area any position covers, and the positions.
    const std::size_t areaWidth = static_cast<std::size_t>(q.cols) + tw - 1;
    const std::size_t areaHeight = static_cast<std::size_t>(q.rows) + th - 1;
    const std::size_t area = areaWidth * areaHeight, positions = static_cast<std::size_t>(q.rows * q.cols);
    const double fixedCost = labelCost * static_cast<double>(area) + scanCost * static_cast<double>(positions);
    if (mode == CountingChoice::byCost && fixedCost >= q.directNanoseconds) return CountingOutcome::declined;

    // The template's compared colours, each with its pixels (rows first); one more entry, when
    // there is an ignore list, for "an ignored colour on the screen" under every compared pixel.
    const bool ignoring = !q.ignored.empty();
    ColorTable table(std::min<std::size_t>(pixels, 65536) + q.ignored.size());
    std::vector<std::uint16_t> labelOf(pixels, 0);
    std::vector<std::uint32_t> templateCount(1, 0);
    std::size_t compared = 0;
    for (std::size_t i = 0; i < pixels; ++i) {
        if (q.care && !q.care[i]) continue;
        ++compared;
        const auto next = static_cast<std::uint16_t>(templateCount.size());
        if (next == 0xFFFF) return CountingOutcome::declined;  // more colours than labels
        const std::uint16_t label = table.insert(q.templ[i] & 0x00FFFFFFu, next);
        if (label == next) templateCount.push_back(0);
        labelOf[i] = label;
        ++templateCount[label];
    }
    const auto need = static_cast<std::int64_t>(compared) - q.budget;  // equal pixels a match needs
    std::uint16_t ignoredLabel = 0;
    if (ignoring) {
        ignoredLabel = static_cast<std::uint16_t>(templateCount.size());
        if (ignoredLabel == 0xFFFF) return CountingOutcome::declined;
        templateCount.push_back(static_cast<std::uint32_t>(compared));
        for (std::uint32_t color : q.ignored) table.insert(color & 0x00FFFFFFu, ignoredLabel);
    }
    const std::size_t labels = templateCount.size();
    // Each label's template pixels, rows first.
    std::vector<std::uint32_t> start(labels + 1, 0), members;
    for (std::size_t l = 0; l < labels; ++l) start[l + 1] = start[l] + templateCount[l];
    members.resize(start[labels]);
    {
        std::vector<std::uint32_t> fill(start.begin(), start.end() - 1);
        for (std::size_t i = 0; i < pixels; ++i) {
            if (labelOf[i]) members[fill[labelOf[i]]++] = static_cast<std::uint32_t>(i);
            if (ignoring && (!q.care || q.care[i])) members[fill[ignoredLabel]++] = static_cast<std::uint32_t>(i);
        }
    }

    // Which colour each screen pixel of the area is, and how often each occurs.
    Plane<std::uint16_t> screenLabel(area, false);
    if (!screenLabel.data) return CountingOutcome::declined;
    std::vector<std::uint64_t> screenCount(labels, 0);
    for (std::size_t y = 0; y < areaHeight; ++y) {
        if (stopRequested()) return CountingOutcome::stopped;
        const std::uint8_t* p = q.screen->data + y * q.screen->bytesPerRow;
        std::uint16_t* out = screenLabel.data + y * areaWidth;
        std::uint32_t last = 0xFFFFFFFFu;
        std::uint16_t lastLabel = 0;
        for (std::size_t x = 0; x < areaWidth; ++x, p += 4) {
            const std::uint32_t color = colorAt(p);
            if (color != last) {
                last = color;
                lastLabel = table.label(color);
            }
            out[x] = lastLabel;
            if (lastLabel) ++screenCount[lastLabel];
        }
    }

    // The way each colour is counted.
    std::vector<Way> way(labels, Way::uncounted);
    std::vector<std::vector<Rectangle>> rectangles(labels);
    double cost = (labelCost + scanCost) * static_cast<double>(area);
    std::int64_t uncounted = 0;  // template pixels assumed equal everywhere
    std::int64_t unsettled = 0;  // template pixels of the colours not counted exactly
    bool pigeonholes = false;
    const double window = static_cast<double>(pixels);
    for (std::size_t l = 1; l < labels; ++l) {
        const double scatter = scatterCost * static_cast<double>(screenCount[l]) * templateCount[l];
        Way chosen = Way::scatter;
        switch (mode) {
        case CountingChoice::scatter: break;
        case CountingChoice::rectangles: chosen = Way::rectangles; break;
        case CountingChoice::bounded: chosen = Way::bounded; break;
        case CountingChoice::mixed: chosen = static_cast<Way>(l % 4); break;
        default:
            if (scatter > tableCost * static_cast<double>(area)) {
                // Rectangles can only be cheaper when the table alone is.
                rectangles[l] = rectanglesOf(members.data() + start[l], templateCount[l], tw);
                const double counted = tableCost * static_cast<double>(area) +
                                       rectangleCost * static_cast<double>(positions) * static_cast<double>(rectangles[l].size());
                if (counted < scatter) chosen = Way::rectangles;
            }
            break;
        }
        if (chosen == Way::rectangles && rectangles[l].empty())
            rectangles[l] = rectanglesOf(members.data() + start[l], templateCount[l], tw);
        const double tableAndWindow = (tableCost + rectangleCost) * static_cast<double>(area);
        double wayCost = chosen == Way::scatter    ? scatter
                         : chosen == Way::bounded ? tableAndWindow
                         : chosen == Way::rectangles
                             ? tableCost * static_cast<double>(area) +
                                   rectangleCost * static_cast<double>(positions) * static_cast<double>(rectangles[l].size())
                             : 0;
        // A colour dearer to count than comparing position by position is only bounded, by how
        // often it occurs under the template at each position: the bound may still settle enough.
        if (mode == CountingChoice::byCost && wayCost > q.directNanoseconds) {
            chosen = Way::bounded;
            wayCost = tableAndWindow;
        }
        way[l] = chosen;
        cost += wayCost;
        if (chosen == Way::uncounted || chosen == Way::bounded) unsettled += templateCount[l];
        if (chosen == Way::uncounted) uncounted += templateCount[l];
        // Where the screen has this colour about as often as on average, do its template pixels
        // certainly fall on it? (More of them and of the window's screen pixels than the window.)
        if (chosen == Way::bounded &&
            templateCount[l] + window * static_cast<double>(screenCount[l]) / static_cast<double>(area) > window)
            pigeonholes = true;
    }
    // Declined when the bounds could neither rule positions out nor settle them.
    if (mode == CountingChoice::byCost && (cost >= q.directNanoseconds || (unsettled >= need && !pigeonholes)))
        return CountingOutcome::declined;

    // The counts, position by position.
    const auto cols = static_cast<std::size_t>(q.cols), rows = static_cast<std::size_t>(q.rows);
    Plane<std::uint32_t> equal(positions, true);
    if (!equal.data) return CountingOutcome::declined;
    // Scattering: one pass over the screen for every scattered colour.
    bool anyScatter = false;
    for (std::size_t l = 1; l < labels; ++l) anyScatter = anyScatter || (way[l] == Way::scatter && screenCount[l]);
    for (std::size_t y = 0; anyScatter && y < areaHeight; ++y) {
        if (stopRequested()) return CountingOutcome::stopped;
        const std::uint16_t* in = screenLabel.data + y * areaWidth;
        for (std::size_t x = 0; x < areaWidth; ++x) {
            const std::uint16_t l = in[x];
            if (!l || way[l] != Way::scatter) continue;
            for (std::uint32_t k = start[l]; k < start[l + 1]; ++k) {
                const std::size_t tx = members[k] % tw, ty = members[k] / tw;
                // The position that puts template pixel (tx, ty) on screen pixel (x, y).
                if (tx > x || ty > y || x - tx >= cols || y - ty >= rows) continue;
                ++equal.data[(y - ty) * cols + (x - tx)];
            }
        }
    }
    // Rectangles: a summed-area table of the colour, then four reads per rectangle and position.
    // Bounded colours: from the same table, the number w of the colour's screen pixels in the
    // window at each position; its t template pixels then fall on it at least t + w - window
    // times and at most min(t, w) times.
    std::unique_ptr<Plane<std::uint32_t>> summed, least, most;
    for (std::size_t l = 1; l < labels; ++l)
        if (way[l] == Way::bounded && screenCount[l] && !least) {
            least = std::make_unique<Plane<std::uint32_t>>(positions, true);
            most = std::make_unique<Plane<std::uint32_t>>(positions, true);
            if (!least->data || !most->data) return CountingOutcome::declined;
        }
    const std::size_t stride = areaWidth + 1;
    for (std::size_t l = 1; l < labels; ++l) {
        if ((way[l] != Way::rectangles && way[l] != Way::bounded) || !screenCount[l]) continue;
        // Row 0 and column 0 are zero; every other entry is written before it is read.
        if (!summed) summed = std::make_unique<Plane<std::uint32_t>>(stride * (areaHeight + 1), false);
        std::uint32_t* sums = summed->data;
        if (!sums) return CountingOutcome::declined;
        std::fill(sums, sums + stride, 0u);
        const auto wanted = static_cast<std::uint16_t>(l);
        for (std::size_t y = 0; y < areaHeight; ++y) {
            if (stopRequested()) return CountingOutcome::stopped;
            const std::uint16_t* in = screenLabel.data + y * areaWidth;
            const std::uint32_t* above = sums + y * stride;
            std::uint32_t* out = sums + (y + 1) * stride;
            out[0] = 0;
            std::uint32_t run = 0;
            for (std::size_t x = 0; x < areaWidth; ++x) {
                run += in[x] == wanted;
                out[x + 1] = above[x + 1] + run;
            }
        }
        if (way[l] == Way::bounded) {
            const std::uint32_t t = templateCount[l];
            const auto all = static_cast<std::uint32_t>(pixels);
            for (std::size_t y = 0; y < rows; ++y) {
                if (stopRequested()) return CountingOutcome::stopped;
                const std::uint32_t* top = sums + y * stride;
                const std::uint32_t* bottom = sums + (y + th) * stride;
                std::uint32_t* low = least->data + y * cols;
                std::uint32_t* high = most->data + y * cols;
                for (std::size_t x = 0; x < cols; ++x) {
                    const std::uint32_t w = bottom[x + tw] - bottom[x] - top[x + tw] + top[x];
                    low[x] += t + w > all ? t + w - all : 0;
                    high[x] += std::min(t, w);
                }
            }
            continue;
        }
        for (std::size_t y = 0; y < rows; ++y) {
            if (stopRequested()) return CountingOutcome::stopped;
            std::uint32_t* out = equal.data + y * cols;
            for (const Rectangle& r : rectangles[l]) {
                const std::uint32_t* top = sums + (y + r.y0) * stride;
                const std::uint32_t* bottom = sums + (y + r.y1) * stride;
                for (std::size_t x = 0; x < cols; ++x)
                    out[x] += bottom[x + r.x1] - bottom[x + r.x0] - top[x + r.x1] + top[x + r.x0];
            }
        }
    }

    // The positions, rows first: out when even the most equal pixels fall short, certain when
    // the fewest already reach what a match needs (uncounted colours may add nothing).
    for (std::size_t y = 0; y < rows; ++y) {
        if (stopRequested()) return CountingOutcome::stopped;
        const std::uint32_t* in = equal.data + y * cols;
        const std::uint32_t* low = least ? least->data + y * cols : nullptr;
        const std::uint32_t* high = most ? most->data + y * cols : nullptr;
        for (std::size_t x = 0; x < cols; ++x) {
            const std::int64_t exact = in[x];
            if (exact + uncounted + (high ? high[x] : 0) < need) continue;
            if (!visit(static_cast<std::int64_t>(x), static_cast<std::int64_t>(y), exact + (low ? low[x] : 0) >= need))
                return CountingOutcome::done;
        }
    }
    return CountingOutcome::done;
}

}  // namespace tactora
