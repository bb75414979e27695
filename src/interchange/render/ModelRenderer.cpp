#include "interchange/render/ModelRenderer.h"

#include "core/Reporter.h"
#include "core/TqlError.h"
#include "effects/LightSet.h"
#include "image/Buffer.h"
#include "interchange/model/DXFColours.h"
#include "interchange/model/ExportError.h"
#include "interchange/render/BandShader.h"
#include "interchange/render/ModelShadows.h"
#include "interchange/render/TriangleClipper.h"
#include "interchange/render/TriangleFiller.h"
#include "views/cameras/Camera.h"
#include "views/cameras/ParallelCamera.h"

#include <algorithm>
#include <cmath>
#include <thread>

namespace {

/// The progress callback is told after this many triangles.
constexpr std::uint64_t trianglesPerReport = 64;
/// A surface is shadowed only by triangles nearer the light than it by more than this many
/// times the model's tolerance, so that no surface shadows its own neighbours.
constexpr double shadowBiasTolerances = 2;

bool repeatsOnePoint(const MeshModel::Triangle& t) {
    return t.vertex[0] == t.vertex[1] && t.vertex[1] == t.vertex[2];
}

} // namespace

ModelRenderer::ModelRenderer(const MeshModel& model, const Camera& camera, Buffer& buffer,
                             const Lighting& lights, Reporter* progress, bool flat,
                             std::int32_t width, std::int32_t height, const SectionBox& sectionBox,
                             const RenderOptions& options)
    : model_(model), camera_(camera), buffer_(buffer), lights_(lights), progress_(progress),
      flat_(flat), width_(std::max(width, 0)), height_(std::max(height, 0)),
      sectionBox_(sectionBox), options_(options) {
    if (const auto* t = dynamic_cast<const TransformCamera*>(&camera)) {
        coder_ = t->depthCoder();
        if (t->perspective()) {
            const HomogeneousMatrix<3> h = t->transform().homogeneous();
            for (int i = 0; i < 4; ++i) {
                divisor_[i] = h[i][3];
            }
        }
    } else if (const auto* p = dynamic_cast<const ParallelCamera*>(&camera)) {
        coder_ = p->depthCoder();
    } else {
        throw TQL::TqlError(L"A model can only be rendered through a transform or parallel camera");
    }
    for (const MeshModel::Material* m : model.materialsInOrder()) {
        materialColours_.push_back(modelMaterialColour(*m));
    }
}

ModelRenderer::~ModelRenderer() = default;

void ModelRenderer::run() {
    if (width_ == 0 || height_ == 0) {
        buffer_.finish();
        return;
    }
    clipper_ = std::make_unique<TriangleClipper>(camera_, coder_, width_, height_, sectionBox_,
                                                 model_.bounds());
    shadows_ = std::make_unique<ModelShadows>(model_, lights_, *clipper_,
                                              shadowBiasTolerances * model_.tolerance());
    unsigned threads = options_.shadingThreads;
    if (threads == 0) {
        threads = std::max(1u, std::thread::hardware_concurrency());
    }
    shader_ = std::make_unique<BandShader>(camera_, lights_, *shadows_, flat_, width_,
                                           options_.immediateShading ? 1u : threads);
    filler_ = std::make_unique<TriangleFiller>(coder_, *shader_, options_.immediateShading);
    cacheMeshes();
    bandRows_ = static_cast<std::int32_t>(
        std::clamp<std::int64_t>(options_.bandPixels / width_, 1, height_));
    bin();
    const std::size_t bands = trianglesOfBand_.size();
    for (std::size_t b = 0; b < std::min<std::size_t>(bands, 2); ++b) {
        bands_[b].allocate(width_, bandRows_, !shadows_->empty());
    }
    try {
        for (std::size_t b = 0; b < bands; ++b) {
            RenderBand& band = bands_[b % 2];
            const std::int32_t top = static_cast<std::int32_t>(b) * bandRows_;
            const std::int32_t bottom = std::min(height_, top + bandRows_);
            drawBand(band, top, bottom, trianglesOfBand_[b]);
            // The band before was shaded by the helpers meanwhile: the drawing thread
            // joins in, starts them on this band and hands the one before to the buffer.
            shader_->finishBand();
            if (!options_.immediateShading) {
                shader_->startBand(band);
            }
            if (b > 0) {
                flushBand(bands_[(b - 1) % 2]);
            }
        }
        shader_->finishBand();
    } catch (...) {
        shader_->abandonBand();
        throw;
    }
    if (bands > 0) {
        flushBand(bands_[(bands - 1) % 2]);
    }
    buffer_.finish();
}

