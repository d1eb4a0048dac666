// NSFFormulaDecompile: the text of a compiled formula.
//
// The compiled form keeps the formula's source, so decompiling gives back the
// text exactly as it was compiled. The call gets a bare pointer: when it points
// into memory the platform handed out (a compiled-formula handle, an item value)
// the read stops at that block's end; otherwise at the largest size a compiled
// formula can have. Within that, only the bytes the formula's own lengths cover
// are read, so a buffer holding something else is refused after its first bytes.
#include <algorithm>
#include <string>

#include "Emu.h"
#include "Formula.h"

using namespace emu;

STATUS LNPUBLIC NSFFormulaDecompile(char far* pFormulaBuffer, BOOL /*fSelectionFormula*/,
                                    DHANDLE far* rethFormulaText, WORD far* retFormulaTextLength) {
	ApiLock lock(ApiMutex());
	if (rethFormulaText) *rethFormulaText = NULLHANDLE;
	if (retFormulaTextLength) *retFormulaTextLength = 0;
	if (STATUS s = CheckCall("NSFFormulaDecompile")) return s;
	if (!pFormulaBuffer || !rethFormulaText) return ERR_INVALID_FORMULA;
	size_t limit = MAXWORD;  // NSFFormulaCompile never makes a longer formula
	size_t available = 0;
	if (MemoryAvailableAt(pFormulaBuffer, available)) limit = std::min(limit, available);
	const auto* bytes = reinterpret_cast<const unsigned char*>(pFormulaBuffer);
	const size_t length = formula::CompiledLength(bytes, limit);
	if (length == 0) return ERR_INVALID_FORMULA;
	std::string source = formula::SourceOf(bytes, length);
	if (source.size() > MAXWORD) return ERR_INVALID_FORMULA;
	*rethFormulaText = NewMemory(Bytes(source.begin(), source.end()), "NSFFormulaDecompile");
	if (retFormulaTextLength) *retFormulaTextLength = static_cast<WORD>(source.size());
	return NOERROR;
}
