// RkFileOpUtil: file-system operations on NUL-terminated path strings (copy, move, remove,
// directory creation, tree walks, comparison), a wildcard directory lister and path utilities.
// Operations return 0 or a negative status and can report every step to a caller's callback.
#ifndef RK_FILE_OP_UTIL_H
#define RK_FILE_OP_UTIL_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

class RkRPXFileOpUtil {
public:
    // Filled by the operations before each step (done = 0) and after it (done = 1).
    struct CallbackEntry {
        uint32_t size;         // must be sizeof(CallbackEntry); only xaccess checks it
        void* context;         // the caller's, never touched here
        const char* source;    // valid only during the callback
        const char* target;    // destination of a copy, otherwise null
        int64_t modifyTime;    // filled by xaccess only
        uint32_t fileSize;     // filled by xaccess only (0 for a directory)
        int32_t operation;     // one of the OP_ codes
        int32_t done;
    };

    // Answers: CB_CONTINUE goes on, CB_SKIP skips the step (counted as success), any other
    // value aborts the operation, which then returns exactly that value.
    typedef int32_t (*Callback)(CallbackEntry* entry);

    static constexpr int32_t CB_CONTINUE = 0;
    static constexpr int32_t CB_SKIP = 2;

    static constexpr int32_t OP_COPY_NEW = 0;
    static constexpr int32_t OP_COPY_OVERWRITE = 1;
    static constexpr int32_t OP_REMOVE_FILE = 2;
    static constexpr int32_t OP_CREATE_DIR = 3;
    static constexpr int32_t OP_REMOVE_DIR = 4;
    static constexpr int32_t OP_VISIT_DIR = 5;
    static constexpr int32_t OP_VISIT_FILE = 6;

    static constexpr int32_t RK_FOP_SUCCESS = 0;
    static constexpr int32_t RK_FOP_BAD_ARGUMENT = -1;
    static constexpr int32_t RK_FOP_SOURCE_OPEN_FAILED = -2;
    static constexpr int32_t RK_FOP_READ_FAILED = -3;  // also: no memory for the copy buffer
    static constexpr int32_t RK_FOP_SHORT_WRITE = -4;
    static constexpr int32_t RK_FOP_DESTINATION_FAILED = -5;
    static constexpr int32_t RK_FOP_DESTINATION_EXISTS = -6;

    // Copies one file, or the plain files directly inside a directory (or matching a wildcard).
    static int copy(const char* source, const char* destination, bool overwrite, Callback callback,
                    CallbackEntry* record);
    // copy, then (on success) unlink of the source.
    static int move(const char* source, const char* destination, bool overwrite, Callback callback,
                    CallbackEntry* record);
    // Recursive copy of a tree: a/b/ copied to x/ fills x/b/.
    static int xcopy(const char* source, const char* destination, bool overwrite,
                     Callback callback, CallbackEntry* record);
    // xcopy, then (on success) xunlink of the source.
    static int xmove(const char* source, const char* destination, bool overwrite,
                     Callback callback, CallbackEntry* record);
    // Removes a file, an empty directory, or the matches of a wildcard.
    static int unlink(const char* path, Callback callback, CallbackEntry* record);
    // Removes a tree (symbolic links are removed, never followed).
    static int xunlink(const char* path, Callback callback, CallbackEntry* record);
    // Creates the directory and its missing parents.
    static int createDir(const char* path, Callback callback, CallbackEntry* record);
    // Walks a tree and reports every object; the record is required.
    static bool xaccess(const char* path, Callback callback, CallbackEntry* record);
    // Summed size of the files under path as an unsigned 32-bit sum, or -1.
    static int getDirSize(const char* path);
    static int32_t CB_GetDirSize(CallbackEntry* entry);
    // True when both files have identical contents.
    static bool comp(const char* pathA, const char* pathB);
    static bool rename(const char* oldPath, const char* newPath);

    static bool isDirName(const char* path);
    static std::string getFileName(const char* path);
    static std::string getDirName(const char* path);
    static bool isDir(const char* path);
    static bool exist(const char* path);
    static bool isExist(const char* path);
    static bool filesizeEqualTo(const char* path, int size);
    static bool isEmptyDir(const char* path);

private:
    static int _copy(const char* source, const char* destination, bool overwrite,
                     Callback callback, CallbackEntry* record);
    static int __unlink(const char* path, Callback callback, CallbackEntry* record);
    // The shared body of copy (plain files only) and xcopy (recursive).
    static int copyEntries(const char* source, const char* destination, bool overwrite,
                           Callback callback, CallbackEntry* record, bool recursive);
};

// Lists one directory once, at construction: "d/" lists all of d, "d/*.ntf" the matches.
class RkRPXDirList {
public:
    explicit RkRPXDirList(const char* path);
    ~RkRPXDirList();

    bool hasNext() const;
    // The directory followed by the next name; empty when none is left.
    std::string getNext();
    // The number of listed names that are not directories.
    int getFileCount() const;
    std::string getFilter() const;

private:
    std::string directory;
    std::string filter;
    std::vector<std::string> names;
    size_t position;
};

// True when the text holds "*" or "?".
bool isWildcardName(const char* name);
// Case-sensitive wildcard match of a whole name: "*" and "?" only, no classes, no escapes.
bool _fnmatch(const char* pattern, const char* name);

// Gives path to the group rpxgroup, group read-write, no world write. Returns the status of the
// last shell command, or -1 (nothing run) when a command would not fit its buffer.
int ChangeOwner(char* path);
// Writes "<command> '<path>'" into out with every ' of path written as '\'' so the shell sees
// path as one word. False, with out emptied, when the whole would not fit in outSize bytes.
bool RkBuildQuotedCommand(const char* command, const char* path, char* out, size_t outSize);

#endif
