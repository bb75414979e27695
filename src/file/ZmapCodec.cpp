#include "file/ZmapCodec.h"

#include "core/StringUtils.h"
#include "file/ImageErrorReporter.h"
#include "file/ZmapLZWDecoder.h"
#include "file/ZmapLZWEncoder.h"

#include <utility>

ZmapCodec::ZmapCodec(std::wstring name) : name_(std::move(name)) {}

ZmapCodec::~ZmapCodec() = default;

std::wstring compressionName(int compression) {
    struct Named {
        int code;
        const wchar_t* name;
    };
    static constexpr Named names[] = {
        {1, L"No"},           {2, L"CCITT RLE"},      {3, L"CCITT Group 3"}, {4, L"CCITT Group 4"},
        {5, L"LZW"},          {6, L"Old-style JPEG"}, {7, L"JPEG"},          {8, L"Deflate"},
        {32773, L"PackBits"}, {32946, L"Deflate"},
    };
    for (const Named& n : names) {
        if (n.code == compression) {
            return n.name;
        }
    }
    return stringPrintf(L"Compression scheme %d", compression);
}

namespace {
/// The codec of `compression` if it is configured, else null with status -8 and the
/// report of it.
template <class Codec, class LZWCodec>
std::unique_ptr<Codec> makeCodec(Status& status, int compression, ImageErrorReporter& reporter) {
    if (compression == zmapCompression::lzw) {
        return LZWCodec::create(status, reporter);
    }
    const std::wstring name = compressionName(compression);
    reporter.report(name, stringPrintf(L"%ls compression support is not configured", name.c_str()));
    status = status::unsupportedCompression;
    return nullptr;
}
} // namespace

std::unique_ptr<ZmapDecoder> makeZmapDecoder(Status& status, int compression,
                                             ImageErrorReporter& reporter) {
    return makeCodec<ZmapDecoder, ZmapLZWDecoder>(status, compression, reporter);
}

std::unique_ptr<ZmapEncoder> makeZmapEncoder(Status& status, int compression,
                                             ImageErrorReporter& reporter) {
    return makeCodec<ZmapEncoder, ZmapLZWEncoder>(status, compression, reporter);
}
