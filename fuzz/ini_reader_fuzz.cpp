// The INI reader on arbitrary file content: every lookup stays inside its buffer and always
// terminates it, whatever the lines, sections and lengths.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "RkIniReader.h"

namespace {

const std::string& InputPath() {
    static const std::string path = "/tmp/rpx_fuzz_ini_" + std::to_string(getpid()) + ".ini";
    return path;
}

void CheckValue(RkIniReader& reader, const char* section, const char* key, int capacity) {
    char buffer[64];
    std::memset(buffer, 'x', sizeof buffer);
    int length = capacity;
    if (reader.getValue(section, key, buffer, &length) == 0) {
        if (length < 0 || length >= capacity || std::memchr(buffer, '\0', capacity) == nullptr) std::abort();
    }
    for (int i = capacity; i < static_cast<int>(sizeof buffer); ++i) {
        if (buffer[i] != 'x') std::abort();  // written past the capacity given
    }
    int count = reader.getValueCount(section, key);
    for (int index = 0; index < count && index < 8; ++index) {
        length = capacity;
        reader.getValueAt(section, key, buffer, &length, index);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::FILE* file = std::fopen(InputPath().c_str(), "wb");
    if (file == nullptr) return 0;
    std::fwrite(data, 1, size, file);
    std::fclose(file);

    RkIniReader reader;
    if (reader.open(InputPath().c_str()) != 0) return 0;
    for (const char* section : {"Config", "Notes", ""}) {
        for (const char* key : {"Files", "BuildNumber", "Databases", "Directory", ""}) {
            CheckValue(reader, section, key, 1);
            CheckValue(reader, section, key, 16);
        }
    }
    reader.close();
    return 0;
}
