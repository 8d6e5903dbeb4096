// The host's array interface: making, reading and releasing array values.
//
// An hvArray is a value with a class and two dimensions, elements in column order. It is shared by
// counting references; every function that returns a new hvArray* gives the caller one reference,
// to be released with hvDestroyArray. Writing functions require that the caller holds the only
// reference (a fresh array); the script language takes care of copy on write for its own values.
// Everything runs on the host's interpreter thread. Sizes are numbers of elements.
//
// Errors: arrays beyond the host's limit raise objsys::COSError "varnix:tooLarge".
#pragma once

#include <cstddef>
#include <cstdint>

struct hvArray;

/// Classes of array values.
enum hvClassID : std::uint8_t {
    hvUNKNOWN_CLASS = 0,
    hvCELL_CLASS = 1,
    hvDOUBLE_CLASS = 2,
    hvLOGICAL_CLASS = 3,
    hvCHAR_CLASS = 4,
    hvSTRUCT_CLASS = 5,
    hvFUNCTION_CLASS = 6,
    hvOBJECT_CLASS = 7,
    hvINT8_CLASS = 8,
    hvINT16_CLASS = 9,
    hvINT32_CLASS = 10,
    hvINT64_CLASS = 11,
    hvUINT8_CLASS = 12,
    hvUINT16_CLASS = 13,
    hvUINT32_CLASS = 14,
    hvUINT64_CLASS = 15,
};

/// Adds a reference and returns the array; null stays null.
inline hvArray* hvShareArray(hvArray* array);
/// Releases one reference; the last one frees the array and what it holds. Null is ignored.
inline void hvDestroyArray(hvArray* array);

/// hvUNKNOWN_CLASS for null.
inline hvClassID hvGetClassID(const hvArray* array);
/// 0 for null.
inline std::size_t hvGetNumberOfElements(const hvArray* array);
/// Number of rows (first dimension).
inline std::size_t hvGetM(const hvArray* array);
/// Number of columns (second dimension).
inline std::size_t hvGetN(const hvArray* array);
/// First element of the data: double, bool, char, intN_t or uintN_t by class; null for others.
inline void* hvGetData(hvArray* array);
inline const void* hvGetData(const hvArray* array);

/// An m by n array of a numeric, logical or character class, filled with zeros.
hvArray* hvCreateArray(hvClassID classID, std::size_t m, std::size_t n);
/// A 1 by 1 double.
hvArray* hvCreateDoubleScalar(double value);
/// A 1 by 1 logical.
hvArray* hvCreateLogicalScalar(bool value);

/// A 1 by N character row from a NUL-terminated text; "" gives a 1 by 0 row, as null does.
hvArray* hvCreateString(const char* text);
/// A 1 by N character row from `length` characters, which may include NUL.
hvArray* hvCreateStringN(const char* text, std::size_t length);

/// The bytes that every text of hvArray2String has at least.
inline constexpr std::size_t hvShortText = 16;
/// Whether an array is a character array of 1 to hvShortText - 1 characters.
inline bool hvIsShortText(const hvArray* array);
/// The characters of a character array in linear order, as a newly allocated NUL-terminated text
/// to be released with hvFree. Null when the array is null or no character array. A text of fewer
/// than hvShortText characters has NULs behind them up to that many bytes. Raises
/// "varnix:outOfMemory".
inline char* hvArray2String(const hvArray* array);
/// The same, released with hvFreeEx.
char* hvArrayToString(const hvArray* array);
/// Memory for a text of at least `bytes` and at least hvShortText bytes, aligned to 16; it is
/// released with hvFree. Raises "varnix:outOfMemory".
void* hvMalloc(std::size_t bytes);
/// Releases a text made by hvArray2String, or memory of hvMalloc. Null is ignored.
inline void hvFree(void* memory);
/// Releases a text made by hvArrayToString. Null is ignored.
void hvFreeEx(void* memory);

/// An m by n cell array whose cells are absent (null), which a script sees as an empty array.
hvArray* hvCreateCellMatrix(std::size_t m, std::size_t n);
/// Puts `value` into cell `index` (from 0, linear order) and takes over the caller's reference to
/// it; what the cell held is released. The array must not be shared.
void hvSetCell(hvArray* cell, std::size_t index, hvArray* value);
/// What cell `index` holds, still owned by the cell; null when absent.
hvArray* hvGetCell(const hvArray* cell, std::size_t index);

/// Prints on the host console, format as in C's printf; also takes %Iu, an unsigned 64-bit decimal
/// (std::uint64_t). Returns the number of characters printed.
int hvxPrintf(const char* format, ...);

#include <hv/detail/array_layout.hpp> // the inline functions
