// nsfdb, run as built on databases in a temporary folder.
#include <dlfcn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "global.h"
#include "nsfdb.h"
#include "nsfnote.h"

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

struct Result {
    int exitCode = -1;
    std::string out, err;
};

std::string ReadFile(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

void WriteFile(const fs::path& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary);
    out << text;
}

std::string Quoted(const std::string& arg) {
    std::string quoted = "'";
    for (char c : arg) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

Json Sample() {
    return Json::parse(ReadFile(fs::path(TOOL_TEST_DATA) / "sample_db.json"));
}

// True when the platform library can give a formula's source back.
bool PlatformDecompilesFormulas() {
    void* library = dlopen(NOTES_LIBRARY_PATH, RTLD_LAZY | RTLD_LOCAL);
    bool found = library && dlsym(library, "NSFFormulaDecompile");
    if (library) dlclose(library);
    return found;
}

// Deletes a note through the platform itself (leaving a deletion stub), as
// the product does; the test process starts the platform on first use.
void DeleteNote(const std::string& absolutePath, NOTEID id) {
    static bool started = [] {
        std::string ini =
            (fs::temp_directory_path() / ("nsfdb-test-" + std::to_string(getpid()) + ".ini")).string();
        WriteFile(ini, "[Notes]\nDirectory=" + fs::temp_directory_path().string() + "\n");
        std::string argument = "=" + ini;
        char* argv[] = {const_cast<char*>("tool_tests"), argument.data(), nullptr};
        STATUS status = NotesInitExtended(2, argv);
        fs::remove(ini);
        return status == NOERROR;
    }();
    ASSERT_TRUE(started);
    DBHANDLE db = NULLHANDLE;
    ASSERT_EQ(NSFDbOpen(absolutePath.c_str(), &db), NOERROR);
    EXPECT_EQ(NSFNoteDelete(db, id, 0), NOERROR);
    NSFDbClose(db);
}

class NsfdbTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::string pattern = (fs::temp_directory_path() / "nsfdb-test-XXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        dir_ = pattern;
    }
    void TearDown() override { fs::remove_all(dir_); }

    fs::path Path(const std::string& name) const { return dir_ / name; }

    // Runs nsfdb in the temporary folder.
    Result Run(const std::vector<std::string>& args) const {
        std::string command = "cd " + Quoted(dir_.string()) + " && " + Quoted(NSFDB_PATH);
        for (const std::string& arg : args) command += " " + Quoted(arg);
        command += " >" + Quoted(Path("stdout.txt").string()) + " 2>" + Quoted(Path("stderr.txt").string());
        int status = std::system(command.c_str());
        Result result;
        result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        result.out = ReadFile(Path("stdout.txt"));
        result.err = ReadFile(Path("stderr.txt"));
        return result;
    }

    // Creates the database name from JSON; fails the test if nsfdb does.
    void Create(const std::string& name, const Json& json) {
        WriteFile(Path(name + ".json"), json.dump(2));
        Result created = Run({"create", name, name + ".json"});
        ASSERT_EQ(created.exitCode, 0) << created.err;
    }

    Json Dump(const std::string& name) const {
        Result dumped = Run({"dump", name});
        EXPECT_EQ(dumped.exitCode, 0) << dumped.err;
        return Json::parse(dumped.out);
    }

    // Names in the folder besides the captured output.
    std::vector<std::string> Files() const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(dir_)) {
            std::string name = entry.path().filename().string();
            if (name != "stdout.txt" && name != "stderr.txt") names.push_back(name);
        }
        return names;
    }

    fs::path dir_;
};

// Formula items are checked on their own (FormulaItemDumpsAsItsSource).
void SetFormulasAside(Json& db) {
    for (Json& note : db["notes"]) {
        if (!note["items"].is_object()) continue;
        for (auto& item : note["items"].items())
            if (item.value().is_object() && item.value()["type"] == "formula") item.value() = "formula";
    }
}

