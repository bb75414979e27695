#include "applicators/PenMask3d.h"

#include "image/ZmapDocument.h"
#include "views/cameras/ViewProj.h"

#include <algorithm>
#include <cmath>

namespace {

/// The tolerance of the surface frames of dabs (they are used for their depth codes only).
constexpr double frameTolerance = 0.05;
/// Cells a side of the grid of a profile dab.
constexpr std::int32_t profileCells = 129;

} // namespace

// The grid and placement of a surface dab.

void Brush3DTexture::place(const SurfaceFrame& frame, TQL::Handle<ViewProj> view,
                           const Point<3>& centre, const Vector<3>& u, const Vector<3>& v,
                           double radiusU, double radiusV) {
    frame_ = frame;
    view_ = std::move(view);
    centre_ = centre;
    u_ = u;
    v_ = v;
    radiusU_ = radiusU;
    radiusV_ = radiusV;
}

bool Brush3DTexture::cellAt(double x, double y, std::int32_t& column, std::int32_t& row) const {
    double code = 0;
    if (!view_ || cells_ <= 0 || !frame_.depthCode(Point<2>(x, y), code)) {
        return false;
    }
    const Vector<3> d = view_->worldFromPixelPoint(Point<3>(x, y, code)) - centre_;
    const double u = dot(d, u_) / radiusU_;
    const double v = dot(d, v_) / radiusV_;
    if (!(std::fabs(u) <= 1 && std::fabs(v) <= 1)) {
        return false;
    }
    const double half = (cells_ - 1) * 0.5;
    column = std::clamp(static_cast<std::int32_t>(std::rint((u + 1) * half)), 0, cells_ - 1);
    row = std::clamp(static_cast<std::int32_t>(std::rint((v + 1) * half)), 0, cells_ - 1);
    return true;
}

void Brush3DTexture::multiplyRow(std::int32_t x, std::int32_t y, float* row, std::int32_t first,
                                 std::int32_t last) const {
    for (std::int32_t i = first; i < last; ++i) {
        std::int32_t column = 0;
        std::int32_t r = 0;
        if (row[i] != 0 && cellAt(x + i, y, column, r)) {
            row[i] *= values_[static_cast<std::size_t>(r) * cells_ + column];
        } else {
            row[i] = 0;
        }
    }
}

void Brush3DTexture::colourRow(std::int32_t x, std::int32_t y, ColourPOD* row, std::int32_t first,
                               std::int32_t last) const {
    for (std::int32_t i = first; i < last; ++i) {
        std::int32_t column = 0;
        std::int32_t r = 0;
        row[i] = !colours_.empty() && cellAt(x + i, y, column, r)
                     ? colours_[static_cast<std::size_t>(r) * cells_ + column]
                     : ColourPOD{};
    }
}

std::unique_ptr<PenMaskTransform> Brush3DTexture::transform() const {
    const double half = (cells_ - 1) * 0.5;
    return std::make_unique<PenMaskTransform3d>(frame_, view_,
                                                centre_ - u_ * radiusU_ - v_ * radiusV_, u_, v_,
                                                half / radiusU_, half / radiusV_, cells_, cells_);
}

PenMaskTransform3d::PenMaskTransform3d(const SurfaceFrame& frame, TQL::Handle<ViewProj> view,
                                       const Point<3>& corner, const Vector<3>& u,
                                       const Vector<3>& v, double scaleU, double scaleV,
                                       std::int32_t width, std::int32_t height)
    : frame_(frame), view_(std::move(view)), corner_(corner), u_(u), v_(v), scaleU_(scaleU),
      scaleV_(scaleV), width_(width), height_(height) {}

Point<2> PenMaskTransform3d::toMask(const Point<2>& image) const {
    double code = 0;
    if (!view_ || !frame_.depthCode(image, code)) {
        return {0, 0};
    }
    const Vector<3> d = view_->worldFromPixelPoint(Point<3>(image.x(), image.y(), code)) - corner_;
    return {std::clamp(std::rint(dot(d, u_) * scaleU_), 0.0, double(width_ - 1)),
            std::clamp(std::rint(dot(d, v_) * scaleV_), 0.0, double(height_ - 1))};
}

Point<2> PenMaskTransform3d::toImage(const Point<2>& cell) const {
    if (!view_) {
        return cell;
    }
    const Point<3> world = corner_ + u_ * (cell.x() / scaleU_) + v_ * (cell.y() / scaleV_);
    const Point<3> pixel = view_->pixelFromWorld(world);
    return {std::rint(pixel.x()), std::rint(pixel.y())};
}

// The surface dab.

PenMask3d::PenMask3d(double modelSize, double aspect, Angle angle,
                     std::unique_ptr<MaskProfile> profile, bool round, bool vertical)
    : profile_(std::move(profile)), round_(round), vertical_(vertical), modelSize_(modelSize),
      aspect_(aspect > 0 ? aspect : 1.0), angle_(angle) {
    build();
}

