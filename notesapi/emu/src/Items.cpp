// Items of an in-memory note. Names compare case-insensitively; where a
// note holds several items of one name, reads and NSFItemDelete act on the
// first of them.
#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "Emu.h"
#include "Store.h"
#include "Values.h"

namespace emu {
namespace {

// Largest value an item can hold (its block, type WORD included, fits in a WORD).
constexpr size_t kMaxValueLength = MAXWORD - sizeof(WORD);
// Largest single entry of a text list.
constexpr size_t kMaxListEntry = 60 * 1024;

STATUS NoteFor(NOTEHANDLE hNote, const char* call, NoteObject*& note) {
	if (STATUS s = FindNote(hNote, note)) return s;
	UNID unid = UnidOf(note->oid);
	return CheckCall(call, NotePath(*note), &unid);
}

std::string_view NameOf(const char* name, WORD length) {
	if (!name) return std::string_view();
	return std::string_view(name, length == MAXWORD ? std::strlen(name) : strnlen(name, length));
}

std::string_view TextOf(const char* text, WORD length) {
	if (!text) return std::string_view();
	return std::string_view(text, length == MAXWORD ? std::strlen(text) : length);
}

Item* FindItem(NoteObject& note, std::string_view name) {
	for (Item& item : note.items)
		if (item.name.size() == name.size() && NameEquals(item.name, name)) return &item;  // most differ in length
	return nullptr;
}

void RemoveItems(NoteObject& note, std::string_view name) {
	for (auto it = note.items.begin(); it != note.items.end();) {
		if (NameEquals(it->name, name)) {
			ReleaseItemPool(*it);
			it = note.items.erase(it);
		} else {
			++it;
		}
	}
}

void Replace(NoteObject& note, Item item) {
	RemoveItems(note, item.name);
	note.items.push_back(std::move(item));
}

void SetBlock(Item& item, WORD type, const Bytes& value) {
	Item fresh = MakeItem(item.name, item.flags, type, value.data(), value.size());
	ReleaseItemPool(item);
	item.block = fresh.block;
}

// Copies up to capacity bytes and a terminator; returns the bytes copied.
WORD CopyTerminated(std::string_view text, char* out, size_t capacity) {
	size_t n = std::min(text.size(), capacity);
	if (n) std::memcpy(out, text.data(), n);
	out[n] = '\0';
	return static_cast<WORD>(n);
}

DHANDLE PoolOf(NOTEHANDLE hNote, Item& item) {
	if (item.pool == NULLHANDLE) {
		auto mem = std::make_unique<MemoryObject>();
		mem->bytes = item.block;
		mem->ownerNote = hNote;
		item.pool = AddMemory(std::move(mem));
	}
	return item.pool;
}

}  // namespace

void ExpandItems(std::vector<Item>& items) {
	for (Item& item : items) {
		switch (item.type()) {
		case TYPE_TEXT:
			if (item.valueLength() <= kMaxListEntry) {
				std::string_view text(reinterpret_cast<const char*>(item.value()), item.valueLength());
				SetBlock(item, TYPE_TEXT_LIST, TextListValue({text}));
			}
			break;
		case TYPE_NUMBER: {
			std::vector<double> numbers;
			if (NumberEntries(TYPE_NUMBER, item.value(), item.valueLength(), numbers))
				SetBlock(item, TYPE_NUMBER_RANGE, NumberRangeValue(numbers));
			break;
		}
		case TYPE_TIME: {
			std::vector<TIMEDATE> times;
			if (TimeEntries(TYPE_TIME, item.value(), item.valueLength(), times))
				SetBlock(item, TYPE_TIME_RANGE, TimeRangeValue(times));
			break;
		}
		default: break;
		}
	}
}

void ContractItems(std::vector<Item>& items) {
	for (Item& item : items) {
		WORD type = item.type();
		if (type == TYPE_TEXT_LIST) {
			std::vector<std::string_view> entries;
			if (TextEntries(type, item.value(), item.valueLength(), entries) && entries.size() == 1) {
				Bytes text(entries[0].begin(), entries[0].end());
				SetBlock(item, TYPE_TEXT, text);
			}
		} else if (type == TYPE_NUMBER_RANGE) {
			RANGE range;
			std::vector<double> numbers;
			if (item.valueLength() >= sizeof range) std::memcpy(&range, item.value(), sizeof range);
			if (NumberEntries(type, item.value(), item.valueLength(), numbers) && numbers.size() == 1 &&
			    range.RangeEntries == 0) {
				Bytes value(sizeof(NUMBER));
				std::memcpy(value.data(), &numbers[0], sizeof(NUMBER));
				SetBlock(item, TYPE_NUMBER, value);
			}
		} else if (type == TYPE_TIME_RANGE) {
			RANGE range;
			std::vector<TIMEDATE> times;
			if (item.valueLength() >= sizeof range) std::memcpy(&range, item.value(), sizeof range);
			if (TimeEntries(type, item.value(), item.valueLength(), times) && times.size() == 1 &&
			    range.RangeEntries == 0) {
				Bytes value(sizeof(TIMEDATE));
				std::memcpy(value.data(), &times[0], sizeof(TIMEDATE));
				SetBlock(item, TYPE_TIME, value);
			}
		}
	}
}

}  // namespace emu

