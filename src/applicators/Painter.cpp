#include "applicators/Painter.h"

#include "applicators/BrushApplicator.h"
#include "applicators/PainterPC.h"
#include "applicators/PenMask2d.h"
#include "core/Reporter.h"
#include "image/ZmapDocument.h"
#include "pipeline/ToolSelection.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>

namespace {

constexpr std::uint32_t noDepth = 0xFFFFFFFFu;

} // namespace

/// The strokes composited so far in this user's stroke: straight colour, coverage, the depth
/// of the nearest stroke and what paintRow has been given, per pixel, in tiles made on
/// first touch.
struct Painter::Canvas {
    static constexpr std::int32_t side = 64;
    static constexpr std::size_t cells = static_cast<std::size_t>(side) * side;

    struct Tile {
        float alpha[cells] = {};
        float flushed[cells] = {};
        float colour[cells][3] = {};
        std::uint32_t key[cells];
        std::uint8_t dirty[cells] = {};
        Tile() { std::fill(std::begin(key), std::end(key), noDepth); }
    };

    Canvas(std::int32_t w, std::int32_t h)
        : width(w), height(h), columns((w + side - 1) / side), rows((h + side - 1) / side),
          tiles(static_cast<std::size_t>(columns) * rows) {}

    /// The tile of pixel (x, y), made if `make`; null outside the image or unmade.
    Tile* tile(std::int32_t x, std::int32_t y, bool make) {
        if (x < 0 || y < 0 || x >= width || y >= height) {
            return nullptr;
        }
        auto& t = tiles[static_cast<std::size_t>(y / side) * columns + x / side];
        if (!t && make) {
            t = std::make_unique<Tile>();
        }
        return t.get();
    }
    static std::size_t index(std::int32_t x, std::int32_t y) {
        return static_cast<std::size_t>(y % side) * side + x % side;
    }

    std::int32_t width;
    std::int32_t height;
    std::int32_t columns;
    std::int32_t rows;
    std::vector<std::unique_ptr<Tile>> tiles;
    /// Pixels composited since the last flush.
    IExtent<2> dirty;
};

TQL::Handle<Painter> Painter::create(const PainterSettings& settings, std::uint32_t seed,
                                     Status& status, std::wstring& message) {
    // The dab is a brush mask: round or square with the softness as its profile, or the
    // picture.
    BrushSettings dab;
    dab.type = settings.type == painterSquare    ? brushSquare
               : settings.type == painterPicture ? brushPicture
                                                 : brushRound;
    const PainterSizeEntry entry =
        settings.list.empty() ? PainterSizeEntry() : settings.list.front();
    dab.size = std::max(1, entry.size);
    dab.hardness = 100 - std::clamp(settings.softness, 0, 100);
    dab.filename = settings.filename;
    dab.hookX = entry.hookX;
    dab.hookY = entry.hookY;
    dab.rasterAspect = entry.docRasterAspect > 0 ? entry.docRasterAspect : 1.0;
    TQL::Handle<BrushApplicator> brush = BrushApplicator::create(dab, status, message);
    if (!brush) {
        return nullptr;
    }
    return TQL::makeHandle<Painter>(settings, brush->mask, seed);
}

Painter::Painter(const PainterSettings& settings, TQL::Handle<PenMask> mask, std::uint32_t seed)
    : settings_(settings), mask_(std::move(mask)), random_(seed) {
    if (settings_.list.empty()) {
        settings_.list.push_back(PainterSizeEntry());
    }
    cellW_ = std::max(1, settings_.cellSize);
    cellH_ = std::max(1, settings_.cellSizeY > 0 ? settings_.cellSizeY : settings_.cellSize);
    // The colour comes from the painter's own canvas (runEffect), so one colour is never
    // blended straight away (fuseSolidPaint stays off).
}

Painter::~Painter() = default;

double Painter::depthFactor(std::uint32_t code) const {
    if (code >= 0xFFFFFFFEu) {
        return 1.0;
    }
    return 1.0 + (code / 4294967295.0) * (settings_.depthScale - 1.0);
}

