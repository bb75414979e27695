#include "interchange/dxf/DXFPrimitive.h"

#include <cmath>

void DXFFaceSink::mesh(std::span<const Point<3>> vertices, const DXFFaceList& faces,
                       std::uint32_t smoothing) {
    std::vector<Point<3>> loop;
    for (std::size_t f = 0; f < faces.size(); ++f) {
        loop.clear();
        for (std::uint32_t i : faces[f]) {
            loop.push_back(vertices[i]);
        }
        face(loop, smoothing);
    }
}

AffineTransform<3> objectToWorld(const Vector<3>& extrusion) {
    const Vector<3> n = extrusion.unit();
    constexpr double limit = 1.0 / 64;
    const Vector<3> wy(0, 1, 0), wz(0, 0, 1);
    const Vector<3> ax =
        (std::fabs(n[0]) < limit && std::fabs(n[1]) < limit ? cross(wy, n) : cross(wz, n)).unit();
    const Vector<3> ay = cross(n, ax).unit();
    const Vector<3> rows[3] = {ax, ay, n};
    return AffineTransform<3>(Matrix<3>::rows(rows), Vector<3>());
}

DXFGraphic::DXFGraphic(const Vector<3>& extrusion, double thickness, bool inObjectCoordinates)
    : extrusion_(extrusion.lengthSquared() > 0 ? extrusion.unit() : Vector<3>(0, 0, 1)),
      thickness_(thickness), inObjectCoordinates_(inObjectCoordinates) {
    if (inObjectCoordinates_) {
        toWorld_ = objectToWorld(extrusion_);
    }
}

AffineTransform<3> DXFGraphic::placement(const AffineTransform<3>& toWorld) const {
    return inObjectCoordinates_ ? toWorld_.followedBy(toWorld) : toWorld;
}

Vector<3> DXFGraphic::thicknessVector() const {
    return inObjectCoordinates_ ? Vector<3>(0, 0, thickness_) : extrusion_ * thickness_;
}

DXFLine::DXFLine(std::vector<Vertex> vertices, bool closed, const Vector<3>& extrusion,
                 double thickness, bool inObjectCoordinates)
    : DXFGraphic(extrusion, thickness, inObjectCoordinates), vertices_(std::move(vertices)),
      closed_(closed && vertices_.size() > 2) {}

std::size_t DXFLine::segmentCount() const {
    if (vertices_.size() < 2) {
        return 0;
    }
    return closed_ ? vertices_.size() : vertices_.size() - 1;
}

bool DXFLine::wide(std::size_t segment) const {
    // Widths lie in the plane of the object coordinates; a path in world coordinates
    // has none.
    const Vertex& v = vertices_[segment];
    return inObjectCoordinates_ && (v.startWidth > 0 || v.endWidth > 0);
}

std::size_t DXFLine::faceCount() const {
    std::size_t n = 0;
    for (std::size_t s = 0; s < segmentCount(); ++s) {
        n += wide(s) ? (thickness_ != 0 ? 6 : 1) : (thickness_ != 0 ? 1 : 0);
    }
    return n;
}

void DXFLine::emit(const AffineTransform<3>& toWorld, DXFFaceSink& sink) const {
    const AffineTransform<3> place = placement(toWorld);
    const Vector<3> up = thicknessVector();
    const Vector<3> height = Vector<3>(up, place.linear());
    for (std::size_t s = 0; s < segmentCount(); ++s) {
        const Vertex& v = vertices_[s];
        const Point<3>& a = v.at;
        const Point<3>& b = vertices_[(s + 1) % vertices_.size()].at;
        if (wide(s)) {
            Vector<3> d(b[0] - a[0], b[1] - a[1], 0);
            d = d.unit();
            if (d.lengthSquared() == 0) {
                continue;
            }
            const Vector<3> side(-d[1], d[0], 0);
            const double w0 = std::max(v.startWidth, 0.0) / 2, w1 = std::max(v.endWidth, 0.0) / 2;
            const Point<3> band[4] = {place.multiply(a - side * w0), place.multiply(b - side * w1),
                                      place.multiply(b + side * w1), place.multiply(a + side * w0)};
            DXFPolygon::emitPrism(band, thickness_ != 0 ? height : Vector<3>(), sink);
        } else if (thickness_ != 0) {
            const Point<3> wall[4] = {place.multiply(a), place.multiply(b), place.multiply(b + up),
                                      place.multiply(a + up)};
            sink.face(wall, dxfSmoothing);
        }
    }
}

DXFPolygon::DXFPolygon(std::vector<Point<3>> points, const Vector<3>& extrusion, double thickness,
                       bool inObjectCoordinates)
    : DXFGraphic(extrusion, thickness, inObjectCoordinates), points_(std::move(points)) {}

std::size_t DXFPolygon::faceCount() const {
    return thickness_ != 0 ? points_.size() + 2 : 1;
}

void DXFPolygon::emit(const AffineTransform<3>& toWorld, DXFFaceSink& sink) const {
    const AffineTransform<3> place = placement(toWorld);
    std::vector<Point<3>> loop;
    loop.reserve(points_.size());
    for (const Point<3>& p : points_) {
        loop.push_back(place.multiply(p));
    }
    const Vector<3> height =
        thickness_ != 0 ? Vector<3>(thicknessVector(), place.linear()) : Vector<3>();
    emitPrism(loop, height, sink);
}

void DXFPolygon::emitPrism(std::span<const Point<3>> loop, const Vector<3>& height,
                           DXFFaceSink& sink) {
    if (height.lengthSquared() == 0) {
        sink.face(loop, dxfSmoothing);
        return;
    }
    std::vector<Point<3>> face(loop.rbegin(), loop.rend());
    sink.face(face, dxfSmoothing);
    face.clear();
    for (const Point<3>& p : loop) {
        face.push_back(p + height);
    }
    sink.face(face, dxfSmoothing);
    for (std::size_t i = 0; i < loop.size(); ++i) {
        const Point<3>& a = loop[i];
        const Point<3>& b = loop[(i + 1) % loop.size()];
        const Point<3> wall[4] = {a, b, b + height, a + height};
        sink.face(wall, dxfSmoothing);
    }
}

DXFPolyPrim::DXFPolyPrim(std::vector<Point<3>> vertices, DXFFaceList faces)
    : vertices_(std::move(vertices)), faces_(std::move(faces)) {}

void DXFPolyPrim::emit(const AffineTransform<3>& toWorld, DXFFaceSink& sink) const {
    std::vector<Point<3>> world;
    world.reserve(vertices_.size());
    for (const Point<3>& p : vertices_) {
        world.push_back(toWorld.multiply(p));
    }
    sink.mesh(world, faces_, dxfSmoothing);
}
