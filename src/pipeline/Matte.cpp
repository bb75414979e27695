#include "pipeline/Matte.h"

#include "image/UndoBuffer.h"
#include "image/ZmapDocument.h"
#include "views/cameras/ViewParams.h"
#include "views/cameras/ViewProj.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>

namespace {

/// Rows standing in for unwritten tiles and the neighbour rows of the angle test. Static:
/// the pipeline runs on the interface thread, one stroke at a time.
std::uint32_t aboveRow[maxSpanLength + 2];
std::uint32_t belowRow[maxSpanLength + 2];
std::uint32_t emptyDepth[maxSpanLength];
MaterialId emptyMaterial[maxSpanLength];
ColourPOD emptyColour[maxSpanLength];
float passRow[maxSpanLength];

bool hasNoDepth(std::uint32_t code) {
    return code >= depth::farCode;
}

/// The channels the locks read: the originals, or the image before the stroke (the undo
/// store's current level; the live channels where there is none).
struct Channels {
    TileBitmap* rgb = nullptr;
    TileBitmap* z = nullptr;
    TileBitmap* mat = nullptr;
    TQL::Handle<TileBitmap> hold[3];
};

Channels channelsOf(ZmapDocument& document, bool useOriginal) {
    Channels c;
    if (useOriginal) {
        c.hold[0] = document.originalRgb;
        c.hold[1] = document.originalZ;
        c.hold[2] = document.originalMat;
    } else {
        c.hold[0] = document.rgb;
        c.hold[1] = document.z;
        c.hold[2] = document.mat;
        if (const TQL::Handle<UndoBuffer>& undo = document.editor.undoBuffer) {
            if (TQL::Handle<UndoBitmap> level = undo->currentRgb()) {
                c.hold[0] = level;
                c.hold[1] = undo->currentZ();
                c.hold[2] = undo->currentMat();
            }
        }
    }
    c.rgb = c.hold[0].get();
    c.z = c.hold[1].get();
    c.mat = c.hold[2].get();
    return c;
}

/// A run of a channel from (x, y) to its tile's end, or the channel's empty value.
template <class T>
const T* readRun(TileBitmap* bitmap, std::int32_t x, std::int32_t y, TileHandle& pin, T* empty,
                 std::int32_t length) {
    if (bitmap) {
        const std::uint8_t* pixel = nullptr;
        if (bitmap->runForRead(x, y, pin, &pixel) > 0) {
            return reinterpret_cast<const T*>(pixel);
        }
        T value;
        std::memcpy(&value, bitmap->emptyValue(), sizeof value);
        std::fill(empty, empty + length, value);
    } else {
        std::fill(empty, empty + length, T{});
    }
    return empty;
}

/// Depth codes of row y, columns x0..x1 (inclusive) into out; outside the image, no depth.
void readDepthRow(TileBitmap* z, const TileGeometry& g, std::int32_t x0, std::int32_t x1,
                  std::int32_t y, std::uint32_t* out) {
    std::int32_t x = x0;
    while (x <= x1) {
        if (y < 0 || y >= g.height || x < 0 || x >= g.width || !z) {
            *out++ = depth::noDepth;
            ++x;
            continue;
        }
        const std::int32_t end = std::min({(x | g.xMask) + 1, g.width, x1 + 1});
        TileHandle pin;
        const std::uint8_t* pixel = nullptr;
        if (z->runForRead(x, y, pin, &pixel) > 0) {
            std::memcpy(out, pixel, static_cast<std::size_t>(end - x) * sizeof(std::uint32_t));
        } else {
            std::uint32_t value;
            std::memcpy(&value, z->emptyValue(), sizeof value);
            std::fill(out, out + (end - x), value);
        }
        out += end - x;
        x = end;
    }
}

double hueDistance(Angle a, Angle b) {
    double d = std::fmod(std::fabs(a.radians() - b.radians()), 2 * std::numbers::pi);
    return d > std::numbers::pi ? 2 * std::numbers::pi - d : d;
}

} // namespace

