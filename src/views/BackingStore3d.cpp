#include "views/BackingStore3d.h"

#include <new>

TQL::Handle<BackingStore3d> BackingStore3d::create(std::int32_t width, std::int32_t height) {
    if (width < 1 || height < 1) {
        return {};
    }
    try {
        TQL::Handle<BackingStore3d> store(new BackingStore3d);
        store->width_ = width;
        store->height_ = height;
        store->stride_ = (width * 3 + 3) & ~3;
        store->pixels_.assign(std::size_t(store->stride_) * std::size_t(height), 0);
        return store;
    } catch (const std::bad_alloc&) {
        return {};
    }
}
