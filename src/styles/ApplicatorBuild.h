#pragma once

#include "core/Status.h"
#include "pipeline/ToolSelection.h"
#include "styles/Toolbox.h"

#include <cstdint>
#include <string>

/// What the applicator pages' `build` share: when applicator `id` is the toolbox's current
/// one, makes it by `make(status, message)` and selects it; when that fails, the last
/// selection stays and `status`/`message` say why.
template <class Make>
void buildIfCurrent(std::uint16_t id, Status& status, std::wstring& message, Make&& make) {
    if (Toolbox::instance().state.currentApplicatorId != id) {
        return;
    }
    auto applicator = make(status, message);
    if (applicator) {
        ToolSelection::instance().selectApplicator(applicator);
    }
}