TEST_F(NsfdbTest, CreateThenDumpReproducesTheHandWrittenDatabase) {
    Create("sample.nsf", Sample());
    Json dumped = Dump("sample.nsf");
    Json expected = Sample();
    SetFormulasAside(dumped);
    SetFormulasAside(expected);
    EXPECT_EQ(dumped, expected) << "dumped: " << dumped.dump(2);
}

TEST_F(NsfdbTest, FormulaItemDumpsAsItsSource) {
    Create("sample.nsf", Sample());
    Json formula = Dump("sample.nsf")["notes"][2]["items"]["$ReplFormula"];
    ASSERT_EQ(formula["type"], "formula");
    if (!PlatformDecompilesFormulas()) {
        // emulator gap: libnotes.so does not export NSFFormulaDecompile, so the
        // source of a TYPE_FORMULA item cannot be read back through the API.
        EXPECT_TRUE(formula.contains("hex"));
        GTEST_SKIP() << "the platform lacks NSFFormulaDecompile";
    }
    EXPECT_EQ(formula, Sample()["notes"][2]["items"]["$ReplFormula"]);
}

// Formula items whose bytes are not a compiled formula (a source length that claims more than
// the item holds, bytes of something else) dump as their bytes, next to a valid one.
TEST_F(NsfdbTest, DamagedFormulaItemsDumpAsTheirBytes) {
    Json db = Json::parse(R"({"notes": [{"class": "document", "items": {
        "LongClaim": {"type": "formula", "hex": "4546524D01000001000078"},
        "Garbage": {"type": "formula", "hex": "00FF00FF"},
        "Valid": {"type": "formula", "text": "SELECT @All"}}}]})");
    Create("damaged.nsf", db);
    Json items = Dump("damaged.nsf")["notes"][0]["items"];
    EXPECT_EQ(items["LongClaim"], db["notes"][0]["items"]["LongClaim"]);
    EXPECT_EQ(items["Garbage"], db["notes"][0]["items"]["Garbage"]);
    if (!PlatformDecompilesFormulas()) GTEST_SKIP() << "the platform lacks NSFFormulaDecompile";
    EXPECT_EQ(items["Valid"], db["notes"][0]["items"]["Valid"]);
}

TEST_F(NsfdbTest, DumpCreateDumpIsStable) {
    Create("first.nsf", Sample());
    Result first = Run({"dump", "first.nsf"});
    ASSERT_EQ(first.exitCode, 0) << first.err;
    WriteFile(Path("first-dump.json"), first.out);
    ASSERT_EQ(Run({"create", "second.nsf", "first-dump.json"}).exitCode, 0);
    Result second = Run({"dump", "second.nsf"});
    EXPECT_EQ(second.out, first.out);
    EXPECT_EQ(Run({"diff", "first.nsf", "second.nsf"}).exitCode, 0);
}

TEST_F(NsfdbTest, NotesWithoutIdsGetNewOnesAndAbsoluteIdsWork) {
    Json db = Json::parse(R"({"notes": [{"class": "document", "items": {"Form": "A"}},
                                         {"class": "document", "noteId": "0x2200", "items": {"Form": "B"}},
                                         {"class": "document"}]})");
    WriteFile(Path("db.json"), db.dump());
    ASSERT_EQ(Run({"create", Path("abs.nsf").string(), "db.json"}).exitCode, 0);
    Json notes = Dump(Path("abs.nsf").string())["notes"];
    ASSERT_EQ(notes.size(), 3u);
    EXPECT_EQ(notes[1]["noteId"], 0x2200);
    EXPECT_GT(notes[2]["noteId"].get<unsigned>(), 0x2200u);
    EXPECT_NE(notes[0]["unid"], notes[2]["unid"]);
    for (const Json& note : notes) EXPECT_EQ(note["unid"].get<std::string>().size(), 32u);
    EXPECT_EQ(notes[2]["items"], Json::object());
}

