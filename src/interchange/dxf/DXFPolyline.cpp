#include "interchange/dxf/DXFPolyline.h"

#include "core/Arc.h"
#include "core/StringUtils.h"

#include <cmath>

namespace {

/// Appends the points strictly inside the arc from a to b (bulge `bulge`, in the x-y
/// plane), with widths interpolated from w0 at a to w1 at b.
void divideArc(const Point<3>& a, const Point<3>& b, double bulge, double w0, double w1,
               std::vector<DXFLine::Vertex>& out) {
    const TQL::Arc<3> arc(a, bulge, Vector<3>(0, 0, 1), b);
    const double angle = std::fabs(arc.includedAngle());
    if (!(angle > 0) || !std::isfinite(arc.length())) {
        return;
    }
    const int steps =
        std::max(1, static_cast<int>(std::ceil(angle / DXFPolyline2D::maxArcStep - 1e-9)));
    const double length = arc.length();
    for (int k = 1; k < steps; ++k) {
        const double t = static_cast<double>(k) / steps;
        Point<3> at;
        Vector<3> direction;
        if (arc.measureOff(length * t, at, direction)) {
            const double w = w0 + (w1 - w0) * t;
            out.back().endWidth = w;
            out.push_back({at, w, w1});
        }
    }
}

} // namespace

std::unique_ptr<DXFPolylineGeometry> DXFPolylineGeometry::read(const DXFEntity& polyline,
                                                               DXFStream& stream) {
    const long flags = polyline.getInt(70, 0);
    const bool threeD = flags & (polyline3D | polygonMesh | polyfaceMesh);
    const double defaultStart = polyline.getDouble(40, 0);
    const double defaultEnd = polyline.getDouble(41, 0);
    std::vector<DXFPolyline2D::Vertex> flat;
    std::vector<DXFPolyline3D::Vertex> spatial;
    DXFVertexEntity vertex;
    for (;;) {
        if (!vertex.read(stream)) {
            stream.fail(L"Bad DXF group: item <SEQEND> needed", stream.line());
        }
        if (vertex.is("SEQEND")) {
            break;
        }
        if (!vertex.is("VERTEX")) {
            stream.fail(L"Bad DXF group: item <SEQEND> needed", vertex.line());
        }
        const long vflags = vertex.flags();
        if (threeD) {
            spatial.push_back({vertex.location(),
                               vflags,
                               {vertex.faceIndex(0), vertex.faceIndex(1), vertex.faceIndex(2),
                                vertex.faceIndex(3)},
                               vertex.line()});
        } else if (!(vflags & DXFVertexEntity::splineFrame)) {
            const Point<3> at = vertex.location();
            const double w0 = vertex.startWidth(), w1 = vertex.endWidth();
            flat.push_back({at[0], at[1], vertex.bulge(), w0 < 0 ? defaultStart : w0,
                            w1 < 0 ? defaultEnd : w1});
        }
    }
    if (threeD) {
        return std::make_unique<DXFPolyline3D>(polyline, std::move(spatial), vertex.line());
    }
    return std::make_unique<DXFPolyline2D>(std::move(flat), flags & closedM,
                                           polyline.getDouble(30, 0), polyline.thickness(),
                                           polyline.extrusion());
}

DXFPolyline2D::DXFPolyline2D(std::vector<Vertex> vertices, bool closed, double elevation,
                             double thickness, const Vector<3>& extrusion)
    : vertices_(std::move(vertices)), closed_(closed), elevation_(elevation), thickness_(thickness),
      extrusion_(extrusion) {}

std::unique_ptr<DXFPolyline2D> DXFPolyline2D::fromLightweight(const DXFEntity& entity) {
    std::vector<Vertex> vertices;
    const double constant = entity.getDouble(43, 0);
    for (const DXFItem& item : entity.ownItems()) {
        // A vertex starts at its x; the groups after it up to the next x are its own.
        double Vertex::*field = nullptr;
        switch (item.code) {
        case 10:
            vertices.push_back({item.asDouble(), 0, 0, constant, constant});
            break;
        case 20:
            field = &Vertex::y;
            break;
        case 40:
            field = &Vertex::startWidth;
            break;
        case 41:
            field = &Vertex::endWidth;
            break;
        case 42:
            field = &Vertex::bulge;
            break;
        default:
            break;
        }
        if (field && !vertices.empty()) {
            vertices.back().*field = item.asDouble();
        }
    }
    return std::make_unique<DXFPolyline2D>(std::move(vertices), entity.getInt(70, 0) & 1,
                                           entity.getDouble(38, 0), entity.thickness(),
                                           entity.extrusion());
}

std::unique_ptr<DXFPrimitive> DXFPolyline2D::primitive() const {
    if (vertices_.empty()) {
        return nullptr;
    }
    std::vector<DXFLine::Vertex> path;
    path.reserve(vertices_.size());
    const std::size_t n = vertices_.size();
    const std::size_t segments = closed_ ? n : n - 1;
    for (std::size_t i = 0; i < n; ++i) {
        const Vertex& v = vertices_[i];
        const Point<3> a(v.x, v.y, elevation_);
        path.push_back({a, v.startWidth, v.endWidth});
        if (i < segments && v.bulge != 0 && std::isfinite(v.bulge)) {
            const Vertex& w = vertices_[(i + 1) % n];
            divideArc(a, Point<3>(w.x, w.y, elevation_), v.bulge, v.startWidth, v.endWidth, path);
        }
    }
    return std::make_unique<DXFLine>(std::move(path), closed_, extrusion_, thickness_, true);
}

