// RkIniReader: loads a small INI file into memory once and answers lookups of a value by section
// name and key name, both compared without regard to case. Results are signed codes whose texts
// come from getIDDErrDesc.
//
// File format: "[Section]" lines start a section; "name=value" lines inside a section define
// values (split at the first "=", nothing trimmed); a line "[END]" stops the reading. There is
// no comment syntax. Lines are read through a 1024-byte buffer, so a longer line arrives in
// pieces and each piece is treated as a line of its own.
//
// A reader keeps lookup cursors as members, so one reader must not be used by two threads at once.
#ifndef RK_INI_READER_H
#define RK_INI_READER_H

#include <cstdint>
#include <cstdio>
#include <list>

constexpr int32_t IDD_ERR_ZERO = 0;
constexpr int32_t IDD_ERR_INVALID_VALUE = -100;        // a line without "="
constexpr int32_t IDD_ERR_VALUE_NAME_OVERSIZE = -101;  // key longer than 63 characters
constexpr int32_t IDD_ERR_VALUE_OVERSIZE = -102;       // has a text; the loader returns +102 instead
constexpr int32_t IDD_ERR_VALUE_NOTFOUND = -103;
constexpr int32_t IDD_ERR_SECTION_NOTFOUND = -104;
constexpr int32_t IDD_ERR_INIFILE_OPENFAILED = -105;
constexpr int32_t IDD_ERR_NULL_ARGUMENT = -106;  // has no text of its own: "IDD_ERR_Unknown"

constexpr int IDD_NAME_SIZE = 64;     // section and key names: at most 63 characters
constexpr int IDD_VALUE_SIZE = 1025;  // values: at most 1023 characters are kept
constexpr int IDD_LINE_BUFFER_SIZE = 1024;

// The text of a result code; "IDD_ERR_Unknown" for any code without one.
const char* getIDDErrDesc(int32_t code);

struct IDD_Value {
    char name[IDD_NAME_SIZE];
    char value[IDD_VALUE_SIZE];
};

struct IDD_Section {
    char name[IDD_NAME_SIZE];
    std::list<IDD_Value*> values;  // file order
};

class RkIniReader {
public:
    RkIniReader();
    ~RkIniReader();
    RkIniReader(const RkIniReader&) = delete;
    RkIniReader& operator=(const RkIniReader&) = delete;

    // Replaces the content with the file's. 0; -106 for a null path; -105 when the file cannot
    // be opened for reading (the previous content is then kept).
    int32_t open(const char* path);

    // Copies the first value of key in section into buffer. On entry *length is the buffer's
    // capacity in bytes (at least 1); the copy is cut to fit and always terminated, and on
    // return *length holds the length of the copied text. 0, -106, -104, -103.
    int32_t getValue(const char* section, const char* key, char* buffer, int* length);
    // As getValue, for the occurrence number index (from 0) of key within the section.
    int32_t getValueAt(const char* section, const char* key, char* buffer, int* length, int index);
    // The number of values named key in the section (0 when none); -106, -104.
    int32_t getValueCount(const char* section, const char* key);

    // Empties the reader. Always 0.
    int32_t close();
    // Prints every section and value to standard output, ended by "[END]".
    void dumpStdout();

protected:
    // Loader steps, reachable by subclasses so that each can be exercised on its own.

    // Splits line at its first "=" into name (64 bytes) and value (1025 bytes). 0; -100 without
    // "="; -101 for a name over 63 characters; +102 for a value over 1024 characters.
    int32_t _suckValue(const char* line, char* name, char* value);
    // Cuts one trailing CR LF or LF (at most two line-end characters).
    void __removeRN(char* line);
    // Clears text from its end back to and including the last mark; no mark: text unchanged.
    void __removeEndMark(char* text, char mark);
    // Frees every value and section record and empties the section list.
    void _clearSectionList();

private:
    void _resetCursor();
    void _readLines(std::FILE* file);
    void _startSection(char* line);
    void _addValue(const char* line);
    void _closeCurrentSection();
    bool _findSection(const char* section);
    bool _findValue(const char* key, int index);
    int32_t _lookup(const char* section, const char* key, char* buffer, int* length, int index);

    std::list<IDD_Section*> m_sections;
    std::list<IDD_Section*>::iterator m_sectionPos;
    IDD_Section* m_curSection;
    std::list<IDD_Value*>* m_curValues;
    IDD_Value* m_curValue;
    std::list<IDD_Value*>::iterator m_valuePos;
};

#endif
