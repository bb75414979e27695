// A light's shadow test through its tree must answer as trying every triangle would, at
// every point: on the triangles' faces, edges and corners, between them and beside them.

#include "interchange/render/ShadowCaster.h"

#include "core/Angle.h"

#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cmath>
#include <functional>
#include <limits>
#include <random>
#include <thread>
#include <vector>

namespace {

using Triangle = std::array<Point<3>, 3>;

/// Every triangle tried: the answer the tree must give.
bool blockedByAny(const ShadowCaster& caster, const Point<3>& q, std::uint32_t owner) {
    const double limit = caster.limitAt(q);
    for (const ShadowTriangle& t : caster.triangles()) {
        if (t.blocks(q.x(), q.y(), limit, owner)) {
            return true;
        }
    }
    return false;
}

Point<3> lerp(const Point<3>& a, const Point<3>& b, double f) {
    return a + (b - a) * f;
}

/// Random scenes of different make-up, all in the box [-50, 50]^2 x [0, 40].
/// A town of side x side boxes on a ground, as a renderer's models are: walls and roofs
/// share edges.
std::vector<Triangle> town(std::mt19937& random, int side) {
    std::uniform_real_distribution<double> tall(0.5, 30);
    const double pitch = 96.0 / side, box = pitch * 5 / 8;
    std::vector<Triangle> out = {Triangle{{{-50, -50, 0}, {50, -50, 0}, {50, 50, 0}}},
                                 Triangle{{{-50, -50, 0}, {50, 50, 0}, {-50, 50, 0}}}};
    for (int j = 0; j < side; ++j) {
        for (int i = 0; i < side; ++i) {
            const double x = -48 + pitch * i, y = -48 + pitch * j, h = tall(random);
            const double e = x + box, n = y + box;
            const Point<3> c[8] = {{x, y, 0}, {e, y, 0}, {e, n, 0}, {x, n, 0},
                                   {x, y, h}, {e, y, h}, {e, n, h}, {x, n, h}};
            const int faces[10][3] = {{4, 5, 6}, {4, 6, 7}, {0, 1, 5}, {0, 5, 4}, {1, 2, 6},
                                      {1, 6, 5}, {2, 3, 7}, {2, 7, 6}, {3, 0, 4}, {3, 4, 7}};
            for (const auto& f : faces) {
                out.push_back({c[f[0]], c[f[1]], c[f[2]]});
            }
        }
    }
    return out;
}

std::vector<Triangle> boxes(std::mt19937& random) {
    return town(random, 12);
}

std::vector<Triangle> cloud(std::mt19937& random) {
    // Overlapping triangles of every size, from a hundredth of the scene to all of it.
    std::uniform_real_distribution<double> across(-50, 50), up(0, 40), scale(-4.6, 0);
    std::vector<Triangle> out;
    for (int i = 0; i < 1500; ++i) {
        const Point<3> c(across(random), across(random), up(random));
        const double s = 50 * std::exp(scale(random));
        std::uniform_real_distribution<double> near(-s, s);
        out.push_back({c + Vector<3>(near(random), near(random), near(random) / 2),
                       c + Vector<3>(near(random), near(random), near(random) / 2),
                       c + Vector<3>(near(random), near(random), near(random) / 2)});
    }
    return out;
}

std::vector<Triangle> slivers(std::mt19937& random) {
    // Long thin triangles and ones nearly edge on to the light (straight down here), whose
    // footprints are sharp or hard to box, over a fan of triangles meeting at one point.
    std::uniform_real_distribution<double> across(-50, 50), up(0, 40), thin(1e-9, 1e-3);
    std::vector<Triangle> out;
    for (int i = 0; i < 300; ++i) {
        const Point<3> a(across(random), across(random), up(random));
        const Point<3> b(across(random), across(random), up(random));
        const double t = thin(random);
        out.push_back({a, b, lerp(a, b, 0.5) + Vector<3>(t, -t, 1)});
        out.push_back({a, b, lerp(a, b, 0.3) + Vector<3>(t * t, t, 0)});
    }
    const int spokes = 40;
    for (int i = 0; i < spokes; ++i) {
        const double a0 = 2 * 3.14159265358979 * i / spokes,
                     a1 = 2 * 3.14159265358979 * (i + 1) / spokes;
        out.push_back({Point<3>(0, 0, 20), Point<3>(40 * std::cos(a0), 40 * std::sin(a0), 25),
                       Point<3>(40 * std::cos(a1), 40 * std::sin(a1), 25)});
    }
    return out;
}

std::vector<Triangle> stairs(std::mt19937&) {
    // Long slanted strips, each a step above the last and meeting it edge to edge as the
    // light sees them, over a ground: a strip's box covers many nodes that the strip
    // misses, and a point on a strip's edge is blocked by the step above.
    std::vector<Triangle> out = {Triangle{{{-50, -50, 0}, {50, -50, 0}, {50, 50, 0}}},
                                 Triangle{{{-50, -50, 0}, {50, 50, 0}, {-50, 50, 0}}}};
    for (int i = 0; i < 20; ++i) {
        const double x = -40, y = -50 + 4 * i, h = 10 + 0.5 * i;
        const Point<3> a(x, y, h), b(x + 80, y + 30, h), c(x + 80, y + 34, h), d(x, y + 4, h);
        out.push_back({a, b, c});
        out.push_back({a, c, d});
    }
    return out;
}

struct SceneCase {
    const char* name;
    std::function<std::vector<Triangle>(std::mt19937&)> make;
    Angle azimuth, altitude;
};

/// The ways the tree may scan its lists on this processor: one block at a time, and two
/// at once where the processor can. Trees built while one is in force use it; the guard
/// puts the default back.
struct ScanWays {
    std::vector<bool> ways{false};
    ScanWays() {
        ShadowTree::allowWideScan(true);
        ShadowTree probe;
        probe.build({}, 0, 1);
        if (probe.scansWide()) {
            ways.push_back(true);
        }
    }
    ~ScanWays() { ShadowTree::allowWideScan(true); }
};

TEST(ShadowCaster, TreeAnswersAsTryingEveryTriangle) {
    const ScanWays scanWays;
    const SceneCase cases[] = {
        {"boxes, low sun", boxes, Angle::degrees(240), Angle::degrees(-35)},
        {"boxes, sun overhead", boxes, Angle::degrees(10), Angle::degrees(-90)},
        {"cloud", cloud, Angle::degrees(75), Angle::degrees(-50)},
        {"slivers", slivers, Angle::degrees(0), Angle::degrees(-90)},
        {"slivers, slanted", slivers, Angle::degrees(130), Angle::degrees(-20)},
        {"stairs, sun overhead", stairs, Angle::degrees(0), Angle::degrees(-90)},
        {"stairs, low sun", stairs, Angle::degrees(300), Angle::degrees(-40)},
    };
    for (const SceneCase& c : cases) {
        for (const unsigned threads : {1u, 2u}) {
            // The build on two threads scans wide where the processor can.
            const bool wide = scanWays.ways[(threads - 1) % scanWays.ways.size()];
            SCOPED_TRACE(testing::Message()
                         << c.name << ", " << threads << " threads" << (wide ? ", wide scan" : ""));
            ShadowTree::allowWideScan(wide);
            std::mt19937 random(17);
            const std::vector<Triangle> scene = c.make(random);
            Extent<3> bounds;
            for (const Triangle& t : scene) {
                for (const Point<3>& p : t) {
                    bounds += p;
                }
            }
            ShadowCaster caster(Ray(Point<3>::m_origin, c.azimuth, c.altitude), bounds, 0.002);
            for (std::uint32_t i = 0; i < scene.size(); ++i) {
                caster.add(scene[i][0], scene[i][1], scene[i][2], i);
            }
            caster.build(threads);

            // Points on the triangles (inside, on edges and at corners) as their own, and
            // anywhere in the scene's box as no triangle's; one running hint, as a
            // renderer keeps it.
            std::uniform_real_distribution<double> unit(0, 1);
            std::uniform_int_distribution<std::size_t> pick(0, scene.size() - 1);
            ShadowCaster::Hint hint;
            int blocked = 0, lit = 0, wrong = 0;
            for (int n = 0; n < 20000; ++n) {
                Point<3> p;
                std::uint32_t owner = 0xFFFFFFF0u;
                if (n % 4 == 3) {
                    const Vector<3> size = bounds.size();
                    p = bounds.lo() + Vector<3>(size.x() * unit(random), size.y() * unit(random),
                                                size.z() * unit(random));
                } else {
                    owner = static_cast<std::uint32_t>(pick(random));
                    const Triangle& t = scene[owner];
                    double u = unit(random), v = unit(random);
                    if (n % 4 == 1) {
                        v = 0; // on an edge
                    } else if (n % 4 == 2 && n % 8 == 2) {
                        u = v = 0; // at a corner
                    }
                    if (u + v > 1) {
                        u = 1 - u;
                        v = 1 - v;
                    }
                    p = t[0] + (t[1] - t[0]) * u + (t[2] - t[0]) * v;
                }
                const Point<3> q = caster.toLight(p);
                const bool expected = blockedByAny(caster, q, owner);
                const bool got = caster.blocked(q, owner, hint);
                wrong += got != expected;
                (expected ? blocked : lit)++;
            }
            EXPECT_EQ(wrong, 0);
            // Both answers were asked for often enough to matter.
            EXPECT_GT(blocked, 1000);
            EXPECT_GT(lit, 1000);

            // Points beyond a triangle along the light by about the bias, so that it
            // blocks them or just fails to, some on its edges: where rounding in a quick
            // test could tip the answer.
            const Point<3> probe = caster.toLight(bounds.centre());
            const double bias = probe.z() - caster.limitAt(probe);
            int near = 0, nearWrong = 0;
            for (int n = 0; n < 6000; ++n) {
                const Triangle& t = scene[pick(random)];
                double u = unit(random), v = n % 3 == 0 ? 0 : unit(random);
                if (u + v > 1) {
                    u = 1 - u;
                    v = 1 - v;
                }
                Point<3> q = caster.toLight(t[0] + (t[1] - t[0]) * u + (t[2] - t[0]) * v);
                const double beyond = bias * (1 + (n % 7 - 3) * 1e-9);
                q = Point<3>(q.x(), q.y(), q.z() + beyond);
                const bool expected = blockedByAny(caster, q, 0xFFFFFFF0u);
                nearWrong += caster.blocked(q, 0xFFFFFFF0u, hint) != expected;
                near += expected;
            }
            EXPECT_EQ(nearWrong, 0);
            EXPECT_GT(near, 1000);
            EXPECT_EQ(caster.tree().scansWide(), wide);
        }
    }
}

TEST(ShadowCaster, PointsOnSharedEdgesAndBesideTheModel) {
    // Two triangles sharing an edge under a floor-wide one: the gap between them lets no
    // light through, and beyond the model nothing is blocked.
    ShadowCaster caster(Ray(Point<3>::m_origin, Angle::degrees(0), Angle::degrees(-90)),
                        Extent<3>(Point<3>(-10, -10, 0), Point<3>(10, 10, 5)), 0.002);
    caster.add({-2, -2, 5}, {2, -2, 5}, {2, 2, 5}, 0);
    caster.add({-2, -2, 5}, {2, 2, 5}, {-2, 2, 5}, 1);
    caster.add({-10, -10, 0}, {10, -10, 0}, {10, 10, 0}, 2);
    caster.build(1);
    ShadowCaster::Hint hint;
    for (int i = 0; i <= 400; ++i) {
        const double f = -2 + i / 100.0;
        EXPECT_TRUE(caster.blocked(caster.toLight(Point<3>(f, f, 0)), 2, hint)) << f;
        hint = {};
    }
    EXPECT_FALSE(caster.blocked(caster.toLight(Point<3>(2.01, 0, 0)), 2, hint));
    EXPECT_FALSE(caster.blocked(caster.toLight(Point<3>(30, 30, 0)), 5, hint));
    // A triangle doesn't shadow itself, nor what lies nearer the light than it.
    EXPECT_FALSE(caster.blocked(caster.toLight(Point<3>(1, 0, 5)), 0, hint));
    EXPECT_FALSE(caster.blocked(caster.toLight(Point<3>(1, 0, 6)), 7, hint));
}

/// The box around a scene's triangles.
Extent<3> boundsOf(const std::vector<Triangle>& scene) {
    Extent<3> bounds;
    for (const Triangle& t : scene) {
        for (const Point<3>& p : t) {
            bounds += p;
        }
    }
    return bounds;
}

/// `count` points spread evenly at random through `bounds`.
std::vector<Point<3>> pointsWithin(const Extent<3>& bounds, int count, std::mt19937& random) {
    std::vector<Point<3>> points;
    std::uniform_real_distribution<double> unit(0, 1);
    const Vector<3> size = bounds.size();
    for (int n = 0; n < count; ++n) {
        points.push_back(bounds.lo() + Vector<3>(size.x() * unit(random), size.y() * unit(random),
                                                 size.z() * unit(random)));
    }
    return points;
}

TEST(ShadowCaster, LargeTreeAnswersAlikeOnAnyCountOfThreads) {
    // Enough triangles for the build to share its sorting, counting and placing out among
    // up to three threads: every share must give the lists that one thread gives.
    std::mt19937 random(5);
    const std::vector<Triangle> scene = town(random, 36);
    ASSERT_GT(scene.size(), 12288u);
    const Extent<3> bounds = boundsOf(scene);
    const std::vector<Point<3>> points = pointsWithin(bounds, 1200, random);
    std::size_t entries = 0;
    const ScanWays scanWays;
    for (const unsigned threads : {1u, 2u, 3u}) {
        // Each count of threads with another way of scanning, both ways at least once.
        const bool wide = scanWays.ways[threads % scanWays.ways.size()];
        ShadowTree::allowWideScan(wide);
        SCOPED_TRACE(testing::Message() << threads << " threads" << (wide ? ", wide scan" : ""));
        ShadowCaster caster(Ray(Point<3>::m_origin, Angle::degrees(250), Angle::degrees(-30)),
                            bounds, 0.002);
        for (std::uint32_t i = 0; i < scene.size(); ++i) {
            caster.add(scene[i][0], scene[i][1], scene[i][2], i);
        }
        caster.build(threads);
        if (threads == 1) {
            entries = caster.tree().entryCount();
        }
        EXPECT_EQ(caster.tree().entryCount(), entries);
        ShadowCaster::Hint hint;
        int blocked = 0, wrong = 0;
        for (const Point<3>& p : points) {
            const Point<3> q = caster.toLight(p);
            const bool expected = blockedByAny(caster, q, 0xFFFFFFF0u);
            wrong += caster.blocked(q, 0xFFFFFFF0u, hint) != expected;
            blocked += expected;
        }
        EXPECT_EQ(wrong, 0);
        // Both answers were asked for often enough to matter.
        EXPECT_GT(blocked, 200);
        EXPECT_LT(blocked, 1000);
    }
}

TEST(ShadowTree, LimitsRoundToTheNeighbouringFloats) {
    // The rounding of a limit to floats is done on the bits; it must give the floats that
    // stepping with nextafter gives, across signs, zero, the smallest and largest floats.
    std::vector<double> values = {0.0,
                                  -0.0,
                                  1e-300,
                                  -1e-300,
                                  1e-45,
                                  -1e-45,
                                  1.0,
                                  -1.0,
                                  0.1,
                                  -0.1,
                                  3.4028234663852886e38,
                                  3.5e38,
                                  -3.5e38,
                                  INFINITY,
                                  -INFINITY,
                                  static_cast<double>(std::numeric_limits<float>::min()) / 3};
    std::mt19937 random(3);
    std::uniform_real_distribution<double> spread(-40, 40);
    for (int n = 0; n < 2000; ++n) {
        const double v = std::ldexp(spread(random), static_cast<int>(spread(random) * 3));
        values.push_back(v);
        values.push_back(static_cast<double>(static_cast<float>(v)));
    }
    for (const double v : values) {
        const float f = static_cast<float>(v);
        const float down = static_cast<double>(f) > v ? std::nextafter(f, -INFINITY) : f;
        const float up = static_cast<double>(f) < v ? std::nextafter(f, INFINITY) : f;
        const bool same = std::bit_cast<std::uint32_t>(ShadowTree::roundedDown(v)) ==
                              std::bit_cast<std::uint32_t>(down) &&
                          std::bit_cast<std::uint32_t>(ShadowTree::roundedUp(v)) ==
                              std::bit_cast<std::uint32_t>(up);
        EXPECT_TRUE(same) << v;
        EXPECT_LE(static_cast<double>(ShadowTree::roundedDown(v)), v);
        EXPECT_GE(static_cast<double>(ShadowTree::roundedUp(v)), v);
    }
}

/// Whether two casters hold the same triangles, field for field, in the same order.
void expectSameTriangles(const ShadowCaster& a, const ShadowCaster& b) {
    ASSERT_EQ(a.triangles().size(), b.triangles().size());
    std::size_t differ = 0;
    for (std::size_t i = 0; i < a.triangles().size(); ++i) {
        const ShadowTriangle& s = a.triangles()[i];
        const ShadowTriangle& t = b.triangles()[i];
        bool same = s.owner == t.owner && s.dzdx == t.dzdx && s.dzdy == t.dzdy && s.z0 == t.z0;
        for (int k = 0; k < 3; ++k) {
            for (int c = 0; c < 3; ++c) {
                same = same && s.edge[k][c] == t.edge[k][c];
            }
        }
        differ += !same;
    }
    EXPECT_EQ(differ, 0u);
}

TEST(ShadowCaster, PartsFilledOnThreadsJoinAsAddedInOrder) {
    // A town with triangles edge on to the light among it (which leave their slots empty)
    // and, in the second case, some that add two pieces (as a triangle cut by the section
    // box does), more than their parts have slots for.
    std::mt19937 random(9);
    const std::vector<Triangle> scene = town(random, 14);
    const Ray light(Point<3>::m_origin, Angle::degrees(0), Angle::degrees(-90));
    const Extent<3> bounds = boundsOf(scene);
    const std::vector<Point<3>> points = pointsWithin(bounds, 400, random);
    for (const bool twoPieces : {false, true}) {
        SCOPED_TRACE(twoPieces ? "some triangles add two pieces" : "one piece or none each");
        // Triangle i adds itself, and, every fifth in the second case, its half once more.
        auto addOf = [&](std::uint32_t i, auto&& add) {
            const Triangle& t = scene[i];
            add(t[0], t[1], t[2], i);
            if (twoPieces && i % 5 == 0) {
                add(t[0], t[1], lerp(t[1], t[2], 0.5), i);
            }
        };
        ShadowCaster inOrder(light, bounds, 0.002);
        for (std::uint32_t i = 0; i < scene.size(); ++i) {
            addOf(i, [&](const Point<3>& a, const Point<3>& b, const Point<3>& c,
                         std::uint32_t owner) { inOrder.add(a, b, c, owner); });
        }
        // Seen from straight above, the walls are edge on: they hide nothing.
        ASSERT_LT(inOrder.triangles().size(), scene.size());
        inOrder.build();

        for (const std::size_t parts : {std::size_t(1), std::size_t(2), std::size_t(7)}) {
            SCOPED_TRACE(testing::Message() << parts << " parts");
            ShadowCaster inParts(light, bounds, 0.002);
            inParts.openParts(scene.size(), parts);
            // Two threads take the parts in turn, the later parts first on one of them.
            auto fill = [&](std::size_t first, std::size_t step) {
                for (std::size_t p = first; p < parts; p += step) {
                    const std::size_t end = inParts.partStart(p + 1);
                    for (std::size_t i = inParts.partStart(p); i < end; ++i) {
                        addOf(static_cast<std::uint32_t>(i),
                              [&](const Point<3>& a, const Point<3>& b, const Point<3>& c,
                                  std::uint32_t owner) { inParts.add(p, a, b, c, owner); });
                    }
                }
            };
            std::thread other(fill, 1, 2);
            fill(0, 2);
            other.join();
            inParts.closeParts();
            expectSameTriangles(inOrder, inParts);
            inParts.build(2);
            EXPECT_EQ(inParts.tree().entryCount(), inOrder.tree().entryCount());
            ShadowCaster::Hint hintA, hintB;
            int differ = 0;
            for (const Point<3>& p : points) {
                const Point<3> q = inOrder.toLight(p);
                differ += inOrder.blocked(q, 0xFFFFFFF0u, hintA) !=
                          inParts.blocked(q, 0xFFFFFFF0u, hintB);
            }
            EXPECT_EQ(differ, 0);
        }
    }
}

} // namespace
