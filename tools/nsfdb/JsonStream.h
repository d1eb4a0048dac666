// Making a database while its JSON is read: each note is written as soon as it has been read and
// then dropped, so memory stays bounded however many notes the file holds.
#ifndef NSFDB_JSONSTREAM_H
#define NSFDB_JSONSTREAM_H

#include <cstdint>
#include <cstring>
#include <string>
#include <unordered_set>

#include "DbAccess.h"
#include "JsonFormat.h"
#include "JsonRecord.h"
#include "NotesSession.h"

namespace nsfdb {

// An error whose message already names the JSON file (or the caller's place for it).
class PlacedError : public ToolError {
public:
    using ToolError::ToolError;
};

// Feeds one database object of a JSON document to a builder. source prefixes the messages of
// faults in the JSON ("db.json", or a scenario's place for the database). Every error is thrown
// as PlacedError.
class DatabaseStream {
public:
    DatabaseStream(DatabaseBuilder& builder, std::string source);

    // notes[index] has been read; databaseSoFar is the database object as read up to here.
    void Note(size_t index, const JsonRecord& note, const Json& databaseSoFar);
    // The whole database object has been read (without the notes the stream took).
    void Finish(const Json& database);

private:
    DatabaseData Settings(const Json& database) const;

    struct UnidHash {
        size_t operator()(const UNID& unid) const {
            static_assert(sizeof(UNID) == 16, "a UNID is two 8-byte halves");
            std::uint64_t halves[2];
            std::memcpy(halves, &unid, sizeof halves);
            return std::hash<std::uint64_t>()(halves[0] * 0x9E3779B97F4A7C15ull ^ halves[1]);
        }
    };
    struct SameUnid {
        bool operator()(const UNID& a, const UNID& b) const { return std::memcmp(&a, &b, sizeof(UNID)) == 0; }
    };

    DatabaseBuilder& builder_;
    std::string source_;
    std::unordered_set<UNID, UnidHash, SameUnid> unids_;
    NoteData note_;  // its storage is reused from one note to the next
};

// "nsfdb create": the database at path from the JSON file at jsonPath.
void CreateDatabaseFromJsonFile(const std::string& path, const std::string& jsonPath);

}  // namespace nsfdb

#endif
