// NSFFormulaDecompile: a compiled formula, from its memory handle or from a
// TYPE_FORMULA item, gives back its text; bytes that are no compiled formula
// give an error status.
#include <string>
#include <vector>

#include "PlatformTest.h"
#include "nsferr.h"
#include "osmem.h"

namespace platform_test {
namespace {

// Decompiles; on success `text` holds the formula text and the text handle is freed.
STATUS Decompile(const void* buffer, std::string& text, BOOL selection = FALSE) {
	DHANDLE handle = 1234;  // must be reset by the call
	WORD length = 4321;
	STATUS s = NSFFormulaDecompile(static_cast<char*>(const_cast<void*>(buffer)), selection, &handle, &length);
	text.clear();
	if (s != NOERROR) {
		EXPECT_EQ(handle, NULLHANDLE);
		return s;
	}
	if (length > 0) {
		DWORD size = 0;
		EXPECT_EQ(OSMemGetSize(handle, &size), NOERROR);
		EXPECT_GE(size, length);
		text.assign(static_cast<const char*>(OSLockObject(handle)), length);
		OSUnlockObject(handle);
	}
	if (handle != NULLHANDLE) {
		EXPECT_EQ(OSMemFree(handle), NOERROR);
	}
	return s;
}

// The compiled bytes of a formula.
std::vector<char> CompiledBytes(const char* source) {
	std::vector<char> bytes;
	FORMULAHANDLE formula = Compile(source);
	if (formula == NULLHANDLE) return bytes;
	DWORD size = 0;
	EXPECT_EQ(OSMemGetSize(formula, &size), NOERROR);
	const char* data = static_cast<const char*>(OSLockObject(formula));
	bytes.assign(data, data + size);
	OSUnlockObject(formula);
	OSMemFree(formula);
	return bytes;
}

TEST(PlatformFormulaDecompile, CompiledHandleGivesBackTheSourceAsWritten) {
	for (const char* source : {"SELECT Form = \"dictionary\" | Form = \"entity\"", "@All",
	                           "select @Contains(Name; {credit}) & !(Count > 3)", "Form=\"a\":\"b\""}) {
		FORMULAHANDLE formula = Compile(source);
		ASSERT_NE(formula, NULLHANDLE);
		std::string text;
		EXPECT_EQ(Decompile(OSLockObject(formula), text), NOERROR) << source;
		EXPECT_EQ(text, source);
		EXPECT_EQ(Decompile(OSLockObject(formula), text, TRUE), NOERROR) << source;
		EXPECT_EQ(text, source);
		OSUnlockObject(formula);
		OSUnlockObject(formula);
		OSMemFree(formula);
	}
}

TEST(PlatformFormulaDecompile, FormulaStoredInAnItemReadsBackAsItsSource) {
	const char* source = "SELECT Form = \"entity\" & @IsAvailable(Name)";
	std::vector<char> compiled = CompiledBytes(source);
	ASSERT_FALSE(compiled.empty());
	TestDb db("decompile.nsf");
	NOTEHANDLE note;
	ASSERT_EQ(NSFNoteCreate(db, &note), NOERROR);
	ASSERT_EQ(NSFItemAppend(note, ITEM_SUMMARY, "$Formula", 8, TYPE_FORMULA, compiled.data(), compiled.size()),
	          NOERROR);
	ASSERT_EQ(NSFNoteUpdate(note, 0), NOERROR);
	NOTEID id = IdOf(note);
	NSFNoteClose(note);

	ASSERT_EQ(NSFNoteOpen(db, id, 0, &note), NOERROR);
	BLOCKID value;
	WORD type = 0;
	DWORD length = 0;
	ASSERT_EQ(NSFItemInfo(note, "$Formula", 8, nullptr, &type, &value, &length), NOERROR);
	EXPECT_EQ(type, TYPE_FORMULA);
	ASSERT_EQ(length, compiled.size() + sizeof(WORD));  // the value follows its type word
	const char* stored = OSLockBlock(char, value) + sizeof(WORD);
	std::string text;
	EXPECT_EQ(Decompile(stored, text), NOERROR);
	EXPECT_EQ(text, source);
	OSUnlockBlock(value);
	NSFNoteClose(note);
}

TEST(PlatformFormulaDecompile, BytesThatAreNoCompiledFormulaAreRefused) {
	std::string text;
	const char garbage[] = "Form = \"dictionary\"";  // source text, not a compiled formula
	EXPECT_EQ(Decompile(garbage, text), ERR_INVALID_FORMULA);
	const unsigned char zeros[16] = {};
	EXPECT_EQ(Decompile(zeros, text), ERR_INVALID_FORMULA);
	DHANDLE handle = 99;
	WORD length = 0;
	EXPECT_NE(NSFFormulaDecompile(nullptr, FALSE, &handle, &length), NOERROR);
	EXPECT_EQ(handle, NULLHANDLE);
	std::vector<char> compiled = CompiledBytes("Form = \"x\"");
	EXPECT_NE(NSFFormulaDecompile(compiled.data(), FALSE, nullptr, &length), NOERROR);
}

// A formula cut short, or with a length damaged, inside platform memory:
// the read stops at the block's end and the call fails cleanly (the
// sanitizer build checks that nothing past the block is read).
TEST(PlatformFormulaDecompile, DamagedFormulaInPlatformMemoryIsRefusedWithinItsBlock) {
	std::vector<char> compiled = CompiledBytes("SELECT Form = \"dictionary\" | Form = \"entity\"");
	ASSERT_GT(compiled.size(), 12u);
	std::string text;
	for (size_t cut : {size_t{1}, size_t{5}, size_t{10}, compiled.size() / 2, compiled.size() - 1}) {
		DHANDLE block;
		ASSERT_EQ(OSMemAlloc(0, static_cast<DWORD>(cut), &block), NOERROR);
		char* data = static_cast<char*>(OSLockObject(block));
		std::copy(compiled.begin(), compiled.begin() + static_cast<std::ptrdiff_t>(cut), data);
		EXPECT_EQ(Decompile(data, text), ERR_INVALID_FORMULA) << "cut at " << cut;
		OSUnlockObject(block);
		OSMemFree(block);
	}
	// The source length (after the 4-byte magic and the 2-byte version) claims far more than is there.
	DHANDLE block;
	ASSERT_EQ(OSMemAlloc(0, static_cast<DWORD>(compiled.size()), &block), NOERROR);
	char* data = static_cast<char*>(OSLockObject(block));
	std::copy(compiled.begin(), compiled.end(), data);
	data[9] = static_cast<char>(0x7F);
	EXPECT_EQ(Decompile(data, text), ERR_INVALID_FORMULA);
	// Intact again, the same block decompiles.
	data[9] = compiled[9];
	EXPECT_EQ(Decompile(data, text), NOERROR);
	EXPECT_EQ(text, "SELECT Form = \"dictionary\" | Form = \"entity\"");
	OSUnlockObject(block);
	OSMemFree(block);
}

}  // namespace
}  // namespace platform_test
