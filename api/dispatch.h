// The dispatch table and the one guard around it.
#pragma once

struct mg_connection;

// The HTTP layer's event function; the connection's fn_data is the ApiHandler or null.
// Answers each request by the first route that has its path to the letter, else from the
// web root. While the update gate is up, nothing is answered at all. Throws nothing: where
// a route throws before it has replied, the reply is the one that its row names.
void apiEventHandler(mg_connection *connection, int event, void *event_data);
