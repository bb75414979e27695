// quorvale-cli flatten IN OUT: merges a document's overlay layer into its image.

#include "Command.h"
#include "DocumentEdit.h"

namespace {

const char* const name = "flatten";

int run(const std::vector<std::string>& args) {
    return cli::editWithoutOptions(name, args, commandFlatten);
}

const cli::Command command{"flatten", "merge a document's overlay layer into its image",
                           "quorvale-cli flatten IN OUT\n"
                           "  IN, OUT  Quorvale documents (.zmp or .zmq); OUT may be IN",
                           run};
const cli::CommandRegistration registration(command);

} // namespace
