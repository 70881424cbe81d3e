#pragma once

#include <chrono>
#include <cstdint>
#if defined(__x86_64__)
#include <x86intrin.h>
#endif

/// A high-resolution clock. On x86-64 it reads the processor's cycle counter, because reading the
/// system's clock takes longer than some of the calls that are measured.
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

    /// Lets the other hardware thread of the core run during a busy wait.
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

    /// The ticks between two consecutive readings. Paced workloads subtract it from each
    /// measurement.
    static std::uint64_t Overhead() { return Measured().qwOverhead; }

 private:
    struct tagMeasured {
        double dNanoseconds;  // of one tick
        std::uint64_t qwOverhead;
    };
    static const tagMeasured& Measured();
};
