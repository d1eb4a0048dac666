#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <random>
#include <string>

#include "Store.h"

namespace emu {
namespace {

constexpr const char* kFormatTag = "notesemu-nsf-1";
// Meta keys: the change log's epoch, and the token of the note map kept at the last close.
constexpr const char* kEpochKey = "changeLogEpoch";
constexpr const char* kIndexTokenKey = "noteIndexToken";

constexpr const char* kSchema =
    "CREATE TABLE meta(key TEXT PRIMARY KEY, value) WITHOUT ROWID;"
    "CREATE TABLE notes("
    "  id INTEGER PRIMARY KEY,"
    "  class INTEGER NOT NULL,"
    "  deleted INTEGER NOT NULL DEFAULT 0,"
    "  unid BLOB NOT NULL,"
    "  head BLOB NOT NULL,"
    "  summary BLOB,"
    "  body BLOB);"
    "CREATE UNIQUE INDEX notes_unid ON notes(unid);";

// Never destroyed: files still held by other static objects close after it would be gone.
std::map<std::string, std::weak_ptr<DbFile>>& Registry() {
	static auto* registry = new std::map<std::string, std::weak_ptr<DbFile>>;
	return *registry;
}

// Note maps kept from closed files, the latest last.
struct KeptNoteIndex {
	std::string path;
	uint64_t token;
	std::unique_ptr<NoteIndex> index;
};

std::vector<KeptNoteIndex>& KeptNoteIndexes() {
	static auto* kept = new std::vector<KeptNoteIndex>;
	return *kept;
}

uint64_t NewIndexToken() {
	static std::mt19937_64 generator(std::random_device{}() ^ (static_cast<uint64_t>(::getpid()) << 32));
	uint64_t token;
	do token = generator();
	while (token == 0);
	return token;
}

template <typename T>
void BindStruct(sqlite3_stmt* st, int index, const T& value) {
	sqlite3_bind_blob(st, index, &value, sizeof(T), SQLITE_TRANSIENT);
}

template <typename T>
void ColumnStruct(sqlite3_stmt* st, int index, T& out) {
	std::memset(&out, 0, sizeof(T));
	const void* p = sqlite3_column_blob(st, index);
	int n = sqlite3_column_bytes(st, index);
	if (p && n > 0) std::memcpy(&out, p, std::min(static_cast<size_t>(n), sizeof(T)));
}

// The items of an encoded blob, as views into it.
void ViewBlob(const void* blob, size_t size, std::vector<StoredItemView>& out) {
	out.clear();
	if (!blob || size == 0) return;
	ForEachStoredItem(blob, size, [&](const StoredItemView& v) {
		out.push_back(v);
		return true;
	});
}

void ViewColumn(sqlite3_stmt* st, int column, std::vector<StoredItemView>& out) {
	ViewBlob(sqlite3_column_blob(st, column), static_cast<size_t>(sqlite3_column_bytes(st, column)), out);
}

// An item whose value goes into blocks[slot]: the note's items share one allocation of their
// blocks (each block still owns its bytes).
Item ItemOf(const StoredItemView& v, const std::shared_ptr<std::vector<Bytes>>& blocks, size_t slot) {
	Item item;
	item.name.assign(v.name);
	item.flags = v.flags;
	Bytes& block = (*blocks)[slot];
	block.assign(v.block, v.block + v.blockLength);
	item.block = std::shared_ptr<Bytes>(blocks, &block);
	return item;
}

// The note's items in their ordinal order, from its summary and other items (each stored in
// order, so this is a merge).
void MergeByOrdinal(std::vector<StoredItemView>& summary, std::vector<StoredItemView>& body,
                    std::vector<Item>& out) {
	auto byOrdinal = [](const StoredItemView& a, const StoredItemView& b) { return a.ordinal < b.ordinal; };
	if (!std::is_sorted(summary.begin(), summary.end(), byOrdinal))
		std::stable_sort(summary.begin(), summary.end(), byOrdinal);
	if (!std::is_sorted(body.begin(), body.end(), byOrdinal)) std::stable_sort(body.begin(), body.end(), byOrdinal);
	const size_t count = summary.size() + body.size();
	out.reserve(out.size() + count);
	auto blocks = std::make_shared<std::vector<Bytes>>(count);
	auto a = summary.begin(), b = body.begin();
	for (size_t slot = 0; slot < count; ++slot) {
		bool takeSummary = b == body.end() || (a != summary.end() && !byOrdinal(*b, *a));
		out.push_back(ItemOf(takeSummary ? *a++ : *b++, blocks, slot));
	}
}

STATUS SqlStatus(int rc) {
	switch (rc) {
	case SQLITE_OK:
	case SQLITE_DONE:
	case SQLITE_ROW: return NOERROR;
	case SQLITE_FULL: return ERR_DISK;
	case SQLITE_NOMEM: return ERR_MEMORY;
	case SQLITE_BUSY:
	case SQLITE_LOCKED: return ERR_LOCK;
	case SQLITE_READONLY:
	case SQLITE_PERM: return ERR_PROTECTED;
	case SQLITE_CONSTRAINT: return ERR_CONFLICT;
	case SQLITE_NOTADB:
	case SQLITE_CORRUPT: return ERR_NOT_NSF;
	default: return ERR_IOERROR;
	}
}

NoteHead HeadOf(const StoredNote& note, bool deleted) {
	NoteHead head;
	std::memset(&head, 0, sizeof head);
	head.noteClass = note.noteClass;
	head.deleted = deleted ? 1 : 0;
	head.flags = note.flags;
	head.oid = note.oid;
	head.modified = note.modified;
	head.added = note.added;
	return head;
}

}  // namespace

DbFile::~DbFile() {
	bool committed = true;
	if (bulkLoad_) SetBulkLoad(false);
	else if (groupOpen_) committed = CommitGroup() == NOERROR;
	if (logStalled_) committed = false;
	uint64_t token = 0;
	std::unique_ptr<NoteIndex> index = committed ? NoteIndexToKeep(token) : nullptr;
	for (auto& entry : statements_) sqlite3_finalize(entry.second);
	sqlite3_close(db_);
	// A log whose group did not reach the file is kept: the next open applies it.
	log_.Stop(committed);
	if (index) {
		auto& kept = KeptNoteIndexes();
		if (kept.size() >= kKeptNoteIndexes) kept.erase(kept.begin());
		kept.push_back({path_, token, std::move(index)});
	}
	auto& registry = Registry();
	auto it = registry.find(path_);
	if (it != registry.end() && it->second.expired()) registry.erase(it);
}

STATUS DbFile::OpenConnection(const std::string& path, bool create, sqlite3*& db) {
	// Calls are serialised by the API lock, so SQLite's own per-call mutex is not needed.
	int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX | (create ? SQLITE_OPEN_CREATE : 0);
	db = nullptr;
	int rc = sqlite3_open_v2(path.c_str(), &db, flags, nullptr);
	if (rc != SQLITE_OK) {
		sqlite3_close(db);
		db = nullptr;
		return create ? ERR_CREATE : ERR_NOT_NSF;
	}
	sqlite3_busy_timeout(db, 5000);
	// No memory mapping: a file replaced or cut short on disk while a handle is
	// open then gives an I/O error status rather than a SIGBUS. Searches pay a
	// copy per page for it (see bench/README.md).
	sqlite3_exec(db, "PRAGMA mmap_size=0", nullptr, nullptr, nullptr);
	// Changes go to a write-ahead log that is flushed at checkpoints, not at each
	// commit; the server process is the file's only user while it is open.
	sqlite3_exec(db, "PRAGMA synchronous=NORMAL", nullptr, nullptr, nullptr);
	sqlite3_exec(db, "PRAGMA locking_mode=EXCLUSIVE", nullptr, nullptr, nullptr);
	sqlite3_exec(db, "PRAGMA journal_mode=WAL", nullptr, nullptr, nullptr);
	// The log is folded into the file every 64 MiB and when the last handle closes.
	sqlite3_exec(db, "PRAGMA wal_autocheckpoint=16384", nullptr, nullptr, nullptr);
	return NOERROR;
}

STATUS DbFile::Create(const std::string& path, const DbSettings& settings) {
	if (PathExists(path)) return ERR_EXISTS;
	sqlite3* db;
	if (STATUS s = OpenConnection(path, true, db)) return s;
	std::shared_ptr<DbFile> file(new DbFile(path, db));
	STATUS status = NOERROR;
	{
		Transaction tx(*file);
		status = tx.status();
		if (status == NOERROR) status = SqlStatus(sqlite3_exec(db, kSchema, nullptr, nullptr, nullptr));
		if (status == NOERROR) {
			sqlite3_stmt* st = file->Prepare("INSERT INTO meta(key, value) VALUES('format', ?1)");
			sqlite3_bind_text(st, 1, kFormatTag, -1, SQLITE_STATIC);
			status = SqlStatus(sqlite3_step(st));
		}
		if (status == NOERROR) status = file->WriteSettings(settings);
		if (status == NOERROR) status = tx.Commit();
	}
	file.reset();
	if (status != NOERROR) ::unlink(path.c_str());
	return status;
}

bool DbFile::IsOpen(const std::string& path) {
	auto it = Registry().find(path);
	return it != Registry().end() && !it->second.expired();
}

STATUS DbFile::Open(const std::string& path, std::shared_ptr<DbFile>& out) {
	auto& registry = Registry();
	auto it = registry.find(path);
	if (it != registry.end()) {
		if (auto existing = it->second.lock()) {
			out = existing;
			return NOERROR;
		}
	}
	if (!PathExists(path)) return ERR_NOEXIST;
	sqlite3* db;
	if (STATUS s = OpenConnection(path, false, db)) return s;
	std::shared_ptr<DbFile> file(new DbFile(path, db));
	sqlite3_stmt* st = file->Prepare("SELECT value FROM meta WHERE key = 'format'");
	bool ours = st && sqlite3_step(st) == SQLITE_ROW &&
	            std::string_view(reinterpret_cast<const char*>(sqlite3_column_text(st, 0))) ==
	                kFormatTag;
	if (st) sqlite3_reset(st);
	if (!ours) return ERR_NOT_NSF;
	file->epoch_ = file->ReadMetaNumber(kEpochKey);
	// A log that could not be applied is kept for a later open; changes are then committed one by one.
	file->logged_ = file->ReplayLog();
	file->openToken_ = file->ReadMetaNumber(kIndexTokenKey);
	file->TakeKeptNoteIndex();
	// Reads run inside the group (one read transaction, not one per statement); the first change
	// makes it a write transaction.
	if (file->logged_) file->OpenGroup();
	registry[path] = file;
	out = std::move(file);
	return NOERROR;
}

sqlite3_stmt* DbFile::Prepare(const char* sqlText) {
	auto it = statements_.find(sqlText);
	if (it != statements_.end()) {
		sqlite3_reset(it->second);
		sqlite3_clear_bindings(it->second);
		return it->second;
	}
	sqlite3_stmt* st = nullptr;
	if (sqlite3_prepare_v3(db_, sqlText, -1, SQLITE_PREPARE_PERSISTENT, &st, nullptr) != SQLITE_OK) {
		sqlite3_finalize(st);
		return nullptr;
	}
	statements_[sqlText] = st;
	return st;
}

// Transactions and savepoints are taken once per change: their statements are prepared once,
// not parsed each time.
constexpr const char* kBegin = "BEGIN IMMEDIATE";
// A group starts as a read transaction and takes the write lock with its first change.
constexpr const char* kBeginGroup = "BEGIN";
constexpr const char* kCommit = "COMMIT";
constexpr const char* kRollback = "ROLLBACK";
constexpr const char* kSavepoint = "SAVEPOINT nested";
constexpr const char* kRelease = "RELEASE nested";
constexpr const char* kRollbackTo = "ROLLBACK TO nested";

// Room in the change log, and the share of it after which the group is committed.
constexpr size_t kLogCapacity = size_t{16} << 20;
constexpr size_t kLogCommitAt = size_t{12} << 20;

int DbFile::Run(const char* sqlText) {
	sqlite3_stmt* st = Prepare(sqlText);
	if (!st) return sqlite3_errcode(db_) == SQLITE_OK ? SQLITE_ERROR : sqlite3_errcode(db_);
	int rc = sqlite3_step(st);
	sqlite3_reset(st);
	return rc == SQLITE_DONE ? SQLITE_OK : rc;
}

STATUS DbFile::Begin(bool oneWrite) {
	const bool outermost = changeDepth() == 0;
	if (outermost && logged_ && !bulkLoad_) {
		// A statement that failed (a read too) may have taken the group's transaction with it: the
		// changes it held are in the log.
		if (groupOpen_ && sqlite3_get_autocommit(db_)) {
			AbandonGroup();
			logStalled_ = true;
		}
		if (!log_.started() && !log_.Start(ChangeLog::PathFor(path_), epoch_, kLogCapacity)) {
			// No room for a log: each change is committed on its own from now on.
			if (STATUS s = CommitGroup()) return s;
			logged_ = false;
		} else if (logStalled_) {
			if (STATUS s = ReapplyLog()) return s;
		} else if (!groupOpen_) {
			if (STATUS s = OpenGroup()) return s;
		}
	}
	const bool clearsToken = outermost && HoldsOpenToken();
	if (outermost) lightChange_ = oneWrite && groupOpen_ && logged_ && !bulkLoad_ && !clearsToken;
	// A single statement is all-or-nothing by itself: a change of one write needs no savepoint.
	int rc = outermost && lightChange_ ? SQLITE_OK : Run(transactionDepth_ == 0 ? kBegin : kSavepoint);
	if (rc != SQLITE_OK) return SqlStatus(rc);
	++transactionDepth_;
	if (outermost) {
		pendingAtChangeStart_ = pendingNextId_;
		record_.clear();
	}
	recordMarks_.push_back(record_.size());
	// Part of the change, so rolled back with it.
	if (clearsToken) {
		if (STATUS s = StoreMetaNumber(kIndexTokenKey, 0)) {
			Rollback();
			return s;
		}
		openTokenCleared_ = true;
	}
	return NOERROR;
}

STATUS DbFile::Commit() {
	if (changeDepth() <= 0) return NOERROR;
	if (transactionDepth_ > 1) {
		int rc = lightChange_ && changeDepth() == 1 ? SQLITE_OK : Run(kRelease);
		if (rc != SQLITE_OK) {
			Rollback();
			return SqlStatus(rc);
		}
		--transactionDepth_;
		recordMarks_.pop_back();
		return groupOpen_ && transactionDepth_ == 1 ? EndGroupedChange() : NOERROR;
	}
	transactionDepth_ = 0;
	recordMarks_.clear();
	int rc = Run(kCommit);
	if (rc != SQLITE_OK) {
		Run(kRollback);
		ForgetUndone();
		return SqlStatus(rc);
	}
	return NOERROR;
}

void DbFile::Rollback() {
	if (changeDepth() <= 0) return;
	ForgetUndone();
	// The change may have been the one that cleared the token; clearing it again is harmless.
	if (changeDepth() == 1) openTokenCleared_ = false;
	if (lightChange_ && changeDepth() == 1) {
		UndoLightChange();
		return;
	}
	if (transactionDepth_ > 1) {
		Run(kRollbackTo);
		Run(kRelease);
		record_.resize(recordMarks_.back());
		recordMarks_.pop_back();
		if (transactionDepth_-- == 2) pendingNextId_ = pendingAtChangeStart_;
		return;
	}
	transactionDepth_ = 0;
	recordMarks_.clear();
	pendingNextId_ = 0;
	Run(kRollback);
}

void DbFile::UndoLightChange() {
	// Without a savepoint to return to, a write the change made is undone with the whole group; the
	// log holds the changes the group had accepted, and they are applied again. (A failed statement
	// that took the group's transaction with it is seen by the next Begin.)
	const bool wrote = record_.size() > recordMarks_.back();
	transactionDepth_ = 1;
	record_.clear();
	recordMarks_.clear();
	lightChange_ = false;
	if (!wrote) return;
	AbandonGroup();
	ReapplyLog();
}

STATUS DbFile::OpenGroup() {
	int rc = Run(kBeginGroup);
	if (rc != SQLITE_OK) return SqlStatus(rc);
	transactionDepth_ = 1;
	groupOpen_ = true;
	groupChanges_ = 0;
	return NOERROR;
}

STATUS DbFile::CommitGroup() {
	if (!groupOpen_) return NOERROR;
	if (transactionDepth_ != 1) return ERR_LOCK;
	STATUS status = StorePendingNextId();
	const bool logHasRecords = log_.started() && log_.used() > 0;
	if (status == NOERROR && logHasRecords) status = StoreMetaNumber(kEpochKey, epoch_ + 1);
	int rc = status == NOERROR ? Run(kCommit) : SQLITE_OK;
	if (status != NOERROR || rc != SQLITE_OK) {
		AbandonGroup();
		return status != NOERROR ? status : SqlStatus(rc);
	}
	transactionDepth_ = 0;
	groupOpen_ = false;
	if (logHasRecords) log_.Restart(++epoch_);
	return NOERROR;
}

void DbFile::ForgetUndone() {
	ForgetHeads();
	DropNoteIndex();
	StartRecentRows();
}

void DbFile::ForgetRows() {
	ForgetUndone();
	rowChangesUnknownTo_ = ++rowChanges_;
}

void DbFile::AbandonGroup() {
	Run(kRollback);
	openTokenCleared_ = false;
	ForgetRows();
	transactionDepth_ = 0;
	groupOpen_ = false;
	pendingNextId_ = 0;
}

STATUS DbFile::EndGroupedChange() {
	if (bulkLoad_) return ++groupChanges_ >= kBulkGroupSize ? WriteBulkGroup() : NOERROR;
	bool inLog = log_.Append(record_);
	record_.clear();
	if (inLog && ++groupChanges_ < kGroupChanges && log_.used() < kLogCommitAt) return NOERROR;
	STATUS status = CommitGroup();
	if (status == NOERROR) {
		OpenGroup();  // reads until the next change run inside it too
		return NOERROR;
	}
	// The file refused the group: the log still holds its changes, so they are applied again.
	ReapplyLog();
	return inLog ? NOERROR : status;
}

STATUS DbFile::WriteBulkGroup() {
	if (STATUS s = CommitGroup()) {
		bulkLoad_ = false;
		return s;
	}
	return OpenGroup();
}

STATUS DbFile::SetBulkLoad(bool on) {
	if (on == bulkLoad_) return NOERROR;
	if (on) {
		if (changeDepth() != 0) return ERR_LOCK;
		if (STATUS s = CommitGroup()) return s;
		// A file being made is written once, straight into place, and only the last group's
		// commit flushes it: nobody else sees it yet, and the tools discard a file whose making
		// was cut short.
		sqlite3_exec(db_, "PRAGMA journal_mode=MEMORY", nullptr, nullptr, nullptr);
		sqlite3_exec(db_, "PRAGMA synchronous=OFF", nullptr, nullptr, nullptr);
		if (STATUS s = OpenGroup()) return s;
		// A larger page cache keeps the group's pages in memory until it is written.
		sqlite3_exec(db_, "PRAGMA cache_size=-65536", nullptr, nullptr, nullptr);
		bulkLoad_ = true;
		return NOERROR;
	}
	bulkLoad_ = false;
	sqlite3_exec(db_, "PRAGMA synchronous=NORMAL", nullptr, nullptr, nullptr);
	STATUS status = CommitGroup();
	sqlite3_exec(db_, "PRAGMA cache_size=-2000", nullptr, nullptr, nullptr);
	sqlite3_exec(db_, "PRAGMA journal_mode=WAL", nullptr, nullptr, nullptr);
	return status;
}

uint64_t DbFile::ReadMetaNumber(const char* key) {
	sqlite3_stmt* st = Prepare("SELECT value FROM meta WHERE key = ?1");
	if (!st) return 0;
	sqlite3_bind_text(st, 1, key, -1, SQLITE_STATIC);
	uint64_t value = 0;
	if (sqlite3_step(st) == SQLITE_ROW) value = static_cast<uint64_t>(sqlite3_column_int64(st, 0));
	sqlite3_reset(st);
	return value;
}

STATUS DbFile::StoreMetaNumber(const char* key, uint64_t value) {
	return RunWrite(WriteSql::PutMeta, {Text(1, key), Int(2, static_cast<sqlite3_int64>(value))});
}

std::unique_ptr<NoteIndex> DbFile::NoteIndexToKeep(uint64_t& token) {
	if (!noteIndex_ || !noteIndex_->complete() || transactionDepth_ != 0) return nullptr;
	if (HoldsOpenToken()) {
		token = openToken_;
		return std::move(noteIndex_);
	}
	token = NewIndexToken();
	if (Run(kBegin) != SQLITE_OK) return nullptr;
	if (StoreMetaNumber(kIndexTokenKey, token) != NOERROR || Run(kCommit) != SQLITE_OK) {
		Run(kRollback);
		return nullptr;
	}
	return std::move(noteIndex_);
}

void DbFile::TakeKeptNoteIndex() {
	auto& kept = KeptNoteIndexes();
	auto it = std::find_if(kept.begin(), kept.end(), [this](const KeptNoteIndex& k) { return k.path == path_; });
	if (it == kept.end()) return;
	if (openToken_ != 0 && it->token == openToken_) {
		noteIndex_ = std::move(it->index);
		++noteIndexEpoch_;
	}
	kept.erase(it);
}

bool DbFile::ApplyLogInGroup(const std::string& logPath) {
	if (OpenGroup() != NOERROR) return false;
	if (ChangeLog::ReadRecords(logPath, epoch_, [this](std::string_view record) { return ApplyRecord(record); }))
		return true;
	// Committing only some of the changes the log holds would make the rest stale.
	AbandonGroup();
	return false;
}

bool DbFile::ReplayLog() {
	const std::string logPath = ChangeLog::PathFor(path_);
	if (!PathExists(logPath)) return true;
	if (!ApplyLogInGroup(logPath)) return false;
	// Once its records are in the file the log is stale, also if it were found again.
	STATUS status = StoreMetaNumber(kEpochKey, epoch_ + 1);
	if (status == NOERROR) status = CommitGroup();
	else AbandonGroup();
	if (status != NOERROR) return false;
	++epoch_;
	::unlink(logPath.c_str());
	return true;
}

STATUS DbFile::ReapplyLog() {
	// Until all of it applies, none is in the group: the next change tries again, and the next open
	// applies the log.
	logStalled_ = !ApplyLogInGroup(log_.path());
	return logStalled_ ? ERR_IOERROR : NOERROR;
}

namespace {

// The write statements by number; a change log record names them so.
constexpr const char* kWriteSql[] = {
    "INSERT OR REPLACE INTO notes(id, class, deleted, unid, head, summary, body) VALUES(?1, ?2, 0, ?3, ?4, ?5, ?6)",
    "INSERT INTO notes(id, class, deleted, unid, head, summary, body) VALUES(?1, ?2, 0, ?3, ?4, ?5, ?6)",
    // The UNID (?3) is left out, so its index is not touched.
    "UPDATE notes SET class = ?2, deleted = 0, head = ?4, summary = ?5, body = ?6 WHERE id = ?1",
    "DELETE FROM notes WHERE id = ?1",
    "UPDATE notes SET deleted = 1, head = ?2, summary = NULL, body = NULL WHERE id = ?1",
    "INSERT OR REPLACE INTO meta(key, value) VALUES(?1, ?2)",
    "UPDATE meta SET value = ?1 WHERE key = 'nextNoteId'",
};
constexpr size_t kWriteSqlCount = sizeof kWriteSql / sizeof kWriteSql[0];

template <typename T>
void Put(std::vector<unsigned char>& out, const T& value) {
	const auto* p = reinterpret_cast<const unsigned char*>(&value);
	out.insert(out.end(), p, p + sizeof value);
}

// Reads from a change log record, never past its end.
class RecordReader {
public:
	explicit RecordReader(std::string_view data) : data_(data) {}
	bool done() const { return at_ == data_.size(); }
	template <typename T>
	bool Get(T& out) {
		if (data_.size() - at_ < sizeof out) return false;
		std::memcpy(&out, data_.data() + at_, sizeof out);
		at_ += sizeof out;
		return true;
	}
	bool Bytes(size_t size, const char*& out) {
		if (data_.size() - at_ < size) return false;
		out = data_.data() + at_;
		at_ += size;
		return true;
	}

private:
	std::string_view data_;
	size_t at_ = 0;
};

void BindValue(sqlite3_stmt* st, int index, unsigned char kind, sqlite3_int64 number, const void* data,
               size_t size) {
	switch (kind) {
	case 0: sqlite3_bind_int64(st, index, number); break;
	case 1: sqlite3_bind_blob64(st, index, data, size, SQLITE_STATIC); break;
	case 2: sqlite3_bind_text64(st, index, static_cast<const char*>(data), size, SQLITE_STATIC, SQLITE_UTF8); break;
	default: sqlite3_bind_null(st, index); break;
	}
}

}  // namespace

// A record: for each statement, its number, how many values, then each value as index, kind,
// size and bytes (an integer as eight bytes).
void DbFile::Record(WriteSql which, std::initializer_list<Bound> values) {
	record_.push_back(static_cast<unsigned char>(which));
	record_.push_back(static_cast<unsigned char>(values.size()));
	for (const Bound& v : values) {
		record_.push_back(static_cast<unsigned char>(v.index));
		record_.push_back(static_cast<unsigned char>(v.kind));
		bool isNumber = v.kind == Bound::Integer;
		Put(record_, static_cast<uint32_t>(isNumber ? sizeof v.number : v.size));
		if (isNumber) Put(record_, v.number);
		else if (v.size > 0) record_.insert(record_.end(), static_cast<const unsigned char*>(v.data),
		                                    static_cast<const unsigned char*>(v.data) + v.size);
	}
}

STATUS DbFile::RunWrite(WriteSql which, std::initializer_list<Bound> values) {
	sqlite3_stmt* st = Prepare(kWriteSql[static_cast<size_t>(which)]);
	if (!st) return ERR_IOERROR;
	for (const Bound& v : values) BindValue(st, v.index, v.kind, v.number, v.data, v.size);
	STATUS s = SqlStatus(sqlite3_step(st));
	sqlite3_reset(st);
	if (s == NOERROR && groupOpen_ && !bulkLoad_ && changeDepth() > 0) Record(which, values);
	return s;
}

bool DbFile::ApplyRecord(std::string_view record) {
	ForgetRows();  // the record's statements bypass the caches
	if (Run(kSavepoint) != SQLITE_OK) return false;
	++transactionDepth_;
	RecordReader in(record);
	bool ok = true;
	while (ok && !in.done()) {
		unsigned char which = 0, count = 0;
		ok = in.Get(which) && in.Get(count) && which < kWriteSqlCount;
		sqlite3_stmt* st = ok ? Prepare(kWriteSql[which]) : nullptr;
		ok = ok && st;
		for (unsigned char i = 0; ok && i < count; ++i) {
			unsigned char index = 0, kind = 0;
			uint32_t size = 0;
			sqlite3_int64 number = 0;
			const char* bytes = nullptr;
			ok = in.Get(index) && in.Get(kind) && in.Get(size) &&
			     (kind == 0 ? size == sizeof number && in.Get(number) : in.Bytes(size, bytes));
			if (ok) BindValue(st, index, kind, number, bytes, size);
		}
		if (ok) ok = sqlite3_step(st) == SQLITE_DONE;
		if (st) sqlite3_reset(st);
	}
	if (!ok) Run(kRollbackTo);
	Run(kRelease);
	--transactionDepth_;
	return ok;
}

STATUS DbFile::ReadSettings(DbSettings& out) {
	if (STATUS s = StorePendingNextId()) return s;
	sqlite3_stmt* st = Prepare("SELECT key, value FROM meta");
	if (!st) return ERR_NOT_NSF;
	int rc;
	while ((rc = sqlite3_step(st)) == SQLITE_ROW) {
		std::string_view key(reinterpret_cast<const char*>(sqlite3_column_text(st, 0)));
		if (key == "dbid") ColumnStruct(st, 1, out.dbid);
		else if (key == "replica") ColumnStruct(st, 1, out.replica);
		else if (key == "info") {
			const unsigned char* text = sqlite3_column_text(st, 1);
			out.info = text ? reinterpret_cast<const char*>(text) : "";
		} else if (key == "build") out.buildVersion = static_cast<WORD>(sqlite3_column_int(st, 1));
		else if (key == "nextNoteId") out.nextNoteId = static_cast<NOTEID>(sqlite3_column_int64(st, 1));
	}
	sqlite3_reset(st);
	return rc == SQLITE_DONE ? NOERROR : SqlStatus(rc);
}

STATUS DbFile::WriteSettings(const DbSettings& settings) {
	Transaction tx(*this);
	if (tx.status()) return tx.status();
	pendingNextId_ = 0;  // settings.nextNoteId is the counter now
	auto put = [&](const char* key, const Bound& value) {
		return RunWrite(WriteSql::PutMeta, {Text(1, key), value});
	};
	STATUS s = put("dbid", Blob(2, &settings.dbid, sizeof settings.dbid));
	if (!s) s = put("replica", Blob(2, &settings.replica, sizeof settings.replica));
	if (!s) s = put("info", Text(2, settings.info.c_str()));
	if (!s) s = put("build", Int(2, settings.buildVersion));
	if (!s) s = put("nextNoteId", Int(2, settings.nextNoteId));
	if (s) return s;
	return tx.Commit();
}

namespace {

void FillFromHead(NOTEID id, const NoteHead& head, StoredNote& out) {
	out.id = id;
	out.noteClass = head.noteClass;
	out.deleted = head.deleted != 0;
	out.oid = head.oid;
	out.modified = head.modified;
	out.added = head.added;
	out.flags = head.flags;
	out.items.clear();
}

}  // namespace

DbFile::CachedHead& DbFile::HeadSlot(NOTEID id) {
	if (heads_.empty()) heads_.resize(kHeadCacheSize);
	return heads_[(id / kNoteIdStep) % kHeadCacheSize];
}

void DbFile::RememberHead(NOTEID id, const NoteHead& head) {
	CachedHead& slot = HeadSlot(id);
	slot.id = id;
	slot.head = head;
}

void DbFile::ForgetHeads() {
	heads_.clear();
}

STATUS DbFile::ReadNote(NOTEID id, bool withItems, StoredNote& out) {
	if (withItems) ++noteReads_;
	if (!withItems) {
		const CachedHead& cached = HeadSlot(id);
		if (cached.id == id && id != 0) {
			FillFromHead(id, cached.head, out);
			return NOERROR;
		}
	}
	if (const RecentRow* row = FindRecentRow(id)) {
		const BYTE* at = recentBytes_.data() + row->at;
		NoteHead head{};
		std::memcpy(&head, at, std::min(row->headSize, sizeof head));
		RememberHead(id, head);
		FillFromHead(id, head, out);
		if (withItems && !out.deleted) {
			ViewBlob(at + row->headSize, row->summarySize, summaryViews_);
			ViewBlob(at + row->headSize + row->summarySize, row->bodySize, bodyViews_);
			MergeByOrdinal(summaryViews_, bodyViews_, out.items);
		}
		return NOERROR;
	}
	sqlite3_stmt* st = Prepare(withItems ? "SELECT head, summary, body FROM notes WHERE id = ?1"
	                                     : "SELECT head FROM notes WHERE id = ?1");
	if (!st) return ERR_IOERROR;
	sqlite3_bind_int64(st, 1, id);
	int rc = sqlite3_step(st);
	if (rc != SQLITE_ROW) {
		sqlite3_reset(st);
		return rc == SQLITE_DONE ? ERR_INVALID_NOTE : SqlStatus(rc);
	}
	NoteHead head;
	ColumnStruct(st, 0, head);
	RememberHead(id, head);
	FillFromHead(id, head, out);
	if (withItems && !out.deleted) {
		ViewColumn(st, 1, summaryViews_);
		ViewColumn(st, 2, bodyViews_);
		MergeByOrdinal(summaryViews_, bodyViews_, out.items);
	}
	sqlite3_reset(st);
	return NOERROR;
}

STATUS DbFile::FindUnid(const UNID& unid, NOTEID& id, bool& deleted) {
	sqlite3_stmt* st = Prepare("SELECT id, deleted FROM notes WHERE unid = ?1");
	if (!st) return ERR_IOERROR;
	BindStruct(st, 1, unid);
	int rc = sqlite3_step(st);
	STATUS status = ERR_NOT_FOUND;
	if (rc == SQLITE_ROW) {
		id = static_cast<NOTEID>(sqlite3_column_int64(st, 0));
		deleted = sqlite3_column_int(st, 1) != 0;
		status = NOERROR;
	} else if (rc != SQLITE_DONE) {
		status = SqlStatus(rc);
	}
	sqlite3_reset(st);
	return status;
}

namespace {

// The note's items as the two stored blobs: summary items and the others, each with its ordinals.
struct EncodedItems {
	Bytes summary;
	Bytes body;
};

// One item record: ordinal, flags, name length, block length, name, block.
void AppendItem(Bytes& out, const Item& item, WORD ordinal) {
	WORD nameLength = static_cast<WORD>(std::min<size_t>(item.name.size(), MAXWORD));
	DWORD blockLength = static_cast<DWORD>(item.block->size());
	size_t at = out.size();
	out.resize(at + 10 + nameLength + blockLength);
	BYTE* p = out.data() + at;
	std::memcpy(p, &ordinal, 2);
	std::memcpy(p + 2, &item.flags, 2);
	std::memcpy(p + 4, &nameLength, 2);
	std::memcpy(p + 6, &blockLength, 4);
	std::memcpy(p + 10, item.name.data(), nameLength);
	std::memcpy(p + 10 + nameLength, item.block->data(), blockLength);
}

EncodedItems EncodeNoteItems(const StoredNote& note) {
	EncodedItems out;
	size_t summarySize = 0, bodySize = 0;
	for (const Item& item : note.items)
		((item.flags & ITEM_SUMMARY) ? summarySize : bodySize) += 10 + item.name.size() + item.block->size();
	out.summary.reserve(summarySize);
	out.body.reserve(bodySize);
	for (size_t i = 0; i < note.items.size(); ++i) {
		const Item& item = note.items[i];
		AppendItem((item.flags & ITEM_SUMMARY) ? out.summary : out.body, item, static_cast<WORD>(i));
	}
	return out;
}

}  // namespace

STATUS DbFile::WriteNote(const StoredNote& note) {
	return PutRow(note, WriteSql::PutNote);
}

STATUS DbFile::InsertNote(const StoredNote& note) {
	return PutRow(note, WriteSql::InsertNote);
}

STATUS DbFile::PutRow(const StoredNote& note, WriteSql which) {
	EncodedItems items = EncodeNoteItems(note);
	UNID unid = UnidOf(note.oid);
	NoteHead head = HeadOf(note, false);
	STATUS s = RunWrite(which, {Int(1, note.id), Int(2, note.noteClass), Blob(3, &unid, sizeof unid),
	                            Blob(4, &head, sizeof head), Blob(5, items.summary.data(), items.summary.size()),
	                            Blob(6, items.body.data(), items.body.size())});
	if (s != NOERROR || sqlite3_changes(db_) == 0) return s;
	if (which == WriteSql::PutNote) ForgetRows();  // a replace may have removed a row of that UNID
	RememberHead(note.id, head);
	RowChanged(note.id);
	if (noteIndex_) noteIndex_->Put(note.id, note.noteClass, items.summary.data(), items.summary.size());
	return s;
}

STATUS DbFile::RewriteNote(const StoredNote& note) {
	if (STATUS s = PutRow(note, WriteSql::RewriteNote)) return s;
	return sqlite3_changes(db_) == 1 ? NOERROR : ERR_INVALID_NOTE;
}

STATUS DbFile::DeleteRow(NOTEID id) {
	STATUS s = RunWrite(WriteSql::DeleteRow, {Int(1, id)});
	CachedHead& slot = HeadSlot(id);
	if (slot.id == id) slot.id = 0;
	if (s == NOERROR) RowChanged(id);
	if (s == NOERROR && noteIndex_) noteIndex_->Remove(id);
	return s;
}

STATUS DbFile::WriteStub(const StoredNote& stub) {
	NoteHead head = HeadOf(stub, true);
	STATUS s = RunWrite(WriteSql::WriteStub, {Int(1, stub.id), Blob(2, &head, sizeof head)});
	if (s != NOERROR || sqlite3_changes(db_) == 0) return s;
	RememberHead(stub.id, head);
	RowChanged(stub.id);
	if (noteIndex_) noteIndex_->Remove(stub.id);
	return s;
}

NoteIndex& DbFile::StartNoteIndex(std::vector<std::string> fields, NOTEID lastRow) {
	noteIndex_ = std::make_unique<NoteIndex>(std::move(fields), lastRow);
	++noteIndexEpoch_;
	return *noteIndex_;
}

// A rolled-back change may have been recorded in the map already.
void DbFile::DropNoteIndex() {
	if (!noteIndex_) return;
	noteIndex_.reset();
	++noteIndexEpoch_;
}

void DbFile::StartRecentRows() {
	recentRows_.clear();
	recentBytes_.clear();
}

void DbFile::KeepRecentRow(NOTEID id, sqlite3_stmt* st, int headColumn) {
	if (!recentRows_.empty() && recentRows_.back().id >= id) {
		if (recentRows_.back().id != id || !recentRows_.back().dropped) return;
		recentRows_.pop_back();
	}
	size_t sizes[3];
	const void* blobs[3];
	size_t total = 0;
	for (int i = 0; i < 3; ++i) {
		blobs[i] = sqlite3_column_blob(st, headColumn + i);
		sizes[i] = blobs[i] ? static_cast<size_t>(sqlite3_column_bytes(st, headColumn + i)) : 0;
		total += sizes[i];
	}
	if (recentBytes_.size() + total > kRecentRowsBytes) return;
	RecentRow row{id, recentBytes_.size(), sizes[0], sizes[1], sizes[2], false};
	for (int i = 0; i < 3; ++i) {
		const BYTE* p = static_cast<const BYTE*>(blobs[i]);
		if (sizes[i] > 0) recentBytes_.insert(recentBytes_.end(), p, p + sizes[i]);
	}
	recentRows_.push_back(row);
}

const DbFile::RecentRow* DbFile::FindRecentRow(NOTEID id) const {
	auto it = std::lower_bound(recentRows_.begin(), recentRows_.end(), id,
	                           [](const RecentRow& row, NOTEID wanted) { return row.id < wanted; });
	return it != recentRows_.end() && it->id == id && !it->dropped ? &*it : nullptr;
}

void DbFile::RowChanged(NOTEID id) {
	// Marked, not erased: the callback changes rows in ascending order, near the front.
	if (const RecentRow* kept = FindRecentRow(id)) recentRows_[kept - recentRows_.data()].dropped = true;
	if (rowChangeLog_.empty()) rowChangeLog_.resize(kRowChangeLogSize);
	rowChangeLog_[rowChanges_ % kRowChangeLogSize] = id;
	++rowChanges_;
}

bool DbFile::RowsChangedSince(uint64_t count, std::vector<NOTEID>& ids) const {
	if (count < rowChangesUnknownTo_ || rowChanges_ - count > kRowChangeLogSize) return false;
	for (uint64_t i = count; i < rowChanges_; ++i) ids.push_back(rowChangeLog_[i % kRowChangeLogSize]);
	return true;
}

STATUS DbFile::ReadNextNoteId(NOTEID& next) {
	if (bulkLoad_ && pendingNextId_ != 0) {
		next = pendingNextId_;
		return NOERROR;
	}
	next = 0;
	sqlite3_stmt* read = Prepare("SELECT value FROM meta WHERE key = 'nextNoteId'");
	if (!read) return ERR_IOERROR;
	int rc = sqlite3_step(read);
	if (rc == SQLITE_ROW) next = static_cast<NOTEID>(sqlite3_column_int64(read, 0));
	sqlite3_reset(read);
	return rc == SQLITE_ROW || rc == SQLITE_DONE ? NOERROR : SqlStatus(rc);
}

STATUS DbFile::LowestSettableNextId(NOTEID& lowest) {
	// The counter of a bulk load was set above every ID in the file when it was first taken.
	if (bulkLoad_ && pendingNextId_ != 0) {
		lowest = pendingNextId_;
		return NOERROR;
	}
	NOTEID next = 0, highest = 0;
	if (STATUS s = ReadNextNoteId(next)) return s;
	if (STATUS s = HighestNoteId(highest)) return s;
	lowest = std::max(next, highest + 1);
	return NOERROR;
}

STATUS DbFile::SetNextNoteId(NOTEID next) {
	if (bulkLoad_) {  // written with the group
		pendingNextId_ = next;
		return NOERROR;
	}
	Transaction tx(*this);
	if (tx.status()) return tx.status();
	if (STATUS s = StoreNextNoteId(next)) return s;
	return tx.Commit();
}

STATUS DbFile::AllocateNoteId(NOTEID& id) {
	if (bulkLoad_ && pendingNextId_ != 0) {  // the IDs handed out since the last write of the counter
		if (pendingNextId_ >= NOTEID_RESERVED) return ERR_NOTE_ID;
		id = pendingNextId_;
		pendingNextId_ += kNoteIdStep;
		return NOERROR;
	}
	NOTEID next = 0;
	if (STATUS s = ReadNextNoteId(next)) return s;
	NOTEID highest = 0;
	if (STATUS s = HighestNoteId(highest)) return s;
	id = std::max(next, kFirstNoteId);
	if (id <= highest) id = highest + kNoteIdStep;
	if (id >= NOTEID_RESERVED) return ERR_NOTE_ID;
	if (bulkLoad_) {
		pendingNextId_ = id + kNoteIdStep;
		return NOERROR;
	}
	return StoreNextNoteId(id + kNoteIdStep);
}

STATUS DbFile::StoreNextNoteId(NOTEID next) {
	return RunWrite(WriteSql::StoreNextId, {Int(1, static_cast<sqlite3_int64>(next))});
}

STATUS DbFile::StorePendingNextId() {
	if (pendingNextId_ == 0) return NOERROR;
	STATUS s = StoreNextNoteId(pendingNextId_);
	if (s == NOERROR) pendingNextId_ = 0;
	return s;
}

STATUS DbFile::HighestNoteId(NOTEID& id) {
	sqlite3_stmt* st = Prepare("SELECT max(id) FROM notes");
	if (!st) return ERR_IOERROR;
	int rc = sqlite3_step(st);
	id = rc == SQLITE_ROW ? static_cast<NOTEID>(sqlite3_column_int64(st, 0)) : 0;
	sqlite3_reset(st);
	return rc == SQLITE_ROW ? NOERROR : SqlStatus(rc);
}

STATUS DbFile::NoteIdsOfClass(WORD classMask, std::vector<NOTEID>& ids) {
	sqlite3_stmt* st = Prepare(
	    "SELECT id FROM notes WHERE deleted = 0 AND (class & ?1) != 0 ORDER BY id");
	if (!st) return ERR_IOERROR;
	sqlite3_bind_int(st, 1, classMask);
	int rc;
	while ((rc = sqlite3_step(st)) == SQLITE_ROW)
		ids.push_back(static_cast<NOTEID>(sqlite3_column_int64(st, 0)));
	sqlite3_reset(st);
	return rc == SQLITE_DONE ? NOERROR : SqlStatus(rc);
}

STATUS PutNewNote(DbFile& file, StoredNote& note, bool replaceLive) {
	bool haveId = false;
	if (!replaceLive) {
		// Nearly every new note brings a UNID no row has: the insert's own index check tells.
		if (STATUS a = file.AllocateNoteId(note.id)) return a;
		haveId = true;
		STATUS s = file.InsertNote(note);
		if (s != ERR_CONFLICT) return s;
	}
	NOTEID existing = 0;
	bool deleted = false;
	STATUS s = file.FindUnid(UnidOf(note.oid), existing, deleted);
	if (s == NOERROR && !deleted) {
		if (!replaceLive) return ERR_CONFLICT;
		note.id = existing;
		return file.WriteNote(note);
	}
	if (s == NOERROR && deleted) s = file.DeleteRow(existing);
	else if (s == ERR_NOT_FOUND) s = NOERROR;
	if (s) return s;
	if (!haveId) {
		if (STATUS a = file.AllocateNoteId(note.id)) return a;
	}
	return file.InsertNote(note);
}

Bytes BuildSummaryBuffer(const void* summary, size_t size) {
	std::vector<StoredItemView> views;
	size_t total = sizeof(ITEM_TABLE);
	ForEachStoredItem(summary, size, [&](const StoredItemView& v) {
		size_t need = sizeof(ITEM) + v.name.size() + v.blockLength;
		if (total + need > MAXWORD || v.blockLength > MAXWORD) return false;
		total += need;
		views.push_back(v);
		return true;
	});
	Bytes out(total);
	ITEM_TABLE table{static_cast<USHORT>(total), static_cast<USHORT>(views.size())};
	std::memcpy(out.data(), &table, sizeof table);
	BYTE* descriptors = out.data() + sizeof(ITEM_TABLE);
	BYTE* data = descriptors + views.size() * sizeof(ITEM);
	for (const StoredItemView& v : views) {
		ITEM item{static_cast<USHORT>(v.name.size()), static_cast<USHORT>(v.blockLength)};
		std::memcpy(descriptors, &item, sizeof item);
		descriptors += sizeof item;
		std::memcpy(data, v.name.data(), v.name.size());
		data += v.name.size();
		std::memcpy(data, v.block, v.blockLength);
		data += v.blockLength;
	}
	return out;
}

bool PathExists(const std::string& path) {
	struct stat st;
	return ::stat(path.c_str(), &st) == 0;
}

bool HasExtension(const std::string& path) {
	size_t slash = path.find_last_of('/');
	size_t dot = path.find_last_of('.');
	return dot != std::string::npos && (slash == std::string::npos || dot > slash);
}

}  // namespace emu
