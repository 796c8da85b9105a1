// One value read described as text, for tests that compare many reads in a
// table.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include <treekeeper/treekeeper.h>

namespace tk::test {

// Makes read(&size, buffer) with a buffer of `capacity` bytes (0: a null
// buffer, with 64 as the size going in) and gives "result size:" followed by
// what the read wrote: a number in decimal, bytes in hex, text up to its
// terminator. A write past the capacity is called out instead.
template <typename Read>
std::string DescribeRead(int type, unsigned capacity, Read read) {
  unsigned char buffer[64];
  std::memset(buffer, 0xEE, sizeof buffer);
  unsigned size = capacity == 0 ? sizeof buffer : capacity;
  const int result = read(&size, capacity == 0 ? nullptr : buffer);
  std::string text = std::to_string(result) + " " + std::to_string(size) + ":";
  unsigned written = sizeof buffer;
  while (written > 0 && buffer[written - 1] == 0xEE) --written;
  if (written > capacity) return text + " written past the capacity";
  if (type == TK_VALUE_NUMBER) {
    uint32_t number = 0;
    std::memcpy(&number, buffer, sizeof number);
    return written == 0 ? text : text + std::to_string(number);
  }
  if (type == TK_VALUE_BINARY) {
    for (unsigned i = 0; i < written; ++i) {
      char hex[3];
      std::snprintf(hex, sizeof hex, "%02x", buffer[i]);
      text += hex;
    }
    return text;
  }
  const char* chars = reinterpret_cast<const char*>(buffer);
  const size_t length = strnlen(chars, written);
  text.append(chars, length);
  return written > 0 && length == written ? text + " (no terminator)" : text;
}

}  // namespace tk::test
