#pragma once

#include "core/Status.h"

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace cli {

/// Parsed arguments of a subcommand: positional words and `--name value` options.
/// Flags named in `switches` take no value.
class Arguments {
public:
    /// Parses args; on an unknown option or a missing value, error() says why.
    Arguments(const std::vector<std::string>& args, const std::vector<std::string>& valued,
              const std::vector<std::string>& switches = {});

    bool ok() const { return error_.empty(); }
    const std::string& error() const { return error_; }
    const std::vector<std::string>& positional() const { return positional_; }
    bool has(const std::string& option) const { return options_.count(option) > 0; }
    std::optional<std::string> value(const std::string& option) const;

private:
    std::vector<std::string> positional_;
    std::map<std::string, std::string> options_;
    std::string error_;
};

/// Prints "quorvale-cli <command>: <message>" and the command's usage to stderr; returns 2.
int usageError(const char* command, const std::string& message);
/// Prints "quorvale-cli <command>: <context>: <status text>" to stderr; returns 1.
int operationFailed(const char* command, const std::string& context, Status s);
/// Prints "quorvale-cli <command>: <message>" to stderr; returns 1.
int failed(const char* command, const std::string& message);

/// Parses "WxH" with both parts integers (may be zero or negative; the caller checks).
bool parseSize(const std::string& text, std::int64_t& width, std::int64_t& height);
/// Parses a comma-separated list of exactly `count` numbers.
bool parseNumbers(const std::string& text, std::size_t count, std::vector<double>& out);
/// Parses a comma-separated list of exactly `count` integers.
bool parseIntegers(const std::string& text, std::size_t count, std::vector<long>& out);

/// Writes an output file safely: `write` gets a temporary path beside the target and
/// returns a status; only on success is the temporary renamed over the target, so a
/// failed command never leaves a partial output file. Returns the status.
Status writeAtomically(const std::string& target,
                       const std::function<Status(const std::string&)>& write);

/// True once Ctrl+C was pressed (the tool installs the handler and a stop poll at start).
bool interrupted();
/// Records a Ctrl+C; safe in a signal handler.
void noteInterrupt();

/// A progress line on stderr when it is a terminal: "<label> 42%".
class ProgressLine {
public:
    explicit ProgressLine(std::string label);
    ~ProgressLine();
    void update(double fraction);
    void done();

private:
    std::string label_;
    int last_ = -1;
    bool tty_;
};

} // namespace cli
