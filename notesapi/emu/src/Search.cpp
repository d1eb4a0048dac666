// Selection formulas (NSFFormulaCompile) and the note walk (NSFSearch).
//
// The walk reads the notes table in note-ID order, in batches, and only
// the summary column of each row: like the platform, formulas and summary
// buffers see summary items only. Callbacks run between batches, never
// while a statement is open, so they may change the database freely.
// The walk is bounded by the highest note ID at its start (notes created by
// a callback are not visited) and re-reads a batched note whose row was
// written since the batch was read before reporting it (deleted notes are
// skipped, changed ones evaluated again); when the connection cannot tell
// which rows were written, it re-reads every one. Note IDs do not change on
// update, so no note is reported twice.
//
// A walk that reports matches only may take its batches from the
// connection's map of the notes (NoteIndex.h): it reads only the rows of
// the notes it could report, each still judged by the formula. A walk
// without a usable map fills one as it reads the table.
#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "Emu.h"
#include "Formula.h"
#include "NoteIndex.h"
#include "Store.h"
#include "Values.h"

namespace emu {
namespace {

namespace fml = emu::formula;

bool gReportNonMatches = false;

constexpr size_t kBatchSize = 1024;

// Field values for the formula engine, straight from an encoded summary blob.
class SummaryFields : public fml::FieldSource {
public:
	SummaryFields(const void* summary, size_t size) : summary_(summary), size_(size) {}

	bool field(std::string_view name, fml::Value& out) const override {
		StoredItemView item;
		if (!Find(name, item)) return false;
		Fill(item, out);
		return true;
	}

	Peek peek(std::string_view name, std::string_view& text) const override {
		StoredItemView item;
		if (!Find(name, item)) return Peek::Absent;
		WORD type;
		std::memcpy(&type, item.block, sizeof type);
		if (type != TYPE_TEXT) return Peek::Other;
		text = std::string_view(reinterpret_cast<const char*>(item.block + sizeof type),
		                        item.blockLength - sizeof type);
		return Peek::OneText;
	}

private:
	// The first summary item of that name.
	bool Find(std::string_view name, StoredItemView& out) const {
		auto named = [name](std::string_view itemName) { return SameName(itemName, name); };
		return FindStoredItem(summary_, size_, name.size(), named, out);
	}

	// NameEquals for names of equal length, with the common answers found inline: first bytes that
	// differ in more than the ASCII case bit, the same bytes.
	static bool SameName(std::string_view itemName, std::string_view name) {
		if (name.empty()) return true;
		if (((itemName[0] ^ name[0]) & ~0x20) != 0) return false;
		return std::memcmp(itemName.data(), name.data(), name.size()) == 0 || NameEquals(itemName, name);
	}

	static void Fill(const StoredItemView& item, fml::Value& out) {
		WORD type;
		std::memcpy(&type, item.block, sizeof type);
		const BYTE* value = item.block + sizeof type;
		size_t length = item.blockLength - sizeof type;
		out.numbers.clear();
		if (type == TYPE_TEXT) {  // the common case, without allocations
			out.kind = fml::Value::Kind::Text;
			out.texts.resize(1);
			out.texts[0].assign(reinterpret_cast<const char*>(value), length);
			return;
		}
		out.texts.clear();
		std::vector<std::string_view> texts;
		if (TextEntries(type, value, length, texts)) {
			out.kind = fml::Value::Kind::Text;
			for (std::string_view t : texts) out.texts.emplace_back(t);
		} else if (NumberEntries(type, value, length, out.numbers)) {
			out.kind = fml::Value::Kind::Number;
		} else {
			out.kind = fml::Value::Kind::Error;  // times and other types have no formula value here
		}
	}

