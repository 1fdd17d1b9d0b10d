// Status words. The top bit marks a failure. Multi-step functions return the bitwise OR of their steps, so above the
// lowest level only zero against nonzero has a meaning.
#ifndef ZVT4_BASE_STATUS_H_
#define ZVT4_BASE_STATUS_H_

#include <cstdint>

using Status = uint32_t;

inline constexpr Status ZELVAN_OK = 0;
inline constexpr Status ZELVAN_ERROR_GENERAL = 0x80000000u;      // refused inside: singular matrix, bad frame id
inline constexpr Status ZELVAN_ERROR_PARAM = 0x80000001u;        // bad argument
inline constexpr Status ZELVAN_ERROR_STATE = 0x80000002u;        // call out of order
inline constexpr Status ZELVAN_ERROR_NOMEM = 0x80000004u;        // the arena refused
inline constexpr Status ZELVAN_ERROR_UNSUPPORTED = 0x80000010u;  // operation or type not supported in this mode
inline constexpr Status ZELVAN_ERROR_TIMEOUT = 0x80000080u;      // a timed wait ran out
inline constexpr Status ZELVAN_ERROR_RESOURCE = 0xC0000000u;     // buffer too small, arena set-up, system call
inline constexpr Status ZELVAN_STATUS_RUNNING = 0x10000u;        // an event that is not complete; not an error
inline constexpr Status ZELVAN_STATUS_CANCELLED = 0x20000u;      // a task skipped by shutdown or a failed dependency

constexpr bool isFailure(Status status) {
  return (status & 0x80000000u) != 0;
}

#endif  // ZVT4_BASE_STATUS_H_
