#include "views/cameras/FaceSize.h"

#include "CameraTestViews.h"
#include "views/cameras/ViewProj.h"

#include <gtest/gtest.h>

#include <set>
#include <utility>
#include <vector>

using namespace cameratest;

namespace {

// The geometry of the faces, independent of the neighbour operations: the direction each
// pixel of a cube image looks along.
class CubeGeometry {
public:
    explicit CubeGeometry(int n) : n_(n), proj_(cubicRecord(), 6 * n, n) {}

    const FaceSize& faces() const { return proj_.faceSize(); }
    Vector<3> direction(IPoint<2> p) const { return proj_.pixelDirection(p.x, p.y).unit(); }
    bool sameDirection(IPoint<2> a, IPoint<2> b) const {
        return (direction(a) - direction(b)).length() < 1e-12;
    }
    /// Every pixel of the strip that looks the same way as p, by brute force.
    std::set<std::pair<int, int>> copiesOf(IPoint<2> p) const {
        std::set<std::pair<int, int>> all;
        for (int x = 0; x < 6 * n_; ++x) {
            for (int y = 0; y < n_; ++y) {
                if (sameDirection(p, {x, y})) {
                    all.insert({x, y});
                }
            }
        }
        return all;
    }
    int n() const { return n_; }

private:
    int n_;
    ViewProj proj_;
};

enum Step { left, right, up, down };
const IVector<2> stepVector[] = {{-1, 0}, {1, 0}, {0, -1}, {0, 1}};

bool step(const FaceSize& faces, Step s, IPoint<2>& p) {
    switch (s) {
    case left:
        return faces.stepLeft(p.x, p.y);
    case right:
        return faces.stepRight(p.x, p.y);
    case up:
        return faces.stepUp(p.x, p.y);
    case down:
        return faces.stepDown(p.x, p.y);
    }
    return false;
}

TEST(FaceSize, StepsAcrossEveryEdgeLandNextToTheCopyAndComeBack) {
    const CubeGeometry cube(5);
    const int n = cube.n();
    int crossings = 0;
    for (int x = 0; x < 6 * n; ++x) {
        for (int y = 0; y < n; ++y) {
            for (const Step s : {left, right, up, down}) {
                const IPoint<2> p(x, y);
                IPoint<2> q = p;
                const bool crossed = step(cube.faces(), s, q);
                const IPoint<2> plain = p + stepVector[s];
                const bool leavesFace =
                    plain.y < 0 || plain.y >= n || plain.x / n != x / n || plain.x < 0;
                ASSERT_EQ(crossed, leavesFace) << x << "," << y << " step " << s;
                if (!crossed) {
                    EXPECT_EQ(q, plain);
                    continue;
                }
                ++crossings;
                ASSERT_NE(q.x / n, x / n) << "a crossing changes face";
                // The copy of p on the new face is q's neighbour.
                IPoint<2> copy(-1, -1);
                for (const Step t : {left, right, up, down}) {
                    const IPoint<2> c = q + stepVector[t];
                    if (c.x / n == q.x / n && c.y >= 0 && c.y < n && c.x >= 0 &&
                        cube.sameDirection(c, p)) {
                        copy = c;
                        // Going back: onto the copy, then across to one in from p.
                        IPoint<2> back = q;
                        EXPECT_FALSE(step(cube.faces(), t, back));
                        EXPECT_EQ(back, c);
                        EXPECT_TRUE(step(cube.faces(), t, back));
                        const IPoint<2> inward(p.x - stepVector[s].x, p.y - stepVector[s].y);
                        EXPECT_EQ(back, inward) << "back from " << x << "," << y << " step " << s;
                    }
                }
                EXPECT_NE(copy, IPoint<2>(-1, -1)) << x << "," << y << " step " << s;
            }
        }
    }
    // Every face has 4 edges of n pixels, each crossed outwards once per pixel.
    EXPECT_EQ(crossings, 6 * 4 * n);
}

TEST(FaceSize, EachEdgePixelMeetsItsNeighbourWorkedByHand) {
    // n = 4, face s at x = 4s..4s+3. One pixel on each of the 24 face edges and, worked out
    // by hand from the face layout, the edge pixel it shares with the neighbouring face.
    struct Case {
        IPoint<2> pixel, across;
    };
    const Case cases[] = {
        {{0, 1}, {15, 1}},  {{3, 1}, {4, 1}},   {{1, 0}, {17, 3}},  {{1, 3}, {21, 0}},
        {{4, 1}, {3, 1}},   {{7, 1}, {8, 1}},   {{5, 0}, {19, 2}},  {{5, 3}, {23, 1}},
        {{8, 1}, {7, 1}},   {{11, 1}, {12, 1}}, {{9, 0}, {18, 0}},  {{9, 3}, {22, 3}},
        {{12, 1}, {11, 1}}, {{15, 1}, {0, 1}},  {{13, 0}, {16, 1}}, {{13, 3}, {20, 2}},
        {{16, 1}, {13, 0}}, {{19, 1}, {6, 0}},  {{17, 0}, {10, 0}}, {{17, 3}, {1, 0}},
        {{20, 1}, {14, 3}}, {{23, 1}, {5, 3}},  {{21, 0}, {1, 3}},  {{21, 3}, {10, 3}},
    };
    const FaceSize faces(4);
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.pixel.x << "," << c.pixel.y);
        IPoint<2> copies[3];
        ASSERT_EQ(faces.copies(c.pixel.x, c.pixel.y, copies), 2);
        const IPoint<2> other = copies[0] == c.pixel ? copies[1] : copies[0];
        EXPECT_EQ(other, c.across);
        std::int32_t x = c.pixel.x;
        std::int32_t y = c.pixel.y;
        EXPECT_EQ(faces.nextCopy(x, y), 2);
        EXPECT_EQ(IPoint<2>(x, y), c.across);
    }
}

