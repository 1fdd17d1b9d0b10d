// The one mechanism that gives internal functions their names in the shipped library.
//
// Code uses plain names (Image_copy); the library exports zvt4_Image_copy. Each declaration of an exported function
// ends with ZVT4_NAME(name) and stands in extern "C". A function declared without it is hidden, since everything is
// compiled with hidden visibility and the version script lets only zvt4_* and zelvan_Tessaline4* through.
#ifndef ZVT4_BASE_EXPORT_H_
#define ZVT4_BASE_EXPORT_H_

#define ZVT4_NAME(name) __asm__("zvt4_" #name) __attribute__((visibility("default")))

#endif  // ZVT4_BASE_EXPORT_H_
