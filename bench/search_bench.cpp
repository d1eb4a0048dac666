// Search throughput: NSFSearch with a compiled selection formula over a database of N documents,
// against the fastest a reader of the same file could go, a plain SQLite scan that reads the same
// rows and finds the same items by itself.
//
//   search_bench [--docs=N] [--runs=N] [--seconds=S]
//   (or RPX_BENCH_DOCS, RPX_BENCH_SEARCH_RUNS, RPX_BENCH_SEARCH_SECONDS; 1,000,000, 15 and 60)
//
// Both run in turns, the order alternating, after one warm-up run each: at least --runs pairs,
// more until --seconds of measuring have passed. Each run's wall and CPU time are taken; the
// program prints the median and spread of each and the median, middle half and range of the
// runs' ratios, by wall time (the goal) and by CPU time (steadier on a busy machine).
//
// The database is made once through the public API and kept in the data folder
// (RPX_BENCH_DIR, else build/.../bench-data) as search-N.nsf; later runs reuse it.
#include <sqlite3.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>
#include <string>
#include <string_view>

#include "BenchSupport.h"
#include "global.h"
#include "nsfdata.h"
#include "nsfdb.h"
#include "oserr.h"
#include "nsfnote.h"
#include "nsfsearc.h"
#include "osmem.h"
#include "emu/notesemu.h"

namespace {

constexpr const char* kFormula = "Form=\"dictionary\" | Form=\"entity\"";

long long gDocs = 0;
long long gRuns = 0;
long long gSeconds = 0;
std::string gPath;       // absolute path of the database file
std::string gNotesPath;  // the same, relative to the data directory
long long gSearchMatches = -1;
long long gScanMatches = -1;

void Fail(const char* what, STATUS status) {
    std::fprintf(stderr, "%s failed with status 0x%04X\n", what, static_cast<unsigned>(ERR(status)));
    std::exit(1);
}

// Form of the i-th document: half of them are selected by the formula, one of those in upper case.
const char* FormOf(long long i) {
    static const char* const kForms[] = {"dictionary", "entity", "rule",   "Dictionary", "template",
                                         "entity",     "policy", "Memo",   "dictionary", "Response"};
    return kForms[i % 10];
}

void AddDocument(DBHANDLE db, long long i) {
    NOTEHANDLE note;
    if (STATUS s = NSFNoteCreate(db, &note)) Fail("NSFNoteCreate", s);
    std::string name = "Entry " + std::to_string(i);
    std::string subject = "Credit card number pattern " + std::to_string(i % 977);
    std::string body(120, static_cast<char>('a' + i % 26));
    NUMBER count = static_cast<NUMBER>(i % 1000);
    const char* form = FormOf(i);
    // Form is not the first item: a search has to look past others to find it.
    STATUS s = NSFItemSetText(note, "Name", name.data(), static_cast<WORD>(name.size()));
    if (!s) s = NSFItemSetText(note, "Subject", subject.data(), static_cast<WORD>(subject.size()));
    if (!s) s = NSFItemSetText(note, "Form", form, static_cast<WORD>(std::strlen(form)));
    if (!s) s = NSFItemSetNumber(note, "Count", &count);
    if (!s) s = NSFItemAppend(note, 0, "Body", 4, TYPE_TEXT, body.data(), body.size());  // not summary
    if (!s) s = NSFNoteUpdate(note, 0);
    if (s) Fail("writing a document", s);
    NSFNoteClose(note);
}

bool Exists(const std::string& path) {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0;
}

// Makes the database unless a complete one is there: it is built under a temporary name and
// renamed when done, so an interrupted build is started afresh.
void PrepareDatabase(const std::string& folder) {
    gNotesPath = "search-" + std::to_string(gDocs) + ".nsf";
    gPath = folder + "/" + gNotesPath;
    if (Exists(gPath)) return;
    std::string partial = "search-" + std::to_string(gDocs) + "-partial.nsf";
    ::unlink((folder + "/" + partial).c_str());
    std::fprintf(stderr, "making %s with %lld documents (once)...\n", gPath.c_str(), gDocs);
    auto start = std::chrono::steady_clock::now();
    if (STATUS s = NSFDbCreate(partial.c_str(), DBCLASS_NOTEFILE, FALSE)) Fail("NSFDbCreate", s);
    DBHANDLE db;
    if (STATUS s = NSFDbOpen(partial.c_str(), &db)) Fail("NSFDbOpen", s);
    if (STATUS s = EmuDbBulkLoad(db, TRUE)) Fail("EmuDbBulkLoad", s);
    for (long long i = 0; i < gDocs; ++i) {
        AddDocument(db, i);
        if ((i + 1) % 100000 == 0) std::fprintf(stderr, "  %lld\n", i + 1);
    }
    if (STATUS s = EmuDbBulkLoad(db, FALSE)) Fail("EmuDbBulkLoad", s);
    NSFDbClose(db);
    if (::rename((folder + "/" + partial).c_str(), gPath.c_str()) != 0) {
        std::perror("rename");
        std::exit(1);
    }
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::fprintf(stderr, "made in %.1f s (%.0f documents/s)\n", seconds, gDocs / seconds);
}

void StartPlatform(const std::string& folder) {
    std::string ini = folder + "/notes.ini";
    FILE* f = std::fopen(ini.c_str(), "w");
    if (!f) Fail("writing notes.ini", ERR_IOERROR);
    std::fprintf(f, "[Notes]\nDirectory=%s\n", folder.c_str());
    std::fclose(f);
    std::string argument = "=" + ini;
    char program[] = "search_bench";
    char* argv[] = {program, argument.data(), nullptr};
    if (STATUS s = NotesInitExtended(2, argv)) Fail("NotesInitExtended", s);
}

STATUS LNCALLBACK CountMatch(void* parameter, SEARCH_MATCH* match, ITEM_TABLE*) {
    SEARCH_MATCH m;
    std::memcpy(&m, match, sizeof m);  // the platform's record need not be aligned
    if (m.SERetFlags & SE_FMATCH) ++*static_cast<long long*>(parameter);
    return NOERROR;
}

// Wall and CPU time of one run, in seconds.
struct Timing {
    double wall = 0, cpu = 0;
};

double CpuSeconds() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

class Stopwatch {
public:
    Stopwatch() : wall_(std::chrono::steady_clock::now()), cpu_(CpuSeconds()) {}
    Timing Elapsed() const {
        return {std::chrono::duration<double>(std::chrono::steady_clock::now() - wall_).count(),
                CpuSeconds() - cpu_};
    }

private:
    std::chrono::steady_clock::time_point wall_;
    double cpu_;
};

// One NSFSearch over the whole database.
Timing TimeSearch(DBHANDLE db, FORMULAHANDLE formula) {
    long long matches = 0;
    Stopwatch watch;
    if (STATUS s =
            NSFSearch(db, formula, nullptr, 0, NOTE_CLASS_DOCUMENT, nullptr, CountMatch, &matches, nullptr))
        Fail("NSFSearch", s);
    Timing timing = watch.Elapsed();
    gSearchMatches = matches;
    return timing;
}

// ---- The raw scan ----------------------------------------------------------------------------
// It knows the emulator's row layout: notes(id, head, summary), head starting with the class WORD
// and the deletion WORD; summary a run of item records (WORD ordinal, WORD flags, WORD name
// length, DWORD value length, the name, then the value: type WORD and bytes).

bool EqualsIgnoringCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i) {
        char x = a[i], y = b[i];
        if (x >= 'A' && x <= 'Z') x = static_cast<char>(x - 'A' + 'a');
        if (y >= 'A' && y <= 'Z') y = static_cast<char>(y - 'A' + 'a');
        if (x != y) return false;
    }
    return true;
}

