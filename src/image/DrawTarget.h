#pragma once

#include <cstdint>

/// Where a walk over an image's tiles sends what it draws: a view's backing store, an
/// exported file, a test's buffer. Called on the thread that runs the walk (for views, the
/// drawing thread).
class DrawTarget {
public:
    virtual ~DrawTarget() = default;
    /// Receives the rectangle of image pixels with top-left (x, y), w x h pixels: `h` rows of
    /// `w` three-byte pixels (blue, green, red), `stride` bytes apart, a multiple of 4. The
    /// pixels are valid only during the call.
    virtual void DrawBits(std::int32_t x, std::int32_t y, std::int32_t w, std::int32_t h,
                          const std::uint8_t* rgb, std::int32_t stride) = 0;
};
