#pragma once

#include "applicators/BrushApplicator.h"
#include "core/Handle.h"
#include "core/Status.h"
#include "styles/CToolUI.h"

#include <string>

/// The brush tool (tool 2001, section "Brush"): every brush and mask setting, moved to and
/// from styles by their keys. `build` selects a new BrushApplicator as the process's
/// applicator when the brush is the toolbox's current applicator; a picture that cannot be
/// read leaves the selection alone and keeps the status and message for the page to show.
class CSetBrush : public CToolUI {
public:
    static constexpr std::uint16_t id = 2001;

    CSetBrush();

    BrushSettings settings;

    /// A new brush of the present settings; null with a status and message when a picture
    /// file cannot be read.
    TQL::Handle<BrushApplicator> makeBrush(Status& status, std::wstring& message) const;

    void build() override;
    void setDefaults() override;
    void readStyle() override;
    void writeStyle() override;

    /// The outcome of the last build: ok, or why no brush was made.
    Status lastStatus() const { return lastStatus_; }
    const std::wstring& lastMessage() const { return lastMessage_; }

private:
    Status lastStatus_ = status::ok;
    std::wstring lastMessage_;
};
