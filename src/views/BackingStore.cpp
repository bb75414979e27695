#include "views/BackingStore.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

TQL::Handle<BackingStore> BackingStore::create(std::int32_t width, std::int32_t height,
                                               TQL::Handle<TQL::ColourTransform> transform) {
    if (width < 1 || height < 1) {
        return {};
    }
    TQL::Handle<BackingStore> store(new (std::nothrow) BackingStore);
    if (!store) {
        return {};
    }
    std::size_t offsets[levelCount];
    std::size_t total = 0;
    std::int32_t w = width;
    std::int32_t h = height;
    for (int k = 0; k < levelCount; ++k) {
        Level& level = store->levels_[static_cast<std::size_t>(k)];
        level.width = w;
        level.height = h;
        level.stride = (w * 3 + 3) & ~3;
        offsets[k] = total;
        // One spare row below the last.
        total += static_cast<std::size_t>(level.stride) * (static_cast<std::size_t>(h) + 1);
        w = std::max((w + 1) / 2, 1);
        h = std::max((h + 1) / 2, 1);
    }
    // calloc: large stores get zeroed pages from the system without touching them.
    store->memory_ = std::calloc(total, 1);
    if (!store->memory_) {
        return {};
    }
    for (int k = 0; k < levelCount; ++k) {
        store->levels_[static_cast<std::size_t>(k)].pixels =
            static_cast<std::uint8_t*>(store->memory_) + offsets[k];
    }
    store->transform_ = std::move(transform);
    return store;
}

BackingStore::~BackingStore() {
    std::free(memory_);
}

ColourPOD BackingStore::pixel(int k, std::int32_t x, std::int32_t y) const {
    if (k < 0 || k >= levelCount) {
        return {};
    }
    const Level& level = levels_[static_cast<std::size_t>(k)];
    if (x < 0 || y < 0 || x >= level.width || y >= level.height) {
        return {};
    }
    ColourPOD c;
    std::memcpy(&c, level.row(y) + static_cast<std::size_t>(x) * 3, 3);
    return c;
}

IExtent<2> BackingStore::copyIn(std::int32_t x, std::int32_t y, std::int32_t w, std::int32_t h,
                                const std::uint8_t* rgb, std::int32_t stride) {
    Level& base = levels_[0];
    const std::int32_t x0 = std::max(x, 0);
    const std::int32_t y0 = std::max(y, 0);
    const std::int32_t x1 = std::min(x + w, base.width) - 1;
    const std::int32_t y1 = std::min(y + h, base.height) - 1;
    if (x0 > x1 || y0 > y1 || !rgb) {
        return {};
    }
    const auto count = static_cast<std::size_t>(x1 - x0 + 1);
    const std::uint8_t* in = rgb + static_cast<std::ptrdiff_t>(y0 - y) * stride +
                             static_cast<std::ptrdiff_t>(x0 - x) * 3;
    for (std::int32_t row = y0; row <= y1; ++row, in += stride) {
        std::uint8_t* out = base.row(row) + static_cast<std::size_t>(x0) * 3;
        if (transform_) {
            transform_->apply(reinterpret_cast<const ColourPOD*>(in),
                              reinterpret_cast<ColourPOD*>(out), count);
        } else {
            std::memcpy(out, in, count * 3);
        }
    }
    const IExtent<2> changed(x0, y0, x1, y1);
    IExtent<2> rect = changed;
    for (int k = 0; k + 1 < levelCount; ++k) {
        rect = reduce(k, rect);
    }
    return changed;
}

IExtent<2> BackingStore::reduce(int k, const IExtent<2>& rect) {
    const Level& from = levels_[static_cast<std::size_t>(k)];
    Level& to = levels_[static_cast<std::size_t>(k) + 1];
    const std::int32_t x0 = rect.lo().x / 2;
    const std::int32_t y0 = rect.lo().y / 2;
    const std::int32_t x1 = std::min(rect.hi().x / 2, to.width - 1);
    const std::int32_t y1 = std::min(rect.hi().y / 2, to.height - 1);
    for (std::int32_t j = y0; j <= y1; ++j) {
        const std::uint8_t* top = from.row(2 * j);
        // An odd last row has no partner below: it stands for both.
        const std::uint8_t* bottom = 2 * j + 1 < from.height ? from.row(2 * j + 1) : top;
        std::uint8_t* out = to.row(j);
        for (std::int32_t i = x0; i <= x1; ++i) {
            const std::size_t left = static_cast<std::size_t>(2 * i) * 3;
            // Likewise an odd last column.
            const std::size_t right = 2 * i + 1 < from.width ? left + 3 : left;
            for (std::size_t c = 0; c < 3; ++c) {
                const unsigned sum =
                    unsigned(top[left + c]) + top[right + c] + bottom[left + c] + bottom[right + c];
                out[static_cast<std::size_t>(i) * 3 + c] = static_cast<std::uint8_t>((sum + 2) / 4);
            }
        }
    }
    return {x0, y0, x1, y1};
}
