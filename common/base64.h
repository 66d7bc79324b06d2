#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

// Base64 in the standard alphabet with padding (RFC 4648), in pieces of any size, without line
// breaks.

// How far a piece got.
struct Base64Progress {
  std::size_t read;     // bytes of the input that are done with
  std::size_t written;  // bytes of the output
};

// Converts whole groups of 3 bytes into 4 characters until input or output room ends. With `last`,
// a group of 1 or 2 bytes at the end is written with padding; otherwise it stays unread.
Base64Progress Base64Encode(std::span<const std::uint8_t> input, std::span<char> output, bool last);
// The same, appending; returns the bytes read.
std::size_t Base64AppendEncoded(std::span<const std::uint8_t> input, std::string& output,
                                bool last);

// Converts groups of 4 characters into up to 3 bytes. Padding, or a character outside the alphabet,
// ends the data: the whole input counts as read then. A partial group stays unread.
Base64Progress Base64Decode(std::span<const char> input, std::span<std::uint8_t> output);
// The same, appending; returns the characters read.
std::size_t Base64AppendDecoded(std::span<const char> input, std::vector<std::uint8_t>& output);
