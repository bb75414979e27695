#pragma once

#include "core/Colour.h"
#include "core/Extent.h"
#include "core/Handle.h"
#include "core/Plane.h"
#include "core/Status.h"
#include "image/AlphaBitmap.h"
#include "image/DocumentEditor.h"
#include "image/MatBitmap.h"
#include "image/MaterialRecord.h"
#include "image/MaterialTable.h"
#include "image/RgbBitmap.h"
#include "image/ScratchBitmaps.h"
#include "image/SpanPlanes.h"
#include "image/TileGeometry.h"
#include "image/ZBitmap.h"
#include "views/cameras/ViewProj.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

struct ChannelInfo;
class DocumentViews;
class DrawTarget;

/// One bit a channel, used by files, views and the shown-channel setting; views combine
/// them into masks.
enum ChannelId : std::uint32_t {
    channelRgb = 1,
    channelZ = 2,
    channelMat = 4,
    channelOriginalRgb = 8,
    channelOriginalZ = 16,
    channelOriginalMat = 32,
    channelThumbnail = 64, ///< the thumbnail of a file, not a document channel
    channelCutoutRgb = 128,
    channelCutoutZ = 256,
    channelCutoutMat = 512,
    channelCutoutAlpha = 1024,
    channelShadowAlpha = 2048,
    /// The five bitmaps of the floating cut-outs: colour, depth, material, coverage, shadow.
    channelFloatingRgb = 4096,
    channelFloatingZ = 8192,
    channelFloatingMat = 16384,
    channelFloatingAlpha = 32768,
    channelFloatingShadow = 65536,
};

/// The numbering of channels in memory reports.
enum MemoryKind : std::int32_t {
    memoryRgb = 0,
    memoryZ = 1,
    memoryMat = 2,
    memoryOriginalRgb = 4,
    memoryOriginalZ = 5,
    memoryOriginalMat = 6,
    memoryUndoRgb = -1,
    memoryCutoutRgb = -2,
    memoryCutoutZ = -3,
    memoryCutoutMat = -4,
    memoryCutoutAlpha = -5,
    memoryShadowAlpha = -6,
};

/// How cut-out shadows are shown in the composite colour display: each colour component is
/// multiplied by ((c / 255 - 1) * k + 1), with c the shadow colour's component and
/// k = coverage * opacity * strength.
struct ShadowDisplay {
    ColourPOD colour; ///< black by default
    double opacity = 0.4;
    double strength = 1.0;
};

/// Colour pixels handed to the document: rows of three-byte pixels (blue, green, red).
struct RgbImage {
    std::int32_t width = 0;
    std::int32_t height = 0;
    const std::uint8_t* pixels = nullptr;
    std::ptrdiff_t stride = 0; ///< bytes from one row to the next
};

class ZmapDocument;

/// The half width, in pixels, of the square of samples that planeAt fits a plane to.
inline constexpr std::int32_t planeFitRadius = 7;
/// planeAt leaves out samples whose direction from the centre leaves the first estimate of
/// the plane by more than this (the cosine to its normal).
inline constexpr double planeFitTolerance = 0.001;

/// Told whenever a document's material table changes (the material window listens).
class MaterialListener {
public:
    virtual ~MaterialListener() = default;
    virtual void materialsChanged(const ZmapDocument& document) = 0;
};

/// The image in memory: channels of equal size (colour, depth, material, their originals,
/// the cut-out overlay), a material table, and the texts of the file.
///
/// Pixel (x, y) of every channel is at the same coordinates; row 0 is the top row. Depth
/// 0xFFFFFFFF means no depth; material 0 means no material. The cut-out depth overlay stores
/// depth + 1 with 0 for nothing; the overlay material is used where it is nonzero.
///
/// Channels are null until allocateChannels. Reads outside the image give zero; writes give
/// null. Raw pointers are valid only while the `hold` handle given with them lives.
/// Tools run on the interface thread; the drawing thread reads tiles through handles and the
/// palette and material table without a lock, and is cancelled before the table's structure
/// changes.
class ZmapDocument {
public:
    ZmapDocument();
    virtual ~ZmapDocument();
    ZmapDocument(const ZmapDocument&) = delete;
    ZmapDocument& operator=(const ZmapDocument&) = delete;