TQL::Handle<TQL::Handlable> Painter::pseudoCursor() {
    const double length = settings_.length;
    const double size = settings_.list.front().size * settings_.multiScale;
    if (settings_.type == painterPicture) {
        return TQL::makeHandle<RasterPainterPC>(cellW_, cellH_, length, size,
                                                Angle::degrees(settings_.angle));
    }
    return TQL::makeHandle<PainterPC>(cellW_, cellH_, length, size,
                                      Angle::degrees(settings_.angle));
}

std::uint32_t Painter::undoNameId() const {
    const std::uint32_t own = effect ? effect->undoNameId() : 0;
    return own ? own : undoNamePainter;
}

void Painter::ready() {
    if (ToolFeedback* feedback = ToolSelection::instance().feedback()) {
        feedback->prompt(alternatePrompts ? promptPainterAlternate : promptPainter);
        feedback->setPseudoCursor(pseudoCursor());
    }
}

void Painter::runMatting(Span& span, int first, int last) {
    Applicator::runMatting(span, first, last);
}

void Painter::runTexture(Span& span, int first, int last) {
    Applicator::runTexture(span, first, last);
}

void Painter::runRecolour(Span&, int, int) {
    // Each stroke has its own colour from the reference: the tool colour has no say.
}

void Painter::runEffect(Span& span, int first, int last) {
    if (last <= first) {
        return;
    }
    if (span.flags & spanNeedsDepth) {
        std::memcpy(span.depth + first, span.baseDepth + first,
                    static_cast<std::size_t>(last - first) * sizeof(std::uint32_t));
    }
    for (int i = first; i < last;) {
        const std::int32_t x = span.x + i;
        Canvas::Tile* tile = canvas_ ? canvas_->tile(x, span.y, false) : nullptr;
        const int inTile = Canvas::side - x % Canvas::side;
        const int stop = std::min(last, i + inTile);
        if (!tile) {
            std::memcpy(span.colour + i, span.sourceColour + i,
                        static_cast<std::size_t>(stop - i) * sizeof(ColourPOD));
            i = stop;
            continue;
        }
        const std::size_t base = Canvas::index(x, span.y);
        for (int k = i; k < stop; ++k) {
            const float* c = tile->colour[base + static_cast<std::size_t>(k - i)];
            span.colour[k] = ColourPOD{static_cast<std::uint8_t>(std::lrint(c[2])),
                                       static_cast<std::uint8_t>(std::lrint(c[1])),
                                       static_cast<std::uint8_t>(std::lrint(c[0]))};
        }
        i = stop;
    }
}

void Painter::apply(ZmapDocument& document, StrokeView* view,
                    const std::vector<StrokePoint>& points) {
    start(document, view, points.front());
    for (std::size_t i = 1; i < points.size() && !abandoned; ++i) {
        extend(document, view, points[i]);
    }
    finish(document, view);
}

void Painter::start(ZmapDocument& document, StrokeView* view, const StrokePoint& point) {
    Applicator::start(document, view, point);
    // A near stroke must be able to cover pixels a far one already covered fully.
    repainting = true;
    wet = false;
    ++serial_;
    if (serial_ == 0) {
        serial_ = 1;
        std::fill(grid_.begin(), grid_.end(), 0u);
    }
    const std::int32_t columns = (document.width() + cellW_ - 1) / cellW_;
    const std::int32_t rows = (document.height() + cellH_ - 1) / cellH_;
    if (settings_.reset || columns != columns_ || rows != rows_) {
        columns_ = columns;
        rows_ = rows;
        grid_.assign(static_cast<std::size_t>(columns_) * rows_, 0u);
    }
    canvas_ = std::make_unique<Canvas>(document.width(), document.height());
    pending_.clear();
    laid_.clear();
    travelled_ = 0;
    nextEntry_ = 0;
    pressure_ = point.pressure;
    lastPoint_ = {point.x, point.y};
    lastCell_ = {-1, -1};
    pointerDirection_ = Angle();
    if (!mask_) {
        abandon();
        return;
    }
    mask_->prepare(document);
    changed_ = IExtent<2>();
    crossCells(document, lastPoint_, lastPoint_);
    if (!settings_.delay) {
        layStrokes(document, pending_);
        if (view && !changed_.degenerate()) {
            view->queueRedraw(changed_);
        }
    }
}

