#pragma once

#include "core/Status.h"

#include <cstdint>

class ImageErrorReporter;
class Reporter;
class StreamImage;
class ZmapDocument;

/// What the reader and the writer of Zmap files are given besides the stream.
struct ZmapFileOptions {
    /// Told the fraction done after each section; a true answer stops the work with -11.
    /// May be null.
    Reporter* progress = nullptr;
    /// Receives the codecs' reports; never null.
    ImageErrorReporter* errors = nullptr;
    /// The largest image, in pixels, that a file may describe; a larger one is -10
    /// before anything is allocated.
    std::uint64_t maxPixels = 0;
};

/// Reads a whole Zmap file from an open stream into a document. The document is changed
/// only when the file was read without failure: then its channels, camera record,
/// materials, texts, resolution, compression and cut-out block are those of the file
/// (everything else cleared, as by clearDocument, but for the path name), and the
/// channels that the file doesn't hold are left null for allocateChannels to make.
[[nodiscard]] Status readZmapStream(StreamImage& stream, const ZmapFileOptions& options,
                                    ZmapDocument& document);
