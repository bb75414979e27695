#pragma once

#include "core/Extent.h"
#include "core/Handle.h"

#include <cstddef>

/// Anything that can be made into a depth image: a three-dimensional model gathered by a
/// reader. Coordinates are in the model's own units (see metresPerUnit).
class Model : public TQL::Handlable {
public:
    /// The box of all geometry in model units; empty for a model without triangles.
    virtual Extent<3> bounds() const = 0;
    /// The number of triangles of all meshes.
    virtual std::size_t triangleCount() const = 0;
    /// The smallest length, in model units, that the model tells apart.
    virtual double tolerance() const = 0;

    /// The length of one model unit in metres; 0 when the source does not say.
    virtual double metresPerUnit() const { return 0; }
};
