// The colour and image search on screens of an iPhone 12 Pro Max class display (1170 x 2532):
// an app-like screen (flat backgrounds, list cells with small detailed icons and text) and a
// screen of noise; templates of 48 x 48 and 128 x 128 that are absent, present once, or a near
// miss (a flat patch of the background colour with one differing pixel; on noise, a cut-out
// with one pixel changed).
//
// FindImage/.../fast/screen is the production search on the whole screen; its time against
// FindImage/.../opencv/screen (OpenCV's matchTemplate, same screen and template; its time does not
// depend on the fuzziness) is the figure to keep below 1. FindImage/.../direct/screen is the
// position-by-position comparison alone, which the search by counting replaces where it is dearer.
// BM_StopInFuzzySearch: time from a stop to the end of a whole-screen fuzzy 0.5 search with a
// 128 x 128 template, with its 99th percentile.
//
// The plain reference is slow enough that it runs on a strip of the screen (1170 x 400 rows,
// which holds two list cells); the production search runs on the same strip for the ratio and on
// the whole screen for its absolute time. Compare items_per_second (positions searched).
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <thread>
#include <random>
#include <string>
#include <vector>

#include "../tests/ImageSearchReference.h"
#include "Kernel/CaptureScreen.h"
#include "Kernel/ImageSearch.h"
#include "Kernel/ImageSearchCounting.h"
#include "Kernel/LuaBridge.h"
#include "Kernel/SearchKernels.h"
#include "Platform/Clock.h"
#include "Platform/Platform.h"
#include "host/HostPaths.h"

#ifdef TACTORA_BENCH_OPENCV
#include <opencv2/imgproc.hpp>
#endif

using namespace tactora;

namespace {

constexpr std::uint32_t screenWidth = 1170, screenHeight = 2532, stripTop = 600, stripHeight = 400;
constexpr std::uint32_t background = 0xF2F2F7, cellColor = 0xFFFFFF;

struct Image {
    std::vector<std::uint8_t> rgba;
    std::uint32_t width = 0, height = 0;
    PixelBuffer view() { return PixelBuffer{rgba.data(), width, height, width * 4ull, 4}; }
    void set(std::uint32_t x, std::uint32_t y, std::uint32_t color) {
        std::uint8_t* p = &rgba[(static_cast<std::size_t>(y) * width + x) * 4];
        p[0] = color >> 16 & 0xFF;
        p[1] = color >> 8 & 0xFF;
        p[2] = color & 0xFF;
        p[3] = 0xFF;
    }
    void fill(std::uint32_t x, std::uint32_t y, std::uint32_t w, std::uint32_t h, std::uint32_t color) {
        for (std::uint32_t row = y; row < y + h; ++row)
            for (std::uint32_t column = x; column < x + w; ++column) set(column, row, color);
    }
    Image crop(std::uint32_t x, std::uint32_t y, std::uint32_t w, std::uint32_t h) const {
        Image out{std::vector<std::uint8_t>(static_cast<std::size_t>(w) * h * 4), w, h};
        for (std::uint32_t row = 0; row < h; ++row)
            std::memcpy(&out.rgba[static_cast<std::size_t>(row) * w * 4], &rgba[((y + row) * static_cast<std::size_t>(width) + x) * 4], w * 4);
        return out;
    }
};

Image blank(std::uint32_t w, std::uint32_t h, std::uint32_t color) {
    Image image{std::vector<std::uint8_t>(static_cast<std::size_t>(w) * h * 4), w, h};
    image.fill(0, 0, w, h, color);
    return image;
}

// A detailed icon: a gradient under noise, different for every seed.
void drawIcon(Image& image, std::uint32_t x, std::uint32_t y, std::uint32_t side, std::mt19937& rng) {
    for (std::uint32_t row = 0; row < side; ++row)
        for (std::uint32_t column = 0; column < side; ++column) {
            const std::uint32_t r = (column * 255 / side + rng() % 24) & 0xFF, g = (row * 255 / side + rng() % 24) & 0xFF;
            image.set(x + column, y + row, r << 16 | g << 8 | (rng() & 0xFF));
        }
}

Image appScreen() {
    std::mt19937 rng(1);
    Image image = blank(screenWidth, screenHeight, background);
    image.fill(0, 0, screenWidth, 140, cellColor);  // status and navigation bar
    for (std::uint32_t top = 200; top + 200 <= screenHeight; top += 200) {
        image.fill(0, top, screenWidth, 180, cellColor);
        image.fill(0, top + 180, screenWidth, 2, 0xC6C6C8);
        drawIcon(image, 40, top + 30, 120, rng);
        // Text: short runs of grey levels, as anti-aliased glyphs leave them.
        for (std::uint32_t line = 0; line < 3; ++line)
            for (std::uint32_t x = 200; x < 900; ++x)
                for (std::uint32_t row = 0; row < 20; ++row)
                    if (rng() % 3 == 0) image.set(x, top + 40 + line * 40 + row, 0x101010 * (rng() % 12));
        image.fill(980, top + 60, 150, 60, 0x007AFF);  // a flat button
    }
    return image;
}

Image noiseScreen() {
    std::mt19937 rng(2);
    Image image = blank(screenWidth, screenHeight, 0);
    for (std::uint32_t y = 0; y < screenHeight; ++y)
        for (std::uint32_t x = 0; x < screenWidth; ++x) image.set(x, y, rng() & 0xFFFFFF);
    return image;
}

struct Scenario {
    Image screen, strip;
    std::map<std::string, Image> templates;  // "absent48", "once128", "nearmiss48", ...
};

Scenario makeScenario(bool noise) {
    Scenario s;
    s.screen = noise ? noiseScreen() : appScreen();
    s.strip = s.screen.crop(0, stripTop, screenWidth, stripHeight);
    std::mt19937 rng(3);
    for (std::uint32_t side : {48u, 128u}) {
        const std::string n = std::to_string(side);
        // Present once, inside the strip: the icon of the cell at 800 (noise: anywhere).
        s.templates["once" + n] = noise ? s.screen.crop(500, stripTop + 100, side, side)
                                        : s.screen.crop(side == 48 ? 70 : 36, 800 + (side == 48 ? 60 : 26), side, side);
        Image absent = blank(side, side, cellColor);
        drawIcon(absent, 0, 0, side, rng);
        s.templates["absent" + n] = absent;
        Image near = noise ? s.screen.crop(300, stripTop + 50, side, side) : blank(side, side, cellColor);
        near.set(side / 2, side / 2, noise ? 0x000001 : 0xFFFFFE);
        s.templates["nearmiss" + n] = near;
    }
    return s;
}

Scenario& scenario(bool noise) {
    static Scenario app = makeScenario(false), random = makeScenario(true);
    return noise ? random : app;
}

const std::int32_t noIgnore[] = {0};

void positions(benchmark::State& state, const Image& screen, const Image& templ) {
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * (screen.width - templ.width) *
                            (screen.height - templ.height));
}

