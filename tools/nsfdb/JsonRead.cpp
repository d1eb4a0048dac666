// JSON text -> DatabaseData, checking everything on the way.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <fstream>
#include <functional>
#include <sstream>
#include <initializer_list>
#include <set>
#include <string>
#include <utility>
#include <unordered_set>
#include <vector>

#include "JsonFormat.h"
#include "JsonQuickParser.h"
#include "JsonRecord.h"
#include "Names.h"
#include "NotesSession.h"
#include "Values.h"

#include "acl.h"
#include "names.h"
#include "nsfdata.h"
#include "nsfnote.h"

namespace nsfdb {
namespace {

[[noreturn]] void Fail(const std::string& place, const std::string& problem) {
    throw ToolError(place + ": " + problem);
}

std::string Member(const std::string& place, const std::string& key) {
    return place.empty() ? key : place + "." + key;
}

std::string Element(const std::string& place, size_t index) {
    return place + "[" + std::to_string(index) + "]";
}

void RequireObject(const Json& value, const std::string& place) {
    if (!value.is_object()) Fail(place, "an object is expected");
}

void CheckKeys(const Json& object, std::initializer_list<const char*> known, const std::string& place) {
    for (const auto& entry : object.items()) {
        bool found = false;
        for (const char* key : known) found = found || entry.key() == key;
        if (!found) Fail(Member(place, entry.key()), "unknown key");
    }
}

std::string String(const Json& value, const std::string& place) {
    if (!value.is_string()) Fail(place, "a string is expected");
    return value.get<std::string>();
}

// A whole number within [low, high].
unsigned long long Whole(const Json& value, unsigned long long low, unsigned long long high,
                         const std::string& place) {
    bool whole = value.is_number_unsigned() || (value.is_number_integer() && value.get<long long>() >= 0);
    unsigned long long number = whole ? value.get<unsigned long long>() : 0;
    if (!whole || number < low || number > high)
        Fail(place,
             "a whole number from " + std::to_string(low) + " to " + std::to_string(high) + " is expected");
    return number;
}

std::string Lmbcs(const std::string& utf8, const std::string& place) {
    std::string lmbcs;
    if (!Utf8ToLmbcs(utf8, lmbcs)) Fail(place, "the text cannot be stored (too long for one item)");
    return lmbcs;
}

// A field of the database information buffer: one line of text.
std::string InfoField(const Json& root, const char* key) {
    if (!root.contains(key)) return std::string();
    std::string text = String(root[key], key);
    if (text.find('\n') != std::string::npos || text.find('\0') != std::string::npos)
        Fail(key, "line breaks and NUL characters cannot be stored here");
    return Lmbcs(text, key);
}

TIMEDATE TimedateField(const Json& value, const std::string& place) {
    std::optional<TIMEDATE> time = ParseTimedate(String(value, place));
    if (!time) Fail(place, "\"HHHHHHHH:LLLLLLLL\" (two groups of 8 hexadecimal digits) is expected");
    return *time;
}

WORD Flags(const Json& value, const std::vector<FlagName>& names, const std::string& place) {
    if (value.is_number()) return static_cast<WORD>(Whole(value, 0, MAXWORD, place));
    if (!value.is_array()) Fail(place, "a list of flag names is expected");
    WORD flags = 0;
    for (size_t i = 0; i < value.size(); ++i) {
        const Json& flag = value[i];
        if (flag.is_number()) {
            flags = static_cast<WORD>(flags | Whole(flag, 0, MAXWORD, Element(place, i)));
            continue;
        }
        std::string name = String(flag, Element(place, i));
        std::optional<WORD> bit = FlagFromName(name, names);
        if (!bit) Fail(Element(place, i), "unknown flag \"" + name + "\"");
        flags = static_cast<WORD>(flags | *bit);
    }
    return flags;
}

// ---- Items ---------------------------------------------------------------------

bool AllStrings(const Json& list) {
    for (const Json& entry : list)
        if (!entry.is_string()) return false;
    return true;
}

bool AllNumbers(const Json& list) {
    for (const Json& entry : list)
        if (!entry.is_number()) return false;
    return true;
}

std::string TextListValue(const Json& list, const std::string& place) {
    if (list.size() > MAXWORD) Fail(place, "a text list holds at most 65535 entries");
    std::vector<std::string> entries;
    for (size_t i = 0; i < list.size(); ++i)
        entries.push_back(Lmbcs(list[i].get<std::string>(), Element(place, i)));
    return EncodeTextList(entries);
}

std::string NumberListValue(const Json& list, const std::string& place) {
    if (list.size() > MAXWORD) Fail(place, "a number list holds at most 65535 entries");
    std::vector<double> numbers;
    for (const Json& entry : list) numbers.push_back(entry.get<double>());
    return EncodeNumberList(numbers);
}

// The plain forms: a string, a number, a list of strings or of numbers.
bool PlainItem(const Json& value, ItemData& item, const std::string& place) {
    item.flags = ITEM_SUMMARY;
    if (value.is_string()) {
        item.type = TYPE_TEXT;
        item.value = Lmbcs(value.get<std::string>(), place);
    } else if (value.is_number()) {
        item.type = TYPE_NUMBER;
        item.value = EncodeNumber(value.get<double>());
    } else if (value.is_array() && AllStrings(value)) {
        item.type = TYPE_TEXT_LIST;
        item.value = TextListValue(value, place);
    } else if (value.is_array() && AllNumbers(value)) {
        item.type = TYPE_NUMBER_RANGE;
        item.value = NumberListValue(value, place);
    } else if (value.is_array()) {
        Fail(place, "a list holds only strings or only numbers");
    } else {
        return false;
    }
    return true;
}

WORD ItemType(const Json& value, const std::string& place) {
    if (value.is_number()) return static_cast<WORD>(Whole(value, 0, MAXWORD, place));
    std::string name = String(value, place);
    std::optional<WORD> type = ItemTypeFromName(name);
    if (!type) Fail(place, "unknown item type \"" + name + "\"");
    return *type;
}

// "value" in an explicit object, for the types that have a plain form.
std::string TypedValue(WORD type, const Json& value, const std::string& place) {
    switch (type) {
        case TYPE_TEXT:
            return Lmbcs(String(value, place), place);
        case TYPE_TEXT_LIST:
            if (!value.is_array() || !AllStrings(value)) Fail(place, "a list of strings is expected");
            return TextListValue(value, place);
        case TYPE_NUMBER:
            if (!value.is_number()) Fail(place, "a number is expected");
            return EncodeNumber(value.get<double>());
        case TYPE_NUMBER_RANGE:
            if (!value.is_array() || !AllNumbers(value)) Fail(place, "a list of numbers is expected");
            return NumberListValue(value, place);
        default:
            Fail(place, "this type takes its value as \"hex\"");
    }
}

void ExplicitItem(const Json& object, ItemData& item, const std::string& place) {
    CheckKeys(object, {"type", "value", "text", "hex", "flags"}, place);
    if (!object.contains("type")) Fail(place, "\"type\" is missing");
    item.type = ItemType(object["type"], Member(place, "type"));
    item.flags = object.contains("flags") ? Flags(object["flags"], ItemFlagNames(), Member(place, "flags"))
                                          : static_cast<WORD>(ITEM_SUMMARY);
    int forms = object.contains("value") + object.contains("text") + object.contains("hex");
    if (forms != 1) Fail(place, "exactly one of \"value\", \"text\" and \"hex\" is expected");
    if (object.contains("hex")) {
        std::optional<std::string> bytes = FromHex(String(object["hex"], Member(place, "hex")));
        if (!bytes) Fail(Member(place, "hex"), "an even number of hexadecimal digits is expected");
        item.value = *bytes;
    } else if (object.contains("text")) {
        if (item.type != TYPE_FORMULA)
            Fail(Member(place, "text"), "\"text\" is the source of a formula item");
        std::string source = Lmbcs(String(object["text"], Member(place, "text")), Member(place, "text"));
        item.value = CompileFormula(source, Member(place, "text"));
    } else {
        item.value = TypedValue(item.type, object["value"], Member(place, "value"));
    }
}

ItemData ItemFromJson(const std::string& name, const Json& value, const std::string& place) {
    ItemData item;
    if (name.empty()) Fail(place, "an item name cannot be empty");
    item.name = Lmbcs(name, place);
    if (value.is_object())
        ExplicitItem(value, item, place);
    else if (!PlainItem(value, item, place))
        Fail(place, "an item value is a string, a number, a list or an object");
    if (item.value.size() > kMaxItemValue)
        Fail(place, "the value takes " + std::to_string(item.value.size()) +
                        " bytes, an item holds at most " + std::to_string(kMaxItemValue));
    return item;
}

// Items are an object of name: value, or (to give a name more than once) a
// list of [name, value] pairs.
std::vector<ItemData> ItemsFromJson(const Json& items, const std::string& place) {
    std::vector<ItemData> result;
    if (items.is_object()) {
        for (const auto& entry : items.items())
            result.push_back(ItemFromJson(entry.key(), entry.value(), Member(place, entry.key())));
        return result;
    }
    if (!items.is_array()) Fail(place, "an object of items (or a list of [name, value] pairs) is expected");
    for (size_t i = 0; i < items.size(); ++i) {
        const Json& pair = items[i];
        if (!pair.is_array() || pair.size() != 2 || !pair[0].is_string())
            Fail(Element(place, i), "a pair [name, value] is expected");
        result.push_back(ItemFromJson(pair[0].get<std::string>(), pair[1], Element(place, i)));
    }
    return result;
}

// ---- Notes and ACL -----------------------------------------------------------------

WORD NoteClassFromJson(const Json& value, const std::string& place) {
    WORD noteClass;
    if (value.is_number()) {
        noteClass = static_cast<WORD>(Whole(value, 1, MAXWORD, place));
    } else {
        std::string name = String(value, place);
        std::optional<WORD> known = NoteClassFromName(name);
        if (!known) Fail(place, "unknown note class \"" + name + "\"");
        noteClass = *known;
    }
    if (noteClass == NOTE_CLASS_ACL) Fail(place, "the ACL note is written from \"acl\", not as a note");
    return noteClass;
}

NOTEID NoteIdFromJson(const Json& value, const std::string& place) {
    if (value.is_string()) {
        const std::string text = value.get<std::string>();
        std::optional<std::string> bytes =
            text.size() > 2 && text.size() <= 10 && text.compare(0, 2, "0x") == 0
                ? FromHex(std::string(10 - text.size(), '0') + text.substr(2))
                : std::nullopt;
        if (!bytes) Fail(place, "a number or \"0x\" and up to 8 hexadecimal digits is expected");
        NOTEID id = 0;
        for (unsigned char byte : *bytes) id = (id << 8) | byte;
        if (id == 0) Fail(place, "a note ID is not 0");
        return id;
    }
    return static_cast<NOTEID>(Whole(value, 1, 0x7FFFFFFF, place));
}

}  // namespace

NoteData NoteFromJson(const Json& note, const std::string& place) {
    RequireObject(note, place);
    CheckKeys(note, {"class", "unid", "noteId", "items"}, place);
    NoteData data;
    if (!note.contains("class")) Fail(place, "\"class\" is missing");
    data.noteClass = NoteClassFromJson(note["class"], Member(place, "class"));
    if (note.contains("unid")) {
        data.unid = ParseUnid(String(note["unid"], Member(place, "unid")));
        if (!data.unid) Fail(Member(place, "unid"), "32 hexadecimal digits are expected");
    }
    if (note.contains("noteId")) data.noteId = NoteIdFromJson(note["noteId"], Member(place, "noteId"));
    if (note.contains("items")) data.items = ItemsFromJson(note["items"], Member(place, "items"));
    return data;
}

namespace {

WORD AclLevelFromJson(const Json& value, const std::string& place) {
    if (value.is_number()) return static_cast<WORD>(Whole(value, 0, ACL_LEVEL_HIGHEST, place));
    std::string name = String(value, place);
    std::optional<WORD> level = AclLevelFromName(name);
    if (!level) Fail(place, "unknown access level \"" + name + "\"");
    return *level;
}

ACL_PRIVILEGES PrivilegesFromJson(const Json& value, const std::string& place) {
    if (!value.is_array()) Fail(place, "a list of privilege numbers is expected");
    ACL_PRIVILEGES privileges{};
    for (size_t i = 0; i < value.size(); ++i) {
        unsigned bit = static_cast<unsigned>(Whole(value[i], 0, ACL_PRIVCOUNT - 1, Element(place, i)));
        ACLSetPriv(privileges, bit);
    }
    return privileges;
}

AclEntryData AclEntryFromJson(const Json& entry, const std::string& place) {
    RequireObject(entry, place);
    CheckKeys(entry, {"name", "level", "flags", "privileges"}, place);
    if (!entry.contains("name") || !entry.contains("level"))
        Fail(place, "\"name\" and \"level\" are expected");
    AclEntryData data;
    std::string name = String(entry["name"], Member(place, "name"));
    if (name.empty() || name.find('\0') != std::string::npos)
        Fail(Member(place, "name"), "a name is not empty and holds no NUL character");
    data.name = Lmbcs(name, Member(place, "name"));
    if (data.name.size() >= MAXUSERNAME)
        Fail(Member(place, "name"), "the name is longer than a Notes name can be");
    data.level = AclLevelFromJson(entry["level"], Member(place, "level"));
    if (entry.contains("flags")) data.flags = Flags(entry["flags"], AclFlagNames(), Member(place, "flags"));
    if (entry.contains("privileges"))
        data.privileges = PrivilegesFromJson(entry["privileges"], Member(place, "privileges"));
    return data;
}

// Names in an ACL, like item names, compare without regard to case.
std::string Folded(std::string text) {
    for (char& c : text)
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    return text;
}

std::vector<AclEntryData> AclFromJson(const Json& acl) {
    if (!acl.is_array()) Fail("acl", "a list of entries is expected");
    std::vector<AclEntryData> entries;
    std::set<std::string> names;
    for (size_t i = 0; i < acl.size(); ++i) {
        entries.push_back(AclEntryFromJson(acl[i], Element("acl", i)));
        if (!names.insert(Folded(entries.back().name)).second)
            Fail(Member(Element("acl", i), "name"), "this name is already in the ACL");
    }
    return entries;
}

std::vector<NoteData> NotesFromJson(const Json& notes) {
    if (!notes.is_array()) Fail("notes", "a list of notes is expected");
    std::vector<NoteData> result;
    std::set<std::string> unids;
    for (size_t i = 0; i < notes.size(); ++i) {
        result.push_back(NoteFromJson(notes[i], Element("notes", i)));
        if (result.back().unid && !unids.insert(UnidText(*result.back().unid)).second)
            Fail(Member(Element("notes", i), "unid"), "another note already has this UNID");
    }
    return result;
}

// "line L, column C" of the character before `offset` (the parser's position is the count of
// characters it has read).
std::string LineAndColumn(std::istream& text, size_t offset) {
    size_t line = 1, column = 0;
    char c;
    for (size_t i = 0; i < offset && text.get(c); ++i) {
        if (c == '\n' && i + 1 < offset) {
            ++line;
            column = 0;
        } else {
            ++column;
        }
    }
    return "line " + std::to_string(line) + ", column " + std::to_string(column);
}

// "[json.exception.parse_error.101] parse error at line 1, column 15: ..." -> "line 1, column 15: ..."
// "[json.exception.out_of_range.406] number overflow ..." -> "number overflow ..."
std::string WithoutPrefix(std::string message) {
    for (const char* prefix : {"] ", "parse error at "}) {
        size_t start = message.find(prefix);
        if (start != std::string::npos) message.erase(0, start + std::strlen(prefix));
    }
    return message;
}

// Builds the document from the parser's events, names the place of a key given twice, and
// records the values the sink asks for instead of building them. Every error the parser reports
// (syntax, a number out of range) becomes a ToolError that names the line and column.
class DocumentReader {
public:
    DocumentReader(Json& result, JsonSink* sink, std::function<std::string(size_t)> locate)
        : result_(result), sink_(sink), locate_(std::move(locate)) {}

