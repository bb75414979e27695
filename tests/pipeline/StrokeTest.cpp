// Strokes through the document editor's entry points, with the process's tool selection:
// undo levels, abandoning, open strokes, re-entry, memory failure; and the selection itself.

#include "PipelineTestSupport.h"

#include "image/DocumentCommands.h"
#include "pipeline/Blender.h"
#include "pipeline/LinearRecolour.h"
#include "pipeline/Paint.h"
#include "pipeline/ToolSelection.h"
#include "support/RecordingViews.h"
#include "support/SyntheticScene.h"
#include "support/TestDocument.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <cwchar>
#include <new>
#include <vector>

namespace {

class RecordingFeedback : public ToolFeedback {
public:
    void prompt(std::uint32_t id) override { prompts.push_back(id); }
    void setPseudoCursor(const TQL::Handle<TQL::Handlable>& cursor) override {
        cursorCleared = cursor == nullptr;
    }
    std::vector<std::uint32_t> prompts;
    bool cursorCleared = false;
};

class RecordingMessages : public CommandMessages {
public:
    void message(std::int32_t id, const std::wstring&) override { ids.push_back(id); }
    void progressText(std::int32_t, const std::wstring&) override {}
    std::vector<std::int32_t> ids;
};

class RecordingStrokeView : public StrokeView {
public:
    void queueRedraw(const IExtent<2>& extent) override { redrawn |= extent; }
    void copyToClipboard(const std::wstring& text) override { clipboard = text; }
    IExtent<2> redrawn;
    std::wstring clipboard;
};

/// Every colour pixel of a document.
std::vector<ColourPOD> pixels(const ZmapDocument& document) {
    std::vector<ColourPOD> out;
    for (std::int32_t y = 0; y < document.height(); ++y) {
        for (std::int32_t x = 0; x < document.width(); ++x) {
            out.push_back(document.rgbAt(x, y));
        }
    }
    return out;
}

class Strokes : public testing::Test {
protected:
    void SetUp() override {
        selection().reset();
        selection().setFeedback(&feedback);
        selection().recolour = TQL::makeHandle<LinearRecolour>(250, 10, 20, 1.0f);
        document = test::makeTestDocument(150, 80);
        document->editor.setMessages(&messages);
        document->setViews(&views);
        applicator = TQL::makeHandle<test::RowApplicator>();
        selection().selectApplicator(applicator);
    }
    void TearDown() override {
        selection().reset();
        selection().setFeedback(nullptr);
    }
    static ToolSelection& selection() { return ToolSelection::instance(); }
    UndoBuffer& undo() { return *document->editor.undoBuffer; }