// The text of the summary item `name`, empty when missing or not text.
std::string_view SummaryText(const unsigned char* p, size_t size, std::string_view name) {
    const unsigned char* end = p + size;
    while (end - p >= 10) {
        uint16_t nameLength;
        uint32_t valueLength;
        std::memcpy(&nameLength, p + 4, 2);
        std::memcpy(&valueLength, p + 6, 4);
        p += 10;
        if (static_cast<size_t>(end - p) < size_t{nameLength} + valueLength || valueLength < 2) break;
        std::string_view itemName(reinterpret_cast<const char*>(p), nameLength);
        const unsigned char* value = p + nameLength;
        p = value + valueLength;
        if (!EqualsIgnoringCase(itemName, name)) continue;
        uint16_t type;
        std::memcpy(&type, value, 2);
        if (type != TYPE_TEXT) break;
        return std::string_view(reinterpret_cast<const char*>(value + 2), valueLength - 2);
    }
    return std::string_view();
}

// One scan of the whole table.
Timing TimeScan(sqlite3_stmt* st) {
    long long matches = 0;
    Stopwatch watch;
    while (sqlite3_step(st) == SQLITE_ROW) {
        const auto* head = static_cast<const unsigned char*>(sqlite3_column_blob(st, 1));
        if (!head || sqlite3_column_bytes(st, 1) < 4) continue;
        uint16_t noteClass, deleted;
        std::memcpy(&noteClass, head, 2);
        std::memcpy(&deleted, head + 2, 2);
        if (!(noteClass & NOTE_CLASS_DOCUMENT) || deleted) continue;
        const auto* summary = static_cast<const unsigned char*>(sqlite3_column_blob(st, 2));
        std::string_view form = SummaryText(summary, static_cast<size_t>(sqlite3_column_bytes(st, 2)), "Form");
        if (EqualsIgnoringCase(form, "dictionary") || EqualsIgnoringCase(form, "entity")) ++matches;
    }
    sqlite3_reset(st);
    Timing timing = watch.Elapsed();
    gScanMatches = matches;
    return timing;
}

