#pragma once

#include "core/Extent.h"
#include "core/Handle.h"

#include <cstdint>
#include <string>
#include <vector>

class ZmapDocument;

/// Flags of a stroke point.
enum StrokePointFlag : std::uint32_t {
    strokeConstrained = 4, ///< a constraint key is held
    strokeEnds = 8,        ///< the stroke ends at this point
};

/// One point of a stroke, as the view hands it over.
struct StrokePoint {
    std::int32_t x = 0;
    std::int32_t y = 0;
    float pressure = 1.0f; ///< 0 to 1; 1 for a mouse
    std::uint32_t flags = 0;
    constexpr bool operator==(const StrokePoint&) const = default;
};

/// The view a stroke is painted in, as the engine sees it. The application's views
/// implement it; a stroke without a view (the command-line tool, tests) passes null.
class StrokeView {
public:
    virtual ~StrokeView() = default;
    /// These pixels changed and are to be drawn again.
    virtual void queueRedraw(const IExtent<2>& extent) = 0;
    /// Puts a text on the clipboard (the timing of a stored stroke).
    virtual void copyToClipboard(const std::wstring& text) = 0;
};

/// An applicator as the document editor drives it through a stroke. The paint pipeline
/// implements it; the editor keeps the one running stroke of the process.
class StrokeApplicator : public TQL::Handlable {
public:
    /// A whole stroke from stored points (not empty): start with the first, then finish.
    virtual void apply(ZmapDocument& document, StrokeView* view,
                       const std::vector<StrokePoint>& points) = 0;
    virtual void start(ZmapDocument& document, StrokeView* view, const StrokePoint& point) = 0;
    /// The next point; true if something was painted.
    virtual bool extend(ZmapDocument& document, StrokeView* view, const StrokePoint& point) = 0;
    virtual void finish(ZmapDocument& document, StrokeView* view) = 0;
    /// Stops the stroke; what was painted stays until the level is undone.
    virtual void abandon() = 0;
    virtual bool isAbandoned() const = 0;
    virtual bool isFinished() const = 0;
    /// The string id under which the stroke's undo level is closed.
    virtual std::uint32_t undoNameId() const = 0;
    /// The applicator's helpers in the view (pseudo-cursor tracking and the like) are stopped
    /// while a stroke runs and started again at its end.
    virtual void stopHelpers() {}
    virtual void startHelpers() {}
};

/// The process's tool selection as the editor needs it at the start of a stroke. The paint
/// pipeline implements it and installs it with DocumentEditor::setStrokeTools.
class StrokeTools {
public:
    virtual ~StrokeTools() = default;
    /// The applicator a new stroke runs; null for none.
    virtual TQL::Handle<StrokeApplicator> selectedApplicator() = 0;
    /// Gives `applicator` the selected stages before its stroke starts.
    virtual void prepareStroke(StrokeApplicator& applicator) = 0;
};
