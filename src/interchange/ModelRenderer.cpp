#include "interchange/ModelRenderer.h"

#include "core/Reporter.h"
#include "core/TqlError.h"
#include "effects/LightSet.h"
#include "image/Buffer.h"
#include "interchange/DXFColours.h"
#include "interchange/ExportError.h"
#include "views/cameras/Camera.h"
#include "views/cameras/ParallelCamera.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr std::uint32_t noWork = 0xFFFFFFFFu;
/// Shadow tests are kept for the lights whose flag fits in a buffer's 32-bit flags.
constexpr std::uint32_t maxShadowLights = 31;

/// a x + b y + c over the screen.
struct Linear {
    double a = 0, b = 0, c = 0;
    double at(double x, double y) const { return a * x + b * y + c; }
};

/// Colour components 0 to 1 to a pixel of blue, green, red and full coverage.
std::uint32_t packColour(double r, double g, double b) {
    auto byte = [](double v) -> std::uint32_t {
        const double s = v * 255 + 0.5;
        return s >= 255 ? 255u : s > 0 ? static_cast<std::uint32_t>(s) : 0u;
    };
    return byte(b) | byte(g) << 8 | byte(r) << 16 | 0xFF000000u;
}

/// Orders two points by their coordinates, so that an edge is cut the same way by every
/// triangle that has it.
bool before(const Point<3>& a, const Point<3>& b) {
    if (a.x() != b.x()) {
        return a.x() < b.x();
    }
    if (a.y() != b.y()) {
        return a.y() < b.y();
    }
    return a.z() < b.z();
}

} // namespace

struct ModelRenderer::Vertex {
    Point<3> p;  ///< model coordinates
    Vector<3> n; ///< normal, turned towards the eye
    double x = 0, y = 0, z = 0;
    double invW = 1; ///< 1 / the camera's projective divisor
    /// The screen values are set (a corner made by clipping has none yet).
    bool projected = true;
};

/// What a triangle's pixels need, worked out once a triangle.
struct ModelRenderer::Shade {
    MaterialId material = 0;
    std::uint32_t owner = 0;
    double base[3] = {0, 0, 0};
    /// Normals vary over the triangle.
    bool smooth = false;
    /// Some pixel work: a smooth normal or a shadow test.
    bool perPixel = false;
    Vector<3> normal;
    /// Flat triangles: the shadow bits known for the whole triangle (lights it faces away
    /// from), and each light's part of the illumination.
    std::uint32_t constantMask = 0;
    std::vector<LightColour> parts;
    /// The colour and flags of a pixel when nothing more is blocked.
    std::uint32_t colour = 0;
    std::uint32_t flags = Buffer::coveredFlag;
};

/// What the pixels of one filled triangle (or piece of a clipped one) need when their work
/// is done, once the band knows which pixels are seen: shading is deferred so that hidden
/// pixels cost nothing and the seen ones are worked row by row.
struct ModelRenderer::Work {
    MaterialId material = 0;
    bool smooth = false;
    std::uint32_t owner = 0;
    std::uint32_t constantMask = 0;
    std::uint32_t colour = 0;
    /// Flat triangles: where the band's list of light parts starts.
    std::uint32_t partsFirst = 0;
    double base[3] = {0, 0, 0};
    Vector<3> normal;
    /// Perspective-correct interpolation: each value times invW is linear, as is invW.
    Linear invW, p[3], n[3];
};

/// The shading inputs of a run of pixels.
struct ModelRenderer::SpanScratch {
    std::vector<Vector<3>> normals;
    std::vector<std::uint32_t> masks;
    std::vector<LightColour> light;
};

/// Per mesh: every point's outside bits (one a clip plane), and, for points in front of the
/// near plane, its screen position and 1 / projective divisor.
struct ModelRenderer::MeshCache {
    std::vector<std::uint32_t> outside;
    std::vector<Point<3>> screen;
    std::vector<double> invW;
};

void SmoothModelImp::render(const Camera& camera, Buffer& buffer, const Lighting& lights,
                            Reporter* progress, bool flat, std::int32_t width, std::int32_t height,
                            const SectionBox& sectionBox) const {
    ModelRenderer(*this, camera, buffer, lights, progress, flat, width, height, sectionBox).run();
}

