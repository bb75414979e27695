#include "texture/TextureToolPlane.h"

#include "image/ZmapDocument.h"
#include "texture/RasterTexture.h"
#include "texture/Texture.h"
#include "views/cameras/ViewParams.h"
#include "views/cameras/ViewProj.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>

// The SSE2 path and the plain one give the same results; QUORVALE_PLAIN_TEXTURE builds the
// plain one on x86 too, so that it can be run against the tests there.
#if defined(__SSE2__) && !defined(QUORVALE_PLAIN_TEXTURE)
#include <emmintrin.h>
#endif
// Where the processor has AVX the arithmetic runs four pixels at a time, chosen when the
// program runs (the build itself targets plain x86-64).
#if defined(__x86_64__) && defined(__GNUC__) && !defined(QUORVALE_PLAIN_TEXTURE)
#define QUORVALE_TEXTURE_AVX 1
#include <immintrin.h>
#endif

namespace tex {

namespace {

/// The tolerance of the surface frame a tool paints on, as a fraction of a far pixel.
constexpr double planeTolerance = 0.05;
/// Planes whose normals' cross product is shorter than this are taken as parallel: the
/// raster simply goes on.
constexpr double foldLimit = 0.0001;
/// A preferred direction this close to the normal is not used for the raster's u axis.
constexpr double axisLimit = 0.01;

bool hasDepth(std::uint32_t code) {
    return code < depth::farCode;
}

/// v turned by `angle` (cosine c, sine s) about the unit axis k.
Vector<3> turn(const Vector<3>& v, const Vector<3>& k, double c, double s) {
    return v * c + cross(k, v) * s + k * (dot(k, v) * (1 - c));
}

/// The footprint of a pixel whose centre-to-edge steps in the raster are hx (across) and
/// hy (down): the extent of its four corners, centre +- hx +- hy, balanced.
double pixelFootprint(const Vector<2>& hx, const Vector<2>& hy) {
    const double width = 2 * (std::abs(hx.x()) + std::abs(hy.x()));
    const double height = 2 * (std::abs(hx.y()) + std::abs(hy.y()));
    return balanceFootprint(width, height);
}

/// Copies `count` pixels of rows y - 1, y and y + 1 of `bitmap` from column x on into
/// `rows`, a tile's run at a time; cells outside the image get `outside`. A row in the same
/// tile as row y is read through that tile's handle: one tile fetch (a lock) a tile column
/// for all three rows, rather than one a row.
template <class T>
void readThreeRows(const TileBitmap& bitmap, std::int32_t width, std::int32_t height,
                   std::int32_t x, std::int32_t y, std::int32_t count, T* const rows[3],
                   T outside) {
    std::int32_t k = 0;
    auto fill = [&](std::int32_t upTo) {
        for (; k < upTo; ++k) {
            for (int r = 0; r < 3; ++r) {
                rows[r][k] = outside;
            }
        }
    };
    fill(std::min(count, -x));
    const std::int32_t end = std::min(count, width - x);
    const std::int32_t tileRow = y & ~bitmap.geometry().yMask;
    TileHandle hold;
    TileHandle other;
    while (k < end) {
        const std::uint8_t* run = nullptr;
        const std::int32_t length = std::min(bitmap.runForRead(x + k, y, hold, &run), end - k);
        if (length <= 0) {
            break;
        }
        for (int r = 0; r < 3; ++r) {
            const std::int32_t row = y + r - 1;
            T* to = rows[r] + k;
            if (row < 0 || row >= height) {
                std::fill(to, to + length, outside);
                continue;
            }
            const std::uint8_t* from = run;
            if (r != 1) {
                if ((row & ~bitmap.geometry().yMask) != tileRow) {
                    // Another tile row: the run has the same length there.
                    bitmap.runForRead(x + k, row, other, &from);
                } else if (!hold->empty()) {
                    // (An empty tile reads as one row of the empty value for every row.)
                    from = run + static_cast<std::ptrdiff_t>(r - 1) * hold->stride();
                }
            }
            std::memcpy(to, from, static_cast<std::size_t>(length) * sizeof(T));
        }
        k += length;
    }
    fill(count);
}

/// Copies `count` depth codes and materials of row y from column x on into `codes` and
/// `mats`, a tile's run at a time; cells outside the image get no depth and material 0.
void readDepthRow(const ZmapDocument& document, std::int32_t x, std::int32_t y, std::int32_t count,
                  std::uint32_t* codes, MaterialId* mats) {
    std::int32_t k = 0;
    auto outside = [&](std::int32_t upTo) {
        for (; k < upTo; ++k) {
            codes[k] = depth::noDepth;
            mats[k] = 0;
        }
    };
    if (y < 0 || y >= document.height() || !document.z) {
        outside(count);
        return;
    }
    outside(std::min(count, -x));
    const std::int32_t end = std::min(count, document.width() - x);
    TileHandle zHold;
    TileHandle matHold;
    while (k < end) {
        const std::uint8_t* run = nullptr;
        const std::int32_t length =
            std::min(document.z->runForRead(x + k, y, zHold, &run), end - k);
        if (length <= 0) {
            break;
        }
        std::memcpy(codes + k, run, static_cast<std::size_t>(length) * sizeof(std::uint32_t));
        std::int32_t m = 0;
        while (document.mat && m < length) {
            const std::uint8_t* matRun = nullptr;
            const std::int32_t matLength =
                std::min(document.mat->runForRead(x + k + m, y, matHold, &matRun), length - m);
            if (matLength <= 0) {
                break;
            }
            std::memcpy(mats + k + m, matRun,
                        static_cast<std::size_t>(matLength) * sizeof(MaterialId));
            m += matLength;
        }
        std::fill(mats + k + m, mats + k + length, MaterialId{0});
        k += length;
    }
    outside(count);
}

} // namespace

CurrentTextureAxes& currentTextureAxes() {
    static CurrentTextureAxes axes;
    return axes;
}

TextureToolPlane::TextureToolPlane(const TQL::Handle<Texture2d>& texture,
                                   const PlanePlacing& placing, const TextureOutput& output)
    : TextureToolBase(output), texture_(texture), placing_(placing) {
    placing_.planeMode = std::clamp(placing.planeMode, 0, 4);
    placing_.pixelWidth = placing.pixelWidth > 0 ? placing.pixelWidth : 1.0;
    placing_.pixelHeight = placing.pixelHeight > 0 ? placing.pixelHeight : 1.0;
}

void TextureToolPlane::setAxes(const TextureAxes& axes) {
    axes_ = axes;
    hasAxes_ = true;
    axesFixed_ = true;
}

void TextureToolPlane::start(int x, int y, ZmapDocument& document) {
    view_ = document.viewProj();
    if (!view_) {
        return;
    }
    const ViewProj& view = *view_;
    faceSize_ = view.viewType() == ViewProj::cubicView ? view.faceSize().size() : 0;
    const ViewParams& record = document.viewParams();
    millimetres_ = unitMillimetres(record.unitCode) * record.modelScale;
    if (!(millimetres_ > 0)) {
        millimetres_ = 1.0;
    }
    clickedPixel_ = IPoint<2>(x, y);
    clickedCode_ = document.zAt(x, y);
    const bool noDepth = !hasDepth(clickedCode_);
    const bool autoPlane = placing_.planeMode == PlanePlacing::autoplane;
    const bool sameDocument = document.serial() == documentSerial_;
    documentSerial_ = document.serial();
    usePlaneDepth_ = autoPlane || axesFixed_;

    if (!axesFixed_) {
        const CurrentTextureAxes& global = currentTextureAxes();
        if (current_ && global.documentSerial == document.serial()) {
            axes_ = global.axes;
            hasAxes_ = true;
        } else if (!hasAxes_ || !sameDocument || (autoPlane && !noDepth)) {
            axes_.origin = document.worldAt(x, y);
            axes_.primary = Vector<3>(0, 0, 1);
            axes_.secondary = Vector<3>(0, 1, 0);
            axes_.plane = Plane(record.zAxis.unit(), axes_.origin);
            hasAxes_ = true;
            hasPrevious_ = sameDocument && hasPrevious_;
        }
        if (!sameDocument) {
            hasPrevious_ = false;
        }
        switch (placing_.planeMode) {
        case PlanePlacing::front:
            // The plane of the axes, which faces the view.
            break;
        case PlanePlacing::autoplane:
            if (noDepth && hasPrevious_) {
                axes_.plane = previousPlane_;
                break;
            }
            axes_.plane = document.planeAt(x, y);
            break;
        case PlanePlacing::tangent:
            axes_.plane = document.planeAt(x, y);
            break;
        case PlanePlacing::wrapped:
        case PlanePlacing::autowrapped: {
            const Plane plane = document.planeAt(x, y);
            if (hasPrevious_) {
                fold(plane);
            }
            axes_.plane = plane;
            break;
        }
        }
    }
    previousPlane_ = axes_.plane;
    hasPrevious_ = true;
    planeDepth_ = SurfaceFrame(axes_.plane, view, planeTolerance);
    computeRows();
    if (current_ && !axesFixed_) {
        currentTextureAxes() = CurrentTextureAxes{axes_, document.serial()};
    }
}

void TextureToolPlane::fold(const Plane& plane) {
    const Vector<3> n0 = previousPlane_.normal();
    const Vector<3> n1 = plane.normal();
    const Vector<3> l = cross(n0, n1);
    const double sine = l.length();
    if (sine < foldLimit) {
        return;
    }
    // The turn about the planes' common line that takes the previous plane onto the new
    // one: the raster on the previous plane, continued past the line, lands on the new
    // plane's side of it.
    const Vector<3> k = l / sine;
    const double cosine = dot(n0, n1);
    const double d0 = previousPlane_.distanceFromOrigin();
    const double d1 = plane.distanceFromOrigin();
    const Point<3> onLine =
        toPoint((n0 * (d0 - d1 * cosine) + n1 * (d1 - d0 * cosine)) / (sine * sine));
    // The origin is first brought onto the previous plane along its normal (a placing
    // kept from another surface may lie off it), so that it lands on the new plane.
    const Point<3> origin = previousPlane_.project(axes_.origin);
    axes_.origin = onLine + turn(origin - onLine, k, cosine, sine);
    axes_.primary = turn(axes_.primary, k, cosine, sine);
    axes_.secondary = turn(axes_.secondary, k, cosine, sine);
}

void TextureToolPlane::computeRows() {
    const Vector<3> n = axes_.plane.normal().unit();
    Vector<3> a = cross(n, axes_.primary);
    if (a.length() < axisLimit) {
        a = cross(n, axes_.secondary);
    }
    if (a.length() < axisLimit) {
        // Neither preferred direction lies in the plane: any direction of it will do.
        a = cross(n, std::abs(n.x()) < 0.9 ? Vector<3>(1, 0, 0) : Vector<3>(0, 1, 0));
    }
    const Vector<3> u = a.unit();
    const Vector<3> v = cross(n, u).unit();
    const double angle = placing_.angleDegrees * std::numbers::pi / 180.0;
    const double c = std::cos(angle);
    const double s = std::sin(angle);
    // World lengths of one raster pixel.
    const double hu = placing_.pixelWidth / millimetres_;
    const double hv = placing_.pixelHeight / millimetres_;
    const Vector<3> ru = (u * c + v * s) / hu;
    const Vector<3> rv = (v * c - u * s) / hv;
    // World point = h0 row0 + h1 row1 + h2 row2 + row3; a raster coordinate is its
    // distance from the origin along ru (or rv).
    double pod[4][3];
    view_->toWorld().packToPod(pod);
    for (int i = 0; i < 3; ++i) {
        const Vector<3> row(pod[i]);
        uRow_[i] = dot(row, ru);
        vRow_[i] = dot(row, rv);
    }
    const Vector<3> shift = Vector<3>(pod[3]) - toVector(axes_.origin);
    uBase_ = dot(shift, ru) + placing_.hook.x();
    vBase_ = dot(shift, rv) + placing_.hook.y();

    flat_ = FlatMap();
    flat_.uBase = uBase_;
    flat_.vBase = vBase_;
    switch (view_->viewType()) {
    case ViewProj::perspectiveView:
        // (x w, y w, w): a coordinate is w (row . (x, y, 1)).
        flat_.s = 1;
        flat_.t = view_->depthOffset();
        for (int i = 0; i < 3; ++i) {
            flat_.u[i] = uRow_[i];
            flat_.v[i] = vRow_[i];
        }
        break;
    case ViewProj::parallelView:
        // (x, y, code): the row straight, the code's term in d.
        flat_.t = 1;
        flat_.u[0] = uRow_[0];
        flat_.u[1] = uRow_[1];
        flat_.u[3] = uRow_[2];
        flat_.v[0] = vRow_[0];
        flat_.v[1] = vRow_[1];
        flat_.v[3] = vRow_[2];
        break;
    case ViewProj::cubicView:
    case ViewProj::unknownView:
        // Cube images go through mapPixel; an unknown view maps everything to the base.
        break;
    }
}

Point<2> TextureToolPlane::rasterPoint(const Point<3>& world) const {
    if (!view_) {
        return {0, 0};
    }
    return mapHomogeneous(world / view_->toWorld());
}

Point<2> TextureToolPlane::mapPixel(double x, double y, double code) const {
    return mapHomogeneous(view_->homogeneousFromPixelPoint(Point<3>(x, y, code)));
}

double TextureToolPlane::pixelCode(std::int32_t x, std::int32_t y, std::uint32_t code) const {
    if (usePlaneDepth_) {
        std::uint32_t planeCode = 0;
        if (planeDepth_.depthCode(x, y, planeCode) && hasDepth(planeCode)) {
            return planeCode;
        }
        return depth::farCode;
    }
    return hasDepth(code) ? code : depth::farCode;
}

namespace {

/// The mapping of one pixel's centre and its two edge points to the raster, and the
/// footprint from the extent of the corners (centre +- both half steps; the sign of a half
/// step doesn't matter to that extent). `lu` and `lv` are the linear parts a x + b y + c of
/// the centre. The SSE2 form below does the same sums in the same order, two pixels at a
/// time, so both give the same bits.
struct PixelSums {
    double s, t;
    double ua, ub, ud, uBase;
    double va, vb, vd, vBase;

