#pragma once

#include "core/Plane.h"
#include "effects/Light.h"
#include "image/MaterialRecord.h"
#include "interchange/Model.h"
#include "interchange/ShadowNode.h"
#include "interchange/SmoothModel.h"
#include "views/cameras/DepthCoder.h"

#include <cstdint>
#include <memory>
#include <vector>

class Buffer;
class Camera;
class Lighting;
class Reporter;

/// The scan converter behind SmoothModelImp::render: triangles in, rows of colour, depth
/// code, material and shadow flags out.
///
/// Clipping. The triangles are cut, in model coordinates and by the signed distances of
/// their corners, by the planes of the view volume and of the section box: the near plane
/// (depth code 0; nothing behind the eye is drawn), the far plane (code 4294967294), four
/// side planes a guard band of 2 (width + height) + 16 pixels outside the image (they only
/// keep screen coordinates within range; the rows and spans do the exact cut), and the
/// section box's planes. A point on a plane counts as inside. A new corner on an edge is
/// computed from the edge's two ends taken in one fixed order (by their coordinates), so
/// that the neighbours sharing the edge make the same point.
///
/// Coverage. A pixel's centre is its integer coordinates (x, y). A pixel is drawn by a
/// triangle when its centre lies inside it, with the top-left rule on the boundary: rows
/// from ceil(top) up to but not including ceil(bottom), and in each row the pixels from
/// ceil(left edge) up to but not including ceil(right edge). The x where an edge meets a
/// row is computed from the edge's upper end with the edge's own slope, the same numbers
/// for both triangles that share the edge, so shared edges are drawn once, with no gap and
/// no overlap.
///
/// Depth. The camera's screen z is linear over a triangle in screen space (in a perspective
/// camera z is an inverse depth, which is what makes that true); it is interpolated from
/// the corners' z that the camera's own project gave, and turned into a depth code with the
/// camera's DepthCoder: the codes are those of the camera, not an approximation. Surface
/// values (the model point, the normal) are interpolated perspective-correctly: linear in
/// screen space divided by the camera's projective divisor. The nearest surface wins: a
/// code less than or equal to the one already at the pixel replaces it.
///
/// Shading. colour = material colour x (sum over lights i of illumination_i(n)), per
/// component, clamped to 1, with n the unit normal turned towards the eye: the face normal
/// where the triangle is flat or `flat` is asked, the interpolated vertex normals (made
/// unit at each pixel) where it is smooth. Light i is left out where it is blocked: where
/// the surface faces away from it, or where its shadow test finds another triangle between
/// the point and the light, nearer by more than twice the model's tolerance. Material
/// colours come from the DXF colour number (dxfColour).
///
/// Anti-aliasing: none. Depth and material must stay exact for the painting tools (a
/// blended depth would be a surface that isn't there), and the colour follows them, so
/// every drawn pixel has coverage 255.
///
/// Work is done in bands of rows small enough for the processor's caches: each triangle
/// is first listed in the bands its rows reach, then each band (a buffer of depth codes
/// with its colours, materials and flags) is drawn from its list, in the model's order,
/// and handed to the buffer row by row. A flat triangle that no shadow test concerns
/// writes its colour at once; the pixels of the others keep a record of the work left,
/// which is done, row by row, once the band knows which pixels are seen: hidden surfaces
/// cost no normal and no shadow test.
class ModelRenderer {
public:
    ModelRenderer(const SmoothModelImp& model, const Camera& camera, Buffer& buffer,
                  const Lighting& lights, Reporter* progress, bool flat, std::int32_t width,
                  std::int32_t height, const SectionBox& sectionBox);
    ~ModelRenderer();

    /// Draws everything and hands the rows to the buffer.
    void run();

    /// The pixels of a band, about: its buffers stay in the processor's caches.
    static constexpr std::int64_t bandPixels = std::int64_t(1) << 17;

    struct Vertex;
    struct Shade;
    struct Work;

private:
    struct MeshCache;
    struct SpanScratch;

