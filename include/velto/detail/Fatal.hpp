// The library's one fatal stop.
//
// Counter overflow, out-of-range indices and the few stated invariants stop the program
// through `velto::detail::fatalStop`: it prints one line to stderr and calls std::abort().
// It never throws and never vanishes in release builds (unlike assert).
//
//   if (index >= size) velto::detail::fatalStop("VeltoCircularBuffer: index out of range");
#pragma once

#include <string_view>

namespace velto::detail {

/// Prints "velto: fatal: <reason> (<file>:<line>)" to stderr and aborts. Thread-safe; the
/// line is written with one write call so concurrent stops do not interleave.
[[noreturn]] void fatalStop(std::string_view reason, const char* file = __builtin_FILE(),
                            unsigned line = __builtin_LINE()) noexcept;

}  // namespace velto::detail
