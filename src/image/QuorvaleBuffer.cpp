#include "image/QuorvaleBuffer.h"

#include "image/ZmapDocument.h"

#include <algorithm>
#include <cmath>

namespace {
/// A colour byte times a factor, rounded and kept within 0 to 255.
std::uint8_t scaled(std::uint8_t value, double factor) {
    return static_cast<std::uint8_t>(std::clamp(std::lround(value * factor), 0L, 255L));
}
} // namespace

/// The outline of the drawn coverage, widened by a disc or a line, a row at a time.
class QuorvaleBuffer::EdgePass {
public:
    EdgePass(const IExtent<2>& extent, const QuorvaleBufferSettings& s, EdgeSink* sink)
        : extent_(extent), width_(static_cast<std::int32_t>(extent.width())),
          height_(static_cast<std::int32_t>(extent.height())), radius_(s.edgeRadius), sink_(sink) {
        if (s.edgeDirection) {
            offsets_ = lineOffsets(radius_, s.edgeAngle);
        } else {
            const std::vector<std::int32_t> half = discHalfWidths(radius_);
            for (std::int32_t i = -(radius_ - 1); i <= radius_ - 1; ++i) {
                const std::int32_t h = half[static_cast<std::size_t>(std::abs(i))];
                for (std::int32_t dx = -h; dx <= h; ++dx) {
                    offsets_.push_back({dx, i});
                }
            }
        }
        for (const IVector<2>& o : offsets_) {
            reach_ = std::max(reach_, std::abs(o.y));
        }
        const auto w = static_cast<std::size_t>(width_);
        inside_.assign(3 * w, 0);
        marks_.assign(static_cast<std::size_t>(2 * reach_ + 1) * w, 0.0f);
    }

    /// Row r of coverage (1 inside, 0 outside) has come.
    void add(std::int32_t r, const std::vector<Alpha>& coverage) {
        std::uint8_t* row = insideRow(r);
        for (std::int32_t x = 0; x < width_; ++x) {
            row[x] = coverage[static_cast<std::size_t>(x)] > 0.5f ? 1 : 0;
        }
        if (r > 0) {
            test(r - 1, r);
        }
        last_ = r;
    }

    void finish() {
        if (last_ < 0) {
            return;
        }
        test(last_, -1);
        for (std::int32_t r = std::max(0, last_ - reach_ + 1); r <= last_; ++r) {
            emit(r);
        }
        last_ = -1;
    }

private:
    std::uint8_t* insideRow(std::int32_t r) {
        return inside_.data() + static_cast<std::size_t>(r % 3) * static_cast<std::size_t>(width_);
    }
    float* markRow(std::int32_t r) {
        const std::int32_t n = 2 * reach_ + 1;
        return marks_.data() + static_cast<std::size_t>(r % n) * static_cast<std::size_t>(width_);
    }

    /// Finds the outline pixels of row r (the row below is `below`, -1 if none) and marks
    /// about them; then row r - reach is complete.
    void test(std::int32_t r, std::int32_t below) {
        const std::uint8_t* row = insideRow(r);
        const std::uint8_t* up = r > 0 ? insideRow(r - 1) : nullptr;
        const std::uint8_t* down = below >= 0 ? insideRow(below) : nullptr;
        for (std::int32_t x = 0; x < width_; ++x) {
            if (!row[x]) {
                continue;
            }
            const bool edge = x == 0 || !row[x - 1] || x + 1 == width_ || !row[x + 1] || !up ||
                              !up[x] || !down || !down[x];
            if (edge) {
                mark(x, r);
            }
        }
        if (r - reach_ >= 0) {
            emit(r - reach_);
        }
    }

    void mark(std::int32_t x, std::int32_t r) {
        for (const IVector<2>& o : offsets_) {
            const std::int32_t y = r + o.y;
            const std::int32_t px = x + o.x;
            // Marks reach reach_ rows either way: the rows above r - reach_ are out already.
            if (y < 0 || px < 0 || px >= width_ || y >= height_) {
                continue;
            }
            markRow(y)[px] = 1.0f;
        }
    }

    void emit(std::int32_t r) {
        float* row = markRow(r);
        if (sink_) {
            sink_->edgeRow(extent_.lo().y + r, extent_.lo().x, width_, row);
        }
        std::fill(row, row + width_, 0.0f);
    }

    IExtent<2> extent_;
    std::int32_t width_;
    std::int32_t height_;
    std::int32_t radius_;
    EdgeSink* sink_;
    std::vector<IVector<2>> offsets_;
    std::int32_t reach_ = 0;
    /// The last three rows of coverage.
    std::vector<std::uint8_t> inside_;
    /// The rows still being marked.
    std::vector<float> marks_;
    std::int32_t last_ = -1;
};

std::vector<std::int32_t> QuorvaleBuffer::discHalfWidths(std::int32_t radius) {
    std::vector<std::int32_t> half;
    const double d = 2.0 * radius - 1;
    for (std::int32_t i = 0; i < radius; ++i) {
        half.push_back(static_cast<std::int32_t>(std::sqrt(d * d / 4 - double(i) * i)));
    }
    return half;
}

