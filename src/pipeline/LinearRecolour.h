#pragma once

#include "core/Colour.h"
#include "pipeline/PaintRandom.h"
#include "pipeline/PipelineTool.h"

/// Turns the working colour into the tool colour by `strength`: at 1 the colour replaces
/// it, between 0 and 1 each channel moves that far (w + rint((c - w) * strength), modulo
/// 256), at 0 or below nothing happens. Only pixels with alpha above 0 change.
class LinearRecolour : public RecolourTool {
public:
    /// The tool colour as the colour dialogs give it: red, green, blue.
    LinearRecolour(std::uint8_t red, std::uint8_t green, std::uint8_t blue, float strength);

    void run(Span& span, int first, int last) override;
    /// Picks a randomised colour near the tool colour for what follows (see RecolourTool);
    /// hue varies by up to min(amount, 180) degrees, lightness and saturation by up to
    /// min(amount, 100) / 100.
    void pickColour(int spreadAmount, int spreadType) override;
    float strength() const override { return strength_; }
    /// Forgets the picked colour.
    void finish() override { picked_ = false; }

    /// The colour `run` lays now: the picked one, or the tool colour.
    ColourPOD colour() const { return picked_ ? pickedColour_ : colour_; }
    ColourPOD toolColour() const { return colour_; }
    bool picked() const { return picked_; }

private:
    ColourPOD colour_;
    float strength_;
    bool picked_ = false;
    ColourPOD pickedColour_;
    PaintRandom random_;
};

/// The common steps of the recolour stages, over first..last where alpha is above 0.
/// replaceColour: the working colour becomes `target[i]` (or `target[0]` for every pixel
/// unless `targetPerPixel`). moveColour: each channel moves by
/// rint((c - w) * strength), modulo 256.
void replaceColour(ColourPOD* working, const ColourPOD* target, bool targetPerPixel,
                   const Alpha* alpha, int first, int last);
void moveColour(ColourPOD* working, const ColourPOD* target, bool targetPerPixel,
                const Alpha* alpha, float strength, int first, int last);