/// The planes of one run of a row as the locks read them.
struct Matte::RowPlanes {
    ZmapDocument* document = nullptr;
    std::int32_t x = 0; ///< column of index 0
    std::int32_t y = 0;
    const ColourPOD* colour = nullptr;
    const std::uint32_t* depth = nullptr;
    const MaterialId* material = nullptr;
    TileHandle pins[3];
};

Matte::Matte(const MatteSettings& settings, bool planeLock, bool angleLock, bool materialLock,
             bool colourLock)
    : settings_(settings), planeLock_(planeLock), angleLock_(angleLock),
      materialLock_(materialLock), colourLock_(colourLock) {
    planeTolerance_ = planeLock_ ? settings_.planeTolerancePercent / 100.0 : 0.0;
    angleSine_ = std::sin(settings_.angleDegrees * std::numbers::pi / 180.0);
    if (settings_.angleDegrees >= 90.0) {
        angleSine_ = 1.0;
    }
    hueTolerance_ = (settings_.hueToleranceDegrees + 0.1) * std::numbers::pi / 180.0;
    lightnessTolerance_ = settings_.lightnessTolerancePercent / 100.0;
    saturationTolerance_ = settings_.saturationTolerancePercent / 100.0;
}

std::uint32_t Matte::depthAt(ZmapDocument& document, std::int32_t x, std::int32_t y) const {
    if (x < 0 || y < 0 || x >= document.width() || y >= document.height()) {
        return depth::noDepth;
    }
    return settings_.useOriginal ? document.originalZAt(x, y) : document.undoZAt(x, y);
}

void Matte::start(int x, int y, ZmapDocument& document) {
    document_ = &document;
    // The level under the stroke doesn't change while it runs: its channels are taken once.
    const Channels channels = channelsOf(document, settings_.useOriginal);
    for (int i = 0; i < 3; ++i) {
        read_[i] = channels.hold[i];
    }
    const bool any = planeLock_ || angleLock_ || materialLock_ || colourLock_;
    state_ = any ? testEach : passAll;
    materialIds_.clear();
    listed_.assign(65536, 0);
    const bool inside = x >= 0 && y >= 0 && x < document.width() && y < document.height();

    if (materialLock_) {
        if (settings_.materialListMode) {
            for (const std::wstring& name : settings_.materialNames) {
                if (const MaterialId id = document.materialIdOf(name)) {
                    materialIds_.insert(id);
                }
            }
            if (settings_.includeBackground) {
                materialIds_.insert(0);
            }
            bool holdsAll = materialIds_.count(0) != 0;
            for (const auto& [id, record] : document.materials()) {
                if (document.materialExists(id) && !materialIds_.count(id)) {
                    holdsAll = false;
                }
            }
            if ((!settings_.invert && materialIds_.empty()) || (settings_.invert && holdsAll)) {
                state_ = passNone;
            }
            for (MaterialId id : materialIds_) {
                listed_[id] = 1;
            }
        } else {
            material_ = !inside                 ? MaterialId(0)
                        : settings_.useOriginal ? document.originalMatAt(x, y)
                                                : document.undoMatAt(x, y);
        }
    }

    if (planeLock_ || angleLock_) {
        bool noDepth = true;
        Plane plane;
        if (inside) {
            plane = document.planeAt(x, y, &noDepth, settings_.useOriginal);
        }
        startIsBackground_ = noDepth || !document.viewProj();
        startNormal_ = plane.normal().unit();
        frame_ = document.viewProj() ? SurfaceFrame(plane, *document.viewProj(), planeTolerance_)
                                     : SurfaceFrame();
    }

    if (colourLock_) {
        const ColourPOD c = !inside                 ? ColourPOD{}
                            : settings_.useOriginal ? document.originalRgbAt(x, y)
                                                    : document.undoRgbAt(x, y);
        if (settings_.colourMode == 0) {
            const int t = std::clamp(settings_.colourTolerance, 0, 255);
            auto range = [&](std::uint8_t v, bool on, std::uint8_t& lo, std::uint8_t& hi) {
                lo = on ? static_cast<std::uint8_t>(std::max(0, v - t)) : 0;
                hi = on ? static_cast<std::uint8_t>(std::min(255, v + t)) : 255;
            };
            range(c.r, settings_.channelOn[0], rangeLow_.r, rangeHigh_.r);
            range(c.g, settings_.channelOn[1], rangeLow_.g, rangeHigh_.g);
            range(c.b, settings_.channelOn[2], rangeLow_.b, rangeHigh_.b);
        } else {
            const Colour colour = Colour::fromPOD(c);
            startHue_ = colour.h_hls();
            startLightness_ = colour.l_hls();
            startSaturation_ = colour.s_hls();
        }
    }
}

