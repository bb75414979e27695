#pragma once

#include "image/MaterialRecord.h"
#include "support/SyntheticScene.h"
#include "support/TestDocument.h"
#include "views/cameras/ViewParams.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace test {

/// A room of known geometry for the tools that follow surfaces: a floor (z = 0), a back
/// wall, a side wall and a box standing on the floor, each of its own material, named in
/// the document's material table ("Floor", "Wall", "Side", "Box"). The eye stands 1.6
/// above the floor, the box 0.6 high, so the floor shows beyond the box's top.
struct RoomScene {
    static constexpr MaterialId floorMaterial = 1;
    static constexpr MaterialId wallMaterial = 2;
    static constexpr MaterialId sideMaterial = 3;
    static constexpr MaterialId boxMaterial = 4;
    /// Indices of the pieces in `scene`: floor, back wall, side wall, then the box's six
    /// faces (-x, +x, -y, +y, -z, +z); boxTop is the +z face.
    static constexpr int floorPiece = 0;
    static constexpr int boxTop = 8;

    enum class View { perspective, parallel, cubic };

    std::unique_ptr<TestDocument> document;
    SyntheticScene scene;
    /// The piece each pixel sees (-1 for none), row by row.
    std::vector<int> pieces;

    /// Renders the room into a new document of the given size (a cube image is six square
    /// faces of `height` pixels side by side: pass width 6 * height).
    static RoomScene make(View view, std::int32_t width, std::int32_t height);

    int pieceAt(std::int32_t x, std::int32_t y) const {
        return pieces[static_cast<std::size_t>(y) * document->width() + x];
    }
    /// The pixels 4-connected to (x, y) for which `inside(x, y)` holds, as a mask row by row
    /// (a plain breadth-first search, independent of the code under test).
    template <class F>
    std::vector<std::uint8_t> connected(std::int32_t x, std::int32_t y, F inside) const;
};

/// A view record with its axes turned by an azimuth and an altitude in degrees.
ViewParams roomRecord(std::uint32_t viewCode, const Point<3>& eye, double azimuth, double altitude,
                      const Point<3>& windowLo, const Point<3>& windowHi, double nearDepth,
                      double farDepth);

template <class F>
std::vector<std::uint8_t> RoomScene::connected(std::int32_t x0, std::int32_t y0, F inside) const {
    const std::int32_t w = document->width();
    const std::int32_t h = document->height();
    std::vector<std::uint8_t> mask(static_cast<std::size_t>(w) * h, 0);
    if (!inside(x0, y0)) {
        return mask;
    }
    std::vector<std::pair<std::int32_t, std::int32_t>> queue{{x0, y0}};
    mask[static_cast<std::size_t>(y0) * w + x0] = 1;
    for (std::size_t k = 0; k < queue.size(); ++k) {
        const auto [x, y] = queue[k];
        const std::int32_t nx[4] = {x - 1, x + 1, x, x};
        const std::int32_t ny[4] = {y, y, y - 1, y + 1};
        for (int i = 0; i < 4; ++i) {
            if (nx[i] < 0 || ny[i] < 0 || nx[i] >= w || ny[i] >= h) {
                continue;
            }
            std::uint8_t& m = mask[static_cast<std::size_t>(ny[i]) * w + nx[i]];
            if (!m && inside(nx[i], ny[i])) {
                m = 1;
                queue.emplace_back(nx[i], ny[i]);
            }
        }
    }
    return mask;
}

} // namespace test
