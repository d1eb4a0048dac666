// Internal interfaces of the emulated platform: the call guard, settings,
// handle tables, in-memory notes and items, time and text helpers.
#ifndef EMU_EMU_H
#define EMU_EMU_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "Api.h"

namespace emu {

class DbFile;

// ---- Call guard ---------------------------------------------------------
// Every public entry takes the process-wide API lock (recursive: search
// callbacks call back into the API on the same thread) and asks CheckCall
// whether the call may proceed. CheckCall is the one place where injected
// faults (server.json) are decided: a note call passes its database's path
// and the note's UNID, a database call the path.
std::recursive_mutex& ApiMutex();
using ApiLock = std::lock_guard<std::recursive_mutex>;
STATUS CheckCall(const char* call, const std::string& dbPath = std::string(),
                 const UNID* unid = nullptr);

// ---- Settings (notes.ini) ---------------------------------------------
bool GetSetting(std::string_view name, std::string& value);
void SetSetting(std::string_view name, std::string_view value);
std::string DataDirectory();
std::string ServerName();
// Absolute, normalised file-system path for a native path (relative to the
// data directory or absolute; '\\' accepted as a separator).
std::string ResolvePath(const std::string& notesPath);
// The same for a path an API caller passes: LMBCS, as every text of the API.
std::string ResolveApiPath(const char* lmbcsPath);
// Whether anything exists at a file-system path.
bool PathExists(const std::string& path);
// Whether the last component of a path has an extension.
bool HasExtension(const std::string& path);

// ---- Time ---------------------------------------------------------------
TIMEDATE Now();
TIMEDATE FromUnixMillis(int64_t millis);
bool IsZero(const TIMEDATE& t);

// ---- Identifiers --------------------------------------------------------
ORIGINATORID NewOid();
uint64_t RandomWord64();
bool SameUnid(const ORIGINATORID& a, const UNID& b);
UNID UnidOf(const ORIGINATORID& oid);

// ---- Text -----------------------------------------------------------------
// Native (UTF-8) text to LMBCS and back, for the texts that cross the API:
// notes.ini values, folder names and paths are native inside the emulator.
std::string LmbcsFromNative(std::string_view native);
std::string NativeFromLmbcs(std::string_view lmbcs);
// ASCII case-insensitive equality of item names (LMBCS bytes above 0x7F compare exactly).
bool NameEquals(std::string_view a, std::string_view b);
std::string AsciiUpper(std::string_view text);
// Length of the LMBCS character starting at p (1..3), never beyond limit.
size_t LmbcsCharLength(const BYTE* p, size_t limit);
// Formats a number the way the platform shows it in text.
std::string FormatNumber(double value);
std::string FormatTime(const TIMEDATE& t);

// ---- Items and in-memory notes -------------------------------------------
using Bytes = std::vector<BYTE>;

// One item of a note. block holds the value as the platform lays it out in
// memory: the type WORD followed by the value bytes.
struct Item {
	std::string name;
	WORD flags = 0;
	std::shared_ptr<Bytes> block;
	DHANDLE pool = NULLHANDLE;  // memory object exposing block (NSFItemInfo), made on demand

	WORD type() const;
	const BYTE* value() const { return block->data() + sizeof(WORD); }
	DWORD valueLength() const { return static_cast<DWORD>(block->size() - sizeof(WORD)); }
};

Item MakeItem(std::string_view name, WORD flags, WORD type, const void* value, size_t length);

struct NoteObject {
	HANDLE db = NULLHANDLE;
	NOTEID id = 0;
	ORIGINATORID oid{};
	WORD noteClass = NOTE_CLASS_DOCUMENT;
	WORD flags = 0;
	TIMEDATE modified{};
	TIMEDATE accessed{};
	TIMEDATE addedToFile{};
	DWORD loadedSequence = 0;  // revision read from the file: conflict detection
	std::vector<Item> items;
};

struct DatabaseObject {
	std::shared_ptr<DbFile> file;
	std::set<HANDLE> notes;  // notes opened or created through this handle
};

struct MemoryObject {
	std::shared_ptr<Bytes> bytes;
	int locks = 0;
	HANDLE ownerNote = NULLHANDLE;  // item memory belongs to a note: never freed by the caller
	const char* origin = "";        // the API call that allocated it
};

// ---- Handle tables --------------------------------------------------------
// Handles are never reused within a process, so a stale handle is always
// recognised: NULLHANDLE gives ERR_OS_NULL_HANDLE, a handle of the wrong kind
// ERR_OS_HANDLE_RANGE, a released or never issued one ERR_OS_FREE_HANDLE.
STATUS FindDatabase(HANDLE h, DatabaseObject*& out);
STATUS FindNote(HANDLE h, NoteObject*& out);
STATUS FindMemory(HANDLE h, MemoryObject*& out);
HANDLE AddDatabase(std::unique_ptr<DatabaseObject> db);
HANDLE AddNote(std::unique_ptr<NoteObject> note);
HANDLE AddMemory(std::unique_ptr<MemoryObject> mem);
// origin: the API call that allocated it, named in the open-handle report.
HANDLE NewMemory(Bytes bytes, const char* origin);
// When p points into a memory object (OSLockObject, OSLockBlock), the bytes
// from p to the object's end; lets a call that gets a bare pointer stay in bounds.
bool MemoryAvailableAt(const void* p, size_t& available);
// Releases a handle of any kind with what it owns (a database's notes, a note's item memory).
void ReleaseHandle(HANDLE h);
// Drops the memory object exposing an item, if one was made.
void ReleaseItemPool(Item& item);
DWORD CallerHandleCount();
void ReleaseAllHandles();

// Database path of a note (for the call guard), empty for a bad handle.
const std::string& NotePath(const NoteObject& note);

// ---- Notes <-> file --------------------------------------------------------
// Expands one-value TEXT / NUMBER / TIME items to their list forms (OPEN_EXPAND).
void ExpandItems(std::vector<Item>& items);
// Turns one-entry list items back into single values (NSFNoteContract).
void ContractItems(std::vector<Item>& items);

}  // namespace emu

#endif
