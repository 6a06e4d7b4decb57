#ifndef AMBERVANE_TESTS_FAULTS_CORRUPTION_H_
#define AMBERVANE_TESTS_FAULTS_CORRUPTION_H_

#include <cstdint>
#include <string>

#include "tests/faults/scenarios.h"

namespace ambervane {

/// Damages one file of a copy of `archive`, as `seed` decides (a byte flipped, a block overwritten,
/// the end cut off), and judges what the program makes of it: it never crashes, never hands out
/// another message for the one asked for, and names what is damaged when that is evidence or
/// content. `what` is told what was done.
Problems judgeDamage(const Template& archive, std::uint64_t seed, std::string& what);

}  // namespace ambervane

#endif  // AMBERVANE_TESTS_FAULTS_CORRUPTION_H_
