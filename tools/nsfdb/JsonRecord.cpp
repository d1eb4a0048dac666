#include "JsonRecord.h"

#include <cstring>

#include "Names.h"
#include "NotesSession.h"
#include "Values.h"

#include "global.h"
#include "nsfdata.h"
#include "nsfnote.h"

namespace nsfdb {

using Kind = JsonRecord::Kind;

void JsonRecord::Clear() {
    size_ = 0;
    textCount_ = 0;
}

JsonRecord::Token& JsonRecord::Next() {
    if (size_ == tokens_.size()) tokens_.emplace_back();
    return tokens_[size_++];
}

void JsonRecord::Add(Kind kind) {
    Next().kind = kind;
}

void JsonRecord::AddInteger(std::int64_t value) {
    Token& token = Next();
    token.kind = Kind::Integer;
    token.integer = value;
}

void JsonRecord::AddUnsigned(std::uint64_t value) {
    Token& token = Next();
    token.kind = Kind::Unsigned;
    token.whole = value;
}

void JsonRecord::AddFloat(double value) {
    Token& token = Next();
    token.kind = Kind::Float;
    token.real = value;
}

void JsonRecord::AddText(Kind kind, const std::string& text) {
    if (textCount_ == texts_.size()) texts_.emplace_back();
    texts_[textCount_] = text;
    Token& token = Next();
    token.kind = kind;
    token.text = textCount_++;
}

Json JsonRecord::ToJson() const {
    Json result;
    std::vector<Json*> open;
    const std::string* key = nullptr;
    // Puts a value where the parser is: the result, the next element of a list or the member
    // named by the last key.
    auto place = [&](Json value) -> Json& {
        if (open.empty()) return result = std::move(value);
        Json& container = *open.back();
        if (container.is_array()) {
            container.push_back(std::move(value));
            return container.back();
        }
        return container[*key] = std::move(value);
    };
    for (size_t at = 0; at < size_; ++at) {
        const Token& token = tokens_[at];
        switch (token.kind) {
            case Kind::Null: place(nullptr); break;
            case Kind::False: place(false); break;
            case Kind::True: place(true); break;
            case Kind::Integer: place(token.integer); break;
            case Kind::Unsigned: place(token.whole); break;
            case Kind::Float: place(token.real); break;
            case Kind::String: place(Text(token)); break;
            case Kind::Key: key = &Text(token); break;
            case Kind::BeginObject: open.push_back(&place(Json::object())); break;
            case Kind::BeginArray: open.push_back(&place(Json::array())); break;
            case Kind::EndObject:
            case Kind::EndArray: open.pop_back(); break;
        }
    }
    return result;
}

namespace {

bool IsNumber(Kind kind) {
    return kind == Kind::Integer || kind == Kind::Unsigned || kind == Kind::Float;
}

double NumberOf(const JsonRecord::Token& token) {
    switch (token.kind) {
        case Kind::Integer: return static_cast<double>(token.integer);
        case Kind::Unsigned: return static_cast<double>(token.whole);
        default: return token.real;
    }
}

// Reads the tokens of one note in order; every step answers false for anything but the usual
// shapes, which leaves the note to NoteFromJson.
class UsualNoteReader {
public:
    UsualNoteReader(const JsonRecord& record, NoteData& out) : record_(record), out_(out) {}

    bool Read() {
        out_.noteClass = 0;
        out_.unid.reset();
        out_.noteId.reset();
        itemCount_ = 0;
        if (!Is(Kind::BeginObject)) return false;
        bool hasClass = false;
        while (at_ < record_.size() && Peek().kind == Kind::Key) {
            const std::string& key = record_.Text(record_[at_++]);
            hasClass = hasClass || key == "class";
            if (!Member(key)) return false;
        }
        if (!Is(Kind::EndObject) || at_ != record_.size() || !hasClass) return false;
        out_.items.resize(itemCount_);
        return true;
    }

private:
    const JsonRecord::Token& Peek() const { return record_[at_]; }

    bool Member(const std::string& key) {
        if (key == "class") return Class();
        if (key == "unid") return Unid();
        if (key == "noteId") return NoteId();
        if (key == "items") return Items();
        return false;  // unknown: NoteFromJson names it
    }

