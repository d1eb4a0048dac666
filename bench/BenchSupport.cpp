#include "BenchSupport.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace rpxbench {

long long Setting(int& argc, char** argv, const char* flag, const char* variable, long long fallback) {
    std::string prefix = std::string("--") + flag + "=";
    const char* text = nullptr;
    for (int i = 1; i < argc; ++i) {
        if (std::strncmp(argv[i], prefix.c_str(), prefix.size()) != 0) continue;
        text = argv[i] + prefix.size();
        for (int j = i; j < argc; ++j) argv[j] = argv[j + 1];
        --argc;
        break;
    }
    if (!text) text = std::getenv(variable);
    if (!text || !*text) return fallback;
    char* end = nullptr;
    errno = 0;
    long long value = std::strtoll(text, &end, 10);
    if (errno != 0 || *end != '\0' || value <= 0) {
        std::fprintf(stderr, "--%s / %s: '%s' is not a positive number\n", flag, variable, text);
        std::exit(2);
    }
    return value;
}

std::string DataFolder() {
    const char* chosen = std::getenv("RPX_BENCH_DIR");
    std::string folder = chosen && *chosen ? chosen : RPX_BENCH_DATA;
    if (::mkdir(folder.c_str(), 0755) != 0 && errno != EEXIST) {
        std::fprintf(stderr, "cannot create %s: %s\n", folder.c_str(), std::strerror(errno));
        std::exit(2);
    }
    return folder;
}

// Colours only on a terminal.
RateReporter::RateReporter(std::string counter)
    : ConsoleReporter(::isatty(1) ? OO_Defaults : OO_Tabular), counter_(std::move(counter)) {}

void RateReporter::ReportRuns(const std::vector<Run>& runs) {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
        auto it = run.counters.find(counter_);
        if (it == run.counters.end() || run.error_occurred) continue;
        // With repetitions, the median stands for the benchmark; otherwise its one run does.
        const bool aggregate = run.run_type == Run::RT_Aggregate;
        if (aggregate && run.aggregate_name != "median") continue;
        const std::string& name = run.run_name.function_name;
        if (!aggregate && medians_.count(name)) continue;
        if (aggregate) medians_.insert(name);
        rates_[name] = it->second.value;
    }
}

double RateReporter::Rate(const std::string& name) const {
    auto it = rates_.find(name);
    return it == rates_.end() ? 0 : it->second;
}

}  // namespace rpxbench
