#include <cstring>

#include "Values.h"

namespace emu {
namespace {

template <typename T>
T Load(const BYTE* p) {
	T value;
	std::memcpy(&value, p, sizeof(T));
	return value;
}

// List entries of a RANGE value whose elements are T.
template <typename T>
bool RangeEntries(const BYTE* value, size_t length, std::vector<T>& out) {
	if (length < sizeof(RANGE)) return false;
	RANGE range = Load<RANGE>(value);
	if (length < sizeof(RANGE) + static_cast<size_t>(range.ListEntries) * sizeof(T)) return false;
	for (USHORT i = 0; i < range.ListEntries; ++i) out.push_back(Load<T>(value + sizeof(RANGE) + i * sizeof(T)));
	return true;
}

template <typename T>
Bytes RangeValue(const std::vector<T>& entries) {
	RANGE range{static_cast<USHORT>(entries.size()), 0};
	Bytes out(sizeof(RANGE) + entries.size() * sizeof(T));
	std::memcpy(out.data(), &range, sizeof range);
	if (!entries.empty()) std::memcpy(out.data() + sizeof range, entries.data(), entries.size() * sizeof(T));
	return out;
}

// Calls f(entry) for each entry of a text or text-list value; false for another type or a damaged
// list (after the entries before the damage).
template <typename F>
bool ForEachTextEntry(WORD type, const BYTE* value, size_t length, F&& f) {
	if (type == TYPE_TEXT) {
		f(std::string_view(reinterpret_cast<const char*>(value), length));
		return true;
	}
	if (type != TYPE_TEXT_LIST || length < sizeof(LIST)) return false;
	USHORT count = Load<USHORT>(value);
	size_t at = sizeof(LIST) + static_cast<size_t>(count) * sizeof(USHORT);
	if (at > length) return false;
	for (USHORT i = 0; i < count; ++i) {
		USHORT n = Load<USHORT>(value + sizeof(LIST) + i * sizeof(USHORT));
		if (at + n > length) return false;
		f(std::string_view(reinterpret_cast<const char*>(value + at), n));
		at += n;
	}
	return true;
}

}  // namespace

bool TextEntries(WORD type, const BYTE* value, size_t length, std::vector<std::string_view>& out) {
	return ForEachTextEntry(type, value, length, [&out](std::string_view entry) { out.push_back(entry); });
}

bool TextEntryAt(WORD type, const BYTE* value, size_t length, size_t index, size_t& count, std::string_view& entry) {
	count = 0;
	return ForEachTextEntry(type, value, length, [&](std::string_view each) {
		if (count++ == index) entry = each;
	});
}

bool NumberEntries(WORD type, const BYTE* value, size_t length, std::vector<double>& out) {
	if (type == TYPE_NUMBER) {
		if (length < sizeof(NUMBER)) return false;
		out.push_back(Load<NUMBER>(value));
		return true;
	}
	return type == TYPE_NUMBER_RANGE && RangeEntries(value, length, out);
}

bool TimeEntries(WORD type, const BYTE* value, size_t length, std::vector<TIMEDATE>& out) {
	if (type == TYPE_TIME) {
		if (length < sizeof(TIMEDATE)) return false;
		out.push_back(Load<TIMEDATE>(value));
		return true;
	}
	return type == TYPE_TIME_RANGE && RangeEntries(value, length, out);
}

bool RenderEntries(WORD type, const BYTE* value, size_t length, std::vector<std::string>& out) {
	std::vector<std::string_view> texts;
	if (TextEntries(type, value, length, texts)) {
		for (std::string_view t : texts) out.emplace_back(t);
		return true;
	}
	std::vector<double> numbers;
	if (NumberEntries(type, value, length, numbers)) {
		for (double d : numbers) out.push_back(FormatNumber(d));
		return true;
	}
	std::vector<TIMEDATE> times;
	if (TimeEntries(type, value, length, times)) {
		for (const TIMEDATE& t : times) out.push_back(FormatTime(t));
		return true;
	}
	return false;
}

Bytes TextListValue(const std::vector<std::string_view>& entries) {
	size_t total = sizeof(LIST) + entries.size() * sizeof(USHORT);
	for (std::string_view e : entries) total += e.size();
	Bytes out(total);
	USHORT count = static_cast<USHORT>(entries.size());
	std::memcpy(out.data(), &count, sizeof count);
	size_t at = sizeof(LIST) + entries.size() * sizeof(USHORT);
	for (size_t i = 0; i < entries.size(); ++i) {
		USHORT n = static_cast<USHORT>(entries[i].size());
		std::memcpy(out.data() + sizeof(LIST) + i * sizeof(USHORT), &n, sizeof n);
		if (n) std::memcpy(out.data() + at, entries[i].data(), n);
		at += n;
	}
	return out;
}

Bytes NumberRangeValue(const std::vector<double>& numbers) {
	return RangeValue(numbers);
}

Bytes TimeRangeValue(const std::vector<TIMEDATE>& times) {
	return RangeValue(times);
}

}  // namespace emu
