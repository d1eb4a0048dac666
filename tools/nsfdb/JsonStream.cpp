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

void DatabaseStream::Note(size_t index, const Json& note, const Json& databaseSoFar) {
    if (!builder_.begun()) {
        DatabaseData settings = Settings(databaseSoFar);
        AsPlaced([&] { builder_.Begin(settings); });
    }
    std::string place = "notes[" + std::to_string(index) + "]";
    NoteData data = Placed(source_, [&] {
        NoteData converted = NoteFromJson(note, place);
        if (converted.unid && !unids_.insert(UnidText(*converted.unid)).second)
            throw ToolError(place + ".unid: another note already has this UNID");
        return converted;
    });
    AsPlaced([&] { builder_.AddNote(data, source_ + ": " + place); });
}

void DatabaseStream::Finish(const Json& database) {
    DatabaseData settings = Settings(database);
    AsPlaced([&] { builder_.Finish(settings); });
}

void CreateDatabaseFromJsonFile(const std::string& path, const std::string& jsonPath) {
    DatabaseBuilder builder(path, jsonPath);
    DatabaseStream stream(builder, jsonPath);
    Json root;
    JsonValueSink takeNotes = [&](const JsonPath& where, const Json& value) {
        if (where.size() != 2 || !where[0].isKey || where[0].key != "notes" || where[1].isKey) return false;
        stream.Note(where[1].index, value, root);
        return true;
    };
    Placed(jsonPath, [&] { ParseJsonFile(jsonPath, takeNotes, root); });
    stream.Finish(root);
}

}  // namespace nsfdb
