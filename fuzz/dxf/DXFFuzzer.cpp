// Feeds arbitrary bytes to the DXF reader, as text or binary drawings. The reader must
// return a status for anything: no crash, no hang, no unbounded memory.

#include "interchange/dxf/DXFReader.h"

#include <cstddef>
#include <cstdint>

namespace {

/// What the reader gathers; nothing here draws it.
class GatheredModel : public MeshModel {
public:
    void render(const Camera&, Buffer&, const Lighting&, Reporter*, bool, std::int32_t,
                std::int32_t, const SectionBox&) const override {}
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    auto model = TQL::makeHandle<GatheredModel>();
    std::wstring error;
    DXFReadOptions options;
    // Small limits keep each run short; the checks are the same as with the defaults.
    options.maxFaces = 20'000;
    options.maxInsertDepth = 8;
    (void)readDXF(std::span<const unsigned char>(data, size), L"fuzz.dxf", *model, error, options);
    return 0;
}
