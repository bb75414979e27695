// The fill through the document editor on rendered rooms of known geometry: each lock
// against what the scene says the pixels are, the whole-image fill, cube seams, stopping
// and undo.

#include "applicators/Filler.h"

#include "core/Reporter.h"
#include "image/DocumentCommands.h"
#include "image/UndoBuffer.h"
#include "pipeline/LinearRecolour.h"
#include "pipeline/Matte.h"
#include "pipeline/ToolSelection.h"
#include "support/RoomScene.h"
#include "views/cameras/ViewProj.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <vector>

namespace {

using test::RoomScene;

constexpr ColourPOD paint{255, 0, 255}; // b, g, r
constexpr ColourPOD untouched{};

class CountingView : public StrokeView {
public:
    void queueRedraw(const IExtent<2>& extent) override {
        ++redraws;
        all |= extent;
    }
    void copyToClipboard(const std::wstring&) override {}
    int redraws = 0;
    IExtent<2> all;
};

/// Says stop after a number of polls.
class StopAfter : public StopRequest {
public:
    explicit StopAfter(int polls) : left(polls) {}
    bool stopRequested() override { return --left < 0; }
    int left;
};

class RecordingFeedback : public ToolFeedback {
public:
    void prompt(std::uint32_t id) override { prompts.push_back(id); }
    void setPseudoCursor(const TQL::Handle<TQL::Handlable>&) override {}
    std::vector<std::uint32_t> prompts;
};

class Fill : public testing::Test {
protected:
    void SetUp() override {
        selection().reset();
        selection().recolour = TQL::makeHandle<LinearRecolour>(255, 0, 255, 1.0f);
    }
    void TearDown() override {
        TQL::setStopRequest(nullptr);
        selection().reset();
        selection().setFeedback(nullptr);
    }
    static ToolSelection& selection() { return ToolSelection::instance(); }

    /// Fills from (x, y) with the locks given (none: null) and returns the status.
    Status fill(ZmapDocument& document, std::int32_t x, std::int32_t y,
                const TQL::Handle<Matte>& matte, bool flood = true, StrokeView* view = nullptr) {
        selection().matting = matte;
        filler = TQL::makeHandle<Filler>(flood);
        selection().selectApplicator(filler);
        return document.editor.runStroke({StrokePoint{x, y, 1.0f, 0}}, view);
    }

    static TQL::Handle<Matte> locks(const MatteSettings& settings, std::uint32_t mask) {
        return TQL::makeHandle<Matte>(
            settings, (mask & Matte::lockPlaneBit) != 0, (mask & Matte::lockAngleBit) != 0,
            (mask & Matte::lockMaterialBit) != 0, (mask & Matte::lockColourBit) != 0);
    }

    /// 1 where the document's colour was painted.
    /// `blackBefore`: the document was black, so a pixel is painted or untouched.
    static std::vector<std::uint8_t> painted(const ZmapDocument& document,
                                             bool blackBefore = true) {
        std::vector<std::uint8_t> out;
        for (std::int32_t y = 0; y < document.height(); ++y) {
            for (std::int32_t x = 0; x < document.width(); ++x) {
                const ColourPOD c = document.rgbAt(x, y);
                EXPECT_TRUE(!blackBefore || c == paint || c == untouched) << x << "," << y;
                out.push_back(c == paint ? 1 : 0);
            }
        }
        return out;
    }

    static std::int64_t count(const std::vector<std::uint8_t>& mask) {
        std::int64_t n = 0;
        for (std::uint8_t m : mask) {
            n += m;
        }
        return n;
    }

    /// A pixel of piece `piece` well inside it (its 5 by 5 neighbourhood is the same piece).
    static IPoint<2> pixelOf(const RoomScene& room, int piece) {
        const std::int32_t w = room.document->width();
        const std::int32_t h = room.document->height();
        for (std::int32_t y = h / 2; y < h - 2; ++y) {
            for (std::int32_t x = 2; x < w - 2; ++x) {
                bool inside = true;
                for (std::int32_t dy = -2; dy <= 2 && inside; ++dy) {
                    for (std::int32_t dx = -2; dx <= 2 && inside; ++dx) {
                        inside = room.pieceAt(x + dx, y + dy) == piece;
                    }
                }
                if (inside) {
                    return {x, y};
                }
            }
        }
        ADD_FAILURE() << "no pixel of piece " << piece;
        return {0, 0};
    }