    void operator()(double c, double lu, double lv, double xc, double xo, double yc, double yo,
                    float& u, float& v, float& footprint) const {
        const double w = s * c + t;
        const double pu = w * lu + ud * c + uBase;
        const double pv = w * lv + vd * c + vBase;
        const double xw = s * xc + t;
        const double xu = xw * (lu + ua * xo) + ud * xc + uBase;
        const double xv = xw * (lv + va * xo) + vd * xc + vBase;
        const double yw = s * yc + t;
        const double yu = yw * (lu + ub * yo) + ud * yc + uBase;
        const double yv = yw * (lv + vb * yo) + vd * yc + vBase;
        u = static_cast<float>(pu);
        v = static_cast<float>(pv);
        footprint =
            static_cast<float>(balanceFootprint(2 * (std::abs(xu - pu) + std::abs(yu - pu)),
                                                2 * (std::abs(xv - pv) + std::abs(yv - pv))));
    }
};

#if defined(__SSE2__) && !defined(QUORVALE_PLAIN_TEXTURE)
struct PairSums {
    __m128d s, t, ua, ub, ud, uBase, va, vb, vd, vBase;
    __m128d magnitude, two, quarter, twenty, wide, narrow;

    explicit PairSums(const PixelSums& m)
        : s(_mm_set1_pd(m.s)), t(_mm_set1_pd(m.t)), ua(_mm_set1_pd(m.ua)), ub(_mm_set1_pd(m.ub)),
          ud(_mm_set1_pd(m.ud)), uBase(_mm_set1_pd(m.uBase)), va(_mm_set1_pd(m.va)),
          vb(_mm_set1_pd(m.vb)), vd(_mm_set1_pd(m.vd)), vBase(_mm_set1_pd(m.vBase)),
          magnitude(_mm_castsi128_pd(_mm_set1_epi64x(0x7FFFFFFFFFFFFFFF))), two(_mm_set1_pd(2.0)),
          quarter(_mm_set1_pd(0.25)), twenty(_mm_set1_pd(20.0)), wide(_mm_set1_pd(1.1875)),
          narrow(_mm_set1_pd(3.75)) {}

