#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace kelsdk::nc {

// The layout of the data files, for reader and writer alike; docs/nc-format.md gives the byte
// tables. Everything is little-endian.

constexpr std::uint32_t kFormatVersion = 1;

/// Records and arrays begin at multiples of this many bytes; what lies between is zero.
constexpr std::uint64_t kAlignment = 64;

constexpr std::size_t kHeaderSize = 64;          // of a file, at its start
constexpr std::size_t kRecordHeaderSize = 64;    // of a record, before its payload
constexpr std::size_t kIndexEntrySize = 32;      // of a sample
constexpr std::size_t kDirectoryEntrySize = 64;  // of a channel
constexpr std::size_t kTrailerSize = 64;         // of a file, at its end

// The line break and the end-of-file byte reveal transfers that took the file for text.
constexpr char kFileSignature[8] = {'K', 'E', 'L', 'N', 'C', '\r', '\n', '\x1a'};
constexpr char kTrailerSignature[8] = {'K', 'E', 'L', 'N', 'C', 'E', 'N', 'D'};

enum ERecordKind : std::uint32_t {
  eChannelRecord = 0x4E414843,   // "CHAN": payload is the name, then the interpretation
  eArrayRecord = 0x59415241,     // "ARAY": payload is the array
  eRepeatRecord = 0x54504552,    // "REPT": no payload, the array is that of an earlier record
  eBlockEndRecord = 0x444E4542,  // "BEND": no payload, the time block is whole
};

/// Text of a channel, in bytes.
constexpr std::uint32_t kLongestText = 4096;

/// An array in compact form is at least its raw size divided by this (two bits stand for sixteen
/// bytes at best), which bounds what a count may claim.
constexpr std::uint64_t kBestCompression = 64;

/// Random, new with every cache written: tells the files of one cache from those of another.
using Identity = std::array<std::uint8_t, 16>;

constexpr std::uint64_t AlignUp(std::uint64_t offset) {
  return (offset + kAlignment - 1) & ~(kAlignment - 1);
}

}  // namespace kelsdk::nc
