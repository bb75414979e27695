#include "applicators/BrushApplicator.h"

#include "applicators/PenMask2d.h"
#include "applicators/PenMask3d.h"
#include "core/Reporter.h"
#include "image/ZmapDocument.h"
#include "interchange/raster/Raster.h"
#include "interchange/raster/RasterImport.h"
#include "pipeline/ToolSelection.h"
#include "views/Constraint.h"
#include "views/cameras/ViewProj.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace {

/// The most floats a gather of dabs holds before it is painted (4 MB).
constexpr std::int64_t gatherLimit = std::int64_t(1) << 20;

bool sizedInPixels(std::int32_t type) {
    return type == brushRound || type == brushSquare || type == brushBristle;
}

bool onSurface(std::int32_t type) {
    return type == brushSurface || type == brushSurfaceStamp || type == brushSurfaceList;
}

bool isList(std::int32_t type) {
    return type == brushPictureList || type == brushSurfaceList;
}

bool needsPicture(std::int32_t type) {
    return type == brushPicture || type == brushPictureList || type == brushStamp ||
           type == brushSurfaceStamp || type == brushSurfaceList;
}

/// Reads a picture for a mask: coverage from its alpha if it has one, else from its
/// darkness; its colour if any pixel is not grey.
Status readPicture(const std::wstring& filename, MaskPicture& picture, std::wstring& message) {
    if (filename.empty()) {
        message = L"The brush has no picture file.";
        return status::notFound;
    }
    auto import = TQL::makeHandle<RasterImport>();
    const Status status = import->read(filename);
    if (status != status::ok || !import->raster()) {
        message = import->errorText().empty()
                      ? L"The brush picture \"" + filename + L"\" cannot be read."
                      : import->errorText();
        return status != status::ok ? status : status::readFailed;
    }
    const Raster& raster = *import->raster();
    picture.width = raster.width;
    picture.height = raster.height;
    const std::size_t count = static_cast<std::size_t>(raster.width) * raster.height;
    picture.coverage.resize(count);
    picture.colour.resize(count);
    bool grey = true;
    for (std::int32_t y = 0; y < raster.height; ++y) {
        const std::uint8_t* row = raster.row(y);
        for (std::int32_t x = 0; x < raster.width; ++x) {
            const std::size_t i = static_cast<std::size_t>(y) * raster.width + x;
            const ColourPOD c{row[3 * x], row[3 * x + 1], row[3 * x + 2]};
            picture.colour[i] = c;
            grey = grey && c.b == c.g && c.g == c.r;
            if (raster.hasAlpha()) {
                picture.coverage[i] = raster.alphaRow(y)[x] / 255.0f;
            } else {
                const double lightness = (0.299 * c.r + 0.587 * c.g + 0.114 * c.b) / 255.0;
                picture.coverage[i] = static_cast<float>(1.0 - lightness);
            }
        }
    }
    if (grey) {
        picture.colour.clear();
    }
    return status::ok;
}

std::unique_ptr<MaskProfile> profileOf(const BrushSettings& s) {
    auto profile = MaskProfile::make(s.profileType, std::clamp(s.hardness, 0, 100) / 100.0);
    profile->levelChangesShape = s.ramp != 1;
    profile->levelChangesPeak = s.ramp == 1 || s.ramp == 2;
    return profile;
}

/// The mask of one brush or list entry.
Status makeMask(const BrushSettings& s, const std::wstring& filename, double size, double modelSize,
                Angle angle, double hookX, double hookY, TQL::Handle<PenMask>& out,
                std::wstring& message) {
    const double aspect = std::max(1, s.aspect) / 100.0;
    MaskPicture picture;
    if (needsPicture(s.type)) {
        const Status status = readPicture(filename, picture, message);
        if (status != status::ok) {
            return status;
        }
    }
    const double rasterAspect = s.rasterAspect > 0 ? s.rasterAspect : 1.0;
    switch (s.type) {
    case brushSquare:
        out = TQL::makeHandle<PenMask2d>(size, aspect, angle, profileOf(s), false, s.rect2Way);
        break;
    case brushPicture:
    case brushPictureList:
    case brushStamp: {
        auto mask =
            TQL::makeHandle<PenMask2d>(size, rasterAspect, angle, profileOf(s), picture, s.soften);
        mask->setHook(hookX, hookY);
        out = mask;
        break;
    }
    case brushBristle: {
        auto mask = TQL::makeHandle<PenMask2d>(size, aspect, angle, profileOf(s), true, false);
        mask->setBristles(s.bristles > 0 ? s.bristles : 12, s.bristlesPercent);
        out = mask;
        break;
    }
    case brushSurface:
        out = TQL::makeHandle<PenMask3d>(modelSize, aspect, angle, profileOf(s), true, s.vertical);
        break;
    case brushSurfaceStamp:
    case brushSurfaceList:
        out = TQL::makeHandle<PenMask3d>(modelSize, rasterAspect, angle, profileOf(s), picture,
                                         s.soften, s.vertical);
        break;
    default:
        out = TQL::makeHandle<PenMask2d>(size, aspect, angle, profileOf(s), true, false);
        break;
    }
    return status::ok;
}

} // namespace

