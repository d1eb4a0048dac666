// What the benchmarks share: settings from flags or the environment, the data folder, running
// a program with its time and memory measured, and the median and range of samples.
#ifndef RPX_BENCH_SUPPORT_H
#define RPX_BENCH_SUPPORT_H

#include <string>
#include <vector>

namespace rpxbench {

// "--name=value" taken out of argv (so that what is left can be checked), else the
// environment variable, else the default. Exits with a message on a value that is no number.
long long Setting(int& argc, char** argv, const char* flag, const char* variable, long long fallback);

// The folder for cached data (RPX_BENCH_DIR, else the build's bench-data), created if missing.
std::string DataFolder();

// One child process run to its end: wall time and the CPU time it used, in seconds.
struct ProcessRun {
    bool ok = false;  // started and exited with status 0
    double wall = 0, user = 0, system = 0;
    long peakRssKiB = 0;
};

// Runs argv[0] (searched on PATH) with its arguments; output goes where ours goes unless quiet.
ProcessRun RunProcess(const std::vector<std::string>& argv, bool quiet = false);

// Median, quartiles, smallest and largest of a set of samples.
struct Spread {
    double median = 0, low = 0, high = 0;
    double q1 = 0, q3 = 0;  // the middle half of the samples lies between them
};
Spread SpreadOf(std::vector<double> samples);

}  // namespace rpxbench

#endif