bool Painter::extend(ZmapDocument& document, StrokeView* view, const StrokePoint& point) {
    if (abandoned || finished || !mask_) {
        return false;
    }
    if (TQL::stopRequested()) {
        abandon();
        return false;
    }
    const IPoint<2> p{point.x, point.y};
    if (p == lastPoint_) {
        return false;
    }
    pointerDirection_ = Angle::cosSin(p.x - lastPoint_.x, p.y - lastPoint_.y);
    pressure_ = point.pressure;
    changed_ = IExtent<2>();
    crossCells(document, lastPoint_, p);
    travelled_ += std::hypot(p.x - lastPoint_.x, p.y - lastPoint_.y);
    lastPoint_ = p;
    if (!settings_.delay) {
        layStrokes(document, pending_);
    }
    if (view && !changed_.degenerate()) {
        view->queueRedraw(changed_);
    }
    return !changed_.degenerate();
}

void Painter::finish(ZmapDocument& document, StrokeView* view) {
    changed_ = IExtent<2>();
    if (!abandoned && mask_) {
        layStrokes(document, pending_);
    }
    canvas_.reset();
    if (view && !changed_.degenerate()) {
        view->queueRedraw(changed_);
    }
    Applicator::finish(document, view);
}

void Painter::crossCells(ZmapDocument& document, IPoint<2> from, IPoint<2> to) {
    // Walk the segment in steps of less than half a cell, so no cell it crosses is missed
    // but for a corner's clip.
    const double dx = to.x - from.x;
    const double dy = to.y - from.y;
    const double step = std::max(1.0, std::min(cellW_, cellH_) / 2.0);
    const auto n =
        static_cast<std::int64_t>(std::ceil(std::max(std::fabs(dx), std::fabs(dy)) / step));
    for (std::int64_t k = 0; k <= n; ++k) {
        const double t = n == 0 ? 0.0 : static_cast<double>(k) / n;
        const auto x = static_cast<std::int32_t>(std::lround(from.x + dx * t));
        const auto y = static_cast<std::int32_t>(std::lround(from.y + dy * t));
        if (x < 0 || y < 0 || x >= document.width() || y >= document.height()) {
            continue;
        }
        const IPoint<2> cell{x / cellW_, y / cellH_};
        if (cell == lastCell_) {
            continue;
        }
        lastCell_ = cell;
        enterCell(document, cell);
    }
}

void Painter::enterCell(ZmapDocument& document, IPoint<2> cell) {
    std::uint32_t& mark = grid_[static_cast<std::size_t>(cell.y) * columns_ + cell.x];
    // A cell painted by an earlier stroke stays full until a stroke resets the grid; within
    // a stroke a strict painter paints it once, a loose one each time the pointer comes back.
    if (mark != 0 && (mark != serial_ || settings_.strict)) {
        return;
    }
    mark = serial_;
    pending_.push_back(makeStroke(document, cell));
}

