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
    axes_.origin = onLine + turn(axes_.origin - onLine, k, cosine, sine);
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

void TextureToolPlane::flatSample(std::int32_t x, std::int32_t y,
                                  const std::uint32_t* const codes[3],
                                  const MaterialId* const mats[3], std::int32_t column, float& u,
                                  float& v, float& footprint) const {
    const FlatMap& m = flat_;
    // The raster point of pixel position (px, py) at a real code.
    auto map = [&m](double px, double py, double code, double& mu, double& mv) {
        const double w = m.s * code + m.t;
        mu = w * (m.u[0] * px + m.u[1] * py + m.u[2]) + m.u[3] * code + m.uBase;
        mv = w * (m.v[0] * px + m.v[1] * py + m.v[2]) + m.v[3] * code + m.vBase;
    };
    const double fx = x;
    const double fy = y;
    const std::uint32_t own = codes[1][column];
    double code = 0;
    if (usePlaneDepth_) {
        code = pixelCode(x, y, own);
    } else {
        code = hasDepth(own) ? own : depth::farCode;
    }
    double pu = 0;
    double pv = 0;
    map(fx, fy, code, pu, pv);

    // The half step to the pixel's right (or, mirrored, left) edge and to its lower (or
    // upper) edge. An edge lies at the mean code of the pixel and its neighbour there, when
    // the neighbour has depth and the same material; with neither neighbour, at the pixel's
    // own code. Cells outside the image hold no depth, so they never count as neighbours.
    auto halfStep = [&](int dx, int dy, double& hu, double& hv) {
        double edgeCode = code;
        double sign = 1;
        if (usePlaneDepth_) {
            for (const double s : {1.0, -1.0}) {
                double c = 0;
                if (planeDepth_.depthCode(Point<2>(fx + 0.5 * s * dx, fy + 0.5 * s * dy), c) &&
                    c < depth::farCode) {
                    edgeCode = c;
                    sign = s;
                    break;
                }
            }
        } else if (hasDepth(own)) {
            const MaterialId material = mats[1][column];
            const std::uint32_t after = codes[1 + dy][column + dx];
            const std::uint32_t before = codes[1 - dy][column - dx];
            if (hasDepth(after) && mats[1 + dy][column + dx] == material) {
                edgeCode = 0.5 * (code + static_cast<double>(after));
            } else if (hasDepth(before) && mats[1 - dy][column - dx] == material) {
                edgeCode = 0.5 * (code + static_cast<double>(before));
                sign = -1;
            }
        }
        double eu = 0;
        double ev = 0;
        map(fx + 0.5 * sign * dx, fy + 0.5 * sign * dy, edgeCode, eu, ev);
        hu = (eu - pu) * sign;
        hv = (ev - pv) * sign;
    };
    double xu = 0, xv = 0, yu = 0, yv = 0;
    halfStep(1, 0, xu, xv);
    halfStep(0, 1, yu, yv);
    u = static_cast<float>(pu);
    v = static_cast<float>(pv);
    footprint = static_cast<float>(
        balanceFootprint(2 * (std::abs(xu) + std::abs(yu)), 2 * (std::abs(xv) + std::abs(yv))));
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
    if (!view_) {
        return false;
    }
    if (faceSize_ > 0) {
        const double code = pixelCode(x, y, document.zAt(x, y));
        point = mapPixel(x, y, code);
        footprint = cubicFootprint(document, x, y, point);
        return true;
    }
    std::uint32_t rowCodes[3][3];
    MaterialId rowMats[3][3];
    for (int r = 0; r < 3; ++r) {
        readDepthRow(document, x - 1, y + r - 1, 3, rowCodes[r], rowMats[r]);
    }
    const std::uint32_t* const codes[3] = {rowCodes[0], rowCodes[1], rowCodes[2]};
    const MaterialId* const mats[3] = {rowMats[0], rowMats[1], rowMats[2]};
    float u = 0, v = 0, fp = 0;
    flatSample(x, y, codes, mats, 1, u, v, fp);
    point = Point<2>(u, v);
    footprint = fp;
    return true;
}

void TextureToolPlane::run(Span& span, int first, int last) {
    if (!view_ || !span.document || first >= last) {
        return;
    }
    const ZmapDocument& document = *span.document;
    int index[maxSpanLength];
    float u[maxSpanLength], v[maxSpanLength], fp[maxSpanLength], alpha[maxSpanLength];
    std::uint8_t rgb[maxSpanLength * 3];
    int n = 0;
    for (int i = first; i < last; ++i) {
        if (span.alpha[i] > 0) {
            index[n++] = i;
        }
    }
    if (n == 0) {
        return;
    }
    if (faceSize_ > 0) {
        for (int k = 0; k < n; ++k) {
            const std::int32_t x = span.x + index[k];
            const Point<2> p = mapPixel(x, span.y, pixelCode(x, span.y, document.zAt(x, span.y)));
            u[k] = static_cast<float>(p.x());
            v[k] = static_cast<float>(p.y());
            fp[k] = static_cast<float>(cubicFootprint(document, x, span.y, p));
        }
    } else {
        // The depth and material of the rows above, on and below the covered run, one pixel
        // wider on each side, read once.
        const int lo = index[0];
        const int hi = index[n - 1] + 1;
        std::uint32_t rowCodes[3][maxSpanLength + 2];
        MaterialId rowMats[3][maxSpanLength + 2];
        const std::int32_t x0 = span.x + lo - 1;
        for (int r = 0; r < 3; ++r) {
            readDepthRow(document, x0, span.y + r - 1, hi - lo + 2, rowCodes[r], rowMats[r]);
        }
        const std::uint32_t* const codes[3] = {rowCodes[0], rowCodes[1], rowCodes[2]};
        const MaterialId* const mats[3] = {rowMats[0], rowMats[1], rowMats[2]};
        for (int k = 0; k < n; ++k) {
            const int i = index[k];
            flatSample(span.x + i, span.y, codes, mats, i - lo + 1, u[k], v[k], fp[k]);
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
