#include "image/Buffer.h"

ThumbBuffer::ThumbBuffer(std::int32_t width, std::int32_t height, ColourPOD* rgb,
                         const ThumbSettings& settings)
    : width_(width), height_(height), rgb_(rgb), settings_(settings) {
    if (settings_.outline) {
        mask_.assign(static_cast<std::size_t>(width_) * static_cast<std::size_t>(height_), 0);
    }
}

void ThumbBuffer::putRow(std::int32_t row, const double*, const std::uint32_t* covered,
                         const std::uint8_t* colours, const MaterialId*) {
    if (row < 0 || row >= height_) {
        return;
    }
    ColourPOD* out = rgb_ + static_cast<std::size_t>(row) * width_;
    if (!settings_.outline) {
        for (std::int32_t x = 0; x < width_; ++x) {
            if (covered[x]) {
                out[x] = ColourPOD{colours[4 * x], colours[4 * x + 1], colours[4 * x + 2]};
            }
        }
        return;
    }
    std::uint8_t* mask = mask_.data() + static_cast<std::size_t>(row) * width_;
    for (std::int32_t x = 0; x < width_; ++x) {
        mask[x] = covered[x] && colours[4 * x + 3] > 127 ? 1 : 0;
    }
    // Rows come top down: a set pixel is inside when the pixels above and to its left are
    // set too, and is then filled; the others are the outline.
    for (std::int32_t x = 0; x < width_; ++x) {
        if (mask[x]) {
            const bool inside = set(x - 1, row) && set(x, row - 1);
            out[x] = inside ? settings_.fillColour : settings_.outlineColour;
        }
    }
}

void ThumbBuffer::finish() {}

bool ThumbBuffer::set(std::int32_t x, std::int32_t y) const {
    return x >= 0 && y >= 0 && x < width_ && y < height_ &&
           mask_[static_cast<std::size_t>(y) * width_ + x];
}
