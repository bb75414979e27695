#pragma once

#include "core/Handle.h"
#include "core/TqlCriticalSection.h"

/// Holds a view's store lock while the paint handler reads the store: the store the view
/// has once the lock is taken (null until the first draw). Each kind of view names its
/// own lock and store.
template <class Store> class StoreLock {
public:
    StoreLock(TqlCriticalSection& section, const TQL::Handle<Store>& store, const wchar_t* site)
        : lock_(section, site), store_(store.get()) {}
    StoreLock(const StoreLock&) = delete;
    StoreLock& operator=(const StoreLock&) = delete;

    const Store* store() const { return store_; }

private:
    TqlSimpleLock lock_;
    const Store* store_;
};
