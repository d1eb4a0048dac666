// The INI reader: loading, lookups and the dump.
#include "RkIniReader.h"

#include <strings.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <new>

namespace {

constexpr int kMaxNameLength = IDD_NAME_SIZE - 1;
constexpr size_t kMaxValueLength = 1024;      // longer values drop the line
constexpr size_t kStoredValueLength = 1023;  // what is kept of an accepted value

// Copies at most max characters of source and terminates target (which holds max + 1 bytes).
void CopyBounded(char* target, const char* source, size_t max) {
    size_t length = strnlen(source, max);
    memcpy(target, source, length);
    target[length] = '\0';
}

bool IsLineEnd(char c) { return c == '\r' || c == '\n'; }

bool IsDirectory(std::FILE* file) {
    struct stat info {};
    return fstat(fileno(file), &info) == 0 && S_ISDIR(info.st_mode);
}

}  // namespace

const char* getIDDErrDesc(int32_t code) {
    switch (code) {
        case IDD_ERR_ZERO: return "IDD_ERR_ZERO";
        case IDD_ERR_INVALID_VALUE: return "IDD_ERR_INVALID_VALUE";
        case IDD_ERR_VALUE_NAME_OVERSIZE: return "IDD_ERR_VALUE_NAME_OVERSIZE";
        case IDD_ERR_VALUE_OVERSIZE: return "IDD_ERR_VALUE_OVERSIZE";
        case IDD_ERR_VALUE_NOTFOUND: return "IDD_ERR_VALUE_NOTFOUND";
        case IDD_ERR_SECTION_NOTFOUND: return "IDD_ERR_SECTION_NOTFOUND";
        case IDD_ERR_INIFILE_OPENFAILED: return "IDD_ERR_INIFILE_OPENFAILED";
        default: return "IDD_ERR_Unknown";
    }
}

RkIniReader::RkIniReader() { _resetCursor(); }

RkIniReader::~RkIniReader() { close(); }

void RkIniReader::_resetCursor() {
    m_sectionPos = m_sections.end();
    m_curSection = nullptr;
    m_curValues = nullptr;
    m_curValue = nullptr;
    m_valuePos = {};
}

int32_t RkIniReader::open(const char* path) {
    if (path == nullptr) return IDD_ERR_NULL_ARGUMENT;
    std::FILE* file = std::fopen(path, "r");
    if (file == nullptr) return IDD_ERR_INIFILE_OPENFAILED;
    // A folder opens but cannot be read; refuse it before the old content is dropped.
    if (IsDirectory(file)) {
        std::fclose(file);
        return IDD_ERR_INIFILE_OPENFAILED;
    }
    _clearSectionList();
    _resetCursor();
    _readLines(file);
    _closeCurrentSection();
    std::fclose(file);
    _resetCursor();
    return IDD_ERR_ZERO;
}

void RkIniReader::_readLines(std::FILE* file) {
    char line[IDD_LINE_BUFFER_SIZE];
    while (std::fgets(line, sizeof(line), file) != nullptr) {
        __removeRN(line);
        if (strcasecmp(line, "[END]") == 0) return;
        if (line[0] == '\0') continue;
        if (line[0] == '[') {
            _startSection(line);
        } else if (m_curSection != nullptr) {
            _addValue(line);
        }
    }
}

void RkIniReader::_startSection(char* line) {
    _closeCurrentSection();
    IDD_Section* section = new (std::nothrow) IDD_Section();
    if (section == nullptr) return;  // out of memory: the section's lines are skipped
    __removeEndMark(line, ']');
    CopyBounded(section->name, line + 1, kMaxNameLength);
    m_curSection = section;
    m_curValues = &section->values;
}

void RkIniReader::_closeCurrentSection() {
    if (m_curSection != nullptr) m_sections.push_back(m_curSection);
    m_curSection = nullptr;
    m_curValues = nullptr;
}

void RkIniReader::_addValue(const char* line) {
    IDD_Value* value = new (std::nothrow) IDD_Value();
    if (value == nullptr) return;
    if (_suckValue(line, value->name, value->value) != IDD_ERR_ZERO) {
        delete value;  // bad lines are skipped without a word
        return;
    }
    m_curValues->push_back(value);
    m_curValue = value;
}

