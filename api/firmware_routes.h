// Listing the firmware files, on the unit and on the server, and starting an update.
//
// An update is the firmware file itself: a script that is started and left alone, and that
// ends this process when it sees fit. From then on the update gate is up and the API answers
// nobody; the stream goes on.
#pragma once

struct ApiRequest;

void listLocalFirmware(const ApiRequest &request);
void listServerFirmware(const ApiRequest &request);

// Starts a file that lies on the unit, replies, raises the gate.
void startLocalFirmware(const ApiRequest &request);

// Raises the gate and replies at once, then downloads and starts. The client gets the reply
// when the download has ended, however that was: if it failed, the gate goes down again.
void startServerFirmware(const ApiRequest &request);
