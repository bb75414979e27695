#include "file/ImageErrorReporter.h"

ImageErrorReporter::~ImageErrorReporter() = default;

void RecordingErrorReporter::report(const std::wstring& module, const std::wstring& text) {
    lastModule_ = module;
    lastText_ = text;
    ++count_;
}

void RecordingErrorReporter::clear() {
    lastModule_.clear();
    lastText_.clear();
    count_ = 0;
}