PainterStroke Painter::makeStroke(ZmapDocument& document, IPoint<2> cell) {
    const PainterSettings& s = settings_;
    PainterStroke stroke;
    stroke.cell = cell;
    const std::int32_t x0 = cell.x * cellW_;
    const std::int32_t y0 = cell.y * cellH_;
    const std::int32_t x1 = std::min(document.width(), x0 + cellW_) - 1;
    const std::int32_t y1 = std::min(document.height(), y0 + cellH_) - 1;
    double ox = (x0 + x1) / 2.0;
    double oy = (y0 + y1) / 2.0;
    if (s.splatRandom) {
        const double amount = std::clamp(s.splatter, 0, 100) / 100.0;
        ox += (2 * random() - 1) * amount * (x1 - x0) / 2.0;
        oy += (2 * random() - 1) * amount * (y1 - y0) / 2.0;
    }
    stroke.origin = {std::clamp(static_cast<std::int32_t>(std::lround(ox)), x0, x1),
                     std::clamp(static_cast<std::int32_t>(std::lround(oy)), y0, y1)};
    stroke.depth = document.zAt(stroke.origin.x, stroke.origin.y);

    stroke.entry = nextEntry_;
    nextEntry_ = (nextEntry_ + 1) % s.list.size();
    const PainterSizeEntry& entry = s.list[stroke.entry];
    const double factor = depthFactor(stroke.depth);
    double size = entry.docPercent > 0 ? entry.docPercent / 100.0 * document.width()
                                       : entry.size * s.multiScale;
    if ((s.dynamics & 2) != 0) {
        size *= std::clamp(pressure_, 0.0f, 1.0f);
    }
    stroke.size = std::max(0.5, size * factor);
    const double length =
        s.lengthDocPercent > 0 ? s.lengthDocPercent / 100.0 * document.width() : s.length;
    stroke.length = std::max(0.0, length * factor);

    Angle direction = Angle::degrees(s.angle + entry.angle);
    if (s.relative) {
        direction += pointerDirection_;
    }
    if (s.twist != 0) {
        direction += Angle::degrees((2 * random() - 1) * s.twist);
    }
    stroke.direction = direction;

    if (s.spreadPercent != 0) {
        const double r = s.spreadPercent / 100.0 * stroke.size * random();
        const double a = 2 * std::numbers::pi * random();
        stroke.origin = {stroke.origin.x + static_cast<std::int32_t>(std::lround(r * std::cos(a))),
                         stroke.origin.y + static_cast<std::int32_t>(std::lround(r * std::sin(a)))};
    }

    // The colour at the origin, from the reference.
    const auto rx = stroke.origin.x + static_cast<std::int32_t>(std::lround(s.reference.y()));
    const auto ry = stroke.origin.y + static_cast<std::int32_t>(std::lround(s.reference.z()));
    const auto qx = std::clamp(rx, 0, document.width() - 1);
    const auto qy = std::clamp(ry, 0, document.height() - 1);
    ColourPOD colour =
        s.reference.x() >= 0.5 ? document.undoRgbAt(qx, qy) : document.originalRgbAt(qx, qy);
    if (s.colourSpread > 0) {
        const double spread = s.colourSpread;
        auto shift = [](std::uint8_t c, double d) {
            return static_cast<std::uint8_t>(std::clamp(std::lround(c + d), 0L, 255L));
        };
        if (s.colourSpreadType == 1) {
            const double d = (2 * random() - 1) * spread;
            colour = {shift(colour.b, d), shift(colour.g, d), shift(colour.r, d)};
        } else {
            const double dr = (2 * random() - 1) * spread;
            const double dg = (2 * random() - 1) * spread;
            const double db = (2 * random() - 1) * spread;
            colour = {shift(colour.b, db), shift(colour.g, dg), shift(colour.r, dr)};
        }
    }
    stroke.colour = colour;

    float opacity = std::clamp(s.opacity, 0, 100) / 100.0f;
    if ((s.dynamics & 1) != 0) {
        opacity *= std::clamp(pressure_, 0.0f, 1.0f);
    }
    opacity *= fadeFactor();
    if (s.dynamicOpacity != 0) {
        opacity -= static_cast<float>(s.dynamicOpacity / 100.0 * random()) * opacity;
    }
    stroke.opacity = std::max(0.0f, opacity);
    return stroke;
}

