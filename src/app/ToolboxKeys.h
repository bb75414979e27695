#pragma once

#include "styles/Toolbox.h"

#include <string>

/// The toolbox's own keys in a style's section "Toolbox": "ToolState" (applicator, lock
/// mask, effect code, texture on, grain on, blend mode), "Fog", "Fad" (blend opacity),
/// "Res" (colour strength) and "Col" (red * 65536 + green * 256 + blue). Reads and writes
/// go to CToolStyle's current storage; a key that is missing or won't parse leaves its part
/// of the state as it was, and values are clamped into their ranges on reading.
namespace toolboxkeys {

/// The "ToolState" text of a state: an applicator id outside the toolbox's set is written
/// as 2001, effect ids 1 to 6 as the codes 1, 3, 4, 5, 7, 8.
std::wstring toolStateText(const ToolboxState& state);
/// Applies a "ToolState" text; parts that are absent (-1) or unknown (effect code 6) are
/// left alone.
void applyToolState(const std::wstring& text, ToolboxState& state);

void read(ToolboxState& state);
void write(const ToolboxState& state);

} // namespace toolboxkeys