TQL::Handle<BrushApplicator> BrushApplicator::create(const BrushSettings& settings, Status& status,
                                                     std::wstring& message) {
    status = status::ok;
    message.clear();
    const Angle angle = Angle::degrees(settings.angle);
    if (isList(settings.type)) {
        std::vector<BrushListEntry> entries = settings.list;
        if (entries.empty()) {
            BrushListEntry single;
            single.filename = settings.filename;
            single.size = settings.size;
            single.modelSize = settings.modelSize;
            single.angle = settings.angle;
            single.hookX = settings.hookX;
            single.hookY = settings.hookY;
            entries.push_back(single);
        }
        std::vector<TQL::Handle<PenMask>> masks;
        for (const BrushListEntry& entry : entries) {
            TQL::Handle<PenMask> mask;
            status = makeMask(settings, entry.filename, entry.size * settings.multiScale,
                              entry.modelSize * settings.multiScale, Angle::degrees(entry.angle),
                              entry.hookX, entry.hookY, mask, message);
            if (status != status::ok) {
                return nullptr;
            }
            masks.push_back(mask);
        }
        auto brush = TQL::makeHandle<BrushApplicator>(settings, masks.front());
        brush->masks = std::move(masks);
        return brush;
    }
    TQL::Handle<PenMask> mask;
    status = makeMask(settings, settings.filename, settings.size, settings.modelSize, angle,
                      settings.hookX, settings.hookY, mask, message);
    if (status != status::ok) {
        return nullptr;
    }
    return TQL::makeHandle<BrushApplicator>(settings, mask);
}

BrushApplicator::BrushApplicator(const BrushSettings& settings, TQL::Handle<PenMask> maskIn)
    : type(settings.type), mask(std::move(maskIn)), spaced(settings.spaced),
      spacing(settings.spaced ? static_cast<float>(std::max(0.01, settings.spacing)) : 1.0f),
      dynamics(settings.dynamics), size(0), constraintType(settings.constraintType),
      constraintAxis(settings.constraintAxis), continuous(settings.continuous),
      follows(settings.follows), colourSpread(settings.colourSpread),
      colourSpreadType(settings.colourSpreadType), sizeSpread(settings.sizeSpread),
      twist(Angle::degrees(settings.twist)), spreadPercent(settings.spreadPercent),
      dynamicOpacity(settings.dynamicOpacity), fade(settings.fade), settings_(settings) {
    size = mask ? mask->size() : settings.size;
    baseSize_ = size;
    baseAngle_ = mask ? mask->angle() : Angle::degrees(settings.angle);
    // The stages are dispatched as the base class does (a colour mask wraps the recolour
    // stage, which then isn't one colour): plain paint of one colour may be blended
    // straight away.
    fuseSolidPaint = true;
}

BrushApplicator::~BrushApplicator() = default;

bool BrushApplicator::MaskColours::hasColourMask() const {
    return brush_.mask && brush_.mask->hasColour();
}

void BrushApplicator::MaskColours::maskColours(const Span& span, int first, int last,
                                               ColourPOD* out) {
    if (brush_.mask) {
        brush_.mask->colourRow(span.x, span.y, out, first, last);
    }
}

void BrushApplicator::setRecolour(const TQL::Handle<RecolourTool>& stage) {
    bool colourMask = mask && mask->hasColour();
    for (const auto& m : masks) {
        colourMask = colourMask || m->hasColour();
    }
    if (stage && colourMask) {
        recolour = TQL::makeHandle<BrushRecolour>(&maskColours_, stage);
    } else {
        recolour = stage;
    }
}

