#include "views/CubicDrawable.h"

#include "image/DrawTarget.h"
#include "image/ZmapDocument.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>

namespace {

constexpr double degree = std::numbers::pi / 180.0;

/// The axes of each face as rows of a matrix that takes a direction d (a row vector) to
/// (X, Y, W) with the face pixel (X / W, Y / W) on a face of edge 2 h; `h` is half the edge
/// (n - 1) / 2. Faces 0 to 5 look along +Z, +X, -Z, -X, +Y, -Y.
Matrix<3> faceAxes(int face, double h) {
    // Columns: X, Y, W; rows: the coefficients of dx, dy, dz.
    static constexpr double table[6][3][3] = {
        {{1, 0, 0}, {0, -1, 0}, {1, 1, 1}},     // +Z: X = h (x + z), Y = h (z - y), W = z
        {{1, 1, 1}, {0, -1, 0}, {-1, 0, 0}},    // +X: X = h (x - z), Y = h (x - y), W = x
        {{-1, 0, 0}, {0, -1, 0}, {-1, -1, -1}}, // -Z: X = -h (x + z), Y = -h (y + z), W = -z
        {{-1, -1, -1}, {0, -1, 0}, {1, 0, 0}},  // -X: X = h (z - x), Y = -h (x + y), W = -x
        {{1, 0, 0}, {1, 1, 1}, {0, 1, 0}},      // +Y: X = h (x + y), Y = h (y + z), W = y
        {{1, 0, 0}, {-1, -1, -1}, {0, -1, 0}},  // -Y: X = h (x - y), Y = -h (y + z), W = -y
    };
    Matrix<3> m;
    for (int r = 0; r < 3; ++r) {
        for (int c = 0; c < 3; ++c) {
            // W is not scaled by h; X and Y are.
            m(r, c) = table[face][r][c] * (c < 2 ? h : 1.0);
        }
    }
    return m;
}

/// The camera's right, up and forward axes in the cube's frame.
void cameraAxes(const PanoramaAngles& a, Vector<3>& right, Vector<3>& up, Vector<3>& forward) {
    const double p = a.pan * degree;
    const double t = a.tilt * degree;
    const double sp = std::sin(p), cp = std::cos(p), st = std::sin(t), ct = std::cos(t);
    right = Vector<3>(cp, 0, -sp);
    up = Vector<3>(-st * sp, ct, -st * cp);
    forward = Vector<3>(ct * sp, st, ct * cp);
}

std::uint8_t blend(int c00, int c10, int c01, int c11, int wx, int wy) {
    const int top = c00 * (256 - wx) + c10 * wx;
    const int bottom = c01 * (256 - wx) + c11 * wx;
    return static_cast<std::uint8_t>((top * (256 - wy) + bottom * wy + 32768) >> 16);
}

/// Copies a document's tiles into a strip.
class StripTarget : public DrawTarget {
public:
    explicit StripTarget(CubeStrip& strip) : strip_(strip) {}
    void DrawBits(std::int32_t x, std::int32_t y, std::int32_t w, std::int32_t h,
                  const std::uint8_t* rgb, std::int32_t stride) override {
        strip_.copyIn(x, y, w, h, rgb, stride);
    }

private:
    CubeStrip& strip_;
};

} // namespace

void CubeStrip::allocate(std::int32_t faceSize) {
    n_ = faceSize;
    stride_ = (6 * faceSize * 3 + 3) & ~3;
    pixels_.assign(std::size_t(stride_) * std::size_t(faceSize), 0);
}

ColourPOD CubeStrip::pixel(std::int32_t x, std::int32_t y) const {
    if (x < 0 || y < 0 || x >= width() || y >= n_) {
        return {};
    }
    const std::uint8_t* p = row(y) + std::size_t(x) * 3;
    return {p[0], p[1], p[2]};
}

void CubeStrip::copyIn(std::int32_t x, std::int32_t y, std::int32_t w, std::int32_t h,
                       const std::uint8_t* rgb, std::int32_t stride) {
    const std::int32_t x0 = std::max(x, 0), y0 = std::max(y, 0);
    const std::int32_t x1 = std::min(x + w, width()), y1 = std::min(y + h, n_);
    if (x0 >= x1 || y0 >= y1) {
        return;
    }
    for (std::int32_t yy = y0; yy < y1; ++yy) {
        std::memcpy(row(yy) + std::size_t(x0) * 3,
                    rgb + std::size_t(yy - y) * stride + std::size_t(x0 - x) * 3,
                    std::size_t(x1 - x0) * 3);
    }
}

