#include "BenchSupport.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

extern char** environ;

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

ProcessRun RunProcess(const std::vector<std::string>& argv, bool quiet) {
    std::vector<char*> args;
    for (const std::string& arg : argv) args.push_back(const_cast<char*>(arg.c_str()));
    args.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (quiet) {
        posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    }
    ProcessRun run;
    auto start = std::chrono::steady_clock::now();
    pid_t pid;
    int started = posix_spawnp(&pid, args[0], &actions, nullptr, args.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (started != 0) return run;
    int status = -1;
    struct rusage usage {};
    if (::wait4(pid, &status, 0, &usage) != pid) return run;
    run.wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    run.user = static_cast<double>(usage.ru_utime.tv_sec) + usage.ru_utime.tv_usec / 1e6;
    run.system = static_cast<double>(usage.ru_stime.tv_sec) + usage.ru_stime.tv_usec / 1e6;
    run.peakRssKiB = usage.ru_maxrss;
    run.ok = WIFEXITED(status) && WEXITSTATUS(status) == 0;
    return run;
}

Spread SpreadOf(std::vector<double> samples) {
    Spread spread;
    if (samples.empty()) return spread;
    std::sort(samples.begin(), samples.end());
    size_t n = samples.size();
    spread.median = n % 2 ? samples[n / 2] : (samples[n / 2 - 1] + samples[n / 2]) / 2;
    // Quartiles by linear interpolation between the closest ranks.
    auto quantile = [&](double q) {
        double rank = q * static_cast<double>(n - 1);
        size_t below = static_cast<size_t>(rank);
        size_t above = std::min(below + 1, n - 1);
        return samples[below] + (rank - static_cast<double>(below)) * (samples[above] - samples[below]);
    };
    spread.q1 = quantile(0.25);
    spread.q3 = quantile(0.75);
    spread.low = samples.front();
    spread.high = samples.back();
    return spread;
}

}  // namespace rpxbench
