#pragma once

#include "interchange/dxf/DXFEntity.h"
#include "interchange/dxf/DXFPrimitive.h"

#include <array>
#include <memory>
#include <vector>

/// The vertex list of a polyline entity, and the primitive it makes.
class DXFPolylineGeometry {
public:
    /// POLYLINE flags (group 70).
    enum Flags : long {
        closedM = 1,
        curveFit = 2,
        splineFit = 4,
        polyline3D = 8,
        polygonMesh = 16,
        closedN = 32,
        polyfaceMesh = 64,
    };

    virtual ~DXFPolylineGeometry() = default;
    /// The primitive (null when there is nothing to draw). Throws ExportError when the
    /// vertices do not fit the kind of polyline.
    virtual std::unique_ptr<DXFPrimitive> primitive() const = 0;

    /// Reads the VERTEX entities that follow a POLYLINE, up to its SEQEND, and returns
    /// the geometry of the polyline's kind. Throws "Bad DXF group: item <SEQEND> needed"
    /// when another entity or the end of the data comes first.
    static std::unique_ptr<DXFPolylineGeometry> read(const DXFEntity& polyline, DXFStream& stream);
};

/// A plane polyline in object coordinates, with bulges (arcs), widths and a thickness:
/// a 2D POLYLINE or an LWPOLYLINE. Makes a DXFLine.
class DXFPolyline2D : public DXFPolylineGeometry {
public:
    struct Vertex {
        double x = 0, y = 0;
        double bulge = 0;
        double startWidth = 0, endWidth = 0;
    };
    DXFPolyline2D(std::vector<Vertex> vertices, bool closed, double elevation, double thickness,
                  const Vector<3>& extrusion);
    /// From an LWPOLYLINE entity.
    static std::unique_ptr<DXFPolyline2D> fromLightweight(const DXFEntity& entity);

    std::unique_ptr<DXFPrimitive> primitive() const override;

    /// The largest angle an arc segment turns through: arcs are divided into segments of
    /// at most this many radians (48 to a full circle).
    static constexpr double maxArcStep = 2 * 3.14159265358979323846 / 48;

private:
    std::vector<Vertex> vertices_;
    bool closed_;
    double elevation_;
    double thickness_;
    Vector<3> extrusion_;
};

/// A polyline in world coordinates: a 3D polyline (a DXFLine, which has no area), a
/// polygon mesh of M by N vertices or a polyface mesh (both a DXFPolyPrim).
class DXFPolyline3D : public DXFPolylineGeometry {
public:
    struct Vertex {
        Point<3> at;
        long flags = 0;
        std::array<long, 4> index{}; ///< polyface corners, 1-based, negative: invisible edge
        long line = 0;
    };
    DXFPolyline3D(const DXFEntity& polyline, std::vector<Vertex> vertices, long endLine);

    std::unique_ptr<DXFPrimitive> primitive() const override;

private:
    std::unique_ptr<DXFPrimitive> polygonMesh() const;
    std::unique_ptr<DXFPrimitive> polyfaceMesh() const;

    const DXFStream* source_;
    long flags_;
    long m_, n_;             ///< mesh vertex counts (groups 71, 72)
    long smoothM_, smoothN_; ///< fitted surface counts (groups 73, 74)
    long surfaceType_;       ///< group 75
    long endLine_;           ///< line of the SEQEND
    std::vector<Vertex> vertices_;
};
