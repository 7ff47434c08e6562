// Small pictures that move: what a unit would show as its thumbnail.
#pragma once

#include <string>

namespace sim {

// Bars that have wandered `step` places, below the 8192 bytes that the API takes.
std::string gifPicture(unsigned step);
std::string jpegPicture(unsigned step);

}  // namespace sim