	const void* summary_;
	size_t size_;
};

struct Candidate {
	SEARCH_MATCH match;
	Bytes summary;  // ITEM_TABLE buffer when SEARCH_SUMMARY
};

struct Walk {
	DbFile* file;
	const fml::Program* program;
	WORD flags;
	WORD classMask;
	const TIMEDATE* since;
	bool reportNonMatches;
	DBID dbid;
	// A formula that only compares one field with texts: that field and the texts' caseless forms.
	std::string_view choiceField;
	const std::vector<std::string>* choiceTexts;
};

bool ModifiedSince(const TIMEDATE& modified, const TIMEDATE* since) {
	if (!since) return true;
	return TimeDateCompare(&modified, since) > 0;
}

// One row of the notes table as the walk sees it. summary points into the
// statement's row and is valid until the next step.
struct Row {
	NOTEID id;
	NoteHead head;
	const void* summary;
	size_t summarySize;
};

// A plain range scan of the table: the end of the walk, class and deletion
// are tested here, in C++, which keeps SQLite's work per row at that of a
// bare scan.
const char* kBatch = "SELECT id, head, summary FROM notes WHERE id > ?1 ORDER BY id";
const char* kOneNote = "SELECT id, head, summary FROM notes WHERE id = ?1";
// The same reading whole rows, for a walk whose callback opens the notes it is given: their rows
// are kept for it (DbFile::KeepRecentRow).
const char* kWholeBatch = "SELECT id, head, summary, body FROM notes WHERE id > ?1 ORDER BY id";
const char* kWholeNote = "SELECT id, head, summary, body FROM notes WHERE id = ?1";

// Adds a reported note to the batch, keeping its row when asked to.
void Report(const Walk& walk, sqlite3_stmt* st, NOTEID id, bool keep, Candidate& candidate,
            std::vector<Candidate>& batch) {
	batch.push_back(std::move(candidate));
	if (keep) walk.file->KeepRecentRow(id, st, 1);
}

// Reads the row's header (row.id is set); false when the walk does not
// report such notes.
bool ReadRow(const Walk& walk, sqlite3_stmt* st, Row& row) {
	const void* head = sqlite3_column_blob(st, 1);
	if (!head || static_cast<size_t>(sqlite3_column_bytes(st, 1)) < sizeof(NoteHead)) return false;
	std::memcpy(&row.head, head, sizeof(NoteHead));
	if ((row.head.noteClass & walk.classMask) == 0) return false;
	if (row.head.deleted && !walk.since && !(walk.flags & SEARCH_ALL_VERSIONS)) return false;
	if (walk.since && !ModifiedSince(row.head.modified, walk.since)) return false;
	row.summary = nullptr;
	row.summarySize = 0;
	if (!row.head.deleted && (walk.program || (walk.flags & SEARCH_SUMMARY))) {
		row.summary = sqlite3_column_blob(st, 2);
		row.summarySize = static_cast<size_t>(sqlite3_column_bytes(st, 2));
	}
	return true;
}

// Evaluates the formula on a row; false when the note is not to be reported.
bool Consider(const Walk& walk, const Row& row, Candidate& out) {
	WORD noteClass = row.head.noteClass;
	bool matches = false;
	if (!row.head.deleted) {
		bool formulaApplies =
		    walk.program && !((walk.flags & SEARCH_DATAONLY_FORMULA) && !(noteClass & NOTE_CLASS_DATA));
		matches = !formulaApplies || fml::Selects(*walk.program, SummaryFields(row.summary, row.summarySize));
		if (!matches && !walk.reportNonMatches) return false;
	} else if (walk.flags & SEARCH_NOTIFYDELETIONS) {
		noteClass |= NOTE_CLASS_NOTIFYDELETION;
	}
	std::memset(&out.match, 0, sizeof out.match);
	out.match.ID.File = walk.dbid;
	out.match.ID.Note = row.head.modified;
	out.match.ID.NoteID = row.id;
	out.match.OriginatorID = row.head.oid;
	out.match.NoteClass = noteClass;
	out.match.SERetFlags = matches ? SE_FMATCH : SE_FNOMATCH;
	out.summary.clear();
	if ((walk.flags & SEARCH_SUMMARY) && !row.head.deleted) {
		out.summary = BuildSummaryBuffer(row.summary, row.summarySize);
		out.match.SummaryLength = static_cast<WORD>(out.summary.size());
	}
	return true;
}

// Records the row the statement is on in a note map being filled.
void PutInIndex(NoteIndex& index, sqlite3_stmt* st, NOTEID id) {
	NoteHead head;
	const void* headBlob = sqlite3_column_blob(st, 1);
	if (!headBlob || static_cast<size_t>(sqlite3_column_bytes(st, 1)) < sizeof(NoteHead)) {
		index.FillRow(id, 0, nullptr, 0);
		return;
	}
	std::memcpy(&head, headBlob, sizeof head);
	if (head.deleted) {
		index.FillRow(id, 0, nullptr, 0);
		return;
	}
	const void* summary = nullptr;
	size_t size = 0;
	if (!index.fields().empty()) {
		summary = sqlite3_column_blob(st, 2);
		size = static_cast<size_t>(sqlite3_column_bytes(st, 2));
	}
	index.FillRow(id, head.noteClass, summary, size);
}

// Reads the next batch of rows after lastId, putting each in `filling` when there is one.
STATUS ReadBatch(const Walk& walk, NoteIndex* filling, NOTEID& lastId, NOTEID maxId, std::vector<Candidate>& batch,
                 bool& more, bool keep) {
	sqlite3_stmt* st = walk.file->Prepare(keep ? kWholeBatch : kBatch);
	if (!st) return ERR_IOERROR;
	sqlite3_bind_int64(st, 1, lastId);
	batch.clear();
	walk.file->StartRecentRows();
	size_t rows = 0;
	int rc = SQLITE_DONE;
	Candidate candidate;
	Row row;
	while (rows < kBatchSize && (rc = sqlite3_step(st)) == SQLITE_ROW) {
		const sqlite3_int64 id = sqlite3_column_int64(st, 0);
		if (id > maxId) {  // notes made since the walk began
			rc = SQLITE_DONE;
			break;
		}
		++rows;
		row.id = lastId = static_cast<NOTEID>(id);
		if (filling) PutInIndex(*filling, st, row.id);
		if (ReadRow(walk, st, row) && Consider(walk, row, candidate)) Report(walk, st, row.id, keep, candidate, batch);
	}
	more = rows == kBatchSize;
	sqlite3_reset(st);
	return rows == kBatchSize || rc == SQLITE_DONE ? NOERROR : ERR_IOERROR;
}

// The candidates' rows one by one.
STATUS ReadEach(const Walk& walk, const std::vector<NOTEID>& ids, std::vector<Candidate>& batch, bool keep) {
	Candidate candidate;
	Row row;
	for (NOTEID id : ids) {
		sqlite3_stmt* st = walk.file->Prepare(keep ? kWholeNote : kOneNote);
		if (!st) return ERR_IOERROR;
		sqlite3_bind_int64(st, 1, id);
		int rc = sqlite3_step(st);
		row.id = id;
		if (rc == SQLITE_ROW && ReadRow(walk, st, row) && Consider(walk, row, candidate))
			Report(walk, st, id, keep, candidate, batch);
		sqlite3_reset(st);
		if (rc != SQLITE_ROW && rc != SQLITE_DONE) return ERR_IOERROR;
	}
	return NOERROR;
}

// The candidates' rows from one scan of the range after `after`, passing over the other rows
// without reading them: cheaper than looking each up when they are a good share of the range.
STATUS ReadRange(const Walk& walk, NOTEID after, const std::vector<NOTEID>& ids, std::vector<Candidate>& batch,
                 bool keep) {
	sqlite3_stmt* st = walk.file->Prepare(keep ? kWholeBatch : kBatch);
	if (!st) return ERR_IOERROR;
	sqlite3_bind_int64(st, 1, after);
	Candidate candidate;
	Row row;
	size_t next = 0;
	int rc = SQLITE_DONE;
	while (next < ids.size() && (rc = sqlite3_step(st)) == SQLITE_ROW) {
		const NOTEID id = static_cast<NOTEID>(sqlite3_column_int64(st, 0));
		while (next < ids.size() && ids[next] < id) ++next;  // a candidate without a row
		if (next == ids.size() || ids[next] != id) continue;
		++next;
		row.id = id;
		if (ReadRow(walk, st, row) && Consider(walk, row, candidate)) Report(walk, st, id, keep, candidate, batch);
	}
	sqlite3_reset(st);
	return rc == SQLITE_ROW || rc == SQLITE_DONE ? NOERROR : ERR_IOERROR;
}

// Share of the range's notes above which the candidates are read by a scan of the range.
constexpr size_t kRangeShareDivisor = 4;

// Reads the next batch of notes after lastId that the map cannot rule out.
STATUS ReadIndexedBatch(const Walk& walk, const NoteIndex& index, NOTEID& lastId, NOTEID maxId,
                        std::vector<Candidate>& batch, bool& more, bool keep) {
	// Classes the formula does not apply to are reported whatever their fields hold.
	WORD alwaysRead = (walk.flags & SEARCH_DATAONLY_FORMULA) ? static_cast<WORD>(~NOTE_CLASS_DATA) : WORD{0};
	int column = walk.choiceField.empty() ? -1 : index.ColumnOf(walk.choiceField);
	NoteIndex::Filter filter = index.MakeFilter(walk.classMask, alwaysRead, column, walk.choiceTexts);
	std::vector<NOTEID> ids;
	ids.reserve(kBatchSize);
	NoteIndex::Span span = index.Gather(lastId, maxId, filter, kBatchSize, ids);
	const NOTEID after = lastId;
	lastId = span.reached;
	more = span.more;
	batch.clear();
	walk.file->StartRecentRows();
	if (ids.empty()) return NOERROR;
	return ids.size() * kRangeShareDivisor > span.looked ? ReadRange(walk, after, ids, batch, keep)
	                                                      : ReadEach(walk, ids, batch, keep);
}

// The connection's note map when complete, for a walk that may use one.
const NoteIndex* UsableIndex(const Walk& walk) {
	if (walk.reportNonMatches) return nullptr;
	const NoteIndex* index = walk.file->noteIndex();
	return index && index->complete() ? index : nullptr;
}

// A note map this walk fills as it reads the table.
struct Filling {
	NoteIndex* index = nullptr;
	uint64_t epoch = 0;

