// ACL handles and the ACL note of a database.
//
// Memory form of an ACL (little-endian, packed):
//   "ACL1", DWORD flags, WORD entry count,
//   per entry: WORD name length, name, WORD level, 10 privilege bytes, WORD flags,
//   WORD role count, per role: WORD number, WORD name length, name.
#include <algorithm>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "Acl.h"
#include "Emu.h"
#include "Store.h"

namespace emu {
namespace {

constexpr char kMagic[4] = {'A', 'C', 'L', '1'};
constexpr const char* kAclItem = "$ACL";

struct AclEntry {
	std::string name;
	WORD level = ACL_LEVEL_NOACCESS;
	ACL_PRIVILEGES privileges{};
	WORD flags = 0;
};

struct AclData {
	DWORD flags = 0;
	std::vector<AclEntry> entries;
	std::map<WORD, std::string> roles;
};

class Writer {
public:
	void raw(const void* p, size_t n) {
		const BYTE* b = static_cast<const BYTE*>(p);
		out.insert(out.end(), b, b + n);
	}
	void word(WORD w) { raw(&w, 2); }
	void dword(DWORD d) { raw(&d, 4); }
	void text(const std::string& s) {
		word(static_cast<WORD>(s.size()));
		raw(s.data(), s.size());
	}
	Bytes out;
};

class Reader {
public:
	Reader(const Bytes& b) : p(b.data()), end(b.data() + b.size()) {}
	bool raw(void* dst, size_t n) {
		if (static_cast<size_t>(end - p) < n) return false;
		std::memcpy(dst, p, n);
		p += n;
		return true;
	}
	bool word(WORD& w) { return raw(&w, 2); }
	bool text(std::string& s) {
		WORD n;
		if (!word(n) || static_cast<size_t>(end - p) < n) return false;
		s.assign(reinterpret_cast<const char*>(p), n);
		p += n;
		return true;
	}
	const BYTE* p;
	const BYTE* end;
};

Bytes Serialize(const AclData& acl) {
	Writer w;
	w.raw(kMagic, 4);
	w.dword(acl.flags);
	w.word(static_cast<WORD>(acl.entries.size()));
	for (const AclEntry& e : acl.entries) {
		w.text(e.name);
		w.word(e.level);
		w.raw(e.privileges.BitMask, sizeof e.privileges.BitMask);
		w.word(e.flags);
	}
	w.word(static_cast<WORD>(acl.roles.size()));
	for (const auto& role : acl.roles) {
		w.word(role.first);
		w.text(role.second);
	}
	return w.out;
}

bool Parse(const Bytes& bytes, AclData& acl) {
	Reader r(bytes);
	char magic[4];
	WORD count;
	if (!r.raw(magic, 4) || std::memcmp(magic, kMagic, 4) != 0) return false;
	if (!r.raw(&acl.flags, 4) || !r.word(count)) return false;
	acl.entries.resize(count);
	for (AclEntry& e : acl.entries)
		if (!r.text(e.name) || !r.word(e.level) || !r.raw(e.privileges.BitMask, sizeof e.privileges.BitMask) ||
		    !r.word(e.flags))
			return false;
	if (!r.word(count)) return false;
	for (WORD i = 0; i < count; ++i) {
		WORD number;
		std::string name;
		if (!r.word(number) || !r.text(name)) return false;
		acl.roles[number] = name;
	}
	return true;
}

STATUS LoadAcl(DHANDLE hACL, MemoryObject*& mem, AclData& acl) {
	if (STATUS s = FindMemory(hACL, mem)) return s;
	return Parse(*mem->bytes, acl) ? NOERROR : ERR_OS_HANDLE_RANGE;
}

STATUS SaveAcl(MemoryObject& mem, const AclData& acl) {
	if (mem.locks > 0) return ERR_OS_STILL_LOCKED;
	*mem.bytes = Serialize(acl);
	return NOERROR;
}

AclEntry* FindEntry(AclData& acl, const char* name) {
	for (AclEntry& e : acl.entries)
		if (NameEquals(e.name, name)) return &e;
	return nullptr;
}

// ID of the database's ACL note; 0 when it has none.
STATUS FindAclNote(DbFile& file, NOTEID& id) {
	std::vector<NOTEID> ids;
	if (STATUS s = file.NoteIdsOfClass(NOTE_CLASS_ACL, ids)) return s;
	id = ids.empty() ? 0 : ids.front();
	return NOERROR;
}

STATUS StoreAclBytes(DbFile& file, const Bytes& bytes) {
	Transaction tx(file);
	if (tx.status()) return tx.status();
	NOTEID id;
	if (STATUS s = FindAclNote(file, id)) return s;
	StoredNote note;
	TIMEDATE now = Now();
	if (id != 0) {
		if (STATUS s = file.ReadNote(id, true, note)) return s;
		note.items.erase(std::remove_if(note.items.begin(), note.items.end(),
		                                [](const Item& i) { return NameEquals(i.name, kAclItem); }),
		                 note.items.end());
	} else {
		note.oid = NewOid();
		note.noteClass = NOTE_CLASS_ACL;
		note.added = now;
	}
	note.items.push_back(MakeItem(kAclItem, 0, TYPE_USERDATA, bytes.data(), bytes.size()));
	note.oid.Sequence = (note.oid.Sequence & ~OID_SEQNO_MASK) | (((note.oid.Sequence & OID_SEQNO_MASK) + 1) & OID_SEQNO_MASK);
	note.oid.SequenceTime = now;
	note.modified = now;
	STATUS s = id != 0 ? file.WriteNote(note) : PutNewNote(file, note, false);
	if (s) return s;
	return tx.Commit();
}

STATUS ReadAclBytes(DbFile& file, Bytes& bytes) {
	NOTEID id;
	if (STATUS s = FindAclNote(file, id)) return s;
	if (id != 0) {
		StoredNote note;
		if (STATUS s = file.ReadNote(id, true, note)) return s;
		for (const Item& item : note.items)
			if (NameEquals(item.name, kAclItem)) {
				bytes.assign(item.value(), item.value() + item.valueLength());
				return NOERROR;
			}
	}
	bytes = Serialize(AclData());
	return NOERROR;
}

STATUS FindDbFile(DBHANDLE hDB, const char* call, DbFile*& file) {
	DatabaseObject* db;
	if (STATUS s = FindDatabase(hDB, db)) return s;
	if (STATUS s = CheckCall(call, db->file->path())) return s;
	file = db->file.get();
	return NOERROR;
}

}  // namespace

STATUS WriteDefaultAcl(DbFile& file) {
	AclData acl;
	AclEntry everyone;
	everyone.name = "-Default-";
	everyone.level = ACL_LEVEL_DESIGNER;
	acl.entries.push_back(everyone);
	std::string server = ServerName();
	if (!server.empty()) {
		AclEntry manager;
		manager.name = server;
		manager.level = ACL_LEVEL_MANAGER;
		manager.flags = ACL_FLAG_SERVER;
		acl.entries.push_back(manager);
	}
	return StoreAclBytes(file, Serialize(acl));
}

}  // namespace emu