TEST_F(NsfdbTest, DumpWritesTheShortestFormThatReadsBack) {
    Create("forms.nsf", Json::parse(R"({"notes": [{"class": "document", "items": {
        "Explicit": {"type": "text", "value": "x"},
        "TypeNumber": {"type": 1280, "value": "y"},
        "ExplicitNumber": {"type": "number", "value": 7},
        "Whole": 4.0,
        "NegativeZero": -0.0,
        "Huge": 1e300,
        "Unicode": "😀 東京",
        "OtherType": {"type": 66, "hex": "00ff"},
        "UnnamedFlag": {"type": "text", "value": "z", "flags": ["summary", 2048]},
        "BrokenLmbcs": {"type": "text", "hex": "14"},
        "NoSummaryList": {"type": "text_list", "value": [], "flags": []}}}]})"));
    Result first = Run({"dump", "forms.nsf"});
    ASSERT_EQ(first.exitCode, 0) << first.err;
    Json items = Json::parse(first.out)["notes"][0]["items"];
    EXPECT_EQ(items["Explicit"], "x");
    EXPECT_EQ(items["TypeNumber"], "y");
    EXPECT_EQ(items["ExplicitNumber"], 7);
    EXPECT_TRUE(items["Whole"].is_number_integer());
    EXPECT_TRUE(items["NegativeZero"].is_number_float() && std::signbit(items["NegativeZero"].get<double>()));
    EXPECT_EQ(items["Huge"], 1e300);
    EXPECT_EQ(items["Unicode"], "😀 東京");
    EXPECT_EQ(items["OtherType"], Json::parse(R"({"type": 66, "hex": "00FF"})"));
    EXPECT_EQ(items["UnnamedFlag"],
              Json::parse(R"({"type": "text", "value": "z", "flags": ["summary", 2048]})"));
    EXPECT_EQ(items["BrokenLmbcs"], Json::parse(R"({"type": "text", "hex": "14"})"));
    EXPECT_EQ(items["NoSummaryList"], Json::parse(R"({"type": "text_list", "value": [], "flags": []})"));

    WriteFile(Path("forms-dump.json"), first.out);
    ASSERT_EQ(Run({"create", "again.nsf", "forms-dump.json"}).exitCode, 0);
    EXPECT_EQ(Run({"dump", "again.nsf"}).out, first.out);
}

TEST_F(NsfdbTest, DatabaseSettingsRoundTripAndDefaultsComeFromThePlatform) {
    Json settings = Json::parse(R"({"title": "Log", "categories": "Tools", "templateName": "RPXLog",
        "inheritFrom": "", "replicaId": "00000001:ABCDEF01", "replicaFlags": 16448,
        "replicaCutoffInterval": 90, "replicaCutoff": "00000002:00000003", "buildVersion": 461,
        "acl": [], "notes": []})");
    Create("settings.nsf", settings);
    EXPECT_EQ(Dump("settings.nsf"), settings);

    Create("empty.nsf", Json::object());
    Json empty = Dump("empty.nsf");
    EXPECT_EQ(empty["title"], "");
    EXPECT_EQ(empty["acl"], Json::parse(R"([{"name": "-Default-", "level": "designer"}])"));
    EXPECT_EQ(empty["notes"], Json::array());
    EXPECT_TRUE(empty["buildVersion"].is_number());
    EXPECT_EQ(empty["replicaId"].get<std::string>().size(), 17u);
}

TEST_F(NsfdbTest, SettingsAfterTheNotesApplyAllTheSame) {
    Json late = Json::parse(R"({"notes": [{"class": "document", "items": {"Form": "Memo"}}],
        "title": "Late", "buildVersion": 461, "acl": [{"name": "-Default-", "level": "reader"}]})");
    Create("late.nsf", late);
    Json dump = Dump("late.nsf");
    EXPECT_EQ(dump["title"], "Late");
    EXPECT_EQ(dump["buildVersion"], 461);
    EXPECT_EQ(dump["acl"], late["acl"]);
    ASSERT_EQ(dump["notes"].size(), 1u);
    EXPECT_EQ(dump["notes"][0]["items"], late["notes"][0]["items"]);
}