TQL::Handle<TQL::Handlable> BrushApplicator::pseudoCursor() {
    if (!mask) {
        return nullptr;
    }
    return mask->outline();
}

std::uint32_t BrushApplicator::undoNameId() const {
    const std::uint32_t own = effect ? effect->undoNameId() : 0;
    return own ? own : undoNameBrush;
}

void BrushApplicator::ready() {
    if (ToolFeedback* feedback = ToolSelection::instance().feedback()) {
        if (isList(type)) {
            feedback->prompt(alternatePrompts ? promptListAlternate : promptList);
        } else {
            feedback->prompt(alternatePrompts ? promptBrushAlternate : promptBrush);
        }
        feedback->setPseudoCursor(pseudoCursor());
    }
}

void BrushApplicator::surfaceChanged(const SurfaceFrame& frame) {
    frame_ = frame;
    surfaceSet_ = true;
}

void BrushApplicator::loadListEntry(std::size_t index) {
    if (masks.empty()) {
        return;
    }
    multiIndex = index % masks.size();
    mask = masks[multiIndex];
    baseSize_ = mask->size();
    baseAngle_ = mask->angle();
    pointSize_ = baseSize_;
    pointAngle_ = baseAngle_;
}

bool BrushApplicator::paintsDabByDab() const {
    return forceDabByDab || wet || continuous || repainting || masks.size() > 1 ||
           (mask && mask->hasColour());
}

double BrushApplicator::pressureSize(float pressure) const {
    if ((dynamics & 2) && sizedInPixels(type)) {
        return std::max(1.0, std::min(pressure * baseSize_, baseSize_));
    }
    return baseSize_;
}

void BrushApplicator::apply(ZmapDocument& document, StrokeView* view,
                            const std::vector<StrokePoint>& points) {
    // A stored stroke has no pointer to keep up with: its dabs are gathered across moves
    // and painted together at the end (or whenever the gather grows too large).
    start(document, view, points.front());
    gatherAcrossMoves_ = true;
    if (!paintsDabByDab() && mask && !abandoned) {
        // Lay out the gather once over the whole path and the dabs' reach, so that it
        // need not grow (and be copied) dab by dab.
        IExtent<2> reach;
        for (const StrokePoint& p : points) {
            reach += IPoint<2>(p.x, p.y);
        }
        IExtent<2> dab;
        mask->bounds(dab, document, {points.front().x, points.front().y});
        const double spread = 1.0 + std::max(sizeSpread, 0) / 100.0 + spreadPercent / 100.0;
        const auto margin = static_cast<std::int32_t>(
            std::ceil(std::max(dab.width(), dab.height()) * 0.5 * spread) + 2);
        const IExtent<2> area(std::max(0, reach.lo().x - margin),
                              std::max(0, reach.lo().y - margin),
                              std::min(document.width() - 1, reach.hi().x + margin),
                              std::min(document.height() - 1, reach.hi().y + margin));
        if (!area.degenerate() && area.width() * area.height() <= gatherLimit) {
            gather_.extent = area;
            gather_.coverage.assign(static_cast<std::size_t>(area.width() * area.height()), 0.0f);
        }
    }
    for (std::size_t i = 1; i < points.size() && !abandoned; ++i) {
        extend(document, view, points[i]);
    }
    finish(document, view);
    gatherAcrossMoves_ = false;
}