// Times in seconds, printed as rates.
void PrintRates(const char* name, const std::vector<double>& wall, const std::vector<double>& cpu) {
    rpxbench::Spread w = rpxbench::SpreadOf(wall), c = rpxbench::SpreadOf(cpu);
    std::printf(
        "%-16s %10.0f notes/s median (middle half %.0f .. %.0f, range %.0f .. %.0f); CPU %.0f notes/s\n",
        name, gDocs / w.median, gDocs / w.q3, gDocs / w.q1, gDocs / w.high, gDocs / w.low, gDocs / c.median);
}

void PrintRatios(const char* what, const std::vector<double>& ratios) {
    rpxbench::Spread r = rpxbench::SpreadOf(ratios);
    std::printf(
        "ratio search/scan, %-4s %.2f median of the runs' ratios (middle half %.2f .. %.2f, range %.2f .. "
        "%.2f)\n",
        what, r.median, r.q1, r.q3, r.low, r.high);
}

}  // namespace

int main(int argc, char** argv) {
    gDocs = rpxbench::Setting(argc, argv, "docs", "RPX_BENCH_DOCS", 1000000);
    gRuns = rpxbench::Setting(argc, argv, "runs", "RPX_BENCH_SEARCH_RUNS", 15);
    gSeconds = rpxbench::Setting(argc, argv, "seconds", "RPX_BENCH_SEARCH_SECONDS", 60);
    if (argc > 1) {
        std::fprintf(stderr, "usage: search_bench [--docs=N] [--runs=N] [--seconds=S]\n");
        return 2;
    }
    std::string folder = rpxbench::DataFolder();
    StartPlatform(folder);
    PrepareDatabase(folder);

    // Both are measured on a file in the page cache; reading it once first keeps a cold disk
    // from being charged to whichever runs first.
    if (FILE* f = std::fopen(gPath.c_str(), "rb")) {
        static char chunk[1 << 20];
        while (std::fread(chunk, 1, sizeof chunk, f) == sizeof chunk) {
        }
        std::fclose(f);
    }
    DBHANDLE db;
    if (STATUS s = NSFDbOpen(gNotesPath.c_str(), &db)) Fail("NSFDbOpen", s);
    FORMULAHANDLE formula;
    WORD length, line, column, offset, errorLength;
    STATUS error;
    if (STATUS s = NSFFormulaCompile(nullptr, 0, kFormula, static_cast<WORD>(std::strlen(kFormula)), &formula,
                                     &length, &error, &line, &column, &offset, &errorLength))
        Fail("NSFFormulaCompile", s);
    sqlite3* raw = nullptr;
    sqlite3_stmt* st = nullptr;
    if (sqlite3_open_v2(gPath.c_str(), &raw, SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX, nullptr) != SQLITE_OK ||
        sqlite3_prepare_v2(raw, "SELECT id, head, summary FROM notes ORDER BY id", -1, &st, nullptr) != SQLITE_OK) {
        std::fprintf(stderr, "cannot scan the database with SQLite: %s\n", sqlite3_errmsg(raw));
        return 1;
    }

    // Interleaved, the order alternating, so that a busy moment of the machine falls on both.
    std::vector<double> searchWall, searchCpu, scanWall, scanCpu, wallRatios, cpuRatios;
    TimeSearch(db, formula);  // warm-up of both
    TimeScan(st);
    constexpr long long kMaxRuns = 1000;
    const auto start = std::chrono::steady_clock::now();
    auto measuring = [&] {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    };
    for (long long i = 0; i < kMaxRuns && (i < gRuns || measuring() < static_cast<double>(gSeconds)); ++i) {
        Timing search, scan;
        if (i % 2 == 0) {
            search = TimeSearch(db, formula);
            scan = TimeScan(st);
        } else {
            scan = TimeScan(st);
            search = TimeSearch(db, formula);
        }
        searchWall.push_back(search.wall);
        searchCpu.push_back(search.cpu);
        scanWall.push_back(scan.wall);
        scanCpu.push_back(scan.cpu);
        wallRatios.push_back(scan.wall / search.wall);
        if (search.cpu > 0) cpuRatios.push_back(scan.cpu / search.cpu);
    }
    sqlite3_finalize(st);
    sqlite3_close(raw);
    OSMemFree(formula);
    NSFDbClose(db);
    NotesTerm();

    std::printf("\nformula: %s, %lld documents, %zu interleaved runs each (%.0f s)\n", kFormula, gDocs,
                searchWall.size(), measuring());
    PrintRates("NSFSearch:", searchWall, searchCpu);
    PrintRates("raw SQLite scan:", scanWall, scanCpu);
    PrintRatios("wall:", wallRatios);
    PrintRatios("CPU:", cpuRatios);
    std::printf("goal: the wall-time ratio's median >= 0.80\n");
    std::printf("matches: %lld (search), %lld (scan)\n", gSearchMatches, gScanMatches);
    if (gSearchMatches != gScanMatches) {
        std::fprintf(stderr, "the search and the scan disagree on the number of matches\n");
        return 1;
    }
    return 0;
}
