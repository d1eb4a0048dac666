#include "NoteIndex.h"

#include <algorithm>
#include <cstring>

#include "LmbcsText.h"
#include "Store.h"

namespace emu {

NoteIndex::NoteIndex(std::vector<std::string> fields, NOTEID lastRow)
    : fields_(std::move(fields)), keys_(fields_.size()), lastRow_(lastRow) {
	rows_.keys.resize(fields_.size());
	later_.keys.resize(fields_.size());
}

int NoteIndex::ColumnOf(std::string_view field) const {
	for (size_t i = 0; i < fields_.size(); ++i)
		if (fields_[i].size() == field.size() && NameEquals(fields_[i], field)) return static_cast<int>(i);
	return -1;
}

size_t NoteIndex::Rows::SlotOf(NOTEID id) {
	size_t at = ids.size();
	if (!ids.empty() && id <= ids.back()) {
		at = static_cast<size_t>(std::lower_bound(ids.begin(), ids.end(), id) - ids.begin());
		if (ids[at] == id) return at;
	}
	const auto offset = static_cast<std::ptrdiff_t>(at);
	ids.insert(ids.begin() + offset, id);
	classes.insert(classes.begin() + offset, WORD{0});
	for (std::vector<Key>& column : keys) column.insert(column.begin() + offset, kEvaluate);
	return at;
}

void NoteIndex::Rows::Append(const Rows& more) {
	ids.insert(ids.end(), more.ids.begin(), more.ids.end());
	classes.insert(classes.end(), more.classes.begin(), more.classes.end());
	for (size_t i = 0; i < keys.size(); ++i) keys[i].insert(keys[i].end(), more.keys[i].begin(), more.keys[i].end());
}

void NoteIndex::MarkComplete() {
	rows_.Append(later_);
	later_ = Rows();
	complete_ = true;
}

NoteIndex::Key NoteIndex::KeyOf(size_t column, const void* summary, size_t summarySize) {
	const std::string& field = fields_[column];
	StoredItemView item;
	auto named = [&field](std::string_view name) { return NameEquals(name, field); };
	if (!summary || !FindStoredItem(summary, summarySize, field.size(), named, item)) return kEvaluate;
	WORD type;
	std::memcpy(&type, item.block, sizeof type);
	if (type != TYPE_TEXT) return kEvaluate;
	std::string_view text(reinterpret_cast<const char*>(item.block + sizeof type), item.blockLength - sizeof type);
	if (text.size() > kMaxKeyLength || !formula::lmbcs::IsPlainAscii(text)) return kEvaluate;
	std::string folded(text);
	for (char& c : folded)
		if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
	auto& keys = keys_[column];
	auto found = keys.find(folded);
	if (found != keys.end()) return found->second;
	if (keys.size() >= 0xFFFF) return kEvaluate;  // no key left: such notes are read
	Key key = static_cast<Key>(keys.size() + 1);
	keys.emplace(std::move(folded), key);
	return key;
}

void NoteIndex::Set(Rows& rows, NOTEID id, WORD noteClass, const void* summary, size_t summarySize) {
	size_t at = rows.SlotOf(id);
	rows.classes[at] = noteClass;
	for (size_t i = 0; i < fields_.size(); ++i)
		rows.keys[i][at] = noteClass == 0 ? kEvaluate : KeyOf(i, summary, summarySize);
}

void NoteIndex::FillRow(NOTEID id, WORD noteClass, const void* summary, size_t summarySize) {
	Set(rows_, id, noteClass, summary, summarySize);
}

NoteIndex::Rows* NoteIndex::RowsFor(NOTEID id) {
	if (complete_) return &rows_;
	if (id > lastRow_) return &later_;
	return !rows_.ids.empty() && id <= rows_.ids.back() ? &rows_ : nullptr;
}

void NoteIndex::Put(NOTEID id, WORD noteClass, const void* summary, size_t summarySize) {
	if (Rows* rows = RowsFor(id)) Set(*rows, id, noteClass, summary, summarySize);
}

void NoteIndex::Remove(NOTEID id) {
	Rows* rows = RowsFor(id);
	if (!rows) return;
	auto found = std::lower_bound(rows->ids.begin(), rows->ids.end(), id);
	if (found == rows->ids.end() || *found != id) return;
	size_t at = static_cast<size_t>(found - rows->ids.begin());
	rows->classes[at] = 0;
	for (std::vector<Key>& column : rows->keys) column[at] = kEvaluate;
}

NoteIndex::Filter NoteIndex::MakeFilter(WORD classMask, WORD alwaysClasses, int column,
                                        const std::vector<std::string>* folded) const {
	Filter filter;
	filter.classMask = classMask;
	filter.alwaysClasses = alwaysClasses & classMask;
	if (column < 0 || static_cast<size_t>(column) >= keys_.size() || !folded) return filter;
	const auto& keys = keys_[static_cast<size_t>(column)];
	filter.column = column;
	filter.wanted.assign(keys.size() + 1, false);
	filter.wanted[kEvaluate] = true;
	for (const std::string& text : *folded) {
		auto found = keys.find(text);
		if (found != keys.end()) filter.wanted[found->second] = true;
	}
	return filter;
}

NoteIndex::Span NoteIndex::Gather(NOTEID after, NOTEID upTo, const Filter& filter, size_t limit,
                                  std::vector<NOTEID>& ids) const {
	Span span;
	span.reached = upTo;
	const std::vector<NOTEID>& rowIds = rows_.ids;
	const Key* keys = filter.column >= 0 ? rows_.keys[static_cast<size_t>(filter.column)].data() : nullptr;
	size_t at = static_cast<size_t>(std::upper_bound(rowIds.begin(), rowIds.end(), after) - rowIds.begin());
	size_t taken = 0;
	for (; at < rowIds.size() && rowIds[at] <= upTo; ++at) {
		++span.looked;
		const WORD noteClass = rows_.classes[at];
		if ((noteClass & filter.classMask) == 0) continue;
		if (keys && !(noteClass & filter.alwaysClasses) && !filter.wanted[keys[at]]) continue;
		ids.push_back(rowIds[at]);
		if (++taken == limit) {
			span.reached = rowIds[at];
			span.more = true;
			break;
		}
	}
	return span;
}

}  // namespace emu
