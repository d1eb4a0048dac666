// Database -> DatabaseData.
#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "DbAccess.h"
#include "NotesSession.h"
#include "Values.h"

#include "acl.h"
#include "names.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "nsfsearc.h"

namespace nsfdb {
namespace {

struct FoundNote {
    NOTEID id;
    WORD noteClass;
    UNID unid;
};

STATUS LNCALLBACK CollectNote(void far* parameter, SEARCH_MATCH far* match, ITEM_TABLE far* /*summary*/) {
    SEARCH_MATCH found;
    std::memcpy(&found, match, sizeof found);
    if (!(found.SERetFlags & SE_FMATCH)) return NOERROR;
    FoundNote note{found.ID.NoteID, found.NoteClass, {}};
    std::memcpy(&note.unid, &found.OriginatorID, sizeof note.unid);
    static_cast<std::vector<FoundNote>*>(parameter)->push_back(note);
    return NOERROR;
}

STATUS LNCALLBACK CollectItem(WORD /*spare*/, WORD flags, char far* name, WORD nameLength, void far* value,
                              DWORD valueLength, void far* parameter) {
    ItemData item;
    item.name.assign(name, nameLength);
    item.flags = flags;
    const char* bytes = static_cast<const char*>(value);
    if (valueLength >= sizeof(WORD)) {
        std::memcpy(&item.type, bytes, sizeof(WORD));
        item.value.assign(bytes + sizeof(WORD), valueLength - sizeof(WORD));
    }
    static_cast<std::vector<ItemData>*>(parameter)->push_back(std::move(item));
    return NOERROR;
}

void ReadInfo(DBHANDLE db, DatabaseData& data) {
    char info[NSF_INFO_SIZE] = {};
    Check(NSFDbInfoGet(db, info), "cannot read the database information");
    info[NSF_INFO_SIZE - 1] = '\0';
    char field[NSF_INFO_SIZE];
    auto parse = [&](WORD what) {
        NSFDbInfoParse(info, what, field, sizeof field);
        field[sizeof field - 1] = '\0';
        return std::string(field);
    };
    data.title = parse(INFOPARSE_TITLE);
    data.categories = parse(INFOPARSE_CATEGORIES);
    data.templateName = parse(INFOPARSE_CLASS);
    data.inheritFrom = parse(INFOPARSE_DESIGN_CLASS);
}

void ReadReplicaInfo(DBHANDLE db, DatabaseData& data) {
    DBREPLICAINFO replica{};
    Check(NSFDbReplicaInfoGet(db, &replica), "cannot read the replica information");
    data.replicaId = replica.ID;
    data.replicaFlags = replica.Flags;
    data.replicaCutoffInterval = replica.CutoffInterval;
    data.replicaCutoff = replica.Cutoff;
    WORD build = 0;
    Check(NSFDbGetBuildVersion(db, &build), "cannot read the build version");
    data.buildVersion = build;
}

void LNCALLBACK CollectAclEntry(void far* parameter, char far* name, WORD level,
                                ACL_PRIVILEGES far* privileges, WORD flags) {
    AclEntryData entry;
    entry.name.assign(name, strnlen(name, MAXUSERNAME));
    entry.level = level;
    entry.flags = flags;
    if (privileges) std::memcpy(&entry.privileges, privileges, sizeof entry.privileges);
    static_cast<std::vector<AclEntryData>*>(parameter)->push_back(std::move(entry));
}

void ReadAcl(DBHANDLE db, DatabaseData& data) {
    MemoryHandle acl;
    Check(NSFDbReadACL(db, acl.out()), "cannot read the ACL");
    std::vector<AclEntryData> entries;
    Check(ACLEnumEntries(acl.get(), CollectAclEntry, &entries), "cannot read the ACL entries");
    data.acl = std::move(entries);
}

NoteData ReadNote(DBHANDLE db, const FoundNote& found) {
    std::string place = "note " + NoteIdText(found.id);
    NoteHandle note;
    Check(NSFNoteOpen(db, found.id, 0, note.out()), "cannot open " + place);
    NoteData data;
    data.noteId = found.id;
    data.noteClass = found.noteClass;
    data.unid = found.unid;
    Check(NSFItemScan(note.get(), CollectItem, &data.items), "cannot read the items of " + place);
    return data;
}

void ReadNotes(DBHANDLE db, DatabaseData& data) {
    std::vector<FoundNote> found;
    Check(NSFSearch(db, NULLHANDLE, nullptr, 0, NOTE_CLASS_ALL, nullptr, CollectNote, &found, nullptr),
          "cannot search the database");
    std::sort(found.begin(), found.end(), [](const FoundNote& a, const FoundNote& b) { return a.id < b.id; });
    for (const FoundNote& note : found)
        if (note.noteClass != NOTE_CLASS_ACL) data.notes.push_back(ReadNote(db, note));
}

}  // namespace

DatabaseData ReadDatabase(const std::string& path) {
    if (path.size() >= MAXPATH) throw ToolError(path + ": the path is longer than the platform accepts");
    DbHandle db;
    Check(NSFDbOpen(PlatformPath(path).c_str(), db.out()), path + ": cannot open the database");
    DatabaseData data;
    try {
        ReadInfo(db.get(), data);
        ReadReplicaInfo(db.get(), data);
        ReadAcl(db.get(), data);
        ReadNotes(db.get(), data);
    } catch (const ToolError& error) {
        throw ToolError(path + ": " + error.what());
    }
    return data;
}

}  // namespace nsfdb
