#pragma once

#include "core/Status.h"
#include "file/ZmapReader.h"

class StreamImage;
class ZmapDocument;

/// Writes a document as a Zmap file to a stream opened for writing: little-endian, the
/// sections colour, thumbnail, depth, material, original colour, original depth and
/// original material (the last four only when they exist; originals only when some tile
/// differs from the main channel's), each with its data before its directory. Compression
/// is 5 when the document's `compression` is 5, else 1. The camera record is a panorama's
/// (section kind 8) when the view code is 3 and the image is six square faces side by side.
///
/// -13 without colour or depth channel or when a tile can't be converted, -11 when the
/// progress reporter asks to stop, the stream's status on a write failure. The LZW
/// encoder's TQL::TqlError and std::bad_alloc pass through to the caller.
[[nodiscard]] Status writeZmapStream(StreamImage& stream, const ZmapFileOptions& options,
                                     const ZmapDocument& document);
