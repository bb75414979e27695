#include "CliSupport.h"

#include "Command.h"
#include "core/StringUtils.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <unistd.h>

namespace cli {

Arguments::Arguments(const std::vector<std::string>& args, const std::vector<std::string>& valued,
                     const std::vector<std::string>& switches) {
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        if (a.size() > 2 && a.compare(0, 2, "--") == 0) {
            std::string name = a.substr(2);
            std::string inlineValue;
            bool hasInline = false;
            if (auto eq = name.find('='); eq != std::string::npos) {
                inlineValue = name.substr(eq + 1);
                name = name.substr(0, eq);
                hasInline = true;
            }
            bool isValued = false;
            for (const auto& v : valued) {
                isValued = isValued || v == name;
            }
            bool isSwitch = false;
            for (const auto& s : switches) {
                isSwitch = isSwitch || s == name;
            }
            if (isSwitch && !hasInline) {
                options_[name] = "";
            } else if (isValued) {
                if (hasInline) {
                    options_[name] = inlineValue;
                } else if (i + 1 < args.size()) {
                    options_[name] = args[++i];
                } else {
                    error_ = "option --" + name + " needs a value";
                    return;
                }
            } else {
                error_ = "unknown option --" + name;
                return;
            }
        } else {
            positional_.push_back(a);
        }
    }
}

std::optional<std::string> Arguments::value(const std::string& option) const {
    auto it = options_.find(option);
    if (it == options_.end()) {
        return std::nullopt;
    }
    return it->second;
}

int usageError(const char* command, const std::string& message) {
    std::fprintf(stderr, "quorvale-cli %s: %s\n", command, message.c_str());
    if (const Command* c = findCommand(command)) {
        std::fprintf(stderr, "usage: %s\n", c->usage);
    }
    return exitUsage;
}

int operationFailed(const char* command, const std::string& context, Status s) {
    std::fprintf(stderr, "quorvale-cli %s: %s: %s\n", command, context.c_str(),
                 utf8(statusText(s)).c_str());
    return exitFailed;
}

int failed(const char* command, const std::string& message) {
    std::fprintf(stderr, "quorvale-cli %s: %s\n", command, message.c_str());
    return exitFailed;
}

bool parseSize(const std::string& text, std::int64_t& width, std::int64_t& height) {
    const std::size_t x = text.find_first_of("xX");
    if (x == std::string::npos) {
        return false;
    }
    auto parse = [](const std::string& s, std::int64_t& out) {
        if (s.empty()) {
            return false;
        }
        char* end = nullptr;
        errno = 0;
        const long long v = std::strtoll(s.c_str(), &end, 10);
        if (*end != '\0' || errno == ERANGE) {
            return false;
        }
        out = v;
        return true;
    };
    return parse(text.substr(0, x), width) && parse(text.substr(x + 1), height);
}

bool parseNumbers(const std::string& text, std::size_t count, std::vector<double>& out) {
    out.clear();
    std::size_t start = 0;
    while (start <= text.size()) {
        std::size_t comma = text.find(',', start);
        if (comma == std::string::npos) {
            comma = text.size();
        }
        const std::string part = text.substr(start, comma - start);
        char* end = nullptr;
        errno = 0;
        const double v = std::strtod(part.c_str(), &end);
        if (part.empty() || *end != '\0' || errno == ERANGE || !std::isfinite(v)) {
            return false;
        }
        out.push_back(v);
        start = comma + 1;
    }
    return out.size() == count;
}

bool parseIntegers(const std::string& text, std::size_t count, std::vector<long>& out) {
    std::vector<double> values;
    if (!parseNumbers(text, count, values)) {
        return false;
    }
    out.clear();
    for (double v : values) {
        if (v != std::floor(v) || std::fabs(v) > 2147483647.0) {
            return false;
        }
        out.push_back(static_cast<long>(v));
    }
    return true;
}

Status writeAtomically(const std::string& target,
                       const std::function<Status(const std::string&)>& write) {
    const std::string temporary = target + ".part" + std::to_string(::getpid());
    Status s = write(temporary);
    if (s == status::ok || s == status::warning) {
        if (std::rename(temporary.c_str(), target.c_str()) != 0) {
            s = status::fromErrno(errno, status::writeFailed);
            std::remove(temporary.c_str());
        }
    } else {
        std::remove(temporary.c_str());
    }
    return s;
}

namespace {
std::atomic<bool> interruptFlag{false};
}

void noteInterrupt() {
    interruptFlag.store(true);
}
bool interrupted() {
    return interruptFlag.load();
}

ProgressLine::ProgressLine(std::string label) : label_(std::move(label)), tty_(::isatty(2) != 0) {}

ProgressLine::~ProgressLine() {
    done();
}

void ProgressLine::update(double fraction) {
    if (!tty_) {
        return;
    }
    const int percent = static_cast<int>(std::clamp(fraction, 0.0, 1.0) * 100.0);
    if (percent != last_) {
        last_ = percent;
        std::fprintf(stderr, "\r%s %3d%%", label_.c_str(), percent);
        std::fflush(stderr);
    }
}

void ProgressLine::done() {
    if (tty_ && last_ >= 0) {
        std::fprintf(stderr, "\n");
        last_ = -1;
    }
}

} // namespace cli
