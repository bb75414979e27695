// Strokes through the document editor's entry points, with the process's tool selection:
// undo levels, abandoning, open strokes, re-entry, memory failure; and the selection itself.

#include "PipelineTestSupport.h"

#include "image/DocumentCommands.h"
#include "pipeline/Blender.h"
#include "pipeline/LinearRecolour.h"
#include "pipeline/Paint.h"
#include "pipeline/ToolSelection.h"
#include "support/RecordingViews.h"
#include "support/TestDocument.h"

#include <gtest/gtest.h>

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
