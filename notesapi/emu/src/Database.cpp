// Databases: create, open, close, copy, information buffer, replica
// information, note copies between databases and note look-ups.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "Acl.h"
#include "Emu.h"
#include "Server.h"
#include "Store.h"

namespace emu {
namespace {

bool IsDirectory(const std::string& path) {
	struct stat st;
	return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// The file a Notes path names: ".nsf" may be left out of the path.
std::string DatabaseFile(const char* notesPath) {
	std::string path = ResolveApiPath(notesPath);
	if (!PathExists(path) && !HasExtension(path) && PathExists(path + ".nsf")) path += ".nsf";
	return path;
}

void MakeParentFolders(const std::string& path) {
	for (size_t slash = path.find('/', 1); slash != std::string::npos; slash = path.find('/', slash + 1))
		::mkdir(path.substr(0, slash).c_str(), 0755);
}

DBREPLICAINFO NewReplicaInfo() {
	DBREPLICAINFO info{};
	TIMEDATE now = Now();
	info.ID.Innards[0] = static_cast<DWORD>(RandomWord64());
	info.ID.Innards[1] = now.Innards[1];
	return info;
}

DbSettings NewSettings() {
	DbSettings settings;
	settings.dbid = Now();
	settings.replica = NewReplicaInfo();
	settings.buildVersion = kDefaultBuildVersion;
	settings.nextNoteId = kFirstNoteId;
	return settings;
}

STATUS OpenHandle(const std::string& path, DBHANDLE* rethDB) {
	std::shared_ptr<DbFile> file;
	if (STATUS s = DbFile::Open(path, file)) return s;
	auto db = std::make_unique<DatabaseObject>();
	db->file = std::move(file);
	*rethDB = AddDatabase(std::move(db));
	return NOERROR;
}

STATUS FindFile(DBHANDLE hDB, const char* call, DbFile*& file) {
	DatabaseObject* db;
	if (STATUS s = FindDatabase(hDB, db)) return s;
	if (STATUS s = CheckCall(call, db->file->path())) return s;
	file = db->file.get();
	return NOERROR;
}

// For calls about one note: the call guard also sees the note's UNID.
STATUS FindFileForNote(DBHANDLE hDB, const char* call, NOTEID noteId, DbFile*& file) {
	DatabaseObject* db;
	if (STATUS s = FindDatabase(hDB, db)) return s;
	StoredNote note;
	bool known = db->file->ReadNote(noteId, false, note) == NOERROR;
	UNID unid = UnidOf(note.oid);
	if (STATUS s = CheckCall(call, db->file->path(), known ? &unid : nullptr)) return s;
	file = db->file.get();
	return NOERROR;
}

// ---- Information buffer --------------------------------------------------------
// "Title\nCategories\n#1TemplateName\n#2InheritedTemplateName", the fields
// after the title only as far as they are set.

struct InfoFields {
	std::string title, categories, templateName, designTemplate;
};

InfoFields ParseInfo(const char* info) {
	InfoFields fields;
	std::string text(info, strnlen(info, NSF_INFO_SIZE));
	std::vector<std::string> lines;
	for (size_t start = 0;;) {
		size_t nl = text.find('\n', start);
		lines.push_back(text.substr(start, nl == std::string::npos ? std::string::npos : nl - start));
		if (nl == std::string::npos) break;
		start = nl + 1;
	}
	fields.title = lines[0];
	for (size_t i = 1; i < lines.size(); ++i) {
		const std::string& line = lines[i];
		if (line.compare(0, 2, "#1") == 0) fields.templateName = line.substr(2);
		else if (line.compare(0, 2, "#2") == 0) fields.designTemplate = line.substr(2);
		else if (i == 1) fields.categories = line;
	}
	return fields;
}

std::string FormatInfo(const InfoFields& fields) {
	std::string text = fields.title;
	if (!fields.categories.empty() || !fields.templateName.empty() || !fields.designTemplate.empty())
		text += "\n" + fields.categories;
	if (!fields.templateName.empty() || !fields.designTemplate.empty()) text += "\n#1" + fields.templateName;
	if (!fields.designTemplate.empty()) text += "\n#2" + fields.designTemplate;
	if (text.size() > NSF_INFO_SIZE - 1) text.resize(NSF_INFO_SIZE - 1);
	return text;
}

std::string* FieldOf(InfoFields& fields, WORD what) {
	switch (what) {
	case INFOPARSE_TITLE: return &fields.title;
	case INFOPARSE_CATEGORIES: return &fields.categories;
	case INFOPARSE_CLASS: return &fields.templateName;
	case INFOPARSE_DESIGN_CLASS: return &fields.designTemplate;
	default: return nullptr;
	}
}

// Copies a note row into another file. Between replicas the note keeps its
// originator ID (and replaces the destination's note of that UNID); otherwise
// it becomes a new note with a new originator ID.
STATUS CopyNoteBetween(DbFile& source, NOTEID sourceId, DbFile& target, bool replicas, NOTEID* retId,
                       WORD* retClass) {
	StoredNote note;
	if (STATUS s = source.ReadNote(sourceId, true, note)) return s;
	if (note.deleted) return ERR_NOTE_DELETED;
	if (!replicas) {
		note.oid = NewOid();
		note.oid.Sequence = 1;
		note.modified = note.oid.SequenceTime;
	}
	note.added = Now();
	Transaction tx(target);
	if (tx.status()) return tx.status();
	if (STATUS s = PutNewNote(target, note, true)) return s;
	if (STATUS s = tx.Commit()) return s;
	if (retId) *retId = note.id;
	if (retClass) *retClass = note.noteClass;
	return NOERROR;
}

STATUS CopyAllNotes(DbFile& source, DbFile& target, WORD classMask) {
	std::vector<NOTEID> ids;
	if (STATUS s = source.NoteIdsOfClass(classMask, ids)) return s;
	for (NOTEID id : ids) {
		StoredNote note;
		if (STATUS s = source.ReadNote(id, true, note)) return s;
		note.added = Now();
		if (STATUS s = PutNewNote(target, note, true)) return s;
	}
	return NOERROR;
}

bool SameReplicaId(DbFile& a, DbFile& b) {
	DbSettings sa, sb;
	if (a.ReadSettings(sa) || b.ReadSettings(sb)) return false;
	return std::memcmp(&sa.replica.ID, &sb.replica.ID, sizeof(TIMEDATE)) == 0;
}

const struct {
	WORD build;
	DWORD major, minor, maintenance;
} kBuilds[] = {{166, 5, 0, 0},  {190, 6, 0, 0},  {400, 9, 0, 0},  {405, 9, 0, 1},  {450, 10, 0, 0},
               {451, 11, 0, 0}, {452, 11, 0, 1}, {461, 12, 0, 0}, {470, 12, 0, 1}, {475, 12, 0, 2},
               {485, 14, 0, 0}, {495, 14, 5, 0}};

}  // namespace
}  // namespace emu

using namespace emu;

STATUS LNPUBLIC NSFDbCreate(const char far* PathName, USHORT /*DbClass*/, BOOL ForceCreation) {
	ApiLock lock(ApiMutex());
	if (!PathName || !*PathName) return ERR_INV_FILE_NAME;
	std::string path = ResolveApiPath(PathName);
	if (STATUS s = CheckCall("NSFDbCreate", path)) return s;
	if (IsDirectory(path)) return ERR_DIRECTORY;
	if (PathExists(path)) {
		if (!ForceCreation) return ERR_EXISTS;
		if (DbFile::IsOpen(path)) return ERR_NSF_IN_USE;
		if (::unlink(path.c_str()) != 0) return ERR_PROTECTED;
	}
	MakeParentFolders(path);
	if (STATUS s = DbFile::Create(path, NewSettings())) return s;
	MarkOnline(path);
	std::shared_ptr<DbFile> file;
	if (STATUS s = DbFile::Open(path, file)) return s;
	return WriteDefaultAcl(*file);
}

STATUS LNPUBLIC NSFDbDelete(const char far* PathName) {
	ApiLock lock(ApiMutex());
	if (!PathName || !*PathName) return ERR_INV_FILE_NAME;
	std::string path = DatabaseFile(PathName);
	if (STATUS s = CheckCall("NSFDbDelete", path)) return s;
	if (!PathExists(path)) return ERR_NOEXIST;
	if (DbFile::IsOpen(path)) return ERR_NSF_IN_USE;
	return ::unlink(path.c_str()) == 0 ? NOERROR : ERR_PROTECTED;
}

STATUS LNPUBLIC NSFDbOpen(const char far* PathName, DBHANDLE far* rethDB) {
	ApiLock lock(ApiMutex());
	if (!rethDB) return ERR_OS_NULL_HANDLE;
	*rethDB = NULLHANDLE;
	if (!PathName || !*PathName) return ERR_DIRECTORY;
	std::string path = DatabaseFile(PathName);
	if (STATUS s = CheckCall("NSFDbOpen", path)) return s;
	if (IsDirectory(path)) return ERR_DIRECTORY;
	if (IsOffline(path)) return ERR_DB_OFFLINE;
	return OpenHandle(path, rethDB);
}

STATUS LNPUBLIC NSFDbClose(DBHANDLE hDB) {
	ApiLock lock(ApiMutex());
	DbFile* file;
	if (STATUS s = FindFile(hDB, "NSFDbClose", file)) return s;
	ReleaseHandle(hDB);
	return NOERROR;
}

STATUS LNPUBLIC NSFDbCreateAndCopy(const char far* srcDb, const char far* dstDb, WORD NoteClass, WORD /*limit*/,
                                   DWORD flags, DBHANDLE far* retHandle) {
	ApiLock lock(ApiMutex());
	if (retHandle) *retHandle = NULLHANDLE;
	if (!srcDb || !dstDb || !*srcDb || !*dstDb) return ERR_INV_FILE_NAME;
	std::string sourcePath = DatabaseFile(srcDb);
	std::string targetPath = ResolveApiPath(dstDb);
	if (STATUS s = CheckCall("NSFDbCreateAndCopy", targetPath)) return s;
	if (STATUS s = CheckCall("NSFDbCreateAndCopy", sourcePath)) return s;
	if (PathExists(targetPath)) return ERR_EXISTS;
	if (IsOffline(sourcePath)) return ERR_DB_OFFLINE;
	std::shared_ptr<DbFile> source;
	if (STATUS s = DbFile::Open(sourcePath, source)) return s;
	DbSettings settings;
	if (STATUS s = source->ReadSettings(settings)) return s;
	settings.dbid = Now();
	settings.nextNoteId = kFirstNoteId;
	if (!(flags & DBCOPY_REPLICA)) settings.replica.ID = NewReplicaInfo().ID;
	MakeParentFolders(targetPath);
	if (STATUS s = DbFile::Create(targetPath, settings)) return s;
	std::shared_ptr<DbFile> target;
	STATUS status = DbFile::Open(targetPath, target);
	if (status == NOERROR) {
		Transaction tx(*target);
		status = tx.status();
		if (!status) status = CopyAllNotes(*source, *target, static_cast<WORD>(NoteClass & ~NOTE_CLASS_ACL));
		if (!status && !(flags & DBCOPY_NO_ACL)) status = CopyAllNotes(*source, *target, NOTE_CLASS_ACL);
		if (!status) status = tx.Commit();
	}
	if (status == NOERROR && (flags & DBCOPY_NO_ACL)) status = WriteDefaultAcl(*target);
	if (status != NOERROR) {
		target.reset();
		::unlink(targetPath.c_str());
		return status;
	}
	MarkOnline(targetPath);
	if (!retHandle) return NOERROR;
	return OpenHandle(targetPath, retHandle);
}

STATUS LNPUBLIC NSFDbInfoGet(DBHANDLE hDB, char far* retBuffer) {
	ApiLock lock(ApiMutex());
	DbFile* file;
	if (STATUS s = FindFile(hDB, "NSFDbInfoGet", file)) return s;
	if (!retBuffer) return ERR_UNKNOWN;
	DbSettings settings;
	if (STATUS s = file->ReadSettings(settings)) return s;
	size_t n = std::min(settings.info.size(), static_cast<size_t>(NSF_INFO_SIZE - 1));
	std::memcpy(retBuffer, settings.info.data(), n);
	retBuffer[n] = '\0';
	return NOERROR;
}

STATUS LNPUBLIC NSFDbInfoSet(DBHANDLE hDB, char far* Buffer) {
	ApiLock lock(ApiMutex());
	DbFile* file;
	if (STATUS s = FindFile(hDB, "NSFDbInfoSet", file)) return s;
	if (!Buffer) return ERR_UNKNOWN;
	DbSettings settings;
	if (STATUS s = file->ReadSettings(settings)) return s;
	settings.info.assign(Buffer, strnlen(Buffer, NSF_INFO_SIZE - 1));
	return file->WriteSettings(settings);
}

void LNPUBLIC NSFDbInfoParse(char far* Info, WORD What, char far* Buffer, WORD Length) {
	ApiLock lock(ApiMutex());
	if (CheckCall("NSFDbInfoParse") || !Info || !Buffer || Length == 0) return;
	InfoFields fields = ParseInfo(Info);
	const std::string* field = FieldOf(fields, What);
	size_t n = field ? std::min(field->size(), static_cast<size_t>(Length - 1)) : 0;
	if (n) std::memcpy(Buffer, field->data(), n);
	Buffer[n] = '\0';
}

void LNPUBLIC NSFDbInfoModify(char far* Info, WORD What, const char far* Buffer) {
	ApiLock lock(ApiMutex());
	if (CheckCall("NSFDbInfoModify") || !Info || !Buffer) return;
	InfoFields fields = ParseInfo(Info);
	std::string* field = FieldOf(fields, What);
	if (!field) return;
	field->assign(Buffer, strnlen(Buffer, NSF_INFO_SIZE - 1));
	// A field cannot hold the line separator.
	field->erase(std::remove(field->begin(), field->end(), '\n'), field->end());
	std::string text = FormatInfo(fields);
	std::memcpy(Info, text.c_str(), text.size() + 1);
}

STATUS LNPUBLIC NSFDbReplicaInfoGet(DBHANDLE hDB, DBREPLICAINFO far* retReplicationInfo) {
	ApiLock lock(ApiMutex());
	DbFile* file;
	if (STATUS s = FindFile(hDB, "NSFDbReplicaInfoGet", file)) return s;
	if (!retReplicationInfo) return ERR_UNKNOWN;
	DbSettings settings;
	if (STATUS s = file->ReadSettings(settings)) return s;
	*retReplicationInfo = settings.replica;
	return NOERROR;
}

STATUS LNPUBLIC NSFDbReplicaInfoSet(DBHANDLE hDB, DBREPLICAINFO far* ReplicationInfo) {
	ApiLock lock(ApiMutex());
	DbFile* file;
	if (STATUS s = FindFile(hDB, "NSFDbReplicaInfoSet", file)) return s;
	if (!ReplicationInfo) return ERR_UNKNOWN;
	DbSettings settings;
	if (STATUS s = file->ReadSettings(settings)) return s;
	settings.replica = *ReplicationInfo;
	return file->WriteSettings(settings);
}

STATUS LNPUBLIC NSFDbIDGet(DBHANDLE hDB, DBID far* retDbID) {
	ApiLock lock(ApiMutex());
	DbFile* file;
	if (STATUS s = FindFile(hDB, "NSFDbIDGet", file)) return s;
	DbSettings settings;
	if (STATUS s = file->ReadSettings(settings)) return s;
	if (retDbID) *retDbID = settings.dbid;
	return NOERROR;
}

STATUS LNPUBLIC NSFDbGetBuildVersion(DBHANDLE hDB, WORD far* retVersion) {
	ApiLock lock(ApiMutex());
	DbFile* file;
	if (STATUS s = FindFile(hDB, "NSFDbGetBuildVersion", file)) return s;
	DbSettings settings;
	if (STATUS s = file->ReadSettings(settings)) return s;
	if (retVersion) *retVersion = settings.buildVersion;
	return NOERROR;
}

STATUS LNPUBLIC NSFDbGetMajMinVersion(DBHANDLE hDb, BUILDVERSION far* retBuildVersion) {
	ApiLock lock(ApiMutex());
	DbFile* file;
	if (STATUS s = FindFile(hDb, "NSFDbGetMajMinVersion", file)) return s;
	DbSettings settings;
	if (STATUS s = file->ReadSettings(settings)) return s;
	if (!retBuildVersion) return NOERROR;
	std::memset(retBuildVersion, 0, sizeof *retBuildVersion);
	for (const auto& entry : kBuilds)
		if (entry.build <= settings.buildVersion) {
			retBuildVersion->MajorVersion = entry.major;
			retBuildVersion->MinorVersion = entry.minor;
			retBuildVersion->QMRNumber = entry.maintenance;
		}
	return NOERROR;
}

STATUS LNPUBLIC NSFDbGenerateOID(DBHANDLE hDB, OID far* retOID) {
	ApiLock lock(ApiMutex());
	DbFile* file;
	if (STATUS s = FindFile(hDB, "NSFDbGenerateOID", file)) return s;
	if (!retOID) return ERR_UNKNOWN;
	*retOID = NewOid();
	return NOERROR;
}

STATUS LNPUBLIC NSFDbCopyNote(DBHANDLE hSrcDB, DBID far* /*SrcDbID*/, DBID far* SrcReplicaID, NOTEID SrcNoteID,
                              DBHANDLE hDstDB, DBID far* /*DstDbID*/, DBID far* DstReplicaID,
                              NOTEID far* retDstNoteID, WORD far* retNoteClass) {
	ApiLock lock(ApiMutex());
	DbFile* source;
	DbFile* target;
	if (STATUS s = FindFileForNote(hSrcDB, "NSFDbCopyNote", SrcNoteID, source)) return s;
	if (STATUS s = FindFile(hDstDB, "NSFDbCopyNote", target)) return s;
	bool replicas = SrcReplicaID && DstReplicaID
	                    ? std::memcmp(SrcReplicaID, DstReplicaID, sizeof(DBID)) == 0
	                    : SameReplicaId(*source, *target);
	return CopyNoteBetween(*source, SrcNoteID, *target, replicas, retDstNoteID, retNoteClass);
}

STATUS LNPUBLIC NSFDbGetNoteInfo(DBHANDLE hDB, NOTEID NoteID, OID far* retNoteOID, TIMEDATE far* retModified,
                                 WORD far* retNoteClass) {
	ApiLock lock(ApiMutex());
	DbFile* file;
	if (STATUS s = FindFileForNote(hDB, "NSFDbGetNoteInfo", NoteID, file)) return s;
	StoredNote note;
	if (STATUS s = file->ReadNote(NoteID, false, note)) return s;
	if (retNoteOID) *retNoteOID = note.oid;
	if (retModified) *retModified = note.modified;
	if (retNoteClass) *retNoteClass = note.noteClass;
	return note.deleted ? ERR_NOTE_DELETED : NOERROR;
}

STATUS LNPUBLIC NSFDbGetNoteInfoByUNID(DBHANDLE hDB, UNID far* pUNID, NOTEID far* retNoteID, OID far* retOID,
                                       TIMEDATE far* retModTime, WORD far* retClass) {
	ApiLock lock(ApiMutex());
	DatabaseObject* db;
	if (STATUS s = FindDatabase(hDB, db)) return s;
	if (STATUS s = CheckCall("NSFDbGetNoteInfoByUNID", db->file->path(), pUNID)) return s;
	DbFile* file = db->file.get();
	if (!pUNID) return ERR_NOT_FOUND;
	NOTEID id;
	bool deleted;
	if (STATUS s = file->FindUnid(*pUNID, id, deleted)) return s;
	StoredNote note;
	if (STATUS s = file->ReadNote(id, false, note)) return s;
	if (retNoteID) *retNoteID = deleted ? (id | RRV_DELETED) : id;
	if (retOID) *retOID = note.oid;
	if (retModTime) *retModTime = note.modified;
	if (retClass) *retClass = note.noteClass;
	return NOERROR;
}

STATUS LNPUBLIC NSFDbGetSpecialNoteID(DBHANDLE hDB, WORD Index, NOTEID far* retNoteID) {
	ApiLock lock(ApiMutex());
	DbFile* file;
	if (STATUS s = FindFile(hDB, "NSFDbGetSpecialNoteID", file)) return s;
	std::vector<NOTEID> ids;
	WORD noteClass = static_cast<WORD>(Index & ~SPECIAL_ID_NOTE);
	if (noteClass == 0) return ERR_NOT_FOUND;
	if (STATUS s = file->NoteIdsOfClass(noteClass, ids)) return s;
	if (ids.empty()) return ERR_NOT_FOUND;
	if (retNoteID) *retNoteID = ids.front();
	return NOERROR;
}

STATUS LNPUBLIC NSFDbPathGet(DBHANDLE hDB, char far* retCanonicalPathName, char far* retExpandedPathName) {
	ApiLock lock(ApiMutex());
	DbFile* file;
	if (STATUS s = FindFile(hDB, "NSFDbPathGet", file)) return s;
	const std::string& full = file->path();
	std::string dataDir = DataDirectory() + "/";
	std::string canonical = full.compare(0, dataDir.size(), dataDir) == 0 ? full.substr(dataDir.size()) : full;
	auto put = [](const std::string& text, char* out) {
		if (!out) return;
		size_t n = std::min(text.size(), static_cast<size_t>(MAXPATH - 1));
		std::memcpy(out, text.data(), n);
		out[n] = '\0';
	};
	put(canonical, retCanonicalPathName);
	put(full, retExpandedPathName);
	return NOERROR;
}

STATUS LNPUBLIC NSFDbModeGet(DBHANDLE hDB, USHORT far* retMode) {
	ApiLock lock(ApiMutex());
	DbFile* file;
	if (STATUS s = FindFile(hDB, "NSFDbModeGet", file)) return s;
	if (retMode) *retMode = DB_LOADED;
	return NOERROR;
}

// ---- Emulator extensions ----------------------------------------------------------

STATUS LNPUBLIC EmuDbSetBuildVersion(DBHANDLE hDB, WORD version) {
	ApiLock lock(ApiMutex());
	DbFile* file;
	if (STATUS s = FindFile(hDB, "EmuDbSetBuildVersion", file)) return s;
	DbSettings settings;
	if (STATUS s = file->ReadSettings(settings)) return s;
	settings.buildVersion = version;
	return file->WriteSettings(settings);
}

STATUS LNPUBLIC EmuDbBulkLoad(DBHANDLE hDB, BOOL on) {
	ApiLock lock(ApiMutex());
	DbFile* file;
	if (STATUS s = FindFile(hDB, "EmuDbBulkLoad", file)) return s;
	return file->SetBulkLoad(on != FALSE);
}

STATUS LNPUBLIC EmuDbSetNextNoteID(DBHANDLE hDB, NOTEID nextNoteID) {
	ApiLock lock(ApiMutex());
	DbFile* file;
	if (STATUS s = FindFile(hDB, "EmuDbSetNextNoteID", file)) return s;
	NOTEID lowest = 0;
	if (STATUS s = file->LowestSettableNextId(lowest)) return s;
	// IDs are never reused: the counter only moves forward.
	if (nextNoteID < lowest || (nextNoteID & NOTEID_RESERVED)) return ERR_NOTE_ID;
	return file->SetNextNoteId(nextNoteID);
}
