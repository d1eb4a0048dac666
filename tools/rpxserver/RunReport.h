// "rpxserver run DIR --report FILE": what a run of the task changed, found by comparing the data
// folder with a copy taken before the task, and what it said (debug log, console), as one JSON
// document and as a short summary.
#ifndef RPXSERVER_RUNREPORT_H
#define RPXSERVER_RUNREPORT_H

#include <cstdint>
#include <ctime>
#include <map>
#include <memory>
#include <ostream>
#include <string>

#include "JsonFormat.h"
#include "ServerFolder.h"
#include "ServerHost.h"

namespace rpxserver {

// The server as it was before the task: a copy of its data folder (without the temporary
// folder rpxtemp) and where the console log and the debug logs ended.
struct RunBaseline {
    ServerPaths server;
    std::unique_ptr<TemporaryFolder> copy;
    std::uintmax_t consoleSize = 0;
    std::map<std::string, std::uintmax_t> debugLogSizes;  // by file name in rpxtemp
    std::time_t started = 0;
};

// Throws nsfdb::ToolError when the copy cannot be made.
RunBaseline TakeBaseline(const ServerPaths& server);

// The report after the task returned (the platform of the run stopped). With details, each
// changed database carries the item-level differences too.
nsfdb::Json MakeRunReport(const RunBaseline& baseline, const TaskOutcome& outcome, const std::string& modulePath,
                          bool details);

// A few lines for a reader: status, debug log errors and warnings, console commands, the
// databases and files changed, handles left open.
void PrintReportSummary(const nsfdb::Json& report, std::ostream& out);

// The report as JSON text (UTF-8; a byte that is not is shown as U+FFFD), ended by a newline.
std::string ReportText(const nsfdb::Json& report);

// Writes the report, through a temporary name beside file. Throws nsfdb::ToolError.
void WriteReportFile(const nsfdb::Json& report, const std::string& file);

// Runs the task on the server as RunTask does, then writes the report to reportFile and prints
// its summary on standard output. Returns RunTask's exit status.
int RunWithReport(const ServerPaths& server, const std::string& modulePath, const std::string& reportFile,
                  bool details);

}  // namespace rpxserver

#endif
