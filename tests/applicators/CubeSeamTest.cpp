// Dabs on cube images: the faces around a face unfolded about it, a dab at a seam that
// goes on over it onto the neighbouring face (both sides alike, as the camera sees them),
// and a stroke across the seam that closes the strip's ring, with its undo.

#include "applicators/BrushApplicator.h"
#include "applicators/FaceUnfolding.h"

#include "image/DocumentCommands.h"
#include "pipeline/LinearRecolour.h"
#include "pipeline/ToolSelection.h"
#include "support/RoomScene.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using test::RoomScene;

constexpr ColourPOD white{255, 255, 255};

TEST(FaceUnfolding, NeighbourPixelsUnfoldOntoTheEdgeAndBackToThemselves) {
    const std::int32_t n = 8;
    const FaceSize faces(n);
    const FaceUnfolding unfolding(faces);
    ASSERT_TRUE(unfolding.valid());
    for (std::int32_t face = 0; face < 6; ++face) {
        int neighbours = 0;
        for (std::int32_t other = 0; other < 6; ++other) {
            IPoint<2> at;
            IVector<2> step;
            const bool reached = unfolding.unfold(face, other * n, 0, at, step);
            neighbours += reached && other != face;
            if (!reached) {
                continue;
            }
            for (std::int32_t y = 0; y < n; ++y) {
                for (std::int32_t x = other * n; x < other * n + n; ++x) {
                    ASSERT_TRUE(unfolding.unfold(face, x, y, at, step));
                    // Every pixel of a reached face comes back from its unfolded place.
                    std::vector<IExtent<2>> pieces;
                    unfolding.pieces(face, IExtent<2>(at), pieces);
                    bool back = false;
                    for (const IExtent<2>& e : pieces) {
                        back = back || e == IExtent<2>(IPoint<2>(x, y));
                    }
                    EXPECT_TRUE(back) << face << ": " << x << "," << y;
                    // The row runs in a straight line in the unfolded plane.
                    IPoint<2> next;
                    IVector<2> unused;
                    if (x + 1 < other * n + n) {
                        ASSERT_TRUE(unfolding.unfold(face, x + 1, y, next, unused));
                        EXPECT_EQ(next, at + step);
                    }
                    // A copy of one of the face's own edge pixels lies on that pixel.
                    IPoint<2> copies[3];
                    const int count = faces.copies(x, y, copies);
                    for (int i = 0; i < count && other != face; ++i) {
                        if (faces.faceOf(copies[i].x) == face) {
                            EXPECT_EQ(at, copies[i]) << face << ": " << x << "," << y;
                        }
                    }
                }
            }
        }
        EXPECT_EQ(neighbours, 4) << "face " << face;
    }
    EXPECT_FALSE(FaceUnfolding(FaceSize(3)).valid());
}

class CubeBrush : public testing::Test {
protected:
    static constexpr std::int32_t n = 48;

    void SetUp() override {
        selection().reset();
        selection().recolour = TQL::makeHandle<LinearRecolour>(255, 0, 255, 1.0f);
        room_ = RoomScene::make(RoomScene::View::cubic, 6 * n, n);
        // A white cube, so that equal coverage shows as equal colour on every face.
        TileHandle hold;
        for (std::int32_t y = 0; y < n; ++y) {
            for (std::int32_t x = 0; x < 6 * n; ++x) {
                *doc().rgbWrite(x, y, hold) = white;
            }
        }
        hold.reset();
        doc().commitOriginals();
    }
    void TearDown() override { selection().reset(); }
    static ToolSelection& selection() { return ToolSelection::instance(); }
    ZmapDocument& doc() { return *room_.document; }

    void paint(const std::vector<StrokePoint>& points, std::int32_t radius, int hardness) {
        BrushSettings s;
        s.size = radius;
        s.hardness = hardness;
        s.spacing = 0.25;
        Status st = status::ok;
        std::wstring message;
        auto brush = BrushApplicator::create(s, st, message);
        ASSERT_EQ(st, status::ok);
        selection().selectApplicator(brush);
        ASSERT_EQ(doc().editor.runStroke(points, nullptr), status::ok);
    }
    bool painted(std::int32_t x, std::int32_t y) { return !(doc().rgbAt(x, y) == white); }
    std::int32_t paintedOnFace(std::int32_t face) {
        std::int32_t count = 0;
        for (std::int32_t y = 0; y < n; ++y) {
            for (std::int32_t x = face * n; x < face * n + n; ++x) {
                count += painted(x, y);
            }
        }
        return count;
    }
    std::vector<ColourPOD> pixels() {
        std::vector<ColourPOD> out;
        for (std::int32_t y = 0; y < n; ++y) {
            for (std::int32_t x = 0; x < 6 * n; ++x) {
                out.push_back(doc().rgbAt(x, y));
            }
        }
        return out;
    }

