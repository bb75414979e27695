// quorvale-cli status CODE: prints the text of a status code.

#include "CliSupport.h"
#include "Command.h"
#include "core/StringUtils.h"

#include <cstdio>
#include <cstdlib>

namespace {

int run(const std::vector<std::string>& args) {
    cli::Arguments a(args, {});
    if (!a.ok()) {
        return cli::usageError("status", a.error());
    }
    if (a.positional().size() != 1) {
        return cli::usageError("status", "expected one status code");
    }
    std::vector<long> code;
    if (!cli::parseIntegers(a.positional()[0], 1, code)) {
        return cli::usageError("status", "not a number: " + a.positional()[0]);
    }
    std::printf("%ld\t%s\n", code[0], utf8(statusText(static_cast<Status>(code[0]))).c_str());
    return cli::exitOk;
}

const cli::Command command{"status", "print the text of a status code", "quorvale-cli status CODE",
                           run};
const cli::CommandRegistration registration(command);

} // namespace