    bool null() {
        return Scalar([&] { record_.Add(JsonRecord::Kind::Null); }, [] { return Json(nullptr); });
    }
    bool boolean(bool value) {
        return Scalar([&] { record_.Add(value ? JsonRecord::Kind::True : JsonRecord::Kind::False); },
                      [&] { return Json(value); });
    }
    bool number_integer(Json::number_integer_t value) {
        return Scalar([&] { record_.AddInteger(value); }, [&] { return Json(value); });
    }
    bool number_unsigned(Json::number_unsigned_t value) {
        return Scalar([&] { record_.AddUnsigned(value); }, [&] { return Json(value); });
    }
    bool number_float(Json::number_float_t value, const std::string& /*text*/) {
        return Scalar([&] { record_.AddFloat(value); }, [&] { return Json(value); });
    }
    bool string(std::string& value) {
        return Scalar([&] { record_.AddText(JsonRecord::Kind::String, value); },
                      [&] { return Json(std::move(value)); });
    }
    bool binary(Json::binary_t& /*value*/) { throw ToolError("binary values are not JSON"); }

    bool start_object(std::size_t /*elements*/) { return Open(true); }
    bool start_array(std::size_t /*elements*/) { return Open(false); }
    bool end_object() { return Close(JsonRecord::Kind::EndObject); }
    bool end_array() { return Close(JsonRecord::Kind::EndArray); }