    void makeClipPlanes();
    void makeShadowCasters();
    void cacheMeshes();
    /// Lists each drawable triangle in the bands of the rows it covers.
    void bin();
    /// The screen box of what of a triangle is left after clipping; false if nothing is.
    bool screenBox(const SmoothModelImp::Mesh& mesh, const MeshCache& cache,
                   const SmoothModelImp::Triangle& triangle, double& lo, double& hi, double& left,
                   double& right);
    void renderBand(std::int32_t top, std::int32_t bottom,
                    const std::vector<std::uint32_t>& triangles);
    void flushBand(std::int32_t top, std::int32_t bottom);
    void tick();

    void drawTriangle(const SmoothModelImp::Mesh& mesh, const MeshCache& cache,
                      const SmoothModelImp::Triangle& triangle, std::uint32_t id);
    void setUpShade(const SmoothModelImp::Mesh& mesh, const SmoothModelImp::Triangle& triangle,
                    std::uint32_t id, Vertex (&corners)[3]);
    /// Clips the polygon against the planes whose bits are set in `outside`; returns the
    /// corner count left.
    int clip(std::vector<Vertex>& polygon, std::uint32_t outside);
    void project(Vertex& v) const;
    void drawPolygon(const Vertex* polygon, int count);
    template <int Kind> void fill(const Vertex& a, const Vertex& b, const Vertex& c);
    /// Works out the seen pixels of the band that need more than a triangle's colour.
    void shadeBand();
    void shadeRun(const Work& work, std::int32_t y, std::int32_t x0, std::int32_t x1);

    const SmoothModelImp& model_;
    const Camera& camera_;
    Buffer& buffer_;
    const Lighting& lights_;
    Reporter* progress_;
    bool flat_;
    std::int32_t width_;
    std::int32_t height_;
    SectionBox sectionBox_;

    DepthCoder coder_;
    /// Perspective transform cameras: the column of the projective divisor of
    /// [x y z 1] in the camera's homogeneous matrix; (0, 0, 0, 1) otherwise.
    double divisor_[4] = {0, 0, 0, 1};
    bool projective_ = false;
    /// In model coordinates; the inside is the positive side.
    std::vector<Plane> planes_;

    struct ShadowLight {
        std::uint32_t index; ///< in the lighting
        Vector<3> travel;    ///< the direction the light travels
        std::unique_ptr<ShadowCaster> caster;
        std::uint32_t hint; ///< the last blocker found
    };
    std::vector<ShadowLight> shadowLights_;
    double shadowBias_ = 0;

    std::vector<MeshCache> caches_;
    std::vector<ColourPOD> materialColours_; ///< by the materials' order
    std::vector<const SmoothModelImp::Mesh*> meshes_;
    /// The id of each mesh's first triangle (ids run through the meshes in order), and
    /// the count of all after the last.
    std::vector<std::uint32_t> meshFirst_;
    std::int32_t bandRows_ = 1;
    /// Per band, the ids of the triangles that reach its rows, rising.
    std::vector<std::vector<std::uint32_t>> bins_;

    // The band in progress.
    std::int32_t bandTop_ = 0;
    std::int32_t bandBottom_ = 0;
    std::vector<std::uint32_t> codes_;
    std::vector<std::uint32_t> colours_; ///< blue, green, red, coverage in memory order
    std::vector<MaterialId> materials_;
    std::vector<std::uint32_t> flags_;
    /// Per pixel, the record of the work still to do there, or none.
    std::vector<std::uint32_t> workOf_;
    std::vector<Work> works_;
    std::vector<LightColour> parts_;

    std::unique_ptr<Shade> shade_;
    std::unique_ptr<SpanScratch> scratch_;
    std::vector<Vertex> polygon_;
    std::vector<Vertex> clipped_;
    std::uint64_t trianglesDone_ = 0;
    std::uint64_t trianglesTotal_ = 0;
};