float Painter::fadeFactor() const {
    const double fade = settings_.fade;
    if (fade == 0) {
        return 1.0f;
    }
    double f = 1.0;
    if (fade > 0) {
        f = travelled_ <= fade ? 1.0 - travelled_ / fade : 0.0;
    } else {
        f = travelled_ <= -fade ? travelled_ / -fade : 1.0;
    }
    if (settings_.fadeType == 1) {
        f = f * f * (3 - 2 * f);
    }
    return static_cast<float>(f);
}

double Painter::ramp(double t) const {
    if (settings_.shape == 1) {
        t = t * t * (3 - 2 * t);
    }
    return (settings_.start + (settings_.end - settings_.start) * t) / 100.0;
}

void Painter::layStrokes(ZmapDocument& document, std::vector<PainterStroke>& strokes) {
    if (strokes.empty()) {
        return;
    }
    if (settings_.depthSort) {
        // The farthest first; strokes of equal depth keep the order they were made in.
        std::stable_sort(
            strokes.begin(), strokes.end(),
            [](const PainterStroke& a, const PainterStroke& b) { return a.depth > b.depth; });
    }
    for (const PainterStroke& stroke : strokes) {
        if (abandoned) {
            break;
        }
        layStroke(document, stroke);
        laid_.push_back(stroke);
    }
    strokes.clear();
    flush(document);
}

void Painter::layStroke(ZmapDocument& document, const PainterStroke& stroke) {
    if (stroke.opacity <= 0) {
        return;
    }
    // The dabs: from the hooked start along the direction, turning by the skew and the
    // wobble, ramping from Start to End.
    struct Dab {
        double x, y, size;
        Angle angle;
        float opacity;
    };
    const double step = std::max(1.0, stroke.size * std::max(1, settings_.spread) / 100.0);
    const auto count =
        stroke.length > 0 ? static_cast<std::int64_t>(std::ceil(stroke.length / step)) + 1 : 1;
    const double hook = std::clamp(settings_.hook, 0, 100) / 100.0 * stroke.length;
    double x = stroke.origin.x - hook * stroke.direction.cos();
    double y = stroke.origin.y - hook * stroke.direction.sin();
    Angle direction = stroke.direction;
    const Angle bend =
        count > 1 ? Angle::degrees(static_cast<double>(settings_.skew) / (count - 1)) : Angle();
    std::vector<Dab> dabs;
    dabs.reserve(static_cast<std::size_t>(count));
    double biggest = 0;
    IExtent<2> reach;
    for (std::int64_t k = 0; k < count; ++k) {
        const double t = count > 1 ? static_cast<double>(k) / (count - 1) : 0.0;
        const double level = std::max(0.0, ramp(t));
        const Dab dab{x, y, std::max(0.5, stroke.size * level), direction,
                      static_cast<float>(std::min(1.0, level))};
        dabs.push_back(dab);
        biggest = std::max(biggest, dab.size);
        reach += IPoint<2>(static_cast<std::int32_t>(std::lround(x)),
                           static_cast<std::int32_t>(std::lround(y)));
        const double length = std::min(step, stroke.length - k * step);
        x += length * direction.cos();
        y += length * direction.sin();
        direction += bend;
        if (settings_.wobble != 0) {
            direction += Angle::degrees((2 * random() - 1) * settings_.wobble);
        }
    }

    // The stroke's coverage, dab over dab, in a box that holds every dab (a picture's hook
    // may move it a whole size from its position).
    const auto margin = static_cast<std::int32_t>(std::ceil(2 * biggest)) + 2;
    IExtent<2> box(reach.lo().x - margin, reach.lo().y - margin, reach.hi().x + margin,
                   reach.hi().y + margin);
    box &= IExtent<2>(0, 0, document.width() - 1, document.height() - 1);
    if (box.degenerate()) {
        return;
    }
    const auto bw = static_cast<std::int32_t>(box.width());
    coverage_.assign(static_cast<std::size_t>(box.width() * box.height()), 0.0f);
    for (const Dab& dab : dabs) {
        if (dab.opacity <= 0) {
            continue;
        }
        mask_->reshape(dab.size, dab.angle);
        const IPoint<2> p{static_cast<std::int32_t>(std::lround(dab.x)),
                          static_cast<std::int32_t>(std::lround(dab.y))};
        mask_->footprint(extents_, p, document);
        for (IExtent<2> e : extents_) {
            e &= box;
            if (e.degenerate()) {
                continue;
            }
            const auto w = static_cast<std::int32_t>(e.width());
            row_.resize(static_cast<std::size_t>(w));
            for (std::int32_t yy = e.lo().y; yy <= e.hi().y; ++yy) {
                std::fill(row_.begin(), row_.end(), dab.opacity);
                mask_->multiplyRow(e.lo().x, yy, row_.data(), 0, w);
                float* g = coverage_.data() + static_cast<std::size_t>(yy - box.lo().y) * bw +
                           (e.lo().x - box.lo().x);
                for (std::int32_t i = 0; i < w; ++i) {
                    g[i] = g[i] + row_[i] - g[i] * row_[i];
                }
            }
        }
    }

    // Into the canvas: over what lies there, or under it where a nearer stroke was laid.
    const float colour[3] = {static_cast<float>(stroke.colour.r),
                             static_cast<float>(stroke.colour.g),
                             static_cast<float>(stroke.colour.b)};
    const bool sorted = settings_.depthSort;
    for (std::int32_t yy = box.lo().y; yy <= box.hi().y; ++yy) {
        const float* g = coverage_.data() + static_cast<std::size_t>(yy - box.lo().y) * bw;
        for (std::int32_t xx = box.lo().x; xx <= box.hi().x; ++xx) {
            const float c = g[xx - box.lo().x] * stroke.opacity;
            if (c <= 0) {
                continue;
            }
            Canvas::Tile* tile = canvas_->tile(xx, yy, true);
            const std::size_t i = Canvas::index(xx, yy);
            float& a = tile->alpha[i];
            float* col = tile->colour[i];
            if (!sorted || stroke.depth <= tile->key[i]) {
                const float na = c + a * (1 - c);
                for (int ch = 0; ch < 3; ++ch) {
                    col[ch] = (colour[ch] * c + col[ch] * a * (1 - c)) / na;
                }
                a = na;
                tile->key[i] = stroke.depth;
            } else {
                const float na = a + c * (1 - a);
                for (int ch = 0; ch < 3; ++ch) {
                    col[ch] = (col[ch] * a + colour[ch] * c * (1 - a)) / na;
                }
                a = na;
            }
            tile->dirty[i] = 1;
            canvas_->dirty += IPoint<2>(xx, yy);
        }
    }
}

