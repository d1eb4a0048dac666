#include "JsonStream.h"

#include <utility>

#include "Values.h"

namespace nsfdb {
namespace {

template <typename F>
auto Placed(const std::string& source, F&& step) -> decltype(step()) {
    try {
        return step();
    } catch (const PlacedError&) {
        throw;
    } catch (const ToolError& error) {
        throw PlacedError(source + ": " + error.what());
    }
}

// Errors of the builder already name what they concern.
template <typename F>
void AsPlaced(F&& step) {
    try {
        step();
    } catch (const PlacedError&) {
        throw;
    } catch (const ToolError& error) {
        throw PlacedError(error.what());
    }
}

}  // namespace

DatabaseStream::DatabaseStream(DatabaseBuilder& builder, std::string source)
    : builder_(builder), source_(std::move(source)) {}

DatabaseData DatabaseStream::Settings(const Json& database) const {
    return Placed(source_, [&] { return DatabaseSettingsFromJson(database); });
}

void DatabaseStream::Note(size_t index, const JsonRecord& note, const Json& databaseSoFar) {
    if (!builder_.begun()) {
        DatabaseData settings = Settings(databaseSoFar);
        AsPlaced([&] { builder_.Begin(settings); });
    }
    auto place = [index] { return "notes[" + std::to_string(index) + "]"; };
    Placed(source_, [&] {
        NoteFromRecord(note, place, note_);
        if (note_.unid && !unids_.insert(*note_.unid).second)
            throw ToolError(place() + ".unid: another note already has this UNID");
    });
    AsPlaced([&] { builder_.AddNote(note_, index); });
}

void DatabaseStream::Finish(const Json& database) {
    DatabaseData settings = Settings(database);
    AsPlaced([&] { builder_.Finish(settings); });
}

namespace {

// Takes notes[i] of a database document.
class NoteListSink : public JsonSink {
public:
    NoteListSink(DatabaseStream& stream, const Json& root) : stream_(stream), root_(root) {}

    bool Records(const JsonPath& where) override {
        return where.size() == 2 && where[0].isKey && where[0].key == "notes" && !where[1].isKey;
    }
    void Take(const JsonPath& where, const JsonRecord& note) override { stream_.Note(where[1].index, note, root_); }

private:
    DatabaseStream& stream_;
    const Json& root_;
};

}  // namespace

void CreateDatabaseFromJsonFile(const std::string& path, const std::string& jsonPath) {
    DatabaseBuilder builder(path, jsonPath);
    DatabaseStream stream(builder, jsonPath);
    Json root;
    NoteListSink takeNotes(stream, root);
    Placed(jsonPath, [&] { ParseJsonFile(jsonPath, takeNotes, root); });
    stream.Finish(root);
}

}  // namespace nsfdb
