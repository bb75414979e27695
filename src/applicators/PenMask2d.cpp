#include "applicators/PenMask2d.h"

#include "image/ZmapDocument.h"
#include "views/cameras/ViewProj.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace {

/// The control points of the outline on the unit square: a closed Bézier path of four
/// quarter arcs with handles of 0.55.
constexpr double outlinePoints[13][2] = {
    {1, 0},      {1, 0.55},   {0.55, 1}, {0, 1},     {-0.55, 1}, {-1, 0.55}, {-1, 0},
    {-1, -0.55}, {-0.55, -1}, {0, -1},   {0.55, -1}, {1, -0.55}, {1, 0}};

/// Bilinear sample of a plane of w x h values at (x, y) in pixel units (centres at +0.5).
template <class Get> float bilinear(std::int32_t w, std::int32_t h, double x, double y, Get get) {
    x -= 0.5;
    y -= 0.5;
    const double fx = std::floor(x);
    const double fy = std::floor(y);
    const double tx = x - fx;
    const double ty = y - fy;
    const auto at = [&](std::int32_t cx, std::int32_t cy) -> double {
        cx = std::clamp(cx, 0, w - 1);
        cy = std::clamp(cy, 0, h - 1);
        return get(cx, cy);
    };
    const auto ix = static_cast<std::int32_t>(fx);
    const auto iy = static_cast<std::int32_t>(fy);
    const double top = at(ix, iy) * (1 - tx) + at(ix + 1, iy) * tx;
    const double bottom = at(ix, iy + 1) * (1 - tx) + at(ix + 1, iy + 1) * tx;
    return static_cast<float>(top * (1 - ty) + bottom * ty);
}

} // namespace

PenMask2d::PenMask2d(double size, double aspect, Angle angle, std::unique_ptr<MaskProfile> profile,
                     bool round, bool twoWay)
    : profile_(std::move(profile)), round_(round), twoWay_(twoWay), size_(size),
      aspect_(aspect > 0 ? aspect : 1.0), angle_(angle) {
    build();
}

PenMask2d::PenMask2d(double size, double aspect, Angle angle, std::unique_ptr<MaskProfile> profile,
                     const MaskPicture& picture, bool soften)
    : profile_(std::move(profile)), picture_(picture), round_(false), soft_(soften), size_(size),
      aspect_(aspect > 0 ? aspect : 1.0), angle_(angle) {
    build();
}

void PenMask2d::reshape(double size, Angle angle) {
    if (size == size_ && angle == angle_) {
        return;
    }
    size_ = size;
    angle_ = angle;
    build();
}

void PenMask2d::setLevel(float level) {
    profile_->setLevel(level);
    build();
}

void PenMask2d::setHook(double hookX, double hookY) {
    hookX_ = std::clamp(hookX, 0.0, 1.0);
    hookY_ = std::clamp(hookY, 0.0, 1.0);
    build();
}

void PenMask2d::setBristles(std::int32_t count, double percent) {
    bristles_ = std::max(0, count);
    bristlesPercent_ = std::clamp(percent, 0.0, 100.0);
    build();
}

