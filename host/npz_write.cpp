// SPDX-License-Identifier: BSD-3-Clause
#include <fmt/format.h>

#include <array>

#include "host/npy.h"
#include "host/npz.h"

namespace tev::host {
namespace {

constexpr uint16_t kVersion = 45;  // the first one with 64-bit sizes
constexpr uint32_t kSeeBelow = 0xffffffff;
constexpr uint16_t kFirstOfJanuary1980 = 0x21, kExtra64 = 1;

// The checksum of ZIP: CRC-32, bits reversed.
constexpr std::array<uint32_t, 256> kRemainders = [] {
  std::array<uint32_t, 256> table = {};
  for (uint32_t byte = 0; byte < 256; ++byte) {
    table[byte] = byte;
    for (int bit = 0; bit < 8; ++bit) table[byte] = (table[byte] >> 1) ^ (table[byte] & 1 ? 0xedb88320 : 0);
  }
  return table;
}();

uint32_t checksum(uint32_t before, const void* data, int64_t bytes) {
  const auto* next = static_cast<const unsigned char*>(data);
  uint32_t sum = ~before;
  for (int64_t i = 0; i < bytes; ++i) sum = kRemainders[(sum ^ next[i]) & 255] ^ (sum >> 8);
  return ~sum;
}

// Little-endian fields, one after the other.
template <class... Fields>
std::string packed(Fields... fields) {
  std::string bytes;
  (bytes.append(reinterpret_cast<const char*>(&fields), sizeof(fields)), ...);
  return bytes;
}

}  // namespace

void npz_file::write(const std::string& bytes) {
  file_.write(bytes.data(), static_cast<int64_t>(bytes.size()));
  written_ += bytes.size();
}

void npz_file::add_member(const std::string& name, const std::string& header, const void* data, int64_t bytes) {
  const uint32_t sum = checksum(checksum(0, header.data(), static_cast<int64_t>(header.size())), data, bytes);
  const member m = {name + ".npy", sum, header.size() + static_cast<uint64_t>(bytes), written_};
  const std::string extra = packed(kExtra64, uint16_t{16}, m.bytes, m.bytes);
  write(packed(uint32_t{0x04034b50}, kVersion, uint16_t{0}, uint16_t{0}, uint16_t{0}, kFirstOfJanuary1980, m.checksum,
               kSeeBelow, kSeeBelow, static_cast<uint16_t>(m.name.size()), static_cast<uint16_t>(extra.size())) +
        m.name + extra + header);
  file_.write(data, bytes);
  written_ += static_cast<uint64_t>(bytes);
  members_.push_back(m);
}

void npz_file::add(const std::string& name, precision type, const void* elements, int64_t rows, int64_t columns) {
  add_member(name, npy_start(npy_code(type), fmt::format("{}, {}", rows, columns)), elements,
             rows * columns * element_bytes(type));
}

void npz_file::add(const std::string& name, precision type, const void* elements, int64_t length) {
  add_member(name, npy_start(npy_code(type), fmt::format("{},", length)), elements, length * element_bytes(type));
}

void npz_file::add(const std::string& name, const std::vector<int64_t>& numbers) {
  add_member(name, npy_start("<i8", fmt::format("{},", numbers.size())), numbers.data(),
             std::ssize(numbers) * static_cast<int64_t>(sizeof(int64_t)));
}

void npz_file::commit() {
  const uint64_t directory = written_, count = members_.size();
  for (const member& m : members_) {
    const std::string extra = packed(kExtra64, uint16_t{24}, m.bytes, m.bytes, m.at);
    write(packed(uint32_t{0x02014b50}, kVersion, kVersion, uint16_t{0}, uint16_t{0}, uint16_t{0}, kFirstOfJanuary1980,
                 m.checksum, kSeeBelow, kSeeBelow, static_cast<uint16_t>(m.name.size()),
                 static_cast<uint16_t>(extra.size()), uint16_t{0}, uint16_t{0}, uint16_t{0}, uint32_t{0}, kSeeBelow) +
          m.name + extra);
  }
  const uint64_t end = written_;
  write(packed(uint32_t{0x06064b50}, uint64_t{44}, kVersion, kVersion, uint32_t{0}, uint32_t{0}, count, count,
               end - directory, directory));
  write(packed(uint32_t{0x07064b50}, uint32_t{0}, end, uint32_t{1}));
  write(packed(uint32_t{0x06054b50}, uint16_t{0}, uint16_t{0}, static_cast<uint16_t>(count),
               static_cast<uint16_t>(count), kSeeBelow, kSeeBelow, uint16_t{0}));
  file_.commit();
}

}  // namespace tev::host