    bool key(std::string& key) {
        JsonStep& top = path_.back();
        top.isKey = true;
        top.key = key;
        if (!frames_[path_.size() - 1].AddKey(top.key))
            Fail(PlaceOf(path_), "the key \"" + top.key + "\" is given twice");
        if (recordDepth_ > 0) record_.AddText(JsonRecord::Kind::Key, key);
        return true;
    }

    bool parse_error(std::size_t position, const std::string& /*lastToken*/, const Json::exception& error) {
        std::string message = WithoutPrefix(error.what());
        if (message.compare(0, 5, "line ") == 0) throw ToolError(message);
        throw ToolError(locate_(position) + ": " + message);
    }

private:
    // An open object or list. Frames are kept for reuse, with the storage of their keys.
    struct Frame {
        bool isObject = false;
        // Most objects have a handful of keys: a list is searched until it grows long.
        std::vector<std::string> few;
        size_t fewCount = 0;
        std::unordered_set<std::string> many;

        void Reset(bool object) {
            isObject = object;
            fewCount = 0;
            if (!many.empty()) many.clear();
        }
        bool AddKey(const std::string& key) {
            if (many.empty() && fewCount < 16) {
                auto end = few.begin() + static_cast<std::ptrdiff_t>(fewCount);
                if (std::find(few.begin(), end, key) != end) return false;
                if (fewCount == few.size()) few.emplace_back();
                few[fewCount++] = key;
                return true;
            }
            if (many.empty()) many.insert(few.begin(), few.begin() + static_cast<std::ptrdiff_t>(fewCount));
            return many.insert(key).second;
        }
    };

