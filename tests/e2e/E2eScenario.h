// Building blocks of end-to-end scenarios (the rpxserver scenario format): an installed product
// at build 3001 with a patch folder, product databases with a build stamp, and the patch
// settings file.
#ifndef TESTS_E2E_E2ESCENARIO_H
#define TESTS_E2E_E2ESCENARIO_H

#include <string>
#include <utility>
#include <vector>

#include "E2eHarness.h"

namespace e2e {

inline const char* const kServerName = "CN=Alpha/O=Acme";
inline const char* const kPatchFolder = "program/V5.6.1.3100";

// A help note carrying the build stamp "5.6.1.<build>".
inline Json HelpNote(int build) {
    return Json{{"class", "help"}, {"items", {{"BuildNumber", "5.6.1." + std::to_string(build)}}}};
}

inline Json Document(Json items) {
    return Json{{"class", "document"}, {"items", std::move(items)}};
}

inline Json Acl(std::vector<std::pair<std::string, std::string>> entries) {
    Json acl = Json::array();
    for (auto& entry : entries) acl.push_back({{"name", entry.first}, {"level", entry.second}});
    return acl;
}

// A product database stamped with build, holding a document that tells it apart.
inline Json ProductDatabase(const std::string& title, int build, const std::string& marker = "") {
    Json db{{"title", title}, {"acl", Acl({{"-Default-", "reader"}, {"CN=Admin/O=Acme", "manager"}})}};
    db["notes"] = Json::array({HelpNote(build)});
    if (!marker.empty()) db["notes"].push_back(Document({{"Form", "Marker"}, {"Marker", marker}}));
    return db;
}

// A template: the database form plus its template name and a design note.
inline Json ProductTemplate(const std::string& title, const std::string& templateName, int build,
                            const std::string& marker) {
    Json db = ProductDatabase(title, build, marker);
    db["templateName"] = templateName;
    db["notes"].push_back({{"class", "form"}, {"items", {{"$TITLE", marker + " form"}}}});
    return db;
}

// "[Config]" with the given lines, one "Key=Value" each.
inline std::string PatchIni(const std::vector<std::string>& lines) {
    std::string text = "[Config]\n";
    for (const std::string& line : lines) text += line + "\n";
    return text;
}

// The usual settings of patch 3100 shipping databases.
inline std::string PatchIniShipping(const std::string& databases) {
    return PatchIni({"Files=" + databases, "BuildNumber=3100", "Databases=" + databases});
}

// An installation whose message database carries build 3001, with program folders V5.6.1.3001
// and V5.6.1.3100 and the given rpxpatch.ini in the newer one. The clock is virtual.
inline Json BaseScenario(const std::string& patchIni) {
    Json scenario;
    scenario["notesIni"] = {{"ServerName", kServerName}, {"MailServer", kServerName}, {"RPX_ENABLE_RPENCY_LOG", "1"}};
    scenario["data"] = {{"rpx/rpmsg.nsf", ProductDatabase("Messages", 3001)}};
    scenario["install"] = {{"program/V5.6.1.3001/readme.txt", "build 3001\n"},
                           {std::string(kPatchFolder) + "/rpxpatch.ini", patchIni}};
    scenario["server"] = {{"clock", "virtual"}};
    return scenario;
}

// The index of the first message equal to text at or after from; messages.size() when none.
inline size_t IndexOf(const std::vector<std::string>& messages, const std::string& text, size_t from = 0) {
    for (size_t i = from; i < messages.size(); ++i) {
        if (messages[i] == text) return i;
    }
    return messages.size();
}

// Each expected message must be found after the one before.
inline void ExpectInOrder(const std::vector<std::string>& messages, const std::vector<std::string>& expected) {
    size_t from = 0;
    for (const std::string& text : expected) {
        size_t at = IndexOf(messages, text, from);
        ASSERT_LT(at, messages.size()) << "missing, or out of order: " << text;
        from = at + 1;
    }
}

inline size_t CountOf(const std::vector<std::string>& messages, const std::string& text) {
    return static_cast<size_t>(std::count(messages.begin(), messages.end(), text));
}

// The messages from the first equal to first up to and including the first equal to last after it.
inline std::vector<std::string> Slice(const std::vector<std::string>& messages, const std::string& first,
                                      const std::string& last) {
    size_t begin = IndexOf(messages, first);
    size_t end = IndexOf(messages, last, begin);
    if (begin == messages.size() || end == messages.size()) return {};
    return std::vector<std::string>(messages.begin() + static_cast<long>(begin),
                                    messages.begin() + static_cast<long>(end) + 1);
}

}  // namespace e2e

#endif