bool Matte::lockPlane(Plane& plane) {
    if (planeLock_ && !settings_.invert) {
        plane = frame_.plane();
        return true;
    }
    return planeLock_;
}

std::uint8_t Matte::colourOk(ColourPOD c) const {
    if (settings_.colourMode == 0) {
        return c.r >= rangeLow_.r && c.r <= rangeHigh_.r && c.g >= rangeLow_.g &&
               c.g <= rangeHigh_.g && c.b >= rangeLow_.b && c.b <= rangeHigh_.b;
    }
    const Colour colour = Colour::fromPOD(c);
    if (settings_.hueOn && !(hueDistance(colour.h_hls(), startHue_) < hueTolerance_)) {
        return 0;
    }
    if (settings_.lightnessOn &&
        !(std::fabs(colour.l_hls() - startLightness_) < lightnessTolerance_)) {
        return 0;
    }
    if (settings_.saturationOn &&
        !(std::fabs(colour.s_hls() - startSaturation_) < saturationTolerance_)) {
        return 0;
    }
    return 1;
}

bool Matte::angleOk(ZmapDocument& document, std::int32_t x, std::int32_t y, std::uint32_t code,
                    const std::uint32_t* above, const std::uint32_t* below,
                    const std::uint32_t* row, int i, int first, int last) {
    const ViewProj* view = document.viewProj().get();
    if (!view || hasNoDepth(code)) {
        return false;
    }
    const std::int32_t n = view->faceSize().size();
    const std::int32_t face = n > 0 ? x / n : 0;
    auto sameFace = [&](std::int32_t nx) { return n <= 0 || (nx >= 0 && nx / n == face); };
    auto horizontal = [&](int k) -> std::uint32_t {
        const std::int32_t nx = x + k;
        if (nx < 0 || nx >= document.width() || !sameFace(nx)) {
            return depth::noDepth;
        }
        return i + k >= first && i + k < last ? row[i + k] : depthAt(document, nx, y);
    };
    const Point<3> p = view->worldFromPixel(x, y, code);
    // The one-sided difference towards the nearer neighbour: it stays on the same surface
    // at an edge, where the other may jump to another.
    auto nearer = [&](std::int32_t ax, std::int32_t ay, std::uint32_t ac, std::int32_t bx,
                      std::int32_t by, std::uint32_t bc, Vector<3>& out) {
        const bool hasA = !hasNoDepth(ac);
        const bool hasB = !hasNoDepth(bc);
        if (!hasA && !hasB) {
            return false;
        }
        const Vector<3> da = hasA ? p - view->worldFromPixel(ax, ay, ac) : Vector<3>();
        const Vector<3> db = hasB ? view->worldFromPixel(bx, by, bc) - p : Vector<3>();
        out = !hasB || (hasA && da.lengthSquared() <= db.lengthSquared()) ? da : db;
        return true;
    };
    Vector<3> dx;
    Vector<3> dy;
    const int j = i - first + 1;
    const std::uint32_t up = y > 0 && sameFace(x) ? above[j] : depth::noDepth;
    const std::uint32_t down = y + 1 < document.height() ? below[j] : depth::noDepth;
    if (!nearer(x - 1, y, horizontal(-1), x + 1, y, horizontal(1), dx) ||
        !nearer(x, y - 1, up, x, y + 1, down, dy)) {
        return false;
    }
    const Vector<3> normal = cross(dx, dy);
    const double length = normal.length();
    if (length == 0) {
        return false;
    }
    const double sine = cross(normal, startNormal_).length() / length;
    return sine <= angleSine_ + 1e-12;
}