ModelRenderer::ModelRenderer(const SmoothModelImp& model, const Camera& camera, Buffer& buffer,
                             const Lighting& lights, Reporter* progress, bool flat,
                             std::int32_t width, std::int32_t height, const SectionBox& sectionBox)
    : model_(model), camera_(camera), buffer_(buffer), lights_(lights), progress_(progress),
      flat_(flat), width_(std::max(width, 0)), height_(std::max(height, 0)),
      sectionBox_(sectionBox), shade_(std::make_unique<Shade>()),
      scratch_(std::make_unique<SpanScratch>()) {
    if (const auto* t = dynamic_cast<const TransformCamera*>(&camera)) {
        coder_ = t->depthCoder();
        if (t->perspective()) {
            const HomogeneousMatrix<3> h = t->transform().homogeneous();
            for (int i = 0; i < 4; ++i) {
                divisor_[i] = h[i][3];
            }
            projective_ = true;
        }
    } else if (const auto* p = dynamic_cast<const ParallelCamera*>(&camera)) {
        coder_ = p->depthCoder();
    } else {
        throw TQL::TqlError(L"A model can only be rendered through a transform or parallel camera");
    }
    shadowBias_ = 2 * model.tolerance();
    for (const SmoothModelImp::Material* m : model.materialsInOrder()) {
        materialColours_.push_back(modelMaterialColour(*m));
    }
}

ModelRenderer::~ModelRenderer() = default;

void ModelRenderer::run() {
    if (width_ == 0 || height_ == 0) {
        buffer_.finish();
        return;
    }
    makeClipPlanes();
    makeShadowCasters();
    cacheMeshes();
    bandRows_ =
        static_cast<std::int32_t>(std::clamp<std::int64_t>(bandPixels / width_, 1, height_));
    bin();
    const auto w = static_cast<std::size_t>(width_);
    scratch_->normals.resize(w);
    scratch_->masks.resize(w);
    scratch_->light.resize(w);
    const std::size_t pixels = w * static_cast<std::size_t>(bandRows_);
    codes_.resize(pixels);
    colours_.resize(pixels);
    materials_.resize(pixels);
    flags_.resize(pixels);
    workOf_.resize(pixels);
    for (std::size_t band = 0; band < bins_.size(); ++band) {
        const std::int32_t top = static_cast<std::int32_t>(band) * bandRows_;
        const std::int32_t bottom = std::min(height_, top + bandRows_);
        renderBand(top, bottom, bins_[band]);
        flushBand(top, bottom);
    }
    buffer_.finish();
}

void ModelRenderer::tick() {
    ++trianglesDone_;
    if (trianglesDone_ % 64 != 0) {
        return;
    }
    const auto total = static_cast<unsigned>(std::min<std::uint64_t>(trianglesTotal_, 0xFFFFFFFFu));
    const auto done = static_cast<unsigned>(std::min<std::uint64_t>(trianglesDone_, total));
    if ((progress_ && progress_->report(total, done, 0)) || TQL::stopRequested()) {
        throw ExportError::abandoned();
    }
}

// Clip planes ---------------------------------------------------------------------------

void ModelRenderer::makeClipPlanes() {
    const double w = width_;
    const double h = height_;
    double zNear = coder_.zAt(0);
    if (!std::isfinite(zNear)) {
        zNear = coder_.zAt(1); // a camera whose near depth is the eye itself
    }
    const double zFar = coder_.zAt(depth::codeSpan);
    const double zMid = coder_.zAt(depth::codeSpan / 2);
    const Point<3> inside = camera_.unproject(Point<3>((w - 1) / 2, (h - 1) / 2, zMid));
    auto facingInside = [&](const Point<3>& a, const Point<3>& b, const Point<3>& c) {
        const Plane plane(a, b, c);
        return plane.distanceTo(inside) >= 0 ? plane : -plane;
    };
    auto across = [&](double z) {
        return facingInside(camera_.unproject(Point<3>(0, 0, z)),
                            camera_.unproject(Point<3>(w, 0, z)),
                            camera_.unproject(Point<3>(0, h, z)));
    };
    planes_.push_back(across(zNear));
    planes_.push_back(across(zFar));
    const double g = 2 * (w + h) + 16;
    auto side = [&](double x0, double y0, double x1, double y1) {
        return facingInside(camera_.unproject(Point<3>(x0, y0, zMid)),
                            camera_.unproject(Point<3>(x1, y1, zMid)),
                            camera_.unproject(Point<3>(x0, y0, zFar)));
    };
    planes_.push_back(side(-g, 0, -g, h));
    planes_.push_back(side(w + g, 0, w + g, h));
    planes_.push_back(side(0, -g, w, -g));
    planes_.push_back(side(0, h + g, w, h + g));

    const SectionBox& f = sectionBox_;
    const Extent<3> bounds = model_.bounds();
    const bool empty = f[3] <= f[0] || f[4] <= f[1] || f[5] <= f[2];
    if (empty || bounds.degenerate()) {
        return;
    }
    for (int axis = 0; axis < 3; ++axis) {
        Vector<3> up;
        up[axis] = 1;
        const double lo = bounds.lo()[axis];
        const double hi = bounds.hi()[axis];
        if (f[axis] > 0) {
            Point<3> at;
            at[axis] = lo * (1 - f[axis]) + hi * f[axis];
            planes_.push_back(Plane(up, at));
        }
        if (f[axis + 3] < 1) {
            Point<3> at;
            at[axis] = lo * (1 - f[axis + 3]) + hi * f[axis + 3];
            planes_.push_back(Plane(-up, at));
        }
    }
}

