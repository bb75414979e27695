// paintRow observed through recording stages: what is trimmed, the stage order, how
// stroke alpha grows, the tile runs, and the wet path.

#include "PipelineTestSupport.h"

#include "pipeline/Blender.h"
#include "pipeline/LinearRecolour.h"
#include "pipeline/Paint.h"
#include "support/TestDocument.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <tuple>
#include <vector>

namespace {

using test::StageLog;

class PaintRow : public testing::Test {
protected:
    void SetUp() override {
        // 300 x 100: tiles 64 pixels wide.
        document = test::makeTestDocument(300, 100);
        applicator = TQL::makeHandle<test::RowApplicator>();
    }

    /// Every stage a recorder, all logging into `log`.
    void recordAll() {
        matting = TQL::makeHandle<test::RecordingMatting>(log, "matting");
        effect = TQL::makeHandle<test::RecordingEffect>(log, "effect");
        fog = TQL::makeHandle<test::RecordingFog>(log, "fog");
        recolour = TQL::makeHandle<test::RecordingRecolour>(log, "recolour");
        texture = TQL::makeHandle<test::RecordingTexture>(log, "texture");
        grain = TQL::makeHandle<test::RecordingGrain>(log, "grain");
        blend = TQL::makeHandle<test::RecordingBlend>(log, "blend");
        applicator->matting = matting;
        applicator->effect = effect;
        applicator->fog = fog;
        applicator->recolour = recolour;
        applicator->texture = texture;
        applicator->grain = grain;
        applicator->blend = blend;
    }

    IExtent<2> paint(std::int32_t x0, std::int32_t y, const std::vector<float>& coverage) {
        return applicator->paintRow(*document, x0, y, 0, static_cast<std::int32_t>(coverage.size()),
                                    coverage.data());
    }

    float strokeAlpha(std::int32_t x, std::int32_t y) const {
        return document->editor.strokeAlpha->valueAt<Alpha>(x, y);
    }

