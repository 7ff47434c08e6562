// The routes that show the state of the unit and take new stream settings.
#pragma once

struct ApiRequest;

// The stats document with the slot in use and the audio levels. The levels are a text that
// holds a JSON array, not an array.
void serveStats(const ApiRequest &request);

// Clears nothing: libsrt's counters run from the start of a connection.
void resetStats(const ApiRequest &request);

// Both stream addresses.
void serveConfig(const ApiRequest &request);

// Takes new addresses. Succeeds whatever the store does with them; the stream is closed and
// opened anew from the primary address in any case.
void applyConfig(const ApiRequest &request);

// Goes over to the address that `index` names, without a change of the settings.
void selectSource(const ApiRequest &request);

// The log's file.
void serveLog(const ApiRequest &request);

// The page and whatever else has no route.
void serveWebRoot(const ApiRequest &request);
