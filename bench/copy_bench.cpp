// File copy: RkRPXFileOpUtil::copy (in a process of its own, copy_once) against the system's cp,
// each timed as a whole process, in interleaved runs on the same source file (default 1024 MB;
// --copy-mb=N or RPX_BENCH_COPY_MB). Two settings:
//   cached    the source is in the page cache (read once before the runs);
//   uncached  the source is dropped from the page cache before each run.
// Before each run the previous copy is removed and all dirty pages are written out, outside the
// timed part, so that no run pays for the one before. Prints the median, the spread and the
// ratio cp time / copy time (above 1: the library is faster).
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "BenchSupport.h"

namespace {

std::string MakeSource(const std::string& folder, long long megabytes) {
    std::string source = folder + "/copy-source-" + std::to_string(megabytes) + "mb.bin";
    long long bytes = megabytes * 1024 * 1024;
    struct stat st;
    if (::stat(source.c_str(), &st) == 0 && st.st_size == bytes) return source;
    FILE* f = std::fopen(source.c_str(), "wb");
    if (!f) {
        std::perror(source.c_str());
        std::exit(1);
    }
    // Varied bytes, so that nothing on the way can take a shortcut on runs of zeroes.
    std::vector<unsigned char> chunk(1 << 20);
    unsigned state = 12345;
    for (long long written = 0; written < bytes; written += static_cast<long long>(chunk.size())) {
        for (unsigned char& byte : chunk) {
            state = state * 1103515245u + 12345u;
            byte = static_cast<unsigned char>(state >> 16);
        }
        if (std::fwrite(chunk.data(), 1, chunk.size(), f) != chunk.size()) {
            std::perror("writing the copy source");
            std::exit(1);
        }
    }
    std::fclose(f);
    return source;
}

void ReadWhole(const std::string& path) {
    int fd = ::open(path.c_str(), O_RDONLY);
    if (fd < 0) return;
    std::vector<char> buffer(1 << 20);
    while (::read(fd, buffer.data(), buffer.size()) > 0) {
    }
    ::close(fd);
}

void DropFromCache(const std::string& path) {
    int fd = ::open(path.c_str(), O_RDONLY);
    if (fd < 0) return;
    ::fdatasync(fd);
    ::posix_fadvise(fd, 0, 0, POSIX_FADV_DONTNEED);
    ::close(fd);
}

struct Side {
    const char* name;
    std::vector<std::string> argv;
    std::vector<double> wall, cpu;
};

void TimeOne(Side& side, const std::string& source, const std::string& target, long long bytes, bool cached) {
    ::unlink(target.c_str());
    ::sync();
    if (!cached) DropFromCache(source);
    rpxbench::ProcessRun run = rpxbench::RunProcess(side.argv);
    struct stat st;
    if (!run.ok || ::stat(target.c_str(), &st) != 0 || st.st_size != bytes) {
        std::fprintf(stderr, "%s failed or left an incomplete copy\n", side.name);
        std::exit(1);
    }
    side.wall.push_back(run.wall);
    side.cpu.push_back(run.user + run.system);
}

void Report(const char* setting, long long megabytes, std::vector<Side>& sides) {
    std::printf("\n%s, %lld MB, %zu interleaved runs each (whole process)\n", setting, megabytes,
                sides[0].wall.size());
    std::printf("  %-24s %10s %10s %10s %10s %10s\n", "", "MB/s", "median s", "min s", "max s", "CPU s");
    for (Side& side : sides) {
        rpxbench::Spread wall = rpxbench::SpreadOf(side.wall);
        rpxbench::Spread cpu = rpxbench::SpreadOf(side.cpu);
        std::printf("  %-24s %10.0f %10.3f %10.3f %10.3f %10.3f\n", side.name, megabytes / wall.median,
                    wall.median, wall.low, wall.high, cpu.median);
    }
    double ownTime = rpxbench::SpreadOf(sides[0].wall).median;
    double cpTime = rpxbench::SpreadOf(sides[1].wall).median;
    std::printf("  ratio cp time / copy time: %.2f (%s: goal %s)\n", cpTime / ownTime, setting,
                std::string(setting) == "cached" ? ">= 1.10" : ">= 1.00");
}

}  // namespace

int main(int argc, char** argv) {
    long long megabytes = rpxbench::Setting(argc, argv, "copy-mb", "RPX_BENCH_COPY_MB", 1024);
    long long runs = rpxbench::Setting(argc, argv, "runs", "RPX_BENCH_COPY_RUNS", 7);
    long long uncachedRuns = rpxbench::Setting(argc, argv, "uncached-runs", "RPX_BENCH_COPY_UNCACHED_RUNS", 31);
    if (argc > 1) {
        std::fprintf(stderr, "usage: copy_bench [--copy-mb=N] [--runs=N] [--uncached-runs=N]\n");
        return 2;
    }
    std::string folder = rpxbench::DataFolder();
    std::string source = MakeSource(folder, megabytes);
    std::string target = folder + "/copy-target.bin";
    std::string self = argv[0];
    std::string copyOnce = self.substr(0, self.find_last_of('/') + 1) + "copy_once";
    long long bytes = megabytes * 1024 * 1024;

    for (bool cached : {true, false}) {
        std::vector<Side> sides{{"RkRPXFileOpUtil::copy", {copyOnce, source, target}, {}, {}},
                                {"cp", {"cp", source, target}, {}, {}}};
        if (cached) ReadWhole(source);
        long long count = cached ? runs : uncachedRuns;
        for (long long i = 0; i < count; ++i) {
            // Alternate which side goes first, so that neither always follows the other.
            size_t first = static_cast<size_t>(i % 2);
            TimeOne(sides[first], source, target, bytes, cached);
            TimeOne(sides[1 - first], source, target, bytes, cached);
        }
        Report(cached ? "cached" : "uncached", megabytes, sides);
    }
    ::unlink(target.c_str());
    return 0;
}
