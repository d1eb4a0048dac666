// "rpxserver run DIR --backup" and "rpxserver restore DIR TIMESTAMP": the product's files kept
// before a run in DIR/backup/TIMESTAMP/, and put back later.
#ifndef RPXSERVER_SERVERBACKUP_H
#define RPXSERVER_SERVERBACKUP_H

#include <ostream>
#include <string>

#include "ServerFolder.h"

namespace rpxserver {

// Keeps every file of the product's folder (data/rpx: the databases the patch replaces,
// converts, stamps and signs) and notes which files the patch's settings name that do not
// exist yet. Returns the backup's timestamp, the name of its folder. Throws nsfdb::ToolError;
// a backup that fails leaves no folder behind.
std::string MakeBackup(const ServerPaths& server, std::ostream& log);

// Puts the backup back: each database taken offline (retried while in use, as the task does),
// replaced and brought online again; files the patch created are removed. Refuses a backup of
// another server (server name or data folder). kExitOk when everything was restored, else
// kExitFailed with the reasons on err. Throws HostError or nsfdb::ToolError.
int RestoreBackup(const std::string& serverDir, const std::string& timestamp, std::ostream& out,
                  std::ostream& err);

}  // namespace rpxserver

#endif