    RecordingFeedback feedback;
    RecordingMessages messages;
    test::RecordingViews views;
    std::unique_ptr<test::TestDocument> document;
    TQL::Handle<test::RowApplicator> applicator;
};

TEST_F(Strokes, StrokeLeavesOneUndoLevelThatUndoesAndRedoes) {
    const std::vector<ColourPOD> before = pixels(*document);
    ASSERT_FALSE(undo().canUndo());
    RecordingStrokeView view;
    DocumentEditor& editor = document->editor;
    ASSERT_EQ(editor.beginStroke(StrokePoint{10, 10}, &view), status::ok);
    ASSERT_EQ(editor.continueStroke(StrokePoint{60, 11}), status::ok);
    ASSERT_EQ(editor.continueStroke(StrokePoint{62, 40}), status::ok);
    ASSERT_EQ(editor.endStroke(), status::ok);

    EXPECT_EQ(document->rgbAt(12, 10), (ColourPOD{20, 10, 250}));
    EXPECT_EQ(document->rgbAt(64, 40), (ColourPOD{20, 10, 250}));
    EXPECT_EQ(editor.strokePoints.size(), 3u);
    EXPECT_EQ(view.redrawn, IExtent<2>(10, 10, 66, 40));
    EXPECT_TRUE(applicator->finished);
    EXPECT_EQ(DocumentEditor::runningApplicator(), nullptr);
    EXPECT_TRUE(document->changedFlag);

    // One level, under the pen's name.
    EXPECT_TRUE(undo().canUndo());
    EXPECT_EQ(undo().undoDescription(), 1219);
    const std::vector<ColourPOD> after = pixels(*document);

    Status status = status::ok;
    editor.execute(status, commandUndo, CommandArgument());
    ASSERT_EQ(status, status::ok);
    EXPECT_EQ(pixels(*document), before);
    EXPECT_FALSE(undo().canUndo());

    editor.execute(status, commandRedo, CommandArgument());
    ASSERT_EQ(status, status::ok);
    EXPECT_EQ(pixels(*document), after);
}

TEST_F(Strokes, UndoNameComesFromTheEffectWhenItHasOne) {
    test::StageLog log;
    auto effect = TQL::makeHandle<test::RecordingEffect>(log, "effect");
    effect->undoName = 1214;
    selection().effect = effect;
    ASSERT_EQ(document->editor.runStroke({StrokePoint{5, 5}, StrokePoint{5, 6}}, nullptr),
              status::ok);
    EXPECT_EQ(undo().undoDescription(), 1214);
}

TEST_F(Strokes, EachStrokeBlendsFromTheImageBeforeIt) {
    // Two strokes at half opacity over the same pixel: the second starts from the first's
    // result, so the colour keeps moving (within one stroke it would not).
    selection().recolour = TQL::makeHandle<LinearRecolour>(255, 255, 255, 1.0f);
    selection().setOpacity(50);
    DocumentEditor& editor = document->editor;
    ASSERT_EQ(editor.runStroke({StrokePoint{0, 0}, StrokePoint{0, 0}}, nullptr), status::ok);
    EXPECT_EQ(document->rgbAt(0, 0).r, 128);
    ASSERT_EQ(editor.runStroke({StrokePoint{0, 0}}, nullptr), status::ok);
    EXPECT_EQ(document->rgbAt(0, 0).r, 128 + 64); // 127 * 0.5 = 63.5, to even
}

TEST_F(Strokes, BeginInAnotherViewAbandonsTheRunningStroke) {
    RecordingStrokeView first, second;
    DocumentEditor& editor = document->editor;
    ASSERT_EQ(editor.beginStroke(StrokePoint{10, 10}, &first), status::ok);
    ASSERT_TRUE(undo().canUndo() == false);

    ASSERT_EQ(editor.beginStroke(StrokePoint{30, 30}, &second), status::ok);
    // The first stroke was abandoned and its level closed; the new one runs in the second
    // view (the same applicator object starts again).
    EXPECT_TRUE(undo().canUndo());
    EXPECT_EQ(DocumentEditor::runningView(), &second);
    EXPECT_FALSE(applicator->abandoned); // start cleared it for the new stroke
    EXPECT_EQ(document->rgbAt(10, 10), (ColourPOD{20, 10, 250}));
    ASSERT_EQ(editor.endStroke(), status::ok);
    EXPECT_EQ(document->rgbAt(31, 30), (ColourPOD{20, 10, 250}));
}

TEST_F(Strokes, BeginInTheSameViewContinuesTheStroke) {
    RecordingStrokeView view;
    DocumentEditor& editor = document->editor;
    ASSERT_EQ(editor.beginStroke(StrokePoint{10, 10}, &view), status::ok);
    ASSERT_EQ(editor.beginStroke(StrokePoint{10, 20}, &view), status::ok);
    EXPECT_FALSE(undo().canUndo());
    EXPECT_EQ(editor.strokePoints.size(), 2u);
    ASSERT_EQ(editor.endStroke(), status::ok);
    EXPECT_TRUE(undo().canUndo());
    Status status = status::ok;
    editor.execute(status, commandUndo, CommandArgument());
    EXPECT_FALSE(undo().canUndo()); // one level for both points
}

TEST_F(Strokes, OpenStrokeStaysOpenAtEnd) {
    applicator->staysOpen = true;
    DocumentEditor& editor = document->editor;
    ASSERT_EQ(editor.beginStroke(StrokePoint{10, 10}, nullptr), status::ok);
    ASSERT_EQ(editor.endStroke(), status::ok);
    EXPECT_FALSE(undo().canUndo());
    EXPECT_EQ(DocumentEditor::runningApplicator(), applicator);

    // Selecting another tool abandons it.
    selection().selectApplicator(nullptr);
    EXPECT_TRUE(applicator->abandoned);
    EXPECT_EQ(feedback.prompts.back(), promptNoTool);
    EXPECT_TRUE(feedback.cursorCleared);

    // The next stroke closes the abandoned one's level first, keeping what it painted.
    selection().selectApplicator(TQL::makeHandle<test::RowApplicator>());
    ASSERT_EQ(document->editor.beginStroke(StrokePoint{40, 40}, nullptr), status::ok);
    EXPECT_TRUE(undo().canUndo());
    EXPECT_EQ(document->rgbAt(10, 10), (ColourPOD{20, 10, 250}));
}

TEST_F(Strokes, EndIsNotReenteredWhileItRuns) {
    DocumentEditor& editor = document->editor;
    Status inner = -1;
    applicator->duringFinish = [&] { inner = editor.endStroke(); };
    ASSERT_EQ(editor.beginStroke(StrokePoint{10, 10}, nullptr), status::ok);
    ASSERT_EQ(editor.endStroke(), status::ok);
    EXPECT_EQ(inner, status::ok);
    EXPECT_EQ(undo().redoCount(), 0);
    Status status = status::ok;
    editor.execute(status, commandUndo, CommandArgument());
    EXPECT_FALSE(undo().canUndo()); // exactly one level
}

TEST_F(Strokes, RunningOutOfMemoryDropsTheStroke) {
    DocumentEditor& editor = document->editor;
    ASSERT_EQ(editor.beginStroke(StrokePoint{10, 10}, nullptr), status::ok);
    applicator->duringExtend = [] { throw std::bad_alloc(); };
    EXPECT_EQ(editor.continueStroke(StrokePoint{20, 20}), status::outOfMemory);
    EXPECT_EQ(messages.ids, std::vector<std::int32_t>{10999});
    EXPECT_EQ(DocumentEditor::runningApplicator(), nullptr);
    EXPECT_TRUE(applicator->abandoned);
    // What was painted before the failure can be undone.
    EXPECT_TRUE(undo().canUndo());
}

TEST_F(Strokes, NoImageOrNoToolIsStatusMinus13) {
    test::TestDocument empty;
    EXPECT_EQ(empty.editor.beginStroke(StrokePoint{1, 1}, nullptr), status::noImage);
    EXPECT_EQ(empty.editor.runStroke({StrokePoint{1, 1}}, nullptr), status::noImage);
    selection().selectApplicator(nullptr);
    EXPECT_EQ(document->editor.beginStroke(StrokePoint{1, 1}, nullptr), status::noImage);
    EXPECT_EQ(document->editor.runStroke({}, nullptr), status::noConversion);
}

TEST_F(Strokes, TimedStoredStrokeCopiesItsPointCountAndSeconds) {
    // The timing setting is read once a process; ctest runs every test in its own.
    setenv("QUORVALETIMING", "1", 1);
    const bool timing = TQL::timingEnabled();
    unsetenv("QUORVALETIMING");
    if (!timing) {
        GTEST_SKIP() << "the timing setting was read off before this test";
    }
    RecordingStrokeView view;
    // A slow stroke, so that the seconds are not all zero digits.
    applicator->duringExtend = [] {
        const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(20);
        while (std::chrono::steady_clock::now() < until) {
        }
    };
    const std::vector<StrokePoint> points{{5, 5}, {6, 6}, {7, 7}};
    const auto before = std::chrono::steady_clock::now();
    ASSERT_EQ(document->editor.runStroke(points, &view), status::ok);
    const double elapsed =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - before).count();