    /// Marks the document changed or unchanged (the window's modified mark).
    virtual void setChanged(bool changed) = 0;

    // Channels.
    TQL::Handle<RgbBitmap> rgb;
    TQL::Handle<ZBitmap> z;
    TQL::Handle<MatBitmap> mat;
    /// The image as it was made or last committed; they share tiles with the main channels
    /// until those are written.
    TQL::Handle<RgbBitmap> originalRgb;
    TQL::Handle<ZBitmap> originalZ;
    TQL::Handle<MatBitmap> originalMat;
    /// The overlay layer of cut-outs.
    TQL::Handle<RgbBitmap> cutoutRgb;
    TQL::Handle<ZBitmap> cutoutZ;
    TQL::Handle<MatBitmap> cutoutMat;
    TQL::Handle<AlphaBitmap> cutoutAlpha;
    TQL::Handle<AlphaBitmap> shadowAlpha;
    /// The water tool's planes.
    TQL::Handle<WetLayerBitmap> wetLayer;
    TQL::Handle<RgbBitmap> wetColour;
    DocumentEditor editor;

    std::wstring pathName;
    /// The file could only be opened read-only; the image came from a file. Both are cleared
    /// when a save succeeds or the document is cleared.
    std::uint8_t readOnly = 0;
    std::uint8_t fromFile = 0;
    std::wstring description;
    std::wstring artist;
    std::wstring copyright;
    std::wstring software;
    std::wstring hostComputer;
    std::wstring dateTime;
    /// Compression of the file as read, and for the next save: 1 (none) or 5 (LZW).
    std::int32_t savedCompression = 5;
    std::int32_t compression = 5;
    /// The floating cut-outs as a file holds them (cut-out text), kept as bytes until the
    /// cut-outs parse them, and written back as they are; empty for none.
    std::vector<std::uint8_t> cutoutBlock;
    /// The number of cut-outs the block holds, as the file gave it.
    std::uint16_t cutoutBlockItems = 0;

private:
    TileGeometry geometry_;
    MaterialTable materials_;

public:
    /// Pixels per metre.
    float xResolution = 3779.5276f;
    float yResolution = 3779.5276f;

    // Size and channels.

    const TileGeometry& geometry() const { return geometry_; }
    std::int32_t width() const { return geometry_.width; }
    std::int32_t height() const { return geometry_.height; }
    /// Sets the image size and computes the geometry. A side of 0 or less gives an empty
    /// image. If the size changes, every channel is released: channels of another size
    /// don't belong to the document (build new ones, then allocateChannels). -10 for a size
    /// with more tiles than TileGeometry::maxTiles.
    [[nodiscard]] Status setSize(std::int32_t width, std::int32_t height);
    /// Once rgb is given, makes every missing channel: originalRgb (sharing rgb's tiles), z
    /// (no depth 0xFFFFFFFF), originalZ (overlaying z), mat, originalMat (overlaying mat),
    /// cutoutRgb, cutoutZ (no depth 0), cutoutMat, cutoutAlpha, shadowAlpha, then the
    /// editor's work bitmaps; clears usedMaterials; then makes a new undo store holding the
    /// present state as its one level. -13 without rgb, -10 out of memory.
    [[nodiscard]] Status allocateChannels();
    /// The originals take the main channels' present tiles (shared, no copy), and the undo
    /// store starts again from the present state: no level before it can be undone.
    void commitOriginals();
    /// The bitmap of a channel id; null for an unknown id, the thumbnail (64) and, for now,
    /// the floating cut-outs.
    TQL::Handle<TileBitmap> channel(std::uint32_t id) const;

