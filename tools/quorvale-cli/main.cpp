// quorvale-cli: the headless tool. Each subcommand lives in commands/.

#include "CliSupport.h"
#include "Command.h"
#include "core/LanguageTable.h"
#include "core/Reporter.h"
#include "core/StringUtils.h"
#include "core/ThreadName.h"
#include "image/TileHeap.h"

#include <csignal>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

void onInterrupt(int) {
    cli::noteInterrupt();
}

/// Ctrl+C asks long work to stop at its next progress report.
class InterruptStop : public StopRequest {
public:
    bool stopRequested() override { return cli::interrupted(); }
};

void printHelp() {
    std::printf("quorvale-cli %s: the headless tool of Quorvale, the depth-image painter.\n\n",
                QUORVALE_VERSION_TEXT);
    std::printf("usage: quorvale-cli COMMAND [ARGS...]\n"
                "       quorvale-cli help COMMAND\n"
                "       quorvale-cli --version\n\ncommands:\n");
    for (const cli::Command* c : cli::commands()) {
        std::printf("  %-12s %s\n", c->name, c->summary);
    }
    std::printf("\nexit codes: 0 success, 1 the operation failed, 2 bad usage.\n");
}

} // namespace

int main(int argc, char** argv) {
    TQL::setMainThread();

    LanguageTable language;
    const std::wstring languageFile = LanguageTable::findDefault(getWCS(argv[0]));
    if (!languageFile.empty() && language.load(languageFile) == status::ok) {
        TQL::setStringTable(&language);
    }

    InterruptStop stop;
    TQL::setStopRequest(&stop);
    std::signal(SIGINT, onInterrupt);

    std::vector<std::string> args(argv + 1, argv + argc);
    if (args.empty()) {
        printHelp();
        return cli::exitUsage;
    }
    const std::string& first = args[0];
    if (first == "--help" || first == "-h") {
        printHelp();
        return cli::exitOk;
    }
    if (first == "--version") {
        std::printf("quorvale-cli %s\n", QUORVALE_VERSION_TEXT);
        return cli::exitOk;
    }
    if (first == "help") {
        if (args.size() < 2) {
            printHelp();
            return cli::exitOk;
        }
        const cli::Command* c = cli::findCommand(args[1]);
        if (!c) {
            std::fprintf(stderr, "quorvale-cli: unknown command '%s'\n", args[1].c_str());
            return cli::exitUsage;
        }
        std::printf("%s\n\nusage: %s\n", c->summary, c->usage);
        return cli::exitOk;
    }
    const cli::Command* command = cli::findCommand(first);
    if (!command) {
        std::fprintf(stderr, "quorvale-cli: unknown command '%s' (try --help)\n", first.c_str());
        return cli::exitUsage;
    }
    int result = cli::exitFailed;
    try {
        result = command->run(std::vector<std::string>(args.begin() + 1, args.end()));
    } catch (const std::bad_alloc&) {
        std::fprintf(stderr, "quorvale-cli %s: %s\n", command->name,
                     utf8(statusText(status::outOfMemory)).c_str());
        result = cli::exitFailed;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "quorvale-cli %s: %s\n", command->name, e.what());
        result = cli::exitFailed;
    }
    TileHeap::purge(true);
    TQL::setStopRequest(nullptr);
    TQL::setStringTable(nullptr);
    return result;
}