    // "<points>\t<seconds with two decimals>"
    const std::wstring& text = view.clipboard;
    const std::size_t tab = text.find(L'\t');
    ASSERT_NE(tab, std::wstring::npos) << "no tab in the copied text";
    EXPECT_EQ(text.substr(0, tab), L"3");
    const std::wstring seconds = text.substr(tab + 1);
    ASSERT_EQ(seconds.size(), 4u) << "seconds not in the form d.dd";
    EXPECT_EQ(seconds[1], L'.');
    const double value = std::wcstod(seconds.c_str(), nullptr);
    // Three extends of 20 ms at least, rounded to hundredths, and no more than the call took.
    EXPECT_GE(value, 0.055);
    EXPECT_LE(value, elapsed + 0.005);
}

/// A document of a floor (z = 0) seen from eye height, with the stage recorders installed.
class StrokeSurfaces : public testing::Test {
protected:
    void SetUp() override {
        document = test::makeTestDocument(150, 80);
        document->setViewParams(ViewParams()); // eye 1.6 above the floor, looking along +y
        test::SyntheticScene scene;
        scene.add(Plane(), 1);
        scene.render(*document);
        applicator = TQL::makeHandle<test::RowApplicator>();
        applicator->width = 0;
        matting = TQL::makeHandle<test::RecordingMatting>(log, "matting");
        effect = TQL::makeHandle<test::RecordingEffect>(log, "effect");
        applicator->matting = matting;
        applicator->effect = effect;
        applicator->fog = TQL::makeHandle<test::RecordingFog>(log, "fog");
        applicator->texture = TQL::makeHandle<test::RecordingTexture>(log, "texture");
        applicator->recolour = TQL::makeHandle<test::RecordingRecolour>(log, "recolour");
        applicator->grain = TQL::makeHandle<test::RecordingGrain>(log, "grain");
        applicator->blend = TQL::makeHandle<test::RecordingBlend>(log, "blend");
    }