void Matte::testRow(const RowPlanes& planes, float* mask, int first, int last) {
    ZmapDocument& document = *planes.document;
    const bool invert = settings_.invert;
    const bool list = settings_.materialListMode;
    if (materialLock_ && !planeLock_ && !colourLock_ && !angleLock_) {
        // The material alone, the lock a flood mostly runs with: one compare a pixel.
        const MaterialId* id = planes.material;
        if (list) {
            for (int i = first; i < last; ++i) {
                mask[i] = (listed_[id[i]] != 0) != invert ? mask[i] : 0.0f;
            }
        } else {
            const MaterialId m = material_;
            for (int i = first; i < last; ++i) {
                mask[i] = (id[i] == m) != invert ? mask[i] : 0.0f;
            }
        }
        return;
    }
    if (angleLock_) {
        TileBitmap* z =
            document_ == &document ? read_[1].get() : channelsOf(document, settings_.useOriginal).z;
        readDepthRow(z, document.geometry(), planes.x + first - 1, planes.x + last, planes.y - 1,
                     aboveRow);
        readDepthRow(z, document.geometry(), planes.x + first - 1, planes.x + last, planes.y + 1,
                     belowRow);
    }
    for (int i = first; i < last; ++i) {
        if (mask[i] == 0) {
            continue;
        }
        const std::int32_t x = planes.x + i;
        bool pass = true;
        if (materialLock_) {
            const MaterialId id = planes.material[i];
            pass = (list ? listed_[id] != 0 : id == material_) != invert;
        }
        if (pass && planeLock_) {
            const std::uint32_t z = planes.depth[i];
            if (hasNoDepth(z)) {
                pass = invert != startIsBackground_;
            } else if (startIsBackground_) {
                pass = invert;
            } else {
                pass = invert != (frame_.classify(x, planes.y, z) == SurfaceFrame::onPlane);
            }
        }
        if (pass && colourLock_) {
            pass = (colourOk(planes.colour[i]) != 0) != invert;
        }
        if (pass && angleLock_) {
            pass = angleOk(document, x, planes.y, planes.depth[i], aboveRow, belowRow, planes.depth,
                           i, first, last) != invert;
        }
        if (!pass) {
            mask[i] = 0;
        }
    }
}

std::int32_t Matte::rowPlanes(ZmapDocument& document, std::int32_t x, std::int32_t y,
                              std::int32_t limit, RowPlanes& planes) {
    const TileGeometry& g = document.geometry();
    if (x < 0 || y < 0 || x >= g.width || y >= g.height) {
        return 0;
    }
    const std::int32_t length = std::min({(x | g.xMask) + 1, g.width, x + limit}) - x;
    Channels c;
    if (document_ == &document) {
        c.rgb = read_[0].get();
        c.z = read_[1].get();
        c.mat = read_[2].get();
    } else {
        c = channelsOf(document, settings_.useOriginal);
    }
    planes.document = &document;
    planes.x = x;
    planes.y = y;
    // Only the planes that a lock that is on reads.
    if (colourLock_) {
        planes.colour = readRun(c.rgb, x, y, planes.pins[0], emptyColour, length);
    }
    if (planeLock_ || angleLock_) {
        planes.depth = readRun(c.z, x, y, planes.pins[1], emptyDepth, length);
    }
    if (materialLock_) {
        planes.material = readRun(c.mat, x, y, planes.pins[2], emptyMaterial, length);
    }
    return length;
}

