#pragma once

#include "core/Colour.h"
#include "core/ColourProfile.h"
#include "core/Extent.h"
#include "core/Handle.h"

#include <array>
#include <cstdint>

/// A view's copy of the image at the view's zoom, which the window's paint handler blits
/// from; the drawing thread is its only writer. Guarded by ZmapView::csBackingStore.
///
/// Four levels in a pyramid: level 0 has the zoomed image's size, each next level
/// (w + 1) / 2 by (h + 1) / 2 of the one below, each pixel the mean of the (up to) four
/// below it, kept up to date by copyIn. Every level is 24-bit (blue, green, red) with rows
/// padded to 4 bytes and one spare row below the last, so that a level can be handed to a
/// blit as it lies.
class BackingStore : public TQL::Handlable {
public:
    static constexpr int levelCount = 4;

    struct Level {
        std::int32_t width = 0;
        std::int32_t height = 0;
        std::int32_t stride = 0; ///< (width * 3 + 3) & ~3
        std::uint8_t* pixels = nullptr;

        const std::uint8_t* row(std::int32_t y) const {
            return pixels + static_cast<std::size_t>(y) * static_cast<std::size_t>(stride);
        }
        std::uint8_t* row(std::int32_t y) {
            return pixels + static_cast<std::size_t>(y) * static_cast<std::size_t>(stride);
        }
    };

    /// A black store of width x height (both at least 1), copying through `transform` when
    /// it isn't null. Null if the memory can't be had or a side is below 1.
    static TQL::Handle<BackingStore> create(std::int32_t width, std::int32_t height,
                                            TQL::Handle<TQL::ColourTransform> transform);

    std::int32_t width() const { return levels_[0].width; }
    std::int32_t height() const { return levels_[0].height; }
    const Level& level(int k) const { return levels_[static_cast<std::size_t>(k)]; }
    const TQL::Handle<TQL::ColourTransform>& transform() const { return transform_; }
    /// Pixel (x, y) of level `k`; zero outside it.
    ColourPOD pixel(int k, std::int32_t x, std::int32_t y) const;

    /// Copies a w x h block of three-byte rows, `stride` bytes apart, to (x, y) of level 0,
    /// clipped to the store, through the colour transform if there is one, and brings the
    /// upper levels up to date over it. Returns the rectangle of level 0 that changed (empty
    /// if none).
    IExtent<2> copyIn(std::int32_t x, std::int32_t y, std::int32_t w, std::int32_t h,
                      const std::uint8_t* rgb, std::int32_t stride);

protected:
    ~BackingStore() override;

private:
    BackingStore() = default;
    /// Recomputes level k + 1 over the pixels that level k's rectangle `rect` feeds and
    /// returns that rectangle of level k + 1.
    IExtent<2> reduce(int k, const IExtent<2>& rect);

    std::array<Level, levelCount> levels_{};
    void* memory_ = nullptr;
    TQL::Handle<TQL::ColourTransform> transform_;
};
