#pragma once

#include "image/DocumentViews.h"

#include <string>
#include <vector>

namespace test {

/// Views that record what a document tells them: every call by name, in order ("capture",
/// "cancel", "update <hint>", "invalidate", "undo state"), and the extents to repaint.
class RecordingViews : public DocumentViews {
public:
    void cancelDrawing() override { calls.push_back("cancel"); }
    void endCapture() override { calls.push_back("capture"); }
    void update(std::uint32_t hint) override { calls.push_back("update " + std::to_string(hint)); }
    void invalidate(const IExtent<2>& extent) override {
        calls.push_back("invalidate");
        invalidated.push_back(extent);
    }
    void undoStateChanged() override { calls.push_back("undo state"); }

    std::vector<std::string> calls;
    std::vector<IExtent<2>> invalidated;
};

} // namespace test