using namespace emu;

STATUS LNPUBLIC NSFDbReadACL(DBHANDLE hDB, DHANDLE far* rethACL) {
	ApiLock lock(ApiMutex());
	if (rethACL) *rethACL = NULLHANDLE;
	DbFile* file;
	if (STATUS s = FindDbFile(hDB, "NSFDbReadACL", file)) return s;
	if (!rethACL) return ERR_OS_NULL_HANDLE;
	Bytes bytes;
	if (STATUS s = ReadAclBytes(*file, bytes)) return s;
	AclData check;
	if (!Parse(bytes, check)) return ERR_INVALID_NOTE;
	*rethACL = NewMemory(std::move(bytes), "NSFDbReadACL");
	return NOERROR;
}

STATUS LNPUBLIC NSFDbStoreACL(DBHANDLE hDB, DHANDLE hACL, DWORD /*ObjectID*/, WORD /*Method*/) {
	ApiLock lock(ApiMutex());
	DbFile* file;
	if (STATUS s = FindDbFile(hDB, "NSFDbStoreACL", file)) return s;
	MemoryObject* mem;
	AclData acl;
	if (STATUS s = LoadAcl(hACL, mem, acl)) return s;
	return StoreAclBytes(*file, Serialize(acl));
}

STATUS LNPUBLIC NSFDbCopyACL(DBHANDLE hSrcDB, DBHANDLE hDstDB) {
	ApiLock lock(ApiMutex());
	DbFile* source;
	DbFile* target;
	if (STATUS s = FindDbFile(hSrcDB, "NSFDbCopyACL", source)) return s;
	if (STATUS s = FindDbFile(hDstDB, "NSFDbCopyACL", target)) return s;
	Bytes bytes;
	if (STATUS s = ReadAclBytes(*source, bytes)) return s;
	return StoreAclBytes(*target, bytes);
}

