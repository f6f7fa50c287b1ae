#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "Platform/Display.h"
#include "host/DeviceProfiles.h"

namespace tactora::host {

// One picture for the simulated screen: R, G, B, A pixels (premultiplied, as the codec gives
// them), bytes per row = width * 4.
struct Frame {
    std::vector<std::uint8_t> rgba;
    std::uint32_t width = 0;
    std::uint32_t height = 0;
};

// Where the simulated screen's pictures come from. Called once per capture, on the capturing
// thread; returns the frame to show now (null: a black screen).
using FrameSource = std::function<std::shared_ptr<const Frame>()>;

// The display of a simulated device: the profile's size in points and scale, and pictures from a
// replaceable frame source (PNG files now; scenes later). A frame of another size than the
// screen is drawn at the top-left corner, cut at the screen's edges; the rest is black.
class SimulatedDisplay final : public Display {
public:
    explicit SimulatedDisplay(DeviceProfile profile);

    Size bounds() const override;
    double scale() const override { return profile_.scale; }
    int interfaceOrientation() const override { return orientation_.load(std::memory_order_relaxed); }
    bool respondsToDisplayLink() const override { return true; }
    bool capture(std::uint8_t* pixels, std::int32_t width, std::int32_t height) override;

    void setFrameSource(FrameSource source);
    void setInterfaceOrientation(int orientation) { orientation_.store(orientation, std::memory_order_relaxed); }
    const DeviceProfile& profile() const { return profile_; }
    std::uint64_t captureCount() const { return captures_.load(std::memory_order_relaxed); }

private:
    DeviceProfile profile_;
    std::atomic<int> orientation_{1};
    std::atomic<std::uint64_t> captures_{0};
    mutable std::mutex mutex_;
    FrameSource source_;
};

// A frame source that shows `frames` one after the other: each capture takes the next one, and
// the last one stays once reached. With no frames the screen is black.
FrameSource sequenceOfFrames(std::vector<std::shared_ptr<const Frame>> frames);

// Reads a PNG file into a frame; sets `error` and returns null when it cannot.
std::shared_ptr<const Frame> loadFrame(const std::string& path, std::string& error);

// A frame of one colour 0xRRGGBB (tests, and a blank screen).
std::shared_ptr<const Frame> solidFrame(std::uint32_t width, std::uint32_t height, std::uint32_t color);

}  // namespace tactora::host
