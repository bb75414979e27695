#include "core/Quark.h"

#include <mutex>
#include <unordered_set>

namespace {
struct Table {
    std::mutex mutex;
    std::unordered_set<std::wstring> texts; // node-based: element addresses are stable
};
Table& table() {
    static Table* t = new Table; // never destroyed: Quarks may be used during exit
    return *t;
}
} // namespace

Quark Quark::create(const std::wstring& text) {
    if (text.empty()) {
        return Quark();
    }
    Table& t = table();
    std::lock_guard<std::mutex> lock(t.mutex);
    return Quark(&*t.texts.insert(text).first);
}

Quark Quark::create(const wchar_t* text) {
    return text ? create(std::wstring(text)) : Quark();
}

const std::wstring& Quark::value() const {
    static const std::wstring empty;
    return p_ ? *p_ : empty;
}
