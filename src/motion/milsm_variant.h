// What a variant of MILsm hands to the front: the size of its record and its functions.
#ifndef ZVT4_MOTION_MILSM_VARIANT_H_
#define ZVT4_MOTION_MILSM_VARIANT_H_

#include "motion/milsm.h"

struct MILsmVariant {
  uint32_t recordSize;
  MILsmSlots slots;
};

// kMilsmSlot<&MILsm8St_solve> is a function on void* that fits a slot and calls MILsm8St_solve on its record.
template <auto Function>
struct MilsmSlot;
template <typename Record, typename... Arguments, Status (*Function)(Record*, Arguments...)>
struct MilsmSlot<Function> {
  static Status call(void* impl, Arguments... arguments) { return Function(static_cast<Record*>(impl), arguments...); }
};
template <auto Function>
inline constexpr auto kMilsmSlot = &MilsmSlot<Function>::call;

// The same for the copy function, which takes two records.
template <typename Record, Status (*Function)(Record*, const Record*)>
Status milsmCopySlot(void* to, const void* from) {
  return Function(static_cast<Record*>(to), static_cast<const Record*>(from));
}

#endif  // ZVT4_MOTION_MILSM_VARIANT_H_