    /// Bytes of one channel by its report number (MemoryKind): the bitmap's own structure
    /// plus its tiles; for the originals only tiles not shared with the main channel.
    /// 0 for a missing channel or an unknown number.
    std::int64_t channelMemory(std::int32_t kind) const;
    /// Bytes of the whole document: every report channel, the wet planes and the editor's
    /// work bitmaps.
    std::int64_t memoryUsed() const;

    /// Draws channel `id` in `extent` and `clip` (image pixels) to `target`, tile by tile; the
    /// cut-out overlay is composed in for ids 1, 2 and 4. `status` is 0, -25 if `abort` was
    /// set during the walk, or -13 if the channel doesn't exist.
    void draw(Status& status, DrawTarget& target, std::uint32_t id, const IExtent<2>& extent,
              const IExtent<2>& clip, const std::atomic<bool>* abort) const;
    /// Writes `image` into rgb, centred and clipped to the image. -13 without rgb, -10 out of
    /// memory.
    void pasteCentred(Status& status, const RgbImage& image);
    /// Automatic contrast: a histogram of the HLS lightness of every colour pixel gives the
    /// lightness below which 0.5 % of the pixels lie and the one above which 0.5 % lie; every
    /// pixel's lightness is then stretched linearly so that these become 0 and 1 (clamped),
    /// keeping its hue and saturation. Tiles whose pixels all stay the same stay shared. An
    /// image of one lightness is left as it is. -13 without rgb, -10 out of memory.
    void autoLevels(Status& status);
    /// Keeps only the pixels of `keep` (clipped to the image). Every channel is rebuilt at
    /// the new size by copying pixels: unwritten tiles stay unwritten, and an original keeps
    /// sharing the main channel's tiles where it did. The view record's image window moves
    /// with the kept pixels, so that each keeps its world point; the six main channels'
    /// changed flags are cleared. The undo store stays, with levels of the old size: the
    /// caller starts it again. -12 for an extent outside the image or a cube panorama
    /// (whose faces cropping would break), -13 without the colour, depth and material
    /// channels, -10 out of memory; on failure nothing has changed.
    void crop(Status& status, const IExtent<2>& keep);
    /// Merges the overlay layer into the image as the display composes it: the colour takes
    /// the overlay colour by its coverage and then the shadow; where the overlay depth is
    /// not 0 the depth becomes it less 1, and where the overlay material is not 0 the
    /// material becomes it. The overlay channels are then emptied. -13 without the
    /// channels, -10 out of memory.
    void flattenOverlay(Status& status);
    /// For a cube panorama (a cube view record over six square faces side by side): makes
    /// the pixels that neighbouring faces share equal in every channel, as
    /// TileBitmap::stitchFaces does, writing only where they differ. An abandoned stroke
    /// calls it to repair the seams it left. False, changing nothing, for any other image.
    bool stitchFaces();
    /// Frees every channel, empties the texts, the materials and the flags.
    void clearDocument();
    /// Number of this document in the process, counting constructions from 1.
    std::int32_t serial() const { return serial_; }

    const ShadowDisplay& shadowDisplay() const { return shadowDisplay_; }
    void setShadowDisplay(const ShadowDisplay& shadow) { shadowDisplay_ = shadow; }

    // Pixel reads. Outside the image: zero. Unwritten depth: the channel's no-depth value.

    ColourPOD rgbAt(std::int32_t x, std::int32_t y) const { return read(rgb, x, y); }
    ColourPOD originalRgbAt(std::int32_t x, std::int32_t y) const {
        return read(originalRgb, x, y);
    }
    ColourPOD cutoutRgbAt(std::int32_t x, std::int32_t y) const { return read(cutoutRgb, x, y); }
    std::uint32_t zAt(std::int32_t x, std::int32_t y) const { return read(z, x, y); }
    std::uint32_t originalZAt(std::int32_t x, std::int32_t y) const {
        return read(originalZ, x, y);
    }
    std::uint32_t cutoutZAt(std::int32_t x, std::int32_t y) const { return read(cutoutZ, x, y); }
    MaterialId matAt(std::int32_t x, std::int32_t y) const { return read(mat, x, y); }
    MaterialId originalMatAt(std::int32_t x, std::int32_t y) const {
        return read(originalMat, x, y);
    }
    MaterialId cutoutMatAt(std::int32_t x, std::int32_t y) const { return read(cutoutMat, x, y); }
    /// The pixel as it was before the action in progress began: from the current level of
    /// the undo store. Zero without an undo store.
    ColourPOD undoRgbAt(std::int32_t x, std::int32_t y) const;
    std::uint32_t undoZAt(std::int32_t x, std::int32_t y) const;
    MaterialId undoMatAt(std::int32_t x, std::int32_t y) const;

