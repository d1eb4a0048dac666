// "rpxserver init": makes a server folder from a scenario.
#ifndef RPXSERVER_SERVERINIT_H
#define RPXSERVER_SERVERINIT_H

#include <string>

#include "Scenario.h"

namespace rpxserver {

// Makes the server folder dir (absolute; it must not exist or be empty, and its parent must
// exist): notes.ini, server.json, data/ (with rpxtemp/), install/ and the scenario's files.
// Everything is made in a temporary folder beside dir, which becomes dir only when complete,
// so a failure leaves nothing behind. source names the scenario in error messages.
// Throws nsfdb::ToolError.
// Makes the server folder dir from the scenario file. Databases are written as the file is read.
void InitServer(const std::string& scenarioPath, const std::string& dir);

}  // namespace rpxserver

#endif
