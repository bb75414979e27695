#pragma once

#include "applicators/Filler.h"
#include "core/Handle.h"
#include "styles/CToolUI.h"

/// The fill tool (tool 2003, section "Fill"): one setting, `flood`. `build` selects a new
/// Filler as the process's applicator when the fill is the toolbox's current applicator.
class CSetFill : public CToolUI {
public:
    static constexpr std::uint16_t id = 2003;

    CSetFill();

    /// Flood from the clicked pixel when a lock is on ("Flood"); otherwise fill everything.
    bool flood = true;

    /// A new Filler of the present settings.
    TQL::Handle<Filler> makeFiller() const;

    void build() override;
    void setDefaults() override;
    void readStyle() override;
    void writeStyle() override;
};