    bool Recording() const { return recordDepth_ > 0; }

    // A value begins at path_: starts recording it when the sink asks for it.
    void Begin() {
        if (!Recording() && sink_ && !path_.empty() && sink_->Records(path_)) recordDepth_ = 1;
    }

    template <typename RecordIt, typename MakeIt>
    bool Scalar(RecordIt record, MakeIt make) {
        Begin();
        if (Recording()) {
            record();
            if (recordDepth_ == 1) Taken();
            return true;
        }
        Built(Put(make()));
        return true;
    }

    bool Open(bool isObject) {
        Begin();
        if (Recording()) {
            record_.Add(isObject ? JsonRecord::Kind::BeginObject : JsonRecord::Kind::BeginArray);
            ++recordDepth_;
        } else {
            open_.push_back(&Put(isObject ? Json::object() : Json::array()));
        }
        path_.push_back(JsonStep{false, {}, 0});
        if (frames_.size() < path_.size()) frames_.emplace_back();
        frames_[path_.size() - 1].Reset(isObject);
        return true;
    }

    bool Close(JsonRecord::Kind kind) {
        path_.pop_back();
        if (Recording()) {
            record_.Add(kind);
            if (--recordDepth_ == 1) Taken();
            return true;
        }
        Json& done = *open_.back();
        open_.pop_back();
        Built(done);
        return true;
    }

