// Every reader through RasterImport::read: the first byte chooses the extension, the rest is
// the file, written to a scratch file as a user's file would be.
#include "core/StringUtils.h"
#include "interchange/raster/Raster.h"
#include "interchange/raster/RasterImport.h"

#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const char* const extensions[] = {".bmp", ".tga", ".tif", ".jpg", ".png", ".zmp"};
    static const std::string folder = [] {
        setMaxRasterBytes(std::uint64_t(64) << 20);
        char name[] = "/tmp/fuzz-raster-XXXXXX";
        return std::string(::mkdtemp(name));
    }();
    if (size < 1) {
        return 0;
    }
    const std::string path = folder + "/input" + extensions[data[0] % 6];
    std::FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) {
        return 0;
    }
    std::fwrite(data + 1, 1, size - 1, f);
    std::fclose(f);
    RasterImport import;
    const Status s = import.read(utf8(path));
    if (s == status::ok && !import.raster()) {
        std::abort();
    }
    if (s != status::ok && import.errorText().empty()) {
        std::abort();
    }
    ::unlink(path.c_str());
    return 0;
}
