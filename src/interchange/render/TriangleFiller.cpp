#include "interchange/render/TriangleFiller.h"

#include "interchange/render/BandShader.h"

#include <algorithm>
#include <cmath>

namespace {

/// The camera's code of z, kept below the no-depth code so that a drawn pixel always has
/// a depth (the clipping at the far plane leaves nothing beyond it but rounding).
template <DepthCoder::Kind K> inline std::uint32_t drawnCode(const DepthCoder& coder, double z) {
    return std::min(coder.codeAs<K>(z), depth::farCode);
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
    template <DepthCoder::Kind K, bool KeepFlags>
    void fill(const DepthCoder& coder, double zRow, double dzdx, std::int32_t x0,
              std::int32_t x1) const {
        for (std::int32_t x = x0; x < x1; ++x) {
            const std::uint32_t code = drawnCode<K>(coder, zRow + dzdx * x);
            if (code <= codes[x]) {
                codes[x] = code;
                colours[x] = colour;
                materials[x] = material;
                if constexpr (KeepFlags) {
                    flags[x] = flag;
                }
                works[x] = RenderBand::noWork;
            }
        }
    }
};

/// One edge of a triangle, from its upper end p to its lower end q.
struct Edge {
    double px, py, slope;
    Edge(const ScreenVertex& p, const ScreenVertex& q)
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

} // namespace

TriangleFiller::TriangleFiller(const DepthCoder& coder, BandShader& shader, bool immediateShading)
    : coder_(coder), shader_(shader), immediateShading_(immediateShading) {}

void TriangleFiller::fillPolygon(RenderBand& band, const TriangleShade& shade,
                                 const ScreenVertex* polygon, int count) {
    for (int k = 1; k + 1 < count; ++k) {
        switch (coder_.kind) {
        case DepthCoder::inverse:
            fill<DepthCoder::inverse>(band, shade, polygon[0], polygon[k], polygon[k + 1]);
            break;
        case DepthCoder::linear:
            fill<DepthCoder::linear>(band, shade, polygon[0], polygon[k], polygon[k + 1]);
            break;
        case DepthCoder::truncated:
            fill<DepthCoder::truncated>(band, shade, polygon[0], polygon[k], polygon[k + 1]);
            break;
        }
    }
}

template <DepthCoder::Kind K>
void TriangleFiller::fill(RenderBand& band, const TriangleShade& shade, const ScreenVertex& va,
                          const ScreenVertex& vb, const ScreenVertex& vc) {
    const ScreenVertex* v[3] = {&va, &vb, &vc};
    if (v[1]->y < v[0]->y) {
        std::swap(v[0], v[1]);
    }
    if (v[2]->y < v[1]->y) {
        std::swap(v[1], v[2]);
    }
    if (v[1]->y < v[0]->y) {
        std::swap(v[0], v[1]);
    }
    const ScreenVertex& a = *v[0];
    const ScreenVertex& b = *v[1];
    const ScreenVertex& c = *v[2];
    const double yTop = std::max<double>(band.top, std::ceil(a.y));
    const double yEnd = std::min<double>(band.bottom, std::ceil(c.y));
    if (!(yTop < yEnd)) {
        return;
    }
    const double area = (b.x - a.x) * (c.y - a.y) - (c.x - a.x) * (b.y - a.y);
    if (!(area != 0) || !std::isfinite(area)) {
        return;
    }
    const bool midOnRight = area > 0;
    const ScreenLinear z = ScreenLinear::through(a, b, c, a.z, b.z, c.z, area);
    // The work record of these pixels, made when the first of them is seen.
    std::uint32_t work = RenderBand::noWork;
    const Edge longEdge(a, c);
    const Edge upper(a, b);
    const Edge lower(b, c);
    const DepthCoder coder = coder_;
    for (auto y = static_cast<std::int32_t>(yTop); y < static_cast<std::int32_t>(yEnd); ++y) {
        const double yy = y;
        const double xLong = longEdge.at(yy);
        const double xShort = yy < b.y ? upper.at(yy) : lower.at(yy);
        const double left = midOnRight ? xLong : xShort;
        const double right = midOnRight ? xShort : xLong;
        const std::int32_t x0 = firstAtOrAfter(left, band.width);
        const std::int32_t x1 = firstAtOrAfter(right, band.width);
        if (x0 >= x1) {
            continue;
        }
        const std::size_t row = band.rowStart(y);
        std::uint32_t* codes = band.codes.data() + row;
        std::uint32_t* works = band.workOf.data() + row;
        const double zRow = z.b * yy + z.c;
        if (!shade.perPixel) {
            const ConstantSpan span{codes,
                                    band.colours.data() + row,
                                    band.materials.data() + row,
                                    band.keepFlags ? band.flags.data() + row : nullptr,
                                    works,
                                    shade.colour,
                                    shade.material,
                                    shade.flags};
            if (band.keepFlags) {
                span.fill<K, true>(coder, zRow, z.a, x0, x1);
            } else {
                span.fill<K, false>(coder, zRow, z.a, x0, x1);
            }
            continue;
        }
        for (std::int32_t x = x0; x < x1; ++x) {
            const std::uint32_t code = drawnCode<K>(coder, zRow + z.a * x);
            if (code <= codes[x]) {
                if (work == RenderBand::noWork) {
                    work = shader_.addWork(band, shade, a, b, c, area);
                }
                codes[x] = code;
                works[x] = work;
                if (immediateShading_) {
                    shader_.shadeRun(band, band.works[work], y, x, x + 1);
                }
            }
        }
    }
}