    // Puts a value where the parser is: the result, the next element of a list or the member
    // named by the last key. open_ matches path_ while nothing is being recorded.
    Json& Put(Json value) {
        if (open_.empty()) return result_ = std::move(value);
        Json& container = *open_.back();
        if (container.is_array()) {
            container.push_back(std::move(value));
            return container.back();
        }
        return container[path_.back().key] = std::move(value);
    }

    void Taken() {
        recordDepth_ = 0;
        sink_->Take(path_, record_);
        record_.Clear();
        Next();
    }

    void Built(const Json& value) {
        if (sink_ && !path_.empty()) sink_->Built(path_, value);
        Next();
    }

    void Next() {
        if (!path_.empty() && !frames_[path_.size() - 1].isObject) ++path_.back().index;
    }

    Json& result_;
    JsonSink* sink_;
    std::function<std::string(size_t)> locate_;
    JsonPath path_;  // one step per open object or list
    std::vector<Frame> frames_;  // frames_[i] for path_[i]; more are kept for reuse
    std::vector<Json*> open_;  // the containers being built
    JsonRecord record_;
    // 0 when nothing is recorded, else 1 + the depth of open containers within the recorded value.
    int recordDepth_ = 0;
};

// Passes over the events the quick parser has given the reader already, then gives it the rest.
class ResumingReader {
public:
    ResumingReader(DocumentReader& reader, size_t given) : reader_(reader), skip_(given) {}