    /// The same reads for a caller that keeps a tile: `hold` and `tileIndex` are reused while
    /// (x, y) stays in that tile. Start with a null hold and index -1.
    ColourPOD rgbAtCached(std::int32_t x, std::int32_t y, TileHandle& hold,
                          std::int32_t& tileIndex) const {
        return readCached(rgb, x, y, hold, tileIndex);
    }
    ColourPOD originalRgbAtCached(std::int32_t x, std::int32_t y, TileHandle& hold,
                                  std::int32_t& tileIndex) const {
        return readCached(originalRgb, x, y, hold, tileIndex);
    }
    ColourPOD cutoutRgbAtCached(std::int32_t x, std::int32_t y, TileHandle& hold,
                                std::int32_t& tileIndex) const {
        return readCached(cutoutRgb, x, y, hold, tileIndex);
    }
    std::uint32_t zAtCached(std::int32_t x, std::int32_t y, TileHandle& hold,
                            std::int32_t& tileIndex) const {
        return readCached(z, x, y, hold, tileIndex);
    }
    std::uint32_t originalZAtCached(std::int32_t x, std::int32_t y, TileHandle& hold,
                                    std::int32_t& tileIndex) const {
        return readCached(originalZ, x, y, hold, tileIndex);
    }
    std::uint32_t cutoutZAtCached(std::int32_t x, std::int32_t y, TileHandle& hold,
                                  std::int32_t& tileIndex) const {
        return readCached(cutoutZ, x, y, hold, tileIndex);
    }
    MaterialId matAtCached(std::int32_t x, std::int32_t y, TileHandle& hold,
                           std::int32_t& tileIndex) const {
        return readCached(mat, x, y, hold, tileIndex);
    }
    MaterialId originalMatAtCached(std::int32_t x, std::int32_t y, TileHandle& hold,
                                   std::int32_t& tileIndex) const {
        return readCached(originalMat, x, y, hold, tileIndex);
    }
    MaterialId cutoutMatAtCached(std::int32_t x, std::int32_t y, TileHandle& hold,
                                 std::int32_t& tileIndex) const {
        return readCached(cutoutMat, x, y, hold, tileIndex);
    }

    // Pixel writes: a pointer to the pixel in a privately owned tile, null outside the image
    // or without the channel. Throw std::bad_alloc.

    ColourPOD* rgbWrite(std::int32_t x, std::int32_t y, TileHandle& hold) {
        return write(rgb, x, y, hold);
    }
    ColourPOD* originalRgbWrite(std::int32_t x, std::int32_t y, TileHandle& hold) {
        return write(originalRgb, x, y, hold);
    }
    ColourPOD* cutoutRgbWrite(std::int32_t x, std::int32_t y, TileHandle& hold) {
        return write(cutoutRgb, x, y, hold);
    }
    std::uint32_t* zWrite(std::int32_t x, std::int32_t y, TileHandle& hold) {
        return write(z, x, y, hold);
    }
    std::uint32_t* originalZWrite(std::int32_t x, std::int32_t y, TileHandle& hold) {
        return write(originalZ, x, y, hold);
    }
    std::uint32_t* cutoutZWrite(std::int32_t x, std::int32_t y, TileHandle& hold) {
        return write(cutoutZ, x, y, hold);
    }
    MaterialId* matWrite(std::int32_t x, std::int32_t y, TileHandle& hold) {
        return write(mat, x, y, hold);
    }
    MaterialId* originalMatWrite(std::int32_t x, std::int32_t y, TileHandle& hold) {
        return write(originalMat, x, y, hold);
    }
    MaterialId* cutoutMatWrite(std::int32_t x, std::int32_t y, TileHandle& hold) {
        return write(cutoutMat, x, y, hold);
    }
    Alpha* cutoutAlphaWrite(std::int32_t x, std::int32_t y, TileHandle& hold) {
        return write(cutoutAlpha, x, y, hold);
    }
    Alpha* shadowAlphaWrite(std::int32_t x, std::int32_t y, TileHandle& hold) {
        return write(shadowAlpha, x, y, hold);
    }
    WetLayerPixel* wetLayerWrite(std::int32_t x, std::int32_t y, TileHandle& hold) {
        return write(wetLayer, x, y, hold);
    }

