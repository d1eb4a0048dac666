// File operations, the wildcard directory lister and path utilities.
#include "RkFileOpUtil.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <list>
#include <memory>
#include <new>

namespace {

using Callback = RkRPXFileOpUtil::Callback;
using CallbackEntry = RkRPXFileOpUtil::CallbackEntry;

constexpr size_t kStreamBufferSize = 256 * 1024;
constexpr size_t kCommandBufferSize = 1024;

// The hook for double-byte character sets, whose second byte may equal "/" or "\": none is in
// use on this platform.
bool IsTrailingByteOfDBC(const char* /*start*/, const char* /*at*/) { return false; }

// Backslashes never count: every operation normalises its paths first.
bool isPathSeparator(char c) { return c == '/'; }

bool isSeparatorAt(const char* start, const char* at) {
    return isPathSeparator(*at) && !IsTrailingByteOfDBC(start, at);
}

void normalizeSeptor(std::string& path) {
    const char* start = path.c_str();
    for (size_t i = 0; i < path.size(); ++i) {
        if (path[i] == '\\' && !IsTrailingByteOfDBC(start, start + i)) path[i] = '/';
    }
}

// Index of the last separator, or npos.
size_t lastSeparator(const char* path) {
    for (size_t i = strlen(path); i > 0; --i) {
        if (isSeparatorAt(path, path + i - 1)) return i - 1;
    }
    return std::string::npos;
}

bool isEmptyPath(const char* path) { return path == nullptr || *path == '\0'; }

std::string normalized(const char* path) {
    std::string text(path);
    normalizeSeptor(text);
    return text;
}

// Strips one trailing "/"; a lone "/" (the root) stays.
void stripTrailingSeparator(std::string& path) {
    if (path.size() > 1 && isSeparatorAt(path.c_str(), path.c_str() + path.size() - 1)) {
        path.pop_back();
    }
}

void appendSeparatorIfDirectory(std::string& path) {
    if (!RkRPXFileOpUtil::isDirName(path.c_str()) && RkRPXFileOpUtil::isDir(path.c_str())) {
        path += '/';
    }
}

// Unlike isDir this follows symbolic links: a linked folder is a good place to create in.
bool isDirectoryFollowingLinks(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool isSameFile(const char* a, const char* b) {
    struct stat first {};
    struct stat second {};
    return ::stat(a, &first) == 0 && ::stat(b, &second) == 0 && first.st_dev == second.st_dev &&
           first.st_ino == second.st_ino;
}

int32_t askCallback(Callback callback, CallbackEntry* record) {
    if (callback == nullptr || record == nullptr) return RkRPXFileOpUtil::CB_CONTINUE;
    return callback(record);
}

// Before a step: true to carry it out. Otherwise *result is what the operation returns: 0 for
// a skipped step, the callback's own value for an abort.
bool approveStep(Callback callback, CallbackEntry* record, int* result) {
    int32_t answer = askCallback(callback, record);
    if (answer == RkRPXFileOpUtil::CB_CONTINUE) return true;
    *result = answer == RkRPXFileOpUtil::CB_SKIP ? RkRPXFileOpUtil::RK_FOP_SUCCESS : answer;
    return false;
}

// After a step: 0 to go on, or the callback's value when it aborts.
int reportStepDone(Callback callback, CallbackEntry* record) {
    if (record != nullptr) record->done = 1;
    int32_t answer = askCallback(callback, record);
    if (answer == RkRPXFileOpUtil::CB_CONTINUE || answer == RkRPXFileOpUtil::CB_SKIP) {
        return RkRPXFileOpUtil::RK_FOP_SUCCESS;
    }
    return answer;
}

int pumpFile(FILE* in, FILE* out, char* buffer) {
    for (;;) {
        size_t count = fread(buffer, 1, kStreamBufferSize, in);
        if (count < kStreamBufferSize && ferror(in)) return RkRPXFileOpUtil::RK_FOP_READ_FAILED;
        if (count == 0) return RkRPXFileOpUtil::RK_FOP_SUCCESS;
        if (fwrite(buffer, 1, count, out) != count) return RkRPXFileOpUtil::RK_FOP_SHORT_WRITE;
    }
}

// Hints only, their failures change nothing: the source is read front to back (larger read-ahead)
// and the destination's blocks are reserved at once, its size left as written so far.
void prepareForCopy(FILE* in, FILE* out) {
    posix_fadvise(fileno(in), 0, 0, POSIX_FADV_SEQUENTIAL);
    struct stat source {};
    if (fstat(fileno(in), &source) == 0 && S_ISREG(source.st_mode) && source.st_size > 0)
        fallocate(fileno(out), FALLOC_FL_KEEP_SIZE, 0, source.st_size);
}

// Lets the kernel copy as much as it will, without the data passing through this process, and
// puts both streams at the end of what it copied. It stops at the first refusal or failure (a
// file system it cannot copy within, a special file, an I/O error): the stream loop then copies
// the rest and reports any error as a stream copy does.
void copyInKernel(FILE* in, FILE* out) {
    constexpr size_t kMostPerCall = size_t(1) << 30;
    off_t copied = 0;
    for (;;) {
        ssize_t count = copy_file_range(fileno(in), nullptr, fileno(out), nullptr, kMostPerCall, 0);
        if (count <= 0) break;
        copied += count;
    }
    if (copied > 0) {
        fseeko(in, copied, SEEK_SET);
        fseeko(out, copied, SEEK_SET);
    }
}

bool isDirectoryStream(FILE* file) {
    struct stat status {};
    return fstat(fileno(file), &status) == 0 && S_ISDIR(status.st_mode);
}

// Streams source into destination. The buffer is taken before the destination is opened, so a
// failed allocation leaves the destination untouched.
int streamCopy(const char* source, const char* destination) {
    std::unique_ptr<char[]> buffer(new (std::nothrow) char[kStreamBufferSize]);
    if (!buffer) return RkRPXFileOpUtil::RK_FOP_READ_FAILED;
    FILE* in = fopen(source, "rb");
    if (in == nullptr) return RkRPXFileOpUtil::RK_FOP_SOURCE_OPEN_FAILED;
    if (isDirectoryStream(in)) {  // e.g. a symbolic link to a folder: not a file to copy
        fclose(in);
        return RkRPXFileOpUtil::RK_FOP_SOURCE_OPEN_FAILED;
    }
    FILE* out = fopen(destination, "wb");
    if (out == nullptr) {
        fclose(in);
        return RkRPXFileOpUtil::RK_FOP_DESTINATION_FAILED;
    }
    // Unbuffered: each chunk goes out in one write. The stream's own small buffer would split
    // every chunk in two and leave all later writes misaligned with the file's pages.
    setvbuf(out, nullptr, _IONBF, 0);
    prepareForCopy(in, out);
    copyInKernel(in, out);
    int status = pumpFile(in, out, buffer.get());
    fclose(in);
    if (fclose(out) != 0 && status == RkRPXFileOpUtil::RK_FOP_SUCCESS) {
        status = RkRPXFileOpUtil::RK_FOP_SHORT_WRITE;
    }
    return status;
}

bool isHarmlessRemoveError(int error) {
    return error == EEXIST || error == ENOENT || error == ENOTDIR || error == ENOTEMPTY;
}

// "a/b/" gives "b/", "/" gives "".
std::string lastComponentAsDirName(const std::string& directoryName) {
    std::string stripped = directoryName;
    stripTrailingSeparator(stripped);
    std::string name = RkRPXFileOpUtil::getFileName(stripped.c_str());
    return name.empty() ? name : name + '/';
}

// One level of createDir. The parent names live in keepAlive until the outermost call returns,
// because the record's source still points at the deepest level's name in later callbacks.
int createDirLevel(const char* path, Callback callback, CallbackEntry* record,
                   std::list<std::string>& keepAlive) {
    if (isEmptyPath(path)) return RkRPXFileOpUtil::RK_FOP_BAD_ARGUMENT;
    std::string stripped(path);
    stripTrailingSeparator(stripped);
    keepAlive.push_back(RkRPXFileOpUtil::getDirName(stripped.c_str()));
    const std::string& parent = keepAlive.back();

    // Only the before-step writes source: after-calls further out still carry the deepest
    // level's path. Intended.
    if (record != nullptr) {
        record->source = path;
        record->target = nullptr;
        record->operation = RkRPXFileOpUtil::OP_CREATE_DIR;
        record->done = 0;
    }
    int result = 0;
    if (!approveStep(callback, record, &result)) return result;
    if (stripped == "/") return RkRPXFileOpUtil::RK_FOP_SUCCESS;

    if (RkRPXFileOpUtil::isExist(parent.c_str())) {
        if (!isDirectoryFollowingLinks(parent)) return RkRPXFileOpUtil::RK_FOP_DESTINATION_FAILED;
    } else {
        // The parent's own status does not matter, only whether it exists afterwards.
        (void)createDirLevel(parent.c_str(), callback, record, keepAlive);
        if (!RkRPXFileOpUtil::isExist(parent.c_str())) {
            return RkRPXFileOpUtil::RK_FOP_DESTINATION_FAILED;
        }
    }
    // An existing directory is no error; the check below decides.
    (void)::mkdir(stripped.c_str(), 0775);
    if (!isDirectoryFollowingLinks(stripped)) return RkRPXFileOpUtil::RK_FOP_DESTINATION_FAILED;
    return reportStepDone(callback, record);
}

void fillVisit(CallbackEntry* record, const char* path, const struct stat& status) {
    bool directory = S_ISDIR(status.st_mode);
    record->source = path;
    record->target = nullptr;
    record->operation = directory ? RkRPXFileOpUtil::OP_VISIT_DIR : RkRPXFileOpUtil::OP_VISIT_FILE;
    record->fileSize = directory ? 0 : static_cast<uint32_t>(status.st_size);
    record->modifyTime = static_cast<int64_t>(status.st_mtime);
    record->done = 0;
}

}  // namespace

// ---- Path functions ----

bool isWildcardName(const char* name) {
    return !isEmptyPath(name) && strpbrk(name, "*?") != nullptr;
}

// Iterative, with the usual return to the last "*": the same answers as the plain recursive
// matcher, without its exponential time on patterns with many stars.
bool _fnmatch(const char* pattern, const char* name) {
    if (pattern == nullptr || name == nullptr) return false;
    const char* starInPattern = nullptr;
    const char* resumeInName = nullptr;
    while (*name != '\0') {
        if (*pattern == '*') {
            starInPattern = pattern++;
            resumeInName = name;
        } else if (*pattern != '\0' && (*pattern == '?' || *pattern == *name)) {
            ++pattern;
            ++name;
        } else if (starInPattern != nullptr) {
            pattern = starInPattern + 1;
            name = ++resumeInName;
        } else {
            return false;
        }
    }
    while (*pattern == '*') ++pattern;
    return *pattern == '\0';
}

bool RkRPXFileOpUtil::isDirName(const char* path) {
    if (isEmptyPath(path)) return false;
    return isSeparatorAt(path, path + strlen(path) - 1);
}

std::string RkRPXFileOpUtil::getFileName(const char* path) {
    if (isEmptyPath(path)) return std::string();
    size_t separator = lastSeparator(path);
    return separator == std::string::npos ? std::string(path) : std::string(path + separator + 1);
}

std::string RkRPXFileOpUtil::getDirName(const char* path) {
    if (isEmptyPath(path)) return std::string();
    size_t separator = lastSeparator(path);
    // "/x" gives "" rather than "/": createDir relies on it to stop at the root.
    if (separator == std::string::npos || separator == 0) return std::string();
    return std::string(path, separator + 1);
}

bool RkRPXFileOpUtil::isDir(const char* path) {
    if (isEmptyPath(path)) return false;
    std::string stripped(path);
    stripTrailingSeparator(stripped);
    struct stat status {};
    if (::lstat(stripped.c_str(), &status) != 0 && ::lstat(stripped.c_str(), &status) != 0) {
        return false;
    }
    return S_ISDIR(status.st_mode);
}

bool RkRPXFileOpUtil::exist(const char* path) {
    if (isEmptyPath(path)) return false;
    FILE* file = fopen(path, "rb");
    if (file == nullptr) return false;
    fclose(file);
    return true;
}

bool RkRPXFileOpUtil::isExist(const char* path) {
    return !isEmptyPath(path) && ::access(path, F_OK) == 0;
}

bool RkRPXFileOpUtil::filesizeEqualTo(const char* path, int size) {
    if (isEmptyPath(path)) return false;
    FILE* file = fopen(normalized(path).c_str(), "rb");
    if (file == nullptr) return false;
    long end = fseek(file, 0, SEEK_END) == 0 ? ftell(file) : -1;
    fclose(file);
    return end >= 0 && static_cast<int>(end) == size;
}

bool RkRPXFileOpUtil::isEmptyDir(const char* path) {
    if (!isDir(path)) return false;
    RkRPXDirList list(path);
    return !list.hasNext();
}

// ---- Directory listing ----

RkRPXDirList::RkRPXDirList(const char* path) : position(0) {
    std::string target = path != nullptr ? path : "";
    normalizeSeptor(target);
    appendSeparatorIfDirectory(target);
    directory = RkRPXFileOpUtil::getDirName(target.c_str());
    filter = RkRPXFileOpUtil::getFileName(target.c_str());
    if (filter.empty()) filter = "*";
    // getDirName gives "" for "/x"; an absolute path must still be listed in the root folder,
    // never in the current one.
    if (directory.empty() && !target.empty() && isSeparatorAt(target.c_str(), target.c_str())) {
        directory = "/";
    }

    DIR* folder = opendir(directory.empty() ? "./" : directory.c_str());
    if (folder == nullptr) return;
    while (const dirent* entry = readdir(folder)) {
        if (strcmp(entry->d_name, ".") == 0 || strcmp(entry->d_name, "..") == 0) continue;
        if (_fnmatch(filter.c_str(), entry->d_name)) names.emplace_back(entry->d_name);
    }
    closedir(folder);
}

RkRPXDirList::~RkRPXDirList() = default;

bool RkRPXDirList::hasNext() const { return position < names.size(); }

std::string RkRPXDirList::getNext() {
    if (!hasNext()) return std::string();
    return directory + names[position++];
}

int RkRPXDirList::getFileCount() const {
    int count = 0;
    for (const std::string& name : names) {
        if (!RkRPXFileOpUtil::isDir((directory + name).c_str())) ++count;
    }
    return count;
}

std::string RkRPXDirList::getFilter() const { return filter; }

// ---- Copy and move ----

int RkRPXFileOpUtil::_copy(const char* source, const char* destination, bool overwrite,
                           Callback callback, CallbackEntry* record) {
    if (isEmptyPath(source) || isEmptyPath(destination)) return RK_FOP_BAD_ARGUMENT;
    if (record != nullptr) {
        record->source = source;
        record->target = destination;
        record->done = 0;
    }
    if (isDir(destination)) return RK_FOP_DESTINATION_FAILED;
    int32_t operation = OP_COPY_NEW;
    // Existence rather than readability, so that a write-only file is not silently replaced.
    if (isExist(destination)) {
        if (!overwrite) return RK_FOP_DESTINATION_EXISTS;
        // Opening the destination for writing would empty the source.
        if (isSameFile(source, destination)) return RK_FOP_BAD_ARGUMENT;
        operation = OP_COPY_OVERWRITE;
    }
    if (record != nullptr) record->operation = operation;
    int result = 0;
    if (!approveStep(callback, record, &result)) return result;
    int status = streamCopy(source, destination);
    if (status != RK_FOP_SUCCESS) return status;
    return reportStepDone(callback, record);
}


int RkRPXFileOpUtil::copyEntries(const char* source, const char* destination, bool overwrite,
                                 Callback callback, CallbackEntry* record, bool recursive) {
    if (isEmptyPath(source) || isEmptyPath(destination)) return RK_FOP_BAD_ARGUMENT;
    std::string from = normalized(source);
    std::string to = normalized(destination);
    appendSeparatorIfDirectory(from);
    appendSeparatorIfDirectory(to);

    if (!isDirName(to.c_str())) {
        if (isWildcardName(from.c_str()) || isDirName(from.c_str())) return RK_FOP_BAD_ARGUMENT;
        int status = createDir(getDirName(to.c_str()).c_str(), callback, record);
        if (status != RK_FOP_SUCCESS) return status;
        return _copy(from.c_str(), to.c_str(), overwrite, callback, record);
    }

    if (!isDir(to.c_str())) {
        int status = createDir(to.c_str(), callback, record);
        if (status != RK_FOP_SUCCESS) return status;
    }
    if (recursive && isDirName(from.c_str())) {
        to += lastComponentAsDirName(from);
        int status = createDir(to.c_str(), callback, record);
        if (status != RK_FOP_SUCCESS) return status;
    }

    RkRPXDirList list(from.c_str());
    while (list.hasNext()) {
        std::string path = list.getNext();
        int status = RK_FOP_SUCCESS;
        if (isDir(path.c_str())) {
            if (!recursive) continue;
            status = copyEntries(path.c_str(), to.c_str(), overwrite, callback, record, true);
        } else {
            std::string target = to + getFileName(path.c_str());
            status = _copy(path.c_str(), target.c_str(), overwrite, callback, record);
        }
        if (status != RK_FOP_SUCCESS) return status;
    }
    return RK_FOP_SUCCESS;
}

int RkRPXFileOpUtil::copy(const char* source, const char* destination, bool overwrite,
                          Callback callback, CallbackEntry* record) {
    return copyEntries(source, destination, overwrite, callback, record, false);
}

int RkRPXFileOpUtil::xcopy(const char* source, const char* destination, bool overwrite,
                           Callback callback, CallbackEntry* record) {
    return copyEntries(source, destination, overwrite, callback, record, true);
}

// A directory source leaves its folder and files behind (the removal meets ENOTEMPTY, which
// counts as success), unlike xmove; callers that must empty the source use xmove.
int RkRPXFileOpUtil::move(const char* source, const char* destination, bool overwrite,
                          Callback callback, CallbackEntry* record) {
    int status = copy(source, destination, overwrite, callback, record);
    if (status != RK_FOP_SUCCESS) return status;
    return unlink(source, callback, record);
}

int RkRPXFileOpUtil::xmove(const char* source, const char* destination, bool overwrite,
                           Callback callback, CallbackEntry* record) {
    int status = xcopy(source, destination, overwrite, callback, record);
    if (status != RK_FOP_SUCCESS) return status;
    return xunlink(source, callback, record);
}

// ---- Create and remove ----

int RkRPXFileOpUtil::createDir(const char* path, Callback callback, CallbackEntry* record) {
    std::list<std::string> keepAlive;
    return createDirLevel(path, callback, record, keepAlive);
}

int RkRPXFileOpUtil::__unlink(const char* path, Callback callback, CallbackEntry* record) {
    if (isEmptyPath(path)) return RK_FOP_BAD_ARGUMENT;
    bool directory = isDir(path);
    if (record != nullptr) {
        record->source = path;
        record->target = nullptr;
        record->operation = directory ? OP_REMOVE_DIR : OP_REMOVE_FILE;
        record->done = 0;
    }
    int result = 0;
    if (!approveStep(callback, record, &result)) return result;
    int rc = directory ? ::rmdir(path) : ::unlink(path);
    int error = errno;
    if (record != nullptr) record->done = 1;
    if (rc != 0) return isHarmlessRemoveError(error) ? RK_FOP_SUCCESS : RK_FOP_BAD_ARGUMENT;
    return reportStepDone(callback, record);
}

int RkRPXFileOpUtil::unlink(const char* path, Callback callback, CallbackEntry* record) {
    if (isEmptyPath(path)) return RK_FOP_BAD_ARGUMENT;
    std::string target = normalized(path);
    stripTrailingSeparator(target);
    if (isDir(target.c_str()) || !isWildcardName(target.c_str())) {
        return __unlink(target.c_str(), callback, record);
    }
    RkRPXDirList list(target.c_str());
    while (list.hasNext()) {
        std::string match = list.getNext();
        int status = __unlink(match.c_str(), callback, record);
        if (status != RK_FOP_SUCCESS) return status;
    }
    return RK_FOP_SUCCESS;
}

int RkRPXFileOpUtil::xunlink(const char* path, Callback callback, CallbackEntry* record) {
    if (isEmptyPath(path)) return RK_FOP_BAD_ARGUMENT;
    std::string target = normalized(path);
    {
        RkRPXDirList list(target.c_str());
        while (list.hasNext()) {
            std::string entry = list.getNext();
            int status = isDir(entry.c_str()) ? xunlink(entry.c_str(), callback, record)
                                              : __unlink(entry.c_str(), callback, record);
            if (status != RK_FOP_SUCCESS) return status;
        }
    }
    stripTrailingSeparator(target);
    if (!isDir(target.c_str())) return RK_FOP_SUCCESS;
    return __unlink(target.c_str(), callback, record);
}

// ---- Walks and comparisons ----

bool RkRPXFileOpUtil::xaccess(const char* path, Callback callback, CallbackEntry* record) {
    if (isEmptyPath(path) || record == nullptr || record->size != sizeof(CallbackEntry)) {
        return false;
    }
    std::string target = normalized(path);
    struct stat status {};
    if (!isDir(target.c_str())) {
        if (::stat(target.c_str(), &status) != 0 || S_ISDIR(status.st_mode)) return false;
        fillVisit(record, target.c_str(), status);
        (void)askCallback(callback, record);  // a walk cannot be skipped or stopped
        return true;
    }
    if (!isDirName(target.c_str())) target += '/';
    RkRPXDirList list(target.c_str());
    while (list.hasNext()) {
        std::string entry = list.getNext();
        if (::stat(entry.c_str(), &status) != 0) return false;
        fillVisit(record, entry.c_str(), status);
        (void)askCallback(callback, record);
        if (S_ISDIR(status.st_mode) && !xaccess(entry.c_str(), callback, record)) return false;
    }
    return true;
}

int32_t RkRPXFileOpUtil::CB_GetDirSize(CallbackEntry* entry) {
    if (entry != nullptr && entry->context != nullptr) {
        *static_cast<uint32_t*>(entry->context) += entry->fileSize;
    }
    return CB_CONTINUE;
}

int RkRPXFileOpUtil::getDirSize(const char* path) {
    if (isEmptyPath(path)) return -1;
    uint32_t total = 0;  // wraps beyond 4 GiB: the width is part of the contract
    CallbackEntry record{};
    record.size = sizeof(CallbackEntry);
    record.context = &total;
    if (!xaccess(path, CB_GetDirSize, &record)) return -1;
    return static_cast<int>(total);
}

bool RkRPXFileOpUtil::comp(const char* pathA, const char* pathB) {
    if (isEmptyPath(pathA) || isEmptyPath(pathB)) return false;
    std::ifstream first(normalized(pathA), std::ios::binary);
    std::ifstream second(normalized(pathB), std::ios::binary);
    if (!first || !second) return false;
    first.seekg(0, std::ios::end);
    second.seekg(0, std::ios::end);
    std::streamoff size = first.tellg();
    if (size < 0 || size != second.tellg()) return false;
    first.seekg(0, std::ios::beg);
    second.seekg(0, std::ios::beg);

    std::unique_ptr<char[]> bufferA(new (std::nothrow) char[kStreamBufferSize]);
    std::unique_ptr<char[]> bufferB(new (std::nothrow) char[kStreamBufferSize]);
    if (!bufferA || !bufferB) return false;
    std::streamoff total = 0;
    while (total < size) {
        first.read(bufferA.get(), kStreamBufferSize);
        second.read(bufferB.get(), kStreamBufferSize);
        std::streamsize count = first.gcount();
        // A count of 0 before the end means the file shrank or cannot be read (a folder).
        if (count != second.gcount() || count == 0) return false;
        if (memcmp(bufferA.get(), bufferB.get(), static_cast<size_t>(count)) != 0) return false;
        total += count;
    }
    return total == size;
}

bool RkRPXFileOpUtil::rename(const char* oldPath, const char* newPath) {
    if (isEmptyPath(oldPath) || isEmptyPath(newPath)) return false;
    std::string from = normalized(oldPath);
    std::string to = normalized(newPath);
    stripTrailingSeparator(from);
    stripTrailingSeparator(to);
    return ::rename(from.c_str(), to.c_str()) == 0;
}

// ---- Ownership ----

bool RkBuildQuotedCommand(const char* command, const char* path, char* out, size_t outSize) {
    if (out == nullptr || outSize == 0) return false;
    out[0] = '\0';
    if (command == nullptr || path == nullptr) return false;
    std::string text(command);
    text += " '";
    for (const char* at = path; *at != '\0'; ++at) {
        if (*at == '\'') {
            text += "'\\''";  // close the quote, an escaped quote, reopen
        } else {
            text += *at;
        }
    }
    text += '\'';
    if (text.size() >= outSize) return false;
    memcpy(out, text.c_str(), text.size() + 1);
    return true;
}

int ChangeOwner(char* path) {
    static const char* const kCommands[] = {"chgrp -Rf rpxgroup", "chmod -Rf g+rw",
                                            "chmod -Rf o-w"};
    constexpr size_t kCount = sizeof(kCommands) / sizeof(kCommands[0]);
    if (isEmptyPath(path)) return -1;
    char commands[kCount][kCommandBufferSize];
    for (size_t i = 0; i < kCount; ++i) {
        if (!RkBuildQuotedCommand(kCommands[i], path, commands[i], kCommandBufferSize)) return -1;
    }
    int status = -1;
    for (size_t i = 0; i < kCount; ++i) status = system(commands[i]);
    return status;
}
