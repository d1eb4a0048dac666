// Versioned install paths: a component keeps its releases side by side in folders named "V"
// and a dotted version (V5.6.1.3001). These find the newest or oldest such folder, count them,
// and parse and compare version names.
#ifndef RK_VERSION_PATH_H
#define RK_VERSION_PATH_H

// Parses the version of the last component of path (its first character is the "V" and is
// skipped). Leaves the outputs alone when path is null.
void RkParseVersionStr(const char* path, int* major, int* minor, int* third, int* fourth);
// 1 when the version of a is greater, -1 when smaller, 0 when equal.
int RkVersionStrCmp(const char* a, const char* b);
// The number of version folders in base/sub, or -1 for an empty base or one longer than 1020
// bytes. The search pattern base/sub/V* is cut at 1023 bytes, so a long sub finds nothing.
int GetPathCountN(const char* base, const char* sub);
// Writes the full path of the newest version folder of base/sub into out (size bytes, always
// zero-ended) and returns out; NULL when none has a non-zero major.
char* GetLatestPathN(const char* base, const char* sub, char* out, unsigned long size);
// The same for the oldest; returns out unwritten when base/sub holds no version folder.
char* GetOldestPathN(const char* base, const char* sub, char* out, unsigned long size);

// The notes.ini setting that names the product's install folder (LMBCS).
extern const char lmbcVeltrixInstallPath[];
// The newest version folder of a component of the install folder, into out (size bytes).
// Index 1 program, 2 engine/kestrel, 3 engine/whimbrel, 4 engine/avocet, 5 pattern/kestrel (the
// folder itself, unlooked-at), 6 pattern/whimbrel, 7 engine/plover. Returns out, or NULL for
// another index, an unset install folder or no version folder.
char* RkGetLatestPath(int index, char* out, unsigned long size);

#endif
