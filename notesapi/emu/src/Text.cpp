// LMBCS text: OSTranslate (through ICU's "LMBCS-1" converter), the NLS_*
// character walkers, status texts (OSLoadString) and the formatting of
// numbers and times as text.
#include <unicode/ucnv.h>
#include <unicode/ustring.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "Emu.h"
#include "Server.h"

namespace emu {
namespace {

UConverter* Lmbcs() {
	static UConverter* converter = [] {
		UErrorCode error = U_ZERO_ERROR;
		UConverter* c = ucnv_open("LMBCS-1", &error);
		return U_FAILURE(error) ? nullptr : c;
	}();
	if (converter) ucnv_reset(converter);
	return converter;
}

std::u16string Utf8ToUtf16(const char* in, size_t length) {
	if (length == 0) return std::u16string();
	std::u16string out(length + 1, u'\0');
	int32_t produced = 0;
	UErrorCode error = U_ZERO_ERROR;
	u_strFromUTF8WithSub(reinterpret_cast<UChar*>(&out[0]), static_cast<int32_t>(out.size()), &produced, in,
	                     static_cast<int32_t>(length), 0xFFFD, nullptr, &error);
	if (U_FAILURE(error)) return std::u16string();
	out.resize(static_cast<size_t>(produced));
	return out;
}

std::string Utf16ToUtf8(const std::u16string& in) {
	if (in.empty()) return std::string();
	std::string out(in.size() * 3 + 1, '\0');
	int32_t produced = 0;
	UErrorCode error = U_ZERO_ERROR;
	u_strToUTF8WithSub(&out[0], static_cast<int32_t>(out.size()), &produced,
	                   reinterpret_cast<const UChar*>(in.data()), static_cast<int32_t>(in.size()), 0xFFFD,
	                   nullptr, &error);
	if (U_FAILURE(error)) return std::string();
	out.resize(static_cast<size_t>(produced));
	return out;
}

std::u16string LmbcsToUtf16(const char* in, size_t length) {
	UConverter* cnv = Lmbcs();
	if (!cnv || length == 0) return std::u16string();
	std::u16string out(length * 2 + 2, u'\0');
	UErrorCode error = U_ZERO_ERROR;
	int32_t produced = ucnv_toUChars(cnv, reinterpret_cast<UChar*>(&out[0]), static_cast<int32_t>(out.size()),
	                                 in, static_cast<int32_t>(length), &error);
	if (U_FAILURE(error) && error != U_STRING_NOT_TERMINATED_WARNING) return std::u16string();
	out.resize(static_cast<size_t>(produced));
	return out;
}

// LMBCS bytes of text, with, for every output byte, the index of the UTF-16
// unit it came from (so the output can be cut between characters).
void Utf16ToLmbcs(const std::u16string& text, std::string& out, std::vector<int32_t>& offsets) {
	out.clear();
	offsets.clear();
	UConverter* cnv = Lmbcs();
	if (!cnv || text.empty()) return;
	out.resize(text.size() * 3 + 8);
	offsets.resize(out.size());
	char* target = &out[0];
	const UChar* source = reinterpret_cast<const UChar*>(text.data());
	UErrorCode error = U_ZERO_ERROR;
	ucnv_fromUnicode(cnv, &target, target + out.size(), &source, source + text.size(), offsets.data(), TRUE,
	                 &error);
	size_t produced = U_FAILURE(error) ? 0 : static_cast<size_t>(target - out.data());
	out.resize(produced);
	offsets.resize(produced);
}

// Longest prefix of at most limit bytes that ends between characters.
size_t CutLmbcs(const std::vector<int32_t>& offsets, size_t size, size_t limit) {
	if (size <= limit) return size;
	size_t p = limit;
	while (p > 0 && offsets[p] == offsets[p - 1]) --p;
	return p;
}

size_t CutUtf8(const std::string& text, size_t limit) {
	if (text.size() <= limit) return text.size();
	size_t p = limit;
	while (p > 0 && (static_cast<unsigned char>(text[p]) & 0xC0) == 0x80) --p;
	return p;
}

WORD Emit(const char* data, size_t n, char* out, WORD outLength) {
	std::memcpy(out, data, n);
	if (n < outLength) out[n] = '\0';
	return static_cast<WORD>(n);
}

WORD EmitLmbcs(const std::u16string& text, char* out, WORD outLength) {
	std::string bytes;
	std::vector<int32_t> offsets;
	Utf16ToLmbcs(text, bytes, offsets);
	return Emit(bytes.data(), CutLmbcs(offsets, bytes.size(), outLength), out, outLength);
}

std::u16string CaseMapped(const std::u16string& text, bool upper) {
	if (text.empty()) return text;
	std::u16string out(text.size() * 3 + 4, u'\0');
	UErrorCode error = U_ZERO_ERROR;
	auto map = upper ? u_strToUpper : u_strToLower;
	int32_t n = map(reinterpret_cast<UChar*>(&out[0]), static_cast<int32_t>(out.size()),
	                reinterpret_cast<const UChar*>(text.data()), static_cast<int32_t>(text.size()), "", &error);
	if (U_FAILURE(error)) return text;
	out.resize(static_cast<size_t>(n));
	return out;
}

struct StatusText {
	STATUS code;
	const char* text;
};

const StatusText kStatusTexts[] = {
    {ERR_UNKNOWN, "Unknown operating system error"},
    {ERR_PROTECTED, "Cannot write or create file (file or disk is read-only)"},
    {ERR_NOEXIST, "File does not exist"},
    {ERR_EXISTS, "File already exists"},
    {ERR_FILES, "Too many open files"},
    {ERR_DISK, "Insufficient disk space"},
    {ERR_MEMORY, "Insufficient memory"},
    {ERR_CREATE, "File cannot be created"},
    {ERR_LOCK, "File is in use by another program"},
    {ERR_IOERROR, "I/O data error"},
    {ERR_ACCESS, "Access to data denied"},
    {ERR_INV_FILE_NAME, "File name is too long or invalid"},
    {ERR_OS_NULL_HANDLE, "Null handle passed to a memory or object function"},
    {ERR_OS_HANDLE_RANGE, "Handle is out of range"},
    {ERR_OS_FREE_HANDLE, "Handle is not allocated"},
    {ERR_OS_STILL_LOCKED, "Attempt to free an object that is still locked"},
    {ERR_OS_ALREADY_UNLOCKED, "Attempt to unlock an object that is not locked"},
    {ERR_SEGMENT_TOO_BIG, "Attempt to allocate an object larger than 65,000 bytes"},
    {ERR_OS_EXECERRORNF, "Unable to locate program"},
    {ERR_OS_EXECERROR, "Unable to invoke program"},
    {ERR_NO_NOTESINI, "Unable to find the notes.ini file"},
    {ERR_NOT_SUPPORTED, "This function is not supported on this operating system"},
    {ERR_NOT_NSF, "File is not a database"},
    {ERR_CONFLICT, "Someone else modified this document at the same time"},
    {ERR_NOTE_ID, "Invalid document identifier"},
    {ERR_DIRECTORY, "This function is inappropriate for file system directories"},
    {ERR_ITEM_NOT_FOUND, "Note item not found"},
    {ERR_NOTE_DELETED, "Document has been deleted"},
    {ERR_INVALID_NOTE, "Invalid or nonexistent document"},
    {ERR_NSFOPEN, "Database is in use by you or another user"},
    {ERR_NSF_IN_USE, "This operation is not allowed on a database that may be in use"},
    {ERR_SUMMARY_TOO_BIG, "Field is too large (32K) or View's column & selection formulas are too large"},
    {ERR_NOACCESS, "You are not authorized to perform that operation"},
    {ERR_DBINUSE, "Database is in use and cannot be taken off-line"},
    {ERR_NOT_FOUND, "Entry not found in index"},
    {ERR_MQ_TIMEOUT, "Timeout occurred waiting for message"},
    {ERR_MQ_EMPTY, "Message queue is empty"},
    {ERR_MQ_QUITTING, "Message queue is quitting"},
    {ERR_FORMULA_COMPILATION, "Formula Error"},
    {ERR_INVALID_OPERATOR, "Invalid operator"},
    {ERR_INVALID_ARG_TYPE, "Incorrect data type for operator or @Function"},
    {ERR_TOO_MANY_ARGS, "Too many arguments for @Function"},
    {ERR_FN_OR_OP_EXPECTED, "An operator or semicolon was expected but none was encountered"},
    {ERR_INSUFFICIENT_ARGS, "Insufficient arguments for @Function"},
    {ERR_NOT_UNARY, "Invalid use of a binary operator as a unary operator"},
    {ERR_NOT_BINARY, "Invalid use of a unary operator as a binary operator"},
    {ERR_PREMATURE_EOI, "End of formula reached before the formula was complete"},
    {ERR_OP_EXPECTED, "An operator was expected"},
    {ERR_INVALID_FORMULA, "Invalid formula"},
    {ERR_PAREN_EXPECTED, "A left parenthesis was expected"},
    {ERR_EXTRA_RPAREN, "Extra right parenthesis"},
    {ERR_MISSING_RPAREN, "Missing right parenthesis"},
    {ERR_NO_MAIN_EXPRESSION, "No main or selection expression in formula"},
    {ERR_UNTERMINATED_LITERAL, "Unterminated quoted string"},
    {ERR_ONE_MAIN_EXPR, "Only one main or selection expression is allowed"},
    {ERR_NO_FORMULA, "No formula specified"},
    {ERR_UNKNOWN_FUNCTION, "Unknown @Function"},
    {ERR_ARGS_EXPECTED, "Arguments expected"},
    {ERR_BIG_LITERAL, "Literal is too large"},
    {ERR_BSAFE_USER_ABORT, "The password prompt was cancelled"},
    {ERR_SERVER_NOT_RESPONDING, "The server is not responding. The server may be down or you may be experiencing "
                                "network problems. Contact your system administrator if this problem persists."},
};

const char* FindStatusText(STATUS code) {
	for (const StatusText& entry : kStatusTexts)
		if (entry.code == code) return entry.text;
	return nullptr;
}

// The character-set information handed out by OSGetLMBCSCLS: the NLS
// routines here only know LMBCS, so it just has to be a valid pointer.
struct CharacterSetInfo {
	char name[8];
};
CharacterSetInfo gLmbcsInfo = {"LMBCS"};

bool CharInSet(const BYTE* ch, size_t length, const BYTE* set) {
	size_t setLength = std::strlen(reinterpret_cast<const char*>(set));
	for (size_t i = 0; i < setLength;) {
		size_t n = LmbcsCharLength(set + i, setLength - i);
		if (n == length && std::memcmp(set + i, ch, n) == 0) return true;
		i += n;
	}
	return false;
}

}  // namespace

const char* StatusTextOf(STATUS code) {
	return FindStatusText(code);
}

bool NameEquals(std::string_view a, std::string_view b) {
	if (a.size() != b.size()) return false;
	for (size_t i = 0; i < a.size(); ++i) {
		unsigned char x = static_cast<unsigned char>(a[i]), y = static_cast<unsigned char>(b[i]);
		// ASCII letters only, whatever the process locale says about case.
		const bool letter = (x | 0x20) >= 'a' && (x | 0x20) <= 'z';
		if (x != y && !(letter && (x ^ 0x20) == y)) return false;
	}
	return true;
}

std::string AsciiUpper(std::string_view text) {
	std::string out(text);
	for (char& c : out)
		if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
	return out;
}

size_t LmbcsCharLength(const BYTE* p, size_t limit) {
	if (limit == 0) return 0;
	if (p[0] >= 0x20) return 1;  // ASCII and the single-byte optimisation group
	UConverter* cnv = Lmbcs();
	if (!cnv) return 1;
	const char* source = reinterpret_cast<const char*>(p);
	UErrorCode error = U_ZERO_ERROR;
	ucnv_getNextUChar(cnv, &source, source + std::min<size_t>(limit, NLS_MAXBYTESPERCHAR), &error);
	size_t n = static_cast<size_t>(source - reinterpret_cast<const char*>(p));
	return std::max<size_t>(1, std::min(n, limit));
}

std::string LmbcsFromNative(std::string_view native) {
	std::string bytes;
	std::vector<int32_t> offsets;
	Utf16ToLmbcs(Utf8ToUtf16(native.data(), native.size()), bytes, offsets);
	return bytes;
}

std::string NativeFromLmbcs(std::string_view lmbcs) {
	return Utf16ToUtf8(LmbcsToUtf16(lmbcs.data(), lmbcs.size()));
}

std::string FormatNumber(double value) {
	if (std::isnan(value)) return "NaN";
	char buffer[64];
	if (value == std::floor(value) && std::fabs(value) < 1e15)
		std::snprintf(buffer, sizeof buffer, "%.0f", value);
	else
		std::snprintf(buffer, sizeof buffer, "%.15g", value);
	return buffer;
}

}  // namespace emu