void PenMask2d::build() {
    // Radii in pixels: a picture spans 2 * size along its longer side.
    double rx = std::max(1.0, size_);
    double ry = std::max(1.0, std::rint(size_ * aspect_));
    if (!picture_.empty()) {
        const double longer = std::max(picture_.width, picture_.height);
        rx = std::max(1.0, size_ * picture_.width / longer);
        ry = std::max(1.0, size_ * picture_.height / longer * aspect_);
    }
    const double c = angle_.cos();
    const double s = angle_.sin();
    toImage_[0][0] = c * rx;
    toImage_[0][1] = -s * ry;
    toImage_[1][0] = s * rx;
    toImage_[1][1] = c * ry;
    const double det = toImage_[0][0] * toImage_[1][1] - toImage_[0][1] * toImage_[1][0];
    toMask_[0][0] = toImage_[1][1] / det;
    toMask_[0][1] = -toImage_[0][1] / det;
    toMask_[1][0] = -toImage_[1][0] / det;
    toMask_[1][1] = toImage_[0][0] / det;

    // The grid is the bounding box of the outline (the unit square's image), about the
    // centre pixel; cells sample at pixel centres.
    const double hx = std::fabs(toImage_[0][0]) + std::fabs(toImage_[0][1]);
    const double hy = std::fabs(toImage_[1][0]) + std::fabs(toImage_[1][1]);
    const auto kx = static_cast<std::int32_t>(std::ceil(hx - 1e-9));
    const auto ky = static_cast<std::int32_t>(std::ceil(hy - 1e-9));
    width_ = 2 * kx + 1;
    height_ = 2 * ky + 1;
    values_.assign(static_cast<std::size_t>(width_) * height_, 0.0f);
    colours_.clear();
    const bool colour = !picture_.colour.empty();
    if (colour) {
        colours_.assign(values_.size(), ColourPOD{});
    }
    for (std::int32_t row = 0; row < height_; ++row) {
        const double dy = row - ky;
        for (std::int32_t column = 0; column < width_; ++column) {
            const double dx = column - kx;
            const double u = toMask_[0][0] * dx + toMask_[0][1] * dy;
            const double v = toMask_[1][0] * dx + toMask_[1][1] * dy;
            const std::size_t i = static_cast<std::size_t>(row) * width_ + column;
            values_[i] = sample(u, v);
            if (colour) {
                colours_[i] = sampleColour(u, v);
            }
        }
    }
    hook_ = {static_cast<std::int32_t>(std::lround(hookX_ * (width_ - 1))),
             static_cast<std::int32_t>(std::lround(hookY_ * (height_ - 1)))};
}

float PenMask2d::sample(double u, double v) const {
    float value = 0;
    if (!picture_.empty()) {
        if (std::fabs(u) > 1 || std::fabs(v) > 1) {
            return 0;
        }
        value = picture_.at(u, v);
        if (soft_) {
            value *= profile_->value(std::max(std::fabs(u), std::fabs(v)));
        }
    } else if (round_) {
        value = profile_->value(std::sqrt(u * u + v * v));
    } else if (twoWay_) {
        value = profile_->value(std::fabs(u)) * profile_->value(std::fabs(v));
    } else {
        value = profile_->value(std::max(std::fabs(u), std::fabs(v)));
    }
    if (bristles_ > 0 && value > 0) {
        // Bristles: round tufts at fixed pseudo-random places in the unit disc, so the
        // same settings always give the same dab.
        const double radius = std::sqrt(bristlesPercent_ / 100.0 / bristles_);
        std::uint32_t state = 12345u + static_cast<std::uint32_t>(bristles_);
        bool inside = false;
        for (std::int32_t k = 0; k < bristles_ && !inside; ++k) {
            state = state * 69069u + 1u;
            const double a = state / 4294967295.0 * 2 * std::numbers::pi;
            state = state * 69069u + 1u;
            const double d = std::sqrt(state / 4294967295.0) * (1 - radius);
            const double bu = u - d * std::cos(a);
            const double bv = v - d * std::sin(a);
            inside = bu * bu + bv * bv <= radius * radius;
        }
        if (!inside) {
            value = 0;
        }
    }
    return value;
}

ColourPOD PenMask2d::sampleColour(double u, double v) const {
    return picture_.colourAt(u, v);
}

float MaskPicture::at(double u, double v) const {
    if (empty() || std::fabs(u) > 1 || std::fabs(v) > 1) {
        return 0;
    }
    return bilinear(width, height, (u + 1) * 0.5 * width, (v + 1) * 0.5 * height,
                    [&](std::int32_t x, std::int32_t y) {
                        return coverage[static_cast<std::size_t>(y) * width + x];
                    });
}

ColourPOD MaskPicture::colourAt(double u, double v) const {
    if (colour.empty() || empty() || std::fabs(u) > 1 || std::fabs(v) > 1) {
        return {};
    }
    const auto cx = std::clamp(static_cast<std::int32_t>((u + 1) * 0.5 * width), 0, width - 1);
    const auto cy = std::clamp(static_cast<std::int32_t>((v + 1) * 0.5 * height), 0, height - 1);
    return colour[static_cast<std::size_t>(cy) * width + cx];
}

