// Shared set-up of the fuzz targets that need the emulated platform: one throw-away data
// directory for the whole process, started on the first input.
#ifndef FUZZ_FUZZPLATFORM_H
#define FUZZ_FUZZPLATFORM_H

#include <stdlib.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "NotesSession.h"

namespace fuzz {

inline const std::string& FuzzDataDirectory() {
    static const std::string folder = [] {
        char pattern[] = "/tmp/rpx_fuzz_XXXXXX";
        if (mkdtemp(pattern) == nullptr) {
            std::perror("mkdtemp");
            std::abort();
        }
        nsfdb::StartPlatform(pattern);
        return std::string(pattern);
    }();
    return folder;
}

}  // namespace fuzz

#endif
