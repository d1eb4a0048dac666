// A JSON value kept as the parser's events instead of as a document. The notes of a large
// database are read this way, one at a time, into storage that the next note reuses, and are
// turned into a document only when a note needs the full checks (see NoteFromRecord).
#ifndef NSFDB_JSONRECORD_H
#define NSFDB_JSONRECORD_H

#include <cstdint>
#include <string>
#include <vector>

#include "DbModel.h"
#include "JsonFormat.h"

namespace nsfdb {

class JsonRecord {
public:
    enum class Kind : unsigned char {
        Null,
        False,
        True,
        Integer,   // written with a minus sign: integer
        Unsigned,  // a whole number without a sign: whole
        Float,     // real
        String,    // Text()
        Key,       // Text(): the name of the member that follows
        BeginObject,
        EndObject,
        BeginArray,
        EndArray,
    };
    struct Token {
        Kind kind;
        union {
            std::int64_t integer;
            std::uint64_t whole;
            double real;
            size_t text;  // String and Key: the index of the text
        };
    };

    // Empties the record, keeping its storage for the next value.
    void Clear();
    void Add(Kind kind);  // a value without content, or the beginning or end of a container
    void AddInteger(std::int64_t value);
    void AddUnsigned(std::uint64_t value);
    void AddFloat(double value);
    void AddText(Kind kind, const std::string& text);

    size_t size() const { return size_; }
    const Token& operator[](size_t at) const { return tokens_[at]; }
    const std::string& Text(const Token& token) const { return texts_[token.text]; }

    // The value as the document parser would have built it.
    Json ToJson() const;

private:
    Token& Next();

    std::vector<Token> tokens_;
    size_t size_ = 0;
    std::vector<std::string> texts_;  // grown, never shrunk: their buffers are reused
    size_t textCount_ = 0;
};

// One element of "notes" as NoteFromJson reads it, with the same result and, for a faulty note,
// the same error. Notes of the usual shapes are read straight from the record into out (whose
// storage is reused); any other note is checked through NoteFromJson. place() names the note in
// messages and is called only when the note has to be checked in full.
template <typename Place>
void NoteFromRecord(const JsonRecord& record, const Place& place, NoteData& out);

// The part of NoteFromRecord that reads the usual shapes: false (with out unspecified) when
// the note needs the full checks.
bool ReadUsualNote(const JsonRecord& record, NoteData& out);

template <typename Place>
void NoteFromRecord(const JsonRecord& record, const Place& place, NoteData& out) {
    if (!ReadUsualNote(record, out)) out = NoteFromJson(record.ToJson(), place());
}

}  // namespace nsfdb

#endif