int ModelRenderer::clip(std::vector<Vertex>& polygon, std::uint32_t outside) {
    for (std::size_t k = 0; k < planes_.size() && !polygon.empty(); ++k) {
        if (!(outside & (1u << k))) {
            continue;
        }
        const Plane& plane = planes_[k];
        clipped_.clear();
        const std::size_t n = polygon.size();
        for (std::size_t i = 0; i < n; ++i) {
            const Vertex& a = polygon[i];
            const Vertex& b = polygon[(i + 1) % n];
            const double da = plane.distanceTo(a.p);
            const double db = plane.distanceTo(b.p);
            if (da >= 0) {
                clipped_.push_back(a);
            }
            if ((da >= 0) != (db >= 0)) {
                // The new corner from the edge's ends in a fixed order.
                const bool swap = before(b.p, a.p);
                const Vertex& s = swap ? b : a;
                const Vertex& e = swap ? a : b;
                const double ds = swap ? db : da;
                const double de = swap ? da : db;
                const double t = ds / (ds - de);
                Vertex v;
                v.p = Point<3>(s.p.x() + (e.p.x() - s.p.x()) * t, s.p.y() + (e.p.y() - s.p.y()) * t,
                               s.p.z() + (e.p.z() - s.p.z()) * t);
                v.n = s.n + (e.n - s.n) * t;
                v.projected = false;
                clipped_.push_back(v);
            }
        }
        polygon.swap(clipped_);
    }
    return static_cast<int>(polygon.size());
}

void ModelRenderer::project(Vertex& v) const {
    const Point<3> s = camera_.project(v.p);
    v.x = s.x();
    v.y = s.y();
    v.z = s.z();
    const double divisor =
        v.p.x() * divisor_[0] + v.p.y() * divisor_[1] + v.p.z() * divisor_[2] + divisor_[3];
    v.invW = 1 / divisor;
    v.projected = true;
}

// Shadows -------------------------------------------------------------------------------

void ModelRenderer::makeShadowCasters() {
    const Extent<3> bounds = model_.bounds();
    if (bounds.degenerate()) {
        return;
    }
    const std::size_t count = std::min<std::size_t>(lights_.lightCount(), maxShadowLights);
    for (std::size_t i = 0; i < count; ++i) {
        const Light& light = lights_.light(i);
        if (!light.castsShadow()) {
            continue;
        }
        const Ray axes = light.direction();
        shadowLights_.push_back({static_cast<std::uint32_t>(i), axes.z(),
                                 std::make_unique<ShadowCaster>(axes, bounds, shadowBias_),
                                 ShadowCaster::noHint});
    }
    if (shadowLights_.empty()) {
        return;
    }
    // The section box's planes cut the casters too: what is cut away throws no shadow.
    std::uint32_t sectionBits = 0;
    for (std::size_t k = 6; k < planes_.size(); ++k) {
        sectionBits |= 1u << k;
    }
    std::uint32_t id = 0;
    for (const SmoothModelImp::Mesh& mesh : model_.meshes()) {
        for (const SmoothModelImp::Triangle& t : mesh.triangles) {
            const std::uint32_t owner = id++;
            std::vector<Vertex>& poly = polygon_;
            poly.resize(3);
            std::uint32_t any = 0, all = ~0u;
            for (int k = 0; k < 3; ++k) {
                poly[k].p = mesh.points[mesh.vertices[t.vertex[k]].point];
                std::uint32_t out = 0;
                for (std::size_t q = 6; q < planes_.size(); ++q) {
                    if (planes_[q].distanceTo(poly[k].p) < 0) {
                        out |= 1u << q;
                    }
                }
                any |= out;
                all &= out;
            }
            if (all & sectionBits) {
                continue;
            }
            const int n = any ? clip(poly, any) : 3;
            for (ShadowLight& s : shadowLights_) {
                for (int k = 1; k + 1 < n; ++k) {
                    s.caster->add(poly[0].p, poly[k].p, poly[k + 1].p, owner);
                }
            }
        }
    }
    for (ShadowLight& s : shadowLights_) {
        s.caster->build();
    }
}

