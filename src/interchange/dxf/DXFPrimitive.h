#pragma once

#include "core/Point.h"
#include "core/Transform.h"

#include <cstdint>
#include <span>
#include <vector>

/// The smoothing flag of every face the reader makes: whether two faces that meet are
/// shaded smoothly is left to the angle between them.
inline constexpr std::uint32_t dxfSmoothing = 1;

/// Faces over shared vertices, as lists of vertex indices kept end to end.
class DXFFaceList {
public:
    /// Adds a face of `count` corners; the corners are appended with corner().
    void begin() { starts_.push_back(static_cast<std::uint32_t>(indices_.size())); }
    void corner(std::uint32_t vertex) { indices_.push_back(vertex); }
    /// Drops the face begun last (when it turns out to have fewer than three corners).
    void dropLast() {
        indices_.resize(starts_.back());
        starts_.pop_back();
    }
    std::size_t size() const { return starts_.size(); }
    std::span<const std::uint32_t> operator[](std::size_t f) const {
        const std::size_t end = f + 1 < starts_.size() ? starts_[f + 1] : indices_.size();
        return std::span<const std::uint32_t>(indices_).subspan(starts_[f], end - starts_[f]);
    }
    void reserve(std::size_t faces, std::size_t corners) {
        starts_.reserve(faces);
        indices_.reserve(corners);
    }

private:
    std::vector<std::uint32_t> indices_;
    std::vector<std::uint32_t> starts_;
};

/// Where primitives put their faces.
class DXFFaceSink {
public:
    virtual ~DXFFaceSink() = default;
    /// One plane face by its outer loop in world coordinates. Faces that share an edge
    /// and a `smoothing` bit may be shaded smoothly across it.
    virtual void face(std::span<const Point<3>> loop, std::uint32_t smoothing) = 0;
    /// Faces over shared vertices (world coordinates); each face lists vertex indices.
    /// By default each face goes to face().
    virtual void mesh(std::span<const Point<3>> vertices, const DXFFaceList& faces,
                      std::uint32_t smoothing);
};

/// The object coordinate system of an extrusion direction by the drawing format's
/// arbitrary axis algorithm: the x axis is Wy x N when N lies within 1/64 of the world z
/// axis (in x and y), Wz x N otherwise; y is N x x. The transform carries object
/// coordinates to world coordinates.
AffineTransform<3> objectToWorld(const Vector<3>& extrusion);

/// What an entity turns into: geometry that can put itself into a sink through a
/// transform (the placement of the block it belongs to, or the identity).
class DXFPrimitive {
public:
    virtual ~DXFPrimitive() = default;
    /// Sends the faces, transformed by `toWorld`, to `sink`.
    virtual void emit(const AffineTransform<3>& toWorld, DXFFaceSink& sink) const = 0;
    /// The number of faces emit sends.
    virtual std::size_t faceCount() const = 0;
};

/// A primitive drawn in an object coordinate system, with a thickness along its
/// extrusion direction.
class DXFGraphic : public DXFPrimitive {
public:
    /// `inObjectCoordinates`: the points are in the extrusion's object coordinate system
    /// (otherwise in world coordinates, and the extrusion only gives the direction of
    /// the thickness).
    DXFGraphic(const Vector<3>& extrusion, double thickness, bool inObjectCoordinates);

protected:
    /// The transform of the points to world coordinates, followed by `toWorld`.
    AffineTransform<3> placement(const AffineTransform<3>& toWorld) const;
    /// The thickness as a vector in the points' own coordinates.
    Vector<3> thicknessVector() const;

    Vector<3> extrusion_;
    double thickness_;
    bool inObjectCoordinates_;
    AffineTransform<3> toWorld_; ///< own coordinates to world coordinates
};

/// A path: lines with no area unless they have a thickness (each segment then becomes a
/// wall) or a width (each segment becomes a flat band, or a slab when also thick).
/// Arcs come already divided into segments.
class DXFLine : public DXFGraphic {
public:
    struct Vertex {
        Point<3> at;
        double startWidth = 0; ///< of the segment starting here
        double endWidth = 0;
    };
    DXFLine(std::vector<Vertex> vertices, bool closed, const Vector<3>& extrusion, double thickness,
            bool inObjectCoordinates);

    void emit(const AffineTransform<3>& toWorld, DXFFaceSink& sink) const override;
    std::size_t faceCount() const override;
    const std::vector<Vertex>& vertices() const { return vertices_; }
    bool closed() const { return closed_; }

private:
    bool wide(std::size_t segment) const;
    std::size_t segmentCount() const;

    std::vector<Vertex> vertices_;
    bool closed_;
};

/// A filled plane polygon; with a thickness, a prism (both ends and the walls).
class DXFPolygon : public DXFGraphic {
public:
    DXFPolygon(std::vector<Point<3>> points, const Vector<3>& extrusion, double thickness,
               bool inObjectCoordinates);

    void emit(const AffineTransform<3>& toWorld, DXFFaceSink& sink) const override;
    std::size_t faceCount() const override;
    const std::vector<Point<3>>& points() const { return points_; }

    /// Sends a prism of `loop` (in world coordinates) to `sink`: the loop turned back
    /// as its bottom, the loop moved by `height` as its top, and a wall per edge, all
    /// wound alike so that their shared edges pair up. A zero `height` sends the loop
    /// alone.
    static void emitPrism(std::span<const Point<3>> loop, const Vector<3>& height,
                          DXFFaceSink& sink);

private:
    std::vector<Point<3>> points_;
};

/// A mesh of faces over shared vertices in world coordinates: polygon and polyface
/// meshes.
class DXFPolyPrim : public DXFPrimitive {
public:
    /// Each face lists vertex indices (at least three, all below vertices.size()).
    DXFPolyPrim(std::vector<Point<3>> vertices, DXFFaceList faces);

    void emit(const AffineTransform<3>& toWorld, DXFFaceSink& sink) const override;
    std::size_t faceCount() const override { return faces_.size(); }
    const std::vector<Point<3>>& vertices() const { return vertices_; }
    const DXFFaceList& faces() const { return faces_; }

private:
    std::vector<Point<3>> vertices_;
    DXFFaceList faces_;
};
