#pragma once

#include <chrono>
#include <functional>

/// A simulated clock for a whole process.
///
/// SimulatedTime.cpp replaces the clocks, poll, the condition variables and the start of threads of
/// the system for the program that it is linked into, and for its shared libraries. Everything else
/// is real. While a thread runs, the clock stands, except that each look at it takes a microsecond,
/// so that a thread that polls the clock ends. When all threads wait, the clock jumps to the next
/// moment at which one of them wakes up, or at which an action takes place.
namespace SimulatedTime {

using Clock = std::chrono::steady_clock;

/// Runs the action at this time, while all threads wait. It must not wait itself.
void At(Clock::time_point aTime, std::function<void()> aAction);

/// Is called whenever all threads wait, before the clock goes on. May be empty.
void OnRest(std::function<void(Clock::time_point aNow)> aObserver);

}  // namespace SimulatedTime