    /// The planes of the paint pipeline for the run of row y from column x to the right edge
    /// of x's tile (ZmapDocumentSpan.cpp): the source, the image before the action in
    /// progress, the stroke's coverage and, if `wet`, the wet colour and coverage. `pins`
    /// holds the tiles while the pointers are used. Returns the run's length, 0 outside the
    /// image or without the channels. Throws std::bad_alloc.
    std::int32_t spanPlanes(std::int32_t x, std::int32_t y, bool wet, SpanPins& pins,
                            SpanPlanes& planes);

    // The material table (see MaterialTable); each change is told to the material listener.

    const MaterialTable& materialTable() const { return materials_; }
    const std::map<MaterialId, MaterialRecord>& materials() const { return materials_.records(); }
    const std::array<ColourPOD, 256>& palette() const { return materials_.palette(); }
    const std::set<MaterialId>& usedMaterials() const { return materials_.used(); }
    const MaterialRecord* material(MaterialId id) const { return materials_.record(id); }
    MaterialId lastMaterialId() const { return materials_.lastId(); }
    bool materialExists(MaterialId id) const { return materials_.exists(id); }
    bool materialDeleted(MaterialId id) const { return materials_.isDeleted(id); }
    ColourPOD materialColour(MaterialId id) const { return materials_.colour(id); }
    const std::wstring& materialName(MaterialId id) const { return materials_.name(id); }
    const MatHotLink& materialHotLink(MaterialId id) const { return materials_.hotLink(id); }
    MaterialId materialIdOf(const std::wstring& name, MaterialId excludingId = 0) const {
        return materials_.idOf(name, excludingId);
    }
    bool matchMaterials(std::vector<MaterialId>& ids, const std::wstring& pattern,
                        MaterialId excludingId = 0) const {
        return materials_.match(ids, pattern, excludingId);
    }
    bool setMaterial(MaterialId id, const std::wstring& name, ColourPOD colour, bool implicit,
                     const std::wstring& secondName = std::wstring()) {
        return materials_.set(id, name, colour, implicit, secondName);
    }
    bool renameMaterial(MaterialId id, const std::wstring& name, ColourPOD colour) {
        return materials_.rename(id, name, colour);
    }
    MaterialId addMaterial(const std::wstring& name, ColourPOD colour, bool implicit,
                           const std::wstring& secondName = std::wstring()) {
        return materials_.add(name, colour, implicit, secondName);
    }
    bool deleteMaterial(MaterialId id) { return materials_.remove(id); }
    bool changeMaterialUsers(MaterialId id, std::int32_t delta) {
        return materials_.changeUsers(id, delta);
    }
    bool setHotLink(MaterialId id, const MatHotLink& link) {
        return materials_.setHotLink(id, link);
    }
    void restoreMaterial(MaterialId id, const MaterialRecord* record) {
        materials_.restore(id, record);
    }
    /// After a file is read: names made unique among live materials.
    void makeMaterialNamesUnique() { materials_.makeNamesUnique(); }
    /// The listener told of every change of the table (not owned; null for none).
    void setMaterialListener(MaterialListener* listener) { materialListener_ = listener; }

