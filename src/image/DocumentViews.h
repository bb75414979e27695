#pragma once

#include "core/Extent.h"

#include <cstdint>

/// Hints of the views' update call when a command changes the whole document.
inline constexpr std::uint32_t viewHintChanged = 0x20000;
inline constexpr std::uint32_t viewHintAboutToChange = 0x40000;

/// What a document tells the views that show it. The application's views implement it (one
/// object speaks for all views of a document); a document without views has none. Called on
/// the interface thread.
class DocumentViews {
public:
    virtual ~DocumentViews() = default;
    /// Stop drawing this document: it is about to change under the drawing thread.
    virtual void cancelDrawing() = 0;
    /// End a pending capture of a pseudo-cursor before a command runs.
    virtual void endCapture() = 0;
    /// The views' update call with a hint: viewHintAboutToChange, viewHintChanged.
    virtual void update(std::uint32_t hint) = 0;
    /// These pixels changed and must be drawn again; an empty extent means the whole image.
    virtual void invalidate(const IExtent<2>& extent) = 0;
    /// Undo or Redo became possible or impossible, or their descriptions changed.
    virtual void undoStateChanged() = 0;
};
