#pragma once

#include "core/Extent.h"
#include "core/Handle.h"

#include <array>
#include <cstddef>
#include <cstdint>

class Buffer;
class Camera;
class Lighting;
class Reporter;

/// A section box as fractions of a model's bounds: low x, y, z, then high x, y, z. A box
/// with high at or below low on any axis is empty and cuts nothing; on an axis, a low of 0
/// or less and a high of 1 or more cut nothing either.
using SectionBox = std::array<double, 6>;

/// Anything that can be made into a depth image: a three-dimensional model gathered by a
/// reader. Coordinates are in the model's own units (see metresPerUnit).
class Model : public TQL::Handlable {
public:
    /// Draws the model through `camera` into a width x height `buffer`, a row at a time
    /// from the top, under `lights`, cut by `sectionBox`. `flat` shades every triangle with
    /// its face normal even where the model is smooth. `progress` (may be null) is told
    /// every 64 triangles; its asking to abandon, or a stop request (TQL::stopRequested),
    /// raises ExportError("Operation abandoned"). Raises TQL::TqlError for a camera of an
    /// unknown kind and std::bad_alloc when memory runs out.
    virtual void render(const Camera& camera, Buffer& buffer, const Lighting& lights,
                        Reporter* progress, bool flat, std::int32_t width, std::int32_t height,
                        const SectionBox& sectionBox) const = 0;

    /// The box of all geometry in model units; empty for a model without triangles.
    virtual Extent<3> bounds() const = 0;
    /// The number of triangles of all meshes.
    virtual std::size_t triangleCount() const = 0;
    /// The smallest length, in model units, that the model tells apart.
    virtual double tolerance() const = 0;

    /// The length of one model unit in metres; 0 when the source does not say.
    virtual double metresPerUnit() const { return 0; }
};
