#include "host/SimulatedDisplay.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>

#include "host/PngCodec.h"

namespace tactora::host {

SimulatedDisplay::SimulatedDisplay(DeviceProfile profile) : profile_(std::move(profile)) {}

Display::Size SimulatedDisplay::bounds() const { return {profile_.widthPoints, profile_.heightPoints}; }

void SimulatedDisplay::setFrameSource(FrameSource source) {
    std::lock_guard lock(mutex_);
    source_ = std::move(source);
}

bool SimulatedDisplay::capture(std::uint8_t* pixels, std::int32_t width, std::int32_t height) {
    if (!pixels || width < 1 || height < 1) return false;
    FrameSource source;
    {
        std::lock_guard lock(mutex_);
        source = source_;
    }
    captures_.fetch_add(1, std::memory_order_relaxed);
    const std::shared_ptr<const Frame> frame = source ? source() : nullptr;
    const std::size_t rowBytes = static_cast<std::size_t>(width) * 4;
    const std::uint32_t w = frame ? std::min<std::uint32_t>(frame->width, static_cast<std::uint32_t>(width)) : 0;
    const std::uint32_t h = frame ? std::min<std::uint32_t>(frame->height, static_cast<std::uint32_t>(height)) : 0;
    for (std::int32_t y = 0; y < height; ++y) {
        std::uint8_t* to = pixels + static_cast<std::size_t>(y) * rowBytes;
        std::uint32_t x = 0;
        if (static_cast<std::uint32_t>(y) < h) {
            const std::uint8_t* from = frame->rgba.data() + static_cast<std::size_t>(y) * frame->width * 4;
            // R, G, B, A -> B, G, R, X (the unused byte is 255, as the render server leaves it).
            for (; x < w; ++x, from += 4, to += 4) {
                to[0] = from[2];
                to[1] = from[1];
                to[2] = from[0];
                to[3] = 0xFF;
            }
        }
        for (; x < static_cast<std::uint32_t>(width); ++x, to += 4) {
            to[0] = to[1] = to[2] = 0;
            to[3] = 0xFF;
        }
    }
    return true;
}

FrameSource sequenceOfFrames(std::vector<std::shared_ptr<const Frame>> frames) {
    auto next = std::make_shared<std::atomic<std::size_t>>(0);
    auto shared = std::make_shared<const std::vector<std::shared_ptr<const Frame>>>(std::move(frames));
    return [next, shared]() -> std::shared_ptr<const Frame> {
        if (shared->empty()) return nullptr;
        const std::size_t index = next->fetch_add(1, std::memory_order_relaxed);
        return (*shared)[std::min(index, shared->size() - 1)];
    };
}

std::shared_ptr<const Frame> loadFrame(const std::string& path, std::string& error) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        error = "cannot open " + path;
        return nullptr;
    }
    const std::vector<std::uint8_t> bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    PixelBufferPtr pixels = PngCodec().decodePng(bytes.data(), bytes.size());
    if (!pixels) {
        error = path + " is not a readable PNG file";
        return nullptr;
    }
    auto frame = std::make_shared<Frame>();
    frame->width = static_cast<std::uint32_t>(pixels->width);
    frame->height = static_cast<std::uint32_t>(pixels->height);
    frame->rgba.assign(pixels->data, pixels->data + pixels->bytesPerRow * pixels->height);
    return frame;
}

std::shared_ptr<const Frame> solidFrame(std::uint32_t width, std::uint32_t height, std::uint32_t color) {
    auto frame = std::make_shared<Frame>();
    frame->width = width;
    frame->height = height;
    frame->rgba.resize(static_cast<std::size_t>(width) * height * 4);
    for (std::size_t i = 0; i < frame->rgba.size(); i += 4) {
        frame->rgba[i] = static_cast<std::uint8_t>(color >> 16);
        frame->rgba[i + 1] = static_cast<std::uint8_t>(color >> 8);
        frame->rgba[i + 2] = static_cast<std::uint8_t>(color);
        frame->rgba[i + 3] = 0xFF;
    }
    return frame;
}

}  // namespace tactora::host
