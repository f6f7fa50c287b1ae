#pragma once

#include <cstdint>
#include <string>

#include "Kernel/PixelBuffer.h"
#include "Platform/Display.h"

namespace tactora {

class CaptureScreen {
public:
    // A new picture of the whole display as it is composed now, truncate(points x scale) pixels
    // in each direction. Empty when the display port cannot capture.
    static ScreenImage captureScreen();
};

// The capture as a new RGBA buffer (premultiplied alpha, which is 255 for a screen), bytes per
// row = width * 4. Null when out of memory; an empty image gives a 0 x 0 buffer.
PixelBuffer* getImageData(const ScreenImage& image);

// Release callback for pixel data handed to an image: frees `data`. `info` is not used.
void releasePixels(void* info, const void* data);

// Forgets the cached scale factor, so that the next get_screen_scale_factor asks the display
// again (tests, and a host that changes the simulated device).
void reset_screen_scale_factor();

// `path` as it lives on this machine: a device path is mapped through the paths port, a path that
// is already mapped is left alone.
std::string mappedScriptPath(const char* path);

}  // namespace tactora
