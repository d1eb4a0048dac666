// The whole patch on large configuration databases. For each size (default 10,000, 30,000,
// 100,000 and 300,000 documents; --docs=N runs one size), each measured --runs=N times (default 3;
// the medians are printed):
//   1. make_patch_scenario.py writes the example server with rpx/rpconf.nsf grown to that size;
//   2. "rpxserver init" makes the server folder (timed: documents made per second, peak RSS),
//      and "nsfdb create" makes the configuration database alone again from its JSON dump
//      (timed the same way; the dump is made once, untimed);
//   3. "rpxserver run" runs the patch task on it under the virtual clock, with the sleep meter
//      preloaded: the task's own pauses are real sleeps (select() with a timeout), the meter
//      times each of them and their total is taken off the wall time.
// The debug log is off, as a production server has it; the largest size of 100,000 or fewer
// documents is run once more with the log on, to show what it costs.
// Prints CPU and wall time beyond the waits and peak RSS per size, then the least-squares line
// through (documents, CPU) and (documents, wall): the fitted cost per document.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <type_traits>
#include <vector>

#include "BenchSupport.h"

namespace {

struct Tools {
    std::string rpxserver, nsfdb, generator, sleepMeter, example;
};

struct Figures {
    long long docs = 0;
    double initWall = 0;
    long initRssKiB = 0;
    double createWall = 0;
    long createRssKiB = 0;
    double cpu = 0, wall = 0, slept = 0, asked = 0;
    long runRssKiB = 0;
};

[[noreturn]] void Fail(const std::string& what) {
    std::fprintf(stderr, "patch_bench: %s\n", what.c_str());
    std::exit(1);
}

// The sleep meter's totals: seconds slept and seconds asked for.
void ReadWaits(const std::string& path, double& slept, double& asked) {
    std::ifstream in(path);
    if (!(in >> slept >> asked)) Fail(path + ": the sleep meter wrote no totals");
}

// "nsfdb create" of the server's configuration database from its dump (made once per size).
void MakeConfigurationDatabaseAlone(const Tools& tools, const std::string& folder, const std::string& server,
                                    long long docs, Figures& figures) {
    std::string dump = folder + "/rpconf-" + std::to_string(docs) + ".json";
    std::string made = folder + "/rpconf-made.nsf";
    struct stat st;
    if (::stat(dump.c_str(), &st) != 0 &&
        !rpxbench::RunProcess({"sh", "-c", "\"$0\" dump \"$1\" > \"$2\"", tools.nsfdb,
                               server + "/data/rpx/rpconf.nsf", dump}).ok) {
        ::unlink(dump.c_str());
        Fail("cannot dump the configuration database of " + server);
    }
    ::unlink(made.c_str());
    rpxbench::ProcessRun create = rpxbench::RunProcess({tools.nsfdb, "create", made, dump}, true);
    if (!create.ok) Fail("nsfdb create failed on " + dump);
    ::unlink(made.c_str());
    figures.createWall = create.wall;
    figures.createRssKiB = create.peakRssKiB;
}

// Sets the server's debug-log switch in its notes.ini.
void SetDebugLog(const std::string& server, bool on) {
    std::string path = server + "/notes.ini", text, line;
    std::ifstream in(path);
    bool found = false;
    while (std::getline(in, line)) {
        if (line.rfind("RPX_ENABLE_RPENCY_LOG=", 0) == 0) {
            line = std::string("RPX_ENABLE_RPENCY_LOG=") + (on ? "1" : "0");
            found = true;
        }
        text += line + "\n";
    }
    if (!found) text += std::string("RPX_ENABLE_RPENCY_LOG=") + (on ? "1" : "0") + "\n";
    std::ofstream out(path, std::ios::trunc);
    if (!(out << text) || !out.flush()) Fail("cannot write " + path);
}

Figures Measure(const Tools& tools, const std::string& folder, long long docs, bool debugLog) {
    Figures figures;
    figures.docs = docs;
    std::string scenario = folder + "/patch-" + std::to_string(docs) + ".json";
    std::string server = folder + "/patch-server-" + std::to_string(docs);
    struct stat st;
    if (::stat(scenario.c_str(), &st) != 0 &&
        !rpxbench::RunProcess({"python3", tools.generator, std::to_string(docs), scenario, tools.example}).ok)
        Fail("cannot write " + scenario);
    rpxbench::RunProcess({"rm", "-rf", server});
    rpxbench::ProcessRun init = rpxbench::RunProcess({tools.rpxserver, "init", scenario, server});
    if (!init.ok) Fail("rpxserver init failed on " + scenario);
    figures.initWall = init.wall;
    figures.initRssKiB = init.peakRssKiB;
    MakeConfigurationDatabaseAlone(tools, folder, server, docs, figures);
    SetDebugLog(server, debugLog);

    std::string meter = folder + "/patch-slept.txt";
    ::unlink(meter.c_str());
    ::setenv("RPX_SLEEP_METER", meter.c_str(), 1);
    ::setenv("LD_PRELOAD", tools.sleepMeter.c_str(), 1);
    rpxbench::ProcessRun run = rpxbench::RunProcess({tools.rpxserver, "run", server}, true);
    ::unsetenv("LD_PRELOAD");
    ::unsetenv("RPX_SLEEP_METER");
    if (!run.ok) Fail("rpxserver run failed on " + server + " (run it by hand to see why)");
    ReadWaits(meter, figures.slept, figures.asked);
    figures.cpu = run.user + run.system;
    figures.wall = run.wall - figures.slept;
    figures.runRssKiB = run.peakRssKiB;
    rpxbench::RunProcess({"rm", "-rf", server});
    return figures;
}

// Least squares y = a + b x; returns b.
double Slope(const std::vector<Figures>& all, double Figures::*y) {
    double n = static_cast<double>(all.size()), sx = 0, sy = 0, sxx = 0, sxy = 0;
    for (const Figures& f : all) {
        double x = static_cast<double>(f.docs);
        sx += x;
        sy += f.*y;
        sxx += x * x;
        sxy += x * (f.*y);
    }
    double d = n * sxx - sx * sx;
    return d == 0 ? 0 : (n * sxy - sx * sy) / d;
}

void PrintRow(const Figures& f, const char* note) {
    std::printf("%9lld | %8.2f %10.0f %8.1f | %10.0f %8.1f | %8.3f %8.3f %8.1f %8.3f %8.1f%s\n", f.docs,
                f.initWall, f.docs / f.initWall, f.initRssKiB / 1024.0, f.docs / f.createWall,
                f.createRssKiB / 1024.0, f.cpu, f.wall, f.asked, f.slept, f.runRssKiB / 1024.0, note);
    std::fflush(stdout);
}

}  // namespace

