// "rpxserver dump": a readable summary of a server folder.
#ifndef RPXSERVER_SERVERDUMP_H
#define RPXSERVER_SERVERDUMP_H

#include <ostream>
#include <string>

namespace rpxserver {

// Writes notes.ini, server.json, every file of data/ and install/ (databases with their title
// and number of notes) and the size of console.log. Throws nsfdb::ToolError when serverDir
// has no notes.ini.
void DumpServer(const std::string& serverDir, std::ostream& out);

}  // namespace rpxserver

#endif