void registerSearches() {
    for (bool noise : {false, true})
        for (const char* kind : {"absent", "once", "nearmiss"})
            for (int side : {48, 128})
                for (float fuzzy : {1.0f, 0.9f, 0.5f}) {
                    const std::string name = std::string(noise ? "noise" : "app") + "/" + kind + std::to_string(side) +
                                             "/" + (fuzzy == 1 ? "exact" : fuzzy == 0.9f ? "fuzzy0.9" : "fuzzy0.5");
                    const std::string key = kind + std::to_string(side);
                    benchmark::RegisterBenchmark(("FindImage/" + name + "/fast/screen").c_str(), [=](benchmark::State& state) {
                        Scenario& s = scenario(noise);
                        PixelBuffer screen = s.screen.view(), templ = s.templates[key].view();
                        std::int64_t found = 0;
                        for (auto _ : state) {
                            MatchListPtr list(findImage(&screen, &templ, 0, noIgnore, fuzzy));
                            found = list ? list->count : -1;
                        }
                        state.counters["found"] = static_cast<double>(found);
                        positions(state, s.screen, s.templates[key]);
                    })->Unit(benchmark::kMillisecond);
                    if (fuzzy != 1.0f)
                        benchmark::RegisterBenchmark(("FindImage/" + name + "/direct/screen").c_str(), [=](benchmark::State& state) {
                            Scenario& s = scenario(noise);
                            PixelBuffer screen = s.screen.view(), templ = s.templates[key].view();
                            useCounting(CountingChoice::never);
                            std::int64_t found = 0;
                            for (auto _ : state) {
                                MatchListPtr list(findImage(&screen, &templ, 0, noIgnore, fuzzy));
                                found = list ? list->count : -1;
                            }
                            useCounting(CountingChoice::byCost);
                            state.counters["found"] = static_cast<double>(found);
                            positions(state, s.screen, s.templates[key]);
                        })->Unit(benchmark::kMillisecond)->Iterations(1);
                    benchmark::RegisterBenchmark(("FindImage/" + name + "/fast/strip").c_str(), [=](benchmark::State& state) {
                        Scenario& s = scenario(noise);
                        PixelBuffer screen = s.strip.view(), templ = s.templates[key].view();
                        std::int64_t found = 0;
                        for (auto _ : state) {
                            MatchListPtr list(findImage(&screen, &templ, 0, noIgnore, fuzzy));
                            found = list ? list->count : -1;
                        }
                        state.counters["found"] = static_cast<double>(found);
                        positions(state, s.strip, s.templates[key]);
                    })->Unit(benchmark::kMillisecond);
                    benchmark::RegisterBenchmark(("FindImage/" + name + "/reference/strip").c_str(), [=](benchmark::State& state) {
                        Scenario& s = scenario(noise);
                        PixelBuffer screen = s.strip.view(), templ = s.templates[key].view();
                        std::size_t found = 0;
                        for (auto _ : state) found = reference::findImage(screen, templ, 0, {0}, fuzzy).size();
                        state.counters["found"] = static_cast<double>(found);
                        positions(state, s.strip, s.templates[key]);
                    })->Unit(benchmark::kMillisecond)->Iterations(1);
#ifdef TACTORA_BENCH_OPENCV
                    if (fuzzy == 1.0f)
                        benchmark::RegisterBenchmark(("FindImage/" + name + "/opencv/screen").c_str(), [=](benchmark::State& state) {
                            Scenario& s = scenario(noise);
                            Image& t = s.templates[key];
                            cv::Mat screen(s.screen.height, s.screen.width, CV_8UC4, s.screen.rgba.data());
                            cv::Mat templ(t.height, t.width, CV_8UC4, t.rgba.data()), screen3, templ3, scores, hits;
                            cv::cvtColor(templ, templ3, cv::COLOR_RGBA2RGB);
                            for (auto _ : state) {
                                cv::cvtColor(screen, screen3, cv::COLOR_RGBA2RGB);
                                cv::matchTemplate(screen3, templ3, scores, cv::TM_SQDIFF);
                                cv::threshold(scores, hits, 0.5, 1, cv::THRESH_BINARY_INV);
                                benchmark::DoNotOptimize(cv::countNonZero(hits));
                            }
                            positions(state, s.screen, t);
                        })->Unit(benchmark::kMillisecond);
#endif
                }
}

