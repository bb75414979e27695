#include "applicators/FaceUnfolding.h"

#include <algorithm>
#include <cstdlib>

namespace {

/// Intersection of two inclusive rectangles; degenerate when they don't meet.
IExtent<2> meet(const IExtent<2>& a, const IExtent<2>& b) {
    return IExtent<2>(std::max(a.lo().x, b.lo().x), std::max(a.lo().y, b.lo().y),
                      std::min(a.hi().x, b.hi().x), std::min(a.hi().y, b.hi().y));
}

} // namespace

FaceUnfolding::FaceUnfolding(const FaceSize& faces) : n_(faces.size()) {
    if (!valid()) {
        n_ = 0;
        return;
    }
    const std::int32_t n = n_;
    for (std::int32_t face = 0; face < 6; ++face) {
        const std::int32_t left = face * n;
        for (int edge = 0; edge < 4; ++edge) {
            // Two edge pixels next to each other (away from the corners), the direction
            // along the edge from the first to the second, and the way out of the face.
            IPoint<2> e0;
            IVector<2> along;
            IVector<2> out;
            IExtent<2> band;
            switch (edge) {
            case 0: // left
                e0 = {left, 1};
                along = {0, 1};
                out = {-1, 0};
                band = IExtent<2>(left - (n - 1), 0, left, n - 1);
                break;
            case 1: // right
                e0 = {left + n - 1, 1};
                along = {0, 1};
                out = {1, 0};
                band = IExtent<2>(left + n - 1, 0, left + 2 * n - 2, n - 1);
                break;
            case 2: // top
                e0 = {left + 1, 0};
                along = {1, 0};
                out = {0, -1};
                band = IExtent<2>(left, -(n - 1), left + n - 1, 0);
                break;
            default: // bottom
                e0 = {left + 1, n - 1};
                along = {1, 0};
                out = {0, 1};
                band = IExtent<2>(left, n - 1, left + n - 1, 2 * n - 2);
                break;
            }
            // The pixel just past the edge, on the neighbour.
            std::int32_t sx = e0.x;
            std::int32_t sy = e0.y;
            const bool crossed = edge == 0   ? faces.stepLeft(sx, sy)
                                 : edge == 1 ? faces.stepRight(sx, sy)
                                 : edge == 2 ? faces.stepUp(sx, sy)
                                             : faces.stepDown(sx, sy);
            if (!crossed) {
                continue;
            }
            const std::int32_t neighbour = faces.faceOf(sx);
            // The neighbour's copies of the two edge pixels.
            const auto copyOn = [&](IPoint<2> p, IPoint<2>& copy) {
                IPoint<2> all[3];
                const int count = faces.copies(p.x, p.y, all);
                for (int i = 0; i < count; ++i) {
                    if (faces.faceOf(all[i].x) == neighbour) {
                        copy = all[i];
                        return true;
                    }
                }
                return false;
            };
            IPoint<2> c0;
            IPoint<2> c1;
            if (!copyOn(e0, c0) || !copyOn(IPoint<2>(e0.x + along.x, e0.y + along.y), c1)) {
                continue;
            }
            // The neighbour's steps for one step along the edge and one step out: columns
            // of the map from the face's plane to the neighbour. It is a quarter turn or a
            // mirror, so its inverse is its transpose.
            const IVector<2> a{c1.x - c0.x, c1.y - c0.y};
            const IVector<2> o{sx - c0.x, sy - c0.y};
            // toNeighbour = [a o] [along out]^T
            const std::int32_t m[2][2] = {
                {a.x * along.x + o.x * out.x, a.x * along.y + o.x * out.y},
                {a.y * along.x + o.y * out.x, a.y * along.y + o.y * out.y}};
            const bool unitSteps = std::abs(a.x) + std::abs(a.y) == 1 &&
                                   std::abs(o.x) + std::abs(o.y) == 1 && a.x * o.x + a.y * o.y == 0;
            if (!unitSteps) {
                continue;
            }
            Fold& fold = folds_[static_cast<std::size_t>(face)][static_cast<std::size_t>(edge)];
            fold.neighbour = neighbour;
            fold.edge = e0;
            fold.copy = c0;
            fold.band = band;
            for (int r = 0; r < 2; ++r) {
                for (int c = 0; c < 2; ++c) {
                    fold.turn[r][c] = m[c][r];
                }
            }
        }
    }
}

IExtent<2> FaceUnfolding::Fold::toStrip(const IExtent<2>& unfolded) const {
    // h = edge + turn (q - copy), so q = copy + turn^T (h - edge).
    const auto map = [this](IPoint<2> h) {
        const std::int32_t dx = h.x - edge.x;
        const std::int32_t dy = h.y - edge.y;
        return IPoint<2>(copy.x + turn[0][0] * dx + turn[1][0] * dy,
                         copy.y + turn[0][1] * dx + turn[1][1] * dy);
    };
    const IPoint<2> a = map(unfolded.lo());
    const IPoint<2> b = map(unfolded.hi());
    return IExtent<2>(std::min(a.x, b.x), std::min(a.y, b.y), std::max(a.x, b.x),
                      std::max(a.y, b.y));
}

void FaceUnfolding::pieces(std::int32_t face, const IExtent<2>& box,
                           std::vector<IExtent<2>>& out) const {
    if (!valid() || face < 0 || face > 5 || box.degenerate()) {
        return;
    }
    const std::int32_t left = face * n_;
    const IExtent<2> own = meet(box, IExtent<2>(left, 0, left + n_ - 1, n_ - 1));
    if (!own.degenerate()) {
        out.push_back(own);
    }
    for (const Fold& fold : folds_[static_cast<std::size_t>(face)]) {
        if (fold.neighbour < 0) {
            continue;
        }
        const IExtent<2> part = meet(box, fold.band);
        if (!part.degenerate()) {
            out.push_back(fold.toStrip(part));
        }
    }
}

bool FaceUnfolding::unfold(std::int32_t face, std::int32_t x, std::int32_t y, IPoint<2>& at,
                           IVector<2>& step) const {
    if (!valid() || face < 0 || face > 5 || x < 0) {
        return false;
    }
    const std::int32_t on = x / n_;
    if (on == face) {
        at = {x, y};
        step = {1, 0};
        return true;
    }
    for (const Fold& fold : folds_[static_cast<std::size_t>(face)]) {
        if (fold.neighbour == on) {
            const std::int32_t dx = x - fold.copy.x;
            const std::int32_t dy = y - fold.copy.y;
            at = {fold.edge.x + fold.turn[0][0] * dx + fold.turn[0][1] * dy,
                  fold.edge.y + fold.turn[1][0] * dx + fold.turn[1][1] * dy};
            step = {fold.turn[0][0], fold.turn[1][0]};
            return true;
        }
    }
    return false;
}
