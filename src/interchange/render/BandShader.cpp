#include "interchange/render/BandShader.h"

#include "core/Plane.h"
#include "effects/LightSet.h"
#include "image/Buffer.h"
#include "interchange/render/ModelShadows.h"
#include "interchange/render/WorkerTeam.h"
#include "views/cameras/Camera.h"

#include <algorithm>
#include <atomic>

namespace {

/// The width of the columns in which a band's pixels are shaded.
constexpr std::int32_t shadeColumns = 64;

/// A light's bit in a mask, where it has one (the first 32 lights).
bool masked(std::uint32_t mask, std::size_t light) {
    return light < 32 && (mask & (1u << light));
}

} // namespace

BandShader::BandShader(const Camera& camera, const Lighting& lights, const ModelShadows& shadows,
                       bool flat, std::int32_t width, unsigned threads)
    : camera_(camera), lights_(lights), shadows_(shadows), flat_(flat) {
    // No more threads than columns: a thread shades whole columns.
    const auto columns =
        static_cast<unsigned>(std::max<std::int32_t>(1, (width + shadeColumns - 1) / shadeColumns));
    threads = std::clamp(threads, 1u, columns);
    scratch_.reserve(threads);
    for (unsigned i = 0; i < threads; ++i) {
        scratch_.emplace_back(static_cast<std::size_t>(std::max(width, 0)));
    }
    if (threads > 1) {
        team_ = std::make_unique<WorkerTeam>(threads - 1);
        columnWork_ = [this](unsigned member) {
            RenderBand& band = *band_;
            Scratch& scratch = scratch_[member];
            for (;;) {
                const std::int32_t left =
                    nextColumn_.fetch_add(shadeColumns, std::memory_order_relaxed);
                if (left >= band.width) {
                    return;
                }
                shadeColumn(band, left, std::min(band.width, left + shadeColumns), scratch);
            }
        };
    }
}

BandShader::~BandShader() {
    abandonBand();
}

std::uint32_t BandShader::packColour(double r, double g, double b) {
    auto byte = [](double v) -> std::uint32_t {
        const double s = v * 255 + 0.5;
        return s >= 255 ? 255u : s > 0 ? static_cast<std::uint32_t>(s) : 0u;
    };
    return byte(b) | byte(g) << 8 | byte(r) << 16 | 0xFF000000u;
}

void BandShader::prepare(TriangleShade& s, const Plane& plane, ColourPOD colour,
                         MaterialId material, std::uint32_t owner,
                         ScreenVertex (&corners)[3]) const {
    s.material = material;
    s.base[0] = colour.r / 255.0;
    s.base[1] = colour.g / 255.0;
    s.base[2] = colour.b / 255.0;
    s.owner = owner;

    // Normals turned towards the eye: a model's faces are seen from either side.
    Vector<3> face = plane.normal();
    if (!camera_.facing(plane)) {
        face = -face;
    }
    s.normal = face;
    s.smooth = false;
    for (ScreenVertex& corner : corners) {
        Vector<3> n = flat_ ? face : corner.n;
        if (dot(n, face) < 0) {
            n = -n;
        }
        corner.n = n;
        s.smooth = s.smooth || !(n == face);
    }

    // A flat surface turned away from a light is in its own shadow all over.
    s.constantMask = s.smooth ? 0 : shadows_.turnedAway(face);
    s.perPixel = s.smooth || (!shadows_.empty() && s.constantMask != shadows_.allBits());
    if (!s.smooth) {
        const std::size_t lights = lights_.lightCount();
        s.lightParts.resize(lights);
        LightColour sum;
        for (std::size_t i = 0; i < lights; ++i) {
            s.lightParts[i] = lights_.light(i).illumination(face);
            if (!masked(s.constantMask, i)) {
                sum += s.lightParts[i];
            }
        }
        s.colour = packColour(s.base[0] * sum.red, s.base[1] * sum.green, s.base[2] * sum.blue);
    }
    s.flags = Buffer::coveredFlag | (s.constantMask << 1);
}

std::uint32_t BandShader::addWork(RenderBand& band, const TriangleShade& s, const ScreenVertex& a,
                                  const ScreenVertex& b, const ScreenVertex& c, double area) const {
    ShadeWork& r = band.works.emplace_back();
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
        r.lightPartsFirst = static_cast<std::uint32_t>(band.lightParts.size());
        band.lightParts.insert(band.lightParts.end(), s.lightParts.begin(), s.lightParts.end());
    }
    r.invW = ScreenLinear::through(a, b, c, a.invW, b.invW, c.invW, area);
    for (int k = 0; k < 3; ++k) {
        r.point[k] =
            ScreenLinear::through(a, b, c, a.p[k] * a.invW, b.p[k] * b.invW, c.p[k] * c.invW, area);
        if (s.smooth) {
            r.normalTimesInvW[k] = ScreenLinear::through(a, b, c, a.n[k] * a.invW, b.n[k] * b.invW,
                                                         c.n[k] * c.invW, area);
        }
    }
    return static_cast<std::uint32_t>(band.works.size() - 1);
}

