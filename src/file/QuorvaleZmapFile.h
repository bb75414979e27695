#pragma once

#include "core/Status.h"
#include "file/ImageErrorReporter.h"
#include "file/StreamImage.h"

#include <cstddef>
#include <cstdint>
#include <string>

class Reporter;
class ZmapDocument;

/// The reader and writer of Zmap files (.zmp, .zmq): a TIFF file of up to eight
/// directories, one a channel, each marked with a section header (tag 34953), so that any
/// TIFF reader sees the first directory as the colour image.
///
/// The reader takes files of either byte order, in strips or tiles, and changes the
/// document only when the whole file was read; then the document holds the file's
/// channels, camera record, materials, texts and resolution, and its other channels are
/// null until allocateChannels. The writer always writes little-endian.
///
/// Neither throws: every failure is a status: -2 damaged or not
/// a Zmap file, -7 an unknown section version, -10 out of memory or an image beyond the
/// size limit, -11 stopped by the progress reporter, -13 nothing to write, -15 a
/// read-only file object asked to write, or the status of a failed system call. A read
/// refused as damaged also says where (fault(), failureText()).
///
/// Tiles are decoded and encoded on a few threads (setThreads); the bytes written and the
/// pixels read are the same for any number of them.
class QuorvaleZmapFile : public StreamImage {
public:
    /// The largest image a file may describe unless setMaxPixels says otherwise.
    static constexpr std::uint64_t defaultMaxPixels = std::uint64_t(1) << 32;

    QuorvaleZmapFile();
    ~QuorvaleZmapFile() override;

    /// Reads the Zmap file at `path` into `document`, whose readOnly flag is set when the
    /// file can't be opened for writing (access denied).
    virtual void read(Status& status, const std::wstring& path, ZmapDocument& document);
    /// Writes `document` to `path`, which is created anew (an existing file is replaced),
    /// and ends the file there. A partly written file is left behind on failure: callers
    /// that must keep an old file go through saveZmapDocument.
    virtual void write(Status& status, const ZmapDocument& document, const std::wstring& path);
    /// Reads a Zmap file held in memory, as read() does with a file.
    void readMemory(Status& status, const std::uint8_t* data, std::size_t size,
                    ZmapDocument& document);

    /// True when the file last opened by read() could only be opened for reading; a
    /// write() is then refused with -15.
    bool readOnly() const { return readOnly_; }
    void setReadOnly(bool readOnly) { readOnly_ = readOnly; }

    /// Told the fraction done after each section; null for none (not owned).
    void setProgress(Reporter* progress) { progress_ = progress; }
    /// Receives the codecs' text reports; null restores the file's own recorder.
    void setErrorReporter(ImageErrorReporter* errors) { errors_ = errors ? errors : &recorder_; }
    /// The file's own recorder of codec reports.
    const RecordingErrorReporter& recordedErrors() const { return recorder_; }
    /// Refuses (with -10) files that describe images of more than `pixels` pixels, before
    /// anything is allocated for them.
    void setMaxPixels(std::uint64_t pixels) { maxPixels_ = pixels; }
    /// Flushes the written file to the disk before a successful write() returns.
    void setSyncOnWrite(bool sync) { syncOnWrite_ = sync; }
    /// Threads that code tiles, this one included; 0 (the default) for one per processor.
    void setThreads(unsigned threads) { threads_ = threads; }

    /// Where the last read() found the file damaged, and what was wrong there: the
    /// section and its directory, the tile or strip, the byte offset and the image row
    /// when known. Empty after a read that failed otherwise, or did not fail.
    const std::wstring& fault() const { return fault_; }
    /// The text to show for `status` from the last read(): the status text with fault().
    std::wstring failureText(Status status) const;

private:
    void readOpenStream(Status& status, ZmapDocument& document);

    bool readOnly_ = false;
    bool syncOnWrite_ = false;
    Reporter* progress_ = nullptr;
    RecordingErrorReporter recorder_;
    ImageErrorReporter* errors_ = &recorder_;
    std::uint64_t maxPixels_ = defaultMaxPixels;
    unsigned threads_ = 0;
    std::wstring fault_;
};