    std::unique_ptr<test::TestDocument> document;
    TQL::Handle<test::RowApplicator> applicator;
    StageLog log;
    TQL::Handle<test::RecordingMatting> matting;
    TQL::Handle<test::RecordingEffect> effect;
    TQL::Handle<test::RecordingFog> fog;
    TQL::Handle<test::RecordingRecolour> recolour;
    TQL::Handle<test::RecordingTexture> texture;
    TQL::Handle<test::RecordingGrain> grain;
    TQL::Handle<test::RecordingBlend> blend;
};

TEST_F(PaintRow, StagesRunInTheFixedOrder) {
    recordAll();
    const IExtent<2> changed = paint(10, 5, std::vector<float>(4, 1.0f));
    EXPECT_EQ(test::names(log),
              (std::vector<std::string>{"matting", "effect", "fog", "recolour", "texture",
                                        "fogLate", "grain", "commit", "blend"}));
    EXPECT_EQ(changed, IExtent<2>(10, 5, 13, 5));
}

TEST_F(PaintRow, TwoHalfPassesGiveThreeQuartersBlendedFromTheSameBase) {
    const auto blender = TQL::makeHandle<Blender>(1.0f, 0);
    applicator->effect = TQL::makeHandle<Paint>();
    applicator->recolour = TQL::makeHandle<LinearRecolour>(255, 255, 255, 1.0f);
    const auto recorder = TQL::makeHandle<test::RecordingBlend>(log, "blend");
    recorder->action = [&](Span& span, int first, int last) { blender->run(span, first, last); };
    applicator->blend = recorder;

    const std::vector<float> half(3, 0.5f);
    paint(20, 7, half);
    EXPECT_EQ(document->rgbAt(21, 7), (ColourPOD{128, 128, 128})); // 127.5 to even
    paint(20, 7, half);

    EXPECT_FLOAT_EQ(strokeAlpha(21, 7), 0.75f);
    ASSERT_EQ(log.size(), 2u);
    EXPECT_EQ(log[0].base, log[1].base);
    EXPECT_EQ(log[0].base[1], (ColourPOD{0, 0, 0}));
    EXPECT_FLOAT_EQ(log[0].alpha[1], 0.5f);
    EXPECT_FLOAT_EQ(log[1].alpha[1], 0.75f);
    // One blend at 0.75 from black, not two blends on top of each other (which gives 192).
    EXPECT_EQ(document->rgbAt(21, 7), (ColourPOD{191, 191, 191}));
}

TEST(PaintRowDispatch, AnApplicatorThatGivesItsOwnColourIsHeardWithoutOptingOut) {
    // A new applicator that replaces the recolour stage's dispatch, with plain paint of one
    // colour selected: its own colour must land, on whole rows and short ones alike.
    class OwnColour : public Applicator {
    public:
        void apply(ZmapDocument&, StrokeView*, const std::vector<StrokePoint>&) override {}
        bool extend(ZmapDocument&, StrokeView*, const StrokePoint&) override { return false; }
        TQL::Handle<TQL::Handlable> pseudoCursor() override { return nullptr; }
        std::uint32_t undoNameId() const override { return 1219; }
        void ready() override {}
        void runRecolour(Span& span, int first, int last) override {
            for (int i = first; i < last; ++i) {
                span.colour[i] = ColourPOD{10, 200, 30};
            }
        }
    };
    auto document = test::makeTestDocument(300, 100);
    const auto a = TQL::makeHandle<OwnColour>();
    a->effect = TQL::makeHandle<Paint>();
    a->recolour = TQL::makeHandle<LinearRecolour>(250, 0, 0, 1.0f);
    a->blend = TQL::makeHandle<Blender>(1.0f, 0);
    document->editor.clearStrokePlanes();
    a->Applicator::start(*document, nullptr, StrokePoint{0, 0});
    const std::vector<float> full(300, 1.0f);
    a->paintRow(*document, 0, 4, 0, 300, full.data());
    a->paintRow(*document, 7, 5, 0, 9, full.data());
    for (const IPoint<2> p : {IPoint<2>(0, 4), IPoint<2>(150, 4), IPoint<2>(299, 4),
                              IPoint<2>(7, 5), IPoint<2>(15, 5)}) {
        EXPECT_EQ(document->rgbAt(p.x, p.y), (ColourPOD{10, 200, 30})) << p.x << ", " << p.y;
    }
}

TEST_F(PaintRow, NothingToPaintCallsNoStage) {
    recordAll();
    struct Case {
        const char* what;
        std::int32_t x0, y;
        std::vector<float> coverage;
    };
    const Case cases[] = {
        {"zero coverage", 10, 10, std::vector<float>(8, 0.0f)},
        {"row above the image", 10, -1, std::vector<float>(8, 1.0f)},
        {"row below the image", 10, 100, std::vector<float>(8, 1.0f)},
        {"left of the image", -20, 10, std::vector<float>(8, 1.0f)},
        {"right of the image", 300, 10, std::vector<float>(8, 1.0f)},
        {"empty row", 10, 10, {}},
    };
    for (const Case& c : cases) {
        EXPECT_TRUE(paint(c.x0, c.y, c.coverage).degenerate()) << c.what;
        EXPECT_TRUE(log.empty()) << c.what;
    }
}

TEST_F(PaintRow, ClipsAndTrimsToTheCoveredPixelsInTheImage) {
    recordAll();
    // Pixels -2..5 of which -2, -1 lie outside, 0 and 5 have no coverage.
    const std::vector<float> coverage{1, 1, 0, 0.5f, 0.5f, 0, 0.5f, 0};
    const IExtent<2> changed = paint(-2, 3, coverage);
    EXPECT_EQ(changed, IExtent<2>(1, 3, 4, 3));
    ASSERT_FALSE(log.empty());
    EXPECT_EQ(log.front().stage, "matting");
    // The span starts at the first covered pixel in the image, column 1.
    EXPECT_EQ(log.front().x, 1);
    EXPECT_EQ(log.front().first, 0);
    EXPECT_EQ(log.front().last, 4);
    // Column 3 has no coverage: the colour stages see two sub-runs, columns 1..2 and 4.
    std::vector<std::pair<int, int>> blends;
    for (const auto& call : log) {
        if (call.stage == "blend") {
            blends.emplace_back(call.first, call.last);
        }
    }
    EXPECT_EQ(blends, (std::vector<std::pair<int, int>>{{0, 2}, {3, 4}}));
}

TEST_F(PaintRow, FullyPaintedRunSkipsEvenTheMatting) {
    recordAll();
    const std::vector<float> full(6, 1.0f);
    paint(30, 2, full);
    log.clear();
    EXPECT_TRUE(paint(30, 2, full).degenerate());
    EXPECT_TRUE(log.empty());
}

TEST_F(PaintRow, RepaintingEffectPaintsCoveredPixelsAgain) {
    recordAll();
    effect->repaint = true;
    const std::vector<float> full(6, 1.0f);
    applicator->start(*document, nullptr, StrokePoint{30, 2});
    log.clear();
    paint(30, 2, full);
    log.clear();
    EXPECT_EQ(paint(30, 2, full), IExtent<2>(30, 2, 35, 2));
    EXPECT_EQ(test::names(log).back(), "blend");
}

TEST_F(PaintRow, MaskLoweredToZeroRunsNoColourStage) {
    recordAll();
    matting->action = [](Span& span, int first, int last) {
        for (int i = first; i < last; ++i) {
            span.alpha[i] = 0;
        }
    };
    EXPECT_TRUE(paint(40, 9, std::vector<float>(5, 1.0f)).degenerate());
    EXPECT_EQ(test::names(log), std::vector<std::string>{"matting"});
    for (std::int32_t x = 40; x < 45; ++x) {
        EXPECT_EQ(strokeAlpha(x, 9), 0.0f);
    }
}

TEST_F(PaintRow, MaskLowersTheNewAlpha) {
    recordAll();
    matting->action = [](Span& span, int first, int last) {
        for (int i = first; i < last; ++i) {
            span.alpha[i] *= 0.5f;
        }
    };
    paint(40, 9, std::vector<float>(2, 1.0f));
    EXPECT_FLOAT_EQ(strokeAlpha(40, 9), 0.5f);
}

TEST_F(PaintRow, RowAcrossATileBorderGivesOneSpanEach) {
    recordAll();
    EXPECT_EQ(paint(60, 0, std::vector<float>(10, 1.0f)), IExtent<2>(60, 0, 69, 0));
    std::vector<std::pair<std::int32_t, std::int32_t>> spans; // x, length
    for (const auto& call : log) {
        if (call.stage == "matting") {
            spans.emplace_back(call.x, call.length);
        }
    }
    // The first run ends at the tile's edge (4 pixels); the second is a whole tile's width
    // (64), not cut to the stroke.
    EXPECT_EQ(spans, (std::vector<std::pair<std::int32_t, std::int32_t>>{{60, 4}, {64, 64}}));
}

TEST_F(PaintRow, WetPathLandsTheColourInTheWetPlanes) {
    recordAll();
    effect->wetLayer = true;
    applicator->wet = true;
    recolour->action = [](Span& span, int first, int last) {
        for (int i = first; i < last; ++i) {
            span.colour[i] = ColourPOD{1, 2, 3};
        }
    };
    const std::vector<float> half(4, 0.5f);
    paint(100, 50, half);
    EXPECT_EQ(document->editor.wetCache->valueAt<ColourPOD>(101, 50), (ColourPOD{1, 2, 3}));
    EXPECT_EQ(document->editor.wetAlpha->valueAt<Alpha>(101, 50), 1.0f);
    EXPECT_EQ(log.back().stage, "blend");
    EXPECT_EQ(log.back().colour[1], (ColourPOD{1, 2, 3}));
    EXPECT_FLOAT_EQ(log.back().alpha[1], 0.5f);

    // A second pass finds the pixels touched: no colour stage, the blend takes the wet
    // colour at the grown alpha.
    log.clear();
    paint(100, 50, half);
    EXPECT_EQ(test::names(log), (std::vector<std::string>{"matting", "commit", "blend"}));
    EXPECT_EQ(log.back().colour[1], (ColourPOD{1, 2, 3}));
    EXPECT_FLOAT_EQ(log.back().alpha[1], 0.75f);
}

} // namespace

