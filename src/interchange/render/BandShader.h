#pragma once

#include "core/Colour.h"
#include "effects/Light.h"
#include "interchange/render/ModelShadows.h"
#include "interchange/render/RenderBand.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

class Camera;
class Lighting;
class Plane;
class WorkerTeam;

/// The shading of a rendering: colour = material colour x (sum over lights i of
/// illumination_i(n)), per component, clamped to 1, with n the unit normal turned towards
/// the eye: the face normal where the triangle is flat or `flat` is asked, the
/// interpolated vertex normals (made unit at each pixel) where it is smooth. Light i is
/// left out where it is blocked: where the surface faces away from it, or where its
/// shadow test finds another triangle between the point and the light.
///
/// A flat triangle that no shadow test concerns has one colour, written while it is
/// filled. The pixels of the others get a ShadeWork, and their shading is done by
/// shadeBand once the band knows which pixels are seen (hidden surfaces then cost no
/// normal and no shadow test), or at once, pixel by pixel, when shading is immediate.
///
/// A band is shaded by up to `threads` threads, which take its columns in turn: each
/// pixel's shading reads only its work record, the lights and the shadow trees, and writes
/// only that pixel, so the picture is the same for any count.
class BandShader {
public:
    /// `shadows` may be empty; it outlives the shader.
    BandShader(const Camera& camera, const Lighting& lights, const ModelShadows& shadows, bool flat,
               std::int32_t width, unsigned threads = 1);
    ~BandShader();

    /// Works out `shade` for a triangle of face plane `plane`, colour `colour`, material
    /// `material` and number `owner`, and turns the corners' normals (given as the
    /// model's vertex normals) towards the eye.
    void prepare(TriangleShade& shade, const Plane& plane, ColourPOD colour, MaterialId material,
                 std::uint32_t owner, ScreenVertex (&corners)[3]) const;

    /// Adds the work record of a triangle a, b, c (doubled signed screen area `area`) with
    /// `shade` to the band; returns its index.
    std::uint32_t addWork(RenderBand& band, const TriangleShade& shade, const ScreenVertex& a,
                          const ScreenVertex& b, const ScreenVertex& c, double area) const;

    /// Shades the seen pixels of the band that still have work.
    void shadeBand(RenderBand& band) {
        startBand(band);
        finishBand();
    }
    /// The two halves of shadeBand, for drawing the next band while this one is shaded:
    /// startBand has the helper threads begin on the band's columns and returns at once
    /// (with no helpers it shades the whole band); finishBand shades what is left on the
    /// calling thread too and returns once the band is done. The band must stay untouched
    /// in between, and each startBand needs its finishBand before the next.
    void startBand(RenderBand& band);
    void finishBand();
    /// Stops the band being shaded as soon as its threads have finished their columns,
    /// leaving the rest unshaded (for a drawing that is given up); never throws.
    void abandonBand() noexcept;
    /// Shades the pixels x0 to x1 - 1 of row y with `work`, on the calling thread.
    void shadeRun(RenderBand& band, const ShadeWork& work, std::int32_t y, std::int32_t x0,
                  std::int32_t x1) {
        shadeRun(band, work, y, x0, x1, scratch_[0]);
    }

    /// Colour components 0 to 1 to a pixel of blue, green, red and full coverage.
    static std::uint32_t packColour(double r, double g, double b);

private:
    /// What one shading thread works with: the shading inputs of a run of pixels, and its
    /// running shadow hints.
    struct Scratch {
        explicit Scratch(std::size_t width)
            : normals(width), points(width), masks(width), light(width) {}
        std::vector<Vector<3>> normals;
        std::vector<Point<3>> points;
        std::vector<std::uint32_t> masks;
        std::vector<LightColour> light;
        ModelShadows::Hints hints;
    };

    void shadeRun(RenderBand& band, const ShadeWork& work, std::int32_t y, std::int32_t x0,
                  std::int32_t x1, Scratch& scratch) const;
    /// Shades the pixels of the band's columns left to right - 1 that still have work.
    void shadeColumn(RenderBand& band, std::int32_t left, std::int32_t right,
                     Scratch& scratch) const;

    const Camera& camera_;
    const Lighting& lights_;
    const ModelShadows& shadows_;
    bool flat_;
    /// One a thread of the team (the calling thread's first).
    std::vector<Scratch> scratch_;
    std::unique_ptr<WorkerTeam> team_;
    /// The band being shaded between startBand and finishBand, the next of its columns
    /// to take (by its left edge), and the team's work on it.
    RenderBand* band_ = nullptr;
    std::atomic<std::int32_t> nextColumn_{0};
    std::function<void(unsigned)> columnWork_;
};
