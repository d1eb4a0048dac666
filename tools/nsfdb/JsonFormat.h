// The JSON form of a database (see ARCHITECTURE.md, "JSON formats"):
// reading it into a DatabaseData with an error that names the place of any
// fault, and writing the shortest form that reads back to the same data.
#ifndef NSFDB_JSONFORMAT_H
#define NSFDB_JSONFORMAT_H

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "DbModel.h"

namespace nsfdb {

// Objects keep their keys in the order written: items are ordered.
using Json = nlohmann::ordered_json;

// Parses JSON text. Syntax errors and numbers out of range throw ToolError with the line and
// column, a key given twice in one object with the key's place.
Json ParseJsonText(const std::string& text);

// Where a value stands in a document: a key or a list position per level, from the root.
struct JsonStep {
    bool isKey;
    std::string key;
    size_t index;
};
using JsonPath = std::vector<JsonStep>;
// "notes[2].items.Count"; "the document" for the root.
std::string PlaceOf(const JsonPath& path);

class JsonRecord;  // JsonRecord.h

// Told of the values of a document as it is read, so that a large list can be handled one
// element at a time instead of being held whole.
class JsonSink {
public:
    virtual ~JsonSink() = default;
    // A value begins at path: true to have it recorded and given to Take instead of being built
    // into the document.
    virtual bool Records(const JsonPath& path) = 0;
    // value (complete) begins at path. The record's storage is reused for the next value.
    virtual void Take(const JsonPath& path, const JsonRecord& value) = 0;
    // A value built into the document is complete.
    virtual void Built(const JsonPath& /*path*/, const Json& /*value*/) {}
};

// Parses the JSON file at path into result, errors as ParseJsonText (without the file's name).
// result is built as the parse goes, so a sink may look at what has been read so far.
void ParseJsonFile(const std::string& path, JsonSink& sink, Json& result);

// Checks and converts; throws ToolError("<place>: <problem>"), e.g.
// "notes[2].items.Count: ...". Needs the platform (texts become LMBCS,
// formulas are compiled).
DatabaseData DatabaseFromJson(const Json& root);
// The same without the notes (a "notes" list is only checked to be one).
DatabaseData DatabaseSettingsFromJson(const Json& root);
// One element of "notes"; place names it in messages ("notes[3]").
NoteData NoteFromJson(const Json& note, const std::string& place);

Json DatabaseToJson(const DatabaseData& db);
// An item's value as the dump writes it.
Json ItemValueToJson(const ItemData& item);
Json AclEntryToJson(const AclEntryData& entry);
// A note class as the dump writes it: its name, or its number.
std::string NoteClassText(WORD noteClass);
// One-line JSON text (", " and ": " between members), UTF-8 kept as it is.
std::string OneLine(const Json& value);
// The dump's layout: one line per database field, ACL entry, note field and
// item; ends with a newline.
std::string DumpText(const Json& database);

}  // namespace nsfdb

#endif