std::vector<IVector<2>> QuorvaleBuffer::lineOffsets(std::int32_t radius, Angle angle) {
    std::vector<IVector<2>> offsets;
    const std::int32_t n = std::max(0, radius - 1);
    for (std::int32_t k = -n; k <= n; ++k) {
        offsets.push_back({static_cast<std::int32_t>(std::lround(k * angle.cos())),
                           static_cast<std::int32_t>(std::lround(-k * angle.sin()))});
    }
    return offsets;
}

QuorvaleBuffer::QuorvaleBuffer(ZmapDocument& document, const IExtent<2>& extent,
                               const QuorvaleBufferSettings& settings, CoverageSink* mask,
                               EdgeSink* edges)
    : document_(document), extent_(extent), settings_(settings), mask_(mask),
      width_(static_cast<std::int32_t>(extent.width())) {
    if (!settings_.depthOnly) {
        if (document.cutoutRgb && document.cutoutZ && document.cutoutMat && document.cutoutAlpha) {
            rgb_ = std::make_unique<TileRowWriter>(*document.cutoutRgb);
            z_ = std::make_unique<TileRowWriter>(*document.cutoutZ);
            mat_ = std::make_unique<TileRowWriter>(*document.cutoutMat);
            alpha_ = std::make_unique<TileRowWriter>(*document.cutoutAlpha);
        }
    }
    if (settings_.edgeRadius > 0 && width_ > 0) {
        edgePass_ = std::make_unique<EdgePass>(extent, settings_, edges);
    }
    coverage_.resize(static_cast<std::size_t>(std::max(width_, 0)));
    codes_.resize(coverage_.size());
}

QuorvaleBuffer::~QuorvaleBuffer() = default;

void QuorvaleBuffer::putRow(std::int32_t row, const double* depths, const std::uint32_t* covered,
                            const std::uint8_t* colours, const MaterialId* materials) {
    if (row < 0 || row >= extent_.height() || width_ <= 0) {
        return;
    }
    const std::int32_t y = extent_.lo().y + row;
    for (std::int32_t i = 0; i < width_; ++i) {
        const bool full = covered[i] && (settings_.depthOnly ? colours[4 * i + 3] > 127 : true);
        coverage_[static_cast<std::size_t>(i)] = full ? 1.0f : 0.0f;
    }
    if (settings_.depthOnly) {
        writeCoverage(y, depths, covered, colours);
    } else {
        writeColour(y, depths, covered, colours, materials);
    }
    if (edgePass_) {
        edgePass_->add(row, coverage_);
    }
}

void QuorvaleBuffer::finish() {
    if (edgePass_) {
        edgePass_->finish();
    }
}

void QuorvaleBuffer::writeCoverage(std::int32_t y, const double* depths, const std::uint32_t*,
                                   const std::uint8_t*) {
    std::int32_t first = 0;
    while (first < width_ && coverage_[static_cast<std::size_t>(first)] == 0) {
        ++first;
    }
    std::int32_t last = width_ - 1;
    while (last >= first && coverage_[static_cast<std::size_t>(last)] == 0) {
        --last;
    }
    if (first > last || !mask_) {
        return;
    }
    for (std::int32_t i = first; i <= last; ++i) {
        codes_[static_cast<std::size_t>(i)] = static_cast<std::uint32_t>(depths[i]);
    }
    mask_->coverageRow(y, extent_.lo().x + first, last - first + 1, coverage_.data() + first,
                       codes_.data() + first);
}

void QuorvaleBuffer::writeColour(std::int32_t y, const double* depths, const std::uint32_t* covered,
                                 const std::uint8_t* colours, const MaterialId* materials) {
    if (!rgb_) {
        return;
    }
    const std::int32_t left = extent_.lo().x;
    for (std::int32_t i = 0; i < width_;) {
        if (!covered[i]) {
            ++i;
            continue;
        }
        // A run of covered pixels, cut at tile borders by the writers.
        std::int32_t end = i;
        while (end < width_ && covered[end]) {
            ++end;
        }
        while (i < end) {
            std::int32_t n = 0, n2 = 0, n3 = 0, n4 = 0;
            auto* rgb = reinterpret_cast<ColourPOD*>(rgb_->run(left + i, y, n));
            auto* z = reinterpret_cast<std::uint32_t*>(z_->run(left + i, y, n2));
            auto* mat = reinterpret_cast<MaterialId*>(mat_->run(left + i, y, n3));
            auto* alpha = reinterpret_cast<Alpha*>(alpha_->run(left + i, y, n4));
            if (!rgb || !z || !mat || !alpha) {
                ++i; // outside the image
                continue;
            }
            n = std::min(n, end - i);
            for (std::int32_t k = 0; k < n; ++k, ++i) {
                const std::uint8_t* c = colours + 4 * i;
                ColourPOD colour{c[0], c[1], c[2]};
                if (settings_.shadows && (covered[i] & shadowFlags)) {
                    colour.b = scaled(c[0], settings_.shadowFactors[2]);
                    colour.g = scaled(c[1], settings_.shadowFactors[1]);
                    colour.r = scaled(c[2], settings_.shadowFactors[0]);
                }
                rgb[k] = colour;
                const auto code = static_cast<std::uint32_t>(depths[i]);
                z[k] = code == depth::noDepth ? code : code + 1;
                const MaterialId m = materials ? materials[i] : 0;
                mat[k] = m >= 1 && m <= settings_.materialIds.size()
                             ? settings_.materialIds[static_cast<std::size_t>(m - 1)]
                             : 0;
                alpha[k] = c[3] / 255.0f;
            }
        }
    }
}
