// Reads arbitrary bytes as a DXF drawing and renders what it holds into a small image in
// each view type, with shadows: whatever the geometry (huge, tiny, flat, degenerate), the
// renderer must finish without a crash, undefined behaviour or an unbounded loop.

#include "image/ZmapDocument.h"
#include "interchange/ModelImage.h"
#include "interchange/dxf/DXFReader.h"
#include "interchange/render/SmoothModelImp.h"

#include <cstddef>
#include <cstdint>

namespace {

class FuzzDocument : public ZmapDocument {
public:
    void setChanged(bool) override {}
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    auto model = TQL::makeHandle<SmoothModelImp>();
    std::wstring error;
    DXFReadOptions options;
    options.maxFaces = 2'000;
    options.maxInsertDepth = 4;
    if (readDXF(std::span<const unsigned char>(data, size), L"fuzz.dxf", *model, error, options) !=
        status::ok) {
        return 0;
    }
    for (const auto view : {ModelImageSettings::View::perspective,
                            ModelImageSettings::View::parallel, ModelImageSettings::View::cubic}) {
        NewImageParams params;
        params.kind = NewImageKind::model;
        params.model.view = view;
        params.height = 12;
        params.width = view == ModelImageSettings::View::cubic ? 72 : 16;
        params.model.section = {0.1, 0.2, 0.0, 0.9, 1.0, 0.7};
        FuzzDocument doc;
        Status s = status::ok;
        makeModelImage(s, doc, *model, params, nullptr, error);
    }
    return 0;
}
