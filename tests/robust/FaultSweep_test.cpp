// Every platform call the patch module imports made to fail, once (its first use) and always,
// on the example server: no crash, no sanitizer report, no hang, every database still there and
// readable. The table of outcomes goes to FAULT_SWEEP_REPORT in the build folder.
#include <cstdio>
#include <fstream>
#include <set>

#include "ExampleRuns.h"

using namespace robust;

namespace {

const int kIoError = 0x010E;  // "I/O data error": a failure every caller must take as one
const int kRunLimitSeconds = 300;

std::set<std::string> Symbols(const std::string& nmArguments) {
    std::set<std::string> names;
    std::string command = "nm -D " + nmArguments + " 2>/dev/null";
    if (FILE* pipe = popen(command.c_str(), "r")) {
        char line[512];
        while (std::fgets(line, sizeof line, pipe)) {
            std::string text(line);
            while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
            size_t blank = text.find_last_of(' ');
            std::string name = blank == std::string::npos ? text : text.substr(blank + 1);
            names.insert(name.substr(0, name.find('@')));
        }
        pclose(pipe);
    }
    return names;
}

// The platform calls of the module: its undefined symbols that libnotes defines.
std::vector<std::string> ImportedPlatformCalls() {
    std::set<std::string> platform = Symbols("--defined-only " + e2e::ShellQuoted(NOTES_LIBRARY_PATH));
    std::vector<std::string> calls;
    for (const std::string& name : Symbols("--undefined-only " + e2e::ShellQuoted(UPDRPX_MODULE_PATH))) {
        if (platform.count(name)) calls.push_back(name);
    }
    return calls;
}

struct SweepCase {
    std::string call;
    bool always = false;
};

struct SweepOutcome {
    bool created = false;
    CommandResult run;
    std::vector<std::string> lost;
    std::vector<std::string> unreadable;
    bool keptCopyLeft = false;
};

std::string Outcome(const SweepOutcome& outcome) {
    if (!outcome.created) return "server not created";
    if (outcome.run.exitCode == 124 || outcome.run.exitCode == 137) return "HANG";
    if (outcome.run.exitCode != 0) return "CRASH (exit " + std::to_string(outcome.run.exitCode) + ")";
    if (!outcome.lost.empty()) return "LOST " + outcome.lost.front();
    if (!outcome.unreadable.empty()) return "UNREADABLE " + outcome.unreadable.front();
    if (outcome.keptCopyLeft) return "KEPT COPY LEFT";
    return "ok";
}

}  // namespace

TEST(FaultSweep, EveryImportedCallFailingOnceOrAlwaysLosesNothing) {
    std::vector<std::string> calls = ImportedPlatformCalls();
    ASSERT_GE(calls.size(), 20u) << "nm found too few platform calls in " << UPDRPX_MODULE_PATH;
    for (const char* expected : {"NSFDbOpen", "NSFTakeDatabaseOffline", "NSFDbCreateAndCopy", "NSFSearch"}) {
        EXPECT_NE(std::find(calls.begin(), calls.end(), expected), calls.end()) << expected;
    }

    E2eServer pristine;
    ASSERT_TRUE(pristine.Create(ExampleScenario()));
    std::set<std::string> databasesBefore;
    for (const auto& entry : DataFiles(pristine)) databasesBefore.insert(entry.first);

    std::vector<SweepCase> cases;
    for (const std::string& call : calls) {
        cases.push_back({call, false});
        cases.push_back({call, true});
    }
    std::vector<SweepOutcome> outcomes(cases.size());
    RunSideBySide(cases.size(), [&](size_t i) {
        Json fault{{"call", cases[i].call}, {"status", kIoError}};
        if (!cases[i].always) fault["count"] = 1;
        E2eServer server;
        SweepOutcome& outcome = outcomes[i];
        outcome.created = server.Create(ExampleWithFaults(Json::array({fault})));
        if (!outcome.created) return;
        outcome.run = RunWithTimeLimit(server, kRunLimitSeconds);
        auto after = DataFiles(server);
        for (const std::string& name : databasesBefore) {
            if (!after.count(name)) outcome.lost.push_back(name);
        }
        for (const auto& entry : after) {
            if (!entry.second.readable) outcome.unreadable.push_back(entry.first);
            if (entry.first.rfind("rpxtemp/", 0) == 0) outcome.keptCopyLeft = true;
        }
    });

    std::ofstream report(FAULT_SWEEP_REPORT);
    char line[256];
    std::snprintf(line, sizeof line, "%-28s %-7s %-24s %6s %8s\n", "call", "fails", "outcome", "open", "seconds");
    report << line;
    for (size_t i = 0; i < cases.size(); ++i) {
        const SweepOutcome& outcome = outcomes[i];
        std::string result = Outcome(outcome);
        std::snprintf(line, sizeof line, "%-28s %-7s %-24s %6d %8.1f\n", cases[i].call.c_str(),
                      cases[i].always ? "always" : "first", result.c_str(), HandlesLeftOpen(outcome.run),
                      outcome.run.seconds);
        report << line;
        EXPECT_EQ(result, "ok") << cases[i].call << (cases[i].always ? " failing always" : " failing once") << ":\n"
                                << outcome.run.err;
    }
    std::printf("fault sweep table: %s\n", FAULT_SWEEP_REPORT);
}
