// Feeds arbitrary bytes to the LZW decoder, in requests of sizes taken from the input,
// and checks that a failure leaves zeros. Then encodes the same bytes and checks that
// they decode back unchanged.

#include "file/ImageErrorReporter.h"
#include "file/ZmapLZWDecoder.h"
#include "file/ZmapLZWEncoder.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2) {
        return 0;
    }
    RecordingErrorReporter reporter;
    Status status = 0;
    static const auto decoder = ZmapLZWDecoder::create(status, reporter);
    static const auto encoder = ZmapLZWEncoder::create(status, reporter);

    // The first two bytes choose the request size and the block's decoded size.
    const std::uint32_t piece = 1 + data[0] % 64;
    const std::uint32_t wanted = 1 + data[1] * 16u;
    const auto blockSize = static_cast<std::uint32_t>(size - 2);
    std::unique_ptr<std::uint8_t[]> block(new std::uint8_t[blockSize]);
    std::memcpy(block.get(), data + 2, blockSize);

    std::vector<std::uint8_t> out(piece);
    decoder->start(block.get(), blockSize);
    for (std::uint32_t done = 0; done < wanted; done += piece) {
        const std::uint32_t n = std::min(piece, wanted - done);
        if (!decoder->decode(out.data(), n)) {
            if (std::any_of(out.begin(), out.begin() + n, [](std::uint8_t b) { return b != 0; })) {
                std::abort(); // a failed request must leave zeros
            }
            break;
        }
    }

    encoder->start(blockSize);
    encoder->encode(block.get(), blockSize);
    encoder->finish();
    std::vector<std::uint8_t> back(blockSize);
    decoder->start(encoder->encodedData(), encoder->encodedSize());
    if (!decoder->decode(back.data(), blockSize) ||
        (blockSize > 0 && std::memcmp(back.data(), block.get(), blockSize) != 0)) {
        std::abort(); // a round trip must give the bytes back
    }
    return 0;
}
