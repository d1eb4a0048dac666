// A map of an open database's notes, held in memory, that lets a search pass over notes it cannot
// report without reading their rows. For every row, in note-ID order, it holds the note's class (0
// for a deletion stub or a removed row) and, for a few summary fields, a key of the field's value:
// the text in ASCII lower case when the note's first summary item of that name is a single
// plain-ASCII text, otherwise kEvaluate (no such item, a list, a number, other characters, a text
// too long to be worth keeping): those notes are always read and left to the formula.
//
// The connection (DbFile) owns it. It is filled by a search's full walk of the table, kept current
// by every row the connection writes, and dropped on any rollback, so it never disagrees with the
// file; a complete one is kept when the file closes, for the next open of an unchanged file (see
// DbFile::noteIndex). While the walk fills it, a change to a row the walk has yet to read
// is left to the walk, and rows made after the walk began wait aside until it is done, so the walk
// only ever appends.
#ifndef EMU_NOTEINDEX_H
#define EMU_NOTEINDEX_H

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "Emu.h"

namespace emu {

class NoteIndex {
public:
	using Key = uint16_t;
	static constexpr Key kEvaluate = 0;
	static constexpr size_t kMaxFields = 4;
	static constexpr size_t kMaxKeyLength = 128;

	// An empty map that a walk of the rows up to lastRow fills (FillRow), with columns for fields.
	NoteIndex(std::vector<std::string> fields, NOTEID lastRow);

	// True once the walk has put every row in; until then searches do not use it.
	bool complete() const { return complete_; }
	void MarkComplete();
	const std::vector<std::string>& fields() const { return fields_; }
	// The column of a field (names match as item names do); -1 when it has none.
	int ColumnOf(std::string_view field) const;
	// The filling walk's rows, in ID order: noteClass 0 for a deletion stub; summary is the row's
	// encoded summary items.
	void FillRow(NOTEID id, WORD noteClass, const void* summary, size_t summarySize);
	// A row written or removed.
	void Put(NOTEID id, WORD noteClass, const void* summary, size_t summarySize);
	void Remove(NOTEID id);

	// The notes a search has to read: those of classMask whose key in `column` (if any) is wanted,
	// kEvaluate always being wanted, and every note of alwaysClasses (to which the formula does not
	// apply).
	struct Filter {
		WORD classMask = 0;
		WORD alwaysClasses = 0;
		int column = -1;
		std::vector<bool> wanted;  // by key
	};
	// A filter for the notes of classMask; with a column, only the keys of these folded texts.
	Filter MakeFilter(WORD classMask, WORD alwaysClasses, int column, const std::vector<std::string>* folded) const;

	struct Span {
		NOTEID reached = 0;  // the last note ID looked at (upTo once the range is done)
		size_t looked = 0;   // entries looked at
		bool more = false;   // stopped at the limit: the range may hold more
	};
	// Appends to ids, in ID order, up to `limit` notes after `after` and not above upTo that pass
	// the filter.
	Span Gather(NOTEID after, NOTEID upTo, const Filter& filter, size_t limit, std::vector<NOTEID>& ids) const;

private:
	// Rows in ascending ID order, a key for each column.
	struct Rows {
		std::vector<NOTEID> ids;
		std::vector<WORD> classes;
		std::vector<std::vector<Key>> keys;  // by column
		// The entry of id, made (class 0) when there is none.
		size_t SlotOf(NOTEID id);
		void Append(const Rows& more);
	};

	void Set(Rows& rows, NOTEID id, WORD noteClass, const void* summary, size_t summarySize);
	// Where a change to row id goes, null when the filling walk has yet to read it.
	Rows* RowsFor(NOTEID id);
	Key KeyOf(size_t column, const void* summary, size_t summarySize);

	std::vector<std::string> fields_;
	std::vector<std::unordered_map<std::string, Key>> keys_;  // by column: folded text -> key, from 1
	NOTEID lastRow_;
	bool complete_ = false;
	Rows rows_;
	Rows later_;  // rows made while the map was being filled
};

}  // namespace emu

#endif
