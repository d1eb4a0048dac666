#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "NotesSession.h"

#include "global.h"
#include "globerr.h"
#include "names.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "nsfsearc.h"
#include "osmem.h"
#include "osmisc.h"

namespace nsfdb {
namespace {

// One OSTranslate call carries at most this many input bytes (MAXWORD
// itself would mean "NUL-terminated").
constexpr size_t kMaxTranslateInput = MAXWORD - 1;

std::string Hex4(unsigned value) {
    char text[8];
    std::snprintf(text, sizeof text, "0x%04X", value & 0xFFFF);
    return text;
}

void RemoveTemporaryIni(const std::string& iniPath) {
    ::unlink(iniPath.c_str());
    ::rmdir(iniPath.substr(0, iniPath.find_last_of('/')).c_str());
}

std::string TempFolder() {
    const char* tmp = std::getenv("TMPDIR");
    return tmp && *tmp ? tmp : "/tmp";
}

// Writes the settings file into a new private folder and returns its path.
// The folder of notes.ini is the platform's server folder: a shared one such as
// /tmp could hold another server's server.json.
std::string WriteTemporaryIni(const std::string& dataDirectory) {
    if (dataDirectory.find('\n') != std::string::npos)
        throw ToolError("the database folder name holds a line break: " + dataDirectory);
    std::string pattern = TempFolder() + "/nsfdb-notes-XXXXXX";
    std::vector<char> folder(pattern.begin(), pattern.end());
    folder.push_back('\0');
    if (!::mkdtemp(folder.data())) throw ToolError("cannot create a temporary folder in " + TempFolder());
    std::string path = std::string(folder.data()) + "/notes.ini";
    std::string content = "[Notes]\nDirectory=" + dataDirectory + "\n";
    FILE* file = std::fopen(path.c_str(), "wb");
    bool written = file && std::fwrite(content.data(), 1, content.size(), file) == content.size();
    if (file && std::fclose(file) != 0) written = false;
    if (!written) {
        RemoveTemporaryIni(path);
        throw ToolError("cannot write the temporary notes.ini " + path);
    }
    return path;
}

// Translates and reports whether the whole input fitted the output buffer.
bool Translate(WORD mode, const std::string& in, std::string& out) {
    out.clear();
    if (in.empty()) return true;
    if (in.size() > kMaxTranslateInput) return false;
    // One buffer for every call: dumps translate many small texts.
    static std::vector<char> buffer(MAXWORD);
    WORD length = OSTranslate(mode, in.data(), static_cast<WORD>(in.size()), buffer.data(),
                              static_cast<WORD>(buffer.size()));
    out.assign(buffer.data(), std::min<size_t>(length, buffer.size()));
    return !out.empty();
}

// Printable ASCII is the same in UTF-8 and in LMBCS (control characters are not: LMBCS uses
// them as group bytes), so such text needs no round trip through the platform.
bool IsPrintableAscii(const std::string& text) {
    for (char c : text)
        if (c < 0x20 || c > 0x7E) return false;
    return true;
}

bool TranslateExact(WORD mode, WORD backMode, const std::string& in, std::string& out) {
    if (in.size() <= kMaxTranslateInput && IsPrintableAscii(in)) {
        out = in;
        return true;
    }
    std::string back;
    return Translate(mode, in, out) && Translate(backMode, out, back) && back == in;
}

using DecompileProc = STATUS(LNCALLBACKPTR)(char far* pFormulaBuffer, BOOL fSelectionFormula,
                                            HANDLE far* rethFormulaText, WORD far* retFormulaTextLength);

// NSFFormulaDecompile is looked up at run time: a platform library that
// lacks it still lets the tool work, with formulas dumped as bytes.
DecompileProc FindDecompile() {
    static DecompileProc proc = reinterpret_cast<DecompileProc>(::dlsym(RTLD_DEFAULT, "NSFFormulaDecompile"));
    return proc;
}

}  // namespace

void StartPlatform(const std::string& dataDirectory) {
    std::string ini = WriteTemporaryIni(dataDirectory);
    std::string argument = "=" + ini;
    std::vector<char> program{'n', 's', 'f', 'd', 'b', '\0'};
    std::vector<char> iniArgument(argument.begin(), argument.end());
    iniArgument.push_back('\0');
    char* argv[] = {program.data(), iniArgument.data(), nullptr};
    STATUS status = NotesInitExtended(2, argv);
    // The platform has read its settings; the file is not needed any more.
    RemoveTemporaryIni(ini);
    Check(status, "cannot start the Notes platform");
}

void StopPlatform() {
    NotesTerm();
}

std::string StatusText(STATUS status) {
    char text[256] = {};
    WORD length = OSLoadString(NULLHANDLE, static_cast<STATUS>(ERR(status)), text, sizeof text - 1);
    std::string message = LmbcsToUtf8Lossy(std::string(text, std::min<size_t>(length, sizeof text - 1)));
    if (message.empty()) message = "error";
    return message + " (status " + Hex4(ERR(status)) + ")";
}

void Check(STATUS status, const std::string& what) {
    if (status != NOERROR) throw ToolError(what + ": " + StatusText(status));
}

std::string AbsolutePath(const std::string& path) {
    if (!path.empty() && path[0] == '/') return path;
    std::vector<char> cwd(4096);
    if (!::getcwd(cwd.data(), cwd.size())) throw ToolError("cannot read the current folder");
    return std::string(cwd.data()) + "/" + path;
}

std::string FolderOf(const std::string& absolutePath) {
    size_t slash = absolutePath.find_last_of('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : absolutePath.substr(0, slash);
}

bool Utf8ToLmbcs(const std::string& utf8, std::string& lmbcs) {
    return TranslateExact(OS_TRANSLATE_UTF8_TO_LMBCS, OS_TRANSLATE_LMBCS_TO_UTF8, utf8, lmbcs);
}

bool LmbcsToUtf8(const std::string& lmbcs, std::string& utf8) {
    return TranslateExact(OS_TRANSLATE_LMBCS_TO_UTF8, OS_TRANSLATE_UTF8_TO_LMBCS, lmbcs, utf8);
}

std::string PlatformPath(const std::string& path) {
    std::string lmbcs;
    if (!Utf8ToLmbcs(path, lmbcs)) throw ToolError(path + ": the path cannot be given to the platform as LMBCS");
    if (lmbcs.size() >= MAXPATH) throw ToolError(path + ": the path is longer than the platform accepts");
    return lmbcs;
}

std::string LmbcsToUtf8Lossy(const std::string& lmbcs) {
    std::string utf8;
    Translate(OS_TRANSLATE_LMBCS_TO_UTF8, lmbcs, utf8);
    return utf8;
}

std::string CompileFormula(const std::string& lmbcsSource, const std::string& place) {
    if (lmbcsSource.size() > kMaxTranslateInput) throw ToolError(place + ": the formula is too long");
    MemoryHandle formula;
    WORD length = 0;
    STATUS error = NOERROR;
    WORD line = 0, column = 0, offset = 0, errorLength = 0;
    STATUS status = NSFFormulaCompile(nullptr, 0, lmbcsSource.data(), static_cast<WORD>(lmbcsSource.size()),
                                      formula.out(), &length, &error, &line, &column, &offset, &errorLength);
    if (status != NOERROR)
        throw ToolError(place + ": the formula does not compile at line " + std::to_string(line) +
                        ", column " + std::to_string(column) + ": " + StatusText(error ? error : status));
    return formula.Bytes(length);
}

bool DecompileFormula(const std::string& compiled, std::string& lmbcsSource) {
    DecompileProc decompile = FindDecompile();
    if (!decompile || compiled.empty()) return false;
    // The bytes go into platform memory: the call takes a bare pointer, and inside a block of
    // its own the platform knows where a damaged formula's bytes end.
    MemoryHandle buffer;
    if (compiled.size() > MAXWORD || OSMemAlloc(0, static_cast<DWORD>(compiled.size()), buffer.out()) != NOERROR)
        return false;
    char* bytes = static_cast<char*>(OSLockObject(buffer.get()));
    if (!bytes) return false;
    std::memcpy(bytes, compiled.data(), compiled.size());
    MemoryHandle text;
    WORD length = 0;
    STATUS status = decompile(bytes, FALSE, text.out(), &length);
    OSUnlockObject(buffer.get());
    if (status != NOERROR) return false;
    lmbcsSource = text.Bytes(length);
    return lmbcsSource.size() == length;
}

void DbHandle::Close() {
    if (handle_ != NULLHANDLE) NSFDbClose(handle_);
    handle_ = NULLHANDLE;
}

void NoteHandle::Close() {
    if (handle_ != NULLHANDLE) NSFNoteClose(handle_);
    handle_ = NULLHANDLE;
}

std::string MemoryHandle::Bytes(size_t length) const {
    if (handle_ == NULLHANDLE || length == 0) return std::string();
    DWORD size = 0;
    if (OSMemGetSize(handle_, &size) != NOERROR) return std::string();
    const char* data = static_cast<const char*>(OSLockObject(handle_));
    if (!data) return std::string();
    std::string bytes(data, std::min<size_t>(length, size));
    OSUnlockObject(handle_);
    return bytes;
}

void MemoryHandle::Free() {
    if (handle_ != NULLHANDLE) OSMemFree(handle_);
    handle_ = NULLHANDLE;
}

}  // namespace nsfdb
