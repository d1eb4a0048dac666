// Reading a database's JSON file: the file reader (which hands large, well-formed input to a quick
// parser and the rest to nlohmann's) must give the same document and the same errors as the
// text parser, and notes read from their recorded events must come out as NoteFromJson makes
// them, results and messages alike.
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "JsonFormat.h"
#include "JsonRecord.h"
#include "NotesSession.h"

namespace {

namespace fs = std::filesystem;
using nsfdb::Json;
using nsfdb::JsonPath;
using nsfdb::JsonRecord;
using nsfdb::ToolError;

// The document, or the error's message.
struct Outcome {
    Json document;
    std::string error;
    bool operator==(const Outcome& other) const { return document == other.document && error == other.error; }
};

std::ostream& operator<<(std::ostream& out, const Outcome& outcome) {
    return out << (outcome.error.empty() ? outcome.document.dump() : "error: " + outcome.error);
}

// Records the elements of the top-level "notes" list (when asked to) and keeps them as documents.
class NoteKeeper : public nsfdb::JsonSink {
public:
    explicit NoteKeeper(bool takeNotes) : takeNotes_(takeNotes) {}
    bool Records(const JsonPath& path) override {
        return takeNotes_ && path.size() == 2 && path[0].isKey && path[0].key == "notes" && !path[1].isKey;
    }
    void Take(const JsonPath& path, const JsonRecord& value) override {
        EXPECT_EQ(path[1].index, taken.size());
        taken.push_back(value.ToJson());
    }
    std::vector<Json> taken;

private:
    bool takeNotes_;
};

class JsonReadingTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::string pattern = (fs::temp_directory_path() / "json-reading-XXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        dir_ = pattern;
    }
    void TearDown() override { fs::remove_all(dir_); }

    Outcome FromText(const std::string& text) {
        Outcome outcome;
        try {
            outcome.document = nsfdb::ParseJsonText(text);
        } catch (const ToolError& error) {
            outcome.error = error.what();
        }
        return outcome;
    }

    Outcome FromFile(const std::string& text, NoteKeeper& keeper) {
        fs::path path = dir_ / "input.json";
        std::ofstream(path, std::ios::binary) << text;
        Outcome outcome;
        try {
            nsfdb::ParseJsonFile(path.string(), keeper, outcome.document);
        } catch (const ToolError& error) {
            outcome.error = error.what();
            outcome.document = Json();
        }
        return outcome;
    }

    fs::path dir_;
};

TEST_F(JsonReadingTest, TheFileReaderAgreesWithTheTextParser) {
    const std::string cases[] = {
        // Escapes, Unicode (escaped and as UTF-8) and NUL characters.
        R"({"a": "q\"b\\s\/\b\f\n\r\t", "b": "\u00e9\u20AC\ud83d\ude00\u0000x", "c": "é€😀"})",
        // Numbers: the sign decides integer or unsigned, 64-bit limits, fractions and exponents.
        "[0, -0, 1, -1, 18446744073709551615, 18446744073709551616, -9223372036854775808,"
        " -9223372036854775809, 1.5, -2.5e-3, 1E+2, 0.0, 1e308]",
        // Nesting, empty containers, literals, blanks of every kind, a byte order mark.
        "[[[[{\"a\": [{}, [], null, true, false]}]]]]",
        " \t\r\n{ \"k\" :\n[ 1 ,2\t] }\n\n",
        "\xEF\xBB\xBF{\"bom\": 1}",
        "\"just a string\"",
        // Faults at various points.
        R"({"a": })", R"({"a" 1})", "[1,]", "[1 2]", R"({"a": tru})", "\"abc", "\"a\x01b\"",
        "\"\xC0\x80\"", "\"\xED\xA0\x80\"", "\"\xF4\x90\x80\x80\"", "\"\xE2\x82\"", R"("\udc00")",
        R"("\ud800x")", R"("\ud800\u0041")", R"("\x")", R"("\u12G4")", "01", "[1.]", "[1e]", "-",
        "[1e999]", "{} x", "", "  ", R"({"a": 1, "a": 2})", "// comment\n{}", "[1, 2", "{\"a\": [1, {\"b\": \"c\"}",
        "\xEF\xBB{}", " \xEF\xBB\xBF{}", "nul", "[-]", "[+1]", "[.5]", "{,}", "[,1]", R"({"a":1,})",
    };
    for (const std::string& text : cases) {
        NoteKeeper keeper(false);
        EXPECT_EQ(FromFile(text, keeper), FromText(text)) << text;
    }
}

