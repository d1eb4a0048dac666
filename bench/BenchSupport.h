// What the benchmarks share: settings from flags or the environment, the data folder, and a
// reporter that keeps each benchmark's rate so that main can print the comparison at the end.
#ifndef RPX_BENCH_SUPPORT_H
#define RPX_BENCH_SUPPORT_H

#include <benchmark/benchmark.h>

#include <map>
#include <set>
#include <string>

namespace rpxbench {

// "--name=value" taken out of argv (so that Google Benchmark does not see it), else the
// environment variable, else the default. Exits with a message on a value that is no number.
long long Setting(int& argc, char** argv, const char* flag, const char* variable, long long fallback);

// The folder for cached data (RPX_BENCH_DIR, else the build's bench-data), created if missing.
std::string DataFolder();

// Console output as usual; records counter `counter` of every run by benchmark name.
class RateReporter : public benchmark::ConsoleReporter {
public:
    explicit RateReporter(std::string counter);
    void ReportRuns(const std::vector<Run>& runs) override;
    // The rate of the benchmark registered as `name` (the median with repetitions), 0 when none ran.
    double Rate(const std::string& name) const;

private:
    std::string counter_;
    std::map<std::string, double> rates_;  // by benchmark function name
    std::set<std::string> medians_;
};

}  // namespace rpxbench

#endif