PenMask3d::PenMask3d(double modelSize, double aspect, Angle angle,
                     std::unique_ptr<MaskProfile> profile, const MaskPicture& picture, bool soften,
                     bool vertical)
    : profile_(std::move(profile)), picture_(picture), soften_(soften), round_(false),
      vertical_(vertical), modelSize_(modelSize), aspect_(aspect > 0 ? aspect : 1.0),
      angle_(angle) {
    if (!picture_.empty()) {
        aspect_ *= double(picture_.height) / picture_.width;
    }
    build();
}

void PenMask3d::build() {
    if (picture_.empty()) {
        texture_.fill(profileCells, [&](double u, double v) {
            return profile_->value(round_ ? std::sqrt(u * u + v * v)
                                          : std::max(std::fabs(u), std::fabs(v)));
        });
        return;
    }
    // A picture is resampled onto a square grid as fine as its longer side.
    const std::int32_t cells = std::clamp(std::max(picture_.width, picture_.height), 16, 512);
    const auto softened = [&](double u, double v) {
        const float value = picture_.at(u, v);
        return soften_ ? value * profile_->value(std::max(std::fabs(u), std::fabs(v))) : value;
    };
    texture_.fill(cells, softened);
    if (!picture_.colour.empty()) {
        std::vector<ColourPOD> colours(static_cast<std::size_t>(cells) * cells);
        const double half = (cells - 1) * 0.5;
        for (std::int32_t row = 0; row < cells; ++row) {
            for (std::int32_t column = 0; column < cells; ++column) {
                colours[static_cast<std::size_t>(row) * cells + column] =
                    picture_.colourAt((column - half) / half, (row - half) / half);
            }
        }
        texture_.setColour(std::move(colours));
    }
}

void PenMask3d::reshape(double size, Angle angle) {
    modelSize_ = size;
    angle_ = angle;
}

void PenMask3d::setLevel(float level) {
    profile_->setLevel(level);
    build();
}

void PenMask3d::prepare(ZmapDocument& document) {
    view_ = document.viewProj();
    placed_ = false;
}

void PenMask3d::setSurface(const SurfaceFrame& frame) {
    plane_ = frame;
    onPlane_ = frame.kind() != SurfaceFrame::emptyFrame;
}

void PenMask3d::clearSurface() {
    PenMask::clearSurface();
    onPlane_ = false;
}

Point<3> PenMask3d::worldOf(IPoint<2> p, const ZmapDocument& document) const {
    if (onPlane_ && document.viewProj()) {
        double code = 0;
        if (plane_.depthCode(Point<2>(p.x, p.y), code)) {
            return document.viewProj()->worldFromPixelPoint(Point<3>(p.x, p.y, code));
        }
    }
    return document.worldAt(p.x, p.y);
}

PenMask3d::Placement PenMask3d::placementAt(IPoint<2> p, const ZmapDocument& document) const {
    Placement out;
    const TQL::Handle<ViewProj>& view = document.viewProj();
    if (!view || p.x < 0 || p.y < 0 || p.x >= document.width() || p.y >= document.height()) {
        return out;
    }
    out.frame = onPlane_ ? plane_ : SurfaceFrame(document.planeAt(p.x, p.y), *view, frameTolerance);
    const auto onFrame = [&](double x, double y, Point<3>& world) {
        double code = 0;
        if (!out.frame.depthCode(Point<2>(x, y), code)) {
            return false;
        }
        world = view->worldFromPixelPoint(Point<3>(x, y, code));
        return true;
    };
    Point<3> right;
    Point<3> below;
    if (!onFrame(p.x, p.y, out.centre) || !onFrame(p.x + 1, p.y, right) ||
        !onFrame(p.x, p.y + 1, below)) {
        return out;
    }
    const Vector<3> n = out.frame.plane().normal();
    Vector<3> along = right - out.centre;
    along = along - n * dot(along, n);
    Vector<3> u = along.unit();
    if (vertical_) {
        const Vector<3> level = cross(Vector<3>(0, 0, 1), n);
        if (level.length() > 1e-6) {
            u = level.unit();
            if (dot(u, along) < 0) {
                u = -u;
            }
        }
    }
    Vector<3> v = cross(n, u).unit();
    if (dot(v, below - out.centre) < 0) {
        v = -v;
    }
    if (u.length() < 0.5 || v.length() < 0.5) {
        return out;
    }
    const double c = angle_.cos();
    const double s = angle_.sin();
    out.u = u * c + v * s;
    out.v = v * c - u * s;
    out.valid = true;
    return out;
}

void PenMask3d::place(IPoint<2> p, ZmapDocument& document) {
    const Placement where = placementAt(p, document);
    placed_ = where.valid;
    if (!placed_) {
        texture_.place(SurfaceFrame(), nullptr, Point<3>(), u_, v_, 1, 1);
        return;
    }
    frame_ = where.frame;
    centre_ = where.centre;
    u_ = where.u;
    v_ = where.v;
    texture_.place(frame_, document.viewProj(), centre_, u_, v_, modelSize_, radiusV());
}

