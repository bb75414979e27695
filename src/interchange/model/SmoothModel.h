#pragma once

#include "core/Angle.h"
#include "core/Plane.h"
#include "core/Quark.h"
#include "interchange/model/Model.h"
#include "interchange/polygon/Clump.h"
#include "interchange/polygon/PointIndex.h"

#include <array>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <vector>

/// The material name given to geometry whose source names none.
inline constexpr wchar_t DEFAULT_MSTYLE_NAME[] = L"Default";

/// A model gathered as triangle meshes with materials, from readers that hand over
/// clumps of faces (or single polygons) as they go.
class SmoothModel : public Model {
public:
    /// The main way in. Lowers the tolerance to the clump's if that is smaller, removes
    /// the clump's holes, groups its faces into regions (all in one region of
    /// `materialRef` when `flat`, otherwise by equal smoothing and material style),
    /// breaks each region along edges sharper than `smoothAngle`, triangulates it and
    /// adds it as one mesh. Faces without a material style take `materialRef`, or the
    /// layer's name when that is null too, or DEFAULT_MSTYLE_NAME. The clump is changed.
    virtual void addClump(Clump& clump, bool flat, Quark materialRef, Angle smoothAngle,
                          Quark layer) = 0;
    /// Adds one flat plane polygon (outer boundary and holes, any turning sense) under a
    /// material name; the record is made on first use.
    virtual void addPolygon(Quark material, std::span<const Point<3>> outer,
                            std::span<const std::vector<Point<3>>> holes = {}) = 0;
    /// Records a render attribute of the source (such as a colour number) for a
    /// material, making the record on first use.
    virtual void setMaterialAttribute(Quark material, const std::wstring& key,
                                      const std::wstring& value) = 0;
    /// Adds flat-shaded triangles over `points` (indices into it) under a material name.
    /// Triangles with an index out of range or no area are left out.
    virtual void addTriangles(Quark material, std::span<const Point<3>> points,
                              std::span<const std::array<std::uint32_t, 3>> triangles) = 0;
    /// Ends adding: clears the temporary lists (point indices) of the meshes. Adding
    /// afterwards starts new meshes.
    virtual void finish() = 0;
    /// Sets the length of one model unit in metres (0: unknown).
    virtual void setMetresPerUnit(double metres) = 0;
};

/// The meshes and materials of a model, as a renderer takes them. Drawing them is left to
/// SmoothModelImp (the render library), so that readers and their tests need no image,
/// camera or light.
///
/// Each mesh has its own points (each position once, merged within the tolerance), its
/// vertices (a point with a normal: one per point where the surface is smooth there,
/// one per point and face plane where it is not) and its triangles over the vertices.
class MeshModel : public SmoothModel {
public:
    struct Material {
        Quark name;
        std::uint32_t order = 0; ///< 0 for the first record made, 1 for the next...
        /// Render attributes of the source, by key (the DXF reader sets "colour", the
        /// drawing's colour number of the layer, and "source" for where the name came from).
        std::map<std::wstring, std::wstring> attributes;
    };
    struct Vertex {
        std::uint32_t point; ///< index into the mesh's points
        Vector<3> normal;    ///< unit normal for shading
    };
    struct Triangle {
        std::array<std::uint32_t, 3> vertex; ///< indices into the mesh's vertices
        Plane plane; ///< through the three points; its normal follows their order
        const Material* material;
    };
    struct Mesh {
        const Material* material = nullptr;
        Quark layer;
        std::vector<Point<3>> points;
        std::vector<Vertex> vertices;
        std::vector<Triangle> triangles;
    };

    MeshModel();
    ~MeshModel() override;

    Extent<3> bounds() const override { return bounds_; }
    std::size_t triangleCount() const override;
    double tolerance() const override { return tolerance_; }
    double metresPerUnit() const override { return metresPerUnit_; }

    void addClump(Clump& clump, bool flat, Quark materialRef, Angle smoothAngle,
                  Quark layer) override;
    void addPolygon(Quark material, std::span<const Point<3>> outer,
                    std::span<const std::vector<Point<3>>> holes = {}) override;
    void setMaterialAttribute(Quark material, const std::wstring& key,
                              const std::wstring& value) override;
    void addTriangles(Quark material, std::span<const Point<3>> points,
                      std::span<const std::array<std::uint32_t, 3>> triangles) override;
    void finish() override;
    void setMetresPerUnit(double metres) override { metresPerUnit_ = metres; }

    /// The record of a material, or null if nothing used that name.
    const Material* findMaterial(Quark name) const;
    /// The material records in the order they were made.
    const std::vector<const Material*>& materialsInOrder() const { return materialsByName_.order; }
    const std::deque<Mesh>& meshes() const { return meshes_; }

protected:
    struct TextLess {
        bool operator()(const Quark& a, const Quark& b) const { return a.value() < b.value(); }
    };
    struct MaterialTable {
        std::map<Quark, Material, TextLess> byName;
        std::vector<const Material*> order;
    };
    /// Where the vertices of each mesh point are: the first vertex of a point, and for
    /// each vertex the next one of the same point.
    struct VertexChains {
        std::vector<std::uint32_t> firstAt;
        std::vector<std::uint32_t> next;
    };

    /// The record of `name` (DEFAULT_MSTYLE_NAME for null), made on first use.
    Material* materialNamed(Quark name);
    /// Appends a triangle over three mesh points with the given corner normals, sharing
    /// a vertex of equal point and normal. Returns false (adding nothing) for a triangle
    /// with a repeated point or of no area.
    bool addTriangle(Mesh& mesh, const std::array<std::uint32_t, 3>& points,
                     const std::array<Vector<3>, 3>& normals, const Material* material,
                     VertexChains& chains);

    MaterialTable materialsByName_;
    Material* currentMaterial_ = nullptr;
    std::deque<Mesh> meshes_;
    Extent<3> bounds_;
    double tolerance_ = 0.001;
    double metresPerUnit_ = 0;

private:
    struct LooseState;
    std::unique_ptr<LooseState> loose_;
};