    bool Is(Kind kind) {
        if (at_ >= record_.size() || Peek().kind != kind) return false;
        ++at_;
        return true;
    }

    bool Class() {
        if (at_ >= record_.size()) return false;
        const JsonRecord::Token& token = record_[at_++];
        if (token.kind == Kind::String) {
            std::optional<WORD> known = NoteClassFromName(record_.Text(token));
            if (!known) return false;
            out_.noteClass = *known;
        } else if (token.kind == Kind::Unsigned && token.whole >= 1 && token.whole <= MAXWORD) {
            out_.noteClass = static_cast<WORD>(token.whole);
        } else {
            return false;
        }
        return out_.noteClass != NOTE_CLASS_ACL;
    }

    bool Unid() {
        if (at_ >= record_.size() || Peek().kind != Kind::String) return false;
        out_.unid = ParseUnid(record_.Text(record_[at_++]));
        return out_.unid.has_value();
    }

    // Numbers only; the "0x..." form is left to the full checks.
    bool NoteId() {
        if (at_ >= record_.size() || Peek().kind != Kind::Unsigned) return false;
        std::uint64_t id = record_[at_++].whole;
        if (id < 1 || id > 0x7FFFFFFF) return false;
        out_.noteId = static_cast<NOTEID>(id);
        return true;
    }

    // An object of plain items; a list of pairs and explicit items are left to the full checks.
    bool Items() {
        if (!Is(Kind::BeginObject)) return false;
        while (at_ < record_.size() && Peek().kind == Kind::Key) {
            const std::string& name = record_.Text(record_[at_++]);
            if (name.empty() || at_ >= record_.size()) return false;
            ItemData& item = NextItem();
            if (!Utf8ToLmbcs(name, item.name) || !PlainValue(item) || item.value.size() > kMaxItemValue)
                return false;
        }
        return Is(Kind::EndObject);
    }

    ItemData& NextItem() {
        if (itemCount_ == out_.items.size()) out_.items.emplace_back();
        ItemData& item = out_.items[itemCount_++];
        item.flags = ITEM_SUMMARY;
        return item;
    }

    bool PlainValue(ItemData& item) {
        const JsonRecord::Token& token = record_[at_++];
        if (token.kind == Kind::String) {
            item.type = TYPE_TEXT;
            return Utf8ToLmbcs(record_.Text(token), item.value);
        }
        if (IsNumber(token.kind)) {
            item.type = TYPE_NUMBER;
            item.value = EncodeNumber(NumberOf(token));
            return true;
        }
        return token.kind == Kind::BeginArray && List(item);
    }

    // After "[": all strings (or none) make a text list, all numbers a number list.
    bool List(ItemData& item) {
        size_t first = at_;
        while (at_ < record_.size() && (Peek().kind == Kind::String || IsNumber(Peek().kind))) ++at_;
        size_t count = at_ - first;
        if (!Is(Kind::EndArray) || count > MAXWORD) return false;
        bool strings = count == 0 || record_[first].kind == Kind::String;
        for (size_t i = first; i < first + count; ++i)
            if ((record_[i].kind == Kind::String) != strings) return false;
        if (strings) {
            item.type = TYPE_TEXT_LIST;
            entries_.resize(count);
            for (size_t i = 0; i < count; ++i)
                if (!Utf8ToLmbcs(record_.Text(record_[first + i]), entries_[i])) return false;
            item.value = EncodeTextList(entries_);
        } else {
            item.type = TYPE_NUMBER_RANGE;
            numbers_.resize(count);
            for (size_t i = 0; i < count; ++i) numbers_[i] = NumberOf(record_[first + i]);
            item.value = EncodeNumberList(numbers_);
        }
        return true;
    }

    const JsonRecord& record_;
    NoteData& out_;
    size_t at_ = 0;
    size_t itemCount_ = 0;
    std::vector<std::string> entries_;
    std::vector<double> numbers_;
};

}  // namespace

bool ReadUsualNote(const JsonRecord& record, NoteData& out) {
    return UsualNoteReader(record, out).Read();
}

}  // namespace nsfdb
