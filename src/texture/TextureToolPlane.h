#pragma once

#include "core/Extent.h"
#include "core/Handle.h"
#include "core/Plane.h"
#include "core/Point.h"
#include "image/MaterialRecord.h"
#include "texture/TextureToolBase.h"
#include "views/cameras/SurfaceFrame.h"

#include <cstdint>

class ViewProj;

namespace tex {

class Texture2d;

/// The last placing of the texture tool that is current, for the settings page to show and
/// for the next stroke of the same tool to continue: the axes and the document they belong
/// to (its serial, 0 for none). Written only on the interface thread, at a stroke's start.
struct CurrentTextureAxes {
    TextureAxes axes;
    std::int32_t documentSerial = 0;
};
CurrentTextureAxes& currentTextureAxes();

/// How a raster lies on the surfaces of the scene.
struct PlanePlacing {
    /// What the raster is laid on (the numbers of `planeMode`).
    enum Mode : int {
        front = 0,       ///< a plane facing the view through the first click
        tangent = 1,     ///< the surface under each click
        wrapped = 2,     ///< the surface under each click, folded on from the last one
        autowrapped = 3, ///< as wrapped
        autoplane = 4,   ///< the surface under each click, also for pixels that are off it
    };
    int planeMode = tangent;
    /// The real size of one raster pixel across and down, in millimetres.
    double pixelWidth = 10.0;
    double pixelHeight = 10.0;
    /// A turn of the raster on the surface, in degrees.
    double angleDegrees = 0.0;
    /// The raster point, in raster pixels, that the placing's origin shows.
    Point<2> hook{0, 0};
};

/// A raster laid on the scene's surfaces in perspective. Each pixel is carried through its
/// depth code to the world and from there to the raster's plane; the raster is filtered by
/// the pixel's true footprint there, so a wall far away is neither blurred nor aliased.
///
/// The raster's axes on a plane with normal n: u along n x primary (or n x secondary when
/// primary is almost along n), v along n x u, turned by the placing's angle. Because world
/// points are affine in the view's homogeneous coordinates h, each raster coordinate is a
/// linear form of h (`uRow` . h + `uBase`): three multiplications a coordinate.
///
/// The footprint is the extent, in raster pixels, of the pixel's four corners. The pixel's
/// right edge lies at (x + 1/2, y) at the mean depth of the pixel and its right neighbour,
/// when that neighbour has depth and the same material; otherwise the left edge is taken
/// and mirrored through the centre (so a pixel of the left column uses its right
/// neighbour), and with neither the pixel's own depth. The lower edge likewise. The corners
/// are the centre plus and minus both half steps; `balanceFootprint` joins the extent's
/// two sides. On a cube image the neighbours are found across face edges.
class TextureToolPlane : public TextureToolBase {
public:
    TextureToolPlane(const TQL::Handle<Texture2d>& texture, const PlanePlacing& placing,
                     const TextureOutput& output);

    void run(Span& span, int first, int last) override;
    /// Takes the surface at the click (see PlanePlacing::Mode) and works out the mapping.
    /// A sky pixel in Autoplane keeps the plane it had.
    void start(int x, int y, ZmapDocument& document) override;
    /// Fixes the axes (a style replayed): every start then paints on their plane, each
    /// pixel taking its depth from that plane.
    void setAxes(const TextureAxes& axes) override;
    void preview(PreviewBitmap& bitmap) override;

    /// A current tool continues the placing of the global copy on the same document and
    /// keeps that copy up to date.
    void setCurrent(bool current) { current_ = current; }

    const TextureAxes& axes() const { return axes_; }
    const PlanePlacing& placing() const { return placing_; }
    /// The pixel of the last start and its depth code.
    IPoint<2> clickedPixel() const { return clickedPixel_; }
    std::uint32_t clickedCode() const { return clickedCode_; }
    /// The raster point of a world point under the present mapping (after a start).
    Point<2> rasterPoint(const Point<3>& world) const;
    /// The raster point and footprint (in raster pixels) that pixel (x, y) of `document`
    /// reads, as run works them out. False before a start.
    bool pixelSample(const ZmapDocument& document, std::int32_t x, std::int32_t y, Point<2>& point,
                     double& footprint) const;
    /// The raster points and footprints, as the sampler takes them, of `count` pixels (at
    /// most maxSpanLength) of row y from column x on, worked out as run does. False before
    /// a start.
    bool rowSamples(const ZmapDocument& document, std::int32_t x, std::int32_t y, int count,
                    float* u, float* v, float* footprint) const;

private:
    void computeRows();
    /// Carries the axes from the previous plane to `plane` by turning them about the line
    /// where the two meet, so that the raster runs on over the edge.
    void fold(const Plane& plane);
    Point<2> mapHomogeneous(const Point<3>& h) const {
        return {uRow_[0] * h.x() + uRow_[1] * h.y() + uRow_[2] * h.z() + uBase_,
                vRow_[0] * h.x() + vRow_[1] * h.y() + vRow_[2] * h.z() + vBase_};
    }
    /// The raster point of pixel position (x, y) at a real depth code.
    Point<2> mapPixel(double x, double y, double code) const;
    /// The depth code the mapping uses for pixel (x, y) with channel code `code`.
    double pixelCode(std::int32_t x, std::int32_t y, std::uint32_t code) const;
    /// The raster points and footprints of `count` pixels of row y of a flat (not cubic)
    /// image, image columns x0 + 1 on. `codes` and `mats` are the rows above, on and below
    /// (unused when the depth comes from the plane): cell c of them is image column x0 + c,
    /// so they hold count + 2 cells (cells outside the image have no depth).
    void flatSamples(std::int32_t x0, std::int32_t y, const std::uint32_t* const codes[3],
                     const MaterialId* const mats[3], int count, float* u, float* v,
                     float* footprint) const;
    double cubicFootprint(const ZmapDocument& document, std::int32_t x, std::int32_t y,
                          const Point<2>& centre) const;

    TQL::Handle<Texture2d> texture_;
    PlanePlacing placing_;
    TextureAxes axes_;
    bool hasAxes_ = false;
    bool axesFixed_ = false;
    bool current_ = false;
    /// The mapping of a flat image as a function of pixel position and depth code: a raster
    /// coordinate is (s code + t)(a x + b y + c) + d code + base. In perspective s = 1 and
    /// t the view's depth offset, so w = s code + t and the homogeneous point is w (x, y, 1);
    /// in a parallel view s = 0, t = 1 and the code enters through d. No division a pixel.
    struct FlatMap {
        double s = 0;
        double t = 0;
        double u[4] = {0, 0, 0, 0}; // a, b, c, d
        double v[4] = {0, 0, 0, 0};
        double uBase = 0;
        double vBase = 0;
    };
    FlatMap flat_;
    double uRow_[3] = {0, 0, 0};
    double vRow_[3] = {0, 0, 0};
    double uBase_ = 0;
    double vBase_ = 0;
    Plane previousPlane_;
    bool hasPrevious_ = false;
    TQL::Handle<ViewProj> view_;
    std::int32_t faceSize_ = 0;
    std::int32_t documentSerial_ = 0;
    double millimetres_ = 1000.0;
    IPoint<2> clickedPixel_;
    std::uint32_t clickedCode_ = 0;
    SurfaceFrame planeDepth_;
    bool usePlaneDepth_ = false;
};

} // namespace tex
