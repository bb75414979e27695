#include "views/ViewMapping.h"

#include <algorithm>
#include <numeric>

namespace {

std::int64_t floorDiv(std::int64_t a, std::int64_t b) {
    std::int64_t q = a / b;
    if ((a % b != 0) && ((a < 0) != (b < 0))) {
        --q;
    }
    return q;
}

std::int64_t ceilDiv(std::int64_t a, std::int64_t b) {
    return -floorDiv(-a, b);
}

std::int32_t clampTo32(std::int64_t v) {
    return static_cast<std::int32_t>(std::clamp<std::int64_t>(v, INT32_MIN / 2, INT32_MAX / 2));
}

} // namespace

void ViewMapping::setZoom(std::int32_t numerator, std::int32_t denominator) {
    numerator = std::max(numerator, 1);
    denominator = std::max(denominator, 1);
    const std::int32_t g = std::gcd(numerator, denominator);
    numerator_ = numerator / g;
    denominator_ = denominator / g;
    clampScroll();
}

bool ViewMapping::zoomIn() {
    for (const auto& s : steps) {
        if (std::int64_t(s[0]) * denominator_ > std::int64_t(numerator_) * s[1]) {
            setZoom(s[0], s[1]);
            return true;
        }
    }
    return false;
}

bool ViewMapping::zoomOut() {
    for (int i = stepCount - 1; i >= 0; --i) {
        const auto& s = steps[i];
        if (std::int64_t(s[0]) * denominator_ < std::int64_t(numerator_) * s[1]) {
            setZoom(s[0], s[1]);
            return true;
        }
    }
    return false;
}

void ViewMapping::fitWindow() {
    if (window_.x <= 0 || window_.y <= 0 || image_.x <= 0 || image_.y <= 0) {
        return;
    }
    for (int i = stepCount - 1; i >= 0; --i) {
        setZoom(steps[i][0], steps[i][1]);
        const IVector<2> z = zoomedSize();
        if (z.x <= window_.x && z.y <= window_.y) {
            return;
        }
    }
}

void ViewMapping::setImageSize(std::int32_t width, std::int32_t height) {
    image_ = {std::max(width, 0), std::max(height, 0)};
    clampScroll();
}

void ViewMapping::setWindowSize(std::int32_t width, std::int32_t height) {
    window_ = {std::max(width, 0), std::max(height, 0)};
    clampScroll();
}

void ViewMapping::setScroll(std::int32_t x, std::int32_t y) {
    scroll_ = {x, y};
    clampScroll();
}

void ViewMapping::clampScroll() {
    const IVector<2> z = zoomedSize();
    scroll_.x = std::clamp(scroll_.x, 0, std::max(0, z.x - window_.x));
    scroll_.y = std::clamp(scroll_.y, 0, std::max(0, z.y - window_.y));
}

IVector<2> ViewMapping::zoomedSize() const {
    const auto side = [this](std::int32_t n) {
        return n <= 0 ? 0 : std::max(1, lastStoreOf(n - 1) + 1);
    };
    return {side(image_.x), side(image_.y)};
}

IVector<2> ViewMapping::margin() const {
    const IVector<2> z = zoomedSize();
    return {std::max(0, (window_.x - z.x) / 2), std::max(0, (window_.y - z.y) / 2)};
}

std::int32_t ViewMapping::storeToImage(std::int32_t u) const {
    // floor((u + 0.5) * d / n) = floor((2u + 1) d / 2n)
    return clampTo32(
        floorDiv((2 * std::int64_t(u) + 1) * denominator_, 2 * std::int64_t(numerator_)));
}

std::int32_t ViewMapping::firstStoreOf(std::int32_t x) const {
    // The least u with (2u + 1) d >= 2 n x.
    return clampTo32(
        ceilDiv(2 * std::int64_t(numerator_) * x - denominator_, 2 * std::int64_t(denominator_)));
}

std::int32_t ViewMapping::lastStoreOf(std::int32_t x) const {
    // The greatest u with (2u + 1) d < 2 n (x + 1).
    return clampTo32(ceilDiv(2 * std::int64_t(numerator_) * (std::int64_t(x) + 1) - denominator_,
                             2 * std::int64_t(denominator_)) -
                     1);
}

IExtent<2> ViewMapping::storeExtentOf(const IExtent<2>& image) const {
    if (image.degenerate()) {
        return {};
    }
    return {firstStoreOf(image.lo().x), firstStoreOf(image.lo().y), lastStoreOf(image.hi().x),
            lastStoreOf(image.hi().y)};
}

IExtent<2> ViewMapping::imageExtentOf(const IExtent<2>& store) const {
    if (store.degenerate()) {
        return {};
    }
    return {storeToImage(store.lo().x), storeToImage(store.lo().y), storeToImage(store.hi().x),
            storeToImage(store.hi().y)};
}

IPoint<2> ViewMapping::viewToImage(IPoint<2> view) const {
    const IVector<2> m = margin();
    return {storeToImage(view.x + scroll_.x - m.x), storeToImage(view.y + scroll_.y - m.y)};
}

IExtent<2> ViewMapping::imageToView(IPoint<2> image) const {
    return storeToView(storeExtentOf(IExtent<2>(image)));
}

IExtent<2> ViewMapping::storeToView(const IExtent<2>& store) const {
    if (store.degenerate()) {
        return {};
    }
    const IVector<2> m = margin();
    const std::int32_t dx = m.x - scroll_.x;
    const std::int32_t dy = m.y - scroll_.y;
    return {store.lo().x + dx, store.lo().y + dy, store.hi().x + dx, store.hi().y + dy};
}

IExtent<2> ViewMapping::viewToStore(const IExtent<2>& view) const {
    if (view.degenerate()) {
        return {};
    }
    const IVector<2> m = margin();
    const std::int32_t dx = scroll_.x - m.x;
    const std::int32_t dy = scroll_.y - m.y;
    return {view.lo().x + dx, view.lo().y + dy, view.hi().x + dx, view.hi().y + dy};
}