// --- a stop inside a search ---------------------------------------------------------------------

// Pauses are skipped.
class NoPauses final : public Clock {
public:
    void sleepMicroseconds(std::uint32_t) override {}
};

// A bridge that runs empty chunks (each one forgets the previous stop) in an empty device tree.
struct StopDevice {
    StopDevice() : root(std::filesystem::temp_directory_path() / "tactora-bench-stop"), paths(root.string()) {
        std::filesystem::create_directories(root / "Applications/Tactora.app");
        std::ofstream(root / "Applications/Tactora.app/Extensions.lua") << "";
        platform().paths = &paths;
        platform().clock = &clock;
    }
    ~StopDevice() {
        std::error_code ignored;
        std::filesystem::remove_all(root, ignored);
    }
    ScopedPlatform scope;
    std::filesystem::path root;
    host::HostPaths paths;
    NoPauses clock;
};

// Arg 0: the search as it chooses; 1: position by position. The stop lands at a random moment
// in the first half of the search (at most 200 ms in); the time is from the stop to the search's
// return. Stops that land after the search ended (it was quicker this time) are not counted.
void BM_StopInFuzzySearch(benchmark::State& state) {
    using Steady = std::chrono::steady_clock;
    const bool direct = state.range(0) == 1;
    Scenario& s = scenario(false);
    PixelBuffer screen = s.screen.view(), templ = s.templates["absent128"].view();
    StopDevice device;
    LuaBridge bridge;
    useCounting(direct ? CountingChoice::never : CountingChoice::byCost);
    // How long the search takes without a stop: stops land inside it.
    bridge.runLuaString("");
    auto start = Steady::now();
    MatchListPtr(findImage(&screen, &templ, 0, noIgnore, 0.5f));
    const auto whole = Steady::now() - start;
    const auto window = std::min<Steady::duration>(whole / 2, std::chrono::milliseconds(200));
    std::mt19937 rng(5);
    std::vector<double> latencies;
    for (auto _ : state) {
        bridge.runLuaString("");
        const auto delay = Steady::duration(static_cast<Steady::rep>(rng() % static_cast<std::uint64_t>(window.count())));
        Steady::time_point stoppedAt{};
        std::thread stopper([&] {
            std::this_thread::sleep_for(delay);
            stoppedAt = Steady::now();
            bridge.stopLuaRunning();
        });
        MatchListPtr list(findImage(&screen, &templ, 0, noIgnore, 0.5f));
        const auto returned = Steady::now();
        stopper.join();
        const double latency = std::chrono::duration<double>(returned - stoppedAt).count();
        if (latency >= 0) latencies.push_back(latency);
        state.SetIterationTime(std::max(0.0, latency));
    }
    useCounting(CountingChoice::byCost);
    bridge.runLuaString("");
    std::sort(latencies.begin(), latencies.end());
    state.counters["landed"] = static_cast<double>(latencies.size());
    if (latencies.empty()) return;
    state.counters["search_ms"] = std::chrono::duration<double, std::milli>(whole).count();
    state.counters["p50_ms"] = latencies[latencies.size() / 2] * 1000;
    state.counters["p99_ms"] = latencies[std::min(latencies.size() - 1, latencies.size() * 99 / 100)] * 1000;
}
BENCHMARK(BM_StopInFuzzySearch)->Arg(0)->Arg(1)->UseManualTime()->Iterations(100)->Unit(benchmark::kMillisecond);

