#pragma once

#include "core/Status.h"

#include <cstdint>
#include <string>

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
    /// Threads that code tiles, the caller included; 0 for one per processor. The file's
    /// bytes and the document's pixels are the same whatever the number.
    unsigned threads = 0;
    /// Reading: receives, when the file is refused as damaged (or of an unknown section
    /// version), where and what the fault is: the section and its directory, the tile or
    /// strip, the byte offset and the row. Left alone otherwise. May be null.
    std::wstring* fault = nullptr;
};

/// The text a user is shown for a failed read: the status text, followed by the place of
/// the fault when one is known.
std::wstring zmapFailureText(Status status, const std::wstring& fault);

/// Reads a whole Zmap file from an open stream into a document. The document is changed
/// only when the file was read without failure: then its channels, camera record,
/// materials, texts, resolution, compression and cut-out block are those of the file
/// (everything else cleared, as by clearDocument, but for the path name), and the
/// channels that the file doesn't hold are left null for allocateChannels to make.
[[nodiscard]] Status readZmapStream(StreamImage& stream, const ZmapFileOptions& options,
                                    ZmapDocument& document);