    /// The setSurface calls of the log, in order.
    std::vector<std::string> surfaceCalls() const {
        std::vector<std::string> out;
        for (const std::string& name : test::names(log)) {
            if (name.rfind("setSurface", 0) == 0) {
                out.push_back(name);
            }
        }
        return out;
    }

    static constexpr StrokePoint onFloor{75, 70};
    std::unique_ptr<test::TestDocument> document;
    TQL::Handle<test::RowApplicator> applicator;
    test::StageLog log;
    TQL::Handle<test::RecordingMatting> matting;
    TQL::Handle<test::RecordingEffect> effect;
};

TEST_F(StrokeSurfaces, EveryStageHearsOfTheStrokesPlaneInStartOrder) {
    effect->hasPlane = true;
    effect->ownPlane = document->planeAt(onFloor.x, onFloor.y);
    applicator->start(*document, nullptr, onFloor);
    EXPECT_EQ(surfaceCalls(),
              (std::vector<std::string>{"setSurface matting", "setSurface effect", "setSurface fog",
                                        "setSurface texture", "setSurface recolour",
                                        "setSurface grain", "setSurface blend"}));
    // The camera's own plane at the start point: nothing changed.
    EXPECT_TRUE(applicator->changedSurfaces.empty());
}

TEST_F(StrokeSurfaces, AnyDifferenceFromTheCamerasPlaneCountsHoweverSmall) {
    const Plane camera = document->planeAt(onFloor.x, onFloor.y);
    ASSERT_TRUE(camera.isValid());
    const double d = camera.distanceFromOrigin();
    Vector<3> tilted = camera.normal();
    tilted[0] = std::nextafter(tilted[0], 1.0);
    const struct {
        const char* what;
        Plane plane;
    } cases[] = {
        {"distance one step further",
         Plane::fromNormalDistance(camera.normal(), std::nextafter(d, 1e9))},
        {"normal one step off", Plane::fromNormalDistance(tilted, d)},
        {"a wall", Plane::fromNormalDistance(Vector<3>(0, -1, 0), -14)},
    };
    for (const auto& c : cases) {
        applicator->changedSurfaces.clear();
        effect->hasPlane = true;
        effect->ownPlane = c.plane;
        applicator->start(*document, nullptr, onFloor);
        ASSERT_EQ(applicator->changedSurfaces.size(), 1u) << c.what;
        EXPECT_EQ(applicator->changedSurfaces[0].normal(), c.plane.normal()) << c.what;
        EXPECT_EQ(applicator->changedSurfaces[0].distanceFromOrigin(), c.plane.distanceFromOrigin())
            << c.what;
    }
}