STATUS LNPUBLIC ACLCreate(DHANDLE far* rethACL) {
	ApiLock lock(ApiMutex());
	if (STATUS s = CheckCall("ACLCreate")) return s;
	if (!rethACL) return ERR_OS_NULL_HANDLE;
	*rethACL = NewMemory(Serialize(AclData()), "ACLCreate");
	return NOERROR;
}

STATUS LNPUBLIC ACLAddEntry(DHANDLE hACL, const char far* Name, WORD AccessLevel, ACL_PRIVILEGES far* Privileges,
                            WORD AccessFlags) {
	ApiLock lock(ApiMutex());
	if (STATUS s = CheckCall("ACLAddEntry")) return s;
	MemoryObject* mem;
	AclData acl;
	if (STATUS s = LoadAcl(hACL, mem, acl)) return s;
	if (!Name || !*Name || std::strlen(Name) >= MAXUSERNAME || AccessLevel > ACL_LEVEL_HIGHEST)
		return ERR_INV_FILE_NAME;
	if (FindEntry(acl, Name)) return ERR_EXISTS;
	AclEntry e;
	e.name = Name;
	e.level = AccessLevel;
	if (Privileges) e.privileges = *Privileges;
	e.flags = AccessFlags;
	acl.entries.push_back(e);
	return SaveAcl(*mem, acl);
}

STATUS LNPUBLIC ACLDeleteEntry(DHANDLE hACL, const char far* Name) {
	ApiLock lock(ApiMutex());
	if (STATUS s = CheckCall("ACLDeleteEntry")) return s;
	MemoryObject* mem;
	AclData acl;
	if (STATUS s = LoadAcl(hACL, mem, acl)) return s;
	AclEntry* e = Name ? FindEntry(acl, Name) : nullptr;
	if (!e) return ERR_NOT_FOUND;
	acl.entries.erase(acl.entries.begin() + (e - acl.entries.data()));
	return SaveAcl(*mem, acl);
}

STATUS LNPUBLIC ACLUpdateEntry(DHANDLE hACL, const char far* Name, WORD UpdateFlags, const char far* NewName,
                               WORD NewAccessLevel, ACL_PRIVILEGES far* NewPrivileges, WORD NewAccessFlags) {
	ApiLock lock(ApiMutex());
	if (STATUS s = CheckCall("ACLUpdateEntry")) return s;
	MemoryObject* mem;
	AclData acl;
	if (STATUS s = LoadAcl(hACL, mem, acl)) return s;
	AclEntry* e = Name ? FindEntry(acl, Name) : nullptr;
	if (!e) return ERR_NOT_FOUND;
	if (UpdateFlags & ACL_UPDATE_NAME) {
		if (!NewName || !*NewName || std::strlen(NewName) >= MAXUSERNAME) return ERR_INV_FILE_NAME;
		AclEntry* other = FindEntry(acl, NewName);
		if (other && other != e) return ERR_EXISTS;
		e->name = NewName;
	}
	if (UpdateFlags & ACL_UPDATE_LEVEL) {
		if (NewAccessLevel > ACL_LEVEL_HIGHEST) return ERR_INV_FILE_NAME;
		e->level = NewAccessLevel;
	}
	if ((UpdateFlags & ACL_UPDATE_PRIVILEGES) && NewPrivileges) e->privileges = *NewPrivileges;
	if (UpdateFlags & ACL_UPDATE_FLAGS) e->flags = NewAccessFlags;
	return SaveAcl(*mem, acl);
}

