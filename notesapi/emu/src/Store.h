// An emulated database is one SQLite file. DbFile is the connection to one
// such file, shared by every handle open on it (the registry is keyed by the
// canonical path), and knows the file's schema:
//
//   meta(key, value)        format tag, database ID, info buffer, replica
//                           information, build version, next note ID
//   notes(id, class, deleted, unid, head, summary, body)
//                           one row per note or deletion stub; head holds
//                           the note's header (NoteHead) in one small blob
//
// A note's items are kept in two blobs, the summary items (the ones searches
// and summary buffers see) and the others, so a search reads only the small
// summary part of each row. Every item record keeps its position in the note
// so the order of items survives the split.
#ifndef EMU_STORE_H
#define EMU_STORE_H

#include <sqlite3.h>

#include <cstring>
#include <initializer_list>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "ChangeLog.h"
#include "Emu.h"
#include "NoteIndex.h"

namespace emu {

struct StoredNote {
	NOTEID id = 0;
	WORD noteClass = NOTE_CLASS_DOCUMENT;
	bool deleted = false;
	ORIGINATORID oid{};
	TIMEDATE modified{};
	TIMEDATE added{};
	WORD flags = 0;
	std::vector<Item> items;
};

// The header of a note row. Class and deletion are also columns of their
// own, for the queries by class; a search reads only this blob.
struct NoteHead {
	WORD noteClass;
	WORD deleted;
	WORD flags;
	WORD spare;
	ORIGINATORID oid;
	TIMEDATE modified;
	TIMEDATE added;
};

struct DbSettings {
	TIMEDATE dbid{};
	std::string info;
	DBREPLICAINFO replica{};
	WORD buildVersion = 0;
	NOTEID nextNoteId = 0;
};

// First note ID of a new database and the distance between IDs.
constexpr NOTEID kFirstNoteId = 0x2102;
constexpr NOTEID kNoteIdStep = 4;
constexpr WORD kDefaultBuildVersion = 400;

// A view of one stored item inside an encoded blob (no copy).
struct StoredItemView {
	WORD ordinal;
	WORD flags;
	std::string_view name;
	const BYTE* block;  // type WORD + value
	size_t blockLength;
};

// Calls f(view) for each item of an encoded blob; stops early when f returns
// false. Returns false for a damaged blob.
template <typename F>
bool ForEachStoredItem(const void* data, size_t size, F&& f) {
	const BYTE* p = static_cast<const BYTE*>(data);
	const BYTE* end = p + size;
	constexpr size_t kHeader = 2 + 2 + 2 + 4;
	while (p < end) {
		if (static_cast<size_t>(end - p) < kHeader) return false;
		WORD ordinal, flags, nameLength;
		DWORD blockLength;
		std::memcpy(&ordinal, p, 2);
		std::memcpy(&flags, p + 2, 2);
		std::memcpy(&nameLength, p + 4, 2);
		std::memcpy(&blockLength, p + 6, 4);
		p += kHeader;
		if (static_cast<size_t>(end - p) < static_cast<size_t>(nameLength) + blockLength ||
		    blockLength < sizeof(WORD))
			return false;
		StoredItemView view{ordinal, flags,
		                    std::string_view(reinterpret_cast<const char*>(p), nameLength),
		                    p + nameLength, blockLength};
		p += nameLength + blockLength;
		if (!f(view)) return true;
	}
	return true;
}

// The first item of an encoded blob whose name passes `test` (a cheap
// length check comes first); false when there is none, or when the blob is
// damaged before one is found.
template <typename NameTest>
bool FindStoredItem(const void* data, size_t size, size_t nameLength, NameTest&& test, StoredItemView& out) {
	bool found = false;
	ForEachStoredItem(data, size, [&](const StoredItemView& item) {
		if (item.name.size() != nameLength || !test(item.name)) return true;
		out = item;
		found = true;
		return false;
	});
	return found;
}

class DbFile {
public:
	~DbFile();
	DbFile(const DbFile&) = delete;
	DbFile& operator=(const DbFile&) = delete;