TEST_F(NsfdbTest, RelativePathsNeedAnExistingFolder) {
    WriteFile(Path("db.json"), R"({"title": "Sub"})");
    Result noFolder = Run({"create", "sub/x.nsf", "db.json"});
    EXPECT_EQ(noFolder.exitCode, 2);
    EXPECT_NE(noFolder.err.find("the folder does not exist"), std::string::npos) << noFolder.err;
    EXPECT_FALSE(fs::exists(Path("sub")));

    fs::create_directory(Path("sub"));
    ASSERT_EQ(Run({"create", "sub/x.nsf", "db.json"}).exitCode, 0);
    EXPECT_EQ(Dump("sub/x.nsf")["title"], "Sub");
    EXPECT_EQ(Dump(Path("sub/x.nsf").string())["title"], "Sub");
}

TEST_F(NsfdbTest, NamesGivenTwiceDumpAsPairsInStoredOrder) {
    Create("twice.nsf", Json::parse(R"({"notes": [{"class": "document",
        "items": {"Form": "a", "Body": 1, "FORM": "b"}}]})"));
    Result first = Run({"dump", "twice.nsf"});
    ASSERT_EQ(first.exitCode, 0) << first.err;
    EXPECT_EQ(Json::parse(first.out)["notes"][0]["items"],
              Json::parse(R"([["Form", "a"], ["Body", 1], ["FORM", "b"]])"));
    WriteFile(Path("twice-dump.json"), first.out);
    ASSERT_EQ(Run({"create", "again.nsf", "twice-dump.json"}).exitCode, 0);
    EXPECT_EQ(Run({"dump", "again.nsf"}).out, first.out);
}

TEST_F(NsfdbTest, DumpSkipsDeletedNotesAndTheAclNote) {
    Create("deleted.nsf", Json::parse(R"({"notes": [
        {"class": "document", "unid": "0123456789ABCDEF0123456789ABCDEF", "items": {"N": 1}},
        {"class": "document", "unid": "9CA8289B72BE6CE848256E1600236921", "items": {"N": 2}},
        {"class": "view", "unid": "29FBCBA3EE0E297F48256E16002368FF", "items": {"N": 3}}]})"));
    DeleteNote(Path("deleted.nsf").string(), 0x210A);
    Json notes = Dump("deleted.nsf")["notes"];
    ASSERT_EQ(notes.size(), 2u) << notes.dump();
    EXPECT_EQ(notes[0]["noteId"], 0x2106);
    EXPECT_EQ(notes[1]["noteId"], 0x210E);
    EXPECT_EQ(notes[1]["class"], "view");
}

TEST_F(NsfdbTest, DiffShowsChangedAddedAndRemovedNotes) {
    Create("old.nsf", Sample());
    Json changed = Sample();
    changed["title"] = "Configuration 2";
    changed["acl"][0]["level"] = "editor";
    changed["notes"][1]["items"]["DefaultRule"] = "0";
    changed["notes"][1]["items"].erase("Ratio");
    changed["notes"].erase(0);  // the help note
    changed["notes"].push_back(Json::parse(
        R"({"class": "document", "unid": "2B41699AA621F29448256E16002368F8", "items": {"Form": "New"}})"));
    Create("new.nsf", changed);

    Result diff = Run({"diff", "old.nsf", "new.nsf"});
    EXPECT_EQ(diff.exitCode, 1) << diff.err;
    const char* expectedLines[] = {
        "title: \"Configuration\" -> \"Configuration 2\"\n",
        "acl: ~ \"-Default-\" {\"level\": \"reader\"} -> \"-Default-\" {\"level\": \"editor\"}\n",
        "- note 0123456789ABCDEF0123456789ABCDEF (help, noteId 0x2106)\n    BuildNumber: \"5.6.1.3001\"\n",
        "~ note 9CA8289B72BE6CE848256E1600236921 (document, noteId 0x2116)\n",
        "  ~ DefaultRule: \"1\" -> \"0\"\n",
        "  - Ratio: 0.25\n",
        "+ note 2B41699AA621F29448256E16002368F8 (document, noteId 0x",
        "    Form: \"New\"\n"};
    for (const char* line : expectedLines)
        EXPECT_NE(diff.out.find(line), std::string::npos) << line << diff.out;
    EXPECT_EQ(diff.out.find("ReferDocs"), std::string::npos) << "unchanged items are not listed";

    Result same = Run({"diff", "old.nsf", "old.nsf"});
    EXPECT_EQ(same.exitCode, 0);
    EXPECT_EQ(same.out, "");
}