    bool null() { return Skip() || reader_.null(); }
    bool boolean(bool value) { return Skip() || reader_.boolean(value); }
    bool number_integer(Json::number_integer_t value) { return Skip() || reader_.number_integer(value); }
    bool number_unsigned(Json::number_unsigned_t value) { return Skip() || reader_.number_unsigned(value); }
    bool number_float(Json::number_float_t value, const std::string& text) {
        return Skip() || reader_.number_float(value, text);
    }
    bool string(std::string& value) { return Skip() || reader_.string(value); }
    bool binary(Json::binary_t& value) { return Skip() || reader_.binary(value); }
    bool start_object(std::size_t elements) { return Skip() || reader_.start_object(elements); }
    bool start_array(std::size_t elements) { return Skip() || reader_.start_array(elements); }
    bool end_object() { return Skip() || reader_.end_object(); }
    bool end_array() { return Skip() || reader_.end_array(); }
    bool key(std::string& key) { return Skip() || reader_.key(key); }
    bool parse_error(std::size_t position, const std::string& lastToken, const Json::exception& error) {
        return reader_.parse_error(position, lastToken, error);
    }

private:
    bool Skip() {
        if (skip_ == 0) return false;
        --skip_;
        return true;
    }

    DocumentReader& reader_;
    size_t skip_;
};

// Runs a parse; anything the parser (or a sink's use of a document) throws that the reader did
// not place becomes a ToolError.
template <typename F>
void Parsing(F&& parse) {
    try {
        parse();
    } catch (const Json::exception& error) {
        throw ToolError(WithoutPrefix(error.what()));
    }
}

// A file's characters for the parser, read in large blocks: the parser takes one character at
// a time, which through a stream costs more than the rest of the reading.
class FileCharacters {
public:
    explicit FileCharacters(const std::string& path) : file_(std::fopen(path.c_str(), "rb")), buffer_(1 << 16) {
        if (!file_) throw ToolError("cannot read the file");
    }
    ~FileCharacters() { std::fclose(file_); }
    FileCharacters(const FileCharacters&) = delete;
    FileCharacters& operator=(const FileCharacters&) = delete;

    std::FILE* file() const { return file_; }
    bool AtEnd() { return at_ == end_ && !Refill(); }
    char Current() const { return buffer_[at_]; }
    void Advance() { ++at_; }

    // What the parser's iterator adapter takes; the end iterator has no file.
    class Iterator {
    public:
        using iterator_category = std::input_iterator_tag;
        using value_type = char;
        using difference_type = std::ptrdiff_t;
        using pointer = const char*;
        using reference = char;

