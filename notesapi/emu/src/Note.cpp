// Notes: open, create, copy, save, delete, header fields, signing.
#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "Emu.h"
#include "Store.h"

namespace emu {
namespace {

// Total size of the summary items a note may carry.
constexpr size_t kMaxSummarySize = 32 * 1024;

DWORD NextSequence(DWORD current, DWORD stored) {
	DWORD number = std::max(current & OID_SEQNO_MASK, stored & OID_SEQNO_MASK);
	return (current & ~static_cast<DWORD>(OID_SEQNO_MASK)) | ((number + 1) & OID_SEQNO_MASK);
}

size_t SummarySize(const std::vector<Item>& items) {
	size_t total = 0;
	for (const Item& item : items)
		if (item.flags & ITEM_SUMMARY) total += item.name.size() + item.block->size();
	return total;
}

STATUS FindNoteAndFile(HANDLE hNote, const char* call, NoteObject*& note, DbFile*& file) {
	if (STATUS s = FindNote(hNote, note)) return s;
	DatabaseObject* db;
	if (STATUS s = FindDatabase(note->db, db)) return s;
	UNID unid = UnidOf(note->oid);
	if (STATUS s = CheckCall(call, db->file->path(), &unid)) return s;
	file = db->file.get();
	return NOERROR;
}

// call names the API function for the call guard; NULL when the caller has asked it already.
STATUS OpenNote(const char* call, DBHANDLE hDB, NOTEID noteId, DWORD flags, NOTEHANDLE* rethNote) {
	if (rethNote) *rethNote = NULLHANDLE;
	DatabaseObject* db;
	if (STATUS s = FindDatabase(hDB, db)) return s;
	DbFile& file = *db->file;
	if ((noteId & NOTE_ID_SPECIAL) == NOTE_ID_SPECIAL) {
		std::vector<NOTEID> ids;
		if (STATUS s = file.NoteIdsOfClass(static_cast<WORD>(noteId & ~NOTE_ID_SPECIAL), ids)) return s;
		if (ids.empty()) return ERR_INVALID_NOTE;
		noteId = ids.front();
	}
	StoredNote stored;
	STATUS s = file.ReadNote(noteId, true, stored);
	UNID unid = UnidOf(stored.oid);
	if (call)
		if (STATUS c = CheckCall(call, file.path(), s == NOERROR ? &unid : nullptr)) return c;
	if (s) return s;
	if (stored.deleted) return ERR_NOTE_DELETED;
	if (!rethNote) return ERR_OS_NULL_HANDLE;
	auto note = std::make_unique<NoteObject>();
	note->db = hDB;
	note->id = stored.id;
	note->oid = stored.oid;
	note->noteClass = stored.noteClass;
	note->flags = stored.flags;
	note->modified = stored.modified;
	note->accessed = Now();
	note->addedToFile = stored.added;
	note->loadedSequence = stored.oid.Sequence;
	note->items = std::move(stored.items);
	if (flags & OPEN_SUMMARY)
		note->items.erase(std::remove_if(note->items.begin(), note->items.end(),
		                                 [](const Item& i) { return !(i.flags & ITEM_SUMMARY); }),
		                  note->items.end());
	if (flags & OPEN_EXPAND) ExpandItems(note->items);
	*rethNote = AddNote(std::move(note));
	return NOERROR;
}

// Writes an in-memory note to its database. Nothing in the note changes
// unless the whole write succeeds.
STATUS SaveNote(NoteObject& note, DbFile& file, DWORD flags) {
	if (SummarySize(note.items) > kMaxSummarySize) return ERR_SUMMARY_TOO_BIG;
	bool isNew = note.id == NOTEID_ADD || note.id == NOTEID_ADD_OR_REPLACE || note.id == NOTEID_ADD_UNID;
	// An existing note is written with one statement; a new one may take several.
	Transaction tx(file, !isNew);
	if (tx.status()) return tx.status();
	TIMEDATE now = Now();
	StoredNote record;
	record.oid = note.oid;
	record.noteClass = note.noteClass;
	record.flags = note.flags;
	record.items = note.items;
	DWORD storedSequence = 0;
	bool sameUnid = false;
	if (isNew) {
		record.added = now;
		NOTEID existing = 0;
		bool deleted = false;
		// A plain add needs no look-up here: the store refuses a UNID a live note has.
		STATUS found = note.id == NOTEID_ADD ? ERR_NOT_FOUND : file.FindUnid(UnidOf(record.oid), existing, deleted);
		if (found == NOERROR && !deleted && note.id == NOTEID_ADD_UNID) {
			ORIGINATORID fresh = NewOid();
			record.oid.File = fresh.File;
			record.oid.Note = fresh.Note;
		} else if (found == NOERROR && !deleted && note.id == NOTEID_ADD_OR_REPLACE) {
			StoredNote old;
			if (STATUS s = file.ReadNote(existing, false, old)) return s;
			storedSequence = old.oid.Sequence;
			record.added = old.added;
		} else if (found != NOERROR && found != ERR_NOT_FOUND) {
			return found;
		}
	} else {
		StoredNote stored;
		if (STATUS s = file.ReadNote(note.id, false, stored)) return s;
		if (stored.deleted) return ERR_NOTE_DELETED;
		if (!(flags & UPDATE_FORCE) &&
		    (stored.oid.Sequence & OID_SEQNO_MASK) != (note.loadedSequence & OID_SEQNO_MASK))
			return ERR_CONFLICT;
		UNID storedUnid = UnidOf(stored.oid), unid = UnidOf(record.oid);
		sameUnid = std::memcmp(&storedUnid, &unid, sizeof(UNID)) == 0;
		NOTEID owner;
		bool deleted;
		if (!sameUnid && file.FindUnid(unid, owner, deleted) == NOERROR && owner != note.id)
			return ERR_CONFLICT;  // the note was given the UNID of another note
		storedSequence = stored.oid.Sequence;
		record.added = stored.added;
		record.id = note.id;
	}
	if (!(flags & UPDATE_NOREVISION) || isNew) record.oid.Sequence = NextSequence(record.oid.Sequence, storedSequence);
	record.oid.SequenceTime = now;
	record.modified = now;
	// A new note whose UNID a live note already has: NSFNoteUpdate with
	// NOTEID_ADD fails (ERR_CONFLICT); a deletion stub of that UNID gives way.
	STATUS s = isNew      ? PutNewNote(file, record, note.id == NOTEID_ADD_OR_REPLACE)
	           : sameUnid ? file.RewriteNote(record)
	                      : file.WriteNote(record);
	if (s) return s;
	if (STATUS c = tx.Commit()) return c;
	note.id = record.id;
	note.oid = record.oid;
	note.modified = record.modified;
	note.addedToFile = record.added;
	note.loadedSequence = record.oid.Sequence;
	return NOERROR;
}

STATUS DeleteNote(DbFile& file, NOTEID noteId, WORD flags) {
	StoredNote stored;
	if (STATUS s = file.ReadNote(noteId, false, stored)) return s;
	UNID unid = UnidOf(stored.oid);
	if (STATUS s = CheckCall("NSFNoteDelete", file.path(), &unid)) return s;
	if (stored.deleted) return ERR_NOTE_DELETED;
	Transaction tx(file, true);
	if (tx.status()) return tx.status();
	STATUS s;
	if (flags & UPDATE_NOSTUB) {
		s = file.DeleteRow(noteId);
	} else {
		stored.oid.Sequence = NextSequence(stored.oid.Sequence, 0);
		stored.oid.SequenceTime = Now();
		stored.modified = stored.oid.SequenceTime;
		s = file.WriteStub(stored);
	}
	if (s) return s;
	return tx.Commit();
}

std::unique_ptr<NoteObject> CopyOf(const NoteObject& source) {
	auto copy = std::make_unique<NoteObject>(source);
	for (Item& item : copy->items) {
		item.block = std::make_shared<Bytes>(*item.block);
		item.pool = NULLHANDLE;
	}
	return copy;
}

void MoveToDatabase(HANDLE hNote, NoteObject& note, DBHANDLE target) {
	DatabaseObject* from;
	DatabaseObject* to;
	if (FindDatabase(target, to) != NOERROR) return;
	if (FindDatabase(note.db, from) == NOERROR) from->notes.erase(hNote);
	to->notes.insert(hNote);
	note.db = target;
}

template <typename T>
void Put(void* out, const T& value) {
	std::memcpy(out, &value, sizeof(T));
}

template <typename T>
T Get(const void* in) {
	T value;
	if (in) std::memcpy(&value, in, sizeof(T));
	else std::memset(&value, 0, sizeof(T));
	return value;
}

}  // namespace
}  // namespace emu

