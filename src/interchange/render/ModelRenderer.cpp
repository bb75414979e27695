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
#include "interchange/render/WorkerTeam.h"
#include "views/cameras/Camera.h"
#include "views/cameras/ParallelCamera.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <thread>

namespace {

/// The progress callback is told after this many triangles.
constexpr std::uint64_t trianglesPerReport = 64;
/// A surface is shadowed only by triangles nearer the light than it by more than this many
/// times the model's tolerance, so that no surface shadows its own neighbours.
constexpr double shadowBiasTolerances = 2;

/// The least mesh points and triangles in a part of the set-up handed out to a thread.
constexpr std::size_t pointsPerPart = 16384;
constexpr std::size_t trianglesPerPart = 8192;

/// How many parts to cut `count` items into for the members of `team`: several a member,
/// so that one held up by the machine leaves the rest to the others; one for a team of one.
std::size_t partsFor(std::size_t count, std::size_t perPart, const WorkerTeam& team) {
    return team.size() == 1
               ? 1
               : std::clamp<std::size_t>(count / perPart, 1, std::size_t(8) * team.size());
}

/// The first item of part p of `parts` over [0, count).
std::size_t partStart(std::size_t count, std::size_t parts, std::size_t p) {
    return count * p / parts;
}

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
    // The set-up (the shadow casters, the meshes' screen points, the bands' lists) is
    // shared out over every processor.
    const unsigned setupThreads = options_.setupThreads != 0
                                      ? options_.setupThreads
                                      : std::max(1u, std::thread::hardware_concurrency());
    WorkerTeam setup(setupThreads - 1);
    shadows_ = std::make_unique<ModelShadows>(model_, lights_, *clipper_,
                                              shadowBiasTolerances * model_.tolerance(), &setup);
    unsigned threads = options_.shadingThreads;
    if (threads == 0) {
        threads = std::max(1u, std::thread::hardware_concurrency());
    }
    shader_ = std::make_unique<BandShader>(camera_, lights_, *shadows_, flat_, width_,
                                           options_.immediateShading ? 1u : threads);
    filler_ = std::make_unique<TriangleFiller>(coder_, *shader_, options_.immediateShading,
                                               !options_.plainRows);
    cacheMeshes(setup);
    bandRows_ = static_cast<std::int32_t>(
        std::clamp<std::int64_t>(options_.bandPixels / width_, 1, height_));
    bin(setup);
    const std::size_t bands = bandFirst_.size() - 1;
    for (std::size_t b = 0; b < std::min<std::size_t>(bands, 2); ++b) {
        bands_[b].allocate(width_, bandRows_, !shadows_->empty());
    }
    try {
        for (std::size_t b = 0; b < bands; ++b) {
            RenderBand& band = bands_[b % 2];
            const std::int32_t top = static_cast<std::int32_t>(b) * bandRows_;
            const std::int32_t bottom = std::min(height_, top + bandRows_);
            drawBand(band, top, bottom,
                     std::span<const std::uint32_t>(bandTriangles_.data() + bandFirst_[b],
                                                    bandFirst_[b + 1] - bandFirst_[b]));
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

void ModelRenderer::cacheMeshes(WorkerTeam& team) {
    struct Run {
        std::size_t mesh, begin, end;
    };
    std::vector<Run> runs;
    caches_.resize(model_.meshes().size());
    meshes_.clear();
    for (const MeshModel::Mesh& mesh : model_.meshes()) {
        const std::size_t m = meshes_.size();
        meshes_.push_back(&mesh);
        MeshCache& cache = caches_[m];
        const std::size_t n = mesh.points.size();
        cache.outside.resize(n);
        cache.screen.resize(n);
        cache.invW.resize(n);
        const std::size_t parts = partsFor(n, pointsPerPart, team);
        for (std::size_t p = 0; p < parts; ++p) {
            runs.push_back({m, partStart(n, parts, p), partStart(n, parts, p + 1)});
        }
    }
    std::atomic<std::size_t> next{0};
    team.run([&](unsigned) {
        for (std::size_t r; (r = next.fetch_add(1, std::memory_order_relaxed)) < runs.size();) {
            const MeshModel::Mesh& mesh = *meshes_[runs[r].mesh];
            MeshCache& cache = caches_[runs[r].mesh];
            for (std::size_t i = runs[r].begin; i < runs[r].end; ++i) {
                const Point<3>& p = mesh.points[i];
                const std::uint32_t out = clipper_->outsideBits(p);
                cache.outside[i] = out;
                if (!(out & TriangleClipper::nearPlaneBit)) {
                    ScreenVertex v;
                    v.p = p;
                    project(v);
                    cache.screen[i] = Point<3>(v.x, v.y, v.z);
                    cache.invW[i] = v.invW;
                } else {
                    cache.screen[i] = Point<3>();
                    cache.invW[i] = 1;
                }
            }
        }
    });
}

std::uint64_t ModelRenderer::bandsOf(std::uint32_t id, std::size_t m, TriangleClipper& clipper,
                                     std::vector<ScreenVertex>& polygon) const {
    const MeshModel::Mesh& mesh = *meshes_[m];
    const MeshModel::Triangle& t = mesh.triangles[id - meshFirstTriangle_[m]];
    double top = 0, bottom = 0, left = 0, right = 0;
    if (!screenBox(mesh, caches_[m], t, clipper, polygon, top, bottom, left, right) ||
        !(right > -1) || !(left < width_)) {
        return noBands;
    }
    // The rows the triangle can draw: ceil(top) up to ceil(bottom) - 1, within the image.
    const double first = std::max(0.0, std::ceil(top));
    const double last = std::min<double>(height_ - 1, std::ceil(bottom) - 1);
    if (!(first <= last)) {
        return noBands;
    }
    const auto rows = static_cast<std::uint64_t>(bandRows_);
    return (static_cast<std::uint64_t>(first) / rows) << 32 |
           static_cast<std::uint64_t>(last) / rows;
}

void ModelRenderer::bin(WorkerTeam& team) {
    const std::size_t bands = static_cast<std::size_t>((height_ + bandRows_ - 1) / bandRows_);
    meshFirstTriangle_.clear();
    std::uint32_t id = 0;
    for (const MeshModel::Mesh& mesh : model_.meshes()) {
        meshFirstTriangle_.push_back(id);
        id += static_cast<std::uint32_t>(mesh.triangles.size());
    }
    meshFirstTriangle_.push_back(id);
    const std::size_t triangles = id;

    // Each part of the triangles works out their bands and counts them per band; the parts'
    // counts give each part its place in every band's list after the parts before it; each
    // part then places its triangles, in order. So every list rises as on one thread.
    const std::size_t parts = partsFor(triangles, trianglesPerPart, team);
    UninitialisedHugePageVector<std::uint64_t> bandsOfTriangle(triangles);
    std::vector<std::size_t> counts(parts * bands, 0);
    std::vector<std::vector<ScreenVertex>> polygons(team.size());
    std::vector<TriangleClipper> clippers(team.size(), *clipper_);
    auto eachPart = [&](auto&& work) {
        std::atomic<std::size_t> next{0};
        team.run([&](unsigned member) {
            for (std::size_t p; (p = next.fetch_add(1, std::memory_order_relaxed)) < parts;) {
                const auto begin = static_cast<std::uint32_t>(partStart(triangles, parts, p));
                const auto end = static_cast<std::uint32_t>(partStart(triangles, parts, p + 1));
                work(member, p, begin, end);
            }
        });
    };
    eachPart([&](unsigned member, std::size_t p, std::uint32_t begin, std::uint32_t end) {
        std::size_t m = static_cast<std::size_t>(
            std::upper_bound(meshFirstTriangle_.begin(), meshFirstTriangle_.end(), begin) -
            meshFirstTriangle_.begin() - 1);
        std::size_t* count = counts.data() + p * bands;
        for (std::uint32_t i = begin; i < end; ++i) {
            while (meshFirstTriangle_[m + 1] <= i) {
                ++m;
            }
            const std::uint64_t range = bandsOf(i, m, clippers[member], polygons[member]);
            bandsOfTriangle[i] = range;
            if (range != noBands) {
                for (std::uint64_t b = range >> 32; b <= (range & 0xFFFFFFFFu); ++b) {
                    ++count[b];
                }
            }
        }
    });
    // Turn the counts into each part's first place in each band's list.
    bandFirst_.assign(bands + 1, 0);
    std::size_t place = 0;
    for (std::size_t b = 0; b < bands; ++b) {
        bandFirst_[b] = place;
        for (std::size_t p = 0; p < parts; ++p) {
            const std::size_t n = counts[p * bands + b];
            counts[p * bands + b] = place;
            place += n;
        }
    }
    bandFirst_[bands] = place;
    trianglesTotal_ = place;
    bandTriangles_.resize(place);
    eachPart([&](unsigned, std::size_t p, std::uint32_t begin, std::uint32_t end) {
        std::size_t* at = counts.data() + p * bands;
        for (std::uint32_t i = begin; i < end; ++i) {
            const std::uint64_t range = bandsOfTriangle[i];
            if (range != noBands) {
                for (std::uint64_t b = range >> 32; b <= (range & 0xFFFFFFFFu); ++b) {
                    bandTriangles_[at[b]++] = i;
                }
            }
        }
    });
}

bool ModelRenderer::screenBox(const MeshModel::Mesh& mesh, const MeshCache& cache,
                              const MeshModel::Triangle& t, TriangleClipper& clipper,
                              std::vector<ScreenVertex>& polygon, double& top, double& bottom,
                              double& left, double& right) const {
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
    polygon.resize(3);
    for (int k = 0; k < 3; ++k) {
        polygon[k] = ScreenVertex();
        polygon[k].p = mesh.points[p[k]];
        polygon[k].x = cache.screen[p[k]].x();
        polygon[k].y = cache.screen[p[k]].y();
    }
    if (clipper.clip(polygon, any) < 3) {
        return false;
    }
    for (ScreenVertex& v : polygon) {
        if (!v.projected) {
            project(v);
        }
        add(v.x, v.y);
    }
    return true;
}

void ModelRenderer::drawBand(RenderBand& band, std::int32_t top, std::int32_t bottom,
                             std::span<const std::uint32_t> triangles) {
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
    auto corner = [&](int k) {
        return ScreenVertex(mesh.points[points[k]], mesh.vertices[t.vertex[k]].normal,
                            cache.screen[points[k]], cache.invW[points[k]]);
    };
    ScreenVertex corners[3] = {corner(0), corner(1), corner(2)};
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
