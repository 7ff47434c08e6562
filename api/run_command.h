// Shell commands, run so that nothing of this process stays behind in them.
#pragma once

// Runs `command` in a shell and waits for the shell, ten seconds at most and one once the
// process has to stop; what it leaves in the background, and a shell that takes longer, goes
// on. The child has this process's standard streams (pipes wait for their
// reader) and none of its other descriptors:
// an update script that outlives this process must not keep its port or its sockets. Signals
// are set back to their defaults. Unlike system(), it leaves this process's own handling of
// SIGINT alone, so that a stop is heard meanwhile. Failures are told on stderr only.
void runCommand(const char *command);