	// Null once the map was replaced or dropped (by a change rolled back, another search).
	NoteIndex* current(const DbFile& file) const { return file.noteIndexEpoch() == epoch ? index : nullptr; }
};

// Starts a new map unless the connection's own serves this walk: one with a column for the
// walk's field, as long as a map can take one more.
Filling StartFilling(const Walk& walk, NOTEID maxId) {
	if (walk.reportNonMatches) return Filling();
	const NoteIndex* index = walk.file->noteIndex();
	std::vector<std::string> fields;
	if (index && index->complete()) {
		bool lacksField = !walk.choiceField.empty() && index->ColumnOf(walk.choiceField) < 0;
		if (!lacksField || index->fields().size() >= NoteIndex::kMaxFields) return Filling();
		fields = index->fields();
	}
	if (!walk.choiceField.empty()) fields.emplace_back(walk.choiceField);
	Filling filling;
	filling.index = &walk.file->StartNoteIndex(std::move(fields), maxId);
	filling.epoch = walk.file->noteIndexEpoch();
	return filling;
}

// The notes whose rows changed since a batch was read, as far as the connection's log tells, asked
// about in ascending note-ID order.
class ChangedRows {
public:
	explicit ChangedRows(uint64_t since) : seen_(since) {}

	bool Has(const DbFile& file, NOTEID id) {
		if (all_) return true;
		if (file.rowChanges() != seen_) {
			all_ = !file.RowsChangedSince(seen_, ahead_);
			seen_ = file.rowChanges();
			if (all_) return true;
		}
		// Changes to notes before this one no longer matter (mostly the notes already reported).
		ahead_.erase(std::remove_if(ahead_.begin(), ahead_.end(), [id](NOTEID changed) { return changed < id; }),
		             ahead_.end());
		return std::find(ahead_.begin(), ahead_.end(), id) != ahead_.end();
	}

private:
	uint64_t seen_;
	bool all_ = false;
	std::vector<NOTEID> ahead_;
};

// Looks at a batched note again after its row changed.
bool Refresh(const Walk& walk, Candidate& candidate) {
	sqlite3_stmt* st = walk.file->Prepare(kOneNote);
	if (!st) return false;
	sqlite3_bind_int64(st, 1, candidate.match.ID.NoteID);
	Row row;
	row.id = candidate.match.ID.NoteID;
	bool keep = sqlite3_step(st) == SQLITE_ROW && ReadRow(walk, st, row) && Consider(walk, row, candidate);
	sqlite3_reset(st);
	return keep;
}

STATUS RunSearch(DBHANDLE hDB, const Walk& walk, NSFSEARCHPROC routine, void* parameter) {
	NOTEID maxId = 0;
	if (STATUS s = walk.file->HighestNoteId(maxId)) return s;
	Filling filling = StartFilling(walk, maxId);
	std::vector<Candidate> batch;
	NOTEID lastId = 0;
	bool more = true;
	bool keepRows = false;
	while (more) {
		const NoteIndex* index = UsableIndex(walk);
		NoteIndex* filled = index ? nullptr : filling.current(*walk.file);
		STATUS s = index ? ReadIndexedBatch(walk, *index, lastId, maxId, batch, more, keepRows)
		                 : ReadBatch(walk, filled, lastId, maxId, batch, more, keepRows);
		if (s) return s;
		// Every row is in; the ones made from here on are put in as they are written.
		if (!more && filled) filled->MarkComplete();
		ChangedRows changed(walk.file->rowChanges());
		const uint64_t opensBefore = walk.file->noteReads();
		for (Candidate& candidate : batch) {
			if (changed.Has(*walk.file, candidate.match.ID.NoteID) && !Refresh(walk, candidate)) continue;
			ITEM_TABLE* summary =
			    (walk.flags & SEARCH_SUMMARY) && !candidate.summary.empty()
			        ? reinterpret_cast<ITEM_TABLE*>(candidate.summary.data())
			        : nullptr;
			SEARCH_MATCH match = candidate.match;
			if (!routine) continue;
			if (STATUS s = routine(parameter, &match, summary)) return s;
			// The callback may have closed the database it is searching.
			DatabaseObject* db;
			if (STATUS s = FindDatabase(hDB, db)) return s;
		}
		// Whole rows are read and kept for the next batch only while the callback opens most of
		// the notes it is given; a walk whose callback does not pays nothing for them.
		keepRows = !batch.empty() && (walk.file->noteReads() - opensBefore) * 2 >= batch.size();
	}
	return NOERROR;
}

}  // namespace
}  // namespace emu

