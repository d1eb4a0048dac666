// "rpxserver preview DIR": the task run on a copy of the server folder, and what it changed there.
#ifndef RPXSERVER_SERVERPREVIEW_H
#define RPXSERVER_SERVERPREVIEW_H

#include <ostream>
#include <string>

namespace rpxserver {

struct PreviewOptions {
    std::string modulePath;
    bool details = false;  // the item-level differences of every changed database
    bool json = false;     // one JSON document (the form of "run --report") instead of text
};

// Copies serverDir (all but its backup/ folder) to a temporary folder, runs the task there with
// a report, and prints the report with the temporary folder's paths shown as serverDir's. Nothing
// below serverDir is written. Throws HostError or nsfdb::ToolError.
int PreviewRun(const std::string& serverDir, const PreviewOptions& options, std::ostream& out);

}  // namespace rpxserver

#endif
