// The JSON database import on arbitrary text: bad input is refused with a ToolError, never a
// crash; input that is accepted makes a database whose dump creates a database with the same
// dump again.
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include "DbAccess.h"
#include "FuzzPlatform.h"
#include "JsonFormat.h"
#include "NotesSession.h"

namespace {

std::string FreshPath(const char* name) {
    std::string path = fuzz::FuzzDataDirectory() + "/" + name;
    ::unlink(path.c_str());
    return path;
}

// Creates a database from the JSON and dumps it; throws ToolError when the JSON is refused.
std::string CreateAndDump(const nsfdb::Json& json, const char* name) {
    nsfdb::DatabaseData data = nsfdb::DatabaseFromJson(json);
    std::string path = FreshPath(name);
    nsfdb::CreateDatabase(path, data, name);
    std::string dump = nsfdb::DumpText(nsfdb::DatabaseToJson(nsfdb::ReadDatabase(path)));
    ::unlink(path.c_str());
    return dump;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 8192) return 0;
    std::string text(reinterpret_cast<const char*>(data), size);
    std::string first;
    try {
        first = CreateAndDump(nsfdb::ParseJsonText(text), "first.nsf");
    } catch (const nsfdb::ToolError&) {
        return 0;
    }
    std::string second;
    try {
        second = CreateAndDump(nsfdb::ParseJsonText(first), "second.nsf");
    } catch (const nsfdb::ToolError& error) {
        std::fprintf(stderr, "the dump does not read back: %s\n%s\n", error.what(), first.c_str());
        std::abort();
    }
    if (first != second) {
        std::fprintf(stderr, "the dump changed on the round trip:\n%s\n----\n%s\n", first.c_str(), second.c_str());
        std::abort();
    }
    return 0;
}