TEST_F(NsfdbTest, DiffShowsSettingsAclAndItemDetails) {
    Json base = Json::parse(R"({"replicaId": "00000001:00000002", "buildVersion": 400,
        "acl": [{"name": "A", "level": "reader"}, {"name": "B", "level": "editor"}],
        "notes": [{"class": "document", "unid": "0123456789ABCDEF0123456789ABCDEF",
                   "items": {"Form": "X", "Flagged": "f", "First": 1, "Second": 2}}]})");
    Json changed = Json::parse(R"({"replicaId": "00000001:00000002", "replicaFlags": 32,
        "buildVersion": 461,
        "acl": [{"name": "B", "level": "editor"}, {"name": "C", "level": "author", "flags": ["person"]}],
        "notes": [{"class": "form", "unid": "0123456789ABCDEF0123456789ABCDEF",
                   "items": {"FORM": "X", "Second": 2, "First": 1, "Extra": ["p", "q"],
                   "Flagged": {"type": "text", "value": "f", "flags": ["summary", "readers"]}}}]})");
    Create("a.nsf", base);
    Create("b.nsf", changed);
    Result diff = Run({"diff", "a.nsf", "b.nsf"});
    EXPECT_EQ(diff.exitCode, 1) << diff.err;
    const char* expectedLines[] = {
        "replicaFlags: 0x0000 -> 0x0020\n",
        "buildVersion: 400 -> 461\n",
        "acl: - \"A\" {\"level\": \"reader\"}\n",
        "acl: + \"C\" {\"level\": \"author\", \"flags\": [\"person\"]}\n",
        "~ note 0123456789ABCDEF0123456789ABCDEF (document, noteId 0x2106)\n  class: document -> form\n",
        "  ~ Form: \"X\" -> FORM: \"X\"\n",
        "  ~ Flagged: \"f\" -> {\"type\": \"text\", \"value\": \"f\", \"flags\": [\"summary\", "
        "\"readers\"]}\n",
        "  + Extra: [\"p\", \"q\"]\n",
        "  the order of the items changed\n"};
    for (const char* line : expectedLines)
        EXPECT_NE(diff.out.find(line), std::string::npos) << line << diff.out;
    EXPECT_EQ(diff.out.find("acl: ~"), std::string::npos) << "B is unchanged";
    EXPECT_EQ(diff.out.find("replicaId"), std::string::npos);

    Result reverse = Run({"diff", "b.nsf", "a.nsf"});
    EXPECT_EQ(reverse.exitCode, 1);
    EXPECT_NE(reverse.out.find("  - Extra: [\"p\", \"q\"]\n"), std::string::npos) << reverse.out;
}