namespace {

/// Fills `coverage` with runs of none, full, half and random values, of 1 to 46 pixels.
void mixedCoverage(std::mt19937& random, std::vector<float>& coverage) {
    std::uniform_real_distribution<float> anyCoverage(0.0f, 1.0f);
    std::uniform_int_distribution<int> pick(0, 5);
    for (std::size_t i = 0; i < coverage.size();) {
        const int kind = pick(random);
        const std::size_t n = std::min<std::size_t>(coverage.size() - i, 1 + pick(random) * 9);
        for (std::size_t k = 0; k < n; ++k, ++i) {
            coverage[i] = kind == 0   ? 0.0f
                          : kind <= 2 ? 1.0f
                          : kind == 3 ? 0.5f
                                      : anyCoverage(random);
        }
    }
}

/// Compares the colour and the stroke alpha of the first 300 x 100 pixels of two documents,
/// failing at the first difference; `painted` (if given) counts the pixels with stroke alpha.
template <class Document>
void expectSameColourAndStrokeAlpha(Document& a, Document& b, int* painted = nullptr) {
    for (std::int32_t y = 0; y < 100; ++y) {
        for (std::int32_t x = 0; x < 300; ++x) {
            ASSERT_EQ(a.rgbAt(x, y), b.rgbAt(x, y)) << x << ", " << y;
            const auto sa = a.editor.strokeAlpha->template valueAt<std::uint32_t>(x, y);
            const auto sb = b.editor.strokeAlpha->template valueAt<std::uint32_t>(x, y);
            ASSERT_EQ(sa, sb) << x << ", " << y;
            if (painted) {
                *painted += sa != 0 ? 1 : 0;
            }
        }
    }
}

/// Both walks over the same passes: one applicator takes the plain walk everywhere, the
/// other the fused one where a whole run rises at once.
class PaintRowWalks : public testing::TestWithParam<bool> {
protected:
    struct Side {
        std::unique_ptr<test::TestDocument> document;
        TQL::Handle<test::RowApplicator> applicator;
        StageLog log;
    };