TEST_F(StrokeSurfaces, TheLockedPlaneServesWhenTheEffectHasNone) {
    matting->hasLockPlane = true;
    matting->lockedPlane = Plane::fromNormalDistance(Vector<3>(0, -1, 0), -14);
    applicator->start(*document, nullptr, onFloor);
    EXPECT_EQ(surfaceCalls().size(), 7u);
    ASSERT_EQ(applicator->changedSurfaces.size(), 1u);
    EXPECT_EQ(applicator->changedSurfaces[0].distanceFromOrigin(), -14);

    // The effect's plane comes first: the camera's plane there, so nothing changed.
    log.clear();
    applicator->changedSurfaces.clear();
    effect->hasPlane = true;
    effect->ownPlane = document->planeAt(onFloor.x, onFloor.y);
    applicator->start(*document, nullptr, onFloor);
    EXPECT_EQ(surfaceCalls().size(), 7u);
    EXPECT_TRUE(applicator->changedSurfaces.empty());
}

TEST_F(StrokeSurfaces, NoPlaneOrNoCameraTellsNoStage) {
    applicator->start(*document, nullptr, onFloor);
    EXPECT_TRUE(surfaceCalls().empty());
    EXPECT_TRUE(applicator->changedSurfaces.empty());

    auto line = test::makeTestDocument(40, 1); // a single row has no view conversion
    ASSERT_FALSE(line->viewProj());
    effect->hasPlane = true;
    effect->ownPlane = Plane::fromNormalDistance(Vector<3>(0, -1, 0), -14);
    applicator->start(*line, nullptr, StrokePoint{5, 0});
    EXPECT_TRUE(surfaceCalls().empty());
    EXPECT_TRUE(applicator->changedSurfaces.empty());
}

TEST(ToolSelection, StartValuesAndTheOpacityCommand) {
    ToolSelection& selection = ToolSelection::instance();
    selection.reset();
    EXPECT_EQ(selection.matting, nullptr);
    EXPECT_NE(dynamic_cast<Paint*>(selection.effect.get()), nullptr);
    const auto* recolour = dynamic_cast<LinearRecolour*>(selection.recolour.get());
    ASSERT_NE(recolour, nullptr);
    EXPECT_EQ(recolour->strength(), 1.0f);
    EXPECT_EQ(recolour->toolColour(), (ColourPOD{0, 0, 0}));
    const auto* blend = dynamic_cast<Blender*>(selection.blend.get());
    ASSERT_NE(blend, nullptr);
    EXPECT_EQ(blend->opacity(), 1.0f);
    EXPECT_EQ(blend->mode(), 0u);

    selection.setBlendMode(1);
    const struct {
        int percent;
        float opacity;
    } cases[] = {{50, 0.5f}, {0, 0.01f}, {-7, 0.01f}, {100, 1.0f}, {250, 1.0f}, {37, 0.37f}};
    for (const auto& c : cases) {
        const TQL::Handle<BlendTool> old = selection.blend;
        selection.setOpacity(c.percent);
        EXPECT_NE(selection.blend, old); // a new Blender each time
        const auto* b = dynamic_cast<Blender*>(selection.blend.get());
        ASSERT_NE(b, nullptr);
        EXPECT_FLOAT_EQ(b->opacity(), c.opacity) << c.percent;
        EXPECT_EQ(b->mode(), 1u);
    }
    selection.reset();
}

} // namespace