using namespace emu;

STATUS LNPUBLIC NSFItemAppend(NOTEHANDLE hNote, WORD ItemFlags, const char far* Name, WORD NameLength,
                              WORD DataType, const void far* Value, DWORD ValueLength) {
	ApiLock lock(ApiMutex());
	NoteObject* note;
	if (STATUS s = NoteFor(hNote, "NSFItemAppend", note)) return s;
	if (!Name || (!Value && ValueLength > 0)) return ERR_ITEM_NOT_FOUND;
	if (ValueLength > kMaxValueLength) return ERR_SEGMENT_TOO_BIG;
	note->items.push_back(MakeItem(NameOf(Name, NameLength), ItemFlags, DataType, Value, ValueLength));
	return NOERROR;
}

STATUS LNPUBLIC NSFItemDelete(NOTEHANDLE hNote, const char far* Name, WORD NameLength) {
	ApiLock lock(ApiMutex());
	NoteObject* note;
	if (STATUS s = NoteFor(hNote, "NSFItemDelete", note)) return s;
	std::string_view name = NameOf(Name, NameLength);
	for (auto it = note->items.begin(); it != note->items.end(); ++it)
		if (NameEquals(it->name, name)) {
			ReleaseItemPool(*it);
			note->items.erase(it);
			return NOERROR;
		}
	return ERR_ITEM_NOT_FOUND;
}

STATUS LNPUBLIC NSFItemInfo(NOTEHANDLE hNote, const char far* Name, WORD NameLength, BLOCKID far* retbhItem,
                            WORD far* retDataType, BLOCKID far* retbhValue, DWORD far* retValueLength) {
	ApiLock lock(ApiMutex());
	if (retDataType) *retDataType = TYPE_INVALID_OR_UNKNOWN;
	NoteObject* note;
	if (STATUS s = NoteFor(hNote, "NSFItemInfo", note)) return s;
	Item* item = nullptr;
	if (!Name || NameLength == 0) item = note->items.empty() ? nullptr : &note->items.front();
	else item = FindItem(*note, NameOf(Name, NameLength));
	if (!item) return ERR_ITEM_NOT_FOUND;
	if (retDataType) *retDataType = item->type();
	if (retValueLength) *retValueLength = static_cast<DWORD>(item->block->size());
	// Item and value share one block: the value (type WORD first) at offset 0.
	if (retbhItem || retbhValue) {
		BLOCKID block{PoolOf(hNote, *item), NULLBLOCK};
		if (retbhItem) *retbhItem = block;
		if (retbhValue) *retbhValue = block;
	}
	return NOERROR;
}

void LNPUBLIC NSFItemQuery(NOTEHANDLE hNote, BLOCKID bhItem, char far* retItemName, WORD ItemNameBufferLength,
                           WORD far* retItemNameLength, WORD far* retItemFlags, WORD far* retDataType,
                           BLOCKID far* retbhValue, DWORD far* retValueLength) {
	ApiLock lock(ApiMutex());
	NoteObject* note;
	if (NoteFor(hNote, "NSFItemQuery", note) || bhItem.pool == NULLHANDLE) return;
	for (Item& item : note->items) {
		if (item.pool != bhItem.pool) continue;
		if (retItemName && ItemNameBufferLength > 0) CopyTerminated(item.name, retItemName, ItemNameBufferLength - 1);
		if (retItemNameLength) *retItemNameLength = static_cast<WORD>(item.name.size());
		if (retItemFlags) *retItemFlags = item.flags;
		if (retDataType) *retDataType = item.type();
		if (retbhValue) *retbhValue = BLOCKID{item.pool, NULLBLOCK};
		if (retValueLength) *retValueLength = static_cast<DWORD>(item.block->size());
		return;
	}
}