void ModelRenderer::tick() {
    ++trianglesDone_;
    if (trianglesDone_ % trianglesPerReport != 0) {
        return;
    }
    const auto total = static_cast<unsigned>(std::min<std::uint64_t>(trianglesTotal_, 0xFFFFFFFFu));
    const auto done = static_cast<unsigned>(std::min<std::uint64_t>(trianglesDone_, total));
    if ((progress_ && progress_->report(total, done, 0)) || TQL::stopRequested()) {
        throw ExportError::abandoned();
    }
}

void ModelRenderer::project(ScreenVertex& v) const {
    const Point<3> s = camera_.project(v.p);
    v.x = s.x();
    v.y = s.y();
    v.z = s.z();
    const double divisor =
        v.p.x() * divisor_[0] + v.p.y() * divisor_[1] + v.p.z() * divisor_[2] + divisor_[3];
    v.invW = 1 / divisor;
    v.projected = true;
}

void ModelRenderer::cacheMeshes() {
    caches_.resize(model_.meshes().size());
    std::size_t m = 0;
    for (const MeshModel::Mesh& mesh : model_.meshes()) {
        MeshCache& cache = caches_[m++];
        const std::size_t n = mesh.points.size();
        cache.outside.assign(n, 0);
        cache.screen.assign(n, Point<3>());
        cache.invW.assign(n, 1);
        for (std::size_t i = 0; i < n; ++i) {
            const Point<3>& p = mesh.points[i];
            const std::uint32_t out = clipper_->outsideBits(p);
            cache.outside[i] = out;
            if (!(out & TriangleClipper::nearPlaneBit)) {
                ScreenVertex v;
                v.p = p;
                project(v);
                cache.screen[i] = Point<3>(v.x, v.y, v.z);
                cache.invW[i] = v.invW;
            }
        }
    }
}

void ModelRenderer::bin() {
    const std::size_t bands = static_cast<std::size_t>((height_ + bandRows_ - 1) / bandRows_);
    trianglesOfBand_.assign(bands, {});
    meshes_.clear();
    meshFirstTriangle_.clear();
    std::uint32_t id = 0;
    std::size_t m = 0;
    for (const MeshModel::Mesh& mesh : model_.meshes()) {
        const MeshCache& cache = caches_[m++];
        meshes_.push_back(&mesh);
        meshFirstTriangle_.push_back(id);
        for (const MeshModel::Triangle& t : mesh.triangles) {
            const std::uint32_t triangle = id++;
            double top = 0, bottom = 0, left = 0, right = 0;
            if (!screenBox(mesh, cache, t, top, bottom, left, right) || !(right > -1) ||
                !(left < width_)) {
                continue;
            }
            // The rows the triangle can draw: ceil(top) up to ceil(bottom) - 1, within the
            // image.
            const double first = std::max(0.0, std::ceil(top));
            const double last = std::min<double>(height_ - 1, std::ceil(bottom) - 1);
            if (!(first <= last)) {
                continue;
            }
            const auto b0 = static_cast<std::size_t>(first) / static_cast<std::size_t>(bandRows_);
            const auto b1 = static_cast<std::size_t>(last) / static_cast<std::size_t>(bandRows_);
            for (std::size_t b = b0; b <= b1; ++b) {
                trianglesOfBand_[b].push_back(triangle);
            }
            trianglesTotal_ += b1 - b0 + 1;
        }
    }
    meshFirstTriangle_.push_back(id);
}

bool ModelRenderer::screenBox(const MeshModel::Mesh& mesh, const MeshCache& cache,
                              const MeshModel::Triangle& t, double& top, double& bottom,
                              double& left, double& right) {
    if (repeatsOnePoint(t)) {
        return false;
    }
    const std::uint32_t p[3] = {mesh.vertices[t.vertex[0]].point, mesh.vertices[t.vertex[1]].point,
                                mesh.vertices[t.vertex[2]].point};
    const std::uint32_t any = cache.outside[p[0]] | cache.outside[p[1]] | cache.outside[p[2]];
    if (cache.outside[p[0]] & cache.outside[p[1]] & cache.outside[p[2]]) {
        return false;
    }
    top = left = INFINITY;
    bottom = right = -INFINITY;
    auto add = [&](double x, double y) {
        top = std::min(top, y);
        bottom = std::max(bottom, y);
        left = std::min(left, x);
        right = std::max(right, x);
    };
    if (!any) {
        for (std::uint32_t k : p) {
            add(cache.screen[k].x(), cache.screen[k].y());
        }
        return true;
    }
    // Cut by the planes it crosses: what is left, projected, bounds it.
    polygon_.resize(3);
    for (int k = 0; k < 3; ++k) {
        polygon_[k].p = mesh.points[p[k]];
        polygon_[k].x = cache.screen[p[k]].x();
        polygon_[k].y = cache.screen[p[k]].y();
    }
    if (clipper_->clip(polygon_, any) < 3) {
        return false;
    }
    for (ScreenVertex& v : polygon_) {
        if (!v.projected) {
            project(v);
        }
        add(v.x, v.y);
    }
    return true;
}