    /// The views of the document (not owned; null for none): told of undo, redo and whole
    /// document changes.
    DocumentViews* views() const { return views_; }
    void setViews(DocumentViews* views) { views_ = views; }

    // The camera: the view record and the conversion made from it and the image size.
    // Surface estimation (ZmapDocumentSurface.cpp) works through it.

    const ViewParams& viewParams() const { return viewParams_; }
    /// Null while the image is smaller than 2 by 2.
    const TQL::Handle<ViewProj>& viewProj() const { return viewProj_; }
    /// Copies the record and makes a new viewProj; holders of the old one keep it.
    void setViewParams(const ViewParams& record);
    /// Makes a new viewProj for the present record and size; to be called when the size
    /// changes.
    void updateViewProj();

    /// The world point of a pixel through its depth code; the origin without depth channel
    /// or view. A pixel without depth gives a very far point.
    Point<3> worldAt(std::int32_t x, std::int32_t y) const;
    /// The world point of a pixel at a given depth code; the origin without a view.
    Point<3> worldFromCode(std::int32_t x, std::int32_t y, std::uint32_t code) const;
    /// The plane of the surface at a pixel, through its world point: a least-squares fit of
    /// the pixels around it of the same material and on the same surface. For a pixel
    /// without depth, `noDepth` is set and the result is the default plane (in a cube image
    /// the far plane of the pixel's face). `fromModel` reads the depth and material as they
    /// came from the model (the original channels) instead of the working ones. The normal
    /// points into the surface, away from the eye: a light in front of a surface shines
    /// along it.
    Plane planeAt(std::int32_t x, std::int32_t y, bool* noDepth = nullptr,
                  bool fromModel = false) const;
    /// The plane through a pixel's world point and those of one horizontal and one vertical
    /// neighbour: quick, and exact only on a flat surface. Without depth as planeAt.
    Plane localPlaneAt(std::int32_t x, std::int32_t y, bool fromModel = false) const;
    /// The background plane of the view, used where a pixel has no surface and by tools
    /// before they have a plane: the ground of the picture, the plane through the ends of
    /// the bottom row (of the first face, in a cube image) at the background code that is
    /// level in the view's frame, facing down. Without a view, the world's z = 0, facing
    /// down.
    Plane defaultPlane() const;

private:
    template <class B>
    static typename B::Pixel read(const TQL::Handle<B>& b, std::int32_t x, std::int32_t y) {
        return b ? b->template valueAt<typename B::Pixel>(x, y) : typename B::Pixel{};
    }
    template <class B>
    static typename B::Pixel readCached(const TQL::Handle<B>& b, std::int32_t x, std::int32_t y,
                                        TileHandle& hold, std::int32_t& tileIndex) {
        return b ? b->template valueAtCached<typename B::Pixel>(x, y, hold, tileIndex)
                 : typename B::Pixel{};
    }
    template <class B>
    static typename B::Pixel* write(const TQL::Handle<B>& b, std::int32_t x, std::int32_t y,
                                    TileHandle& hold) {
        if (!b) {
            hold.reset();
            return nullptr;
        }
        return reinterpret_cast<typename B::Pixel*>(b->pixelForWrite(x, y, hold, nullptr));
    }
    void releaseChannels();
    /// Bytes of one channel: its structure and its tiles, less those shared with the channel
    /// it is a copy of.
    std::int64_t channelBytes(const ChannelInfo& channel) const;
    /// allocateChannels without the undo store and without clearing usedMaterials.
    Status makeMissingChannels();
    void materialsChanged();

    /// The no-depth answer of planeAt and localPlaneAt for pixel (x, y).
    Plane planeWithoutDepth(std::int32_t x, std::int32_t y) const;

    std::int32_t serial_;
    ViewParams viewParams_;
    TQL::Handle<ViewProj> viewProj_;
    ShadowDisplay shadowDisplay_;
    MaterialListener* materialListener_ = nullptr;
    DocumentViews* views_ = nullptr;
};