ColourPOD CubeStrip::sampleFace(std::int32_t face, double x, double y) const {
    const std::int32_t edge = n_ - 1;
    const double lx = std::clamp(x - double(face) * n_, 0.0, double(edge));
    const double ly = std::clamp(y, 0.0, double(edge));
    const std::int32_t x0 = std::min(static_cast<std::int32_t>(lx), edge - 1);
    const std::int32_t y0 = std::min(static_cast<std::int32_t>(ly), edge - 1);
    const int wx = static_cast<int>(std::lround((lx - x0) * 256.0));
    const int wy = static_cast<int>(std::lround((ly - y0) * 256.0));
    const std::uint8_t* a = row(y0) + std::size_t(face * n_ + x0) * 3;
    const std::uint8_t* b = a + stride_;
    return {blend(a[0], a[3], b[0], b[3], wx, wy), blend(a[1], a[4], b[1], b[4], wx, wy),
            blend(a[2], a[5], b[2], b[5], wx, wy)};
}

ColourPOD CubeStrip::sampleDirection(const Vector<3>& d) const {
    const int face = cubeFaceOf(d);
    const Vector<3> xyw = Vector<3>(d, faceAxes(face, (n_ - 1) / 2.0));
    return sampleFace(face, xyw.x() / xyw.z() + double(face) * n_, xyw.y() / xyw.z());
}

void CubeStrip::read(Status& status, const ZmapDocument& document, std::uint32_t channel,
                     CubeStrip& strip, const std::atomic<bool>* abort) {
    const std::int32_t w = document.width();
    const std::int32_t h = document.height();
    if (h < 2 || std::int64_t(w) != 6 * std::int64_t(h)) {
        status = status::noConversion;
        return;
    }
    if (strip.faceSize() != h) {
        strip.allocate(h);
    }
    StripTarget target(strip);
    const IExtent<2> all(0, 0, w - 1, h - 1);
    status = status::ok;
    document.draw(status, target, channel, all, all, abort);
}

int cubeFaceOf(const Vector<3>& d) {
    const double ax = std::abs(d.x()), ay = std::abs(d.y()), az = std::abs(d.z());
    if (ay < ax && az < ax) {
        return d.x() > 0 ? 1 : 3;
    }
    if (ax <= ay && az < ay) {
        return d.y() > 0 ? 4 : 5;
    }
    return d.z() > 0 ? 0 : 2;
}

double CubicDrawable::clampFieldOfView(double degrees) {
    if (!std::isfinite(degrees)) {
        return 90.0;
    }
    return std::clamp(degrees, minFieldOfView, maxFieldOfView);
}

double CubicDrawable::wheelFieldOfView(double degrees, int angleDelta) {
    return clampFieldOfView(degrees * std::pow(wheelStepFactor, -angleDelta / 120.0));
}

PanoramaAngles CubicDrawable::normalised(const PanoramaAngles& a) {
    PanoramaAngles out = a;
    out.pan = std::isfinite(a.pan) ? std::fmod(a.pan, 360.0) : 0.0;
    if (out.pan < 0) {
        out.pan += 360.0;
    }
    out.tilt = std::isfinite(a.tilt) ? std::clamp(a.tilt, -90.0, 90.0) : 0.0;
    out.fieldOfView = clampFieldOfView(a.fieldOfView);
    return out;
}

