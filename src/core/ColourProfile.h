#pragma once

#include "core/Colour.h"
#include "core/Handle.h"

#include <cstddef>
#include <string>

namespace TQL {

/// Built-in profiles.
enum class ColourProfileId { sRGB = 0, linearGrey = 1 };

/// How a colour transform maps colours outside the target gamut.
enum class RenderingIntent {
    perceptual = 0,
    relativeColorimetric = 1,
    saturation = 2,
    absoluteColorimetric = 3
};

/// An ICC colour profile, shared by handle.
class ColourProfile : public Handlable {
public:
    /// A built-in profile; null if it cannot be made.
    static Handle<ColourProfile> create(ColourProfileId id);
    /// A profile read from an ICC file; null if the file is missing or not a profile.
    static Handle<ColourProfile> createFromFile(const std::wstring& path);
    /// A profile from ICC bytes in memory; null if they are not a profile.
    static Handle<ColourProfile> createFromMemory(const void* data, std::size_t size);

    /// The profile's description, or an empty text.
    std::wstring description() const;
    void* native() const { return profile_; }

protected:
    ~ColourProfile() override;

private:
    explicit ColourProfile(void* profile) : profile_(profile) {}
    void* profile_;
};

/// A transform of 8-bit pixels through a chain of two to four profiles.
class ColourTransform : public Handlable {
public:
    static Handle<ColourTransform> create(RenderingIntent intent, const ColourProfile& from,
                                          const ColourProfile& to);
    static Handle<ColourTransform> create(RenderingIntent intent, const ColourProfile& a,
                                          const ColourProfile& b, const ColourProfile& c);
    static Handle<ColourTransform> create(RenderingIntent intent, const ColourProfile& a,
                                          const ColourProfile& b, const ColourProfile& c,
                                          const ColourProfile& d);

    /// Transforms `count` pixels in the store's blue-green-red order; in and out may be
    /// the same array.
    void apply(const ColourPOD* in, ColourPOD* out, std::size_t count) const;

protected:
    ~ColourTransform() override;

private:
    explicit ColourTransform(void* transform) : transform_(transform) {}
    static Handle<ColourTransform> chain(RenderingIntent intent,
                                         const ColourProfile* const* profiles, int count);
    void* transform_;
};

} // namespace TQL
