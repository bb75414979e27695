#include "support/SyntheticScene.h"

#include "image/ZmapDocument.h"
#include "views/cameras/ViewProj.h"

#include <cmath>

namespace test {

int SyntheticScene::add(const Plane& plane, MaterialId material, const Extent<3>& bounds) {
    pieces_.push_back({plane, material, bounds});
    return static_cast<int>(pieces_.size()) - 1;
}

int SyntheticScene::addBox(const Extent<3>& box, MaterialId material) {
    const int first = static_cast<int>(pieces_.size());
    for (int axis = 0; axis < 3; ++axis) {
        Vector<3> normal;
        normal[axis] = 1;
        add(Plane(-normal, box.lo()), material, box);
        add(Plane(normal, box.hi()), material, box);
    }
    return first;
}

int SyntheticScene::trace(const ViewProj& view, std::int32_t x, std::int32_t y,
                          double& code) const {
    // Points along a pixel's ray are affine in the depth code in every view type.
    const double span = 2147483648.0;
    const Point<3> a = view.worldFromPixel(x, y, 0);
    const Point<3> b = view.worldFromPixel(x, y, static_cast<std::uint32_t>(span));
    int best = -1;
    for (int i = 0; i < static_cast<int>(pieces_.size()); ++i) {
        const Piece& piece = pieces_[i];
        const double da = piece.plane.distanceTo(a);
        const double db = piece.plane.distanceTo(b);
        if (da == db) {
            continue;
        }
        const double c = da / (da - db) * span;
        if (!(c >= 0 && c <= 4294967294.0) || (best >= 0 && c >= code)) {
            continue;
        }
        if (!piece.bounds.degenerate()) {
            // Within the bounds, give or take rounding.
            const Point<3> hit = interp(a, b, c / span);
            const Vector<3> size = piece.bounds.size();
            const double slack = 1e-9 * (1 + size.length());
            bool inside = true;
            for (int k = 0; k < 3; ++k) {
                inside = inside && hit[k] >= piece.bounds.lo()[k] - slack &&
                         hit[k] <= piece.bounds.hi()[k] + slack;
            }
            if (!inside) {
                continue;
            }
        }
        best = i;
        code = c;
    }
    return best;
}

void SyntheticScene::render(ZmapDocument& document) const {
    const ViewProj& view = *document.viewProj();
    TileHandle zHold, matHold;
    for (std::int32_t y = 0; y < document.height(); ++y) {
        for (std::int32_t x = 0; x < document.width(); ++x) {
            double c = 0;
            const int piece = trace(view, x, y, c);
            const std::uint32_t code =
                piece < 0 ? depth::noDepth : static_cast<std::uint32_t>(std::lround(c));
            const MaterialId material = piece < 0 ? 0 : pieces_[piece].material;
            *document.zWrite(x, y, zHold) = code;
            *document.matWrite(x, y, matHold) = material;
        }
    }
    document.commitOriginals();
}

} // namespace test
