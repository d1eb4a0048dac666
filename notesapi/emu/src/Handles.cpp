// Handle tables, memory objects (OSMem*), items and the call guard.
#include <algorithm>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

#include "Emu.h"
#include "Store.h"

namespace emu {
namespace {

enum class Kind { Database, Note, Memory };

struct Entry {
	Kind kind;
	std::unique_ptr<DatabaseObject> db;
	std::unique_ptr<NoteObject> note;
	std::unique_ptr<MemoryObject> mem;
};

struct Table {
	std::unordered_map<HANDLE, Entry> entries;
	HANDLE next = 1;
};

Table& Handles() {
	static Table table;
	return table;
}

// Largest memory object handed out; larger requests fail like an exhausted heap.
constexpr DWORD kMaxMemorySize = 256u * 1024u * 1024u;

STATUS Find(HANDLE h, Kind kind, Entry*& out) {
	if (h == NULLHANDLE) return ERR_OS_NULL_HANDLE;
	Table& table = Handles();
	auto it = table.entries.find(h);
	if (it == table.entries.end()) return h < table.next ? ERR_OS_FREE_HANDLE : ERR_OS_HANDLE_RANGE;
	if (it->second.kind != kind) return ERR_OS_HANDLE_RANGE;
	out = &it->second;
	return NOERROR;
}

HANDLE Add(Entry entry) {
	Table& table = Handles();
	HANDLE h = table.next++;
	table.entries.emplace(h, std::move(entry));
	return h;
}

}  // namespace

std::recursive_mutex& ApiMutex() {
	static std::recursive_mutex mutex;
	return mutex;
}

STATUS FindDatabase(HANDLE h, DatabaseObject*& out) {
	Entry* e;
	if (STATUS s = Find(h, Kind::Database, e)) return s;
	out = e->db.get();
	return NOERROR;
}

STATUS FindNote(HANDLE h, NoteObject*& out) {
	Entry* e;
	if (STATUS s = Find(h, Kind::Note, e)) return s;
	out = e->note.get();
	return NOERROR;
}

STATUS FindMemory(HANDLE h, MemoryObject*& out) {
	Entry* e;
	if (STATUS s = Find(h, Kind::Memory, e)) return s;
	out = e->mem.get();
	return NOERROR;
}

HANDLE AddDatabase(std::unique_ptr<DatabaseObject> db) {
	Entry e{Kind::Database, std::move(db), nullptr, nullptr};
	return Add(std::move(e));
}

HANDLE AddNote(std::unique_ptr<NoteObject> note) {
	HANDLE db = note->db;
	Entry e{Kind::Note, nullptr, std::move(note), nullptr};
	HANDLE h = Add(std::move(e));
	DatabaseObject* owner;
	if (FindDatabase(db, owner) == NOERROR) owner->notes.insert(h);
	return h;
}

HANDLE AddMemory(std::unique_ptr<MemoryObject> mem) {
	Entry e{Kind::Memory, nullptr, nullptr, std::move(mem)};
	return Add(std::move(e));
}

bool MemoryAvailableAt(const void* p, size_t& available) {
	const auto address = reinterpret_cast<uintptr_t>(p);
	for (const auto& entry : Handles().entries) {
		if (entry.second.kind != Kind::Memory) continue;
		const Bytes& bytes = *entry.second.mem->bytes;
		const auto begin = reinterpret_cast<uintptr_t>(bytes.data());
		if (bytes.empty() || address < begin || address >= begin + bytes.size()) continue;
		available = begin + bytes.size() - address;
		return true;
	}
	return false;
}

HANDLE NewMemory(Bytes bytes, const char* origin) {
	auto mem = std::make_unique<MemoryObject>();
	mem->bytes = std::make_shared<Bytes>(std::move(bytes));
	mem->origin = origin;
	return AddMemory(std::move(mem));
}

void ReleaseItemPool(Item& item) {
	if (item.pool != NULLHANDLE) Handles().entries.erase(item.pool);
	item.pool = NULLHANDLE;
}

void ReleaseHandle(HANDLE h) {
	Table& table = Handles();
	auto it = table.entries.find(h);
	if (it == table.entries.end()) return;
	Entry entry = std::move(it->second);
	table.entries.erase(it);
	if (entry.kind == Kind::Database) {
		for (HANDLE note : entry.db->notes) ReleaseHandle(note);
	} else if (entry.kind == Kind::Note) {
		for (Item& item : entry.note->items) ReleaseItemPool(item);
		DatabaseObject* owner;
		if (FindDatabase(entry.note->db, owner) == NOERROR) owner->notes.erase(h);
	}
}

DWORD CallerHandleCount() {
	DWORD count = 0;
	for (const auto& entry : Handles().entries)
		if (entry.second.kind != Kind::Memory || entry.second.mem->ownerNote == NULLHANDLE) ++count;
	return count;
}

void ReleaseAllHandles() {
	std::vector<HANDLE> databases;
	for (const auto& entry : Handles().entries)
		if (entry.second.kind == Kind::Database) databases.push_back(entry.first);
	for (HANDLE h : databases) ReleaseHandle(h);
	Handles().entries.clear();
}

const std::string& NotePath(const NoteObject& note) {
	static const std::string none;
	DatabaseObject* db;
	if (FindDatabase(note.db, db) != NOERROR) return none;
	return db->file->path();
}

// ---- Items -----------------------------------------------------------------

WORD Item::type() const {
	WORD t;
	std::memcpy(&t, block->data(), sizeof t);
	return t;
}

Item MakeItem(std::string_view name, WORD flags, WORD type, const void* value, size_t length) {
	Item item;
	item.name.assign(name);
	item.flags = flags;
	item.block = std::make_shared<Bytes>(sizeof(WORD) + length);
	std::memcpy(item.block->data(), &type, sizeof type);
	if (length) std::memcpy(item.block->data() + sizeof type, value, length);
	return item;
}

// ---- Identifiers -------------------------------------------------------------

uint64_t RandomWord64() {
	static std::mt19937_64 engine{std::random_device{}()};
	return engine();
}

ORIGINATORID NewOid() {
	ORIGINATORID oid{};
	uint64_t random = RandomWord64();
	oid.File.Innards[0] = static_cast<DWORD>(random);
	oid.File.Innards[1] = static_cast<DWORD>(random >> 32);
	oid.Note = Now();
	oid.Sequence = 0;
	oid.SequenceTime = oid.Note;
	return oid;
}

UNID UnidOf(const ORIGINATORID& oid) {
	UNID unid;
	unid.File = oid.File;
	unid.Note = oid.Note;
	return unid;
}

bool SameUnid(const ORIGINATORID& a, const UNID& b) {
	return std::memcmp(&a.File, &b.File, sizeof(DBID)) == 0 &&
	       std::memcmp(&a.Note, &b.Note, sizeof(TIMEDATE)) == 0;
}

}  // namespace emu

