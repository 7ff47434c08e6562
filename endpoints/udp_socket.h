// How both UDP endpoints get their socket.
#pragma once

// An IPv4 datagram socket that no child process inherits. Says why on stderr and throws
// the int 1 if there is none to be had.
int createUdpSocket();
