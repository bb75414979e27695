#pragma once

#include "core/Angle.h"
#include "core/Point.h"
#include "core/Reporter.h"
#include "core/Status.h"
#include "interchange/model/SmoothModel.h"

#include <cstddef>
#include <span>
#include <string>
#include <vector>

/// How a drawing is read.
struct DXFReadOptions {
    /// Faces meeting at a greater angle (between their normals) are shaded apart.
    Angle smoothAngle = Angle::degrees(30);
    /// Points of faces closer than this (drawing units) are one point.
    double tolerance = 0.001;
    /// The most faces and block copies the drawing may make; a drawing that makes more
    /// (nested arrays of blocks can multiply without end) is refused.
    std::size_t maxFaces = 10'000'000;
    /// The deepest nesting of blocks inserted in blocks.
    int maxInsertDepth = 16;
    /// Progress by bytes read; a request to abandon stops the reading. Not owned.
    Reporter* progress = nullptr;
};

/// A paper-space viewport of the drawing: how its author looked at the model.
struct DXFViewport {
    Point<3> centre; ///< on the sheet
    double width = 0, height = 0;
    Point<3> viewTarget;              ///< model point looked at
    Vector<3> viewDirection{0, 0, 1}; ///< from the target towards the eye
    double lensLength = 50;           ///< millimetres, for perspective views
    double viewHeight = 0;            ///< model units shown across the viewport's height
    double twist = 0;                 ///< degrees
};

/// What a reading found besides the geometry.
struct DXFReadInfo {
    int insUnits = 0;                 ///< $INSUNITS of the header, 0 when missing
    double metresPerUnit = 0;         ///< from $INSUNITS; 0 when unknown
    std::vector<std::wstring> layers; ///< the layer table, in its order
    std::vector<DXFViewport> viewports;
    std::size_t entities = 0; ///< entities turned into geometry, inserts and viewports
    std::size_t skipped = 0;  ///< entities of other kinds, passed over
    std::size_t faces = 0;    ///< faces handed to the model
    /// Lines, curves and outlines read that have no area (no thickness or width), and so
    /// make no face (a block's are counted once, however often it is inserted).
    std::size_t lines = 0;
};

/// Reads a DXF drawing, text or binary, into `model` and finishes the model.
///
/// Faces come from 3DFACE, SOLID, TRACE, polygon and polyface meshes, circles with a
/// thickness (a closed cylinder), lines and polylines with a thickness (walls; a closed
/// outline gets no ends) and polylines with a width (bands, or slabs when also thick).
/// Lines, arcs of polylines, ellipses, 3D polylines and closed polylines without thickness
/// or width have no area and make nothing; so do entities of paper space and entities of
/// other kinds, which are passed over. Blocks are placed by INSERT with their base point,
/// scale, rotation, extrusion and column and row arrays, nested; entities of a block on
/// layer "0" take the insert's layer.
///
/// Each layer is a material named as the layer, unless the layer record's extended data
/// of application "ACAD" hold the text "AVE_MATERIAL" (or "AVE_FINISH") followed by a
/// text naming the material, or an AVE_MATERIAL or AVE_FINISH object (group 1, else 2 or
/// 3, the name) is attached to it, by its owner handle (330) being the layer record's
/// handle or else by its own layer (8). The same extended data on an entity give that
/// entity a material of its own. Entities of frozen or switched-off layers are left out.
///
/// Never throws: on failure returns a negative status (status::damaged for a damaged
/// drawing, status::stopped when abandoned, status::outOfMemory) with the reason,
/// naming the file and the line, in `errorText`. The model then holds what was read.
[[nodiscard]] Status readDXF(const std::wstring& path, SmoothModel& model, std::wstring& errorText,
                             const DXFReadOptions& options = {}, DXFReadInfo* info = nullptr);
/// As above, from a drawing in memory; `fileName` names it in error texts.
[[nodiscard]] Status readDXF(std::span<const unsigned char> data, const std::wstring& fileName,
                             SmoothModel& model, std::wstring& errorText,
                             const DXFReadOptions& options = {}, DXFReadInfo* info = nullptr);

/// The length in metres of the drawing unit numbered `insUnits` ($INSUNITS); 0 for
/// unitless or unknown numbers.
double dxfUnitMetres(int insUnits);
