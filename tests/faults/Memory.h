#pragma once

#include <cstddef>

/// Counts the memory that operator new allocates, and makes allocations fail. Memory.cpp replaces
/// operator new.
namespace Memory {

/// Resets the peak and returns how many bytes are in use.
std::size_t StartPeak();

/// Returns how many allocations are in use.
std::size_t InUse();

/// Returns how many allocations this thread has made.
std::size_t Requests();

/// Makes the nNth allocation fail, counted from now, or also all later ones.
void Arm(int nNth, bool bForEver);

/// Ends the failures and returns how many there were.
int Disarm();

/// While it exists, it sets whether allocations of this thread may fail. The default is that they
/// may.
class Scope {
 public:
    explicit Scope(bool bMayFail);
    ~Scope();
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

 private:
    const bool m_bBefore;
};

}  // namespace Memory
