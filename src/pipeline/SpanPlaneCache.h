#pragma once

#include "core/Handle.h"
#include "image/AlphaBitmap.h"
#include "image/SpanPlanes.h"
#include "image/TileBitmap.h"
#include "image/TileRowWriter.h"

#include <cstdint>
#include <memory>
#include <vector>

class ZmapDocument;

/// The planes of the paint pipeline for run after run of a stroke, as
/// ZmapDocument::spanPlanes gives them, keeping the tiles of the current row of tiles between
/// runs. A stroke laid row by row then fetches each tile once per row of tiles instead of once
/// per run, and takes no lock in between.
///
/// Written planes (wet planes, the image's colour) are kept through TileRowWriter, the
/// stroke alpha through AlphaRowWriter (which records rows of one value without writing
/// them): copy on write as ever, and a kept tile that someone else came to hold is fetched
/// again. Read planes are kept only where the stroke doesn't write them (the undo
/// level and the originals); where the image before the stroke is the live channel (no undo
/// store) they are fetched for every run, as spanPlanes does. A kept plane is dropped when
/// its bitmap is replaced or its tile handles are (generation).
///
/// Pointers are valid until the next call or reset. Interface thread only, like every stroke.
class SpanPlaneCache {
public:
    /// Takes the document's planes for row y; false (nothing to paint) outside the image or
    /// without the channels. Call before the runs of each row. `readsSource`: the stages read
    /// the source colour (it is then asked for one row ahead).
    bool beginRow(ZmapDocument& document, std::int32_t y, bool wet, bool readsSource = true);
    /// The planes of the run of the row from column x to the right edge of x's tile; returns
    /// its length, 0 outside the image. The stroke alpha is not among them (its pointer is
    /// null): it is read through strokeAlpha() and written through writeStrokeAlpha or
    /// writableStrokeAlpha. Throws std::bad_alloc.
    std::int32_t run(std::int32_t x, SpanPlanes& planes);
    /// Starts the run from column x for the stroke alpha alone (as run() does, without the
    /// other planes) and returns its length, 0 outside the image. For runs that turn out to
    /// need nothing else; run() may follow for the same x.
    std::int32_t strokeAlphaRun(std::int32_t x) {
        return strokeAlpha_.writer->run(x, y_, strokeAlphaValues_);
    }
    /// The image before the stroke at the run from column x (run()'s baseColour alone).
    const ColourPOD* baseColourRun(std::int32_t x) {
        return reinterpret_cast<const ColourPOD*>(baseColour_.run(x, y_));
    }
    /// The stroke alpha of the current run, for reading (a row of one value stands in for a
    /// uniform row of the plane).
    const Alpha* strokeAlpha() const { return strokeAlphaValues_; }
    /// Sets the current run's stroke alpha over first..last - 1 to values[first..last); a whole
    /// tile row of one value is recorded without writing the row.
    void writeStrokeAlpha(const Alpha* values, int first, int last) {
        strokeAlpha_.writer->write(values, first, last);
    }
    /// True when the current run's stroke alpha is one value throughout (a uniform row),
    /// given in `value`.
    bool strokeAlphaUniform(Alpha& value) const { return strokeAlpha_.writer->uniform(value); }
    /// Sets the current run's stroke alpha over first..last - 1 to `value`, as
    /// writeStrokeAlpha with a row of it.
    void fillStrokeAlpha(Alpha value, int first, int last) {
        strokeAlpha_.writer->fill(value, first, last);
    }
    /// The current run's stroke alpha for writing.
    Alpha* writableStrokeAlpha() { return strokeAlpha_.writer->writable(); }
    /// The writer of the stroke alpha for the row's runs (valid after a successful beginRow).
    AlphaRowWriter& strokeAlphaWriter() const { return *strokeAlpha_.writer; }
    /// The writer of the document's colour channel for the row's runs; null without it.
    TileRowWriter* colourWriter() const { return colour_.writer.get(); }
    /// Lets go of every kept tile and bitmap.
    void reset();

private:
    /// Kept tiles of one read plane for its last two rows of tiles.
    struct ReadPlane {
        TQL::Handle<TileBitmap> bitmap;
        std::int32_t tileRow = -1;
        /// Tiles are kept between rows; false: one tile, fetched again for every run.
        bool keep = false;
        std::unique_ptr<TileRowHolds> holds;
        /// The kept tiles of the current row of tiles (keep), one a column.
        TileHandle* rowTiles = nullptr;
        /// The one tile of a plane not kept.
        TileHandle single;

        void beginRow(TileBitmap* from, std::int32_t y, bool keepTiles);
        const std::uint8_t* run(std::int32_t x, std::int32_t y);
        void reset();
    };
    struct WritePlane {
        TQL::Handle<TileBitmap> bitmap;
        std::unique_ptr<TileRowWriter> writer;

        void beginRow(TileBitmap* to);
        void reset();
    };

    struct AlphaPlane {
        TQL::Handle<AlphaBitmap> bitmap;
        std::unique_ptr<AlphaRowWriter> writer;

        void beginRow(AlphaBitmap* to);
        void reset();
    };

    std::int32_t y_ = 0;
    bool wet_ = false;
    bool readsSource_ = true;
    ReadPlane source_, baseColour_, baseDepth_, baseMaterial_;
    AlphaPlane strokeAlpha_;
    WritePlane wetColour_, wetAlpha_, colour_;
    const Alpha* strokeAlphaValues_ = nullptr;
};
