#pragma once

#include "image/MaterialRecord.h"
#include "interchange/model/SmoothModel.h"
#include "interchange/render/HugePageAllocator.h"
#include "interchange/render/RenderBand.h"
#include "interchange/render/ScreenVertex.h"
#include "views/cameras/DepthCoder.h"

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

class BandShader;
class Buffer;
class Camera;
class Lighting;
class ModelShadows;
class Reporter;
class TriangleClipper;
class TriangleFiller;
class WorkerTeam;

/// How a ModelRenderer goes about its work. Neither choice changes a pixel.
struct RenderOptions {
    /// The pixels of a band, about: its buffers stay in the processor's caches.
    std::int64_t bandPixels = std::int64_t(1) << 17;
    /// Shade a pixel as soon as it wins its depth test rather than once its band is drawn.
    bool immediateShading = false;
    /// The threads that shade a band once it is drawn; 0 for one a processor.
    unsigned shadingThreads = 0;
    /// The threads that turn the triangles to the lights, build the shadow trees and list
    /// the triangles of each band before drawing starts; 0 for one a processor.
    unsigned setupThreads = 0;
    /// Fill rows one pixel at a time even where the processor could do several at once
    /// (the same picture either way; for comparing the two).
    bool plainRows = false;
};

/// The scan converter behind SmoothModelImp::render: triangles in, rows of colour, depth
/// code, material and shadow flags out.
///
/// Each triangle is cut by the planes of the view and of the section box (TriangleClipper),
/// projected by the camera and filled by the top-left rule with the camera's own depth
/// codes (TriangleFiller); the nearest surface wins, and its pixels are shaded under the
/// lights with shadow tests through quadtrees of the model's triangles seen from each
/// light (BandShader, ModelShadows).
///
/// Anti-aliasing: none. Depth and material must stay exact for the painting tools (a
/// blended depth would be a surface that isn't there), and the colour follows them, so
/// every drawn pixel has coverage 255.
///
/// Work is done in bands of rows small enough for the processor's caches: each triangle
/// is first listed in the bands its rows reach, then each band is drawn from its list, in
/// the model's order, shaded, and handed to the buffer row by row. With more than one
/// shading thread the bands overlap: while the helpers shade a band, the drawing thread
/// hands the one before to the buffer and draws the next, then joins the shading.
class ModelRenderer {
public:
    ModelRenderer(const MeshModel& model, const Camera& camera, Buffer& buffer,
                  const Lighting& lights, Reporter* progress, bool flat, std::int32_t width,
                  std::int32_t height, const SectionBox& sectionBox,
                  const RenderOptions& options = {});
    ~ModelRenderer();

    /// Draws everything and hands the rows to the buffer.
    void run();

private:
    /// Per mesh: every point's outside bits (one a clip plane), and, for points in front of
    /// the near plane, its screen position and 1 / projective divisor.
    struct MeshCache {
        UninitialisedHugePageVector<std::uint32_t> outside;
        UninitialisedHugePageVector<Point<3>> screen;
        UninitialisedHugePageVector<double> invW;
    };

    /// Fills caches_, the members of `team` taking runs of points in turn.
    void cacheMeshes(WorkerTeam& team);
    /// Lists each drawable triangle in the bands of the rows it covers, the members of
    /// `team` taking parts of the triangles in turn; the lists are those of one thread.
    void bin(WorkerTeam& team);
    /// The rows of bands (first and last) that triangle `id` can draw, as first << 32 |
    /// last, or noBands; `clipper` and `polygon` are the calling thread's own.
    std::uint64_t bandsOf(std::uint32_t id, std::size_t mesh, TriangleClipper& clipper,
                          std::vector<ScreenVertex>& polygon) const;
    static constexpr std::uint64_t noBands = ~std::uint64_t(0);
    /// The screen box of what of a triangle is left after clipping; false if nothing is.
    bool screenBox(const MeshModel::Mesh& mesh, const MeshCache& cache,
                   const MeshModel::Triangle& triangle, TriangleClipper& clipper,
                   std::vector<ScreenVertex>& polygon, double& top, double& bottom, double& left,
                   double& right) const;
    void drawBand(RenderBand& band, std::int32_t top, std::int32_t bottom,
                  std::span<const std::uint32_t> triangles);
    void drawTriangle(RenderBand& band, const MeshModel::Mesh& mesh, const MeshCache& cache,
                      const MeshModel::Triangle& triangle, std::uint32_t id);
    void flushBand(const RenderBand& band);
    void project(ScreenVertex& v) const;
    void tick();

    const MeshModel& model_;
    const Camera& camera_;
    Buffer& buffer_;
    const Lighting& lights_;
    Reporter* progress_;
    bool flat_;
    std::int32_t width_;
    std::int32_t height_;
    SectionBox sectionBox_;
    RenderOptions options_;

    DepthCoder coder_;
    /// Perspective transform cameras: the column of the projective divisor of
    /// [x y z 1] in the camera's homogeneous matrix; (0, 0, 0, 1) otherwise.
    double divisor_[4] = {0, 0, 0, 1};
    std::unique_ptr<TriangleClipper> clipper_;
    std::unique_ptr<ModelShadows> shadows_;
    std::unique_ptr<BandShader> shader_;
    std::unique_ptr<TriangleFiller> filler_;

    std::vector<MeshCache> caches_;
    std::vector<ColourPOD> materialColours_; ///< by the materials' order
    std::vector<const MeshModel::Mesh*> meshes_;
    /// The id of each mesh's first triangle (ids run through the meshes in order), and
    /// the count of all after the last.
    std::vector<std::uint32_t> meshFirstTriangle_;
    std::int32_t bandRows_ = 1;
    /// Per band b, the ids of the triangles that reach its rows, rising:
    /// bandTriangles_[bandFirst_[b]] up to bandTriangles_[bandFirst_[b + 1] - 1].
    std::vector<std::size_t> bandFirst_;
    UninitialisedHugePageVector<std::uint32_t> bandTriangles_;

    /// Two bands, drawn in turn: one is shaded while the other is drawn.
    RenderBand bands_[2];
    TriangleShade shade_;
    std::vector<ScreenVertex> polygon_;
    std::uint64_t trianglesDone_ = 0;
    std::uint64_t trianglesTotal_ = 0;
};
