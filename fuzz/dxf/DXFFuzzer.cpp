// Feeds arbitrary bytes to the DXF reader, as text or binary drawings. The reader must
// return a status for anything: no crash, no hang, no unbounded memory.

#include "interchange/DXFReader.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    auto model = TQL::makeHandle<SmoothModelImp>();
    std::wstring error;
    DXFReadOptions options;
    // Small limits keep each run short; the checks are the same as with the defaults.
    options.maxFaces = 20'000;
    options.maxInsertDepth = 8;
    (void)readDXF(std::span<const unsigned char>(data, size), L"fuzz.dxf", *model, error, options);
    return 0;
}