    RoomScene room_;
};

TEST_F(CubeBrush, DabOnAFaceEdgePaintsBothFacesAlikeAcrossTheSeam) {
    // For each seam: the dab's centre (an edge pixel of `home`), and the pixel k steps from
    // the edge on the home face and on the neighbour (k = 0: the edge pixel and its copy),
    // at offset t along the edge. On either side of a seam the camera sees the two pixels
    // k steps from it as mirror images, so a round dab centred on the seam gives them the
    // same colour.
    struct Seam {
        const char* name;
        IPoint<2> centre;
        std::int32_t home;
        std::int32_t neighbour;
        IPoint<2> (*onHome)(std::int32_t k, std::int32_t t);
        IPoint<2> (*onNeighbour)(std::int32_t k, std::int32_t t);
    };
    const Seam seams[] = {
        {"front|right",
         {n - 1, n / 2},
         0,
         1,
         [](std::int32_t k, std::int32_t t) { return IPoint<2>(n - 1 - k, n / 2 + t); },
         [](std::int32_t k, std::int32_t t) { return IPoint<2>(n + k, n / 2 + t); }},
        {"left|front (the strip's ends)",
         {4 * n - 1, n / 2},
         3,
         0,
         [](std::int32_t k, std::int32_t t) { return IPoint<2>(4 * n - 1 - k, n / 2 + t); },
         [](std::int32_t k, std::int32_t t) { return IPoint<2>(k, n / 2 + t); }},
        {"front|up",
         {n / 2, 0},
         0,
         4,
         [](std::int32_t k, std::int32_t t) { return IPoint<2>(n / 2 + t, k); },
         [](std::int32_t k, std::int32_t t) { return IPoint<2>(4 * n + n / 2 + t, n - 1 - k); }},
    };
    const std::int32_t radius = 7;
    for (const Seam& seam : seams) {
        SetUp();
        paint({{seam.centre.x, seam.centre.y, 1.0f, 0}}, radius, 40);
        std::int32_t crossed = 0;
        for (std::int32_t t = -radius - 1; t <= radius + 1; ++t) {
            for (std::int32_t k = 0; k <= radius + 1; ++k) {
                const IPoint<2> h = seam.onHome(k, t);
                const IPoint<2> o = seam.onNeighbour(k, t);
                EXPECT_EQ(doc().rgbAt(h.x, h.y), doc().rgbAt(o.x, o.y))
                    << seam.name << ": k " << k << ", t " << t;
                crossed += k > 0 && painted(o.x, o.y);
            }
        }
        // The dab reaches well over the seam, and its centre row is painted on both
        // sides up to its radius (no cut at the edge).
        EXPECT_GT(crossed, radius * radius) << seam.name;
        for (std::int32_t k = 0; k < radius - 1; ++k) {
            EXPECT_TRUE(painted(seam.onNeighbour(k, 0).x, seam.onNeighbour(k, 0).y))
                << seam.name << ": k " << k;
        }
        for (std::int32_t face = 0; face < 6; ++face) {
            if (face != seam.home && face != seam.neighbour) {
                EXPECT_EQ(paintedOnFace(face), 0) << seam.name << ": face " << face;
            }
        }
        TearDown();
    }
}

TEST_F(CubeBrush, StrokeAcrossTheRingsSeamStaysNearItAndUndoRestoresEveryPixel) {
    const auto before = pixels();
    // From the left face to the front face over the seam at the strip's ends: on the cube
    // they are neighbours, though the strip puts them apart.
    const std::int32_t y = n / 2;
    paint({{4 * n - 12, y, 1.0f, 0}, {4 * n - 4, y, 1.0f, 0}, {4, y, 1.0f, 0}, {12, y, 1.0f, 0}}, 4,
          80);
    EXPECT_EQ(paintedOnFace(1), 0) << "the stroke went the long way round the strip";
    EXPECT_EQ(paintedOnFace(2), 0);
    // No gap: the stroke's middle row is painted all the way from one end to the other.
    for (std::int32_t x = 4 * n - 12; x < 4 * n; ++x) {
        EXPECT_TRUE(painted(x, y)) << x;
    }
    for (std::int32_t x = 0; x <= 12; ++x) {
        EXPECT_TRUE(painted(x, y)) << x;
    }
    Status st = status::ok;
    doc().editor.execute(st, commandUndo, CommandArgument());
    ASSERT_EQ(st, status::ok);
    EXPECT_EQ(pixels(), before);
}

} // namespace