using namespace emu;

STATUS LNPUBLIC NSFNoteOpen(DBHANDLE hDB, NOTEID NoteID, WORD OpenFlags, NOTEHANDLE far* rethNote) {
	ApiLock lock(ApiMutex());
	return OpenNote("NSFNoteOpen", hDB, NoteID, OpenFlags, rethNote);
}

STATUS LNPUBLIC NSFNoteOpenExt(DBHANDLE hDB, NOTEID NoteID, DWORD flags, NOTEHANDLE* rethNote) {
	ApiLock lock(ApiMutex());
	return OpenNote("NSFNoteOpenExt", hDB, NoteID, flags, rethNote);
}

STATUS LNPUBLIC NSFNoteOpenByUNID(DBHANDLE hDB, UNID far* pUNID, WORD flags, NOTEHANDLE far* rethNote) {
	ApiLock lock(ApiMutex());
	if (rethNote) *rethNote = NULLHANDLE;
	DatabaseObject* db;
	if (STATUS s = FindDatabase(hDB, db)) return s;
	if (STATUS s = CheckCall("NSFNoteOpenByUNID", db->file->path(), pUNID)) return s;
	if (!pUNID) return ERR_NOT_FOUND;
	NOTEID id;
	bool deleted;
	if (STATUS s = db->file->FindUnid(*pUNID, id, deleted)) return s;
	if (deleted) return ERR_NOTE_DELETED;
	return OpenNote(nullptr, hDB, id, flags, rethNote);
}

