// One picture reader on any bytes (FUZZ_FILE_TYPE: 1 BMP, 4 TGA): it must return a status
// from its table, and on success a raster of the size it says.
#include "interchange/raster/Raster.h"
#include "interchange/raster/RasterImport.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const bool limited = [] {
        setMaxRasterBytes(std::uint64_t(64) << 20); // keep within the fuzzer's memory
        return true;
    }();
    (void)limited;
    Raster raster;
    std::wstring error;
    const Status s = readRasterMemory(FUZZ_FILE_TYPE, data, size, raster, error);
    if (s == status::ok) {
        if (raster.colour.size() != std::size_t(raster.width) * raster.height * 3) {
            std::abort();
        }
    } else if (s != status::damaged && s != status::unsupportedVersion &&
               s != status::unsupportedCompression && s != status::outOfMemory) {
        std::abort();
    }
    return 0;
}
