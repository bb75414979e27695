#pragma once

#include "core/Handle.h"
#include "image/StrokeApplicator.h"
#include "pipeline/Applicator.h"
#include "pipeline/PipelineTool.h"

#include <cstdint>

/// Where the tools talk to the user: prompts by string id and the pseudo-cursor of the
/// selected tool. The application implements it; without one nothing is shown.
class ToolFeedback {
public:
    virtual ~ToolFeedback() = default;
    virtual void prompt(std::uint32_t stringId) = 0;
    /// Installs the pseudo-cursor of the selected tool; null clears it.
    virtual void setPseudoCursor(const TQL::Handle<TQL::Handlable>& cursor) = 0;
};

/// The process's current tool: seven stage slots, one per family, and the selected
/// applicator. Tool pages write into the slots; a stroke copies them into its applicator
/// when it starts (matting, effect, fog, texture, recolour, grain, blend, in that order).
///
/// At program start the effect is a Paint, the recolour a LinearRecolour of black at
/// strength 1, the blend a Normal Blender at full opacity, the rest empty. Interface thread
/// only.
class ToolSelection : public StrokeTools {
public:
    /// The one selection of the process, installed as the document editor's stroke tools
    /// on first use.
    static ToolSelection& instance();

    TQL::Handle<MattingTool> matting;
    TQL::Handle<EffectTool> effect;
    TQL::Handle<FogTool> fog;
    TQL::Handle<TextureTool> texture;
    TQL::Handle<RecolourTool> recolour;
    TQL::Handle<GrainTool> grain;
    TQL::Handle<BlendTool> blend;

    /// Selects `applicator` (null for none): a previous one with an open stroke is asked to
    /// abandon it; the new one is told it is `ready`. With none, the pseudo-cursor is
    /// cleared and prompt 523 shown.
    void selectApplicator(const TQL::Handle<Applicator>& applicator);
    const TQL::Handle<Applicator>& applicator() const { return applicator_; }

    /// The opacity command: `percent` clamped to 1..100 makes a new Blender of that
    /// opacity / 100, keeping the present mode.
    void setOpacity(int percent);
    /// The mode command: a new Blender of mode `mode`, keeping the present opacity.
    void setBlendMode(std::uint32_t mode);

    /// Back to the program's start values, with no applicator selected.
    void reset();

    void setFeedback(ToolFeedback* feedback) { feedback_ = feedback; }
    ToolFeedback* feedback() const { return feedback_; }

    // StrokeTools.
    TQL::Handle<StrokeApplicator> selectedApplicator() override;
    void prepareStroke(StrokeApplicator& applicator) override;

private:
    ToolSelection();

    TQL::Handle<Applicator> applicator_;
    ToolFeedback* feedback_ = nullptr;
};

/// String ids of the pipeline's prompts.
inline constexpr std::uint32_t promptNoTool = 523;