// --- whole-frame passes against a plain copy of the frame ----------------------------------------

ScreenImage captureOf(const Image& image) {
    ScreenImage capture;
    capture.width = static_cast<std::int32_t>(image.width);
    capture.height = static_cast<std::int32_t>(image.height);
    capture.pixels.reset(new std::uint8_t[capture.byteCount()]);
    for (std::size_t i = 0; i < image.rgba.size(); i += 4) {
        capture.pixels[i] = image.rgba[i + 2];
        capture.pixels[i + 1] = image.rgba[i + 1];
        capture.pixels[i + 2] = image.rgba[i];
        capture.pixels[i + 3] = 0xFF;
    }
    return capture;
}

void frameBytes(benchmark::State& state) {
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * screenWidth * screenHeight * 4);
}

void BM_MemcpyFrame(benchmark::State& state) {
    const ScreenImage capture = captureOf(scenario(false).screen);
    std::vector<std::uint8_t> copy(capture.byteCount());
    for (auto _ : state) {
        std::memcpy(copy.data(), capture.pixels.get(), capture.byteCount());
        benchmark::ClobberMemory();
    }
    frameBytes(state);
}
BENCHMARK(BM_MemcpyFrame)->Unit(benchmark::kMillisecond);

void BM_BgrxToRgba(benchmark::State& state) {
    const ScreenImage capture = captureOf(scenario(false).screen);
    std::vector<std::uint8_t> rgba(capture.byteCount());
    for (auto _ : state) {
        searchKernels().bgrxToRgba(capture.pixels.get(), rgba.data(), capture.byteCount() / 4);
        benchmark::ClobberMemory();
    }
    frameBytes(state);
}
BENCHMARK(BM_BgrxToRgba)->Unit(benchmark::kMillisecond);

// getImageData as the search uses it: a fresh buffer every time, then the conversion.
void BM_GetImageData(benchmark::State& state) {
    const ScreenImage capture = captureOf(scenario(false).screen);
    for (auto _ : state) {
        PixelBufferPtr buffer(getImageData(capture));
        benchmark::DoNotOptimize(buffer->data);
    }
    frameBytes(state);
}
BENCHMARK(BM_GetImageData)->Unit(benchmark::kMillisecond);

// The whole screen for a colour that is absent (every pixel scanned), and for the cells' white
// (hundreds of thousands of points).
void BM_FindColor(benchmark::State& state) {
    const bool common = state.range(0) != 0;
    const ScreenImage capture = captureOf(scenario(false).screen);
    std::int64_t found = 0;
    for (auto _ : state) {
        MatchListPtr list(findColorInCapture(capture, common ? cellColor : 0x123456, 0));
        found = list->count;
    }
    state.counters["found"] = static_cast<double>(found);
    frameBytes(state);
}
BENCHMARK(BM_FindColor)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

void BM_FindColorReference(benchmark::State& state) {
    Image& screen = scenario(false).screen;
    PixelBuffer view = screen.view();
    for (auto _ : state) benchmark::DoNotOptimize(reference::findColor(view, 0x123456, 0).size());
    frameBytes(state);
}
BENCHMARK(BM_FindColorReference)->Unit(benchmark::kMillisecond);

const int registered = (registerSearches(), 0);

}  // namespace