void BrushApplicator::start(ZmapDocument& document, StrokeView* view, const StrokePoint& point) {
    surfaceSet_ = false;
    Applicator::start(document, view, point);
    wet = effect && effect->usesWetLayer();
    faded = 0;
    fadeStarted_ = false;
    dabCount_ = 0;
    placedAny_ = false;
    previousMask = nullptr;
    gather_ = Gather();
    if (!masks.empty()) {
        loadListEntry(0);
    }
    if (!mask) {
        abandon();
        return;
    }

    // Stamps may be sized from the image width.
    if ((type == brushStamp || type == brushPicture) && settings_.sizeDocPercent > 0) {
        baseSize_ = std::max(1.0, settings_.sizeDocPercent / 100.0 * document.width());
        mask->reshape(baseSize_, mask->angle());
    }
    size = baseSize_;

    const IPoint<2> p{point.x, point.y};
    referenceNormal_ = Vector<3>();
    if (onSurface(type)) {
        referenceNormal_ =
            surfaceSet_ ? frame_.plane().normal() : document.planeAt(point.x, point.y).normal();
    }
    mask->prepare(document);
    if (surfaceSet_) {
        mask->setSurface(frame_);
    } else {
        mask->clearSurface();
    }
    constraint_ = nullptr;
    if (constraintType != 0) {
        constraint_ = TQL::makeHandle<Constraint>(Constraint::fromStyle(constraintType), document,
                                                  p, settings_.worldConstraint, constraintAxis);
    }
    lastDab_ = lastPoint_ = moveEnd_ = p;
    lastPressure_ = point.pressure;
    lastOpacity_ = (dynamics & 1) ? point.pressure : 1.0f;
    pointSize_ = pressureSize(point.pressure);
    pointAngle_ = baseAngle_;
    shrinkPixel_ = settings_.shrink && !onSurface(type) ? pixelWorldSize(document, p) : 0;
    if ((dynamics & 4) && sizedInPixels(type)) {
        mask->setLevel(point.pressure);
    }
}

bool BrushApplicator::extend(ZmapDocument& document, StrokeView* view, const StrokePoint& point) {
    if (abandoned || finished || !mask) {
        return false;
    }
    if (TQL::stopRequested()) {
        abandon();
        return false;
    }
    IPoint<2> p{point.x, point.y};
    if ((point.flags & strokeConstrained) && constraint_) {
        p = constraint_->constrain(p);
    }
    if ((dynamics & 6) && point.pressure != lastPressure_ && sizedInPixels(type)) {
        pointSize_ = pressureSize(point.pressure);
        if (dynamics & 4) {
            mask->setLevel(point.pressure);
        }
    }
    if (colourSpread > 0 && recolour) {
        recolour->pickColour(colourSpread, colourSpreadType);
    }
    if (follows && (type == brushPicture || type == brushPictureList) && !(p == lastPoint_)) {
        pointAngle_ = baseAngle_ + Angle::cosSin(p.x - lastPoint_.x, p.y - lastPoint_.y);
    }
    const float opacity = (dynamics & 1) ? point.pressure : 1.0f;

    changed_ = IExtent<2>();
    moveEnd_ = p;
    if (!placedAny_) {
        makeDab(document, lastDab_, lastOpacity_);
    }
    samplePath(document, p, opacity);
    if (!gatherAcrossMoves_) {
        flushGather(document);
    }
    lastPoint_ = p;
    lastPressure_ = point.pressure;
    if (view && !changed_.degenerate()) {
        view->queueRedraw(changed_);
    }
    return !changed_.degenerate();
}

void BrushApplicator::finish(ZmapDocument& document, StrokeView* view) {
    changed_ = IExtent<2>();
    if (!abandoned && mask && !placedAny_) {
        // A single click: one dab at the point.
        moveEnd_ = lastDab_;
        makeDab(document, lastDab_, lastOpacity_);
    }
    if (!abandoned) {
        flushGather(document);
    }
    gather_ = Gather();
    if (view && !changed_.degenerate()) {
        view->queueRedraw(changed_);
    }
    if (effect) {
        effect->endDabs();
    }
    constraint_ = nullptr;
    Applicator::finish(document, view);
}