	// Creates a new, empty database file (ERR_EXISTS if the path is taken).
	static STATUS Create(const std::string& path, const DbSettings& settings);
	// Opens the file, sharing the connection already open on that path.
	static STATUS Open(const std::string& path, std::shared_ptr<DbFile>& out);
	// True while some handle has the file open.
	static bool IsOpen(const std::string& path);

	const std::string& path() const { return path_; }

	STATUS ReadSettings(DbSettings& out);
	STATUS WriteSettings(const DbSettings& settings);

	// ERR_INVALID_NOTE when no row (stub or note) has this ID.
	STATUS ReadNote(NOTEID id, bool withItems, StoredNote& out);
	// ERR_NOT_FOUND when no row has this UNID.
	STATUS FindUnid(const UNID& unid, NOTEID& id, bool& deleted);
	// Writes a note row (insert or replace) with its items.
	STATUS WriteNote(const StoredNote& note);
	// Rewrites the row of an existing note whose UNID is unchanged.
	STATUS RewriteNote(const StoredNote& note);
	// Adds a row; ERR_CONFLICT when its ID or UNID is taken.
	STATUS InsertNote(const StoredNote& note);
	STATUS DeleteRow(NOTEID id);
	// Turns a note into a deletion stub (no items) with the given header.
	STATUS WriteStub(const StoredNote& stub);
	// The note ID the counter gives next, the lowest value it may be moved to (above every ID
	// in the file, never backwards), and moving it (the caller checks the value).
	STATUS ReadNextNoteId(NOTEID& next);
	STATUS LowestSettableNextId(NOTEID& lowest);
	STATUS SetNextNoteId(NOTEID next);
	// Takes the next free note ID and advances the counter.
	STATUS AllocateNoteId(NOTEID& id);
	STATUS HighestNoteId(NOTEID& id);
	// IDs of the live notes of these classes, in ID order.
	STATUS NoteIdsOfClass(WORD classMask, std::vector<NOTEID>& ids);

	// A change (Begin .. Commit) is all-or-nothing; changes nest: an inner one is a
	// savepoint, so its rollback undoes only its own writes. On a file opened with Open,
	// accepted changes are gathered in one SQLite transaction (a group) and each is
	// recorded in the change log as it is accepted; the group is committed every
	// kGroupChanges changes, when the log is nearly full and when the file closes.
	// A change of at most one write statement (oneWrite) takes no savepoint inside a logged group;
	// undoing it after its write rolls the group back and applies the log again.
	STATUS Begin(bool oneWrite = false);
	STATUS Commit();
	void Rollback();
	static constexpr int kGroupChanges = 4096;

	// Bulk loading: while on, committed changes are gathered in one SQLite
	// transaction that is written out every kBulkGroupSize commits, when the
	// mode ends and when the file closes. Each commit stays all-or-nothing,
	// but it is durable only once its group is written (no change log).
	STATUS SetBulkLoad(bool on);
	bool bulkLoad() const { return bulkLoad_; }
	static constexpr int kBulkGroupSize = 20000;

	// The in-memory map of this file's notes that searches use (NoteIndex.h); null when there is none.
	// A complete map outlives the connection: the last close keeps it, with a random token that it
	// also stores in the file, and the next open of the path takes it back if the file still holds
	// that token. A connection's first change clears the stored token, so a file changed since (in
	// this process or another) never matches. At most kKeptNoteIndexes maps are kept.
	NoteIndex* noteIndex() { return noteIndex_.get(); }
	// Replaces it by an empty one with columns for these fields, for the caller's walk of the rows
	// up to lastRow to fill.
	NoteIndex& StartNoteIndex(std::vector<std::string> fields, NOTEID lastRow);

	// Rows a search has just read, kept whole for the notes its callback opens next (ReadNote
	// takes them from here). Each batch starts afresh; writing a row or rolling a change back
	// drops what is kept of it.
	void StartRecentRows();
	void KeepRecentRow(NOTEID id, sqlite3_stmt* st, int headColumn);
	// Notes read with their items (ReadNote), counted.
	uint64_t noteReads() const { return noteReads_; }
	// Changes whenever the map is replaced or dropped.
	uint64_t noteIndexEpoch() const { return noteIndexEpoch_; }

