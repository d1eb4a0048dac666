// A database as the tool holds it between the platform and JSON. Texts are
// kept as the database stores them (LMBCS), item values as raw bytes, so
// that reading a database and writing it again changes nothing.
#ifndef NSFDB_DBMODEL_H
#define NSFDB_DBMODEL_H

#include <optional>
#include <string>
#include <vector>

#include "global.h"
#include "nsfdata.h"
#include "acl.h"

namespace nsfdb {

struct ItemData {
    std::string name;   // LMBCS
    WORD flags = 0;     // ITEM_*
    WORD type = 0;      // TYPE_*
    std::string value;  // the value bytes, without the leading type word
};

struct NoteData {
    WORD noteClass = 0;
    std::optional<UNID> unid;      // always set when read from a database
    std::optional<NOTEID> noteId;  // always set when read from a database
    std::vector<ItemData> items;
};

struct AclEntryData {
    std::string name;  // LMBCS
    WORD level = 0;    // ACL_LEVEL_*
    WORD flags = 0;    // ACL_FLAG_*
    ACL_PRIVILEGES privileges{};
};

struct DatabaseData {
    // The information buffer's fields (LMBCS).
    std::string title, categories, templateName, inheritFrom;
    // Unset fields keep what the platform gives a new database.
    std::optional<TIMEDATE> replicaId;
    WORD replicaFlags = 0;
    WORD replicaCutoffInterval = 0;
    TIMEDATE replicaCutoff{};
    std::optional<WORD> buildVersion;
    std::optional<std::vector<AclEntryData>> acl;
    std::vector<NoteData> notes;
};

}  // namespace nsfdb

#endif
