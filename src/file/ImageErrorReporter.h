#pragma once

#include <string>

/// Receives the text warnings and errors of the image codecs and file readers, so that a
/// command can collect them and present them when it is done. `module` names the codec or
/// operation that reports (for example "LZW"), `text` says what happened.
class ImageErrorReporter {
public:
    virtual ~ImageErrorReporter();
    virtual void report(const std::wstring& module, const std::wstring& text) = 0;
};

/// The plain reporter: keeps the last report and counts them all.
class RecordingErrorReporter : public ImageErrorReporter {
public:
    void report(const std::wstring& module, const std::wstring& text) override;

    const std::wstring& lastModule() const { return lastModule_; }
    const std::wstring& lastText() const { return lastText_; }
    /// Number of reports since construction or the last clear().
    int count() const { return count_; }
    void clear();

private:
    std::wstring lastModule_;
    std::wstring lastText_;
    int count_ = 0;
};
