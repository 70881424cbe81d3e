#pragma once

#include <cstddef>

/// The process's memory from operator new, which Memory.cpp replaces.
namespace Memory {

/// Starts counting the peak anew; returns how many bytes are in use.
std::size_t StartPeak();
std::size_t Peak();

/// How many pieces are in use.
std::size_t InUse();

/// How many requests this thread has made.
std::size_t Requests();

/// From now on the nNth request for memory gets none, or that one and all behind it.
void Arm(int nNth, bool bForEver);

/// No more failures. How many there were.
int Disarm();

/// While one lives, requests of this thread never fail or may fail. At first a thread's may.
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
