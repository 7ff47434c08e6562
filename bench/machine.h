// The machine that the figures hold for, in words for the document.
#pragma once

#include <string>

namespace bench {

// Processor, cores, memory, kernel, libsrt and the day, as a Markdown sentence.
std::string describeMachine();

}  // namespace bench