void BrushApplicator::samplePath(ZmapDocument& document, IPoint<2> to, float opacity) {
    const IPoint<2> a = lastDab_;
    if (a == to) {
        return;
    }
    const double dx = to.x - a.x;
    const double dy = to.y - a.y;
    double n = 0;
    if (spaced) {
        double d = mask->distance(a, to, document);
        if (previousMask && previousMask.get() != mask.get() &&
            previousMask->size() != mask->size()) {
            const double d1 = previousMask->distance(a, to, document);
            if (d > 0 && d1 > 0) {
                d = 2 * d * d1 / (d + d1);
            }
        }
        if (!(d >= spacing)) {
            return; // not far enough yet: the anchor stays
        }
        n = d / spacing;
    } else {
        const double around = stepsAcrossFaces(document, a, to);
        n = around > 0 ? std::max(around, 1.0) : std::max({std::fabs(dx), std::fabs(dy), 1.0});
    }

    // A surface dab steps evenly in the model; a flat one on the image.
    bool inModel = false;
    Point<3> wa;
    Point<3> wb;
    const TQL::Handle<ViewProj>& view = document.viewProj();
    if (onSurface(type) && view && a.x >= 0 && a.y >= 0 && a.x < document.width() &&
        a.y < document.height() && to.x >= 0 && to.y >= 0 && to.x < document.width() &&
        to.y < document.height() && document.zAt(a.x, a.y) < 0xFFFFFFFEu &&
        document.zAt(to.x, to.y) < 0xFFFFFFFEu) {
        wa = document.worldAt(a.x, a.y);
        wb = document.worldAt(to.x, to.y);
        inModel = true;
    }

    const float startOpacity = lastOpacity_;
    IPoint<2> previous = a;
    const auto steps = static_cast<std::int64_t>(n);
    for (std::int64_t k = 1; k <= steps && !abandoned; ++k) {
        const double t = static_cast<double>(k) / n;
        double x = a.x + dx * t;
        double y = a.y + dy * t;
        Point<2> around;
        if (inModel) {
            const Point<3> pixel = view->pixelFromWorld(interp(wa, wb, t));
            if (std::isfinite(pixel.x()) && std::isfinite(pixel.y())) {
                x = pixel.x();
                y = pixel.y();
            }
        } else if (acrossFaces(document, a, to, t, around)) {
            x = around.x();
            y = around.y();
        }
        const IPoint<2> q{static_cast<std::int32_t>(std::lround(x)),
                          static_cast<std::int32_t>(std::lround(y))};
        if (q == previous) {
            continue;
        }
        const float o = startOpacity + (opacity - startOpacity) * static_cast<float>(t);
        makeDab(document, q, o);
        previous = q;
        lastDab_ = q;
        lastOpacity_ = o;
    }
}

bool BrushApplicator::acrossFaces(const ZmapDocument& document, IPoint<2> a, IPoint<2> b, double t,
                                  Point<2>& pixel) {
    const TQL::Handle<ViewProj>& view = document.viewProj();
    if (!view || view->viewType() != ViewProj::cubicView) {
        return false;
    }
    const FaceSize& faces = view->faceSize();
    if (faces.size() <= 0 || faces.faceOf(a.x) == faces.faceOf(b.x)) {
        return false;
    }
    const Vector<3> da = view->pixelDirection(a.x, a.y).unit();
    const Vector<3> db = view->pixelDirection(b.x, b.y).unit();
    const Vector<3> d = da * (1 - t) + db * t;
    if (d.lengthSquared() < 1e-12) {
        return false; // opposite directions: no one way round
    }
    const Point<3> p = view->pixelFromHomogeneous(Point<3>(d.x(), d.y(), d.z()));
    pixel = Point<2>(p.x(), p.y());
    return std::isfinite(p.x()) && std::isfinite(p.y());
}

double BrushApplicator::stepsAcrossFaces(const ZmapDocument& document, IPoint<2> a, IPoint<2> b) {
    Point<2> unused;
    if (!acrossFaces(document, a, b, 0.5, unused)) {
        return 0;
    }
    const ViewProj& view = *document.viewProj();
    const Vector<3> da = view.pixelDirection(a.x, a.y).unit();
    const Vector<3> db = view.pixelDirection(b.x, b.y).unit();
    const double angle = std::acos(std::clamp(dot(da, db), -1.0, 1.0));
    // A quarter turn spans a face.
    return angle / (std::numbers::pi / 2) * view.faceSize().size();
}

double BrushApplicator::pixelWorldSize(const ZmapDocument& document, IPoint<2> p) {
    const TQL::Handle<ViewProj>& view = document.viewProj();
    if (!view || p.x < 0 || p.y < 0 || p.x >= document.width() || p.y >= document.height()) {
        return 0;
    }
    const std::uint32_t code = document.zAt(p.x, p.y);
    if (code >= 0xFFFFFFFEu) {
        return 0;
    }
    const Point<3> a = view->worldFromPixel(p.x, p.y, code);
    const Point<3> b = view->worldFromPixel(p.x + 1, p.y, code);
    const double size = (b - a).length();
    return std::isfinite(size) ? size : 0;
}

