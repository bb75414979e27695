// quorvale-cli crop IN OUT --rect X0,Y0,X1,Y1: keeps a rectangle of a document.

#include "CliSupport.h"
#include "Command.h"
#include "DocumentEdit.h"

#include <limits>

namespace {

const char* const name = "crop";

int run(const std::vector<std::string>& args) {
    cli::Arguments a(args, {"rect"});
    std::string in;
    std::string out;
    std::string error;
    if (!a.ok()) {
        return cli::usageError(name, a.error());
    }
    if (!cli::inAndOut(a.positional(), in, out, error)) {
        return cli::usageError(name, error);
    }
    const auto rect = a.value("rect");
    if (!rect) {
        return cli::usageError(name, "--rect is required");
    }
    std::vector<long> corners;
    const long most = std::numeric_limits<std::int32_t>::max();
    if (!cli::parseIntegers(*rect, 4, corners) || corners[0] < 0 || corners[1] < 0 ||
        corners[2] < corners[0] || corners[3] < corners[1] || corners[2] > most ||
        corners[3] > most) {
        return cli::usageError(name, "rect must be X0,Y0,X1,Y1 with 0 <= X0 <= X1 and "
                                     "0 <= Y0 <= Y1: " +
                                         *rect);
    }
    const IExtent<2> keep(
        static_cast<std::int32_t>(corners[0]), static_cast<std::int32_t>(corners[1]),
        static_cast<std::int32_t>(corners[2]), static_cast<std::int32_t>(corners[3]));
    return cli::editDocument(name, in, out, commandCrop, keep);
}

const cli::Command command{
    "crop", "keep a rectangle of a document (.zmp) and save it",
    "quorvale-cli crop IN OUT --rect X0,Y0,X1,Y1\n"
    "  IN, OUT            Quorvale documents (.zmp or .zmq); OUT may be IN\n"
    "  --rect X0,Y0,X1,Y1 the pixels to keep, corners included; the part outside the\n"
    "                     image is left out. The camera record moves with the pixels.",
    run};
const cli::CommandRegistration registration(command);

} // namespace