void Painter::flush(ZmapDocument& document) {
    const IExtent<2> e = canvas_ ? canvas_->dirty : IExtent<2>();
    if (e.degenerate()) {
        return;
    }
    canvas_->dirty = IExtent<2>();
    const auto w = static_cast<std::int32_t>(e.width());
    row_.resize(static_cast<std::size_t>(w));
    for (std::int32_t y = e.lo().y; y <= e.hi().y && !abandoned; ++y) {
        // What the row adds, such that the stroke alpha, growing by "over", reaches the
        // canvas's coverage; a pixel already full whose colour changed is painted again.
        for (std::int32_t x = e.lo().x; x <= e.hi().x; ++x) {
            float& m = row_[static_cast<std::size_t>(x - e.lo().x)];
            m = 0;
            Canvas::Tile* tile = canvas_->tile(x, y, false);
            if (!tile) {
                continue;
            }
            const std::size_t i = Canvas::index(x, y);
            if (!tile->dirty[i]) {
                continue;
            }
            tile->dirty[i] = 0;
            const float before = tile->flushed[i];
            const float now = tile->alpha[i];
            m = before >= 1.0f ? 1.0f : std::clamp((now - before) / (1.0f - before), 1e-6f, 1.0f);
            tile->flushed[i] = now;
        }
        changed_ |= paintRow(document, e.lo().x, y, 0, w, row_.data());
    }
}
