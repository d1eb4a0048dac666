// DatabaseData -> a new database.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "DbAccess.h"
#include "NotesSession.h"
#include "Values.h"

#include "global.h"
#include "names.h"
#include "acl.h"
#include "emu/notesemu.h"
#include "nsfdb.h"
#include "nsfnote.h"

namespace nsfdb {
namespace {

bool Exists(const std::string& path) {
    struct stat st;
    return ::lstat(path.c_str(), &st) == 0;
}

std::string AlreadyExists(const std::string& path) {
    return path + ": the file already exists (nsfdb never replaces a file)";
}

// Same folder (so the final link stays on one file system) and extension.
std::string TemporaryPathBeside(const std::string& path) {
    size_t slash = path.find_last_of('/');
    size_t dot = path.find_last_of('.');
    std::string extension = dot != std::string::npos && dot > slash ? path.substr(dot) : std::string();
    return path.substr(0, slash + 1) + ".nsfdb-" + std::to_string(::getpid()) + extension;
}

std::string InfoFieldOf(char* info, WORD what) {
    char field[NSF_INFO_SIZE] = {};
    NSFDbInfoParse(info, what, field, sizeof field);
    field[sizeof field - 1] = '\0';
    return field;
}

void WriteInfo(DBHANDLE db, const DatabaseData& data, const std::string& source) {
    char info[NSF_INFO_SIZE] = {};
    Check(NSFDbInfoGet(db, info), "cannot read the database information");
    info[NSF_INFO_SIZE - 1] = '\0';
    const struct {
        WORD what;
        const std::string& text;
    } fields[] = {{INFOPARSE_TITLE, data.title},
                  {INFOPARSE_CATEGORIES, data.categories},
                  {INFOPARSE_CLASS, data.templateName},
                  {INFOPARSE_DESIGN_CLASS, data.inheritFrom}};
    for (const auto& field : fields) NSFDbInfoModify(info, field.what, field.text.c_str());
    // The buffer holds NSF_INFO_SIZE - 1 bytes in all: whatever did not fit is cut.
    for (const auto& field : fields)
        if (InfoFieldOf(info, field.what) != field.text)
            throw ToolError(source +
                            ": title, categories, templateName and inheritFrom together take more than " +
                            std::to_string(NSF_INFO_SIZE - 1) + " bytes of database information");
    Check(NSFDbInfoSet(db, info), "cannot write the database information");
}

void WriteReplicaInfo(DBHANDLE db, const DatabaseData& data) {
    DBREPLICAINFO replica{};
    Check(NSFDbReplicaInfoGet(db, &replica), "cannot read the replica information");
    if (data.replicaId) replica.ID = *data.replicaId;
    replica.Flags = data.replicaFlags;
    replica.CutoffInterval = data.replicaCutoffInterval;
    replica.Cutoff = data.replicaCutoff;
    Check(NSFDbReplicaInfoSet(db, &replica), "cannot write the replica information");
    if (data.buildVersion)
        Check(EmuDbSetBuildVersion(db, *data.buildVersion), "cannot set the build version");
}

void WriteAcl(DBHANDLE db, const DatabaseData& data, const std::string& source) {
    if (!data.acl) return;
    MemoryHandle acl;
    Check(ACLCreate(acl.out()), "cannot create an ACL");
    for (size_t i = 0; i < data.acl->size(); ++i) {
        AclEntryData entry = (*data.acl)[i];
        Check(ACLAddEntry(acl.get(), entry.name.c_str(), entry.level, &entry.privileges, entry.flags),
              source + ": acl[" + std::to_string(i) + "]: cannot add the entry");
    }
    Check(NSFDbStoreACL(db, acl.get(), 0, 1), "cannot store the ACL");
}

void SetUnid(NOTEHANDLE note, const UNID& unid) {
    ORIGINATORID oid{};
    NSFNoteGetInfo(note, _NOTE_OID, &oid);
    std::memcpy(&oid, &unid, sizeof unid);  // the OID begins with the UNID
    NSFNoteSetInfo(note, _NOTE_OID, &oid);
}

void AppendItems(NOTEHANDLE note, const NoteData& data, const std::string& place) {
    for (const ItemData& item : data.items)
        Check(NSFItemAppend(note, item.flags, item.name.data(), static_cast<WORD>(item.name.size()),
                            item.type, item.value.data(), static_cast<DWORD>(item.value.size())),
              place + ".items." + LmbcsToUtf8Lossy(item.name) + ": cannot add the item");
}

void WriteNote(DBHANDLE db, const NoteData& data, const std::string& place) {
    if (data.noteId)
        Check(EmuDbSetNextNoteID(db, *data.noteId),
              place + ".noteId: " + NoteIdText(*data.noteId) +
                  " cannot be given (a note ID must be above every note ID the database has used)");
    NoteHandle note;
    Check(NSFNoteCreate(db, note.out()), place + ": cannot create the note");
    WORD noteClass = data.noteClass;
    NSFNoteSetInfo(note.get(), _NOTE_CLASS, &noteClass);
    if (data.unid) SetUnid(note.get(), *data.unid);
    AppendItems(note.get(), data, place);
    Check(NSFNoteUpdate(note.get(), 0), place + ": cannot save the note");
    NOTEID id = 0;
    NSFNoteGetInfo(note.get(), _NOTE_ID, &id);
    if (data.noteId && id != *data.noteId)
        throw ToolError(place + ".noteId: the note was saved as " + NoteIdText(id) + ", not as " +
                        NoteIdText(*data.noteId));
}

void WriteContent(const std::string& path, const DatabaseData& data, const std::string& source) {
    DbHandle db;
    Check(NSFDbOpen(PlatformPath(path).c_str(), db.out()), "cannot open the new database");
    WriteInfo(db.get(), data, source);
    WriteReplicaInfo(db.get(), data);
    WriteAcl(db.get(), data, source);
    for (size_t i = 0; i < data.notes.size(); ++i)
        WriteNote(db.get(), data.notes[i], source + ": notes[" + std::to_string(i) + "]");
}

// Gives the finished database its name. A hard link fails rather than
// replace a file that appeared meanwhile.
void Publish(const std::string& temporary, const std::string& path) {
    if (::link(temporary.c_str(), path.c_str()) == 0) {
        ::unlink(temporary.c_str());
        return;
    }
    int error = errno;
    if (error == EEXIST) throw ToolError(AlreadyExists(path));
    // File systems without hard links.
    if (Exists(path)) throw ToolError(AlreadyExists(path));
    if (::rename(temporary.c_str(), path.c_str()) != 0)
        throw ToolError(path + ": cannot create the file: " + std::strerror(error));
}

void Discard(const std::string& temporary) {
    std::string lmbcs;
    if (!Utf8ToLmbcs(temporary, lmbcs) || NSFDbDelete(lmbcs.c_str()) != NOERROR) ::unlink(temporary.c_str());
}

}  // namespace

void CreateDatabase(const std::string& path, const DatabaseData& data, const std::string& source) {
    if (Exists(path)) throw ToolError(AlreadyExists(path));
    struct stat folder;
    if (::stat(FolderOf(path).c_str(), &folder) != 0 || !S_ISDIR(folder.st_mode))
        throw ToolError(path + ": the folder does not exist");
    std::string temporary = TemporaryPathBeside(path);
    if (temporary.size() >= MAXPATH) throw ToolError(path + ": the path is longer than the platform accepts");
    Check(NSFDbCreate(PlatformPath(temporary).c_str(), DBCLASS_BY_EXTENSION, FALSE),
          path + ": cannot create the database");
    try {
        WriteContent(temporary, data, source);
        Publish(temporary, path);
    } catch (...) {
        Discard(temporary);
        throw;
    }
}

}  // namespace nsfdb