STATUS LNPUBLIC NSFNoteCreate(DBHANDLE hDB, NOTEHANDLE far* rethNote) {
	ApiLock lock(ApiMutex());
	if (rethNote) *rethNote = NULLHANDLE;
	DatabaseObject* db;
	if (STATUS s = FindDatabase(hDB, db)) return s;
	if (STATUS s = CheckCall("NSFNoteCreate", db->file->path())) return s;
	if (!rethNote) return ERR_OS_NULL_HANDLE;
	auto note = std::make_unique<NoteObject>();
	note->db = hDB;
	note->oid = NewOid();
	*rethNote = AddNote(std::move(note));
	return NOERROR;
}

STATUS LNPUBLIC NSFNoteCopy(NOTEHANDLE hSrcNote, NOTEHANDLE far* rethDstNote) {
	ApiLock lock(ApiMutex());
	if (rethDstNote) *rethDstNote = NULLHANDLE;
	NoteObject* source;
	DbFile* file;
	if (STATUS s = FindNoteAndFile(hSrcNote, "NSFNoteCopy", source, file)) return s;
	if (!rethDstNote) return ERR_OS_NULL_HANDLE;
	*rethDstNote = AddNote(CopyOf(*source));
	return NOERROR;
}

STATUS LNPUBLIC NSFNoteUpdate(NOTEHANDLE hNote, WORD UpdateFlags) {
	ApiLock lock(ApiMutex());
	NoteObject* note;
	DbFile* file;
	if (STATUS s = FindNoteAndFile(hNote, "NSFNoteUpdate", note, file)) return s;
	return SaveNote(*note, *file, UpdateFlags);
}

STATUS LNPUBLIC NSFNoteUpdateExtended(NOTEHANDLE hNote, DWORD UpdateFlags) {
	ApiLock lock(ApiMutex());
	NoteObject* note;
	DbFile* file;
	if (STATUS s = FindNoteAndFile(hNote, "NSFNoteUpdateExtended", note, file)) return s;
	return SaveNote(*note, *file, UpdateFlags);
}

STATUS LNPUBLIC NSFNoteDelete(DBHANDLE hDB, NOTEID NoteID, WORD UpdateFlags) {
	ApiLock lock(ApiMutex());
	DatabaseObject* db;
	if (STATUS s = FindDatabase(hDB, db)) return s;
	return DeleteNote(*db->file, NoteID, UpdateFlags);
}

