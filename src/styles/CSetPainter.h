#pragma once

#include "applicators/Painter.h"
#include "core/Handle.h"
#include "core/Status.h"
#include "styles/CToolUI.h"

#include <string>

/// The painter tool (tool 2004, section "Painter"): the cells, the strokes' shape, ramp,
/// direction and depth behaviour, the colour reference and the dab sizes, moved to and
/// from styles by their keys. `build` selects a new Painter when the painter is the
/// toolbox's current applicator; a picture that cannot be read leaves the selection alone
/// and keeps the status and message for the page to show.
class CSetPainter : public CToolUI {
public:
    static constexpr std::uint16_t id = 2004;

    CSetPainter();

    PainterSettings settings;
    /// The first state of the strokes' random numbers; each build starts from it anew, so
    /// that a replay paints the same strokes. Set from the runtime's generator at
    /// construction.
    std::uint32_t seed;

    /// A new painter of the present settings; null with a status and message when the
    /// picture cannot be read.
    TQL::Handle<Painter> makePainter(Status& status, std::wstring& message) const;

    void build() override;
    void setDefaults() override;
    void readStyle() override;
    void writeStyle() override;

    Status lastStatus() const { return lastStatus_; }
    const std::wstring& lastMessage() const { return lastMessage_; }

private:
    Status lastStatus_ = status::ok;
    std::wstring lastMessage_;
};