using namespace emu;

// ---- OSTranslate ---------------------------------------------------------------
// The result is cut to OutLength at a character boundary. A NUL follows the
// result when there is room for it; it is never counted in the returned length.

WORD LNPUBLIC OSTranslate(WORD TranslateMode, const char far* In, WORD InLength, char far* Out,
                          WORD OutLength) {
	ApiLock lock(ApiMutex());
	if (CheckCall("OSTranslate") || !In || !Out || OutLength == 0) return 0;
	size_t length = InLength == MAXWORD ? std::strlen(In) : InLength;
	switch (TranslateMode) {
	case OS_TRANSLATE_NATIVE_TO_LMBCS:
	case OS_TRANSLATE_UTF8_TO_LMBCS:
		return EmitLmbcs(Utf8ToUtf16(In, length), Out, OutLength);
	case OS_TRANSLATE_LMBCS_TO_NATIVE:
	case OS_TRANSLATE_LMBCS_TO_UTF8: {
		std::string utf8 = Utf16ToUtf8(LmbcsToUtf16(In, length));
		return Emit(utf8.data(), CutUtf8(utf8, OutLength), Out, OutLength);
	}
	case OS_TRANSLATE_LOWER_TO_UPPER:
	case OS_TRANSLATE_UPPER_TO_LOWER:
		return EmitLmbcs(CaseMapped(LmbcsToUtf16(In, length), TranslateMode == OS_TRANSLATE_LOWER_TO_UPPER), Out,
		                 OutLength);
	case OS_TRANSLATE_LMBCS_TO_UNICODE: {
		std::u16string text = LmbcsToUtf16(In, length);
		size_t units = std::min(text.size(), static_cast<size_t>(OutLength / 2));
		if (units > 0 && units < text.size() && (text[units - 1] & 0xFC00) == 0xD800) --units;
		std::memcpy(Out, text.data(), units * 2);
		return static_cast<WORD>(units * 2);
	}
	case OS_TRANSLATE_UNICODE_TO_LMBCS: {
		std::u16string text(length / 2, u'\0');
		std::memcpy(&text[0], In, text.size() * 2);
		size_t end = text.find(u'\0');
		if (InLength == MAXWORD && end != std::u16string::npos) text.resize(end);
		return EmitLmbcs(text, Out, OutLength);
	}
	default:
		return 0;
	}
}