TEST(FaceSize, CopiesAreThePixelsThatLookTheSameWay) {
    const CubeGeometry cube(6);
    const int n = cube.n();
    for (int x = 0; x < 6 * n; ++x) {
        for (int y = 0; y < n; ++y) {
            const auto expected = cube.copiesOf({x, y});
            IPoint<2> p(x, y);
            const int count = cube.faces().nextCopy(p.x, p.y);
            ASSERT_EQ(count, static_cast<int>(expected.size())) << x << "," << y;
            // count - 1 calls visit the other copies; one more comes back.
            std::set<std::pair<int, int>> visited = {{x, y}};
            IPoint<2> walk(x, y);
            for (int i = 1; i < count; ++i) {
                cube.faces().nextCopy(walk.x, walk.y);
                visited.insert({walk.x, walk.y});
            }
            EXPECT_EQ(visited, expected) << x << "," << y;
            cube.faces().nextCopy(walk.x, walk.y);
            EXPECT_EQ(walk, IPoint<2>(x, y));

            const IPoint<2> least = cube.faces().canonicalPixel(x, y);
            EXPECT_EQ(std::make_pair(least.x, least.y), *expected.begin());
        }
    }
    // Inside a face, on an edge, at a corner.
    const FaceSize& faces = cube.faces();
    int x = 8, y = 3;
    EXPECT_EQ(faces.nextCopy(x, y), 1);
    x = 8;
    y = 0;
    EXPECT_EQ(faces.nextCopy(x, y), 2);
    x = 6;
    y = 5;
    EXPECT_EQ(faces.nextCopy(x, y), 3);
}

TEST(FaceSize, WindowOfARadiusOnEachFace) {
    const FaceSize faces(20);
    struct Case {
        const char* what;
        int x, y, radius;
        IExtent<2> windows[6];
    } cases[] = {
        {"inside face 0", 10, 10, 3, {{7, 7, 13, 13}, {}, {}, {}, {}, {}}},
        // Two columns from face 0's left edge: the strip continues on face 3 beyond its
        // shared last column (79), which is face 0's first.
        {"near face 0's left edge", 2, 10, 7, {{0, 3, 9, 17}, {}, {}, {74, 3, 78, 17}, {}, {}}},
        // Face 3's top row meets face 4's left column: it is taken once, in face 4.
        {"near face 0's top left corner",
         1,
         1,
         3,
         {{0, 0, 4, 4}, {}, {}, {77, 1, 78, 4}, {80, 17, 84, 18}, {}}},
        // Face 4's left edge meets face 3's top row, turned: face 4's rows run along face
        // 3's columns.
        {"near face 4's left edge", 81, 10, 3, {{}, {}, {}, {67, 1, 73, 2}, {80, 7, 84, 13}, {}}},
        {"on face 1's right edge", 39, 10, 2, {{}, {37, 8, 39, 12}, {41, 8, 42, 12}, {}, {}, {}}},
    };
    for (const Case& c : cases) {
        for (int face = 0; face < 6; ++face) {
            EXPECT_EQ(faces.faceWindow(c.x, c.y, c.radius, face), c.windows[face])
                << c.what << ", face " << face;
        }
    }
}

TEST(FaceSize, WindowsCoverEachDirectionOnce) {
    // Across the faces the windows hold no pixel twice: an edge pixel belongs to its own
    // face's window and not to the neighbour's.
    const FaceSize faces(12);
    for (const IPoint<2> centre : {IPoint<2>(1, 1), IPoint<2>(12, 6), IPoint<2>(59, 11)}) {
        std::set<std::pair<int, int>> seen;
        int total = 0;
        for (int face = 0; face < 6; ++face) {
            const IExtent<2> w = faces.faceWindow(centre.x, centre.y, 4, face);
            for (int y = w.lo().y; y <= w.hi().y && !w.degenerate(); ++y) {
                for (int x = w.lo().x; x <= w.hi().x; ++x) {
                    ASSERT_EQ(faces.faceOf(x), face);
                    const IPoint<2> key = faces.canonicalPixel(x, y);
                    seen.insert({key.x, key.y});
                    ++total;
                }
            }
        }
        EXPECT_EQ(static_cast<int>(seen.size()), total) << centre.x << "," << centre.y;
    }
}

} // namespace