// Text of an item: a TEXT item's text, a text list's first entry, a number
// or time formatted as NSFItemConvertToText shows it (a list: its first
// value). Other types read as empty.
WORD LNPUBLIC NSFItemGetText(NOTEHANDLE hNote, const char far* ItemName, char far* retBuffer, WORD BufferLength) {
	ApiLock lock(ApiMutex());
	NoteObject* note;
	if (NoteFor(hNote, "NSFItemGetText", note) || !retBuffer || BufferLength == 0) return 0;
	retBuffer[0] = '\0';
	Item* item = ItemName ? FindItem(*note, ItemName) : nullptr;
	if (!item) return 0;
	size_t count = 0;
	std::string_view text;
	if (TextEntryAt(item->type(), item->value(), item->valueLength(), 0, count, text))
		return count == 0 ? 0 : CopyTerminated(text, retBuffer, BufferLength - 1u);
	std::vector<std::string> entries;
	if (!RenderEntries(item->type(), item->value(), item->valueLength(), entries) || entries.empty()) return 0;
	return CopyTerminated(entries[0], retBuffer, BufferLength - 1u);
}

BOOL LNPUBLIC NSFItemGetTime(NOTEHANDLE hNote, const char far* ItemName, TIMEDATE far* retTime) {
	ApiLock lock(ApiMutex());
	NoteObject* note;
	if (NoteFor(hNote, "NSFItemGetTime", note) || !ItemName) return FALSE;
	Item* item = FindItem(*note, ItemName);
	std::vector<TIMEDATE> times;
	if (!item || !TimeEntries(item->type(), item->value(), item->valueLength(), times) || times.empty()) return FALSE;
	if (retTime) *retTime = times[0];
	return TRUE;
}

namespace {

BOOL GetNumber(const char* call, NOTEHANDLE hNote, const char* ItemName, NUMBER* retNumber) {
	ApiLock lock(ApiMutex());
	NoteObject* note;
	if (NoteFor(hNote, call, note) || !ItemName) return FALSE;
	Item* item = FindItem(*note, ItemName);
	std::vector<double> numbers;
	if (!item || !NumberEntries(item->type(), item->value(), item->valueLength(), numbers) || numbers.empty())
		return FALSE;
	if (retNumber) *retNumber = numbers[0];
	return TRUE;
}

STATUS SetText(const char* call, NOTEHANDLE hNote, const char* ItemName, const char* Text, WORD TextLength,
               BOOL Summary) {
	ApiLock lock(ApiMutex());
	NoteObject* note;
	if (STATUS s = NoteFor(hNote, call, note)) return s;
	if (!ItemName || !*ItemName) return ERR_ITEM_NOT_FOUND;
	std::string_view text = TextOf(Text, TextLength);
	if (text.size() > kMaxValueLength) return ERR_SEGMENT_TOO_BIG;
	Replace(*note, MakeItem(ItemName, Summary ? ITEM_SUMMARY : 0, TYPE_TEXT, text.data(), text.size()));
	return NOERROR;
}

}  // namespace

BOOL LNPUBLIC NSFItemGetNumber(NOTEHANDLE hNote, const char far* ItemName, NUMBER far* retNumber) {
	return GetNumber("NSFItemGetNumber", hNote, ItemName, retNumber);
}

LONG LNPUBLIC NSFItemGetLong(NOTEHANDLE hNote, const char far* ItemName, LONG DefaultNumber) {
	NUMBER number;
	if (!GetNumber("NSFItemGetLong", hNote, ItemName, &number)) return DefaultNumber;
	if (number >= 2147483647.0) return 2147483647;
	if (number <= -2147483648.0) return static_cast<LONG>(-2147483647 - 1);
	return static_cast<LONG>(number);
}

STATUS LNPUBLIC NSFItemSetTextSummary(NOTEHANDLE hNote, const char far* ItemName, const char far* Text,
                                      WORD TextLength, BOOL Summary) {
	return SetText("NSFItemSetTextSummary", hNote, ItemName, Text, TextLength, Summary);
}

STATUS LNPUBLIC NSFItemSetText(NOTEHANDLE hNote, const char far* ItemName, const char far* Text, WORD TextLength) {
	return SetText("NSFItemSetText", hNote, ItemName, Text, TextLength, TRUE);
}

STATUS LNPUBLIC NSFItemSetTime(NOTEHANDLE hNote, const char far* ItemName, const TIMEDATE far* Time) {
	ApiLock lock(ApiMutex());
	NoteObject* note;
	if (STATUS s = NoteFor(hNote, "NSFItemSetTime", note)) return s;
	if (!ItemName || !*ItemName || !Time) return ERR_ITEM_NOT_FOUND;
	Replace(*note, MakeItem(ItemName, ITEM_SUMMARY, TYPE_TIME, Time, sizeof(TIMEDATE)));
	return NOERROR;
}

