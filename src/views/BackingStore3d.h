#pragma once

#include "core/Handle.h"

#include <cstdint>
#include <vector>

/// The off-screen picture of a panorama view, at the view's size: 24-bit (blue, green,
/// red) rows padded to 4 bytes, so that it can be blitted as it lies. The drawing thread
/// fills a store of its own and hands it over whole under CubicView::csBackingStore; the
/// paint handler reads the current one under the same lock.
class BackingStore3d : public TQL::Handlable {
public:
    /// A black store of width x height (both at least 1); null when memory runs out.
    static TQL::Handle<BackingStore3d> create(std::int32_t width, std::int32_t height);

    std::int32_t width() const { return width_; }
    std::int32_t height() const { return height_; }
    std::int32_t stride() const { return stride_; }
    const std::uint8_t* row(std::int32_t y) const {
        return pixels_.data() + std::size_t(y) * std::size_t(stride_);
    }
    std::uint8_t* row(std::int32_t y) {
        return pixels_.data() + std::size_t(y) * std::size_t(stride_);
    }
    const std::uint8_t* bits() const { return pixels_.data(); }

protected:
    ~BackingStore3d() override = default;

private:
    BackingStore3d() = default;
    std::int32_t width_ = 0;
    std::int32_t height_ = 0;
    std::int32_t stride_ = 0;
    std::vector<std::uint8_t> pixels_;
};