using namespace emu;

STATUS LNPUBLIC NSFFormulaCompile(char far* /*FormulaName*/, WORD /*FormulaNameLength*/,
                                  const char far* FormulaText, WORD FormulaTextLength,
                                  FORMULAHANDLE far* rethFormula, WORD far* retFormulaLength,
                                  STATUS far* retCompileError, WORD far* retCompileErrorLine,
                                  WORD far* retCompileErrorColumn, WORD far* retCompileErrorOffset,
                                  WORD far* retCompileErrorLength) {
	ApiLock lock(ApiMutex());
	if (rethFormula) *rethFormula = NULLHANDLE;
	if (STATUS s = CheckCall("NSFFormulaCompile")) return s;
	std::string_view text;
	if (FormulaText)
		text = std::string_view(FormulaText, FormulaTextLength == MAXWORD ? std::strlen(FormulaText)
		                                                                  : FormulaTextLength);
	fml::CompileError error;
	std::unique_ptr<fml::Program> program = fml::Compile(text, error);
	std::vector<unsigned char> bytes;
	if (program) bytes = fml::Serialize(*program);
	if (program && bytes.size() > MAXWORD) {
		program.reset();
		error = fml::CompileError();
		error.status = ERR_FORMULA_COMPILATION;
		error.line = 1;
		error.column = 1;
	}
	if (retCompileError) *retCompileError = program ? NOERROR : error.status;
	if (retCompileErrorLine) *retCompileErrorLine = error.line;
	if (retCompileErrorColumn) *retCompileErrorColumn = error.column;
	if (retCompileErrorOffset) *retCompileErrorOffset = error.offset;
	if (retCompileErrorLength) *retCompileErrorLength = error.length;
	if (!program) return ERR_FORMULA_COMPILATION;
	if (retFormulaLength) *retFormulaLength = static_cast<WORD>(bytes.size());
	if (!rethFormula) return NOERROR;
	*rethFormula = NewMemory(Bytes(bytes.begin(), bytes.end()), "NSFFormulaCompile");
	return NOERROR;
}

