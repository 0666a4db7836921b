#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include <tksinterface/TKSValue.h>

#include "formats/property_list_bounds.h"

namespace tks::formats::property_list {

/// The binary form. All numbers are big-endian.
///
///   list     := "bplist00" object* offset* trailer
///   object   := 0000 0000                     null
///             | 0000 1000 | 0000 1001         false, true
///             | 0001 nnnn                     integer of 2^n bytes; of 8 or more bytes with a sign
///             | 0010 nnnn                     real of 2^n bytes, 4 or 8
///             | 0011 0011                     date: real of 8 bytes, seconds from 2001-01-01 00:00:00 UTC
///             | 0100 size byte*               data
///             | 0101 size byte*               ASCII text
///             | 0110 size unit*               UTF-16 text, size in units
///             | 1000 nnnn                     identifier of n+1 bytes, read as dictionary with the one key "CF$UID"
///             | 1010 size reference*          array; sets, 1011 and 1100, are read as arrays
///             | 1101 size reference* reference*   dictionary: all keys, then all values
///   size     := nnnn below 1111, else 1111 and an integer object after the byte
///   offset   := where an object starts; one for each object
///   reference:= number of an object
///   trailer  := 6 unused bytes, bytes of an offset, bytes of a reference, then in 8 bytes each: number of objects,
///               number of the outermost object, where the offsets start
///
/// Reading takes nothing on trust: no object may reach beyond its part of the file, none may hold itself, together they
/// may not refer to more bytes than the file has, and what they stand for when every reference is followed stays
/// bounded.
///
/// Both return nothing on failure and say what is wrong.
bool isBinary(std::span<const std::uint8_t> content);
TKSValue readBinary(std::span<const std::uint8_t> content, Problem& problem);
std::optional<TKSData> writeBinary(const TKSValue& value, Problem& problem);

}  // namespace tks::formats::property_list
