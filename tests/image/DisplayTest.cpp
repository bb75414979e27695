// Display conversion of every channel kind, checked on values computed by hand, and the
// tile walk that hands the converted rectangles to a target.
#include "image/DrawTarget.h"
#include "support/TestDocument.h"

#include <gtest/gtest.h>

#include <cstring>

#include <vector>

namespace {

/// Collects what a walk draws into a whole-image buffer and records each call.
class ImageTarget : public DrawTarget {
public:
    struct Call {
        std::int32_t x, y, w, h, stride;
        bool operator==(const Call&) const = default;
    };

    ImageTarget(std::int32_t w, std::int32_t h)
        : width(w), pixels(static_cast<std::size_t>(w) * h, ColourPOD{7, 7, 7}) {}

    void DrawBits(std::int32_t x, std::int32_t y, std::int32_t w, std::int32_t h,
                  const std::uint8_t* rgb, std::int32_t stride) override {
        calls.push_back({x, y, w, h, stride});
        for (std::int32_t r = 0; r < h; ++r) {
            std::memcpy(&pixels[static_cast<std::size_t>(y + r) * width + x],
                        rgb + static_cast<std::size_t>(r) * stride,
                        static_cast<std::size_t>(w) * 3);
        }
        if (abortAfterFirst) {
            abortAfterFirst->store(true);
        }
    }

    ColourPOD at(std::int32_t x, std::int32_t y) const {
        return pixels[static_cast<std::size_t>(y) * width + x];
    }