void ModelRenderer::drawBand(RenderBand& band, std::int32_t top, std::int32_t bottom,
                             const std::vector<std::uint32_t>& triangles) {
    band.start(top, bottom);
    std::size_t m = 0;
    for (std::uint32_t id : triangles) {
        // Ids rise through the band's list, and so do their meshes.
        while (meshFirstTriangle_[m + 1] <= id) {
            ++m;
        }
        const MeshModel::Mesh& mesh = *meshes_[m];
        drawTriangle(band, mesh, caches_[m], mesh.triangles[id - meshFirstTriangle_[m]], id);
        tick();
    }
}

void ModelRenderer::drawTriangle(RenderBand& band, const MeshModel::Mesh& mesh,
                                 const MeshCache& cache, const MeshModel::Triangle& t,
                                 std::uint32_t id) {
    if (repeatsOnePoint(t)) {
        return;
    }
    const std::uint32_t points[3] = {mesh.vertices[t.vertex[0]].point,
                                     mesh.vertices[t.vertex[1]].point,
                                     mesh.vertices[t.vertex[2]].point};
    const std::uint32_t any =
        cache.outside[points[0]] | cache.outside[points[1]] | cache.outside[points[2]];
    if (cache.outside[points[0]] & cache.outside[points[1]] & cache.outside[points[2]]) {
        return;
    }
    ScreenVertex corners[3];
    for (int k = 0; k < 3; ++k) {
        ScreenVertex& v = corners[k];
        v.p = mesh.points[points[k]];
        v.n = mesh.vertices[t.vertex[k]].normal;
        const Point<3>& s = cache.screen[points[k]];
        v.x = s.x();
        v.y = s.y();
        v.z = s.z();
        v.invW = cache.invW[points[k]];
    }
    const MeshModel::Material* material = t.material ? t.material : mesh.material;
    const MaterialId materialId =
        material ? static_cast<MaterialId>(std::min<std::uint32_t>(material->order + 1, 0xFFFF))
                 : 0;
    const ColourPOD colour = material && material->order < materialColours_.size()
                                 ? materialColours_[material->order]
                                 : defaultModelColour;
    shader_->prepare(shade_, t.plane, colour, materialId, id, corners);
    if (!any) {
        filler_->fillPolygon(band, shade_, corners, 3);
        return;
    }
    polygon_.assign(corners, corners + 3);
    const int n = clipper_->clip(polygon_, any);
    if (n < 3) {
        return;
    }
    for (ScreenVertex& v : polygon_) {
        if (!v.projected) {
            project(v);
        }
    }
    filler_->fillPolygon(band, shade_, polygon_.data(), n);
}

void ModelRenderer::flushBand(const RenderBand& band) {
    const auto w = static_cast<std::size_t>(width_);
    std::vector<double> depths(w);
    std::vector<std::uint8_t> colours(4 * w);
    std::vector<std::uint32_t> covered(w);
    for (std::int32_t y = band.top; y < band.bottom; ++y) {
        const std::size_t row = band.rowStart(y);
        for (std::size_t x = 0; x < w; ++x) {
            depths[x] = band.codes[row + x];
            const std::uint32_t c = band.colours[row + x];
            colours[4 * x] = static_cast<std::uint8_t>(c);
            colours[4 * x + 1] = static_cast<std::uint8_t>(c >> 8);
            colours[4 * x + 2] = static_cast<std::uint8_t>(c >> 16);
            colours[4 * x + 3] = static_cast<std::uint8_t>(c >> 24);
        }
        const std::uint32_t* flags = nullptr;
        if (band.keepFlags) {
            flags = band.flags.data() + row;
        } else {
            // Without shadows the flags weren't kept: a depth means a drawn pixel.
            for (std::size_t x = 0; x < w; ++x) {
                covered[x] = band.codes[row + x] != depth::noDepth ? Buffer::coveredFlag : 0;
            }
            flags = covered.data();
        }
        buffer_.putRow(y, depths.data(), flags, colours.data(), band.materials.data() + row);
    }
}
