#pragma once

#include "CliSupport.h"
#include "core/Reporter.h"

#include <string>

class ZmapDocument;

namespace cli {

/// Progress of a file operation as a line on stderr; Ctrl+C asks the operation to stop.
class FileProgress : public Reporter {
public:
    explicit FileProgress(std::string label) : line_(std::move(label)) {}
    ~FileProgress() override = default;
    bool report(unsigned total, unsigned done, double fraction) override;

private:
    ProgressLine line_;
};

/// Opens the Zmap file at `path` into `document` for a command: with `allocate`, the
/// channels the file lacks are made as for editing; without, they stay null so that the
/// caller sees which the file holds. Prints the failure and returns false.
bool openForCommand(const char* command, const std::string& path, ZmapDocument& document,
                    bool allocate);

} // namespace cli
