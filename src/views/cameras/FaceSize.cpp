#include "views/cameras/FaceSize.h"

#include <algorithm>

std::int32_t FaceSize::faceOf(std::int32_t x) const {
    std::int32_t s = x / n_;
    if (x < 0 && s * n_ != x) {
        --s; // floor division
    }
    s %= 6;
    return s < 0 ? s + 6 : s;
}

// The mappings across edges follow from the directions of the faces: a pixel on an edge
// and the neighbour's edge pixel look the same way, and `inset` moves further in.
void FaceSize::cross(Edge edge, std::int32_t& x, std::int32_t& y, std::int32_t inset) const {
    const std::int32_t n = n_;
    const std::int32_t s = faceOf(x);
    const std::int32_t x0 = x;
    const std::int32_t y0 = y;
    switch (edge) {
    case Edge::left:
        switch (s) {
        case 0:
            x = 4 * n - 1 - inset;
            break;
        case 4:
            x = 3 * n + y0;
            y = inset;
            break;
        case 5:
            x = 4 * n - y0 - 1;
            y = n - 1 - inset;
            break;
        default: // faces 1 to 3: the face to the left along the horizon
            x = x0 - 1 - inset;
            break;
        }
        break;
    case Edge::right:
        switch (s) {
        case 3:
            x = inset;
            break;
        case 4:
            x = 2 * n - y0 - 1;
            y = inset;
            break;
        case 5:
            x = y0 + n;
            y = n - 1 - inset;
            break;
        default: // faces 0 to 2
            x = x0 + 1 + inset;
            break;
        }
        break;
    case Edge::top:
        switch (s) {
        case 0:
            x = x0 + 4 * n;
            y = n - 1 - inset;
            break;
        case 1:
            y = 2 * n - x0 - 1;
            x = 5 * n - 1 - inset;
            break;
        case 2:
        case 4:
            x = 7 * n - x0 - 1;
            y = inset;
            break;
        case 3:
            y = x0 - 3 * n;
            x = 4 * n + inset;
            break;
        default: // face 5
            x = x0 - 5 * n;
            y = n - 1 - inset;
            break;
        }
        break;
    case Edge::bottom:
        switch (s) {
        case 0:
            x = x0 + 5 * n;
            y = inset;
            break;
        case 1:
            y = x0 - n;
            x = 6 * n - 1 - inset;
            break;
        case 2:
        case 5:
            x = 8 * n - x0 - 1;
            y = n - 1 - inset;
            break;
        case 3:
            y = 4 * n - x0 - 1;
            x = 5 * n + inset;
            break;
        default: // face 4
            x = x0 - 4 * n;
            y = inset;
            break;
        }
        break;
    }
}

bool FaceSize::stepLeft(std::int32_t& x, std::int32_t& y) const {
    if (x % n_ != 0) {
        --x;
        return false;
    }
    cross(Edge::left, x, y, 1);
    return true;
}

bool FaceSize::stepRight(std::int32_t& x, std::int32_t& y) const {
    if ((x + 1) % n_ != 0) {
        ++x;
        return false;
    }
    cross(Edge::right, x, y, 1);
    return true;
}

bool FaceSize::stepUp(std::int32_t& x, std::int32_t& y) const {
    if (y != 0) {
        --y;
        return false;
    }
    cross(Edge::top, x, y, 1);
    return true;
}

bool FaceSize::stepDown(std::int32_t& x, std::int32_t& y) const {
    if (y != n_ - 1) {
        ++y;
        return false;
    }
    cross(Edge::bottom, x, y, 1);
    return true;
}

int FaceSize::copies(std::int32_t x, std::int32_t y, IPoint<2> (&out)[3]) const {
    // The pixel itself, then its copy across each edge it lies on, in order of x, then y.
    int count = 0;
    const auto add = [&](IPoint<2> p) {
        int i = count++;
        while (i > 0 && (p.x < out[i - 1].x || (p.x == out[i - 1].x && p.y < out[i - 1].y))) {
            out[i] = out[i - 1];
            --i;
        }
        out[i] = p;
    };
    add({x, y});
    const std::int32_t lx = x - faceOf(x) * n_;
    const struct {
        bool on;
        Edge edge;
    } edges[4] = {{lx == 0, Edge::left},
                  {lx == n_ - 1, Edge::right},
                  {y == 0, Edge::top},
                  {y == n_ - 1, Edge::bottom}};
    for (const auto& e : edges) {
        if (e.on) {
            std::int32_t cx = x;
            std::int32_t cy = y;
            cross(e.edge, cx, cy, 0);
            add({cx, cy});
        }
    }
    return count;
}

int FaceSize::nextCopy(std::int32_t& x, std::int32_t& y) const {
    IPoint<2> c[3];
    const int count = copies(x, y, c);
    for (int i = 0; i < count; ++i) {
        if (c[i].x == x && c[i].y == y) {
            x = c[(i + 1) % count].x;
            y = c[(i + 1) % count].y;
            break;
        }
    }
    return count;
}

IPoint<2> FaceSize::canonicalPixel(std::int32_t x, std::int32_t y) const {
    IPoint<2> c[3];
    copies(x, y, c);
    return c[0];
}

IExtent<2> FaceSize::faceWindow(std::int32_t x, std::int32_t y, std::int32_t radius,
                                std::int32_t face) const {
    const std::int32_t n = n_;
    const std::int32_t s = faceOf(x);
    const std::int32_t left = s * n;
    const std::int32_t right = left + n - 1;
    if (face == s) {
        return IExtent<2>(std::max(left, x - radius), std::max(0, y - radius),
                          std::min(right, x + radius), std::min(n - 1, y + radius));
    }
    // The strip beyond each edge that the square reaches: its two ends along the edge,
    // carried 1 and `depth` pixels into the neighbour face, bound it. Near a corner of
    // the cube the strips beyond a side edge and beyond the top or bottom edge meet on an
    // edge of their own; that line goes with the top or bottom strip only.
    const std::int32_t rowLo = y < radius ? 1 : y - radius;
    const std::int32_t rowHi = n - 1 - y < radius ? n - 2 : y + radius;
    const std::int32_t colLo = std::max(left, x - radius);
    const std::int32_t colHi = std::min(right, x + radius);
    const struct {
        Edge edge;
        std::int32_t distance;
        IPoint<2> a, b;
    } edges[4] = {
        {Edge::left, x - left, {left, rowLo}, {left, rowHi}},
        {Edge::right, right - x, {right, rowLo}, {right, rowHi}},
        {Edge::top, y, {colLo, 0}, {colHi, 0}},
        {Edge::bottom, n - 1 - y, {colLo, n - 1}, {colHi, n - 1}},
    };
    for (const auto& e : edges) {
        const std::int32_t depth = std::min(radius - e.distance, n - 1);
        if (depth < 1 || e.a.x > e.b.x || e.a.y > e.b.y) {
            continue;
        }
        IExtent<2> window;
        for (const IPoint<2> end : {e.a, e.b}) {
            for (const std::int32_t inset : {std::int32_t(1), depth}) {
                std::int32_t cx = end.x;
                std::int32_t cy = end.y;
                cross(e.edge, cx, cy, inset);
                window += IPoint<2>(cx, cy);
            }
        }
        if (faceOf(window.lo().x) == face) {
            return window;
        }
    }
    return IExtent<2>();
}