// Damage of every kind at every place: the quick parser must stop where it cannot follow and never
// give an event the full parser would not.
TEST_F(JsonReadingTest, RandomlyDamagedDocumentsGiveTheSameOutcomeBothWays) {
    const std::string base =
        R"({"notes": [{"class": "document", "unid": "0123456789ABCDEF0123456789ABCDEF", "noteId": 8454,)"
        R"( "items": {"A": "x\u00e9\"\\\n", "B": [1, -2, 3.5e-1], "C": [], "D": {"t": true, "f": false, "n": null}}}],)"
        " \"title\": \"Grüße €😀\", \"big\": 18446744073709551615, \"neg\": -9223372036854775808}";
    const char pieces[] = {'"', '\\', '{', '}', '[', ']', ',', ':', 'e', 'E', '-', '+', '.', '0', '9', 'u', 'd',
                           'n', 't', ' ', '\n', '\x01', '\x7f', '\xC3', '\x80', '\xED', '\xA0', '\xF4', '\xEF'};
    unsigned seed = 12345;
    auto next = [&seed](unsigned range) {
        seed = seed * 1103515245u + 12345u;
        return (seed >> 8) % range;
    };
    for (int round = 0; round < 1500; ++round) {
        std::string text = base;
        for (unsigned damage = 1 + next(3); damage > 0; --damage) {
            size_t at = next(static_cast<unsigned>(text.size()));
            char piece = pieces[next(sizeof pieces)];
            switch (next(4)) {
                case 0: text[at] = piece; break;
                case 1: text.insert(text.begin() + static_cast<std::ptrdiff_t>(at), piece); break;
                case 2: text.erase(at, 1 + next(3)); break;
                default: text.resize(at); break;
            }
        }
        NoteKeeper keeper(round % 2 == 0);
        Outcome fromFile = FromFile(text, keeper);
        Outcome fromText = FromText(text);
        Json& notes = fromText.document;
        if (round % 2 == 0 && fromText.error.empty() && notes.is_object() && notes.contains("notes") &&
            notes["notes"].is_array()) {
            EXPECT_EQ(keeper.taken, notes["notes"].get<std::vector<Json>>()) << text;
            notes["notes"] = Json::array();  // recorded, so left out of the document
        }
        EXPECT_EQ(fromFile, fromText) << text;
    }
}

// The reader takes its input in blocks: values that straddle the end of one are read whole.
TEST_F(JsonReadingTest, ValuesAcrossTheReadersBlocksAreReadWhole) {
    for (size_t shift = 0; shift < 12; ++shift) {
        std::string filler(65536 - 16 + shift, 'x');
        std::string text = "{\"f\": \"" + filler + "\", \"s\": \"ab\\u00e9\\n€😀cd\", \"n\": [123456789, -98765, 2.5e10]}";
        NoteKeeper keeper(false);
        EXPECT_EQ(FromFile(text, keeper), FromText(text)) << "shift " << shift;
    }
    std::string broken = "{\"f\": \"" + std::string(70000, 'y') + "\", \"g\": [1, 2,, 3]}";
    NoteKeeper keeper(false);
    Outcome outcome = FromFile(broken, keeper);
    EXPECT_EQ(outcome, FromText(broken));
    EXPECT_EQ(outcome.error.compare(0, 17, "line 1, column 70"), 0) << outcome.error;
}

TEST_F(JsonReadingTest, RecordedNotesReadBackAsTheirDocumentsAndAreLeftOutOfIt) {
    std::string text = R"({"title": "t", "notes": [
        {"class": "document", "items": {"A": "x\u00e9", "B": [1, -2, 3.5], "C": [], "D": {"type": "text", "value": "v"}}},
        7, "s", null, [true, false, [{}]], {"nested": {"deeper": [{"k": 18446744073709551615}]}}
    ], "after": [1]})";
    Json expected = Json::parse(text);
    NoteKeeper keeper(true);
    Outcome outcome = FromFile(text, keeper);
    ASSERT_EQ(outcome.error, "");
    EXPECT_EQ(keeper.taken, expected["notes"].get<std::vector<Json>>());
    EXPECT_EQ(keeper.taken[5]["nested"]["deeper"][0]["k"].type(), expected["notes"][5]["nested"]["deeper"][0]["k"].type());
    expected["notes"] = Json::array();
    EXPECT_EQ(outcome.document, expected);
}

// ---- Notes from their records ------------------------------------------------------------

void StartPlatformOnce() {
    static bool started = [] {
        nsfdb::StartPlatform(fs::temp_directory_path().string());
        return true;
    }();
    ASSERT_TRUE(started);
}

struct NoteOutcome {
    nsfdb::NoteData note;
    std::string error;
};

bool Same(const NoteOutcome& a, const NoteOutcome& b) {
    if (a.error != b.error) return false;
    if (!a.error.empty()) return true;
    const nsfdb::NoteData &x = a.note, &y = b.note;
    bool sameUnid = x.unid.has_value() == y.unid.has_value() &&
                    (!x.unid || std::memcmp(&*x.unid, &*y.unid, sizeof(UNID)) == 0);
    if (x.noteClass != y.noteClass || !sameUnid || x.noteId != y.noteId || x.items.size() != y.items.size())
        return false;
    for (size_t i = 0; i < x.items.size(); ++i) {
        const nsfdb::ItemData &p = x.items[i], &q = y.items[i];
        if (p.name != q.name || p.flags != q.flags || p.type != q.type || p.value != q.value) return false;
    }
    return true;
}

