// Version folders of the install tree: parsing, comparing, counting and choosing.
#include "RkVersionPath.h"

#include <cstdio>
#include <cstring>
#include <string>

#include "RkFileOpUtil.h"

namespace {

constexpr size_t kWorkBufferSize = 1024;
constexpr size_t kMaxBaseLength = 1020;

// The four numbers of a version, most significant first.
struct Version {
    int part[4];
};

int compareVersions(const Version& a, const Version& b) {
    for (int i = 0; i < 4; ++i) {
        if (a.part[i] != b.part[i]) return a.part[i] > b.part[i] ? 1 : -1;
    }
    return 0;
}

Version parseVersion(const char* path) {
    Version version{{0, 0, 0, 0}};
    RkParseVersionStr(path, &version.part[0], &version.part[1], &version.part[2], &version.part[3]);
    return version;
}

// Appends as much of text as fits in capacity bytes with the zero; the rest is cut.
void appendBounded(char* buffer, size_t capacity, const char* text) {
    size_t used = strlen(buffer);
    if (used + 1 >= capacity) return;
    size_t length = strnlen(text, capacity - 1 - used);
    memcpy(buffer + used, text, length);
    buffer[used + length] = '\0';
}

// base/sub/V* into pattern (kWorkBufferSize bytes). A pattern that would be longer is cut, and
// the listing then finds whatever the cut pattern names (usually nothing).
bool buildVersionPattern(const char* base, const char* sub, char* pattern) {
    size_t length = base != nullptr ? strlen(base) : 0;
    if (length == 0 || length > kMaxBaseLength) return false;
    memcpy(pattern, base, length + 1);
    bool endsInSeparator = base[length - 1] == '/' || base[length - 1] == '\\';
    if (!endsInSeparator) appendBounded(pattern, kWorkBufferSize, "/");
    appendBounded(pattern, kWorkBufferSize, sub != nullptr ? sub : "");
    appendBounded(pattern, kWorkBufferSize, "/");
    appendBounded(pattern, kWorkBufferSize, "V*");
    return true;
}

// Calls visit(path) for each folder the pattern lists, in listing order.
template <typename Visit>
void forEachVersionFolder(const char* pattern, Visit visit) {
    RkRPXDirList list(pattern);
    while (list.hasNext()) {
        std::string path = list.getNext();
        if (RkRPXFileOpUtil::isDir(path.c_str())) visit(path);
    }
}

// The folder whose version compares to the best so far as wanted (1: newer, -1: older).
char* findVersionFolder(const char* base, const char* sub, char* out, unsigned long size,
                        Version best, int wanted) {
    char pattern[kWorkBufferSize];
    if (out == nullptr || size == 0 || !buildVersionPattern(base, sub, pattern)) return nullptr;
    forEachVersionFolder(pattern, [&](const std::string& path) {
        Version version = parseVersion(path.c_str());
        if (compareVersions(version, best) != wanted) return;  // a tie keeps the earlier one
        best = version;
        out[size - 1] = '\0';
        strncpy(out, path.c_str(), size - 1);
    });
    return best.part[0] != 0 ? out : nullptr;
}

}  // namespace

void RkParseVersionStr(const char* path, int* major, int* minor, int* third, int* fourth) {
    if (path == nullptr || major == nullptr || minor == nullptr || third == nullptr ||
        fourth == nullptr) {
        return;
    }
    char buffer[kWorkBufferSize];
    buffer[kWorkBufferSize - 1] = '\0';
    strncpy(buffer, path, kWorkBufferSize - 1);
    size_t length = strlen(buffer);
    if (length > 0 && (buffer[length - 1] == '/' || buffer[length - 1] == '\\')) {
        buffer[length - 1] = '\0';
    }
    const char* name = strrchr(buffer, '/');
    if (name == nullptr) name = strrchr(buffer, '\\');
    name = name != nullptr ? name + 1 : buffer;

    // The first character is skipped whatever it is, so "5.6.1" loses its 5: the product's other
    // tasks parse folder names the same way, and all of them must agree on which build is newest.
    const char* digits = *name != '\0' ? name + 1 : name;
    int a = 0, b = 0, c = 0, d = 0;
    switch (sscanf(digits, "%d.%d.%d.%d", &a, &b, &c, &d)) {
        case 1: *major = a; *minor = 0; *third = 0; *fourth = 0; break;
        case 2: *major = a; *minor = b; *third = 0; *fourth = 0; break;
        // Three numbers put the last in the fourth place and 0 in the third, as the other tasks do.
        case 3: *major = a; *minor = b; *third = 0; *fourth = c; break;
        case 4: *major = a; *minor = b; *third = c; *fourth = d; break;
        default: *major = 0; *minor = 0; *third = 0; *fourth = 0; break;
    }
}

int RkVersionStrCmp(const char* a, const char* b) {
    return compareVersions(parseVersion(a), parseVersion(b));
}

int GetPathCountN(const char* base, const char* sub) {
    char pattern[kWorkBufferSize];
    if (!buildVersionPattern(base, sub, pattern)) return -1;
    int count = 0;
    forEachVersionFolder(pattern, [&](const std::string&) { ++count; });
    return count;
}

char* GetLatestPathN(const char* base, const char* sub, char* out, unsigned long size) {
    // A major of 0 may have been written into out while the result is NULL; callers test the
    // result, never out.
    return findVersionFolder(base, sub, out, size, Version{{0, 0, 0, 0}}, 1);
}

char* GetOldestPathN(const char* base, const char* sub, char* out, unsigned long size) {
    // With no version folder at all the start value's major stays and out is returned
    // unwritten, unlike GetLatestPathN; the other tasks rely on that result.
    return findVersionFolder(base, sub, out, size, Version{{32767, 32767, 32767, 32767}}, -1);
}