// Each figure's median over several measurements of one size (the machine's speed varies).
Figures Median(std::vector<Figures> runs) {
    Figures out = runs.front();
    auto middle = [&runs](auto field) {
        std::vector<std::decay_t<decltype(runs[0].*field)>> values;
        for (const Figures& f : runs) values.push_back(f.*field);
        std::sort(values.begin(), values.end());
        return values[values.size() / 2];
    };
    out.initWall = middle(&Figures::initWall);
    out.initRssKiB = middle(&Figures::initRssKiB);
    out.createWall = middle(&Figures::createWall);
    out.createRssKiB = middle(&Figures::createRssKiB);
    out.cpu = middle(&Figures::cpu);
    out.wall = middle(&Figures::wall);
    out.slept = middle(&Figures::slept);
    out.asked = middle(&Figures::asked);
    out.runRssKiB = middle(&Figures::runRssKiB);
    return out;
}

Figures MeasureMedian(const Tools& tools, const std::string& folder, long long docs, bool debugLog, int runs) {
    std::vector<Figures> all;
    for (int i = 0; i < runs; ++i) all.push_back(Measure(tools, folder, docs, debugLog));
    return Median(all);
}

int main(int argc, char** argv) {
    long long only = rpxbench::Setting(argc, argv, "docs", "RPX_BENCH_PATCH_DOCS", 0);
    int runs = static_cast<int>(rpxbench::Setting(argc, argv, "runs", "RPX_BENCH_PATCH_RUNS", 3));
    bool quick = argc == 2 && std::string(argv[1]) == "--quick";
    if (argc > 1 && !quick) {
        std::fprintf(stderr, "usage: patch_bench [--docs=N] [--runs=N] | --quick\n");
        return 2;
    }
    if (quick) runs = 1;
    // Quick: two small sizes, and the task's pauses return at once (they are counted, not slept).
    if (quick) ::setenv("RPX_SLEEP_METER_SKIP", "1", 1);
    std::string self = argv[0];
    std::string here = self.substr(0, self.find_last_of('/') + 1);
    Tools tools{RPX_BENCH_RPXSERVER, RPX_BENCH_NSFDB, RPX_BENCH_SOURCE "/make_patch_scenario.py",
                here + "libsleep_meter.so",
                RPX_BENCH_SOURCE "/../examples/server/scenario.json"};
    std::vector<long long> sizes = only    ? std::vector<long long>{only}
                                   : quick ? std::vector<long long>{300, 1000}
                                           : std::vector<long long>{10000, 30000, 100000, 300000};
    std::string folder = rpxbench::DataFolder();

    std::printf("%9s | %8s %10s %8s | %10s %8s | %8s %8s %8s %8s %8s\n", "", "init", "", "", "nsfdb", "create",
                "run", "", "waits", "waits", "");
    std::printf("%9s | %8s %10s %8s | %10s %8s | %8s %8s %8s %8s %8s\n", "documents", "wall s", "docs/s", "RSS MiB",
                "docs/s", "RSS MiB", "CPU s", "wall s", "asked s", "slept s", "RSS MiB");
    std::vector<Figures> all;
    for (long long docs : sizes) {
        Figures f = MeasureMedian(tools, folder, docs, false, runs);
        PrintRow(f, "");
        all.push_back(f);
    }
    long long logged = 0;
    for (long long docs : sizes)
        if (docs <= 100000) logged = docs;
    if (logged) PrintRow(MeasureMedian(tools, folder, logged, true, runs), "  debug log on");
    std::printf("run wall s is the task's wall time less the time it slept in its own pauses (slept s);\n"
                "each figure is the median of %d measurements.\n", runs);
    if (all.size() >= 2) {
        std::printf("fitted cost per document: %.2f us CPU, %.2f us wall (beyond the waits)\n",
                    Slope(all, &Figures::cpu) * 1e6, Slope(all, &Figures::wall) * 1e6);
    }
    const Figures& largest = all.back();
    std::printf("making databases, %lld documents: rpxserver init %.0f docs/s, nsfdb create %.0f docs/s "
                "(goal >= 50,000); peak RSS %.1f and %.1f MiB (goal <= 200 at 300,000)\n",
                largest.docs, largest.docs / largest.initWall, largest.docs / largest.createWall,
                largest.initRssKiB / 1024.0, largest.createRssKiB / 1024.0);
    for (const Figures& f : all)
        if (f.docs == 100000)
            std::printf("at 100,000 documents: %.2f s CPU (goal <= 2), %.2f s wall (goal <= 5) beyond the waits\n",
                        f.cpu, f.wall);
    return 0;
}