    void operator()(__m128d c, __m128d lu, __m128d lv, __m128d xc, __m128d xo, __m128d yc,
                    __m128d yo, float* u, float* v, float* footprint) const {
        const __m128d w = _mm_add_pd(_mm_mul_pd(s, c), t);
        const __m128d pu = _mm_add_pd(_mm_add_pd(_mm_mul_pd(w, lu), _mm_mul_pd(ud, c)), uBase);
        const __m128d pv = _mm_add_pd(_mm_add_pd(_mm_mul_pd(w, lv), _mm_mul_pd(vd, c)), vBase);
        // An edge point: its own depth code, and its offset along x (factors ua, va) or
        // along y (ub, vb) added to the centre's linear parts.
        auto edge = [&](__m128d ec, __m128d eo, __m128d du, __m128d dv, __m128d& eu, __m128d& ev) {
            const __m128d ew = _mm_add_pd(_mm_mul_pd(s, ec), t);
            eu = _mm_add_pd(
                _mm_add_pd(_mm_mul_pd(ew, _mm_add_pd(lu, _mm_mul_pd(du, eo))), _mm_mul_pd(ud, ec)),
                uBase);
            ev = _mm_add_pd(
                _mm_add_pd(_mm_mul_pd(ew, _mm_add_pd(lv, _mm_mul_pd(dv, eo))), _mm_mul_pd(vd, ec)),
                vBase);
        };
        __m128d xu, xv, yu, yv;
        edge(xc, xo, ua, va, xu, xv);
        edge(yc, yo, ub, vb, yu, yv);
        const __m128d width =
            _mm_mul_pd(two, _mm_add_pd(_mm_and_pd(_mm_sub_pd(xu, pu), magnitude),
                                       _mm_and_pd(_mm_sub_pd(yu, pu), magnitude)));
        const __m128d height =
            _mm_mul_pd(two, _mm_add_pd(_mm_and_pd(_mm_sub_pd(xv, pv), magnitude),
                                       _mm_and_pd(_mm_sub_pd(yv, pv), magnitude)));
        // balanceFootprint without branches.
        const __m128d a = _mm_max_pd(width, height);
        const __m128d b = _mm_min_pd(width, height);
        const __m128d blend = _mm_sub_pd(_mm_mul_pd(wide, a), _mm_mul_pd(narrow, b));
        const __m128d thin = _mm_cmple_pd(_mm_mul_pd(twenty, b), a);
        const __m128d oblique = _mm_or_pd(_mm_and_pd(thin, a), _mm_andnot_pd(thin, blend));
        const __m128d square = _mm_cmpge_pd(b, _mm_mul_pd(a, quarter));
        const __m128d f = _mm_or_pd(_mm_and_pd(square, b), _mm_andnot_pd(square, oblique));
        _mm_storel_pi(reinterpret_cast<__m64*>(u), _mm_cvtpd_ps(pu));
        _mm_storel_pi(reinterpret_cast<__m64*>(v), _mm_cvtpd_ps(pv));
        _mm_storel_pi(reinterpret_cast<__m64*>(footprint), _mm_cvtpd_ps(f));
    }
};

#endif

#if defined(QUORVALE_TEXTURE_AVX)
bool hasAvx() {
    static const bool avx = __builtin_cpu_supports("avx");
    return avx;
}

/// PixelSums four pixels at a time in AVX, the same sums in the same order: pixel k of the
/// arrays is image column x0 + 1 + k. Returns how many pixels it did (a multiple of 4).
__attribute__((target("avx"))) int quadSums(const PixelSums& m, double x0, double uRow, double vRow,
                                            const double* code, const double* xCode,
                                            const double* xOffset, const double* yCode,
                                            const double* yOffset, int count, float* u, float* v,
                                            float* footprint) {
    const __m256d s = _mm256_set1_pd(m.s), t = _mm256_set1_pd(m.t);
    const __m256d ua = _mm256_set1_pd(m.ua), ub = _mm256_set1_pd(m.ub);
    const __m256d ud = _mm256_set1_pd(m.ud), uBase = _mm256_set1_pd(m.uBase);
    const __m256d va = _mm256_set1_pd(m.va), vb = _mm256_set1_pd(m.vb);
    const __m256d vd = _mm256_set1_pd(m.vd), vBase = _mm256_set1_pd(m.vBase);
    const __m256d uR = _mm256_set1_pd(uRow), vR = _mm256_set1_pd(vRow);
    const __m256d magnitude = _mm256_castsi256_pd(_mm256_set1_epi64x(0x7FFFFFFFFFFFFFFF));
    const __m256d two = _mm256_set1_pd(2.0), quarter = _mm256_set1_pd(0.25);
    const __m256d twenty = _mm256_set1_pd(20.0);
    const __m256d wide = _mm256_set1_pd(1.1875), narrow = _mm256_set1_pd(3.75);
    __m256d px = _mm256_set_pd(x0 + 4.0, x0 + 3.0, x0 + 2.0, x0 + 1.0);
    const __m256d step = _mm256_set1_pd(4.0);
    int k = 0;
    for (; k + 4 <= count; k += 4) {
        const __m256d c = _mm256_loadu_pd(code + k);
        const __m256d lu = _mm256_add_pd(_mm256_mul_pd(ua, px), uR);
        const __m256d lv = _mm256_add_pd(_mm256_mul_pd(va, px), vR);
        px = _mm256_add_pd(px, step);
        const __m256d w = _mm256_add_pd(_mm256_mul_pd(s, c), t);
        const __m256d pu =
            _mm256_add_pd(_mm256_add_pd(_mm256_mul_pd(w, lu), _mm256_mul_pd(ud, c)), uBase);
        const __m256d pv =
            _mm256_add_pd(_mm256_add_pd(_mm256_mul_pd(w, lv), _mm256_mul_pd(vd, c)), vBase);
        const __m256d xc = _mm256_loadu_pd(xCode + k);
        const __m256d xo = _mm256_loadu_pd(xOffset + k);
        const __m256d xw = _mm256_add_pd(_mm256_mul_pd(s, xc), t);
        const __m256d xu =
            _mm256_add_pd(_mm256_add_pd(_mm256_mul_pd(xw, _mm256_add_pd(lu, _mm256_mul_pd(ua, xo))),
                                        _mm256_mul_pd(ud, xc)),
                          uBase);
        const __m256d xv =
            _mm256_add_pd(_mm256_add_pd(_mm256_mul_pd(xw, _mm256_add_pd(lv, _mm256_mul_pd(va, xo))),
                                        _mm256_mul_pd(vd, xc)),
                          vBase);
        const __m256d yc = _mm256_loadu_pd(yCode + k);
        const __m256d yo = _mm256_loadu_pd(yOffset + k);
        const __m256d yw = _mm256_add_pd(_mm256_mul_pd(s, yc), t);
        const __m256d yu =
            _mm256_add_pd(_mm256_add_pd(_mm256_mul_pd(yw, _mm256_add_pd(lu, _mm256_mul_pd(ub, yo))),
                                        _mm256_mul_pd(ud, yc)),
                          uBase);
        const __m256d yv =
            _mm256_add_pd(_mm256_add_pd(_mm256_mul_pd(yw, _mm256_add_pd(lv, _mm256_mul_pd(vb, yo))),
                                        _mm256_mul_pd(vd, yc)),
                          vBase);
        const __m256d width =
            _mm256_mul_pd(two, _mm256_add_pd(_mm256_and_pd(_mm256_sub_pd(xu, pu), magnitude),
                                             _mm256_and_pd(_mm256_sub_pd(yu, pu), magnitude)));
        const __m256d height =
            _mm256_mul_pd(two, _mm256_add_pd(_mm256_and_pd(_mm256_sub_pd(xv, pv), magnitude),
                                             _mm256_and_pd(_mm256_sub_pd(yv, pv), magnitude)));
        const __m256d a = _mm256_max_pd(width, height);
        const __m256d b = _mm256_min_pd(width, height);
        const __m256d blend = _mm256_sub_pd(_mm256_mul_pd(wide, a), _mm256_mul_pd(narrow, b));
        const __m256d thin = _mm256_cmp_pd(_mm256_mul_pd(twenty, b), a, _CMP_LE_OQ);
        const __m256d oblique = _mm256_blendv_pd(blend, a, thin);
        const __m256d square = _mm256_cmp_pd(b, _mm256_mul_pd(a, quarter), _CMP_GE_OQ);
        const __m256d f = _mm256_blendv_pd(oblique, b, square);
        _mm_storeu_ps(u + k, _mm256_cvtpd_ps(pu));
        _mm_storeu_ps(v + k, _mm256_cvtpd_ps(pv));
        _mm_storeu_ps(footprint + k, _mm256_cvtpd_ps(f));
    }
    return k;
}
#endif

} // namespace

void TextureToolPlane::flatSamples(std::int32_t x0, std::int32_t y,
                                   const std::uint32_t* const codes[3],
                                   const MaterialId* const mats[3], int count, float* u, float* v,
                                   float* footprint) const {
    const FlatMap& m = flat_;
    const PixelSums sums{m.s,     m.t,    m.u[0], m.u[1], m.u[3],
                         m.uBase, m.v[0], m.v[1], m.v[3], m.vBase};
    const double fy = y;
    const double uRow = m.u[1] * fy + m.u[2];
    const double vRow = m.v[1] * fy + m.v[2];

    if (usePlaneDepth_) {
        // The plane's own codes at the centre and, where it shows, at the edges.
        for (int k = 0; k < count; ++k) {
            const std::int32_t x = x0 + 1 + k;
            const double own = pixelCode(x, y, 0);
            auto edge = [&](int dx, int dy, double& edgeCode, double& offset) {
                for (const double sign : {0.5, -0.5}) {
                    double e = 0;
                    if (planeDepth_.depthCode(Point<2>(x + sign * dx, y + sign * dy), e) &&
                        e < depth::farCode) {
                        edgeCode = e;
                        offset = sign;
                        return;
                    }
                }
                edgeCode = own;
                offset = 0.5;
            };
            double xc = 0, xo = 0, yc = 0, yo = 0;
            edge(1, 0, xc, xo);
            edge(0, 1, yc, yo);
            const double px = x;
            sums(own, m.u[0] * px + uRow, m.v[0] * px + vRow, xc, xo, yc, yo, u[k], v[k],
                 footprint[k]);
        }
        return;
    }

    // The pixel's right edge (or, mirrored, its left one) lies at the mean code of the pixel
    // and its neighbour there, when the neighbour has depth and the same material; with
    // neither neighbour, at the pixel's own code. The lower edge likewise. A pixel without
    // depth maps at the far code. Cells outside the image hold no depth, so they never
    // count as neighbours. Pixel k is cell k + 1.
    const std::uint32_t* above = codes[0];
    const std::uint32_t* row = codes[1];
    const std::uint32_t* below = codes[2];
    const MaterialId* matAbove = mats[0];
    const MaterialId* matRow = mats[1];
    const MaterialId* matBelow = mats[2];
    alignas(16) double code[maxSpanLength];
    alignas(16) double xCode[maxSpanLength];
    alignas(16) double xOffset[maxSpanLength];
    alignas(16) double yCode[maxSpanLength];
    alignas(16) double yOffset[maxSpanLength];
    // First the choices, pixel by pixel (branches that a surface's uniform rows predict
    // well measured faster than the same choices made branch-free in SSE2), then the
    // arithmetic, the same for every pixel.
    for (int k = 0; k < count; ++k) {
        const int c = k + 1;
        const std::uint32_t own = row[c];
        if (!hasDepth(own)) {
            code[k] = xCode[k] = yCode[k] = depth::farCode;
            xOffset[k] = yOffset[k] = 0.5;
            continue;
        }
        const double centre = own;
        code[k] = centre;
        const MaterialId material = matRow[c];
        auto edge = [&](std::uint32_t after, MaterialId afterMat, std::uint32_t before,
                        MaterialId beforeMat, double& edgeCode, double& offset) {
            if (hasDepth(after) && afterMat == material) {
                edgeCode = 0.5 * (centre + static_cast<double>(after));
                offset = 0.5;
            } else if (hasDepth(before) && beforeMat == material) {
                edgeCode = 0.5 * (centre + static_cast<double>(before));
                offset = -0.5;
            } else {
                edgeCode = centre;
                offset = 0.5;
            }
        };
        edge(row[c + 1], matRow[c + 1], row[c - 1], matRow[c - 1], xCode[k], xOffset[k]);
        edge(below[c], matBelow[c], above[c], matAbove[c], yCode[k], yOffset[k]);
    }
    int k = 0;
#if defined(QUORVALE_TEXTURE_AVX)
    if (hasAvx()) {
        k = quadSums(sums, x0, uRow, vRow, code, xCode, xOffset, yCode, yOffset, count, u, v,
                     footprint);
    }
#endif
#if defined(__SSE2__) && !defined(QUORVALE_PLAIN_TEXTURE)
    {
        const PairSums pair(sums);
        const __m128d ua = _mm_set1_pd(m.u[0]), va = _mm_set1_pd(m.v[0]);
        const __m128d uR = _mm_set1_pd(uRow), vR = _mm_set1_pd(vRow);
        __m128d px = _mm_set_pd(x0 + 2.0 + k, x0 + 1.0 + k);
        const __m128d step = _mm_set1_pd(2.0);
        for (; k + 2 <= count; k += 2) {
            const __m128d lu = _mm_add_pd(_mm_mul_pd(ua, px), uR);
            const __m128d lv = _mm_add_pd(_mm_mul_pd(va, px), vR);
            pair(_mm_load_pd(code + k), lu, lv, _mm_load_pd(xCode + k), _mm_load_pd(xOffset + k),
                 _mm_load_pd(yCode + k), _mm_load_pd(yOffset + k), u + k, v + k, footprint + k);
            px = _mm_add_pd(px, step);
        }
    }
#endif
    for (; k < count; ++k) {
        const double px = x0 + 1 + k;
        sums(code[k], m.u[0] * px + uRow, m.v[0] * px + vRow, xCode[k], xOffset[k], yCode[k],
             yOffset[k], u[k], v[k], footprint[k]);
    }
}

double TextureToolPlane::cubicFootprint(const ZmapDocument& document, std::int32_t x,
                                        std::int32_t y, const Point<2>& centre) const {
    const FaceSize faces(faceSize_);
    const std::uint32_t code = document.zAt(x, y);
    const MaterialId material = document.matAt(x, y);
    // Neighbours across face edges; a pixel's edge lies half way to its neighbour. Both
    // neighbours are used where both are on the surface, so that the copies of an edge
    // pixel on two faces (whose neighbours are the same pixels) get the same footprint.
    auto halfStep = [&](bool horizontal) {
        Vector<2> sum;
        int found = 0;
        for (const int sign : {1, -1}) {
            std::int32_t nx = x;
            std::int32_t ny = y;
            if (horizontal && sign > 0) {
                faces.stepRight(nx, ny);
            } else if (horizontal) {
                faces.stepLeft(nx, ny);
            } else if (sign > 0) {
                faces.stepDown(nx, ny);
            } else {
                faces.stepUp(nx, ny);
            }
            if (!faces.contains(nx, ny)) {
                continue;
            }
            double c = 0;
            if (usePlaneDepth_) {
                c = pixelCode(nx, ny, 0);
                if (!(c < depth::farCode)) {
                    continue;
                }
            } else {
                const std::uint32_t neighbour = document.zAt(nx, ny);
                if (!hasDepth(code) || !hasDepth(neighbour) || document.matAt(nx, ny) != material) {
                    continue;
                }
                c = neighbour;
            }
            sum = sum + (mapPixel(nx, ny, c) - centre) * (0.5 * sign);
            ++found;
        }
        if (found > 0) {
            return sum / static_cast<double>(found);
        }
        const double c = pixelCode(x, y, code);
        return (horizontal ? mapPixel(x + 0.5, y, c) : mapPixel(x, y + 0.5, c)) - centre;
    };
    return pixelFootprint(halfStep(true), halfStep(false));
}

bool TextureToolPlane::pixelSample(const ZmapDocument& document, std::int32_t x, std::int32_t y,
                                   Point<2>& point, double& footprint) const {
    float u = 0, v = 0, fp = 0;
    if (!rowSamples(document, x, y, 1, &u, &v, &fp)) {
        return false;
    }
    point = Point<2>(u, v);
    footprint = fp;
    return true;
}

bool TextureToolPlane::rowSamples(const ZmapDocument& document, std::int32_t x, std::int32_t y,
                                  int count, float* u, float* v, float* footprint) const {
    if (!view_ || count < 0 || count > maxSpanLength) {
        return false;
    }
    if (faceSize_ > 0) {
        for (int k = 0; k < count; ++k) {
            const std::int32_t px = x + k;
            const Point<2> p = mapPixel(px, y, pixelCode(px, y, document.zAt(px, y)));
            u[k] = static_cast<float>(p.x());
            v[k] = static_cast<float>(p.y());
            footprint[k] = static_cast<float>(cubicFootprint(document, px, y, p));
        }
        return true;
    }
    // The depth and material of the rows above, on and below, one pixel wider on each
    // side, read once.
    std::uint32_t rowCodes[3][maxSpanLength + 2];
    MaterialId rowMats[3][maxSpanLength + 2];
    if (!usePlaneDepth_) {
        if (y >= 0 && y < document.height() && document.z && document.mat) {
            std::uint32_t* const codeRows[3] = {rowCodes[0], rowCodes[1], rowCodes[2]};
            MaterialId* const matRows[3] = {rowMats[0], rowMats[1], rowMats[2]};
            readThreeRows(*document.z, document.width(), document.height(), x - 1, y, count + 2,
                          codeRows, depth::noDepth);
            readThreeRows(*document.mat, document.width(), document.height(), x - 1, y, count + 2,
                          matRows, MaterialId{0});
        } else {
            for (int r = 0; r < 3; ++r) {
                readDepthRow(document, x - 1, y + r - 1, count + 2, rowCodes[r], rowMats[r]);
            }
        }
    }
    const std::uint32_t* const codes[3] = {rowCodes[0], rowCodes[1], rowCodes[2]};
    const MaterialId* const mats[3] = {rowMats[0], rowMats[1], rowMats[2]};
    flatSamples(x - 1, y, codes, mats, count, u, v, footprint);
    return true;
}

void TextureToolPlane::run(Span& span, int first, int last) {
    if (!view_ || !span.document || first >= last) {
        return;
    }
    int index[maxSpanLength];
    int n = 0;
    for (int i = first; i < last; ++i) {
        if (span.alpha[i] > 0) {
            index[n++] = i;
        }
    }
    if (n == 0) {
        return;
    }
    // Every pixel from the first covered one to the last is worked out (a row's arithmetic
    // goes best without gaps); pixels without coverage between them are then dropped.
    const int lo = index[0];
    const int length = index[n - 1] + 1 - lo;
    float u[maxSpanLength], v[maxSpanLength], fp[maxSpanLength], alpha[maxSpanLength];
    std::uint8_t rgb[maxSpanLength * 3];
    rowSamples(*span.document, span.x + lo, span.y, length, u, v, fp);
    if (n < length) {
        for (int k = 0; k < n; ++k) {
            const int c = index[k] - lo;
            u[k] = u[c];
            v[k] = v[c];
            fp[k] = fp[c];
        }
    }
    texture_->sample(rgb, alpha, u, v, fp, n);
    output_.write(span, index, rgb, alpha, n);
}

void TextureToolPlane::preview(PreviewBitmap& bitmap) {
    const auto* raster = dynamic_cast<const RasterTexture*>(texture_.get());
    const double side = raster ? std::max(raster->pixelWidth(), raster->pixelHeight()) : 128;
    const double width = bitmap.width > 0 ? bitmap.width : 128;
    drawRasterPreview(*texture_, width / side, bitmap);
}

} // namespace tex