void PenMask3d::bounds(IExtent<2>& extent, const ZmapDocument& document, IPoint<2> p) const {
    extent = IExtent<2>();
    const Placement where = placementAt(p, document);
    if (!where.valid) {
        return;
    }
    const ViewProj& view = *document.viewProj();
    for (const double su : {-1.0, 1.0}) {
        for (const double sv : {-1.0, 1.0}) {
            const Point<3> pixel = view.pixelFromWorld(where.centre + where.u * (su * modelSize_) +
                                                       where.v * (sv * radiusV()));
            if (!std::isfinite(pixel.x()) || !std::isfinite(pixel.y())) {
                extent = IExtent<2>(0, 0, document.width() - 1, document.height() - 1);
                return;
            }
            const double limit = 1e7;
            extent += IPoint<2>(
                static_cast<std::int32_t>(std::floor(std::clamp(pixel.x(), -limit, limit))),
                static_cast<std::int32_t>(std::floor(std::clamp(pixel.y(), -limit, limit))));
            extent += IPoint<2>(
                static_cast<std::int32_t>(std::ceil(std::clamp(pixel.x(), -limit, limit))),
                static_cast<std::int32_t>(std::ceil(std::clamp(pixel.y(), -limit, limit))));
        }
    }
}

void PenMask3d::footprint(std::vector<IExtent<2>>& extents, IPoint<2> p, ZmapDocument& document) {
    extents.clear();
    place(p, document);
    if (!placed_) {
        return;
    }
    IExtent<2> box;
    bounds(box, document, p);
    std::int32_t loX = 0;
    std::int32_t hiX = document.width() - 1;
    const std::int32_t face = view_ ? view_->faceSize().size() : 0;
    if (view_ && view_->viewType() == ViewProj::cubicView && face > 0) {
        loX = std::clamp(p.x / face, 0, 5) * face;
        hiX = loX + face - 1;
    }
    const IExtent<2> clipped(std::max(box.lo().x, loX), std::max(box.lo().y, 0),
                             std::min(box.hi().x, hiX),
                             std::min(box.hi().y, document.height() - 1));
    if (!box.degenerate() && !clipped.degenerate()) {
        extents.push_back(clipped);
    }
}

void PenMask3d::multiplyRow(std::int32_t x, std::int32_t y, float* row, std::int32_t first,
                            std::int32_t last) const {
    if (!placed_) {
        std::fill(row + first, row + last, 0.0f);
        return;
    }
    texture_.multiplyRow(x, y, row, first, last);
}

void PenMask3d::colourRow(std::int32_t x, std::int32_t y, ColourPOD* row, std::int32_t first,
                          std::int32_t last) const {
    if (!placed_) {
        std::fill(row + first, row + last, ColourPOD{});
        return;
    }
    texture_.colourRow(x, y, row, first, last);
}

double PenMask3d::distance(IPoint<2> a, IPoint<2> b, const ZmapDocument& document) const {
    Vector<3> u = u_;
    Vector<3> v = v_;
    if (!placed_) {
        const Placement where = placementAt(a, document);
        if (where.valid) {
            u = where.u;
            v = where.v;
        }
    }
    const Vector<3> d = worldOf(b, document) - worldOf(a, document);
    const double du = dot(d, u) / modelSize_;
    const double dv = dot(d, v) / radiusV();
    if (!std::isfinite(du) || !std::isfinite(dv)) {
        return 0;
    }
    return round_ ? std::sqrt(du * du + dv * dv) : std::max(std::fabs(du), std::fabs(dv));
}

TQL::Handle<MaskOutline> PenMask3d::outline() const {
    auto shape = TQL::makeHandle<MaskOutline>();
    shape->threeD = true;
    constexpr double points[13][2] = {{1, 0},     {1, 0.55},  {0.55, 1},   {0, 1},      {-0.55, 1},
                                      {-1, 0.55}, {-1, 0},    {-1, -0.55}, {-0.55, -1}, {0, -1},
                                      {0.55, -1}, {1, -0.55}, {1, 0}};
    for (const auto& q : points) {
        shape->worldPoints.push_back(centre_ + u_ * (q[0] * modelSize_) + v_ * (q[1] * radiusV()));
    }
    return shape;
}

void PenMask3d::thumbnail(std::vector<std::uint8_t>& bytes, std::int32_t& width,
                          std::int32_t& height) const {
    width = height = texture_.cells();
    const std::vector<float>& values = texture_.values();
    bytes.resize(values.size());
    for (std::size_t i = 0; i < values.size(); ++i) {
        bytes[i] = static_cast<std::uint8_t>(std::lround(std::clamp(values[i], 0.0f, 1.0f) * 255));
    }
}

std::unique_ptr<PenMaskTransform> PenMask3d::transform() const {
    return texture_.transform();
}