void Matte::run(Span& span, int first, int last) {
    if (state_ == passAll || first >= last) {
        return;
    }
    if (state_ == passNone) {
        std::fill(span.alpha + first, span.alpha + last, 0.0f);
        return;
    }
    RowPlanes planes;
    planes.document = span.document;
    planes.x = span.x;
    planes.y = span.y;
    if (settings_.useOriginal) {
        // The span carries the original colour only; depth and material come from their
        // original channels over the same tile run.
        if (rowPlanes(*span.document, span.x, span.y, last, planes) < last) {
            std::fill(span.alpha + first, span.alpha + last, 0.0f);
            return;
        }
        planes.colour = span.sourceColour;
    } else {
        planes.colour = span.baseColour;
        planes.depth = span.baseDepth;
        planes.material = span.baseMaterial;
    }
    testRow(planes, span.alpha, first, last);
}

bool Matte::passes(std::int32_t x, std::int32_t y, ZmapDocument& document) {
    if (x < 0 || y < 0 || x >= document.width() || y >= document.height()) {
        return false;
    }
    if (state_ != testEach) {
        return state_ == passAll;
    }
    RowPlanes planes;
    if (rowPlanes(document, x, y, 1, planes) < 1) {
        return false;
    }
    float m = 1.0f;
    testRow(planes, &m, 0, 1);
    return m != 0;
}

void Matte::extendRun(std::int32_t& x, std::int32_t y, std::int32_t step, ZmapDocument& document) {
    const TileGeometry& g = document.geometry();
    if (state_ == passAll) {
        x = step > 0 ? g.width - 1 : 0;
        return;
    }
    if (state_ != testEach) {
        return;
    }
    for (;;) {
        const std::int32_t next = x + step;
        if (next < 0 || next >= g.width) {
            return;
        }
        // Test the rest of the tile run that holds `next`, in the direction of the step.
        const std::int32_t runStart = step > 0 ? next : (next & ~g.xMask);
        RowPlanes planes;
        const std::int32_t length = rowPlanes(document, runStart, y, maxSpanLength, planes);
        const int from = 0;
        const int to = step > 0 ? length : next - runStart + 1;
        std::fill(passRow + from, passRow + to, 1.0f);
        testRow(planes, passRow, from, to);
        if (step > 0) {
            int k = 0;
            while (k < to && passRow[k] != 0) {
                ++k;
            }
            x = runStart + k - 1;
            if (k < to) {
                return;
            }
        } else {
            int k = to - 1;
            while (k >= 0 && passRow[k] != 0) {
                --k;
            }
            x = runStart + k + 1;
            if (k >= 0) {
                return;
            }
        }
    }
}

bool Matte::findRun(std::int32_t& left, std::int32_t& right, std::int32_t y,
                    ZmapDocument& document) {
    const TileGeometry& g = document.geometry();
    if (y < 0 || y >= g.height || state_ == passNone) {
        return false;
    }
    std::int32_t x = std::max(left, 0);
    const std::int32_t end = std::min(right, g.width);
    if (x >= end) {
        return false;
    }
    if (state_ == passAll) {
        left = 0;
        right = g.width - 1;
        return true;
    }
    while (x < end) {
        RowPlanes planes;
        const std::int32_t length = rowPlanes(document, x, y, end - x, planes);
        std::fill(passRow, passRow + length, 1.0f);
        testRow(planes, passRow, 0, length);
        int k = 0;
        while (k < length && passRow[k] == 0) {
            ++k;
        }
        if (k < length) {
            std::int32_t a = x + k;
            // The chunk is tested already: go right within it before testing further.
            int e = k;
            while (e + 1 < length && passRow[e + 1] != 0) {
                ++e;
            }
            std::int32_t b = x + e;
            extendRun(a, y, -1, document);
            if (e + 1 == length) {
                extendRun(b, y, +1, document);
            }
            left = a;
            right = b;
            return true;
        }
        x += length;
    }
    return false;
}