STATUS LNPUBLIC NSFSearch(DBHANDLE hDB, FORMULAHANDLE hFormula, char far* /*ViewTitle*/, WORD SearchFlags,
                          WORD NoteClassMask, TIMEDATE far* Since, NSFSEARCHPROC EnumRoutine,
                          void far* EnumRoutineParameter, TIMEDATE far* retUntil) {
	ApiLock lock(ApiMutex());
	DatabaseObject* db;
	if (STATUS s = FindDatabase(hDB, db)) return s;
	std::shared_ptr<DbFile> file = db->file;  // kept alive even if a callback closes hDB
	if (STATUS s = CheckCall("NSFSearch", file->path())) return s;
	if (SearchFlags & SEARCH_FILETYPE) return ERR_NOT_SUPPORTED;
	std::unique_ptr<fml::Program> program;
	if (hFormula != NULLHANDLE) {
		MemoryObject* mem;
		if (STATUS s = FindMemory(hFormula, mem)) return s;
		program = fml::Deserialize(mem->bytes->data(), mem->bytes->size());
		if (!program) return ERR_INVALID_FORMULA;
	}
	DbSettings settings;
	if (STATUS s = file->ReadSettings(settings)) return s;
	TIMEDATE until = Now();
	std::string_view choiceField;
	const std::vector<std::string>* choiceTexts = nullptr;
	if (program) fml::FindFieldChoice(*program, choiceField, choiceTexts);
	Walk walk{file.get(),
	          program.get(),
	          SearchFlags,
	          NoteClassMask,
	          Since,
	          gReportNonMatches || Since != nullptr || (SearchFlags & SEARCH_ALL_VERSIONS) != 0,
	          settings.dbid,
	          choiceField,
	          choiceTexts};
	STATUS status = RunSearch(hDB, walk, EnumRoutine, EnumRoutineParameter);
	if (status == NOERROR && retUntil) *retUntil = until;
	return status;
}

void LNPUBLIC EmuSearchReportNonMatches(BOOL report) {
	ApiLock lock(ApiMutex());
	gReportNonMatches = report != FALSE;
}
