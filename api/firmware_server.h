// The firmware server: its listing, and a download from it. Each holds the API for ten
// seconds at most, and for about one once the process has to stop; with a libcurl before 7.87
// longer where name servers are silent.
//
// Nothing proves that a file is what it claims to be: neither checksum nor signature nor
// certificate is looked at. Who can answer in the server's place owns the unit.
#pragma once

#include <set>
#include <string>

// Where the server keeps its firmware files; a setting of the build.
extern const char *const kFirmwareUrl;

// Adds the names of the platform's firmware files on the server. A server that gives no
// listing is told through syslog.
void listFirmware(std::set<std::string> &names, const std::string &platform);

// The file names that an HTML index links to: the first link in each line whose name is
// "tidewell-", the platform word and anything. The word goes into a pattern as it is; one
// that makes no valid pattern finds nothing.
std::set<std::string> scrapeFirmwareNames(const std::string &listing, const std::string &platform);

// Fetches `base` + `name` into `directory` and returns the path; other firmware files go
// first, so that there is room. Empty if it failed, a status of 400 or more included; then no
// part of the file is left, and what had the name keeps it.
std::string downloadFirmware(const std::string &base, const std::string &name,
                             const std::string &directory);
