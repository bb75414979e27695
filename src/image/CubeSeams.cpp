#include "image/CubeSeams.h"

#include <algorithm>

// Face layout of the strip, with the neighbour across each edge. Local coordinates (u, v)
// run from 0 to n - 1 within a face; "rev" is n - 1 - the coordinate.
//
//   face  left            right           top              bottom
//   0     3, right col    1, left col     4, bottom row    5, top row
//   1     0               2               4, right col     5, right col
//   2     1               3               4, top row rev   5, bottom row rev
//   3     2               0               4, left col      5, left col rev
//   4     3, top row      1, top row rev  2, top row rev   0, top row
//   5     3, bottom rev   1, bottom row   0, bottom row    2, bottom row rev

IPoint<2> CubeSeams::acrossLeft(std::int32_t x, std::int32_t y) const {
    const std::int32_t n = n_;
    switch (x / n) {
    case 0:
        return {4 * n - 1, y};
    case 1:
    case 2:
    case 3:
        return {x - 1, y};
    case 4:
        return {3 * n + y, 0};
    default:
        return {4 * n - y - 1, n - 1};
    }
}

IPoint<2> CubeSeams::acrossRight(std::int32_t x, std::int32_t y) const {
    const std::int32_t n = n_;
    switch (x / n) {
    case 0:
    case 1:
    case 2:
        return {x + 1, y};
    case 3:
        return {0, y};
    case 4:
        return {2 * n - y - 1, 0};
    default:
        return {y + n, n - 1};
    }
}

IPoint<2> CubeSeams::acrossTop(std::int32_t x, std::int32_t y) const {
    const std::int32_t n = n_;
    switch (x / n) {
    case 0:
        return {x + 4 * n, n - 1};
    case 1:
        return {5 * n - 1, 2 * n - x - 1};
    case 2:
        return {7 * n - x - 1, 0};
    case 3:
        return {4 * n, x - 3 * n};
    case 4:
        return {7 * n - x - 1, 0};
    default:
        return {x - 5 * n, n - 1};
    }
}

IPoint<2> CubeSeams::acrossBottom(std::int32_t x, std::int32_t y) const {
    const std::int32_t n = n_;
    switch (x / n) {
    case 0:
        return {x + 5 * n, 0};
    case 1:
        return {6 * n - 1, x - n};
    case 2:
        return {8 * n - x - 1, n - 1};
    case 3:
        return {5 * n, 4 * n - x - 1};
    case 4:
        return {x - 4 * n, 0};
    default:
        return {8 * n - x - 1, n - 1};
    }
}

std::int32_t CubeSeams::copies(std::int32_t x, std::int32_t y, IPoint<2> (&out)[3]) const {
    std::int32_t count = 0;
    out[count++] = {x, y};
    const std::int32_t u = x % n_;
    if (u == 0) {
        out[count++] = acrossLeft(x, y);
    } else if (u == n_ - 1) {
        out[count++] = acrossRight(x, y);
    }
    if (y == 0) {
        out[count++] = acrossTop(x, y);
    } else if (y == n_ - 1) {
        out[count++] = acrossBottom(x, y);
    }
    std::sort(out, out + count,
              [](IPoint<2> a, IPoint<2> b) { return a.x != b.x ? a.x < b.x : a.y < b.y; });
    return count;
}

std::int32_t CubeSeams::nextCopy(std::int32_t& x, std::int32_t& y) const {
    IPoint<2> all[3];
    const std::int32_t count = copies(x, y, all);
    for (std::int32_t i = 0; i < count; ++i) {
        if (all[i] == IPoint<2>(x, y)) {
            const IPoint<2> next = all[(i + 1) % count];
            x = next.x;
            y = next.y;
            break;
        }
    }
    return count;
}

IPoint<2> CubeSeams::canonicalPixel(std::int32_t x, std::int32_t y) const {
    IPoint<2> all[3];
    copies(x, y, all);
    return all[0];
}
