// copy_once SOURCE TARGET: one RkRPXFileOpUtil::copy in a process of its own, so that the copy
// benchmark can time it as a whole process against cp. Exit status 0 on success, else 1.
#include <cstdio>

#include "RkFileOpUtil.h"

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: copy_once SOURCE TARGET\n");
        return 2;
    }
    int result = RkRPXFileOpUtil::copy(argv[1], argv[2], true, nullptr, nullptr);
    if (result != RkRPXFileOpUtil::RK_FOP_SUCCESS) {
        std::fprintf(stderr, "copy_once: RkRPXFileOpUtil::copy gave %d\n", result);
        return 1;
    }
    return 0;
}
