#pragma once

#include "core/Colour.h"
#include "core/Status.h"
#include "image/DocumentCommands.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

class ZmapDocument;

namespace cli_test {

/// What one run of quorvale-cli gave.
struct CliResult {
    int exitCode = -1; ///< -1 if the tool didn't exit normally
    std::string out;
    std::string err;
};

/// Runs the quorvale-cli of this build with `args` and waits for it.
CliResult runCli(const std::vector<std::string>& args);

/// Runs a document command on `doc` and gives its status.
Status execute(ZmapDocument& doc, std::int32_t command, const CommandArgument& argument = {});

/// Saves at `path` a grey (100) document of the size whose pixels have the materials
/// "Stone" (1) or "Grass" (2) that `materialAt(x, y)` gives.
void writeStoneAndGrass(const std::string& path, std::int32_t width, std::int32_t height,
                        const std::function<std::uint16_t(std::int32_t, std::int32_t)>& materialAt);

/// Writes an 8 x 8 checker of 4-pixel squares as a 24-bit BMP: `dark` at the top left,
/// `light` beside it.
void writeCheckerBmp(const std::string& path, ColourPOD dark = {0, 0, 0},
                     ColourPOD light = {255, 255, 255});

} // namespace cli_test
