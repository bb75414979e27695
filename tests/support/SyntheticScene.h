#pragma once

#include "core/Extent.h"
#include "core/Plane.h"
#include "image/MaterialRecord.h"

#include <cstdint>
#include <vector>

class ViewProj;
class ZmapDocument;

namespace test {

/// A scene of flat pieces, rendered exactly into a document's depth and material channels:
/// every pixel gets the depth code, rounded, at which its ray meets the nearest piece, so
/// that the surface tools can be checked against the planes the scene was made of.
class SyntheticScene {
public:
    struct Piece {
        Plane plane;
        MaterialId material;
        /// The part of the plane that exists; an empty extent for all of it.
        Extent<3> bounds;
    };

    /// Adds a plane, or the part of it within `bounds`. Returns the piece's index.
    int add(const Plane& plane, MaterialId material, const Extent<3>& bounds = Extent<3>());
    /// Adds the six faces of a box, normals outward. Returns the index of the first; they
    /// come in the order -x, +x, -y, +y, -z, +z.
    int addBox(const Extent<3>& box, MaterialId material);

    const std::vector<Piece>& pieces() const { return pieces_; }

    /// The piece that pixel (x, y) sees, with its depth code (4294967294 at most); -1 when
    /// the ray meets nothing between nearDepth and farDepth.
    int trace(const ViewProj& view, std::int32_t x, std::int32_t y, double& code) const;

    /// Writes every pixel's code and material into the document's depth and material
    /// channels through its view, then makes them the originals too. Pixels that see
    /// nothing get no depth and material 0.
    void render(ZmapDocument& document) const;

private:
    std::vector<Piece> pieces_;
};

} // namespace test