float BrushApplicator::dabOpacity(float o, IPoint<2> p) {
    if (fade != 0) {
        if (fadeStarted_) {
            const double dx = p.x - fadePoint_.x;
            const double dy = p.y - fadePoint_.y;
            faded += std::sqrt(dx * dx + dy * dy);
        }
        fadeStarted_ = true;
        fadePoint_ = p;
        double factor = 1.0;
        if (fade > 0) {
            factor = faded == 0 ? 1.0 : faded <= fade ? 1.0 - faded / fade : 0.0;
        } else {
            factor = faded == 0 ? 0.0 : faded <= -fade ? faded / -fade : 1.0;
        }
        if (settings_.fadeType == 1) {
            factor = factor * factor * (3 - 2 * factor); // smooth ends
        }
        o = static_cast<float>(o * factor);
    }
    if (dynamicOpacity != 0) {
        o = static_cast<float>(o - (dynamicOpacity / 100.0 * random()) * o);
    }
    return o * static_cast<float>(std::clamp(settings_.opacity, 0, 100) / 100.0);
}

void BrushApplicator::makeDab(ZmapDocument& document, IPoint<2> p, float opacity) {
    // Per-dab variation: size spread, twist, scatter.
    double dabSize = pointSize_;
    if (sizeSpread > 0) {
        const double r = random();
        if (sizedInPixels(type)) {
            dabSize += std::trunc(dabSize * sizeSpread * (2 * r - 1) / 100.0);
            dabSize = std::max(1.0, dabSize);
        } else {
            dabSize *= std::max(0.01, 1 + sizeSpread * (2 * r - 1) / 100.0);
        }
    }
    if (shrinkPixel_ > 0) {
        // Smaller where a pixel covers more of the world than at the start.
        const double here = pixelWorldSize(document, p);
        if (here > 0) {
            dabSize = std::max(sizedInPixels(type) ? 1.0 : 0.01, dabSize * shrinkPixel_ / here);
        }
    }
    Angle dabAngle = pointAngle_;
    if (twist.radians() != 0) {
        dabAngle += Angle::radians((2 * random() - 1) * twist.radians());
    }
    mask->reshape(dabSize, dabAngle);
    if (spreadPercent != 0) {
        IExtent<2> box;
        mask->bounds(box, document, p);
        const double radius = box.degenerate() ? dabSize : (box.width() - 1) * 0.5;
        const double r = spreadPercent / 100.0 * radius * random();
        const double a = 2 * std::numbers::pi * random();
        p = {p.x + static_cast<std::int32_t>(std::lround(r * std::cos(a))),
             p.y + static_cast<std::int32_t>(std::lround(r * std::sin(a)))};
    }
    placedAny_ = true;
    ++dabCount_;
    if (paintsDabByDab()) {
        paintDab(document, p, opacity);
        if (masks.size() > 1) {
            loadListEntry(multiIndex + 1);
        }
    } else {
        gatherDab(document, p, opacity);
    }
}

void BrushApplicator::paintDab(ZmapDocument& document, IPoint<2> p, float opacity) {
    const float o = dabOpacity(opacity, p);
    if (effect) {
        effect->onDab(Point<2>(p.x, p.y), mask, document);
    }
    previousMask = mask;
    mask->footprint(extents_, p, document);
    if (o <= 0) {
        return;
    }
    for (const IExtent<2>& e : extents_) {
        if (e.degenerate()) {
            continue;
        }
        const auto w = static_cast<std::int32_t>(e.width());
        row_.resize(static_cast<std::size_t>(w));
        for (std::int32_t y = e.lo().y; y <= e.hi().y && !abandoned; ++y) {
            std::fill(row_.begin(), row_.end(), o);
            mask->multiplyRow(e.lo().x, y, row_.data(), 0, w);
            changed_ |= paintRow(document, e.lo().x, y, 0, w, row_.data());
        }
    }
}

