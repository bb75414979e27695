#pragma once

#include "core/Angle.h"
#include "core/Colour.h"
#include "core/Extent.h"
#include "image/Buffer.h"
#include "image/TileRowWriter.h"

#include <cstdint>
#include <memory>
#include <vector>

class ZmapDocument;

/// Takes the coverage of a model drawn in depth-only mode: the mask of the applicator on
/// whose behalf the model is drawn.
class CoverageSink {
public:
    virtual ~CoverageSink() = default;
    /// Document row y, `count` pixels from column x (the run from the row's first covered
    /// pixel to its last): coverage 1 or 0, and the depth codes (meaningless where the
    /// coverage is 0).
    virtual void coverageRow(std::int32_t y, std::int32_t x, std::int32_t count,
                             const Alpha* coverage, const std::uint32_t* depths) = 0;
};

/// Takes the rows of the edge pass: where the outline of the drawn model lies, widened.
class EdgeSink {
public:
    virtual ~EdgeSink() = default;
    /// Document row y, `count` pixels from column x: 1 on the widened outline, 0 elsewhere.
    virtual void edgeRow(std::int32_t y, std::int32_t x, std::int32_t count, const Alpha* edge) = 0;
};

struct QuorvaleBufferSettings {
    /// Depth-only mode hands coverage to a CoverageSink and writes no channel; colour mode
    /// writes the document's cut-out overlay.
    bool depthOnly = false;
    /// Colour mode: multiply the colour of pixels in shadow by shadowFactors (red, green,
    /// blue).
    bool shadows = false;
    double shadowFactors[3] = {0.5, 0.5, 0.5};
    /// The edge pass: an outline pixel marks a disc of this radius (0: no edge pass).
    std::int32_t edgeRadius = 0;
    /// Marks a line at `edgeAngle` (anticlockwise from +x, y up) instead of a disc.
    bool edgeDirection = false;
    Angle edgeAngle;
    /// The document's material id for each model material number k + 1 at index k; the
    /// numbers beyond the table get material 0.
    std::vector<MaterialId> materialIds;
};

/// Draws a model into a rectangle of a document for an applicator (three-dimensional
/// cut-outs): row r of the rendering, `extent.width()` pixels, lands on document row
/// extent.lo.y + r from column extent.lo.x on. The camera that renders carries the
/// placing transform, so the buffer only offsets.
///
/// Colour mode: each covered pixel takes coverage a = (alpha byte) / 255 into cutoutAlpha,
/// its depth code + 1 into cutoutZ, its colour into cutoutRgb (times the shadow factors if
/// shadows are wanted and a light is blocked there) and its material into cutoutMat.
/// Depth-only mode: a coverage row of 1 where the pixel is covered with alpha above 127
/// (a coverage above 0.5 counts as full), else 0, goes to the CoverageSink.
///
/// Edge pass, in both modes when edgeRadius > 0: a covered pixel with a 4-neighbour that
/// isn't (outside the rectangle counts as not covered) is on the outline. It marks the
/// pixels of a disc of diameter d = 2r - 1 about it, row i off the centre taking
/// halfWidth[i] = int(sqrt(d d / 4 - i i)) pixels either side; or, with a direction, the
/// 2(r - 1) + 1 pixels of a line through it at the angle. A row is handed to the EdgeSink
/// once the rows r below it are in; finish() flushes the last.
class QuorvaleBuffer : public Buffer {
public:
    /// `mask` is needed in depth-only mode, `edges` for an edge pass; neither is owned.
    QuorvaleBuffer(ZmapDocument& document, const IExtent<2>& extent,
                   const QuorvaleBufferSettings& settings, CoverageSink* mask = nullptr,
                   EdgeSink* edges = nullptr);
    ~QuorvaleBuffer() override;

    void putRow(std::int32_t row, const double* depths, const std::uint32_t* covered,
                const std::uint8_t* colours, const MaterialId* materials) override;
    bool hasDepth() const override { return true; }
    void finish() override;

    /// Half widths of the disc of diameter 2r - 1, for the rows 0 to r - 1 off its centre.
    static std::vector<std::int32_t> discHalfWidths(std::int32_t radius);
    /// The 2(r - 1) + 1 pixel offsets (x right, y down) of a line of radius r at `angle`.
    static std::vector<IVector<2>> lineOffsets(std::int32_t radius, Angle angle);

private:
    class EdgePass;

    void writeColour(std::int32_t y, const double* depths, const std::uint32_t* covered,
                     const std::uint8_t* colours, const MaterialId* materials);
    void writeCoverage(std::int32_t y, const double* depths, const std::uint32_t* covered,
                       const std::uint8_t* colours);

    ZmapDocument& document_;
    IExtent<2> extent_;
    QuorvaleBufferSettings settings_;
    CoverageSink* mask_;
    std::int32_t width_;
    std::unique_ptr<TileRowWriter> rgb_, z_, mat_, alpha_;
    std::vector<Alpha> coverage_;
    std::vector<std::uint32_t> codes_;
    std::unique_ptr<EdgePass> edgePass_;
};
