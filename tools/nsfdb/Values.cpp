#include "Values.h"

#include <cstdio>
#include <cstring>

namespace nsfdb {
namespace {

void AppendWord(std::string& out, WORD value) {
    char bytes[sizeof value];
    std::memcpy(bytes, &value, sizeof value);
    out.append(bytes, sizeof bytes);
}

bool ReadWord(const std::string& in, size_t offset, WORD& value) {
    if (offset > in.size() || in.size() - offset < sizeof value) return false;
    std::memcpy(&value, in.data() + offset, sizeof value);
    return true;
}

int HexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

// Exactly eight hexadecimal digits.
std::optional<DWORD> ParseDword(const std::string& text, size_t offset) {
    if (offset + 8 > text.size()) return std::nullopt;
    DWORD value = 0;
    for (size_t i = offset; i < offset + 8; ++i) {
        int digit = HexDigit(text[i]);
        if (digit < 0) return std::nullopt;
        value = (value << 4) | static_cast<DWORD>(digit);
    }
    return value;
}

std::string DwordText(DWORD value) {
    char text[9];
    std::snprintf(text, sizeof text, "%08X", value);
    return text;
}

}  // namespace

std::string EncodeTextList(const std::vector<std::string>& entries) {
    std::string out;
    AppendWord(out, static_cast<WORD>(entries.size()));
    for (const std::string& entry : entries) AppendWord(out, static_cast<WORD>(entry.size()));
    for (const std::string& entry : entries) out += entry;
    return out;
}

bool DecodeTextList(const std::string& value, std::vector<std::string>& entries) {
    entries.clear();
    WORD count;
    if (!ReadWord(value, 0, count)) return false;
    size_t offset = sizeof(WORD) * (1 + static_cast<size_t>(count));
    if (offset > value.size()) return false;
    for (WORD i = 0; i < count; ++i) {
        WORD length = 0;
        if (!ReadWord(value, sizeof(WORD) * (1 + static_cast<size_t>(i)), length)) return false;
        if (value.size() - offset < length) return false;
        entries.push_back(value.substr(offset, length));
        offset += length;
    }
    return offset == value.size();
}

std::string EncodeNumberList(const std::vector<double>& numbers) {
    std::string out;
    AppendWord(out, static_cast<WORD>(numbers.size()));
    AppendWord(out, 0);  // no pairs
    for (double number : numbers) out += EncodeNumber(number);
    return out;
}

bool DecodeNumberList(const std::string& value, std::vector<double>& numbers) {
    numbers.clear();
    WORD count, pairs;
    if (!ReadWord(value, 0, count) || !ReadWord(value, sizeof(WORD), pairs) || pairs != 0) return false;
    constexpr size_t kHeader = 2 * sizeof(WORD);
    if (value.size() != kHeader + count * sizeof(NUMBER)) return false;
    for (WORD i = 0; i < count; ++i) {
        double number;
        DecodeNumber(value.substr(kHeader + i * sizeof(NUMBER), sizeof(NUMBER)), number);
        numbers.push_back(number);
    }
    return true;
}

std::string EncodeNumber(double number) {
    char bytes[sizeof(NUMBER)];
    std::memcpy(bytes, &number, sizeof bytes);
    return std::string(bytes, sizeof bytes);
}

bool DecodeNumber(const std::string& value, double& number) {
    if (value.size() != sizeof(NUMBER)) return false;
    std::memcpy(&number, value.data(), sizeof(NUMBER));
    return true;
}

std::string ToHex(const std::string& bytes) {
    static const char kDigits[] = "0123456789ABCDEF";
    std::string hex;
    hex.reserve(bytes.size() * 2);
    for (unsigned char byte : bytes) {
        hex += kDigits[byte >> 4];
        hex += kDigits[byte & 0x0F];
    }
    return hex;
}

std::optional<std::string> FromHex(const std::string& hex) {
    if (hex.size() % 2 != 0) return std::nullopt;
    std::string bytes;
    bytes.reserve(hex.size() / 2);
    for (size_t i = 0; i < hex.size(); i += 2) {
        int high = HexDigit(hex[i]), low = HexDigit(hex[i + 1]);
        if (high < 0 || low < 0) return std::nullopt;
        bytes += static_cast<char>((high << 4) | low);
    }
    return bytes;
}

std::string UnidText(const UNID& unid) {
    return DwordText(unid.File.Innards[1]) + DwordText(unid.File.Innards[0]) +
           DwordText(unid.Note.Innards[1]) + DwordText(unid.Note.Innards[0]);
}

std::optional<UNID> ParseUnid(const std::string& text) {
    if (text.size() != 32) return std::nullopt;
    std::optional<DWORD> parts[4];
    for (size_t i = 0; i < 4; ++i)
        if (!(parts[i] = ParseDword(text, i * 8))) return std::nullopt;
    UNID unid{};
    unid.File.Innards[1] = *parts[0];
    unid.File.Innards[0] = *parts[1];
    unid.Note.Innards[1] = *parts[2];
    unid.Note.Innards[0] = *parts[3];
    return unid;
}

std::string NoteIdText(NOTEID id) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%X", id);
    return text;
}

std::string TimedateText(const TIMEDATE& time) {
    return DwordText(time.Innards[1]) + ":" + DwordText(time.Innards[0]);
}

std::optional<TIMEDATE> ParseTimedate(const std::string& text) {
    if (text.size() != 17 || text[8] != ':') return std::nullopt;
    std::optional<DWORD> high = ParseDword(text, 0), low = ParseDword(text, 9);
    if (!high || !low) return std::nullopt;
    TIMEDATE time{};
    time.Innards[1] = *high;
    time.Innards[0] = *low;
    return time;
}

}  // namespace nsfdb
