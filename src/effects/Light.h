#pragma once

#include "core/Handle.h"
#include "core/Point.h"
#include "views/cameras/Ray.h"

#include <cstddef>
#include <cstdint>

/// A quantity of light of each colour component, or a colour as three reals: 1 is full.
struct LightColour {
    double red = 0;
    double green = 0;
    double blue = 0;

    LightColour& operator+=(const LightColour& o) {
        red += o.red;
        green += o.green;
        blue += o.blue;
        return *this;
    }
    friend LightColour operator+(LightColour a, const LightColour& b) { return a += b; }
    friend LightColour operator*(const LightColour& a, double k) {
        return {a.red * k, a.green * k, a.blue * k};
    }
    bool operator==(const LightColour&) const = default;
};

/// A light that shades models while they are rendered and in thumbnails. Model
/// coordinates are taken with +z up.
class Light : public TQL::Handlable {
public:
    /// The light falling on a surface whose unit normal is `normal`.
    virtual LightColour illumination(const Vector<3>& normal) const = 0;
    /// Whether geometry between the light and a surface blocks it.
    virtual bool castsShadow() const = 0;
    /// The light's frame: its Z is the direction the light travels.
    virtual Ray direction() const = 0;

    /// Adds illumination(normals[i]) to sum[i] for the `count` pixels of a span, except
    /// where `masks` (if not null) has a bit in common with `shadowBit`: there this light
    /// is blocked. Renderers call this once a span rather than illumination once a pixel;
    /// the lights below override it with plain loops.
    virtual void addIllumination(const Vector<3>* normals, std::size_t count,
                                 const std::uint32_t* masks, std::uint32_t shadowBit,
                                 LightColour* sum) const;
};

/// Light from one direction, as of the sun: k = max(0, -(Z.n)) of its colour falls on a
/// surface of unit normal n, with Z the direction the light travels.
class QuorvaleParallelLight : public Light {
public:
    /// The light travels along the Z of Ray(azimuth, altitude): azimuth anticlockwise
    /// from +x, altitude above the horizontal (negative shines down).
    QuorvaleParallelLight(Angle azimuth, Angle altitude, const LightColour& colour, bool shadows);
    /// Sunlight from the sun's place in the sky: `azimuth` is a compass bearing,
    /// clockwise from north (+y) towards east (+x), and `elevation` the sun's height above
    /// the horizon.
    static TQL::Handle<QuorvaleParallelLight> sun(Angle azimuth, Angle elevation,
                                                  const LightColour& colour, bool shadows);

    LightColour illumination(const Vector<3>& normal) const override;
    bool castsShadow() const override { return shadows_; }
    Ray direction() const override { return ray_; }
    void addIllumination(const Vector<3>* normals, std::size_t count, const std::uint32_t* masks,
                         std::uint32_t shadowBit, LightColour* sum) const override;

    const LightColour& colour() const { return colour_; }

private:
    Ray ray_;
    LightColour colour_;
    bool shadows_;
};

/// Light from the whole sky: `colour` falls on a surface facing straight up, `base` on one
/// facing straight down, and a blend by the normal's vertical component in between:
/// base + half (1 + n.z), with half = (colour - base) / 2. It casts no shadow.
class AmbientLight : public Light {
public:
    AmbientLight(const Point<3>& colour, const Point<3>& base);

    LightColour illumination(const Vector<3>& normal) const override;
    bool castsShadow() const override { return false; }
    /// A Ray with zero angles: ambient light has no direction.
    Ray direction() const override { return Ray(); }
    void addIllumination(const Vector<3>* normals, std::size_t count, const std::uint32_t* masks,
                         std::uint32_t shadowBit, LightColour* sum) const override;

private:
    LightColour base_;
    LightColour half_;
};
