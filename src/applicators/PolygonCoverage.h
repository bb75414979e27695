#pragma once

#include "core/Extent.h"
#include "core/Point.h"

#include <cstdint>
#include <vector>

class Applicator;
class ZmapDocument;

/// Coverage of a figure made of closed polygons (even-odd: a contour inside another cuts a
/// hole), row by row, in image pixels whose centres lie on whole coordinates. A pixel is
/// inside when its centre is, with the left and top edges counted in and the right and
/// bottom ones out, so two figures that share an edge never both take its pixels.
///
/// With anti-aliasing the figure is widened by sqrt(0.5) pixels: coverage is 1 inside and
/// falls off in a straight line with the distance from the nearest edge, to 0 at that
/// margin. The line tools (Pen, Shape) paint their bands and polygons with it.
class PolygonCoverage {
public:
    /// The margin of anti-aliased edges, in pixels.
    static const double margin;

    explicit PolygonCoverage(bool antiAlias = true) : antiAlias_(antiAlias) {}

    /// Adds a closed contour (the last point joins the first). Fewer than two points, or a
    /// point that is not finite, adds nothing.
    void addContour(const std::vector<Point<2>>& points);
    bool empty() const { return edges_.empty(); }
    bool antiAlias() const { return antiAlias_; }

    /// The pixels that may get coverage, not clipped to any image.
    IExtent<2> bounds() const;

    /// Coverage of row y over columns x0 .. x0 + count - 1 into `out` (every entry written).
    void row(std::int32_t y, std::int32_t x0, std::int32_t count, float* out) const;

    /// Paints the figure through `applicator`'s pipeline, row by row within the image, and
    /// returns the pixels that changed. Stops between rows when the applicator is abandoned,
    /// or abandons it when the user asks to stop.
    IExtent<2> paint(Applicator& applicator, ZmapDocument& document) const;

private:
    struct Edge {
        Point<2> a;
        Point<2> b;
    };

    bool antiAlias_;
    std::vector<Edge> edges_;
    Extent<2> box_;
    mutable std::vector<double> crossings_;
};
