// What runs in the process of a far end, behind the command "unit_sim peer".
#pragma once

namespace sim {

// `memory` is the descriptor of a PeerState. Runs until SIGTERM or SIGINT and returns
// the exit status.
int runPeer(int memory);

}  // namespace sim
