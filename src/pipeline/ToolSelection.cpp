#include "pipeline/ToolSelection.h"

#include "image/DocumentEditor.h"
#include "pipeline/Blender.h"
#include "pipeline/LinearRecolour.h"
#include "pipeline/Paint.h"

#include <algorithm>

ToolSelection& ToolSelection::instance() {
    static ToolSelection selection;
    static const bool installed = [] {
        DocumentEditor::setStrokeTools(&selection);
        return true;
    }();
    (void)installed;
    return selection;
}

ToolSelection::ToolSelection() {
    reset();
}

void ToolSelection::reset() {
    matting = nullptr;
    effect = TQL::makeHandle<Paint>();
    fog = nullptr;
    texture = nullptr;
    recolour = TQL::makeHandle<LinearRecolour>(0, 0, 0, 1.0f);
    grain = nullptr;
    blend = TQL::makeHandle<Blender>(1.0f, 0);
    applicator_ = nullptr;
}

void ToolSelection::selectApplicator(const TQL::Handle<Applicator>& applicator) {
    if (applicator_ && applicator_->isStrokeOpen()) {
        applicator_->abandon();
    }
    applicator_ = applicator;
    if (applicator_) {
        applicator_->ready();
    } else if (feedback_) {
        feedback_->setPseudoCursor(nullptr);
        feedback_->prompt(promptNoTool);
    }
}

void ToolSelection::setOpacity(int percent) {
    const auto* present = dynamic_cast<const Blender*>(blend.get());
    const std::uint32_t mode = present ? present->mode() : 0;
    blend =
        TQL::makeHandle<Blender>(static_cast<float>(std::clamp(percent, 1, 100)) / 100.0f, mode);
}

void ToolSelection::setBlendMode(std::uint32_t mode) {
    const auto* present = dynamic_cast<const Blender*>(blend.get());
    blend = TQL::makeHandle<Blender>(present ? present->opacity() : 1.0f, mode);
}

TQL::Handle<StrokeApplicator> ToolSelection::selectedApplicator() {
    return applicator_;
}

void ToolSelection::prepareStroke(StrokeApplicator& stroke) {
    auto* applicator = dynamic_cast<Applicator*>(&stroke);
    if (!applicator) {
        return;
    }
    applicator->setMatting(matting);
    applicator->setEffect(effect);
    applicator->setFog(fog);
    applicator->setTexture(texture);
    applicator->setRecolour(recolour);
    applicator->setGrain(grain);
    applicator->setBlend(blend);
}
