// quorvale-cli autolevels IN OUT: stretches a document's lightness to the full range.

#include "Command.h"
#include "DocumentEdit.h"

namespace {

const char* const name = "autolevels";

int run(const std::vector<std::string>& args) {
    return cli::editWithoutOptions(name, args, commandAutoLevels);
}

const cli::Command command{
    "autolevels", "stretch a document's lightness between its 0.5 % points",
    "quorvale-cli autolevels IN OUT\n"
    "  IN, OUT  Quorvale documents (.zmp or .zmq); OUT may be IN. The lightness below\n"
    "           which 0.5 % of the pixels lie becomes black, the one above which 0.5 %\n"
    "           lie white; hue and saturation stay.",
    run};
const cli::CommandRegistration registration(command);

} // namespace