CubicDrawable::CubicDrawable(std::int32_t faceSize, std::int32_t viewWidth, std::int32_t viewHeight,
                             const PanoramaAngles& angles)
    : n_(std::max(faceSize, 2)), width_(std::max(viewWidth, 1)), height_(std::max(viewHeight, 1)),
      angles_(normalised(angles)) {
    Vector<3> right, up, forward;
    cameraAxes(angles_, right, up, forward);
    const double focal = width_ / 2.0 / std::tan(angles_.fieldOfView * degree / 2.0);
    const double cx = (width_ - 1) / 2.0;
    const double cy = (height_ - 1) / 2.0;
    // (vx, vy, 0) to the ray: vx right, vy down, from the view's centre at the focal length.
    const Vector<3> rows[3] = {right, -up, forward};
    const Vector<3> centre = forward * focal - right * cx + up * cy;
    camera_ = AffineTransform<3>(Matrix<3>::rows(rows), centre);
    const double h = (n_ - 1) / 2.0;
    for (int f = 0; f < 6; ++f) {
        Matrix<3> axes = faceAxes(f, h);
        // Face f starts f * n along the strip: X gains f n W.
        for (int r = 0; r < 3; ++r) {
            axes(r, 0) += double(f) * n_ * axes(r, 2);
        }
        faces_[std::size_t(f)] = camera_.followedBy(AffineTransform<3>(axes, Vector<3>()));
    }
}

Vector<3> CubicDrawable::direction(double vx, double vy) const {
    return toVector(camera_.multiply(Point<3>(vx, vy, 0)));
}

Point<2> CubicDrawable::stripPoint(double vx, double vy, int* face) const {
    const int f = cubeFaceOf(direction(vx, vy));
    if (face) {
        *face = f;
    }
    const Point<3> h = faceTransform(f).multiply(Point<3>(vx, vy, 0));
    return {h.x() / h.z(), h.y() / h.z()};
}

bool CubicDrawable::viewPoint(double x, double y, Point<2>& out) const {
    const double fn = std::floor(x / n_);
    const int face = static_cast<int>(std::fmod(std::fmod(fn, 6.0) + 6.0, 6.0));
    const double edge = n_ - 1;
    const double a = 2 * (x - fn * n_) / edge - 1;
    const double b = 1 - 2 * y / edge;
    static constexpr int signs[6][3][2] = {
        // For each of x, y, z of the direction: which of (a, b, 1) (0, 1, 2) with what sign.
        {{0, 1}, {1, 1}, {2, 1}},  {{2, 1}, {1, 1}, {0, -1}}, {{0, -1}, {1, 1}, {2, -1}},
        {{2, -1}, {1, 1}, {0, 1}}, {{0, 1}, {2, 1}, {1, -1}}, {{0, 1}, {2, -1}, {1, 1}},
    };
    const double src[3] = {a, b, 1};
    double d[3];
    for (int i = 0; i < 3; ++i) {
        d[i] = src[signs[face][i][0]] * signs[face][i][1];
    }
    Vector<3> right, up, forward;
    cameraAxes(angles_, right, up, forward);
    const Vector<3> v(d[0], d[1], d[2]);
    const double z = dot(v, forward);
    if (z <= 1e-12) {
        return false;
    }
    const double focal = width_ / 2.0 / std::tan(angles_.fieldOfView * degree / 2.0);
    out = Point<2>((width_ - 1) / 2.0 + focal * dot(v, right) / z,
                   (height_ - 1) / 2.0 - focal * dot(v, up) / z);
    return true;
}

void CubicDrawable::drawRow(const CubeStrip& strip, std::int32_t y, std::uint8_t* out) const {
    // The ray and each face's (X, Y, W) are linear along the row: start values and steps.
    const Point<3> start = camera_.multiply(Point<3>(0, y, 0));
    const Vector<3>& step = camera_.linear().row(0);
    double faceStart[6][3], faceStep[6][3];
    for (int f = 0; f < 6; ++f) {
        const Point<3> p = faces_[std::size_t(f)].multiply(Point<3>(0, y, 0));
        const Vector<3> s = faces_[std::size_t(f)].linear().row(0);
        for (int c = 0; c < 3; ++c) {
            faceStart[f][c] = p[c];
            faceStep[f][c] = s[c];
        }
    }
    for (std::int32_t x = 0; x < width_; ++x) {
        const Vector<3> d(start.x() + x * step.x(), start.y() + x * step.y(),
                          start.z() + x * step.z());
        const int f = cubeFaceOf(d);
        const double w = faceStart[f][2] + x * faceStep[f][2];
        const ColourPOD c = strip.sampleFace(f, (faceStart[f][0] + x * faceStep[f][0]) / w,
                                             (faceStart[f][1] + x * faceStep[f][1]) / w);
        out[0] = c.b;
        out[1] = c.g;
        out[2] = c.r;
        out += 3;
    }
}
