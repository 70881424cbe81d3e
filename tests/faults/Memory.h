#pragma once

#include <cstddef>

/// The process's memory from operator new, which Memory.cpp replaces.
namespace Memory {

/// Starts counting the peak anew; returns how many bytes are in use.
std::size_t StartPeak();
std::size_t Peak();

}  // namespace Memory