STATUS LNPUBLIC NSFNoteClose(NOTEHANDLE hNote) {
	ApiLock lock(ApiMutex());
	NoteObject* note;
	if (STATUS s = FindNote(hNote, note)) return s;
	UNID unid = UnidOf(note->oid);
	if (STATUS s = CheckCall("NSFNoteClose", NotePath(*note), &unid)) return s;
	ReleaseHandle(hNote);
	return NOERROR;
}

void LNPUBLIC NSFNoteGetInfo(NOTEHANDLE hNote, WORD Type, void far* Value) {
	ApiLock lock(ApiMutex());
	NoteObject* note;
	if (FindNote(hNote, note) || !Value) return;
	UNID unid = UnidOf(note->oid);
	if (CheckCall("NSFNoteGetInfo", NotePath(*note), &unid)) return;
	switch (Type) {
	case _NOTE_DB: Put<DBHANDLE>(Value, note->db); break;
	case _NOTE_ID: Put<NOTEID>(Value, note->id); break;
	case _NOTE_OID: Put(Value, note->oid); break;
	case _NOTE_CLASS: Put<WORD>(Value, note->noteClass); break;
	case _NOTE_MODIFIED: Put(Value, note->modified); break;
	case _NOTE_PRIVILEGES: Put<WORD>(Value, 0); break;
	case _NOTE_FLAGS: Put<WORD>(Value, note->flags); break;
	case _NOTE_ACCESSED: Put(Value, note->accessed); break;
	case _NOTE_PARENT_NOTEID: Put<NOTEID>(Value, 0); break;
	case _NOTE_RESPONSE_COUNT: Put<DWORD>(Value, 0); break;
	case _NOTE_RESPONSES: Put<HANDLE>(Value, NULLHANDLE); break;
	case _NOTE_ADDED_TO_FILE: Put(Value, note->addedToFile); break;
	case _NOTE_OBJSTORE_DB: Put<DBHANDLE>(Value, NULLHANDLE); break;
	default: break;
	}
}

void LNPUBLIC NSFNoteSetInfo(NOTEHANDLE hNote, WORD Type, void far* Value) {
	ApiLock lock(ApiMutex());
	NoteObject* note;
	if (FindNote(hNote, note)) return;
	UNID unid = UnidOf(note->oid);
	if (CheckCall("NSFNoteSetInfo", NotePath(*note), &unid)) return;
	switch (Type) {
	case _NOTE_DB:
		if (Value) MoveToDatabase(hNote, *note, Get<DBHANDLE>(Value));
		break;
	case _NOTE_ID: note->id = Get<NOTEID>(Value); break;
	case _NOTE_OID: note->oid = Get<ORIGINATORID>(Value); break;
	case _NOTE_CLASS: note->noteClass = Get<WORD>(Value); break;
	case _NOTE_MODIFIED: note->modified = Get<TIMEDATE>(Value); break;
	case _NOTE_FLAGS: note->flags = Get<WORD>(Value); break;
	case _NOTE_ACCESSED: note->accessed = Get<TIMEDATE>(Value); break;
	case _NOTE_ADDED_TO_FILE: note->addedToFile = Get<TIMEDATE>(Value); break;
	default: break;  // the response fields are read-only
	}
}

STATUS LNPUBLIC NSFNoteSign(NOTEHANDLE hNote) {
	ApiLock lock(ApiMutex());
	NoteObject* note;
	DbFile* file;
	if (STATUS s = FindNoteAndFile(hNote, "NSFNoteSign", note, file)) return s;
	const char* kSignature = "$Signature";
	for (auto it = note->items.begin(); it != note->items.end();) {
		if (NameEquals(it->name, kSignature)) {
			ReleaseItemPool(*it);
			it = note->items.erase(it);
		} else {
			++it;
		}
	}
	// The value names the signer; no digest is computed.
	std::string signer = ServerName();
	note->items.push_back(MakeItem(kSignature, ITEM_SEAL, TYPE_SIGNATURE, signer.data(), signer.size()));
	return NOERROR;
}

STATUS LNPUBLIC NSFNoteContract(NOTEHANDLE hNote) {
	ApiLock lock(ApiMutex());
	NoteObject* note;
	DbFile* file;
	if (STATUS s = FindNoteAndFile(hNote, "NSFNoteContract", note, file)) return s;
	ContractItems(note->items);
	return NOERROR;
}