        explicit Iterator(FileCharacters* file = nullptr) : file_(file) {}
        char operator*() const { return file_->Current(); }
        Iterator& operator++() {
            file_->Advance();
            return *this;
        }
        bool operator==(const Iterator& other) const { return AtEnd() == other.AtEnd(); }
        bool operator!=(const Iterator& other) const { return !(*this == other); }

    private:
        bool AtEnd() const { return !file_ || file_->AtEnd(); }
        FileCharacters* file_;
    };

private:
    bool Refill() {
        at_ = 0;
        end_ = std::fread(buffer_.data(), 1, buffer_.size(), file_);
        if (end_ == 0 && std::ferror(file_)) throw ToolError("cannot read the file");
        return end_ > 0;
    }

    std::FILE* file_;
    std::vector<char> buffer_;
    size_t at_ = 0, end_ = 0;
};

}  // namespace

Json ParseJsonText(const std::string& text) {
    Json result;
    DocumentReader reader(result, nullptr, [&](size_t offset) {
        std::istringstream in(text);
        return LineAndColumn(in, offset);
    });
    Parsing([&] { Json::sax_parse(text, &reader); });
    return result;
}

void ParseJsonFile(const std::string& path, JsonSink& sink, Json& result) {
    DocumentReader reader(result, &sink, [&](size_t offset) {
        std::ifstream again(path, std::ios::binary);
        return LineAndColumn(again, offset);
    });
    size_t given = 0;
    bool done = false;
    {
        FileCharacters in(path);
        QuickParser quick(in.file(), [] { throw ToolError("cannot read the file"); });
        Parsing([&] { done = quick.Parse(reader); });
        given = quick.events();
    }
    if (done) return;
    // From the start again with the full parser, which says what the quick one left to it.
    FileCharacters in(path);
    ResumingReader rest(reader, given);
    Parsing([&] { Json::sax_parse(FileCharacters::Iterator(&in), FileCharacters::Iterator(), &rest); });
}

std::string PlaceOf(const JsonPath& path) {
    std::string place;
    for (const JsonStep& step : path) place = step.isKey ? Member(place, step.key) : Element(place, step.index);
    return place.empty() ? "the document" : place;
}

DatabaseData DatabaseSettingsFromJson(const Json& root) {
    if (!root.is_object()) throw ToolError("the document: an object is expected");
    Json settings = root;
    if (settings.contains("notes")) {
        if (!settings["notes"].is_array()) Fail("notes", "a list of notes is expected");
        settings.erase("notes");
    }
    return DatabaseFromJson(settings);
}

DatabaseData DatabaseFromJson(const Json& root) {
    if (!root.is_object()) throw ToolError("the document: an object is expected");
    CheckKeys(root,
              {"title", "categories", "templateName", "inheritFrom", "replicaId", "replicaFlags",
               "replicaCutoffInterval", "replicaCutoff", "buildVersion", "acl", "notes"},
              "");
    DatabaseData db;
    db.title = InfoField(root, "title");
    db.categories = InfoField(root, "categories");
    db.templateName = InfoField(root, "templateName");
    db.inheritFrom = InfoField(root, "inheritFrom");
    if (root.contains("replicaId")) db.replicaId = TimedateField(root["replicaId"], "replicaId");
    if (root.contains("replicaFlags"))
        db.replicaFlags = static_cast<WORD>(Whole(root["replicaFlags"], 0, MAXWORD, "replicaFlags"));
    if (root.contains("replicaCutoffInterval"))
        db.replicaCutoffInterval =
            static_cast<WORD>(Whole(root["replicaCutoffInterval"], 0, MAXWORD, "replicaCutoffInterval"));
    if (root.contains("replicaCutoff"))
        db.replicaCutoff = TimedateField(root["replicaCutoff"], "replicaCutoff");
    if (root.contains("buildVersion"))
        db.buildVersion = static_cast<WORD>(Whole(root["buildVersion"], 0, MAXWORD, "buildVersion"));
    if (root.contains("acl")) db.acl = AclFromJson(root["acl"]);
    if (root.contains("notes")) db.notes = NotesFromJson(root["notes"]);
    return db;
}

}  // namespace nsfdb