STATUS LNPUBLIC ACLEnumEntries(DHANDLE hACL,
                               void(LNCALLBACKPTR EnumFunc)(void far* EnumFuncParam, char far* Name,
                                                            WORD AccessLevel, ACL_PRIVILEGES far* Privileges,
                                                            WORD AccessFlags),
                               void far* EnumFuncParam) {
	ApiLock lock(ApiMutex());
	if (STATUS s = CheckCall("ACLEnumEntries")) return s;
	MemoryObject* mem;
	AclData acl;
	if (STATUS s = LoadAcl(hACL, mem, acl)) return s;
	if (!EnumFunc) return NOERROR;
	// The callback gets copies: it may change the ACL it is enumerating.
	for (AclEntry e : acl.entries) {
		char name[MAXUSERNAME];
		size_t n = std::min(e.name.size(), sizeof name - 1);
		std::memcpy(name, e.name.data(), n);
		name[n] = '\0';
		EnumFunc(EnumFuncParam, name, e.level, &e.privileges, e.flags);
	}
	return NOERROR;
}

STATUS LNPUBLIC ACLLookupAccess(DHANDLE hACL, NAMES_LIST far* pNamesList, WORD far* retAccessLevel,
                                ACL_PRIVILEGES far* retPrivileges, WORD far* retAccessFlags,
                                DHANDLE far* rethPrivNames) {
	ApiLock lock(ApiMutex());
	if (STATUS s = CheckCall("ACLLookupAccess")) return s;
	MemoryObject* mem;
	AclData acl;
	if (STATUS s = LoadAcl(hACL, mem, acl)) return s;
	const AclEntry* found = nullptr;
	if (pNamesList) {
		const char* name = reinterpret_cast<const char*>(pNamesList + 1);
		for (WORD i = 0; i < pNamesList->NumNames && !found; ++i) {
			found = FindEntry(acl, name);
			name += std::strlen(name) + 1;
		}
	}
	if (!found) found = FindEntry(acl, "-Default-");
	AclEntry none;
	if (!found) found = &none;
	if (retAccessLevel) *retAccessLevel = found->level;
	if (retPrivileges) *retPrivileges = found->privileges;
	if (retAccessFlags) *retAccessFlags = found->flags;
	if (rethPrivNames) *rethPrivNames = NULLHANDLE;
	return NOERROR;
}

STATUS LNPUBLIC ACLGetPrivName(DHANDLE hACL, WORD PrivNum, char far* retPrivName) {
	ApiLock lock(ApiMutex());
	if (STATUS s = CheckCall("ACLGetPrivName")) return s;
	MemoryObject* mem;
	AclData acl;
	if (STATUS s = LoadAcl(hACL, mem, acl)) return s;
	if (PrivNum >= ACL_PRIVCOUNT) return ERR_NOT_FOUND;
	if (!retPrivName) return NOERROR;
	auto it = acl.roles.find(PrivNum);
	std::string name = it == acl.roles.end() ? std::string() : it->second;
	size_t n = std::min(name.size(), static_cast<size_t>(ACL_PRIVSTRINGMAX - 1));
	std::memcpy(retPrivName, name.data(), n);
	retPrivName[n] = '\0';
	return NOERROR;
}

STATUS LNPUBLIC ACLSetPrivName(DHANDLE hACL, WORD PrivNum, char far* PrivName) {
	ApiLock lock(ApiMutex());
	if (STATUS s = CheckCall("ACLSetPrivName")) return s;
	MemoryObject* mem;
	AclData acl;
	if (STATUS s = LoadAcl(hACL, mem, acl)) return s;
	if (PrivNum >= ACL_PRIVCOUNT) return ERR_NOT_FOUND;
	std::string name = PrivName ? std::string(PrivName, strnlen(PrivName, ACL_PRIVNAMEMAX - 1)) : std::string();
	if (name.empty()) acl.roles.erase(PrivNum);
	else acl.roles[PrivNum] = name;
	return SaveAcl(*mem, acl);
}

STATUS LNPUBLIC ACLGetFlags(DHANDLE hACL, DWORD far* Flags) {
	ApiLock lock(ApiMutex());
	if (STATUS s = CheckCall("ACLGetFlags")) return s;
	MemoryObject* mem;
	AclData acl;
	if (STATUS s = LoadAcl(hACL, mem, acl)) return s;
	if (Flags) *Flags = acl.flags;
	return NOERROR;
}

STATUS LNPUBLIC ACLSetFlags(DHANDLE hACL, DWORD Flags) {
	ApiLock lock(ApiMutex());
	if (STATUS s = CheckCall("ACLSetFlags")) return s;
	MemoryObject* mem;
	AclData acl;
	if (STATUS s = LoadAcl(hACL, mem, acl)) return s;
	acl.flags = Flags;
	return SaveAcl(*mem, acl);
}
