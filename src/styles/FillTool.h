#pragma once

#include "core/Status.h"
#include "image/StrokeApplicator.h"
#include "styles/Toolbox.h"

#include <cstdint>

class CSetFill;
class CSetFog;
class CSetMatte;
class ZmapDocument;

/// Runs one fill at pixel (x, y) of `document` as a stroke of the document editor, with the
/// given toolbox state: the Filler of `fill`, the locks of `matte` for `state.lockMask`
/// (none when the mask is 0), the fog of `fog` when `state.fogOn`, the colour and blend of
/// the state. These are installed in the process's ToolSelection (the fill becomes the
/// selected applicator, as selecting the tool would make it) and the stroke runs through
/// DocumentEditor::runStroke, so it closes one undo level named 1247 (or the effect's
/// name). `view` may be null. Returns the editor's status: 0, -13 without an image, -10
/// out of memory. A stopped fill returns 0 too: what it painted is kept in the level.
Status runFill(ZmapDocument& document, std::int32_t x, std::int32_t y, StrokeView* view,
               const CSetFill& fill, const CSetMatte& matte, const CSetFog& fog,
               const ToolboxState& state);

/// The same with the tools registered in the Toolbox (ids 2003, 1107, 1110; factory
/// settings for any that is missing) and its state.
Status runFill(ZmapDocument& document, std::int32_t x, std::int32_t y, StrokeView* view);