TEST_F(JsonReadingTest, NotesFromRecordsComeOutAsNoteFromJsonMakesThem) {
    StartPlatformOnce();
    std::string longText(70000, 'z');
    const std::string notes[] = {
        // The usual shapes.
        R"({"class": "document", "unid": "0123456789ABCDEF0123456789abcdef", "noteId": 8454,
            "items": {"Form": "Memo", "N": 4, "Neg": -3, "F": 2.5, "T": ["a", "b"], "L": [1, 2.5, -1], "E": [],
                      "$Ümlaut": "Grüße €", "Esc": "a\"b\\c\n\u0000"}})",
        R"({"items": {"A": "x"}, "class": 1})",
        R"({"class": "view"})",
        // Shapes left to NoteFromJson.
        R"({"class": "form", "noteId": "0x2106", "items": [["A", "1"], ["A", "2"]]})",
        R"({"class": "document", "items": {"S": {"type": "formula", "text": "SELECT @All"}, "H": {"type": "time", "hex": "0011"}}})",
        R"({"class": "document", "items": {"T": {"type": "text", "value": "v", "flags": ["names", 4]}}})",
        // Faults, each as NoteFromJson reports it.
        R"({"class": "memo"})", R"({"class": "acl"})", R"({"class": 0})", R"({"class": 65536})", R"({"class": 1.0})",
        R"({"items": {}})", R"({"class": "document", "colour": "red"})", R"({"class": "document", "unid": "XYZ"})",
        R"({"class": "document", "unid": 5})", R"({"class": "document", "noteId": 0})",
        R"({"class": "document", "noteId": 2147483648})", R"({"class": "document", "noteId": -4})",
        R"({"class": "document", "items": {"": "x"}})", R"({"class": "document", "items": {"A": ["x", 1]}})",
        R"({"class": "document", "items": {"A": true}})", R"({"class": "document", "items": {"A": [[1]]}})",
        R"({"class": "document", "items": {"A": null}})", R"({"class": "document", "items": 3})",
        "{\"class\": \"document\", \"items\": {\"Long\": \"" + longText + "\"}}",
        "{\"class\": \"document\", \"items\": {\"Long\": [\"" + longText + "\"]}}",
        "[1]", "\"note\"",
    };
    for (const std::string& text : notes) {
        // The record of the note, as the database stream gets it.
        class OneRecord : public nsfdb::JsonSink {
        public:
            bool Records(const JsonPath& path) override { return path.size() == 2; }
            void Take(const JsonPath&, const JsonRecord& value) override {
                try {
                    nsfdb::NoteFromRecord(value, [] { return std::string("notes[0]"); }, outcome.note);
                } catch (const ToolError& error) {
                    outcome.error = error.what();
                }
            }
            NoteOutcome outcome;
        } fromRecord;
        Json ignored;
        fs::path path = dir_ / "note.json";
        std::ofstream(path, std::ios::binary) << "{\"notes\": [" + text + "]}";
        nsfdb::ParseJsonFile(path.string(), fromRecord, ignored);

        NoteOutcome fromJson;
        try {
            fromJson.note = nsfdb::NoteFromJson(Json::parse(text), "notes[0]");
        } catch (const ToolError& error) {
            fromJson.error = error.what();
        }
        EXPECT_TRUE(Same(fromRecord.outcome, fromJson))
            << text.substr(0, 200) << "\nrecord: " << fromRecord.outcome.error << "\njson: " << fromJson.error;
    }
}

// A note read after one of another shape starts from nothing the earlier note left behind.
TEST_F(JsonReadingTest, ANoteReadIntoReusedStorageKeepsNothingOfTheNoteBefore) {
    StartPlatformOnce();
    class Notes : public nsfdb::JsonSink {
    public:
        bool Records(const JsonPath& path) override { return path.size() == 2; }
        void Take(const JsonPath&, const JsonRecord& value) override {
            nsfdb::NoteFromRecord(value, [] { return std::string("notes[i]"); }, reused);
            kept.push_back(reused);
        }
        nsfdb::NoteData reused;
        std::vector<nsfdb::NoteData> kept;
    } sink;
    fs::path path = dir_ / "notes.json";
    std::ofstream(path, std::ios::binary) << R"({"notes": [
        {"class": "document", "unid": "0123456789ABCDEF0123456789ABCDEF", "noteId": 8454,
         "items": {"A": "a long text value", "B": [1, 2], "C": "c"}},
        {"class": "form", "items": {"X": "x"}},
        {"class": "view"}]})";
    Json ignored;
    nsfdb::ParseJsonFile(path.string(), sink, ignored);
    ASSERT_EQ(sink.kept.size(), 3u);
    EXPECT_EQ(sink.kept[0].items.size(), 3u);
    EXPECT_FALSE(sink.kept[1].unid.has_value());
    EXPECT_FALSE(sink.kept[1].noteId.has_value());
    ASSERT_EQ(sink.kept[1].items.size(), 1u);
    EXPECT_EQ(sink.kept[1].items[0].name, "X");
    EXPECT_EQ(sink.kept[1].items[0].value, "x");
    EXPECT_EQ(sink.kept[1].items[0].type, TYPE_TEXT);
    EXPECT_TRUE(sink.kept[2].items.empty());
}

}  // namespace