    void SetUp() override {
        for (Side* side : {&plain, &fused}) {
            side->document = test::makeTestDocument(300, 100);
            auto& a = side->applicator = TQL::makeHandle<test::RowApplicator>();
            a->plainWalk = side == &plain;
            a->width = 0;
            // The locks: nothing at every seventh column, half at every fifth.
            auto matting = TQL::makeHandle<test::RecordingMatting>(side->log, "matting");
            matting->action = [](Span& span, int first, int last) {
                for (int i = first; i < last; ++i) {
                    const std::int32_t x = span.x + i;
                    span.alpha[i] *= x % 7 == 0 ? 0.0f : x % 5 == 0 ? 0.5f : 1.0f;
                }
            };
            auto effect = TQL::makeHandle<test::RecordingEffect>(side->log, "effect");
            effect->repaint = GetParam();
            const auto paint = TQL::makeHandle<Paint>();
            effect->action = [paint](Span& span, int first, int last) {
                paint->run(span, first, last);
            };
            const auto recolour = TQL::makeHandle<LinearRecolour>(250, 30, 90, 0.6f);
            auto recorder = TQL::makeHandle<test::RecordingRecolour>(side->log, "recolour");
            recorder->action = [recolour](Span& span, int first, int last) {
                recolour->run(span, first, last);
            };
            const auto blender = TQL::makeHandle<Blender>(0.8f, 0);
            auto blend = TQL::makeHandle<test::RecordingBlend>(side->log, "blend");
            blend->action = [blender](Span& span, int first, int last) {
                blender->run(span, first, last);
            };
            a->matting = matting;
            a->effect = effect;
            a->recolour = recorder;
            a->blend = blend;
            a->start(*side->document, nullptr, StrokePoint{0, 0});
            side->log.clear();
        }
    }