TEST_F(NsfdbTest, MalformedInputFailsWithThePlaceAndLeavesNoFile) {
    const struct {
        const char* json;
        const char* message;
    } cases[] = {
        {R"({"title": "x",)", "line 1, column 15"},
        {R"({"buildVersion": 1e999})", "line 1, column 22: number overflow"},
        {"{\n  \"title\": \"x\",\n  \"notes\": [{\"class\": \"document\", \"items\": {\"N\": -1e400}}]}",
         "line 3, column 55: number overflow"},
        {R"({"notes": {"class": "document"}})", "notes: a list of notes is expected"},
        {R"({"notes": [{"class": "document"}, 7]})", "notes[1]: an object is expected"},
        {R"({"notes": [{"class": "memo"}]})", "notes[0].class: unknown note class \"memo\""},
        {R"({"notes": [{"class": "acl"}]})", "notes[0].class"},
        {R"({"notes": [{"class": "document", "items": {"A": {"type": "blob", "hex": ""}}}]})",
         "notes[0].items.A.type: unknown item type \"blob\""},
        {R"({"notes": [{"class": "document", "items": {"A": {"type": "time", "hex": "ABC"}}}]})",
         "notes[0].items.A.hex"},
        {R"({"notes": [{"class": "document", "items": {"A": ["x", 1]}}]})", "notes[0].items.A"},
        {R"({"notes": [{"class": "document", "items": {"A": true}}]})", "notes[0].items.A"},
        {R"({"notes": [{"class": "document",
                        "items": {"A": {"type": "text", "value": "x", "flags": ["bold"]}}}]})",
         "notes[0].items.A.flags[0]: unknown flag \"bold\""},
        {R"({"notes": [{"class": "document", "items": {"S": {"type": "formula", "text": "SELECT ((("}}}]})",
         "notes[0].items.S.text: the formula does not compile"},
        {R"({"notes": [{"class": "document", "unid": "XYZ"}]})", "notes[0].unid"},
        {R"({"notes": [{"class": "document", "noteId": 4}]})", "notes[0].noteId"},
        {R"({"notes": [{"class": "document", "unid": "0123456789ABCDEF0123456789ABCDEF"},
                       {"class": "form", "unid": "0123456789ABCDEF0123456789ABCDEF"}]})",
         "notes[1].unid"},
        {R"({"notes": [{"class": "document", "items": {"A": "1", "A": "2"}}]})",
         "notes[0].items.A: the key \"A\" is given twice"},
        {R"({"notes": [{"class": "document"}, {"class": "form", "class": "help"}]})",
         "notes[1].class: the key"},
        {R"({"acl": [{"name": "-Default-", "level": "owner"}]})",
         "acl[0].level: unknown access level \"owner\""},
        {R"({"acl": [{"name": "X", "level": "reader"}, {"name": "x", "level": "editor"}]})", "acl[1].name"},
        {R"({"replicaId": "852552F9-001E96E4"})", "replicaId"},
        {R"({"buildVersion": 70000})", "buildVersion"},
        {R"({"titel": "x"})", "titel: unknown key"},
        {R"({"title": "a\nb"})", "title"},
    };
    for (const auto& test : cases) {
        WriteFile(Path("bad.json"), test.json);
        Result result = Run({"create", "bad.nsf", "bad.json"});
        EXPECT_EQ(result.exitCode, 2) << test.json;
        EXPECT_NE(result.err.find(std::string("bad.json: ") + test.message), std::string::npos)
            << test.json << "\n"
            << result.err;
        EXPECT_EQ(Files(), std::vector<std::string>{"bad.json"}) << test.json;
        fs::remove(Path("bad.nsf"));
    }
}

