#pragma once

// The closing table of the file benchmarks: each run's speed, kept as it is reported.

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

namespace bench {

/// Collects the speed of each run for a closing table, and prints as usual. With
/// repetitions the median is taken.
class SummaryReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            const auto it = run.counters.find("bytes_per_second");
            if (run.error_occurred || it == run.counters.end()) {
                continue;
            }
            const std::string name = run.run_name.str();
            // Processor time (user and system) of one iteration, in seconds.
            const double cpu =
                run.GetAdjustedCPUTime() / benchmark::GetTimeUnitMultiplier(run.time_unit);
            if (run.run_type == Run::RT_Aggregate && run.aggregate_name == "median") {
                medians_[name] = it->second.value / 1e6;
                cpuMedians_[name] = cpu;
            } else if (run.run_type == Run::RT_Iteration) {
                last_[name] = it->second.value / 1e6;
                cpuLast_[name] = cpu;
            }
        }
        ConsoleReporter::ReportRuns(runs);
    }
    /// MB/s (10^6 bytes a second) of a benchmark by its own timing, 0 if it did not run.
    double speed(const std::string& name) const { return find(medians_, last_, name); }
    /// Processor time (user and system) of one iteration in seconds, 0 if it did not run.
    double cpuSeconds(const std::string& name) const { return find(cpuMedians_, cpuLast_, name); }

private:
    static double find(const std::map<std::string, double>& medians,
                       const std::map<std::string, double>& last, const std::string& name) {
        if (const auto it = medians.find(name); it != medians.end()) {
            return it->second;
        }
        const auto it = last.find(name);
        return it == last.end() ? 0.0 : it->second;
    }

    std::map<std::string, double> medians_, last_, cpuMedians_, cpuLast_;
};

} // namespace bench