DXFPolyline3D::DXFPolyline3D(const DXFEntity& polyline, std::vector<Vertex> vertices, long endLine)
    : source_(polyline.items().front().source), flags_(polyline.getInt(70, 0)),
      m_(polyline.getInt(71, 0)), n_(polyline.getInt(72, 0)), smoothM_(polyline.getInt(73, 0)),
      smoothN_(polyline.getInt(74, 0)), surfaceType_(polyline.getInt(75, 0)), endLine_(endLine),
      vertices_(std::move(vertices)) {}

std::unique_ptr<DXFPrimitive> DXFPolyline3D::primitive() const {
    if (flags_ & DXFPolylineGeometry::polyfaceMesh) {
        return polyfaceMesh();
    }
    if (flags_ & DXFPolylineGeometry::polygonMesh) {
        return polygonMesh();
    }
    std::vector<DXFLine::Vertex> path;
    path.reserve(vertices_.size());
    for (const Vertex& v : vertices_) {
        if (!(v.flags & DXFVertexEntity::splineFrame)) {
            path.push_back({v.at});
        }
    }
    return std::make_unique<DXFLine>(std::move(path), flags_ & closedM, Vector<3>(0, 0, 1), 0,
                                     false);
}

std::unique_ptr<DXFPrimitive> DXFPolyline3D::polygonMesh() const {
    // A fitted surface lists its control frame (flag 16) and then the surface's own
    // vertices, of the fitted counts.
    bool fitted = false;
    for (const Vertex& v : vertices_) {
        fitted = fitted || (v.flags & DXFVertexEntity::splineFrame);
    }
    std::vector<Point<3>> points;
    points.reserve(vertices_.size());
    for (const Vertex& v : vertices_) {
        if (!(fitted && (v.flags & DXFVertexEntity::splineFrame))) {
            points.push_back(v.at);
        }
    }
    const long long m = fitted ? smoothM_ : m_;
    const long long n = fitted ? smoothN_ : n_;
    const auto size = static_cast<long long>(points.size());
    if (m < 0 || n < 0 || (n > 0 && m > size / n) || m * n != size) {
        source_->fail(L"PolygonMesh ends with wrong number of vertices", endLine_);
    }
    const bool closeM = flags_ & closedM, closeN = flags_ & closedN;
    DXFFaceList faces;
    if (m >= 2 && n >= 2) {
        const long long rows = closeM ? m : m - 1, cols = closeN ? n : n - 1;
        faces.reserve(static_cast<std::size_t>(rows * cols),
                      static_cast<std::size_t>(4 * rows * cols));
        auto at = [&](long long i, long long j) {
            return static_cast<std::uint32_t>((i % m) * n + (j % n));
        };
        for (long long i = 0; i < rows; ++i) {
            for (long long j = 0; j < cols; ++j) {
                faces.begin();
                faces.corner(at(i, j));
                faces.corner(at(i + 1, j));
                faces.corner(at(i + 1, j + 1));
                faces.corner(at(i, j + 1));
            }
        }
    }
    return std::make_unique<DXFPolyPrim>(std::move(points), std::move(faces));
}

std::unique_ptr<DXFPrimitive> DXFPolyline3D::polyfaceMesh() const {
    std::vector<Point<3>> points;
    std::vector<const Vertex*> records;
    for (const Vertex& v : vertices_) {
        const bool face =
            (v.flags & DXFVertexEntity::polyfaceVertex) && !(v.flags & DXFVertexEntity::meshVertex);
        if (face) {
            records.push_back(&v);
        } else {
            points.push_back(v.at);
        }
    }
    DXFFaceList faces;
    faces.reserve(records.size(), 4 * records.size());
    const long count = static_cast<long>(points.size());
    for (std::size_t r = 0; r < records.size(); ++r) {
        faces.begin();
        std::uint32_t first = 0, last = 0, corners = 0;
        for (int k = 0; k < 4; ++k) {
            const long raw = records[r]->index[k];
            if (raw == 0) {
                continue;
            }
            // The magnitude, computed unsigned so that the most negative value is safe.
            const unsigned long i =
                raw < 0 ? 0ul - static_cast<unsigned long>(raw) : static_cast<unsigned long>(raw);
            if (i > static_cast<unsigned long>(count)) {
                source_->fail(
                    stringPrintf(L"PolyfaceMesh index %zu vertex[%lu] outside range (0..%ld)",
                                 r + 1, i, count),
                    records[r]->line);
            }
            const auto v = static_cast<std::uint32_t>(i - 1);
            if (corners == 0 || (last != v && first != v)) {
                faces.corner(v);
                first = corners == 0 ? v : first;
                last = v;
                ++corners;
            }
        }
        if (corners < 3) {
            faces.dropLast();
        }
    }
    return std::make_unique<DXFPolyPrim>(std::move(points), std::move(faces));
}
