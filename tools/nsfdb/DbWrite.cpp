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

// Messages are made only when needed (place() names the note): a database can have millions of
// notes.
template <typename Place>
void AppendItems(NOTEHANDLE note, const NoteData& data, const Place& place) {
    for (const ItemData& item : data.items) {
        STATUS status = NSFItemAppend(note, item.flags, item.name.data(), static_cast<WORD>(item.name.size()),
                                      item.type, item.value.data(), static_cast<DWORD>(item.value.size()));
        if (status) Check(status, place() + ".items." + LmbcsToUtf8Lossy(item.name) + ": cannot add the item");
    }
}

template <typename Place>
void WriteNote(DBHANDLE db, const NoteData& data, const Place& place) {
    if (data.noteId) {
        if (STATUS status = EmuDbSetNextNoteID(db, *data.noteId))
            Check(status, place() + ".noteId: " + NoteIdText(*data.noteId) +
                              " cannot be given (a note ID must be above every note ID the database has used)");
    }
    NoteHandle note;
    if (STATUS status = NSFNoteCreate(db, note.out())) Check(status, place() + ": cannot create the note");
    WORD noteClass = data.noteClass;
    NSFNoteSetInfo(note.get(), _NOTE_CLASS, &noteClass);
    if (data.unid) SetUnid(note.get(), *data.unid);
    AppendItems(note.get(), data, place);
    if (STATUS status = NSFNoteUpdate(note.get(), 0)) Check(status, place() + ": cannot save the note");
    NOTEID id = 0;
    NSFNoteGetInfo(note.get(), _NOTE_ID, &id);
    if (data.noteId && id != *data.noteId)
        throw ToolError(place() + ".noteId: the note was saved as " + NoteIdText(id) + ", not as " +
                        NoteIdText(*data.noteId));
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

DatabaseBuilder::DatabaseBuilder(std::string path, std::string source)
    : path_(std::move(path)), source_(std::move(source)) {}

DatabaseBuilder::~DatabaseBuilder() {
    if (db_) NSFDbClose(db_);
    if (!temporary_.empty()) Discard(temporary_);
}

void DatabaseBuilder::Begin(const DatabaseData& settings) {
    if (begun_) return;
    begun_ = true;
    if (Exists(path_)) throw ToolError(AlreadyExists(path_));
    struct stat folder;
    if (::stat(FolderOf(path_).c_str(), &folder) != 0 || !S_ISDIR(folder.st_mode))
        throw ToolError(path_ + ": the folder does not exist");
    std::string temporary = TemporaryPathBeside(path_);
    if (temporary.size() >= MAXPATH) throw ToolError(path_ + ": the path is longer than the platform accepts");
    Check(NSFDbCreate(PlatformPath(temporary).c_str(), DBCLASS_BY_EXTENSION, FALSE),
          path_ + ": cannot create the database");
    temporary_ = temporary;
    Check(NSFDbOpen(PlatformPath(temporary_).c_str(), &db_), "cannot open the new database");
    // Nothing else sees the file until it is published, so its changes need no flush each.
    Check(EmuDbBulkLoad(db_, TRUE), "cannot start writing the new database");
    WriteInfo(db_, settings, source_);
    WriteReplicaInfo(db_, settings);
    WriteAcl(db_, settings, source_);
    aclWritten_ = settings.acl.has_value();
}

void DatabaseBuilder::AddNote(const NoteData& note, size_t index) {
    WriteNote(db_, note, [&] { return source_ + ": notes[" + std::to_string(index) + "]"; });
}

void DatabaseBuilder::Finish(const DatabaseData& settings) {
    Begin(settings);
    // Settings that came after the notes in the JSON.
    WriteInfo(db_, settings, source_);
    WriteReplicaInfo(db_, settings);
    if (!aclWritten_) WriteAcl(db_, settings, source_);
    Check(EmuDbBulkLoad(db_, FALSE), "cannot write the new database");
    Check(NSFDbClose(db_), "cannot close the new database");
    db_ = NULLHANDLE;
    Publish(temporary_, path_);
    temporary_.clear();
}

void CreateDatabase(const std::string& path, const DatabaseData& data, const std::string& source) {
    DatabaseBuilder builder(path, source);
    builder.Begin(data);
    for (size_t i = 0; i < data.notes.size(); ++i)
        builder.AddNote(data.notes[i], i);
    builder.Finish(data);
}

}  // namespace nsfdb