	sqlite3* sql() { return db_; }
	// A cached prepared statement for this connection, reset and unbound.
	sqlite3_stmt* Prepare(const char* sqlText);
	void Touch() { rowChangesUnknownTo_ = ++rowChanges_; }
	// Rows written or removed through this connection, counted; RowsChangedSince gives the IDs of
	// those after the first `count`, or false when it cannot tell (too many since, or a change not
	// made row by row).
	uint64_t rowChanges() const { return rowChanges_; }
	bool RowsChangedSince(uint64_t count, std::vector<NOTEID>& ids) const;

private:
	// The statements that change the file; the change log names them by number.
	enum class WriteSql : unsigned char { PutNote, InsertNote, RewriteNote, DeleteRow, WriteStub, PutMeta, StoreNextId };
	// One value bound to a write statement: an integer, a blob (null when data is), or a text.
	struct Bound {
		enum Kind : unsigned char { Integer, Blob, Text, Null } kind;
		int index;
		sqlite3_int64 number;
		const void* data;
		size_t size;
	};
	static Bound Int(int index, sqlite3_int64 v) { return {Bound::Integer, index, v, nullptr, 0}; }
	static Bound Blob(int index, const void* data, size_t size) {
		return {data ? Bound::Blob : Bound::Null, index, 0, data, size};
	}
	static Bound Text(int index, std::string_view text) {
		return {Bound::Text, index, 0, text.data(), text.size()};
	}

	DbFile(std::string path, sqlite3* db) : path_(std::move(path)), db_(db) {}
	static STATUS OpenConnection(const std::string& path, bool create, sqlite3*& db);
	// Steps a cached statement that returns no rows; an SQLite result code.
	int Run(const char* sqlText);
	// Steps a write statement with its values; once it succeeded inside a change, the
	// change's record for the log gets it too.
	STATUS RunWrite(WriteSql which, std::initializer_list<Bound> values);
	void Record(WriteSql which, std::initializer_list<Bound> values);
	// Applies one change log record as one change; false when it is damaged or fails.
	bool ApplyRecord(std::string_view record);
	// Binds the note's columns as ?1 id, ?2 class, ?3 UNID, ?4 header, ?5 summary, ?6 other items
	// (a statement may leave some out) and steps it.
	STATUS PutRow(const StoredNote& note, WriteSql which);
	STATUS StoreNextNoteId(NOTEID next);
	STATUS StorePendingNextId();

	// Nesting depth of the changes under way (a group's own transaction not counted).
	int changeDepth() const { return transactionDepth_ - (groupOpen_ ? 1 : 0); }
	STATUS OpenGroup();
	// Commits the group (no change may be under way) and moves the log to the next epoch.
	STATUS CommitGroup();
	// Rolls the group back (its changes stay in the log, if they are there).
	void AbandonGroup();
	// Rollback of a change that took no savepoint.
	void UndoLightChange();
	// What a rolled-back change wrote is forgotten by the caches of this connection.
	void ForgetUndone();
	// Also walks under way must read every row again: rows changed other than one by one.
	void ForgetRows();
	// The end of a change inside a group: records it in the log or counts it for the bulk
	// group, and commits the group when it is full.
	STATUS EndGroupedChange();
	// Commits the bulk group so far and starts the next one.
	STATUS WriteBulkGroup();
	// Applies the changes a killed process left in the change log and moves to the next epoch;
	// false when they could not be committed (the log is kept then).
	bool ReplayLog();
	// After the file refused a group: the changes the log holds, applied again in a new group. When
	// some cannot be, none is kept in the group and the log is stalled: Begin tries again, and a
	// close commits nothing and keeps the log for the next open.
	STATUS ReapplyLog();
	// Opens a group and applies the log at logPath in it; false, with the group rolled back, when the
	// group cannot be opened or the file refuses a record.
	bool ApplyLogInGroup(const std::string& logPath);
	// A number in the meta table (0 when there is none), and storing one as a write of the change.
	uint64_t ReadMetaNumber(const char* key);
	STATUS StoreMetaNumber(const char* key, uint64_t value);
	void DropNoteIndex();
	// After the last commit: the map to keep, with the token the file now holds; null when the map
	// is incomplete or the token cannot be stored.
	std::unique_ptr<NoteIndex> NoteIndexToKeep(uint64_t& token);
	void TakeKeptNoteIndex();
	static constexpr size_t kKeptNoteIndexes = 8;
	void RowChanged(NOTEID id);
	static constexpr size_t kRowChangeLogSize = 16384;

