#pragma once

#include <chrono>

/// How long each write of the library takes besides its work.
void SetWriteDelay(std::chrono::milliseconds aDelay);