    std::int32_t width;
    std::vector<ColourPOD> pixels;
    std::vector<Call> calls;
    std::atomic<bool>* abortAfterFirst = nullptr;
};

ColourPOD grey(std::uint8_t v) {
    return {v, v, v};
}

/// Draws channel `id` of the whole document and returns the target.
ImageTarget drawAll(const ZmapDocument& doc, std::uint32_t id) {
    ImageTarget target(doc.width(), doc.height());
    Status s = status::ok;
    doc.draw(s, target, id, doc.geometry().bounds(), doc.geometry().bounds(), nullptr);
    EXPECT_EQ(s, status::ok);
    return target;
}

TEST(Display, CoverageShowsAsComplementGrey) {
    auto doc = test::makeTestDocument(100, 70);
    struct Case {
        Alpha a;
        std::uint8_t shown;
    };
    // 255 - round(a * 255): 0.2 -> 51 -> 204; 0.75 -> 191.25 -> 191 -> 64.
    const Case cases[] = {{0.0f, 255}, {1.0f, 0}, {0.2f, 204}, {0.75f, 64}};
    TileHandle hold;
    for (std::int32_t i = 0; i < 4; ++i) {
        *doc->cutoutAlphaWrite(i, 0, hold) = cases[i].a;
    }
    hold.reset();
    const ImageTarget t = drawAll(*doc, channelCutoutAlpha);
    for (std::int32_t i = 0; i < 4; ++i) {
        EXPECT_EQ(t.at(i, 0), grey(cases[i].shown)) << cases[i].a;
    }
    EXPECT_EQ(t.at(99, 69), grey(255)); // an empty tile is no coverage: white
}

TEST(Display, MaterialsShowTheirFalseColours) {
    auto doc = test::makeTestDocument(100, 70);
    ASSERT_TRUE(doc->setMaterial(3, L"Brick", ColourPOD{10, 20, 30}, false));
    ASSERT_TRUE(doc->setMaterial(300, L"Glass", ColourPOD{1, 2, 3}, false));
    TileHandle hold;
    *doc->matWrite(0, 0, hold) = 3;
    *doc->matWrite(1, 0, hold) = 300;
    *doc->matWrite(2, 0, hold) = 7; // no such material
    // The overlay's material wins where it is nonzero.
    *doc->matWrite(3, 0, hold) = 3;
    *doc->cutoutMatWrite(3, 0, hold) = 300;
    *doc->cutoutMatWrite(4, 0, hold) = 3;
    hold.reset();

    const ImageTarget composite = drawAll(*doc, channelMat);
    EXPECT_EQ(composite.at(0, 0), (ColourPOD{10, 20, 30}));
    EXPECT_EQ(composite.at(1, 0), (ColourPOD{1, 2, 3}));
    EXPECT_EQ(composite.at(2, 0), ColourPOD{});
    EXPECT_EQ(composite.at(3, 0), (ColourPOD{1, 2, 3}));
    EXPECT_EQ(composite.at(4, 0), (ColourPOD{10, 20, 30}));
    EXPECT_EQ(composite.at(5, 0), ColourPOD{});

    // The original material channel isn't drawn as a composite.
    *doc->originalMatWrite(3, 0, hold) = 3;
    hold.reset();
    const ImageTarget plain = drawAll(*doc, channelOriginalMat);
    EXPECT_EQ(plain.at(3, 0), (ColourPOD{10, 20, 30}));
}

TEST(Display, DepthShowsAsGreyOrNoDepthColour) {
    auto doc = test::makeTestDocument(100, 70);
    struct Case {
        std::uint32_t z;
        ColourPOD shown;
    };
    // floor(sqrt(z / 4294967295) * 255): a quarter of the range is 127.4999..., just under
    // the top 254.99999997; a hundredth gives 25.5000001.
    const Case cases[] = {{0, grey(0)},
                          {1073741823, grey(127)},
                          {42949673, grey(25)},
                          {4294967294u, grey(254)},
                          {0xFFFFFFFFu, ColourPOD{0x00, 0x00, 0x60}}};
    TileHandle hold;
    for (std::int32_t i = 0; i < 5; ++i) {
        *doc->zWrite(i, 0, hold) = cases[i].z;
    }
    // The overlay stores depth + 1: 1 shows depth 0, and 2^30 + 1 shows 2^30, whose grey is
    // floor(127.50000001) = 127. The main depth under them is "no depth".
    *doc->cutoutZWrite(10, 0, hold) = 1;
    *doc->cutoutZWrite(11, 0, hold) = 1073741825u;
    hold.reset();

    const ImageTarget t = drawAll(*doc, channelZ);
    for (std::int32_t i = 0; i < 5; ++i) {
        EXPECT_EQ(t.at(i, 0), cases[i].shown) << cases[i].z;
    }
    EXPECT_EQ(t.at(10, 0), grey(0));
    EXPECT_EQ(t.at(11, 0), grey(127));
    EXPECT_EQ(t.at(12, 0), (ColourPOD{0x00, 0x00, 0x60}));
    EXPECT_EQ(t.at(99, 69), (ColourPOD{0x00, 0x00, 0x60})); // empty tile: no depth

    // The overlay alone shows its raw values; its own "nothing" is 0.
    const ImageTarget overlay = drawAll(*doc, channelCutoutZ);
    EXPECT_EQ(overlay.at(10, 0), grey(0));
    EXPECT_EQ(overlay.at(12, 0), (ColourPOD{0x00, 0x00, 0x60}));
}

TEST(Display, CompositeBlendsOverlayThenShadow) {
    struct Case {
        const char* what;
        ColourPOD base;
        ColourPOD overlay;
        Alpha coverage;
        Alpha shadow;
        ShadowDisplay settings;
        ColourPOD shown;
    };
    const ColourPOD base{100, 50, 200};
    // Overlay: base + (overlay - base) * a. Shadow: times ((c / 255 - 1) * k + 1) with
    // k = s * opacity * strength.
    const Case cases[] = {
        {"no overlay", base, {}, 0.0f, 0.0f, {}, base},
        {"overlay 0.3", base, {200, 100, 0}, 0.3f, 0.0f, {}, {130, 65, 140}},
        {"overlay full", base, {200, 100, 0}, 1.0f, 0.0f, {}, {200, 100, 0}},
        // k = 0.5 * 0.4 * 1.0 = 0.2: black shadow keeps 0.8.
        {"black shadow", base, {}, 0.0f, 0.5f, {}, {80, 40, 160}},
        // The two settings as the document gives them: k = 1 * 0.5 * 0.5 = 0.25.
        {"settings", {100, 52, 200}, {}, 0.0f, 1.0f, {ColourPOD{}, 0.5, 0.5}, {75, 39, 150}},
        // A white shadow changes nothing; red 51 (0.2) keeps 1 - 0.8 * 0.2 = 0.84 of red.
        {"white shadow", base, {}, 0.0f, 0.5f, {ColourPOD{255, 255, 255}, 0.4, 1.0}, base},
        {"red shadow", base, {}, 0.0f, 1.0f, {ColourPOD{255, 255, 51}, 0.2, 1.0}, {100, 50, 168}},
        // Overlay first, then shadow: (200, 100, 0) * 0.8.
        {"both", base, {200, 100, 0}, 1.0f, 0.5f, {}, {160, 80, 0}},
    };
    auto doc = test::makeTestDocument(100, 70);
    TileHandle hold;
    for (std::int32_t i = 0; i < static_cast<std::int32_t>(std::size(cases)); ++i) {
        *doc->rgbWrite(i, 0, hold) = cases[i].base;
        *doc->cutoutRgbWrite(i, 0, hold) = cases[i].overlay;
        *doc->cutoutAlphaWrite(i, 0, hold) = cases[i].coverage;
        *doc->shadowAlphaWrite(i, 0, hold) = cases[i].shadow;
    }
    hold.reset();
    for (std::int32_t i = 0; i < static_cast<std::int32_t>(std::size(cases)); ++i) {
        SCOPED_TRACE(cases[i].what);
        doc->setShadowDisplay(cases[i].settings);
        const ImageTarget t = drawAll(*doc, channelRgb);
        EXPECT_EQ(t.at(i, 0), cases[i].shown);
        // Colour that isn't drawn as a composite shows the base.
        EXPECT_EQ(drawAll(*doc, channelOriginalRgb).at(i, 0), ColourPOD{}); // never written
    }
}

TEST(Display, CompositeOnlyWhereTheTileHasOverlay) {
    auto doc = test::makeTestDocument(100, 70);
    TileHandle hold;
    *doc->rgbWrite(70, 10, hold) = ColourPOD{1, 2, 3}; // tile 1: no overlay there
    *doc->rgbWrite(5, 5, hold) = ColourPOD{4, 5, 6};   // tile 0: overlay elsewhere
    *doc->cutoutAlphaWrite(6, 5, hold) = 1.0f;
    *doc->cutoutRgbWrite(6, 5, hold) = ColourPOD{9, 9, 9};
    hold.reset();
    const ImageTarget t = drawAll(*doc, channelRgb);
    EXPECT_EQ(t.at(70, 10), (ColourPOD{1, 2, 3}));
    EXPECT_EQ(t.at(5, 5), (ColourPOD{4, 5, 6}));
    EXPECT_EQ(t.at(6, 5), (ColourPOD{9, 9, 9}));
    EXPECT_EQ(t.at(7, 5), ColourPOD{});
    EXPECT_EQ(t.at(99, 69), ColourPOD{}); // empty tile: blank
}

TEST(Display, WalkVisitsClippedTileRectangles) {
    auto doc = test::makeTestDocument(100, 70); // tiles 64 and 36 wide, 64 and 6 high
    using Call = ImageTarget::Call;
    struct Case {
        const char* what;
        IExtent<2> extent, clip;
        std::vector<Call> calls;
    };
    const IExtent<2> all(0, 0, 99, 69);
    const Case cases[] = {
        {"whole image",
         all,
         all,
         {{0, 0, 64, 64, 192}, {64, 0, 36, 64, 108}, {0, 64, 64, 6, 192}, {64, 64, 36, 6, 108}}},
        {"band across a tile border",
         IExtent<2>(10, 10, 70, 20),
         all,
         {{10, 10, 54, 11, 192}, {64, 10, 7, 11, 108}}},
        {"clip",
         all,
         IExtent<2>(60, 60, 200, 200),
         {{60, 60, 4, 4, 192}, {64, 60, 36, 4, 108}, {60, 64, 4, 6, 192}, {64, 64, 36, 6, 108}}},
        {"outside", IExtent<2>(100, 0, 120, 10), all, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        ImageTarget target(100, 70);
        Status s = -1;
        doc->draw(s, target, channelRgb, c.extent, c.clip, nullptr);
        EXPECT_EQ(s, status::ok);
        EXPECT_EQ(target.calls, c.calls);
    }
}

TEST(Display, AbortFlagCancelsTheWalk) {
    auto doc = test::makeTestDocument(100, 70);
    const IExtent<2> all = doc->geometry().bounds();
    std::atomic<bool> abort{true};
    ImageTarget before(100, 70);
    Status s = status::ok;
    doc->draw(s, before, channelRgb, all, all, &abort);
    EXPECT_EQ(s, status::cancelled);
    EXPECT_TRUE(before.calls.empty());

    abort = false;
    ImageTarget during(100, 70);
    during.abortAfterFirst = &abort;
    doc->draw(s, during, channelZ, all, all, &abort);
    EXPECT_EQ(s, status::cancelled);
    EXPECT_EQ(during.calls.size(), 1u);

    doc->draw(s, during, channelThumbnail, all, all, nullptr);
    EXPECT_EQ(s, status::noImage);
}

} // namespace