    Side plain, fused;
};

TEST_P(PaintRowWalks, FusedWalkMatchesThePlainWalkBitForBit) {
    // Rows of coverage in runs of none, full, half and random values, laid again and again
    // over the same rows so that passes meet pixels with no, some and full stroke alpha.
    std::mt19937 random(11);
    for (int pass = 0; pass < 300; ++pass) {
        const std::int32_t y = 40 + pass % 9;
        const std::int32_t x0 = std::uniform_int_distribution<std::int32_t>(-30, 280)(random);
        std::vector<float> coverage(std::uniform_int_distribution<std::size_t>(1, 220)(random));
        mixedCoverage(random, coverage);
        const auto count = static_cast<std::int32_t>(coverage.size());
        const IExtent<2> p =
            plain.applicator->paintRow(*plain.document, x0, y, 0, count, coverage.data());
        const IExtent<2> f =
            fused.applicator->paintRow(*fused.document, x0, y, 0, count, coverage.data());
        ASSERT_EQ(p, f) << "pass " << pass;
    }

    ASSERT_EQ(plain.log.size(), fused.log.size());
    for (std::size_t k = 0; k < plain.log.size(); ++k) {
        const test::StageCall& a = plain.log[k];
        const test::StageCall& b = fused.log[k];
        ASSERT_EQ(std::tie(a.stage, a.x, a.first, a.last), std::tie(b.stage, b.x, b.first, b.last))
            << "call " << k;
        ASSERT_EQ(a.alpha, b.alpha) << "call " << k;
    }
    expectSameColourAndStrokeAlpha(*plain.document, *fused.document);
}

INSTANTIATE_TEST_SUITE_P(Repainting, PaintRowWalks, testing::Bool(),
                         [](const testing::TestParamInfo<bool>& info) {
                             return info.param ? "repainting" : "growing";
                         });

/// Plain paint (Paint, a full-strength LinearRecolour, Blender) laid twice alike: by the
/// plain walk with every stage called, and with the colour stages folded into one colour
/// blended straight away.
class SolidPaint
    : public testing::TestWithParam<std::tuple<float, std::uint32_t, bool /* locks */>> {
protected:
    struct Side {
        std::unique_ptr<test::TestDocument> document;
        TQL::Handle<test::RowApplicator> applicator;
    };

    void SetUp() override {
        const auto [opacity, mode, locks] = GetParam();
        // The stages are shared, so a colour picked mid-stroke is picked for both sides.
        recolour = TQL::makeHandle<LinearRecolour>(200, 120, 40, 1.0f);
        const auto blender = TQL::makeHandle<Blender>(opacity, mode);
        const auto paint = TQL::makeHandle<Paint>();
        for (Side* side : {&plain, &solid}) {
            side->document = test::makeTestDocument(300, 100);
            TileHandle hold;
            for (std::int32_t y = 0; y < 100; ++y) {
                for (std::int32_t x = 0; x < 300; ++x) {
                    *side->document->rgbWrite(x, y, hold) =
                        ColourPOD{std::uint8_t(x), std::uint8_t(y * 3), std::uint8_t(x ^ y)};
                }
            }
            hold.reset();
            side->document->commitOriginals();
            Status status = status::ok;
            side->document->editor.undoBuffer->pushLevel(status, 0);
            ASSERT_EQ(status, status::ok);
            auto& a = side->applicator = TQL::makeHandle<test::RowApplicator>();
            a->plainWalk = side == &plain;
            a->effect = paint;
            a->recolour = recolour;
            a->blend = blender;
            if (locks) {
                // Nothing at every seventh column, half at every fifth.
                auto matting = TQL::makeHandle<test::RecordingMatting>(log, "matting");
                matting->action = [](Span& span, int first, int last) {
                    for (int i = first; i < last; ++i) {
                        const std::int32_t x = span.x + i;
                        span.alpha[i] *= x % 7 == 0 ? 0.0f : x % 5 == 0 ? 0.5f : 1.0f;
                    }
                };
                a->matting = matting;
            }
            side->document->editor.clearStrokePlanes();
            a->Applicator::start(*side->document, nullptr, StrokePoint{0, 0});
        }
    }

    Side plain, solid;
    TQL::Handle<LinearRecolour> recolour;
    StageLog log;
};

TEST_P(SolidPaint, OneColourBlendedStraightAwayMatchesThePlainChainBitForBit) {
    // Rows of coverage in runs of none, full, half and random values, starting and ending
    // anywhere (tile borders every 64 columns), laid again and again over the same rows;
    // whole rows at full coverage; a colour picked now and then, as a colour spread does.
    std::mt19937 random(17);
    for (int pass = 0; pass < 300; ++pass) {
        if (pass % 60 == 30) {
            recolour->pickColour(60, 0);
        }
        const std::int32_t y = 30 + pass % 11;
        std::int32_t x0 = 0;
        std::vector<float> coverage(300, 1.0f);
        if (pass % 10 != 0) {
            x0 = std::uniform_int_distribution<std::int32_t>(-30, 280)(random);
            coverage.resize(std::uniform_int_distribution<std::size_t>(1, 220)(random));
            mixedCoverage(random, coverage);
        }
        const auto count = static_cast<std::int32_t>(coverage.size());
        const IExtent<2> p =
            plain.applicator->paintRow(*plain.document, x0, y, 0, count, coverage.data());
        const IExtent<2> f =
            solid.applicator->paintRow(*solid.document, x0, y, 0, count, coverage.data());
        ASSERT_EQ(p, f) << "pass " << pass;
    }
    int painted = 0;
    expectSameColourAndStrokeAlpha(*plain.document, *solid.document, &painted);
    EXPECT_GT(painted, 2000);
}

TEST_P(SolidPaint, RowsOfOneCoverageMatchThePlainChainBitForBit) {
    // Rows of one coverage value, as a fill or a stroke at full coverage lays them: whole
    // rows, rows that start or end inside a tile, on a tile border or past an edge of the
    // image, rows again over pixels already painted at that value, at another or at random
    // (a row of the stroke alpha that no longer holds one value), strokes begun anew now
    // and then, and tiles of the image held by a reader while a row is laid over them (copy
    // on write). Rows of one value go through paintRow and the entry for rows known to hold
    // one value in turn.
    std::mt19937 random(23);
    std::uniform_real_distribution<float> anyCoverage(0.0f, 1.0f);
    const float values[] = {1.0f, 0.5f, 0.25f, 0.8f, 0.0f};
    std::uniform_int_distribution<int> pickValue(0, 4);
    std::uniform_int_distribution<int> pickKind(0, 6);
    std::uniform_int_distribution<int> pickBorder(-1, 5);
    auto paint = [&](std::int32_t x0, std::int32_t y, const std::vector<float>& coverage,
                     bool oneEntry) {
        const auto count = static_cast<std::int32_t>(coverage.size());
        const IExtent<2> p =
            plain.applicator->paintRow(*plain.document, x0, y, 0, count, coverage.data());
        const IExtent<2> f =
            oneEntry
                ? solid.applicator->paintRowOfOneCoverage(*solid.document, x0, y, 0, count,
                                                          coverage.data())
                : solid.applicator->paintRow(*solid.document, x0, y, 0, count, coverage.data());
        return p == f;
    };
    const std::int32_t tile = solid.document->geometry().tileWidth;
    for (int pass = 0; pass < 400; ++pass) {
        if (pass % 150 == 75) {
            for (Side* side : {&plain, &solid}) {
                side->document->editor.clearStrokePlanes();
                side->applicator->Applicator::start(*side->document, nullptr, StrokePoint{0, 0});
            }
        }
        const std::int32_t y = 20 + pass % 13;
        const int kind = pickKind(random);
        std::int32_t x0 = 0;
        std::vector<float> coverage(300, values[pickValue(random)]);
        if (kind >= 2 && kind <= 5) {
            x0 = std::uniform_int_distribution<std::int32_t>(-40, 290)(random);
            coverage.resize(std::uniform_int_distribution<std::size_t>(1, 340)(random),
                            coverage.front());
        } else if (kind == 6) {
            // From a tile border (or before the image) to a tile border or past the edge.
            x0 = pickBorder(random) * tile;
            const std::int32_t last = std::max(x0 + tile, pickBorder(random) * tile + tile);
            coverage.resize(static_cast<std::size_t>(std::min(last, 320) - x0), coverage.front());
        }
        if (kind == 5) {
            for (float& c : coverage) {
                c = anyCoverage(random);
            }
        }
        // Now and then a reader holds the image's tile at (64, y) while the row is laid.
        TileHandle held;
        std::vector<std::uint8_t> before;
        if (pass % 7 == 3) {
            held = solid.document->rgb->tiles().get(solid.document->geometry().tileIndex(64, y));
            before.assign(held->pixels(), held->pixels() + held->size());
        }
        ASSERT_TRUE(paint(x0, y, coverage, kind != 5 && pass % 2 == 1)) << "pass " << pass;
        if (held) {
            ASSERT_TRUE(std::equal(before.begin(), before.end(), held->pixels()))
                << "a held tile changed, pass " << pass;
        }
    }
    expectSameColourAndStrokeAlpha(*plain.document, *solid.document);
}

INSTANTIATE_TEST_SUITE_P(
    Blends, SolidPaint,
    testing::Values(std::make_tuple(1.0f, 0u, false), std::make_tuple(1.0f, 0u, true),
                    std::make_tuple(0.6f, 0u, true), std::make_tuple(0.5f, 1u, false),
                    std::make_tuple(0.5f, 1u, true), std::make_tuple(1.0f, 1u, false),
                    std::make_tuple(0.7f, 3u, true), std::make_tuple(0.7f, 3u, false)),
    [](const testing::TestParamInfo<std::tuple<float, std::uint32_t, bool>>& info) {
        const float opacity = std::get<0>(info.param);
        const std::uint32_t mode = std::get<1>(info.param);
        const bool locks = std::get<2>(info.param);
        return std::string(mode == 0   ? "Normal"
                           : mode == 1 ? "Multiply"
                                       : "Screen") +
               std::to_string(static_cast<int>(opacity * 100)) + (locks ? "Locked" : "Free");
    });

TEST(PaintRowTiles, AStrokeRowByRowCopiesEachSharedTileOnce) {
    auto document = test::makeTestDocument(300, 100);
    // Colour in every tile, then closed into an undo level that shares the tiles.
    TileHandle hold;
    for (std::int32_t y = 0; y < 100; ++y) {
        for (std::int32_t x = 0; x < 300; ++x) {
            *document->rgbWrite(x, y, hold) = ColourPOD{std::uint8_t(x), std::uint8_t(y), 9};
        }
    }
    hold.reset();
    Status status = status::ok;
    document->editor.undoBuffer->pushLevel(status, 0);
    ASSERT_EQ(status, status::ok);
    const std::int32_t tiles = document->geometry().tileCount();

    auto applicator = TQL::makeHandle<test::RowApplicator>();
    applicator->effect = TQL::makeHandle<Paint>();
    applicator->recolour = TQL::makeHandle<LinearRecolour>(1, 2, 3, 1.0f);
    applicator->blend = TQL::makeHandle<Blender>(1.0f, 0);
    const std::vector<float> full(300, 1.0f);
    const std::uint64_t before = LockedHandleVector::tileCopies();
    for (std::int32_t y = 0; y < 100; ++y) {
        applicator->paintRow(*document, 0, y, 0, 300, full.data());
    }
    EXPECT_EQ(LockedHandleVector::tileCopies() - before, static_cast<std::uint64_t>(tiles));
    EXPECT_EQ(document->rgbAt(299, 99), (ColourPOD{3, 2, 1}));
    // The level still holds the image before the stroke.
    EXPECT_EQ(document->undoRgbAt(299, 99), (ColourPOD{std::uint8_t(299), 99, 9}));
}

} // namespace