float PenMask2d::cell(std::int32_t column, std::int32_t row) const {
    if (column < 0 || row < 0 || column >= width_ || row >= height_) {
        return 0;
    }
    return values_[static_cast<std::size_t>(row) * width_ + column];
}

void PenMask2d::prepare(ZmapDocument& document) {
    camera_ = document.viewProj();
    onCube_ = camera_ && camera_->viewType() == ViewProj::cubicView;
    faceSize_ = onCube_ ? camera_->faceSize().size() : 0;
    unfolding_ = onCube_ ? FaceUnfolding(camera_->faceSize()) : FaceUnfolding();
    angularSize_ = 0;
    if (onCube_ && faceSize_ > 0) {
        angularSize_ = 2 * std::atan(1.0) *
                       std::sqrt(double(height_) * height_ + double(width_) * width_) / faceSize_;
    }
}

void PenMask2d::bounds(IExtent<2>& extent, const ZmapDocument&, IPoint<2> p) const {
    extent = IExtent<2>(p.x - hook_.x, p.y - hook_.y, p.x - hook_.x + width_ - 1,
                        p.y - hook_.y + height_ - 1);
}

void PenMask2d::place(IPoint<2> p, ZmapDocument&) {
    origin_ = {p.x - hook_.x, p.y - hook_.y};
    face_ = faceSize_ > 0 ? std::clamp(p.x / faceSize_, 0, 5) : 0;
}

void PenMask2d::footprint(std::vector<IExtent<2>>& extents, IPoint<2> p, ZmapDocument& document) {
    extents.clear();
    place(p, document);
    const IExtent<2> grid(origin_.x, origin_.y, origin_.x + width_ - 1, origin_.y + height_ - 1);
    if (onCube_ && unfolding_.valid()) {
        // The dab's face, and the neighbours it reaches over the face's edges.
        unfolding_.pieces(face_, grid, extents);
        return;
    }
    std::int32_t loX = 0;
    std::int32_t hiX = document.width() - 1;
    if (onCube_ && faceSize_ > 0) {
        // Faces too small to unfold: the dab stays on its face.
        loX = face_ * faceSize_;
        hiX = loX + faceSize_ - 1;
    }
    const IExtent<2> clipped(std::max(grid.lo().x, loX), std::max(grid.lo().y, 0),
                             std::min(grid.hi().x, hiX),
                             std::min(grid.hi().y, document.height() - 1));
    if (!clipped.degenerate()) {
        extents.push_back(clipped);
    }
}

template <typename Cell>
void PenMask2d::unfoldedRow(std::int32_t x, std::int32_t y, std::int32_t first, std::int32_t last,
                            Cell&& cell) const {
    const std::int32_t n = unfolding_.faceSize();
    for (std::int32_t i = first; i < last;) {
        // A run of the row on one face.
        const std::int32_t column = x + i;
        const std::int32_t end =
            column < 0 ? std::min(last, -x) : std::min(last, (column / n + 1) * n - x);
        IPoint<2> at;
        IVector<2> step;
        if (!unfolding_.unfold(face_, column, y, at, step)) {
            for (; i < end; ++i) {
                cell(i, -1, -1);
            }
            continue;
        }
        std::int32_t gx = at.x - origin_.x;
        std::int32_t gy = at.y - origin_.y;
        for (; i < end; ++i, gx += step.x, gy += step.y) {
            cell(i, gx, gy);
        }
    }
}

void PenMask2d::multiplyRow(std::int32_t x, std::int32_t y, float* row, std::int32_t first,
                            std::int32_t last) const {
    if (onCube_ && unfolding_.valid()) {
        unfoldedRow(x, y, first, last,
                    [this, row](std::int32_t i, std::int32_t gx, std::int32_t gy) {
                        row[i] *= cell(gx, gy);
                    });
        return;
    }
    const std::int32_t gy = y - origin_.y;
    if (gy < 0 || gy >= height_) {
        std::fill(row + first, row + last, 0.0f);
        return;
    }
    // Indices a..b of the row lie on the grid.
    const std::int32_t a = std::clamp(origin_.x - x, first, last);
    const std::int32_t b = std::clamp(origin_.x + width_ - x, a, last);
    std::fill(row + first, row + a, 0.0f);
    const float* cells = values_.data() + static_cast<std::size_t>(gy) * width_;
    const std::int32_t shift = x - origin_.x;
    for (std::int32_t i = a; i < b; ++i) {
        row[i] *= cells[i + shift];
    }
    std::fill(row + b, row + last, 0.0f);
}

