// The unit of data that everything moves in: seven 188-byte transport stream packets.
// Read size, SRT message size and datagram size rest on it.
#pragma once

constexpr int kPayloadBytes = 1316;
