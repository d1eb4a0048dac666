#include "NoteIndex.h"

#include <algorithm>
#include <cstring>

#include "LmbcsText.h"
#include "Store.h"

namespace emu {

NoteIndex::NoteIndex(std::vector<std::string> fields) : fields_(std::move(fields)) {
	columns_.resize(fields_.size());
	for (size_t i = 0; i < fields_.size(); ++i) {
		columns_[i].field = fields_[i];
		columns_[i].texts.emplace_back();  // kEvaluate
	}
}

int NoteIndex::ColumnOf(std::string_view field) const {
	for (size_t i = 0; i < fields_.size(); ++i)
		if (fields_[i].size() == field.size() && NameEquals(fields_[i], field)) return static_cast<int>(i);
	return -1;
}

// The entry of id, made (with class 0) when there is none. Rows come in ID order nearly always.
size_t NoteIndex::SlotOf(NOTEID id) {
	size_t at = ids_.size();
	if (!ids_.empty() && id <= ids_.back()) {
		at = static_cast<size_t>(std::lower_bound(ids_.begin(), ids_.end(), id) - ids_.begin());
		if (ids_[at] == id) return at;
	}
	ids_.insert(ids_.begin() + static_cast<std::ptrdiff_t>(at), id);
	classes_.insert(classes_.begin() + static_cast<std::ptrdiff_t>(at), WORD{0});
	for (Column& column : columns_)
		column.keys.insert(column.keys.begin() + static_cast<std::ptrdiff_t>(at), kEvaluate);
	return at;
}

NoteIndex::Key NoteIndex::KeyOf(Column& column, const void* summary, size_t summarySize) {
	const std::string& field = column.field;
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
	auto found = column.lookup.find(folded);
	if (found != column.lookup.end()) return found->second;
	if (column.texts.size() > 0xFFFF) return kEvaluate;  // no key left: such notes are read
	Key key = static_cast<Key>(column.texts.size());
	column.texts.push_back(folded);
	column.lookup.emplace(std::move(folded), key);
	return key;
}

void NoteIndex::Put(NOTEID id, WORD noteClass, const void* summary, size_t summarySize) {
	size_t at = SlotOf(id);
	classes_[at] = noteClass;
	for (Column& column : columns_)
		column.keys[at] = noteClass == 0 ? kEvaluate : KeyOf(column, summary, summarySize);
}

void NoteIndex::Remove(NOTEID id) {
	auto found = std::lower_bound(ids_.begin(), ids_.end(), id);
	if (found == ids_.end() || *found != id) return;  // a row the walk filling the index has not reached
	size_t at = static_cast<size_t>(found - ids_.begin());
	classes_[at] = 0;
	for (Column& column : columns_) column.keys[at] = kEvaluate;
}

NoteIndex::Filter NoteIndex::MakeFilter(WORD classMask, WORD alwaysClasses, int column,
                                        const std::vector<std::string>* folded) const {
	Filter filter;
	filter.classMask = classMask;
	filter.alwaysClasses = alwaysClasses & classMask;
	if (column < 0 || static_cast<size_t>(column) >= columns_.size() || !folded) return filter;
	const Column& keys = columns_[static_cast<size_t>(column)];
	filter.column = column;
	filter.wanted.assign(keys.texts.size(), false);
	filter.wanted[kEvaluate] = true;
	for (const std::string& text : *folded) {
		auto found = keys.lookup.find(text);
		if (found != keys.lookup.end()) filter.wanted[found->second] = true;
	}
	return filter;
}

NoteIndex::Span NoteIndex::Gather(NOTEID after, NOTEID upTo, const Filter& filter, size_t limit,
                                  std::vector<NOTEID>& ids) const {
	Span span;
	span.reached = upTo;
	const Key* keys = filter.column >= 0 ? columns_[static_cast<size_t>(filter.column)].keys.data() : nullptr;
	size_t at = static_cast<size_t>(std::upper_bound(ids_.begin(), ids_.end(), after) - ids_.begin());
	size_t taken = 0;
	for (; at < ids_.size() && ids_[at] <= upTo; ++at) {
		++span.looked;
		const WORD noteClass = classes_[at];
		if ((noteClass & filter.classMask) == 0) continue;
		if (keys && !(noteClass & filter.alwaysClasses) && !filter.wanted[keys[at]]) continue;
		ids.push_back(ids_[at]);
		if (++taken == limit) {
			span.reached = ids_[at];
			span.more = true;
			break;
		}
	}
	return span;
}

}  // namespace emu