void BandShader::startBand(RenderBand& band) {
    // Column by column of the band: the pixels of a short stretch of rows lie close
    // together in a light's view too, so their shadow tests keep finding their lists in
    // the caches, where whole rows would have gone through far more of the tree.
    if (band.works.empty()) {
        return;
    }
    if (!team_) {
        for (std::int32_t left = 0; left < band.width; left += shadeColumns) {
            shadeColumn(band, left, std::min(band.width, left + shadeColumns), scratch_[0]);
        }
        return;
    }
    // The threads take the next column as they finish one, so that neither waits while
    // the other has the band's densest shadows.
    band_ = &band;
    nextColumn_.store(0, std::memory_order_relaxed);
    team_->start(columnWork_);
}

void BandShader::finishBand() {
    if (!band_) {
        return;
    }
    struct Done {
        RenderBand*& band;
        ~Done() { band = nullptr; }
    } done{band_};
    team_->finish();
}

void BandShader::abandonBand() noexcept {
    if (!band_) {
        return;
    }
    nextColumn_.store(band_->width, std::memory_order_relaxed);
    try {
        finishBand();
    } catch (...) {
        // The drawing is being given up for another failure already.
    }
}

void BandShader::shadeColumn(RenderBand& band, std::int32_t left, std::int32_t right,
                             Scratch& scratch) const {
    for (std::int32_t y = band.top; y < band.bottom; ++y) {
        const std::uint32_t* works = band.workOf.data() + band.rowStart(y);
        for (std::int32_t x = left; x < right;) {
            const std::uint32_t work = works[x];
            if (work == RenderBand::noWork) {
                ++x;
                continue;
            }
            const std::int32_t start = x;
            while (x < right && works[x] == work) {
                ++x;
            }
            shadeRun(band, band.works[work], y, start, x, scratch);
        }
    }
}

void BandShader::shadeRun(RenderBand& band, const ShadeWork& s, std::int32_t y, std::int32_t x0,
                          std::int32_t x1, Scratch& scratch) const {
    const std::int32_t count = x1 - x0;
    const double yy = y;
    const std::size_t row = band.rowStart(y);
    const bool shadowed = !shadows_.empty();
    for (std::int32_t i = 0; i < count; ++i) {
        const double x = x0 + i;
        const double q = 1 / s.invW.at(x, yy);
        Vector<3> n = s.normal;
        if (s.smooth) {
            n = Vector<3>(s.normalTimesInvW[0].at(x, yy) * q, s.normalTimesInvW[1].at(x, yy) * q,
                          s.normalTimesInvW[2].at(x, yy) * q)
                    .unit();
        }
        std::uint32_t mask = s.constantMask;
        if (shadowed) {
            const Point<3> p(s.point[0].at(x, yy) * q, s.point[1].at(x, yy) * q,
                             s.point[2].at(x, yy) * q);
            mask = shadows_.blockedAt(p, n, s.owner, mask, scratch.hints);
        }
        scratch.normals[i] = n;
        scratch.masks[i] = mask;
    }
    if (s.smooth) {
        lights_.illuminateSpan(scratch.normals.data(), static_cast<std::size_t>(count),
                               scratch.masks.data(), scratch.light.data());
    }
    const std::size_t lights = lights_.lightCount();
    for (std::int32_t i = 0; i < count; ++i) {
        const std::uint32_t mask = scratch.masks[i];
        std::uint32_t colour = s.colour;
        if (s.smooth) {
            const LightColour& l = scratch.light[i];
            colour = packColour(s.base[0] * l.red, s.base[1] * l.green, s.base[2] * l.blue);
        } else if (mask != s.constantMask) {
            LightColour sum;
            for (std::size_t k = 0; k < lights; ++k) {
                if (!masked(mask, k)) {
                    sum += band.lightParts[s.lightPartsFirst + k];
                }
            }
            colour = packColour(s.base[0] * sum.red, s.base[1] * sum.green, s.base[2] * sum.blue);
        }
        const std::size_t at = row + static_cast<std::size_t>(x0 + i);
        band.colours[at] = colour;
        band.materials[at] = s.material;
        if (band.keepFlags) {
            band.flags[at] = Buffer::coveredFlag | (mask << 1);
        }
        band.workOf[at] = RenderBand::noWork;
    }
}
