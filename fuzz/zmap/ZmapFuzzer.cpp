// Feeds arbitrary bytes to the Zmap reader. Whatever it accepts must survive round trips:
// written out, the file reads again, and after that writing and reading change nothing.

#include "core/StringUtils.h"
#include "file/QuorvaleZmapFile.h"
#include "image/ZmapDocument.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

namespace {

class FuzzDocument : public ZmapDocument {
public:
    void setChanged(bool) override {}
};

/// A small image limit keeps each run short; the checks are the same as with the default.
constexpr std::uint64_t maxPixels = std::uint64_t(1) << 20;

/// A file in memory that the writer can open by name.
struct MemoryFile {
    MemoryFile()
        : fd(memfd_create("zmap-fuzz", 0)), path(utf8("/proc/self/fd/" + std::to_string(fd))) {}
    std::vector<std::uint8_t> bytes() const {
        std::vector<std::uint8_t> out(static_cast<std::size_t>(lseek(fd, 0, SEEK_END)));
        if (!out.empty() &&
            pread(fd, out.data(), out.size(), 0) != static_cast<ssize_t>(out.size())) {
            std::abort();
        }
        return out;
    }
    int fd;
    std::wstring path;
};

const MemoryFile& memoryFile() {
    static const MemoryFile file;
    return file;
}

/// Writes the document to the memory file and returns its bytes.
std::vector<std::uint8_t> writeOut(const ZmapDocument& doc) {
    QuorvaleZmapFile writer;
    Status status = -1;
    writer.write(status, doc, memoryFile().path);
    if (status != status::ok) {
        std::abort(); // a document the reader made must be writable
    }
    return memoryFile().bytes();
}

/// Reads the bytes given, or with none, the memory file through its name as a file is read.
Status readIn(ZmapDocument& doc, const std::uint8_t* data = nullptr, std::size_t size = 0) {
    QuorvaleZmapFile reader;
    reader.setMaxPixels(maxPixels);
    Status status = -1;
    if (data) {
        reader.readMemory(status, data, size, doc);
    } else {
        reader.read(status, memoryFile().path, doc);
    }
    if (status == status::ok) {
        status = doc.allocateChannels();
    }
    return status;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzDocument doc;
    if (readIn(doc, data, size) != status::ok) {
        return 0;
    }
    // The first write settles what the reader fills in by default (a missing resolution,
    // an unknown compression); from then on a round trip changes nothing.
    writeOut(doc);
    FuzzDocument second;
    if (readIn(second) != status::ok) {
        std::abort(); // what the writer wrote must read
    }
    const std::vector<std::uint8_t> settled = writeOut(second);
    FuzzDocument third;
    if (readIn(third) != status::ok || writeOut(third) != settled) {
        std::abort(); // and come out the same
    }
    return 0;
}
