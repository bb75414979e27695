#pragma once

#include <functional>
#include <string>

/// An interned wide string: one pointer. Two Quarks of equal text are the same pointer,
/// so comparing them is comparing pointers. Interned texts live until the process ends.
class Quark {
public:
    /// The Quark of nothing.
    constexpr Quark() = default;
    /// The one Quark of `text`; safe on any thread. Empty text gives the null Quark.
    static Quark create(const wchar_t* text);
    static Quark create(const std::wstring& text);

    /// The text; empty for the null Quark.
    const std::wstring& value() const;
    bool isNull() const { return p_ == nullptr; }
    const void* identity() const { return p_; }

    constexpr bool operator==(const Quark&) const = default;

private:
    explicit Quark(const std::wstring* p) : p_(p) {}
    const std::wstring* p_ = nullptr;
};

/// The Quark of nothing.
inline constexpr Quark nullQuark{};

/// Orders Quarks for use as a map key; the order is stable only within one run.
struct QuarkLess {
    bool operator()(const Quark& a, const Quark& b) const {
        return std::less<const void*>()(a.identity(), b.identity());
    }
};