void PenMask2d::colourRow(std::int32_t x, std::int32_t y, ColourPOD* row, std::int32_t first,
                          std::int32_t last) const {
    if (onCube_ && unfolding_.valid()) {
        unfoldedRow(
            x, y, first, last, [this, row](std::int32_t i, std::int32_t gx, std::int32_t gy) {
                row[i] = colours_.empty() || gx < 0 || gy < 0 || gx >= width_ || gy >= height_
                             ? ColourPOD{}
                             : colours_[static_cast<std::size_t>(gy) * width_ + gx];
            });
        return;
    }
    const std::int32_t gy = y - origin_.y;
    for (std::int32_t i = first; i < last; ++i) {
        const std::int32_t gx = x + i - origin_.x;
        if (colours_.empty() || gy < 0 || gy >= height_ || gx < 0 || gx >= width_) {
            row[i] = ColourPOD{};
        } else {
            row[i] = colours_[static_cast<std::size_t>(gy) * width_ + gx];
        }
    }
}

double PenMask2d::distance(IPoint<2> a, IPoint<2> b, const ZmapDocument&) const {
    if (onCube_ && camera_ && faceSize_ > 0) {
        // The angle between the two view directions, in units of the dab's angular
        // radius (a quarter turn spans one face).
        const Vector<3> da = camera_->pixelDirection(a.x, a.y);
        const Vector<3> db = camera_->pixelDirection(b.x, b.y);
        const double cosine =
            std::clamp(dot(da, db) / std::sqrt(dot(da, da) * dot(db, db)), -1.0, 1.0);
        const double radius = 2 * std::atan(1.0) * std::max(1.0, size_) / faceSize_;
        return std::acos(cosine) / radius;
    }
    const double dx = b.x - a.x;
    const double dy = b.y - a.y;
    const double u = toMask_[0][0] * dx + toMask_[0][1] * dy;
    const double v = toMask_[1][0] * dx + toMask_[1][1] * dy;
    if (round_) {
        return std::sqrt(u * u + v * v);
    }
    return std::max(std::fabs(u), std::fabs(v));
}

TQL::Handle<MaskOutline> PenMask2d::outline() const {
    auto shape = TQL::makeHandle<MaskOutline>();
    const double ox = (width_ - 1) / 2 - hook_.x;
    const double oy = (height_ - 1) / 2 - hook_.y;
    for (const auto& q : outlinePoints) {
        shape->imagePoints.emplace_back(
            std::rint(toImage_[0][0] * q[0] + toImage_[0][1] * q[1] + ox),
            std::rint(toImage_[1][0] * q[0] + toImage_[1][1] * q[1] + oy));
    }
    return shape;
}

void PenMask2d::thumbnail(std::vector<std::uint8_t>& bytes, std::int32_t& width,
                          std::int32_t& height) const {
    width = width_;
    height = height_;
    bytes.resize(values_.size());
    for (std::size_t i = 0; i < values_.size(); ++i) {
        bytes[i] = static_cast<std::uint8_t>(std::lround(std::clamp(values_[i], 0.0f, 1.0f) * 255));
    }
}

std::unique_ptr<PenMaskTransform> PenMask2d::transform() const {
    return std::make_unique<PenMaskTransform2d>(origin_.x, origin_.y, width_, height_);
}

Point<2> PenMaskTransform2d::toMask(const Point<2>& image) const {
    return {image.x() - originX_, image.y() - originY_};
}

Point<2> PenMaskTransform2d::toImage(const Point<2>& cell) const {
    return {cell.x() + originX_, cell.y() + originY_};
}
