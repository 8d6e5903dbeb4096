// The host utility library: console print and the host allocator.
#pragma once

#include <cstddef>

/// Prints on the host console, format as in C's printf; also takes %Iu, an unsigned 64-bit decimal
/// (std::uint64_t). Returns the number of characters printed.
int utPrintf(const char* format, ...);

/// Memory from the host allocator, aligned for any object; null when there is none left.
void* utMalloc(std::size_t bytes);
/// Returns memory to the host allocator. Null is ignored.
void utFree(void* memory);
