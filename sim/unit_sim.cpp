// The simulated unit's program.
#include <cstdlib>
#include <cstring>

#include "sim/peer_program.h"

int main(int argc, char **argv) {
    if (argc == 5 && std::strcmp(argv[1], "peer") == 0) {
        return sim::runPeer(std::atoi(argv[4]));
    }
    return 2;
}
