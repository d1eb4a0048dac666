// RkGetLatestPath: the newest version folder of one of the product's components, below the install
// folder that notes.ini names. Reads notes.ini through the platform, so it lives apart from the
// platform-free folder functions.
#include "global.h"
#include "osenv.h"
#include "osmisc.h"

#include "RkFormat.h"
#include "RkVersionPath.h"

const char lmbcVeltrixInstallPath[] = "VeltrixInstallPath";

namespace {

constexpr unsigned long kWorkBufferSize = 1024;

// Component folders by index; null where the index names none.
const char* const kComponentFolders[] = {
    nullptr,             // 0
    "program",           // 1
    "engine/kestrel",    // 2
    "engine/whimbrel",   // 3
    "engine/avocet",     // 4
    "pattern/kestrel",   // 5: taken as it is, no version lookup
    "pattern/whimbrel",  // 6
    "engine/plover",     // 7
};
const int kComponentCount = sizeof(kComponentFolders) / sizeof(kComponentFolders[0]);
const int kFixedFolderIndex = 5;

// The install folder in the native character set; false when notes.ini does not name one.
bool ReadInstallFolder(char* native, WORD size) {
    char lmbcs[kWorkBufferSize] = "";
    if (!OSGetEnvironmentString(lmbcVeltrixInstallPath, lmbcs, sizeof lmbcs - 1)) return false;
    lmbcs[sizeof lmbcs - 1] = '\0';
    WORD length = OSTranslate(OS_TRANSLATE_LMBCS_TO_NATIVE, lmbcs, MAXWORD, native, size - 1);
    native[length < size ? length : size - 1] = '\0';
    return true;
}

}  // namespace

char* RkGetLatestPath(int index, char* out, unsigned long size) {
    if (out == nullptr || size == 0) return nullptr;
    char installFolder[kWorkBufferSize + 1];
    if (!ReadInstallFolder(installFolder, sizeof installFolder)) return nullptr;
    if (index <= 0 || index >= kComponentCount) return nullptr;
    if (index == kFixedFolderIndex) {
        rk_snprintf(out, size, "%s%s%s", installFolder, "/", kComponentFolders[index]);
        return out;
    }
    return GetLatestPathN(installFolder, kComponentFolders[index], out, size);
}
