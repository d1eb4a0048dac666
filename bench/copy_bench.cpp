// File copy throughput: the common library's RkRPXFileOpUtil::copy against the system's cp, on
// the same source file (default 200 MB; --copy-mb=N or RPX_BENCH_COPY_MB). The source is made
// once in the data folder; the copy is removed after each run, outside the timed part, so both
// always write a new file.
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "RkFileOpUtil.h"

extern char** environ;

namespace {

long long gBytes = 0;
std::string gSource;
std::string gTarget;

void MakeSource(const std::string& folder, long long megabytes) {
    gSource = folder + "/copy-source-" + std::to_string(megabytes) + "mb.bin";
    gTarget = folder + "/copy-target.bin";
    gBytes = megabytes * 1024 * 1024;
    struct stat st;
    if (::stat(gSource.c_str(), &st) == 0 && st.st_size == gBytes) return;
    FILE* f = std::fopen(gSource.c_str(), "wb");
    if (!f) {
        std::perror(gSource.c_str());
        std::exit(1);
    }
    // Varied bytes, so that nothing on the way can take a shortcut on runs of zeroes.
    std::vector<unsigned char> chunk(1 << 20);
    unsigned state = 12345;
    for (long long written = 0; written < gBytes; written += static_cast<long long>(chunk.size())) {
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
}

void CheckCopy(benchmark::State& state) {
    struct stat st;
    if (::stat(gTarget.c_str(), &st) != 0 || st.st_size != gBytes) state.SkipWithError("the copy is incomplete");
}

void BM_RkFileOpUtilCopy(benchmark::State& state) {
    for (auto _ : state) {
        int result = RkRPXFileOpUtil::copy(gSource.c_str(), gTarget.c_str(), true, nullptr, nullptr);
        state.PauseTiming();
        if (result != RkRPXFileOpUtil::RK_FOP_SUCCESS) state.SkipWithError("RkRPXFileOpUtil::copy failed");
        CheckCopy(state);
        ::unlink(gTarget.c_str());
        state.ResumeTiming();
    }
    state.SetBytesProcessed(state.iterations() * gBytes);
}

void BM_cp(benchmark::State& state) {
    std::string program = "cp";
    std::vector<char*> args{program.data(), gSource.data(), gTarget.data(), nullptr};
    for (auto _ : state) {
        pid_t pid;
        int status = -1;
        bool ran = posix_spawnp(&pid, "cp", nullptr, nullptr, args.data(), environ) == 0 &&
                   ::waitpid(pid, &status, 0) == pid;
        state.PauseTiming();
        if (!ran || !WIFEXITED(status) || WEXITSTATUS(status) != 0) state.SkipWithError("cp failed");
        CheckCopy(state);
        ::unlink(gTarget.c_str());
        state.ResumeTiming();
    }
    state.SetBytesProcessed(state.iterations() * gBytes);
}

}  // namespace

int main(int argc, char** argv) {
    long long megabytes = rpxbench::Setting(argc, argv, "copy-mb", "RPX_BENCH_COPY_MB", 200);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    MakeSource(rpxbench::DataFolder(), megabytes);
    ::unlink(gTarget.c_str());

    benchmark::RegisterBenchmark("RkFileOpUtilCopy", BM_RkFileOpUtilCopy)->Unit(benchmark::kMillisecond)->UseRealTime();
    benchmark::RegisterBenchmark("cp", BM_cp)->Unit(benchmark::kMillisecond)->UseRealTime();
    rpxbench::RateReporter reporter("bytes_per_second");
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();

    const double mb = 1024.0 * 1024.0;
    double own = reporter.Rate("RkFileOpUtilCopy") / mb, cp = reporter.Rate("cp") / mb;
    std::printf("\ncopy of a %lld MB file\n", megabytes);
    std::printf("RkRPXFileOpUtil::copy: %8.1f MB/s\n", own);
    std::printf("cp:                    %8.1f MB/s\n", cp);
    if (own > 0 && cp > 0) std::printf("ratio copy/cp: %.2f\n", own / cp);
    return 0;
}
