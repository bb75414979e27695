#pragma once

#include "core/Colour.h"

#include <cstdint>
#include <string>

/// A material id: 1 to 65535; 0 means no material.
using MaterialId = std::uint16_t;

/// A link from a material to a style, which a tool may follow to pick that style.
struct MatHotLink {
    std::wstring library; ///< the style library
    std::wstring style;   ///< the style within it
    std::uint8_t flag = 0;

    bool empty() const { return library.empty() && style.empty(); }
    bool operator==(const MatHotLink&) const = default;
};

/// One entry of a document's material table.
struct MaterialRecord {
    std::wstring name;       ///< unique among live materials, compared without case
    std::wstring secondName; ///< the name a model gave it; kept on renaming
    MatHotLink hotLink;
    ColourPOD colour;          ///< false colour of the material display and pick lists
    std::uint8_t implicit = 0; ///< made by the program on its own; not shown to the user
    std::int32_t users = 0;    ///< a record with users is marked deleted, never erased
    std::uint8_t deleted = 0;

    bool operator==(const MaterialRecord&) const = default;
};