// ---- Status texts --------------------------------------------------------------

WORD LNPUBLIC OSLoadString(HMODULE /*hModule*/, STATUS StringCode, char far* retBuffer, WORD BufferLength) {
	ApiLock lock(ApiMutex());
	if (CheckCall("OSLoadString") || !retBuffer) return 0;
	// Not masked here: the caller passes ERR(status); a code with flag bits names no string.
	const char* text = FindStatusText(StringCode);
	if (!text) {
		retBuffer[0] = '\0';
		return 0;
	}
	size_t n = std::min(std::strlen(text), static_cast<size_t>(BufferLength));
	std::memcpy(retBuffer, text, n);
	retBuffer[n] = '\0';
	return static_cast<WORD>(n);
}

// ---- NLS -----------------------------------------------------------------------

NLS_PINFO LNPUBLIC OSGetLMBCSCLS(void) {
	ApiLock lock(ApiMutex());
	CheckCall("OSGetLMBCSCLS");
	return &gLmbcsInfo;
}

WORD LNPUBLIC NLS_goto_next(BYTE far* far* ppString, WORD Len, NLS_PINFO /*pInfo*/) {
	ApiLock lock(ApiMutex());
	if (CheckCall("NLS_goto_next") || !ppString || !*ppString || Len == 0) return 0;
	BYTE* p = *ppString;
	size_t limit = Len == NLS_NULLTERM ? std::strlen(reinterpret_cast<char*>(p)) : Len;
	if (limit == 0) return 0;
	size_t n = LmbcsCharLength(p, limit);
	*ppString = p + n;
	return static_cast<WORD>(n);
}

NLS_STATUS LNPUBLIC NLS_find(BYTE far* far* ppString, WORD Len, const BYTE far* pSetOfChars, WORD ControlFlags,
                             NLS_PINFO /*pInfo*/) {
	ApiLock lock(ApiMutex());
	if (CheckCall("NLS_find")) return NLS_BADPARM;
	if (!ppString || !*ppString || !pSetOfChars) return NLS_BADPARM;
	bool wantInSet = (ControlFlags & NLS_FIND_CHARINSET) != 0;
	if (!wantInSet && !(ControlFlags & NLS_FIND_CHARNOTINSET)) return NLS_BADPARM;
	BYTE* p = *ppString;
	size_t limit = Len == NLS_NULLTERM ? std::strlen(reinterpret_cast<char*>(p)) : Len;
	for (size_t i = 0; i < limit;) {
		size_t n = LmbcsCharLength(p + i, limit - i);
		if (CharInSet(p + i, n, pSetOfChars) == wantInSet) {
			*ppString = p + i;
			return NLS_SUCCESS;
		}
		i += n;
	}
	return NLS_FINDFAILED;
}
