#pragma once

#include <chrono>
#include <cstdint>
#if defined(__x86_64__)
#include <x86intrin.h>
#endif

/// Reads time in small steps. Where the processor counts cycles at a constant rate that count is
/// read, as a call of the system's clock costs more than what is measured here.
class CClock {
 public:
    static std::uint64_t Now() {
#if defined(__x86_64__)
        _mm_lfence();
        return __rdtsc();
#else
        return static_cast<std::uint64_t>(
            std::chrono::steady_clock::now().time_since_epoch().count());
#endif
    }

    /// Gives way to the other thread of a core while waiting for a moment.
    static void Pause() {
#if defined(__x86_64__)
        _mm_pause();
#endif
    }

    static double ToNanoseconds(std::uint64_t qwTicks) {
        return static_cast<double>(qwTicks) * Measured().dNanoseconds;
    }
    static std::uint64_t ToTicks(double dNanoseconds) {
        return static_cast<std::uint64_t>(dNanoseconds / Measured().dNanoseconds);
    }

    /// What a pair of readings around nothing shows; it is taken off each single measurement.
    static std::uint64_t Overhead() { return Measured().qwOverhead; }

 private:
    struct tagMeasured {
        double dNanoseconds;  // of one tick
        std::uint64_t qwOverhead;
    };
    static const tagMeasured& Measured();
};