// Meshes and triangles --------------------------------------------------------------------

void ModelRenderer::cacheMeshes() {
    caches_.resize(model_.meshes().size());
    std::size_t m = 0;
    for (const SmoothModelImp::Mesh& mesh : model_.meshes()) {
        MeshCache& cache = caches_[m++];
        const std::size_t n = mesh.points.size();
        cache.outside.assign(n, 0);
        cache.screen.assign(n, Point<3>());
        cache.invW.assign(n, 1);
        for (std::size_t i = 0; i < n; ++i) {
            const Point<3>& p = mesh.points[i];
            std::uint32_t out = 0;
            for (std::size_t k = 0; k < planes_.size(); ++k) {
                if (planes_[k].distanceTo(p) < 0) {
                    out |= 1u << k;
                }
            }
            cache.outside[i] = out;
            if (!(out & 1u)) {
                Vertex v;
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
    bins_.assign(bands, {});
    meshes_.clear();
    meshFirst_.clear();
    std::uint32_t id = 0;
    std::size_t m = 0;
    for (const SmoothModelImp::Mesh& mesh : model_.meshes()) {
        const MeshCache& cache = caches_[m++];
        meshes_.push_back(&mesh);
        meshFirst_.push_back(id);
        for (const SmoothModelImp::Triangle& t : mesh.triangles) {
            const std::uint32_t triangle = id++;
            double lo = 0, hi = 0, left = 0, right = 0;
            if (!screenBox(mesh, cache, t, lo, hi, left, right) || !(right > -1) ||
                !(left < width_)) {
                continue;
            }
            // The rows the triangle can draw: ceil(lo) up to ceil(hi) - 1, within the image.
            const double first = std::max(0.0, std::ceil(lo));
            const double last = std::min<double>(height_ - 1, std::ceil(hi) - 1);
            if (!(first <= last)) {
                continue;
            }
            const auto b0 = static_cast<std::size_t>(first) / static_cast<std::size_t>(bandRows_);
            const auto b1 = static_cast<std::size_t>(last) / static_cast<std::size_t>(bandRows_);
            for (std::size_t b = b0; b <= b1; ++b) {
                bins_[b].push_back(triangle);
            }
            trianglesTotal_ += b1 - b0 + 1;
        }
    }
    meshFirst_.push_back(id);
}

bool ModelRenderer::screenBox(const SmoothModelImp::Mesh& mesh, const MeshCache& cache,
                              const SmoothModelImp::Triangle& t, double& lo, double& hi,
                              double& left, double& right) {
    if (t.vertex[0] == t.vertex[1] && t.vertex[1] == t.vertex[2]) {
        return false;
    }
    const std::uint32_t p[3] = {mesh.vertices[t.vertex[0]].point, mesh.vertices[t.vertex[1]].point,
                                mesh.vertices[t.vertex[2]].point};
    const std::uint32_t any = cache.outside[p[0]] | cache.outside[p[1]] | cache.outside[p[2]];
    if (cache.outside[p[0]] & cache.outside[p[1]] & cache.outside[p[2]]) {
        return false;
    }
    lo = left = INFINITY;
    hi = right = -INFINITY;
    auto add = [&](double x, double y) {
        lo = std::min(lo, y);
        hi = std::max(hi, y);
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
    if (clip(polygon_, any) < 3) {
        return false;
    }
    for (Vertex& v : polygon_) {
        if (!v.projected) {
            project(v);
        }
        add(v.x, v.y);
    }
    return true;
}

void ModelRenderer::renderBand(std::int32_t top, std::int32_t bottom,
                               const std::vector<std::uint32_t>& triangles) {
    bandTop_ = top;
    bandBottom_ = bottom;
    const std::size_t pixels = static_cast<std::size_t>(width_) * (bottom - top);
    std::fill_n(codes_.begin(), pixels, depth::noDepth);
    std::fill_n(colours_.begin(), pixels, 0u);
    std::fill_n(materials_.begin(), pixels, MaterialId(0));
    if (!shadowLights_.empty()) {
        std::fill_n(flags_.begin(), pixels, 0u);
    }
    std::fill_n(workOf_.begin(), pixels, noWork);
    works_.clear();
    parts_.clear();
    std::size_t m = 0;
    for (std::uint32_t id : triangles) {
        // Ids rise through the band's list, and so do their meshes.
        while (meshFirst_[m + 1] <= id) {
            ++m;
        }
        const SmoothModelImp::Mesh& mesh = *meshes_[m];
        drawTriangle(mesh, caches_[m], mesh.triangles[id - meshFirst_[m]], id);
        tick();
    }
    shadeBand();
}

void ModelRenderer::drawTriangle(const SmoothModelImp::Mesh& mesh, const MeshCache& cache,
                                 const SmoothModelImp::Triangle& t, std::uint32_t id) {
    if (t.vertex[0] == t.vertex[1] && t.vertex[1] == t.vertex[2]) {
        return;
    }
    const std::uint32_t p0 = mesh.vertices[t.vertex[0]].point;
    const std::uint32_t p1 = mesh.vertices[t.vertex[1]].point;
    const std::uint32_t p2 = mesh.vertices[t.vertex[2]].point;
    const std::uint32_t any = cache.outside[p0] | cache.outside[p1] | cache.outside[p2];
    if (cache.outside[p0] & cache.outside[p1] & cache.outside[p2]) {
        return;
    }
    Vertex corners[3];
    const std::uint32_t points[3] = {p0, p1, p2};
    for (int k = 0; k < 3; ++k) {
        Vertex& v = corners[k];
        v.p = mesh.points[points[k]];
        const Point<3>& s = cache.screen[points[k]];
        v.x = s.x();
        v.y = s.y();
        v.z = s.z();
        v.invW = cache.invW[points[k]];
    }
    setUpShade(mesh, t, id, corners);
    if (!any) {
        drawPolygon(corners, 3);
        return;
    }
    polygon_.assign(corners, corners + 3);
    const int n = clip(polygon_, any);
    if (n < 3) {
        return;
    }
    for (Vertex& v : polygon_) {
        if (!v.projected) {
            project(v);
        }
    }
    drawPolygon(polygon_.data(), n);
}

void ModelRenderer::setUpShade(const SmoothModelImp::Mesh& mesh, const SmoothModelImp::Triangle& t,
                               std::uint32_t id, Vertex (&corners)[3]) {
    Shade& s = *shade_;
    const SmoothModelImp::Material* material = t.material ? t.material : mesh.material;
    s.material = material
                     ? static_cast<MaterialId>(std::min<std::uint32_t>(material->order + 1, 0xFFFF))
                     : 0;
    const ColourPOD c = material && material->order < materialColours_.size()
                            ? materialColours_[material->order]
                            : defaultModelColour;
    s.base[0] = c.r / 255.0;
    s.base[1] = c.g / 255.0;
    s.base[2] = c.b / 255.0;
    s.owner = id;

    // Normals turned towards the eye: a model's faces are seen from either side.
    Vector<3> face = t.plane.normal();
    if (!camera_.facing(t.plane)) {
        face = -face;
    }
    s.normal = face;
    s.smooth = false;
    for (int k = 0; k < 3; ++k) {
        Vector<3> n = flat_ ? face : mesh.vertices[t.vertex[k]].normal;
        if (dot(n, face) < 0) {
            n = -n;
        }
        corners[k].n = n;
        s.smooth = s.smooth || !(n == face);
    }

    s.constantMask = 0;
    std::uint32_t tested = 0;
    for (const ShadowLight& l : shadowLights_) {
        if (!s.smooth && dot(face, l.travel) >= 0) {
            s.constantMask |= 1u << l.index; // turned away: in its own shadow
        } else {
            tested |= 1u << l.index;
        }
    }
    s.perPixel = s.smooth || tested != 0;
    if (!s.smooth) {
        const std::size_t lights = lights_.lightCount();
        s.parts.resize(lights);
        LightColour sum;
        for (std::size_t i = 0; i < lights; ++i) {
            s.parts[i] = lights_.light(i).illumination(face);
            if (!(i < 32 && (s.constantMask & (1u << i)))) {
                sum += s.parts[i];
            }
        }
        s.colour = packColour(s.base[0] * sum.red, s.base[1] * sum.green, s.base[2] * sum.blue);
    }
    s.flags = Buffer::coveredFlag | (s.constantMask << 1);
}

void ModelRenderer::drawPolygon(const Vertex* polygon, int count) {
    for (int k = 1; k + 1 < count; ++k) {
        switch (coder_.kind) {
        case DepthCoder::inverse:
            fill<DepthCoder::inverse>(polygon[0], polygon[k], polygon[k + 1]);
            break;
        case DepthCoder::linear:
            fill<DepthCoder::linear>(polygon[0], polygon[k], polygon[k + 1]);
            break;
        case DepthCoder::truncated:
            fill<DepthCoder::truncated>(polygon[0], polygon[k], polygon[k + 1]);
            break;
        }
    }
}

// Scan conversion -------------------------------------------------------------------------

namespace {

/// The camera's code of z, kept below the no-depth code so that a drawn pixel always
/// has a depth (the clipping at the far plane leaves nothing beyond it but rounding).
template <int Kind> inline std::uint32_t codeOf(const DepthCoder& c, double z) {
    std::uint32_t code;
    if constexpr (Kind == DepthCoder::inverse) {
        code = DepthCoder::rounded((-1.0 / z - c.offset) * c.scale);
    } else if constexpr (Kind == DepthCoder::linear) {
        code = DepthCoder::rounded((z - c.offset) * c.scale);
    } else {
        code = DepthCoder::truncatedCode((z / c.pixelScale + c.offset) * c.scale);
    }
    return std::min(code, depth::farCode);
}

/// The pixels of a row that a flat triangle without shadow tests colours at once.
struct ConstantSpan {
    std::uint32_t* codes;
    std::uint32_t* colours;
    MaterialId* materials;
    std::uint32_t* flags;
    std::uint32_t* works;
    std::uint32_t colour;
    MaterialId material;
    std::uint32_t flag;

    /// Pixels x0 to x1 - 1, depth z = zRow + dzdx x; the flags only if they are kept.
    template <int Kind, bool KeepFlags>
    void fill(const DepthCoder& coder, double zRow, double dzdx, std::int32_t x0,
              std::int32_t x1) const {
        for (std::int32_t x = x0; x < x1; ++x) {
            const std::uint32_t code = codeOf<Kind>(coder, zRow + dzdx * x);
            if (code <= codes[x]) {
                codes[x] = code;
                colours[x] = colour;
                materials[x] = material;
                if constexpr (KeepFlags) {
                    flags[x] = flag;
                }
                works[x] = noWork;
            }
        }
    }
};

/// One edge of a triangle, from its upper end p to its lower end q.
struct Edge {
    double px, py, slope;
    Edge(const ModelRenderer::Vertex& p, const ModelRenderer::Vertex& q)
        : px(p.x), py(p.y), slope((q.x - p.x) / (q.y - p.y)) {}
    double at(double y) const { return px + (y - py) * slope; }
};

/// The first pixel centre at or right of x, kept within [0, width].
std::int32_t firstAtOrAfter(double x, std::int32_t width) {
    if (!(x > 0)) {
        return 0;
    }
    if (x >= width) {
        return width;
    }
    return static_cast<std::int32_t>(std::ceil(x));
}

/// The plane through three values at the screen positions of a, b, c.
Linear linearOf(const ModelRenderer::Vertex& a, const ModelRenderer::Vertex& b,
                const ModelRenderer::Vertex& c, double fa, double fb, double fc, double area) {
    Linear l;
    l.a = ((fb - fa) * (c.y - a.y) - (fc - fa) * (b.y - a.y)) / area;
    l.b = ((b.x - a.x) * (fc - fa) - (c.x - a.x) * (fb - fa)) / area;
    l.c = fa - l.a * a.x - l.b * a.y;
    return l;
}

} // namespace

template <int Kind> void ModelRenderer::fill(const Vertex& va, const Vertex& vb, const Vertex& vc) {
    const Vertex* v[3] = {&va, &vb, &vc};
    if (v[1]->y < v[0]->y) {
        std::swap(v[0], v[1]);
    }
    if (v[2]->y < v[1]->y) {
        std::swap(v[1], v[2]);
    }
    if (v[1]->y < v[0]->y) {
        std::swap(v[0], v[1]);
    }
    const Vertex& a = *v[0];
    const Vertex& b = *v[1];
    const Vertex& c = *v[2];
    const double yTop = std::max<double>(bandTop_, std::ceil(a.y));
    const double yEnd = std::min<double>(bandBottom_, std::ceil(c.y));
    if (!(yTop < yEnd)) {
        return;
    }
    const double area = (b.x - a.x) * (c.y - a.y) - (c.x - a.x) * (b.y - a.y);
    if (!(area != 0) || !std::isfinite(area)) {
        return;
    }
    const bool midOnRight = area > 0;
    const Linear z = linearOf(a, b, c, a.z, b.z, c.z, area);
    Shade& s = *shade_;
    // The work record of these pixels, made when the first of them is seen.
    std::uint32_t work = noWork;
    auto makeWork = [&]() {
        Work& r = works_.emplace_back();
        r.material = s.material;
        r.smooth = s.smooth;
        r.owner = s.owner;
        r.constantMask = s.constantMask;
        r.colour = s.colour;
        r.base[0] = s.base[0];
        r.base[1] = s.base[1];
        r.base[2] = s.base[2];
        r.normal = s.normal;
        if (!s.smooth) {
            r.partsFirst = static_cast<std::uint32_t>(parts_.size());
            parts_.insert(parts_.end(), s.parts.begin(), s.parts.end());
        }
        r.invW = linearOf(a, b, c, a.invW, b.invW, c.invW, area);
        for (int k = 0; k < 3; ++k) {
            r.p[k] = linearOf(a, b, c, a.p[k] * a.invW, b.p[k] * b.invW, c.p[k] * c.invW, area);
            if (s.smooth) {
                r.n[k] = linearOf(a, b, c, a.n[k] * a.invW, b.n[k] * b.invW, c.n[k] * c.invW, area);
            }
        }
        return static_cast<std::uint32_t>(works_.size() - 1);
    };
    const Edge longEdge(a, c);
    const Edge upper(a, b);
    const Edge lower(b, c);
    const DepthCoder coder = coder_;
    const std::uint32_t colour = s.colour;
    const std::uint32_t flags = s.flags;
    const MaterialId material = s.material;
    const bool keepFlags = !shadowLights_.empty();
    for (auto y = static_cast<std::int32_t>(yTop); y < static_cast<std::int32_t>(yEnd); ++y) {
        const double yy = y;
        const double xLong = longEdge.at(yy);
        const double xShort = yy < b.y ? upper.at(yy) : lower.at(yy);
        const double left = midOnRight ? xLong : xShort;
        const double right = midOnRight ? xShort : xLong;
        const std::int32_t x0 = firstAtOrAfter(left, width_);
        const std::int32_t x1 = firstAtOrAfter(right, width_);
        if (x0 >= x1) {
            continue;
        }
        const std::size_t row = static_cast<std::size_t>(y - bandTop_) * width_;
        std::uint32_t* codes = codes_.data() + row;
        const double zRow = z.b * yy + z.c;
        if (!s.perPixel) {
            std::uint32_t* works = workOf_.data() + row;
            std::uint32_t* colours = colours_.data() + row;
            MaterialId* materials = materials_.data() + row;
            std::uint32_t* flagRow = flags_.data() + row;
            const ConstantSpan span{codes, colours, materials, flagRow,
                                    works, colour,  material,  flags};
            if (keepFlags) {
                span.fill<Kind, true>(coder, zRow, z.a, x0, x1);
            } else {
                span.fill<Kind, false>(coder, zRow, z.a, x0, x1);
            }
            continue;
        }
        std::uint32_t* works = workOf_.data() + row;
        for (std::int32_t x = x0; x < x1; ++x) {
            const std::uint32_t code = codeOf<Kind>(coder, zRow + z.a * x);
            if (code <= codes[x]) {
                if (work == noWork) {
                    work = makeWork();
                }
                codes[x] = code;
                works[x] = work;
            }
        }
    }
}

void ModelRenderer::shadeBand() {
    for (std::int32_t y = bandTop_; y < bandBottom_; ++y) {
        const std::size_t row = static_cast<std::size_t>(y - bandTop_) * width_;
        const std::uint32_t* works = workOf_.data() + row;
        for (std::int32_t x = 0; x < width_;) {
            const std::uint32_t work = works[x];
            if (work == noWork) {
                ++x;
                continue;
            }
            const std::int32_t start = x;
            while (x < width_ && works[x] == work) {
                ++x;
            }
            shadeRun(works_[work], y, start, x);
        }
    }
}

void ModelRenderer::shadeRun(const Work& s, std::int32_t y, std::int32_t x0, std::int32_t x1) {
    SpanScratch& w = *scratch_;
    const std::int32_t count = x1 - x0;
    const double yy = y;
    const std::size_t row = static_cast<std::size_t>(y - bandTop_) * width_;
    auto pointAt = [&](double x, double q) {
        return Point<3>(s.p[0].at(x, yy) * q, s.p[1].at(x, yy) * q, s.p[2].at(x, yy) * q);
    };
    for (std::int32_t i = 0; i < count; ++i) {
        const double x = x0 + i;
        const double q = 1 / s.invW.at(x, yy);
        Vector<3> n = s.normal;
        if (s.smooth) {
            n = Vector<3>(s.n[0].at(x, yy) * q, s.n[1].at(x, yy) * q, s.n[2].at(x, yy) * q).unit();
        }
        std::uint32_t mask = s.constantMask;
        if (!shadowLights_.empty()) {
            const Point<3> p = pointAt(x, q);
            for (ShadowLight& l : shadowLights_) {
                const std::uint32_t bit = 1u << l.index;
                if (mask & bit) {
                    continue;
                }
                if (dot(n, l.travel) >= 0 ||
                    l.caster->blocked(l.caster->toLight(p), s.owner, l.hint)) {
                    mask |= bit;
                }
            }
        }
        w.normals[i] = n;
        w.masks[i] = mask;
    }
    if (s.smooth) {
        lights_.illuminateSpan(w.normals.data(), static_cast<std::size_t>(count), w.masks.data(),
                               w.light.data());
    }
    const std::size_t lights = lights_.lightCount();
    for (std::int32_t i = 0; i < count; ++i) {
        const std::uint32_t mask = w.masks[i];
        std::uint32_t colour = s.colour;
        if (s.smooth) {
            const LightColour& l = w.light[i];
            colour = packColour(s.base[0] * l.red, s.base[1] * l.green, s.base[2] * l.blue);
        } else if (mask != s.constantMask) {
            LightColour sum;
            for (std::size_t k = 0; k < lights; ++k) {
                if (!(k < 32 && (mask & (1u << k)))) {
                    sum += parts_[s.partsFirst + k];
                }
            }
            colour = packColour(s.base[0] * sum.red, s.base[1] * sum.green, s.base[2] * sum.blue);
        }
        colours_[row + x0 + i] = colour;
        materials_[row + x0 + i] = s.material;
        flags_[row + x0 + i] = Buffer::coveredFlag | (mask << 1);
    }
}

void ModelRenderer::flushBand(std::int32_t top, std::int32_t bottom) {
    const auto w = static_cast<std::size_t>(width_);
    std::vector<double> depths(w);
    std::vector<std::uint8_t> colours(4 * w);
    std::vector<std::uint32_t> covered(w);
    for (std::int32_t y = top; y < bottom; ++y) {
        const std::size_t row = static_cast<std::size_t>(y - top) * w;
        for (std::size_t x = 0; x < w; ++x) {
            depths[x] = codes_[row + x];
            const std::uint32_t c = colours_[row + x];
            colours[4 * x] = static_cast<std::uint8_t>(c);
            colours[4 * x + 1] = static_cast<std::uint8_t>(c >> 8);
            colours[4 * x + 2] = static_cast<std::uint8_t>(c >> 16);
            colours[4 * x + 3] = static_cast<std::uint8_t>(c >> 24);
        }
        const std::uint32_t* flags = flags_.data() + row;
        if (shadowLights_.empty()) {
            // Without shadows the flags weren't kept: a depth means a drawn pixel.
            for (std::size_t x = 0; x < w; ++x) {
                covered[x] = codes_[row + x] != depth::noDepth ? Buffer::coveredFlag : 0;
            }
            flags = covered.data();
        }
        buffer_.putRow(y, depths.data(), flags, colours.data(), materials_.data() + row);
    }
}
