#pragma once

#include "core/Colour.h"
#include "image/Buffer.h"
#include "image/TileRowWriter.h"

#include <cstdint>
#include <span>
#include <vector>

class ZmapDocument;

/// Writes rendered rows into the main colour, depth and material channels of a document
/// that is being made: a drawn pixel takes its colour, depth code and material id, any
/// other pixel the background colour, no depth (0xFFFFFFFF) and material 0. Each row goes
/// to the three channels through a TileRowWriter, in one loop and three row copies.
class DocumentBuffer : public Buffer {
public:
    /// The document's rgb, z and mat channels must exist. Rows have `width` pixels (0: the
    /// document's width less `left`); row r lands on document row r from column `left` on
    /// (cube faces are rendered one at a time). `materialIds[k]` is the document's id for
    /// the model's material number k + 1; numbers beyond the table get material 0.
    DocumentBuffer(ZmapDocument& document, ColourPOD background,
                   std::span<const MaterialId> materialIds, std::int32_t left = 0,
                   std::int32_t width = 0);

    void putRow(std::int32_t row, const double* depths, const std::uint32_t* covered,
                const std::uint8_t* colours, const MaterialId* materials) override;
    bool hasDepth() const override { return true; }

private:
    ZmapDocument& document_;
    ColourPOD background_;
    /// Indexed by the model's material number: 0 stays 0.
    std::vector<MaterialId> ids_;
    std::int32_t left_;
    std::int32_t width_;
    TileRowWriter rgb_;
    TileRowWriter z_;
    TileRowWriter mat_;
    std::vector<ColourPOD> rgbRow_;
    std::vector<std::uint32_t> zRow_;
    std::vector<MaterialId> matRow_;
};
