#pragma once

#include "core/Colour.h"
#include "interchange/model/SmoothModel.h"

/// Colour 7 is white on a dark screen and black on paper: drawings use it for ordinary
/// lines and faces. It is drawn as on paper, dark, so that such faces stand out against a
/// light sky; a dark grey rather than black keeps their shading visible.
inline constexpr ColourPOD sevenOnPaper{64, 64, 64};

/// The colour of a DXF colour number (the drawing's 256-colour index): 1 to 7 red,
/// yellow, green, cyan, blue, magenta and colour 7 (sevenOnPaper); 8 and 9 greys; 10 to 249 24 hues
/// 15 degrees apart, each in five brightnesses (255, 165, 127, 76 and 38), every one full and half
/// saturated in turn; 250 to 255 six greys from dark to white. Numbers outside 1 to 255 (0 by
/// block, 256 by layer, negative for a layer switched off) give the default grey.
ColourPOD dxfColour(int index);

/// The grey of geometry whose colour isn't known.
inline constexpr ColourPOD defaultModelColour{192, 192, 192};

/// A model material's colour: from its "colour" attribute (a DXF colour number), or the
/// default grey when it has none.
ColourPOD modelMaterialColour(const MeshModel::Material& material);