using namespace emu;

// ---- OSMem* ---------------------------------------------------------------------

STATUS LNPUBLIC OSMemAlloc(WORD /*BlkType*/, DWORD dwSize, DHANDLE far* retHandle) {
	ApiLock lock(ApiMutex());
	if (!retHandle) return ERR_MEMORY;
	*retHandle = NULLHANDLE;
	if (STATUS s = CheckCall("OSMemAlloc")) return s;
	if (dwSize == 0) return NOERROR;
	if (dwSize > kMaxMemorySize) return ERR_MEMORY;
	*retHandle = NewMemory(Bytes(dwSize, 0), "OSMemAlloc");
	return NOERROR;
}

STATUS LNPUBLIC OSMemFree(DHANDLE Handle) {
	ApiLock lock(ApiMutex());
	if (STATUS s = CheckCall("OSMemFree")) return s;
	MemoryObject* mem;
	if (STATUS s = FindMemory(Handle, mem)) return s;
	// Item memory belongs to its note; the note releases it.
	if (mem->ownerNote != NULLHANDLE) return ERR_OS_HANDLE_RANGE;
	if (mem->locks > 0) return ERR_OS_STILL_LOCKED;
	ReleaseHandle(Handle);
	return NOERROR;
}

STATUS LNPUBLIC OSMemGetSize(DHANDLE Handle, DWORD far* retSize) {
	ApiLock lock(ApiMutex());
	if (STATUS s = CheckCall("OSMemGetSize")) return s;
	MemoryObject* mem;
	if (STATUS s = FindMemory(Handle, mem)) return s;
	if (retSize) *retSize = static_cast<DWORD>(mem->bytes->size());
	return NOERROR;
}

STATUS LNPUBLIC OSMemRealloc(DHANDLE Handle, DWORD NewSize) {
	ApiLock lock(ApiMutex());
	if (STATUS s = CheckCall("OSMemRealloc")) return s;
	MemoryObject* mem;
	if (STATUS s = FindMemory(Handle, mem)) return s;
	if (mem->ownerNote != NULLHANDLE) return ERR_OS_HANDLE_RANGE;
	if (mem->locks > 0) return ERR_OS_STILL_LOCKED;
	if (NewSize == 0 || NewSize > kMaxMemorySize) return ERR_MEMORY;
	mem->bytes->resize(NewSize, 0);
	return NOERROR;
}

void far* LNPUBLIC OSLockObject(DHANDLE Handle) {
	ApiLock lock(ApiMutex());
	if (CheckCall("OSLockObject")) return nullptr;
	MemoryObject* mem;
	if (FindMemory(Handle, mem)) return nullptr;
	++mem->locks;
	return mem->bytes->data();
}

BOOL LNPUBLIC OSUnlockObject(DHANDLE Handle) {
	ApiLock lock(ApiMutex());
	if (CheckCall("OSUnlockObject")) return FALSE;
	MemoryObject* mem;
	if (FindMemory(Handle, mem)) return FALSE;
	if (mem->locks > 0) --mem->locks;
	return TRUE;
}

DWORD LNPUBLIC EmuOpenHandleCount(void) {
	ApiLock lock(ApiMutex());
	return CallerHandleCount();
}

void LNPUBLIC EmuOpenHandleReport(void (LNCALLBACKPTR report)(const char far* line, void far* ctx), void far* ctx) {
	if (!report) return;
	std::vector<std::string> lines;
	{
		ApiLock lock(ApiMutex());
		std::vector<std::pair<HANDLE, const Entry*>> open;
		for (const auto& entry : Handles().entries) open.emplace_back(entry.first, &entry.second);
		std::sort(open.begin(), open.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
		for (const auto& [h, entry] : open) {
			std::string handle = std::to_string(h);
			if (entry->kind == Kind::Database)
				lines.push_back("database handle " + handle + ": " + entry->db->file->path());
			else if (entry->kind == Kind::Note)
				lines.push_back("note handle " + handle + " (note ID " + std::to_string(entry->note->id) +
				                "): " + NotePath(*entry->note));
			else if (entry->mem->ownerNote == NULLHANDLE)
				lines.push_back("memory handle " + handle + " (" + std::to_string(entry->mem->bytes->size()) +
				                " bytes) from " + entry->mem->origin);
		}
	}
	// Reported outside the lock: the callback may call the platform.
	for (const std::string& line : lines) report(line.c_str(), ctx);
}
