// Makes stdin, stdout and stderr harmless where the starter left them closed, or tied to
// a pipe that nobody reads.
#pragma once

// Closed descriptors are opened on /dev/null, so that no socket takes their number. A
// pipe that nobody empties loses output in place of blocking the stream, a closed one
// raises no signal, and stdout is written line by line, so that messages arrive when
// they happen. Call first, before any thread.
void prepareStandardStreams();