STATUS LNPUBLIC NSFItemSetNumber(NOTEHANDLE hNote, const char far* ItemName, const NUMBER far* Number) {
	ApiLock lock(ApiMutex());
	NoteObject* note;
	if (STATUS s = NoteFor(hNote, "NSFItemSetNumber", note)) return s;
	if (!ItemName || !*ItemName || !Number) return ERR_ITEM_NOT_FOUND;
	Replace(*note, MakeItem(ItemName, ITEM_SUMMARY, TYPE_NUMBER, Number, sizeof(NUMBER)));
	return NOERROR;
}

WORD LNPUBLIC NSFItemGetTextListEntries(NOTEHANDLE hNote, const char far* ItemName) {
	ApiLock lock(ApiMutex());
	NoteObject* note;
	if (NoteFor(hNote, "NSFItemGetTextListEntries", note) || !ItemName) return 0;
	Item* item = FindItem(*note, ItemName);
	size_t count = 0;
	std::string_view unused;
	if (!item || !TextEntryAt(item->type(), item->value(), item->valueLength(), 0, count, unused)) return 0;
	return static_cast<WORD>(count);
}

WORD LNPUBLIC NSFItemGetTextListEntry(NOTEHANDLE hNote, const char far* ItemName, WORD EntryPos,
                                      char far* retBuffer, WORD BufferLength) {
	ApiLock lock(ApiMutex());
	NoteObject* note;
	if (NoteFor(hNote, "NSFItemGetTextListEntry", note) || !ItemName || !retBuffer) return 0;
	retBuffer[0] = '\0';
	Item* item = FindItem(*note, ItemName);
	size_t count = 0;
	std::string_view entry;
	if (!item || !TextEntryAt(item->type(), item->value(), item->valueLength(), EntryPos, count, entry) ||
	    EntryPos >= count)
		return 0;
	return CopyTerminated(entry, retBuffer, BufferLength);
}

STATUS LNPUBLIC NSFItemCreateTextList(NOTEHANDLE hNote, const char far* ItemName, const char far* Text,
                                      WORD TextLength) {
	ApiLock lock(ApiMutex());
	NoteObject* note;
	if (STATUS s = NoteFor(hNote, "NSFItemCreateTextList", note)) return s;
	if (!ItemName || !*ItemName) return ERR_ITEM_NOT_FOUND;
	std::string_view text = TextOf(Text, TextLength);
	if (text.size() > kMaxListEntry) return ERR_SEGMENT_TOO_BIG;
	Bytes value = TextListValue({text});
	Replace(*note, MakeItem(ItemName, ITEM_SUMMARY, TYPE_TEXT_LIST, value.data(), value.size()));
	return NOERROR;
}

STATUS LNPUBLIC NSFItemAppendTextList(NOTEHANDLE hNote, const char far* ItemName, const char far* Text,
                                      WORD TextLength, BOOL fAllowDuplicates) {
	ApiLock lock(ApiMutex());
	NoteObject* note;
	if (STATUS s = NoteFor(hNote, "NSFItemAppendTextList", note)) return s;
	if (!ItemName || !*ItemName) return ERR_ITEM_NOT_FOUND;
	std::string_view text = TextOf(Text, TextLength);
	if (text.size() > kMaxListEntry) return ERR_SEGMENT_TOO_BIG;
	Item* item = FindItem(*note, ItemName);
	if (!item) {
		Bytes value = TextListValue({text});
		note->items.push_back(MakeItem(ItemName, ITEM_SUMMARY, TYPE_TEXT_LIST, value.data(), value.size()));
		return NOERROR;
	}
	// A TEXT item becomes a list that starts with its text.
	std::vector<std::string_view> entries;
	if (!TextEntries(item->type(), item->value(), item->valueLength(), entries)) return ERR_ITEM_NOT_FOUND;
	if (!fAllowDuplicates && std::find(entries.begin(), entries.end(), text) != entries.end()) return NOERROR;
	entries.push_back(text);
	if (entries.size() > MAXWORD) return ERR_SEGMENT_TOO_BIG;
	Bytes value = TextListValue(entries);
	if (value.size() > kMaxValueLength) return ERR_SEGMENT_TOO_BIG;
	SetBlock(*item, TYPE_TEXT_LIST, value);
	return NOERROR;
}

