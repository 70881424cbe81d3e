#pragma once

#include <chrono>

/// Seconds since it was made or last set back.
class CStopwatch {
 public:
    void Restart() { m_start = Clock::now(); }
    double GetSeconds() const {
        return std::chrono::duration<double>(Clock::now() - m_start).count();
    }

 private:
    using Clock = std::chrono::steady_clock;
    Clock::time_point m_start = Clock::now();
};