// A large file is read far ahead of where a fault lies: the fault is still reported with its place
// after thousands of notes were written, and nothing is left behind.
TEST_F(NsfdbTest, FaultsFarIntoALargeFileAreReportedAndLeaveNoFile) {
    auto unid = [](int i) {
        std::string digits = std::to_string(i);
        return std::string(32 - digits.size(), 'A') + digits;
    };
    std::string notes = "{\"notes\": [\n";
    Json expected = {{"notes", Json::array()}};
    for (int i = 0; i < 3000; ++i) {
        Json note = {{"class", "document"},
                     {"unid", unid(i)},
                     {"items", {{"Form", "Memo"}, {"Subject", "Grüße \"" + std::to_string(i) + "\"\n\u20ac"}}}};
        expected["notes"].push_back(note);
        notes += note.dump() + ",\n";
    }
    WriteFile(Path("big.json"), notes + "{\"class\": \"form\"}]}");
    ASSERT_EQ(Run({"create", "big.nsf", "big.json"}).exitCode, 0);
    Json dumped = Dump("big.nsf");
    ASSERT_EQ(dumped["notes"].size(), 3001u);
    EXPECT_EQ(dumped["notes"][2999]["items"], expected["notes"][2999]["items"]);
    EXPECT_EQ(dumped["notes"][1234]["unid"], unid(1234));

    const struct {
        std::string last;
        const char* message;
    } cases[] = {
        {R"({"class": "form", "items": {"A": "x" "B": 1}})",
         "line 3002, column 40: syntax error while parsing object - unexpected string literal"},
        {"{\"class\": \"form\", \"items\": {\"A\": \"\xC3\x28\"}}", "line 3002, column 36: syntax error while parsing value - invalid string: ill-formed UTF-8 byte"},
        {R"({"class": "memo"})", "notes[3000].class: unknown note class \"memo\""},
        {R"({"class": "form", "unid": ")" + unid(7) + "\"}", "notes[3000].unid: another note already has this UNID"},
        {R"({"class": "form", "items": {"N": 1e400}})", "line 3002, column 38: number overflow"},
    };
    for (const auto& test : cases) {
        WriteFile(Path("bad.json"), notes + test.last + "]}");
        Result result = Run({"create", "bad.nsf", "bad.json"});
        EXPECT_EQ(result.exitCode, 2) << test.last;
        EXPECT_NE(result.err.find(std::string("bad.json: ") + test.message), std::string::npos)
            << test.last << "\n" << result.err;
        EXPECT_FALSE(fs::exists(Path("bad.nsf")));
        for (const std::string& name : Files())
            EXPECT_TRUE(name == "bad.json" || name == "big.json" || name == "big.nsf") << name;
    }
}

TEST_F(NsfdbTest, ExistingFilesAndMissingDatabasesAreErrors) {
    WriteFile(Path("db.json"), "{}");
    WriteFile(Path("taken.nsf"), "not a database");
    Result taken = Run({"create", "taken.nsf", "db.json"});
    EXPECT_EQ(taken.exitCode, 2);
    EXPECT_NE(taken.err.find("already exists"), std::string::npos) << taken.err;
    EXPECT_EQ(ReadFile(Path("taken.nsf")), "not a database");

    Result missing = Run({"dump", "missing.nsf"});
    EXPECT_EQ(missing.exitCode, 2);
    EXPECT_NE(missing.err.find("missing.nsf"), std::string::npos) << missing.err;
    EXPECT_EQ(missing.out, "");
    EXPECT_EQ(Run({"diff", "missing.nsf", "taken.nsf"}).exitCode, 2);
    Result noJson = Run({"create", "x.nsf", "no-such.json"});
    EXPECT_EQ(noJson.exitCode, 2);
    EXPECT_NE(noJson.err.find("no-such.json: cannot read the file"), std::string::npos) << noJson.err;
}

TEST_F(NsfdbTest, HelpAndUsage) {
    Result help = Run({"--help"});
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_NE(help.out.find("create FILE DB.json"), std::string::npos);
    for (const char* command : {"create", "dump", "diff"}) {
        Result commandHelp = Run({command, "--help"});
        EXPECT_EQ(commandHelp.exitCode, 0) << command;
        EXPECT_EQ(commandHelp.out.rfind(std::string("Usage: nsfdb ") + command, 0), 0u) << commandHelp.out;
    }
    EXPECT_EQ(Run({}).exitCode, 2);
    EXPECT_EQ(Run({"merge", "a", "b"}).exitCode, 2);
    EXPECT_EQ(Run({"dump"}).exitCode, 2);
}

}  // namespace