	std::string path_;
	sqlite3* db_;
	int transactionDepth_ = 0;
	bool groupOpen_ = false;
	bool logged_ = false;  // changes go through the change log (files opened with Open)
	bool bulkLoad_ = false;
	bool logStalled_ = false;
	bool lightChange_ = false;  // the outermost change under way took no savepoint (Begin's oneWrite)
	int groupChanges_ = 0;
	ChangeLog log_;
	uint64_t epoch_ = 0;
	// The record of the change under way, and where each nested change began in it.
	std::vector<unsigned char> record_;
	std::vector<size_t> recordMarks_;
	// While bulk loading, the next note ID is counted here and written to the meta table only
	// before the group is committed or the settings are read (0: the table has it).
	NOTEID pendingNextId_ = 0;
	NOTEID pendingAtChangeStart_ = 0;
	std::map<const char*, sqlite3_stmt*> statements_;
	// Headers of rows recently read or written, by note ID: a row's header changes only through
	// this connection. A slot per ID modulo the size; emptied when a change is rolled back.
	struct CachedHead {
		NOTEID id = 0;
		NoteHead head{};
	};
	static constexpr size_t kHeadCacheSize = 4096;
	std::vector<CachedHead> heads_;
	CachedHead& HeadSlot(NOTEID id);
	void RememberHead(NOTEID id, const NoteHead& head);
	void ForgetHeads();
	// What KeepRecentRow kept: ascending note IDs, the blobs side by side in one buffer.
	struct RecentRow {
		NOTEID id;
		size_t at;
		size_t headSize, summarySize, bodySize;
		bool dropped;  // the row was written since
	};
	static constexpr size_t kRecentRowsBytes = size_t{16} << 20;
	std::vector<RecentRow> recentRows_;
	uint64_t noteReads_ = 0;
	Bytes recentBytes_;
	const RecentRow* FindRecentRow(NOTEID id) const;
	// Scratch space of ReadNote, kept to save allocations.
	std::vector<StoredItemView> summaryViews_, bodyViews_;
	std::unique_ptr<NoteIndex> noteIndex_;
	uint64_t openToken_ = 0;          // the token the file held at open (0: none)
	bool openTokenCleared_ = false;   // this connection's changes cleared it
	bool HoldsOpenToken() const { return openToken_ != 0 && !openTokenCleared_; }
	uint64_t noteIndexEpoch_ = 0;
	uint64_t rowChanges_ = 0;
	uint64_t rowChangesUnknownTo_ = 0;
	std::vector<NOTEID> rowChangeLog_;  // ring of the last kRowChangeLogSize, by count
};

// A write transaction that rolls back unless committed.
class Transaction {
public:
	explicit Transaction(DbFile& file, bool oneWrite = false) : file_(file), status_(file.Begin(oneWrite)) {}
	~Transaction() {
		if (status_ == NOERROR && !done_) file_.Rollback();
	}
	STATUS status() const { return status_; }
	STATUS Commit() {
		done_ = true;
		return file_.Commit();
	}

private:
	DbFile& file_;
	STATUS status_;
	bool done_ = false;
};

// Stores a note that is new to this file (inside the caller's transaction)
// and assigns its note ID. A deletion stub with the same UNID gives way to
// it; a live note with that UNID is replaced when replaceLive is true,
// otherwise the call fails with ERR_CONFLICT.
STATUS PutNewNote(DbFile& file, StoredNote& note, bool replaceLive);

// Summary buffer (ITEM_TABLE) of the summary items in an encoded blob.
Bytes BuildSummaryBuffer(const void* summary, size_t size);

}  // namespace emu

#endif
