// Reading a whole database into a DatabaseData and making a new database
// from one, through the public Notes API. Both throw ToolError.
#ifndef NSFDB_DBACCESS_H
#define NSFDB_DBACCESS_H

#include <string>

#include "DbModel.h"

#include "global.h"

namespace nsfdb {

// Every note but the ACL note (its entries are in DatabaseData::acl), in
// note-ID order, each with its items in stored order.
DatabaseData ReadDatabase(const std::string& path);

// Makes the database at path, which must not exist. It is built under a
// temporary name beside path and appears under path only when complete, so
// a failure leaves nothing behind and an existing file is never replaced.
// source names the JSON the data came from, for error messages.
void CreateDatabase(const std::string& path, const DatabaseData& db, const std::string& source);

// Makes a database as CreateDatabase does, one note at a time, so that the notes need not all be
// held at once. The settings given to Begin are written before the first note; Finish writes the
// settings again (some may have come after the notes), writes the ACL if Begin had none, and
// gives the file its name. A builder destroyed before Finish leaves nothing behind.
class DatabaseBuilder {
public:
    DatabaseBuilder(std::string path, std::string source);
    ~DatabaseBuilder();
    DatabaseBuilder(const DatabaseBuilder&) = delete;
    DatabaseBuilder& operator=(const DatabaseBuilder&) = delete;

    bool begun() const { return begun_; }
    // Does nothing when already begun.
    void Begin(const DatabaseData& settings);
    // Messages name the note as "<source>: notes[index]".
    void AddNote(const NoteData& note, size_t index);
    void Finish(const DatabaseData& settings);

private:
    std::string path_, source_, temporary_;
    DBHANDLE db_ = NULLHANDLE;
    bool begun_ = false;
    bool aclWritten_ = false;
};

}  // namespace nsfdb

#endif
