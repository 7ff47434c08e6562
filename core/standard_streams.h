// Makes stdin, stdout and stderr harmless where the starter left them closed, or tied to
// somebody who does not read.
#pragma once

// Closed descriptors are opened on /dev/null, so that no socket takes their number. A
// pipe, socket or terminal that nobody reads loses output in place of holding the stream
// up, a closed one raises no signal, and stdout is written line by line, so that messages
// arrive when they happen. Call first, before any thread.
void prepareStandardStreams();
