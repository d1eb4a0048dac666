// DatabaseData -> JSON, in the shortest form that reads back to the same data.
#include <cmath>
#include <optional>
#include <string>
#include <vector>

#include "JsonFormat.h"
#include "Names.h"
#include "NotesSession.h"
#include "Values.h"

#include "acl.h"
#include "nsfdata.h"
#include "nsfnote.h"

namespace nsfdb {
namespace {

// Whole numbers a double holds exactly are written without a fraction.
constexpr double kLargestExactWhole = 9007199254740992.0;  // 2^53

std::optional<Json> NumberJson(double number) {
    if (!std::isfinite(number)) return std::nullopt;
    bool whole = std::trunc(number) == number && std::fabs(number) <= kLargestExactWhole;
    if (whole && !(number == 0 && std::signbit(number))) return Json(static_cast<long long>(number));
    return Json(number);
}

std::optional<Json> TextJson(const std::string& lmbcs) {
    std::string utf8;
    if (!LmbcsToUtf8(lmbcs, utf8)) return std::nullopt;
    return Json(utf8);
}

std::optional<Json> TextListJson(const std::string& value) {
    std::vector<std::string> entries;
    if (!DecodeTextList(value, entries)) return std::nullopt;
    Json list = Json::array();
    for (const std::string& entry : entries) {
        std::optional<Json> text = TextJson(entry);
        if (!text) return std::nullopt;
        list.push_back(*text);
    }
    return list;
}

std::optional<Json> NumberListJson(const std::string& value) {
    std::vector<double> numbers;
    if (!DecodeNumberList(value, numbers)) return std::nullopt;
    Json list = Json::array();
    for (double number : numbers) {
        std::optional<Json> json = NumberJson(number);
        if (!json) return std::nullopt;
        list.push_back(*json);
    }
    return list;
}

// The "value" form of the types that have one, when it holds this value exactly.
std::optional<Json> ValueJson(const ItemData& item) {
    switch (item.type) {
        case TYPE_TEXT:
            return TextJson(item.value);
        case TYPE_TEXT_LIST:
            return TextListJson(item.value);
        case TYPE_NUMBER: {
            double number;
            return DecodeNumber(item.value, number) ? NumberJson(number) : std::nullopt;
        }
        case TYPE_NUMBER_RANGE:
            return NumberListJson(item.value);
        default:
            return std::nullopt;
    }
}

// A formula's source, when compiling it again gives these very bytes.
std::optional<Json> FormulaJson(const ItemData& item) {
    std::string source;
    if (item.type != TYPE_FORMULA || !DecompileFormula(item.value, source)) return std::nullopt;
    try {
        if (CompileFormula(source, std::string()) != item.value) return std::nullopt;
    } catch (const ToolError&) {
        return std::nullopt;
    }
    return TextJson(source);
}

Json FlagsJson(WORD flags, const std::vector<FlagName>& names) {
    WORD unnamed = 0;
    Json list = Json::array();
    for (const std::string& name : FlagsToNames(flags, names, unnamed)) list.push_back(name);
    if (unnamed) list.push_back(unnamed);
    return list;
}

Json TypeJson(WORD type) {
    std::optional<std::string> name = ItemTypeName(type);
    return name ? Json(*name) : Json(type);
}

// A plain string, number or list reads back as an item of that type with
// the summary flag, as NSFItemSetText and its kind give items. An empty
// list reads back as a text list.
bool HasPlainForm(const ItemData& item, const Json& value) {
    if (item.flags != ITEM_SUMMARY) return false;
    if (item.type == TYPE_NUMBER_RANGE) return !value.empty();
    return item.type == TYPE_TEXT || item.type == TYPE_TEXT_LIST || item.type == TYPE_NUMBER;
}

// Item names compare without regard to (ASCII) case.
bool NamesRepeat(const std::vector<std::string>& names) {
    std::vector<std::string> seen;
    for (std::string name : names) {
        for (char& c : name)
            if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
        for (const std::string& other : seen)
            if (other == name) return true;
        seen.push_back(name);
    }
    return false;
}

// An object of name: value; a list of [name, value] pairs when a name
// occurs more than once.
Json ItemsJson(const std::vector<ItemData>& items) {
    std::vector<std::string> names;
    for (const ItemData& item : items) names.push_back(LmbcsToUtf8Lossy(item.name));
    bool pairs = NamesRepeat(names);
    Json json = pairs ? Json::array() : Json::object();
    for (size_t i = 0; i < items.size(); ++i) {
        if (pairs)
            json.push_back(Json::array({names[i], ItemValueToJson(items[i])}));
        else
            json[names[i]] = ItemValueToJson(items[i]);
    }
    return json;
}

Json NoteJson(const NoteData& note) {
    Json json = Json::object();
    std::optional<std::string> className = NoteClassName(note.noteClass);
    json["class"] = className ? Json(*className) : Json(note.noteClass);
    if (note.unid) json["unid"] = UnidText(*note.unid);
    if (note.noteId) json["noteId"] = *note.noteId;
    json["items"] = ItemsJson(note.items);
    return json;
}

Json PrivilegesJson(const ACL_PRIVILEGES& privileges) {
    Json list = Json::array();
    for (unsigned bit = 0; bit < ACL_PRIVCOUNT; ++bit)
        if (ACLIsPrivSet(privileges, bit)) list.push_back(bit);
    return list;
}

Json InfoText(const std::string& lmbcs) {
    return LmbcsToUtf8Lossy(lmbcs);
}

bool IsZero(const TIMEDATE& time) {
    return time.Innards[0] == 0 && time.Innards[1] == 0;
}

// The containers that get one line per member: the database, its lists of
// ACL entries and notes, each note and its items. Everything below them
// (an ACL entry, an item's value) takes one line.
bool Expanded(const Json& value, int depth, const std::string& key, const std::string& parentKey) {
    if (!value.is_structured() || value.empty()) return false;
    switch (depth) {
        case 0:
            return true;
        case 1:
            return key == "acl" || key == "notes";
        case 2:
            return parentKey == "notes";
        case 3:
            return key == "items";
        default:
            return false;
    }
}

void WriteLaidOut(std::string& out, const Json& value, int depth, const std::string& key,
                  const std::string& parentKey) {
    if (!Expanded(value, depth, key, parentKey)) {
        out += OneLine(value);
        return;
    }
    std::string indent(static_cast<size_t>(depth) * 2, ' ');
    out += value.is_array() ? "[\n" : "{\n";
    size_t index = 0;
    for (const auto& entry : value.items()) {
        out += indent + "  ";
        if (value.is_object()) out += OneLine(Json(entry.key())) + ": ";
        WriteLaidOut(out, entry.value(), depth + 1, value.is_object() ? entry.key() : std::string(), key);
        out += ++index < value.size() ? ",\n" : "\n";
    }
    out += indent + (value.is_array() ? "]" : "}");
}

}  // namespace

Json AclEntryToJson(const AclEntryData& entry) {
    Json json = Json::object();
    json["name"] = LmbcsToUtf8Lossy(entry.name);
    std::optional<std::string> level = AclLevelName(entry.level);
    json["level"] = level ? Json(*level) : Json(entry.level);
    if (entry.flags) json["flags"] = FlagsJson(entry.flags, AclFlagNames());
    Json privileges = PrivilegesJson(entry.privileges);
    if (!privileges.empty()) json["privileges"] = privileges;
    return json;
}

Json ItemValueToJson(const ItemData& item) {
    std::optional<Json> value = ValueJson(item);
    if (value && HasPlainForm(item, *value)) return *value;
    Json json = Json::object();
    json["type"] = TypeJson(item.type);
    std::optional<Json> source = value ? std::nullopt : FormulaJson(item);
    if (value)
        json["value"] = *value;
    else if (source)
        json["text"] = *source;
    else
        json["hex"] = ToHex(item.value);
    if (item.flags != ITEM_SUMMARY) json["flags"] = FlagsJson(item.flags, ItemFlagNames());
    return json;
}

std::string NoteClassText(WORD noteClass) {
    std::optional<std::string> name = NoteClassName(noteClass);
    return name ? *name : std::to_string(noteClass);
}

std::string OneLine(const Json& value) {
    if (value.is_primitive()) return value.dump(-1, ' ', false, Json::error_handler_t::replace);
    std::string text = value.is_array() ? "[" : "{";
    bool first = true;
    for (const auto& entry : value.items()) {
        if (!first) text += ", ";
        first = false;
        if (value.is_object()) text += OneLine(Json(entry.key())) + ": ";
        text += OneLine(entry.value());
    }
    return text + (value.is_array() ? "]" : "}");
}

std::string DumpText(const Json& database) {
    std::string text;
    WriteLaidOut(text, database, 0, std::string(), std::string());
    return text + "\n";
}

Json DatabaseToJson(const DatabaseData& db) {
    Json json = Json::object();
    json["title"] = InfoText(db.title);
    if (!db.categories.empty()) json["categories"] = InfoText(db.categories);
    json["templateName"] = InfoText(db.templateName);
    json["inheritFrom"] = InfoText(db.inheritFrom);
    if (db.replicaId) json["replicaId"] = TimedateText(*db.replicaId);
    json["replicaFlags"] = db.replicaFlags;
    if (db.replicaCutoffInterval) json["replicaCutoffInterval"] = db.replicaCutoffInterval;
    if (!IsZero(db.replicaCutoff)) json["replicaCutoff"] = TimedateText(db.replicaCutoff);
    if (db.buildVersion) json["buildVersion"] = *db.buildVersion;
    if (db.acl) {
        Json acl = Json::array();
        for (const AclEntryData& entry : *db.acl) acl.push_back(AclEntryToJson(entry));
        json["acl"] = acl;
    }
    Json notes = Json::array();
    for (const NoteData& note : db.notes) notes.push_back(NoteJson(note));
    json["notes"] = notes;
    return json;
}

}  // namespace nsfdb
