#pragma once

#include "styles/CToolStyle.h"

#include <cstdint>
#include <string>

/// A tool of the toolbox as the engine sees it: it holds the values the user sets, turns
/// them into pipeline objects (`build`: an applicator, or a stage for one of the selection
/// slots) and moves them to and from a style (`readStyle`, `writeStyle` through
/// CToolStyle's current storage). The application's Qt pages show and edit the values of
/// the concrete classes (CSetFill, CSetMatte, CSetFog...) and call `build` after a change.
///
/// Typical use from a page: change a field, then `build()`; to apply a style, attach its
/// storage (CToolStyle::Attach) and call `readStyle()` then `build()`.
class CToolUI : public CToolStyle {
public:
    /// `toolSlot`: 1 applicators, 2 locks, 3 effects, 5 texture, 6 grain, 7 fog, 8 the
    /// panorama navigator. `titleId` is the string id of the page title (0: no page title).
    CToolUI(bool hasPage, std::int32_t toolSlot, std::uint32_t titleId, std::uint16_t toolId,
            std::wstring sectionName);

    bool hasPage() const { return hasPage_; }
    std::int32_t toolSlot() const { return toolSlot_; }
    std::uint32_t titleId() const { return titleId_; }
    std::uint16_t toolId() const { return toolId_; }
    /// The style field bit of the tool's slot: slots 1 to 7 give 1, 2, 4, 8, 16, 32, 128;
    /// others 0.
    std::uint32_t fieldBit() const;

    /// Makes the pipeline object and installs it in its selection slot, if this tool is the
    /// current one of its kind.
    virtual void build() = 0;
    /// Restores the factory settings.
    virtual void setDefaults() {}
    /// Reads every key from the current storage, present values as defaults.
    virtual void readStyle() {}
    /// Writes every key to the current storage.
    virtual void writeStyle() {}
    virtual bool hasThumbnail() const { return false; }
    /// Brings the page up to date (the application's page overrides it).
    virtual void refresh() {}
    /// The applicator this effect runs under.
    virtual int effectAllowedId() const { return 2001; }
    /// The effect is told the applicator it now runs under.
    virtual void setApplicator(int applicatorId) {}
    virtual bool isActivePage() const { return titleId_ != 0; }
    /// The page title from the language file.
    virtual std::wstring getTitle() const;

private:
    bool hasPage_;
    std::int32_t toolSlot_;
    std::uint32_t titleId_;
    std::uint16_t toolId_;
};