void BrushApplicator::gatherDab(ZmapDocument& document, IPoint<2> p, float opacity) {
    const float o = dabOpacity(opacity, p);
    if (effect) {
        effect->onDab(Point<2>(p.x, p.y), mask, document);
    }
    previousMask = mask;
    mask->footprint(extents_, p, document);
    if (o <= 0) {
        return;
    }
    for (const IExtent<2>& e : extents_) {
        if (e.degenerate()) {
            continue;
        }
        if (!gather_.extent.degenerate()) {
            IExtent<2> both = gather_.extent;
            both |= e;
            if (!(both == gather_.extent)) {
                // Grow the gather with room to spare along the way the stroke goes, up
                // to the image's edges; paint it first when it would grow too large.
                const std::int32_t marginX =
                    std::max<std::int32_t>(64, static_cast<std::int32_t>(e.width()));
                const std::int32_t marginY =
                    std::max<std::int32_t>(64, static_cast<std::int32_t>(e.height()));
                IExtent<2> grown(
                    both.lo().x < gather_.extent.lo().x ? std::max(0, both.lo().x - marginX)
                                                        : both.lo().x,
                    both.lo().y < gather_.extent.lo().y ? std::max(0, both.lo().y - marginY)
                                                        : both.lo().y,
                    both.hi().x > gather_.extent.hi().x
                        ? std::min(document.width() - 1, both.hi().x + marginX)
                        : both.hi().x,
                    both.hi().y > gather_.extent.hi().y
                        ? std::min(document.height() - 1, both.hi().y + marginY)
                        : both.hi().y);
                if (grown.width() * grown.height() > gatherLimit) {
                    flushGather(document);
                } else {
                    std::vector<float> moved(
                        static_cast<std::size_t>(grown.width() * grown.height()), 0.0f);
                    const auto oldW = static_cast<std::size_t>(gather_.extent.width());
                    const auto newW = static_cast<std::size_t>(grown.width());
                    for (std::int32_t y = gather_.extent.lo().y; y <= gather_.extent.hi().y; ++y) {
                        const float* from =
                            gather_.coverage.data() +
                            static_cast<std::size_t>(y - gather_.extent.lo().y) * oldW;
                        float* into = moved.data() +
                                      static_cast<std::size_t>(y - grown.lo().y) * newW +
                                      (gather_.extent.lo().x - grown.lo().x);
                        std::copy(from, from + oldW, into);
                    }
                    gather_.coverage.swap(moved);
                    gather_.extent = grown;
                }
            }
        }
        if (gather_.extent.degenerate()) {
            IExtent<2> area = e;
            if (!gatherAcrossMoves_) {
                // The move's other dabs lie on the way to its end: the gather is laid out
                // over that way at once rather than grown (and copied) dab by dab.
                const std::int32_t dx = moveEnd_.x - p.x;
                const std::int32_t dy = moveEnd_.y - p.y;
                const IExtent<2> there(std::max(0, e.lo().x + dx), std::max(0, e.lo().y + dy),
                                       std::min(document.width() - 1, e.hi().x + dx),
                                       std::min(document.height() - 1, e.hi().y + dy));
                if (!there.degenerate()) {
                    area |= there;
                }
                if (area.width() * area.height() > gatherLimit) {
                    area = e;
                }
            }
            gather_.extent = area;
            gather_.coverage.assign(static_cast<std::size_t>(area.width() * area.height()), 0.0f);
        }
        const auto w = static_cast<std::int32_t>(e.width());
        const auto gw = static_cast<std::size_t>(gather_.extent.width());
        row_.resize(static_cast<std::size_t>(w));
        for (std::int32_t y = e.lo().y; y <= e.hi().y; ++y) {
            std::fill(row_.begin(), row_.end(), o);
            mask->multiplyRow(e.lo().x, y, row_.data(), 0, w);
            float* g = gather_.coverage.data() +
                       static_cast<std::size_t>(y - gather_.extent.lo().y) * gw +
                       (e.lo().x - gather_.extent.lo().x);
            // "Over", as the stroke alpha grows: g + c - g c.
            for (std::int32_t i = 0; i < w; ++i) {
                g[i] = g[i] + row_[i] - g[i] * row_[i];
            }
        }
        ++gather_.dabs;
    }
}

void BrushApplicator::flushGather(ZmapDocument& document) {
    if (gather_.extent.degenerate()) {
        return;
    }
    const IExtent<2> e = gather_.extent;
    const auto w = static_cast<std::int32_t>(e.width());
    for (std::int32_t y = e.lo().y; y <= e.hi().y && !abandoned; ++y) {
        const float* row = gather_.coverage.data() + static_cast<std::size_t>(y - e.lo().y) * w;
        changed_ |= paintRow(document, e.lo().x, y, 0, w, row);
    }
    gather_.extent = IExtent<2>();
    gather_.dabs = 0;
}