int32_t RkIniReader::_suckValue(const char* line, char* name, char* value) {
    if (line == nullptr || name == nullptr || value == nullptr) return IDD_ERR_NULL_ARGUMENT;
    const char* equals = strchr(line, '=');
    if (equals == nullptr) return IDD_ERR_INVALID_VALUE;
    size_t nameLength = static_cast<size_t>(equals - line);
    if (nameLength > static_cast<size_t>(kMaxNameLength)) return IDD_ERR_VALUE_NAME_OVERSIZE;
    const char* text = equals + 1;
    // Positive, unlike the other codes; callers only test for non-zero, so it needs no change.
    if (strlen(text) > kMaxValueLength) return -IDD_ERR_VALUE_OVERSIZE;
    memcpy(name, line, nameLength);
    name[nameLength] = '\0';
    // A value of exactly 1024 characters is accepted but keeps only 1023: the last byte is kept
    // for the terminator.
    CopyBounded(value, text, kStoredValueLength);
    return IDD_ERR_ZERO;
}

void RkIniReader::__removeRN(char* line) {
    for (int pass = 0; pass < 2; ++pass) {
        size_t length = strlen(line);
        if (length > 0 && IsLineEnd(line[length - 1])) line[length - 1] = '\0';
    }
}

void RkIniReader::__removeEndMark(char* text, char mark) {
    char* last = strrchr(text, mark);
    if (last == nullptr) return;
    memset(last, 0, strlen(last));
}

void RkIniReader::_clearSectionList() {
    for (IDD_Section* section : m_sections) {
        for (IDD_Value* value : section->values) delete value;
        section->values.clear();
        delete section;  // the section records are freed too, not only their values
    }
    m_sections.clear();
}

int32_t RkIniReader::close() {
    _clearSectionList();
    _resetCursor();
    return IDD_ERR_ZERO;
}

bool RkIniReader::_findSection(const char* section) {
    for (m_sectionPos = m_sections.begin(); m_sectionPos != m_sections.end(); ++m_sectionPos) {
        if (strcasecmp((*m_sectionPos)->name, section) == 0) {
            m_curSection = *m_sectionPos;
            m_curValues = &m_curSection->values;
            return true;
        }
    }
    m_curSection = nullptr;
    m_curValues = nullptr;
    return false;
}

// Moves the value cursor to occurrence index of key in the current section.
bool RkIniReader::_findValue(const char* key, int index) {
    int seen = 0;
    for (m_valuePos = m_curValues->begin(); m_valuePos != m_curValues->end(); ++m_valuePos) {
        if (strcasecmp((*m_valuePos)->name, key) != 0) continue;
        if (seen++ == index) {
            m_curValue = *m_valuePos;
            return true;
        }
    }
    m_curValue = nullptr;
    return false;
}

int32_t RkIniReader::_lookup(const char* section, const char* key, char* buffer, int* length,
                             int index) {
    if (section == nullptr || key == nullptr || buffer == nullptr || length == nullptr) {
        return IDD_ERR_NULL_ARGUMENT;
    }
    if (*length < 1) return IDD_ERR_NULL_ARGUMENT;  // no room even for the terminator
    if (!_findSection(section)) return IDD_ERR_SECTION_NOTFOUND;
    if (index < 0 || !_findValue(key, index)) return IDD_ERR_VALUE_NOTFOUND;
    size_t copied = strnlen(m_curValue->value, static_cast<size_t>(*length) - 1);
    memcpy(buffer, m_curValue->value, copied);
    buffer[copied] = '\0';
    *length = static_cast<int>(copied);
    return IDD_ERR_ZERO;
}

int32_t RkIniReader::getValue(const char* section, const char* key, char* buffer, int* length) {
    return _lookup(section, key, buffer, length, 0);
}

int32_t RkIniReader::getValueAt(const char* section, const char* key, char* buffer, int* length,
                                int index) {
    return _lookup(section, key, buffer, length, index);
}

int32_t RkIniReader::getValueCount(const char* section, const char* key) {
    if (section == nullptr || key == nullptr) return IDD_ERR_NULL_ARGUMENT;
    if (!_findSection(section)) return IDD_ERR_SECTION_NOTFOUND;
    int32_t count = 0;
    for (m_valuePos = m_curValues->begin(); m_valuePos != m_curValues->end(); ++m_valuePos) {
        if (strcasecmp((*m_valuePos)->name, key) == 0) ++count;
    }
    return count;
}

void RkIniReader::dumpStdout() {
    for (const IDD_Section* section : m_sections) {
        std::printf("[%s]\n", section->name);
        for (const IDD_Value* value : section->values) std::printf("%s=%s\n", value->name, value->value);
        std::printf("\n");
    }
    std::printf("[END]\n");
    std::fflush(stdout);
}
