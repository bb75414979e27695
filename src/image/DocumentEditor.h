#pragma once

#include "core/Extent.h"
#include "core/Handle.h"
#include "core/Plane.h"
#include "core/Status.h"
#include "image/AlphaBitmap.h"
#include "image/RgbBitmap.h"
#include "image/StrokeApplicator.h"
#include "image/UndoBuffer.h"

#include <cstdint>
#include <vector>

class ZmapDocument;
class Reporter;
struct CommandArgument;
class CommandMessages;
class DocumentCommands;
class DocumentToolState;
class RepeatableAction;

/// The editing state that a document keeps for the tools (the work bitmaps of the stroke in
/// progress, the extents a pass has applied, the undo store) and the numbered commands that
/// change the whole document. A plain member of the document.
class DocumentEditor {
public:
    explicit DocumentEditor(ZmapDocument* owner);
    ~DocumentEditor();
    DocumentEditor(const DocumentEditor&) = delete;
    DocumentEditor& operator=(const DocumentEditor&) = delete;

    /// Runs command `command` (DocumentCommand, 0 to 15) with its argument (DocumentCommands.h
    /// says which record each takes). The only door through which a whole document changes:
    ///
    /// - -21 for a number outside 0 to 15, -13 without a document, -13 for a missing or wrong
    ///   argument; then nothing happens.
    /// - First the views end any pseudo-cursor capture and stop drawing; revert, paste, undo
    ///   and flatten release the tools' state that refers to the document.
    /// - After a successful command (status 0, or the warning -20): one that changes the
    ///   document marks it changed, except that undo and redo reaching the saved level of
    ///   the undo store mark it unchanged, unless since the last save a change the store
    ///   can't take back was made (commit, crop and material set count as such); one that
    ///   counts as saved marks it unchanged and marks the store's current level saved.
    ///
    /// Commands that change pixels close an undo level; commit and crop start the store
    /// again, since none of its levels fits what they leave.
    void execute(Status& status, std::int32_t command, const CommandArgument& argument);

    /// The bodies of the file commands (not owned; null: those commands give -13).
    void setCommands(DocumentCommands* commands) { commands_ = commands; }
    DocumentCommands* commands() const { return commands_; }
    /// Where commands tell the user things (not owned; null: nobody listens).
    void setMessages(CommandMessages* messages) { messages_ = messages; }
    CommandMessages* messages() const { return messages_; }
    /// Progress of long commands (not owned; may be null).
    void setProgress(Reporter* progress) { progress_ = progress; }
    Reporter* progress() const { return progress_; }
    /// The action the repeat command runs; null for none.
    void setRepeatAction(const TQL::Handle<RepeatableAction>& action);
    /// The tools' state of the process, released before some commands (not owned).
    static void setToolState(DocumentToolState* toolState);

    /// Tells the messages object, if any.
    void tell(std::int32_t id, const std::wstring& text) const;
    void tellProgress(std::int32_t id, const std::wstring& text) const;

    /// Set by a change the undo store can't take back (a command that changes the document
    /// without commandKeepsChangedSinceOpen), cleared only by clearing the document: once
    /// set, undoing to the saved level no longer counts as unchanged.
    bool changedSinceOpen() const { return changedSinceOpen_ != 0; }
    void setChangedSinceOpen(bool changed) { changedSinceOpen_ = changed ? 1 : 0; }

    // Strokes (DocumentEditorStroke.cpp). One stroke runs at a time in the process; each
    // entry returns 0, -13 without an image or applicator, or -10 after running out of
    // memory (the stroke is then dropped and string 10999 shown).

    /// Starts a stroke of the selected applicator at `point`, or, while a stroke of it runs
    /// in the same view, goes on with that one. Any other running stroke is abandoned and its
    /// undo level closed first.
    [[nodiscard]] Status beginStroke(const StrokePoint& point, StrokeView* view);
    /// The next point of the running stroke.
    [[nodiscard]] Status continueStroke(const StrokePoint& point);
    /// Finishes the running stroke. An applicator that waits for more input keeps it open;
    /// otherwise the undo level is closed under the applicator's name.
    [[nodiscard]] Status endStroke();
    /// Runs a whole stroke from stored points at once (-12 for none).
    [[nodiscard]] Status runStroke(const std::vector<StrokePoint>& points, StrokeView* view);
    /// The selection strokes start from (not owned; installed by the paint pipeline).
    static void setStrokeTools(StrokeTools* tools);
    /// The running stroke of the process: its applicator, document and view.
    static TQL::Handle<StrokeApplicator> runningApplicator();
    static ZmapDocument* runningDocument();
    static StrokeView* runningView();
    /// Clears the planes a stroke lays its coverage and wet colour in, for a new stroke. The
    /// coverage planes keep their tiles for the stroke to reuse (AlphaBitmap::clearKeepingTiles).
    void clearStrokePlanes();
    /// Forgets the running stroke if it paints `document`, which is going away.
    static void releaseRunningStroke(const ZmapDocument* document);
    /// The points of the last stroke, as its applicator took them.
    std::vector<StrokePoint> strokePoints;

    ZmapDocument* document;
    /// The extents that the current pass has applied, in order.
    std::vector<IExtent<2>> appliedExtents;
    /// Coverage laid so far by the stroke in progress, 0 to 1.
    TQL::Handle<AlphaBitmap> strokeAlpha;
    /// Coverage of the wet planes of a stroke.
    TQL::Handle<AlphaBitmap> wetAlpha;
    /// Colour of the wet planes of a stroke.
    TQL::Handle<RgbCacheBitmap> wetCache;
    /// The document's undo store; made by allocateChannels.
    TQL::Handle<UndoBuffer> undoBuffer;
    /// The plane tools fall back on before they have one of their own: the view's
    /// background plane, set when a file is opened.
    Plane lastPlane;

private:
    void commit(Status& status);
    void paste(Status& status, const CommandArgument& argument);
    void stepUndo(Status& status, bool forward);
    void repeat(Status& status);
    void crop(Status& status, const CommandArgument& argument);
    void materialSet(Status& status, const CommandArgument& argument);
    void flatten(Status& status);
    void autoLevels(Status& status);
    /// Closes an undo level for the command that just changed the document.
    void pushLevel(Status& status, std::int32_t description);

    DocumentCommands* commands_ = nullptr;
    CommandMessages* messages_ = nullptr;
    Reporter* progress_ = nullptr;
    TQL::Handle<RepeatableAction> repeatAction_;
    std::uint8_t changedSinceOpen_ = 0;
};
