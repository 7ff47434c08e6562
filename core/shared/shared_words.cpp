#include "core/shared/shared_words.h"

std::atomic<int> stop_flag{0};