// Every entry of the first item of that name as text, joined by SepChar
// (';' when 0), cut to BufferLength - 1 bytes and terminated.
WORD LNPUBLIC NSFItemConvertToText(NOTEHANDLE hNote, const char far* ItemName, char far* retBuffer,
                                   WORD BufferLength, char SepChar) {
	ApiLock lock(ApiMutex());
	NoteObject* note;
	if (NoteFor(hNote, "NSFItemConvertToText", note) || !retBuffer || BufferLength == 0) return 0;
	retBuffer[0] = '\0';
	Item* item = ItemName ? FindItem(*note, ItemName) : nullptr;
	std::vector<std::string> entries;
	if (!item || !RenderEntries(item->type(), item->value(), item->valueLength(), entries)) return 0;
	std::string joined;
	for (size_t i = 0; i < entries.size(); ++i) {
		if (i) joined += SepChar ? SepChar : ';';
		joined += entries[i];
	}
	return CopyTerminated(joined, retBuffer, BufferLength - 1u);
}

STATUS LNPUBLIC NSFItemScan(NOTEHANDLE hNote, NSFITEMSCANPROC ActionRoutine, void far* RoutineParameter) {
	ApiLock lock(ApiMutex());
	NoteObject* note;
	if (STATUS s = NoteFor(hNote, "NSFItemScan", note)) return s;
	if (!ActionRoutine) return NOERROR;
	// The routine may change the note: walk a snapshot (the blocks stay alive through it).
	std::vector<Item> snapshot = note->items;
	for (const Item& item : snapshot) {
		std::string name = item.name;
		if (STATUS s = ActionRoutine(0, item.flags, &name[0], static_cast<WORD>(name.size()), item.block->data(),
		                             static_cast<DWORD>(item.block->size()), RoutineParameter))
			return s;
	}
	return NOERROR;
}

// ---- Summary buffers -------------------------------------------------------------

namespace {

// Finds an item of a summary buffer; value points at its type WORD.
bool LocateSummary(const void* buffer, const char* name, const BYTE*& value, WORD& length) {
	if (!buffer || !name) return false;
	const BYTE* base = static_cast<const BYTE*>(buffer);
	ITEM_TABLE table;
	std::memcpy(&table, base, sizeof table);
	const BYTE* end = base + table.Length;
	const BYTE* descriptors = base + sizeof table;
	const BYTE* data = descriptors + static_cast<size_t>(table.Items) * sizeof(ITEM);
	if (data > end) return false;
	for (USHORT i = 0; i < table.Items; ++i) {
		ITEM item;
		std::memcpy(&item, descriptors + i * sizeof(ITEM), sizeof item);
		if (data + item.NameLength + item.ValueLength > end) return false;
		std::string_view itemName(reinterpret_cast<const char*>(data), item.NameLength);
		if (NameEquals(itemName, name) && item.ValueLength >= sizeof(WORD)) {
			value = data + item.NameLength;
			length = item.ValueLength;
			return true;
		}
		data += item.NameLength + item.ValueLength;
	}
	return false;
}

}  // namespace

BOOL LNPUBLIC NSFGetSummaryValue(const void far* SummaryBuffer, const char far* Name, char far* retValue,
                                 WORD ValueBufferLength) {
	ApiLock lock(ApiMutex());
	if (CheckCall("NSFGetSummaryValue")) return FALSE;
	const BYTE* block;
	WORD length;
	if (!LocateSummary(SummaryBuffer, Name, block, length)) return FALSE;
	WORD type;
	std::memcpy(&type, block, sizeof type);
	std::vector<std::string> entries;
	if (!RenderEntries(type, block + sizeof type, length - sizeof type, entries)) return FALSE;
	std::string joined;
	for (size_t i = 0; i < entries.size(); ++i) joined += (i ? ";" : "") + entries[i];
	if (retValue && ValueBufferLength > 0) CopyTerminated(joined, retValue, ValueBufferLength - 1u);
	return TRUE;
}

BOOL LNPUBLIC NSFLocateSummaryValue(const void far* SummaryBuffer, const char far* Name,
                                    void far* retValuePointer, WORD far* retValueLength, WORD far* retDataType) {
	ApiLock lock(ApiMutex());
	if (CheckCall("NSFLocateSummaryValue")) return FALSE;
	const BYTE* block;
	WORD length;
	if (!LocateSummary(SummaryBuffer, Name, block, length)) return FALSE;
	if (retDataType) std::memcpy(retDataType, block, sizeof(WORD));
	if (retValueLength) *retValueLength = static_cast<WORD>(length - sizeof(WORD));
	if (retValuePointer) {
		const void* value = block + sizeof(WORD);
		std::memcpy(retValuePointer, &value, sizeof value);
	}
	return TRUE;
}