    TQL::Handle<Filler> filler;
};

struct ViewCase {
    RoomScene::View view;
    std::int32_t width;
    std::int32_t height;
    const char* name;
};

class FillViews : public Fill, public testing::WithParamInterface<ViewCase> {
protected:
    RoomScene room() const {
        return RoomScene::make(GetParam().view, GetParam().width, GetParam().height);
    }
};

TEST_P(FillViews, MaterialLockFillsTheMaterialThatTheFloodReaches) {
    RoomScene r = room();
    const IPoint<2> seed = pixelOf(r, RoomScene::floorPiece);
    MatteSettings settings;
    ASSERT_EQ(fill(*r.document, seed.x, seed.y, locks(settings, Matte::lockMaterialBit)),
              status::ok);
    const auto got = painted(*r.document);
    if (GetParam().view == RoomScene::View::cubic) {
        // Faces are joined through their seams, not through the strip: check the seed's own
        // face is filled and that the floor of other faces was reached.
        std::int64_t floorElsewhere = 0;
        const std::int32_t n = r.document->height();
        for (std::int32_t y = 0; y < n; ++y) {
            for (std::int32_t x = 0; x < r.document->width(); ++x) {
                const bool isFloor = r.document->matAt(x, y) == RoomScene::floorMaterial;
                const bool p = got[static_cast<std::size_t>(y) * r.document->width() + x] != 0;
                EXPECT_TRUE(!p || isFloor) << x << "," << y;
                floorElsewhere += p && x / n != seed.x / n;
            }
        }
        EXPECT_GT(floorElsewhere, 0);
        return;
    }
    const auto expected = r.connected(seed.x, seed.y, [&](std::int32_t x, std::int32_t y) {
        return r.document->matAt(x, y) == RoomScene::floorMaterial;
    });
    EXPECT_EQ(got, expected);
    EXPECT_GT(count(got), 100);
    EXPECT_EQ(filler->pixelsPainted(), count(expected));
}

TEST_P(FillViews, PlaneLockFillsTheFloorAlsoBeyondTheBox) {
    RoomScene r = room();
    const IPoint<2> seed = pixelOf(r, RoomScene::floorPiece);
    MatteSettings settings;
    settings.planeTolerancePercent = 1;
    ASSERT_EQ(fill(*r.document, seed.x, seed.y, locks(settings, Matte::lockPlaneBit)), status::ok);
    const auto got = painted(*r.document);
    const ViewProj& view = *r.document->viewProj();
    const auto floor = r.connected(seed.x, seed.y, [&](std::int32_t x, std::int32_t y) {
        return r.pieceAt(x, y) == RoomScene::floorPiece;
    });
    // A surface that meets the floor passes where it lies within the plane's tolerance:
    // 1% of the world step between pixels (0, 0) and (1, 1) at the far depth.
    const double tolerance = 0.01 * distance(view.worldFromPixel(0, 0, depth::farCode),
                                             view.worldFromPixel(1, 1, depth::farCode));
    std::int64_t beyondBox = 0;
    for (std::int32_t y = 0; y < r.document->height(); ++y) {
        for (std::int32_t x = 0; x < r.document->width(); ++x) {
            const std::size_t i = static_cast<std::size_t>(y) * r.document->width() + x;
            if (floor[i]) {
                EXPECT_TRUE(got[i]) << "floor pixel " << x << "," << y << " left out";
                // Floor seen beyond the box: the box's pixels lie below it in the same column.
                if (got[i] && r.pieceAt(x, std::min(y + 3, r.document->height() - 1)) >= 3) {
                    ++beyondBox;
                }
            } else if (got[i]) {
                // Only another surface's points that touch the floor may pass.
                const Point<3> p = view.worldFromPixel(x, y, r.document->zAt(x, y));
                EXPECT_LE(std::fabs(p.z()), tolerance)
                    << x << "," << y << " piece " << r.pieceAt(x, y);
            }
        }
    }
    if (GetParam().view != RoomScene::View::cubic) {
        EXPECT_GT(beyondBox, 0);
    }
}

TEST_P(FillViews, AngleLockTakesFloorAndBoxTopButNotTheWalls) {
    RoomScene r = room();
    const IPoint<2> seed = pixelOf(r, RoomScene::floorPiece);
    MatteSettings settings;
    settings.angleDegrees = 5;
    ASSERT_EQ(fill(*r.document, seed.x, seed.y, locks(settings, Matte::lockAngleBit)), status::ok);
    const auto got = painted(*r.document);
    // The floor the flood can reach (the side wall, seen edge on, cuts off what lies
    // beyond it).
    const auto reachable = r.connected(seed.x, seed.y, [&](std::int32_t x, std::int32_t y) {
        return r.pieceAt(x, y) == RoomScene::floorPiece;
    });
    std::int64_t floor = 0, floorPainted = 0, top = 0, topPainted = 0;
    const std::int32_t w = r.document->width();
    for (std::int32_t y = 1; y + 1 < r.document->height(); ++y) {
        for (std::int32_t x = 1; x + 1 < w; ++x) {
            const int piece = r.pieceAt(x, y);
            // Pixels at an edge between surfaces may go either way.
            const bool edge = r.pieceAt(x - 1, y) != piece || r.pieceAt(x + 1, y) != piece ||
                              r.pieceAt(x, y - 1) != piece || r.pieceAt(x, y + 1) != piece;
            const bool p = got[static_cast<std::size_t>(y) * w + x] != 0;
            if (edge) {
                continue;
            }
            if (piece == RoomScene::floorPiece) {
                if (!reachable[static_cast<std::size_t>(y) * w + x]) {
                    continue;
                }
                ++floor;
                floorPainted += p;
            } else if (piece == RoomScene::boxTop) {
                ++top;
                topPainted += p;
            } else {
                EXPECT_FALSE(p) << x << "," << y << " piece " << piece;
            }
        }
    }
    EXPECT_GT(floorPainted, floor * 99 / 100);
    ASSERT_GT(top, 0);
    EXPECT_EQ(topPainted, top) << "of " << top;
}

TEST_P(FillViews, InvertedPlaneLockFromTheBackgroundPaintsOnlyPixelsWithDepth) {
    RoomScene r = room();
    std::int32_t sx = -1, sy = -1;
    for (std::int32_t y = 0; y < r.document->height() && sx < 0; ++y) {
        for (std::int32_t x = 0; x < r.document->width() && sx < 0; ++x) {
            if (r.pieceAt(x, y) < 0) {
                sx = x;
                sy = y;
            }
        }
    }
    if (sx < 0) {
        GTEST_SKIP() << "no background in this view";
    }
    MatteSettings settings;
    settings.invert = true;
    ASSERT_EQ(fill(*r.document, sx, sy, locks(settings, Matte::lockPlaneBit), false), status::ok);
    const auto got = painted(*r.document);
    for (std::int32_t y = 0; y < r.document->height(); ++y) {
        for (std::int32_t x = 0; x < r.document->width(); ++x) {
            EXPECT_EQ(got[static_cast<std::size_t>(y) * r.document->width() + x] != 0,
                      r.pieceAt(x, y) >= 0)
                << x << "," << y;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Views, FillViews,
    testing::Values(ViewCase{RoomScene::View::perspective, 160, 120, "perspective"},
                    ViewCase{RoomScene::View::parallel, 150, 100, "parallel"},
                    ViewCase{RoomScene::View::cubic, 6 * 48, 48, "cubic"}),
    [](const testing::TestParamInfo<ViewCase>& info) { return std::string(info.param.name); });

TEST_F(Fill, MaterialListThatResolvesToNothingPaintsNothing) {
    RoomScene r = RoomScene::make(RoomScene::View::perspective, 96, 72);
    MatteSettings settings;
    settings.materialListMode = true;
    settings.materialNames = {L"Marble", L"Glass"};
    for (bool flood : {true, false}) {
        ASSERT_EQ(fill(*r.document, 40, 60, locks(settings, Matte::lockMaterialBit), flood),
                  status::ok);
        EXPECT_EQ(count(painted(*r.document)), 0) << "flood " << flood;
    }
    // Listed by name, the box and the side wall are painted wherever they are.
    settings.materialNames = {L"box", L"Side", L"Marble"};
    ASSERT_EQ(fill(*r.document, 0, 0, locks(settings, Matte::lockMaterialBit), false), status::ok);
    const auto got = painted(*r.document);
    for (std::int32_t y = 0; y < 72; ++y) {
        for (std::int32_t x = 0; x < 96; ++x) {
            const MaterialId m = r.document->matAt(x, y);
            EXPECT_EQ(got[static_cast<std::size_t>(y) * 96 + x] != 0,
                      m == RoomScene::boxMaterial || m == RoomScene::sideMaterial);
        }
    }
}

TEST_F(Fill, SeedOnAPixelThatFailsPaintsNothing) {
    RoomScene r = RoomScene::make(RoomScene::View::perspective, 96, 72);
    MatteSettings settings;
    settings.invert = true; // the seed's own material fails
    const IPoint<2> seed = pixelOf(r, RoomScene::floorPiece);
    ASSERT_EQ(fill(*r.document, seed.x, seed.y, locks(settings, Matte::lockMaterialBit)),
              status::ok);
    EXPECT_EQ(count(painted(*r.document)), 0);
    ASSERT_EQ(fill(*r.document, -5, 10, locks(settings, Matte::lockMaterialBit)), status::ok);
    EXPECT_EQ(count(painted(*r.document)), 0);
}

/// A document whose colour is a pattern: red = x, green = y, blue 128; and a block of
/// hues on the right.
std::unique_ptr<test::TestDocument> colourPattern() {
    auto document = test::makeTestDocument(200, 150);
    TileHandle hold;
    for (std::int32_t y = 0; y < 150; ++y) {
        for (std::int32_t x = 0; x < 200; ++x) {
            ColourPOD c{128, static_cast<std::uint8_t>(y), static_cast<std::uint8_t>(x)};
            if (x >= 160) {
                // Hue bands: pure red, a darker red of the same hue, and red turned slightly
                // towards yellow.
                c = y < 50    ? ColourPOD{0, 0, 255}
                    : y < 100 ? ColourPOD{0, 0, 120}
                              : ColourPOD{0, 6, 255};
            }
            *document->rgbWrite(x, y, hold) = c;
        }
    }
    hold.reset();
    document->commitOriginals();
    return document;
}

TEST_F(Fill, ColourLockInChannelModeHoldsItsRanges) {
    auto document = colourPattern();
    MatteSettings settings;
    settings.colourTolerance = 10;
    settings.channelOn[2] = false; // blue takes no part
    ASSERT_EQ(fill(*document, 50, 60, locks(settings, Matte::lockColourBit)), status::ok);
    const auto got = painted(*document, false);
    for (std::int32_t y = 0; y < 150; ++y) {
        for (std::int32_t x = 0; x < 160; ++x) {
            const bool inside = x >= 40 && x <= 60 && y >= 50 && y <= 70;
            EXPECT_EQ(got[static_cast<std::size_t>(y) * 200 + x] != 0, inside) << x << "," << y;
        }
    }
}

TEST_F(Fill, ColourLockInHueModeTakesTheExactHueAtToleranceZero) {
    auto document = colourPattern();
    MatteSettings settings;
    settings.colourMode = 1;
    settings.hueToleranceDegrees = 0;
    settings.lightnessOn = false;
    settings.saturationOn = false;
    ASSERT_EQ(fill(*document, 170, 10, locks(settings, Matte::lockColourBit), false), status::ok);
    const auto got = painted(*document, false);
    for (std::int32_t y = 0; y < 150; ++y) {
        for (std::int32_t x = 0; x < 200; ++x) {
            // Both reds share hue 0; the yellower one (1.4 degrees off) doesn't. In the
            // pattern, hue 0 is where green equals blue and red is not below them.
            const bool red = x >= 160 ? y < 100 : y == 128 && x >= 128;
            EXPECT_EQ(got[static_cast<std::size_t>(y) * 200 + x] != 0, red) << x << "," << y;
        }
    }
    // With lightness on, the darker red is no longer taken.
    settings.lightnessOn = true;
    settings.lightnessTolerancePercent = 5;
    document = colourPattern();
    ASSERT_EQ(fill(*document, 170, 10, locks(settings, Matte::lockColourBit), false), status::ok);
    const auto again = painted(*document, false);
    EXPECT_TRUE(again[static_cast<std::size_t>(10) * 200 + 170]);
    EXPECT_FALSE(again[static_cast<std::size_t>(70) * 200 + 170]);
}

TEST_F(Fill, FloodWithoutLocksFillsRowByRowWithOneUpdateATileHeight) {
    auto document = test::makeTestDocument(300, 200);
    CountingView view;
    RecordingFeedback feedback;
    selection().setFeedback(&feedback);
    ASSERT_EQ(fill(*document, 10, 10, nullptr, true, &view), status::ok);
    EXPECT_EQ(count(painted(*document)), 300 * 200);
    const std::int32_t tile = document->geometry().tileHeight;
    EXPECT_EQ(view.redraws, (200 + tile - 1) / tile);
    EXPECT_EQ(view.all, IExtent<2>(0, 0, 299, 199));
    EXPECT_EQ(filler->undoNameId(), 1247u);
    ASSERT_FALSE(feedback.prompts.empty());
    EXPECT_EQ(feedback.prompts.back(), 511u);
    filler->alternatePrompts = true;
    filler->ready();
    EXPECT_EQ(feedback.prompts.back(), 527u);
}

TEST_F(Fill, FloodCrossesCubeSeamsIntoNeighbouringFaces) {
    // A cube of one material everywhere: a flood from face 0 reaches all six faces, and the
    // shared edge pixels agree.
    const std::int32_t n = 40;
    RoomScene r = RoomScene::make(RoomScene::View::cubic, 6 * n, n);
    TileHandle hold;
    for (std::int32_t y = 0; y < n; ++y) {
        for (std::int32_t x = 0; x < 6 * n; ++x) {
            *r.document->matWrite(x, y, hold) = 7;
        }
    }
    hold.reset();
    r.document->commitOriginals();
    MatteSettings settings;
    ASSERT_EQ(fill(*r.document, n / 2, n / 2, locks(settings, Matte::lockMaterialBit)), status::ok);
    EXPECT_EQ(count(painted(*r.document)), 6 * n * n);

    // Only face 0 and face 4 (above it) of material 7: the flood must go through the seam
    // at face 0's top edge, since the strip doesn't join them.
    for (std::int32_t y = 0; y < n; ++y) {
        for (std::int32_t x = 0; x < 6 * n; ++x) {
            const std::int32_t face = x / n;
            *r.document->matWrite(x, y, hold) = face == 0 || face == 4 ? 7 : 1;
        }
    }
    hold.reset();
    r.document->commitOriginals();
    TileHandle rgbHold;
    for (std::int32_t y = 0; y < n; ++y) {
        for (std::int32_t x = 0; x < 6 * n; ++x) {
            *r.document->rgbWrite(x, y, rgbHold) = untouched;
        }
    }
    rgbHold.reset();
    r.document->commitOriginals();
    ASSERT_EQ(fill(*r.document, n / 2, n / 2, locks(settings, Matte::lockMaterialBit)), status::ok);
    const auto got = painted(*r.document);
    std::int64_t onFace4 = 0;
    for (std::int32_t y = 0; y < n; ++y) {
        for (std::int32_t x = 0; x < 6 * n; ++x) {
            const bool p = got[static_cast<std::size_t>(y) * 6 * n + x] != 0;
            const std::int32_t face = x / n;
            if (face == 0) {
                EXPECT_TRUE(p) << x << "," << y;
            } else if (face == 4) {
                onFace4 += p;
            } else {
                EXPECT_FALSE(p) << x << "," << y;
            }
        }
    }
    EXPECT_EQ(onFace4, n * n);
}

TEST_F(Fill, StoppedFloodKeepsWhatItPaintedInOneUndoLevel) {
    RoomScene r = RoomScene::make(RoomScene::View::perspective, 160, 120);
    const IPoint<2> seed = pixelOf(r, RoomScene::floorPiece);
    UndoBuffer& undo = *r.document->editor.undoBuffer;
    ASSERT_FALSE(undo.canUndo());
    StopAfter stop(3);
    TQL::setStopRequest(&stop);
    MatteSettings settings;
    ASSERT_EQ(fill(*r.document, seed.x, seed.y, locks(settings, Matte::lockMaterialBit)),
              status::ok);
    TQL::setStopRequest(nullptr);
    EXPECT_TRUE(filler->isAbandoned());
    const auto partial = painted(*r.document);
    const auto whole = r.connected(seed.x, seed.y, [&](std::int32_t x, std::int32_t y) {
        return r.document->matAt(x, y) == RoomScene::floorMaterial;
    });
    EXPECT_GT(count(partial), 0);
    EXPECT_LT(count(partial), count(whole));
    for (std::size_t i = 0; i < partial.size(); ++i) {
        EXPECT_TRUE(!partial[i] || whole[i]);
    }
    EXPECT_TRUE(undo.canUndo());
    Status s = status::ok;
    r.document->editor.execute(s, commandUndo, CommandArgument());
    ASSERT_EQ(s, status::ok);
    // One level held the whole partial fill.
    EXPECT_EQ(count(painted(*r.document)), 0);
    EXPECT_FALSE(undo.canUndo());
}

} // namespace
