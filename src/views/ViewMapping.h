#pragma once

#include "core/Extent.h"

#include <cstdint>

/// Where a view's pixels come from: the zoom as a fraction numerator / denominator of two
/// positive integers, the image size, the window size, the scroll position and the margin.
///
/// Three coordinate systems: window pixels (v), backing-store pixels (u, the image at the
/// zoom, of zoomedSize()), and image pixels (x). u = v + scroll - margin. Store pixel u shows
/// image pixel floor((u + 0.5) * denominator / numerator): the image pixel under the store
/// pixel's centre. Every mapping is computed in integers, so it is exact at any zoom and
/// both ways agree: storeToImage(u) == x exactly for u in storeExtentOf(x).
///
/// The margin centres an image smaller than the window: (window - zoomed) / 2, else 0.
/// The scroll position is kept within 0 .. zoomed - window.
class ViewMapping {
public:
    ViewMapping() = default;

    /// Zoom steps from 1:16 to 16:1, for zoomIn / zoomOut.
    static constexpr int stepCount = 17;
    static constexpr std::int32_t steps[stepCount][2] = {
        {1, 16}, {1, 12}, {1, 8}, {1, 6}, {1, 4}, {1, 3}, {1, 2},  {2, 3}, {1, 1},
        {3, 2},  {2, 1},  {3, 1}, {4, 1}, {6, 1}, {8, 1}, {12, 1}, {16, 1}};

    std::int32_t zoomNumerator() const { return numerator_; }
    std::int32_t zoomDenominator() const { return denominator_; }
    bool unscaled() const { return numerator_ == denominator_; }
    /// Sets the zoom, reduced to lowest terms. Values below 1 are taken as 1. Keeps the
    /// scroll position within range.
    void setZoom(std::int32_t numerator, std::int32_t denominator);
    /// The next step above / below the present zoom; false (unchanged) at the end.
    bool zoomIn();
    bool zoomOut();
    /// The largest step at which the whole image fits the window (at least the smallest).
    void fitWindow();

    void setImageSize(std::int32_t width, std::int32_t height);
    void setWindowSize(std::int32_t width, std::int32_t height);
    /// Sets the scroll position, clamped to 0 .. zoomed - window on each axis.
    void setScroll(std::int32_t x, std::int32_t y);
    IPoint<2> scroll() const { return scroll_; }
    IVector<2> imageSize() const { return image_; }
    IVector<2> windowSize() const { return window_; }
    /// The size of the image at the zoom (the backing store's size): at least 1 by 1 for a
    /// non-empty image.
    IVector<2> zoomedSize() const;
    IVector<2> margin() const;

    /// Image column or row of store column or row `u` (any value, outside too).
    std::int32_t storeToImage(std::int32_t u) const;
    /// The first and last store column showing image column `x`; first > last when the
    /// zoom is below 1:1 and no store column samples it.
    std::int32_t firstStoreOf(std::int32_t x) const;
    std::int32_t lastStoreOf(std::int32_t x) const;

    /// The store pixels whose image pixel lies in `image` (may be empty when zoomed out).
    IExtent<2> storeExtentOf(const IExtent<2>& image) const;
    /// The image pixels shown by the store pixels of `store`.
    IExtent<2> imageExtentOf(const IExtent<2>& store) const;

    /// The image pixel under window pixel `view` (outside the image too).
    IPoint<2> viewToImage(IPoint<2> view) const;
    /// The window pixels that show image pixel `image`; empty when zoomed out and no pixel
    /// samples it.
    IExtent<2> imageToView(IPoint<2> image) const;
    /// Window rectangle of a store rectangle (for invalidation).
    IExtent<2> storeToView(const IExtent<2>& store) const;
    /// Store rectangle of a window rectangle.
    IExtent<2> viewToStore(const IExtent<2>& view) const;

private:
    void clampScroll();

    std::int32_t numerator_ = 1;
    std::int32_t denominator_ = 1;
    IVector<2> image_{0, 0};
    IVector<2> window_{0, 0};
    IPoint<2> scroll_{0, 0};
};
