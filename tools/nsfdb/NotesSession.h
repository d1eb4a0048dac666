// The tool's link to the Notes platform: start-up, status texts, handles
// that close themselves, LMBCS text and formula compilation.
#ifndef NSFDB_NOTESSESSION_H
#define NSFDB_NOTESSESSION_H

#include <stdexcept>
#include <string>

#include "global.h"
#include "nsfdata.h"

namespace nsfdb {

// Any failure the tool reports to its user: the message is complete
// (place and cause) and the command ends with exit status 2.
class ToolError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Initialises the platform with a throw-away notes.ini whose Directory is
// dataDirectory, so that relative and absolute database paths both work.
void StartPlatform(const std::string& dataDirectory);
void StopPlatform();

// "File does not exist (status 0x0103)".
std::string StatusText(STATUS status);
// Throws ToolError("<what>: <status text>") unless status is NOERROR.
void Check(STATUS status, const std::string& what);

// Absolute form of a path given on the command line.
std::string AbsolutePath(const std::string& path);
std::string FolderOf(const std::string& absolutePath);

// Text conversion between UTF-8 and LMBCS. Both succeed only when the
// conversion is exact (converting back gives the input again), so nothing
// is silently changed; a text longer than one platform call can carry fails.
bool Utf8ToLmbcs(const std::string& utf8, std::string& lmbcs);
bool LmbcsToUtf8(const std::string& lmbcs, std::string& utf8);
// A file path as the platform's calls take it (LMBCS); throws ToolError when
// the path cannot be given to the platform.
std::string PlatformPath(const std::string& path);
// Best-effort conversion for names shown to the user.
std::string LmbcsToUtf8Lossy(const std::string& lmbcs);

// Compiles an LMBCS formula; the compiled bytes as a TYPE_FORMULA item holds
// them. On a syntax error throws ToolError naming line and column.
std::string CompileFormula(const std::string& lmbcsSource, const std::string& place);
// Source text (LMBCS) of compiled formula bytes. False when the platform
// cannot give it back.
bool DecompileFormula(const std::string& compiled, std::string& lmbcsSource);

// Handles that close themselves.
class DbHandle {
public:
    DbHandle() = default;
    explicit DbHandle(DBHANDLE handle) : handle_(handle) {}
    ~DbHandle() { Close(); }
    DbHandle(const DbHandle&) = delete;
    DbHandle& operator=(const DbHandle&) = delete;
    DBHANDLE get() const { return handle_; }
    DBHANDLE* out() { return &handle_; }
    void Close();

private:
    DBHANDLE handle_ = NULLHANDLE;
};

class NoteHandle {
public:
    NoteHandle() = default;
    ~NoteHandle() { Close(); }
    NoteHandle(const NoteHandle&) = delete;
    NoteHandle& operator=(const NoteHandle&) = delete;
    NOTEHANDLE get() const { return handle_; }
    NOTEHANDLE* out() { return &handle_; }
    void Close();

private:
    NOTEHANDLE handle_ = NULLHANDLE;
};

class MemoryHandle {
public:
    MemoryHandle() = default;
    ~MemoryHandle() { Free(); }
    MemoryHandle(const MemoryHandle&) = delete;
    MemoryHandle& operator=(const MemoryHandle&) = delete;
    DHANDLE get() const { return handle_; }
    DHANDLE* out() { return &handle_; }
    // Copies the first length bytes of the object.
    std::string Bytes(size_t length) const;
    void Free();

private:
    DHANDLE handle_ = NULLHANDLE;
};

}  // namespace nsfdb

#endif
