#include "image/DocumentBuffer.h"

#include "image/ZmapDocument.h"

DocumentBuffer::DocumentBuffer(ZmapDocument& document, ColourPOD background,
                               std::span<const MaterialId> materialIds, std::int32_t left,
                               std::int32_t width)
    : document_(document), background_(background), left_(left),
      width_(width > 0 ? width : document.width() - left), rgb_(*document.rgb), z_(*document.z),
      mat_(*document.mat) {
    ids_.reserve(materialIds.size() + 1);
    ids_.push_back(0);
    ids_.insert(ids_.end(), materialIds.begin(), materialIds.end());
}

void DocumentBuffer::putRow(std::int32_t row, const double* depths, const std::uint32_t* covered,
                            const std::uint8_t* colours, const MaterialId* materials) {
    const std::int32_t width = width_;
    if (row < 0 || row >= document_.height() || width <= 0) {
        return;
    }
    const auto n = static_cast<std::size_t>(width);
    rgbRow_.resize(n);
    zRow_.resize(n);
    matRow_.resize(n);
    const auto idCount = static_cast<MaterialId>(ids_.size());
    for (std::size_t x = 0; x < n; ++x) {
        if (covered[x]) {
            const std::uint8_t* c = colours + 4 * x;
            rgbRow_[x] = ColourPOD{c[0], c[1], c[2]};
            zRow_[x] = static_cast<std::uint32_t>(depths[x]);
            const MaterialId m = materials ? materials[x] : 0;
            matRow_[x] = m < idCount ? ids_[m] : 0;
        } else {
            rgbRow_[x] = background_;
            zRow_[x] = depth::noDepth;
            matRow_[x] = 0;
        }
    }
    rgb_.writeRow(left_, row, reinterpret_cast<const std::uint8_t*>(rgbRow_.data()), width);
    z_.writeRow(left_, row, reinterpret_cast<const std::uint8_t*>(zRow_.data()), width);
    mat_.writeRow(left_, row, reinterpret_cast<const std::uint8_t*>(matRow_.data()), width);
}
