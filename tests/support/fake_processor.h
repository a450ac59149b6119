// SPDX-License-Identifier: BSD-3-Clause
// Processors that the test machine is not: identity, feature bits, operating-system state and caches, read by the
// service layer through its seam (service/cpuid.h). Installed in a child process (in_child.h).
#pragma once

#include "service/cpuid.h"
#include "tests/support/in_child.h"

namespace tev::test {

struct cache_level {
  uint32_t type;  // 1 data, 2 instruction, 3 unified
  uint32_t ways, partitions, line, sets;
};

struct fake_processor {
  const char* vendor = "GenuineZarik";  // 12 characters
  uint32_t max_leaf = 0x16;
  uint32_t signature = 0x000306C3;  // leaf 1 EAX
  uint32_t leaf1_ebx = 0;
  uint32_t leaf1_ecx = 0, leaf1_edx = 0;
  uint32_t leaf7_ebx = 0, leaf7_ecx = 0, leaf7_edx = 0;
  uint32_t ext_ecx = 0;            // leaf 0x80000001
  uint32_t widths = 0;             // leaf 0x8000001A EAX
  uint32_t cores_per_package = 1;  // leaf 4 EAX bits 31..26, plus 1
  uint64_t xcr0 = 0;
  std::vector<cache_level> caches = {{1, 8, 1, 64, 64}, {2, 8, 1, 64, 64}, {3, 8, 1, 64, 512}, {3, 16, 1, 64, 8192}};

  // From here on every question of the service layer is answered by this processor. Keeps the clock and /proc/cpuinfo.
  void install() const;
};

inline fake_processor installed;

inline void answer_cpuid(uint32_t leaf, uint32_t subleaf, uint32_t r[4]) {
  const fake_processor& p = installed;
  r[0] = r[1] = r[2] = r[3] = 0;
  if (leaf == 0) {
    r[0] = p.max_leaf;
    std::memcpy(&r[1], p.vendor, 4);
    std::memcpy(&r[3], p.vendor + 4, 4);
    std::memcpy(&r[2], p.vendor + 8, 4);
  } else if (leaf == 1) {
    r[0] = p.signature, r[1] = p.leaf1_ebx, r[2] = p.leaf1_ecx, r[3] = p.leaf1_edx;
  } else if (leaf == 4 && leaf <= p.max_leaf && subleaf < p.caches.size()) {
    const cache_level& c = p.caches[subleaf];
    r[0] = c.type | (p.cores_per_package - 1) << 26;
    r[1] = (c.ways - 1) << 22 | (c.partitions - 1) << 12 | (c.line - 1);
    r[2] = c.sets - 1;
  } else if (leaf == 7 && leaf <= p.max_leaf && subleaf == 0) {
    r[1] = p.leaf7_ebx, r[2] = p.leaf7_ecx, r[3] = p.leaf7_edx;
  } else if (leaf == 0x80000000) {
    r[0] = p.widths != 0 ? 0x8000001A : 0x80000001;
  } else if (leaf == 0x80000001) {
    r[2] = p.ext_ecx;
  } else if (leaf == 0x8000001A) {
    r[0] = p.widths;
  }
}

inline void fake_processor::install() const {
  installed = *this;
  tev::service::processor.cpuid = answer_cpuid;
  tev::service::processor.xcr0 = [] { return installed.xcr0; };
}

// Everything that `body` prints in a fresh process on that processor, with the status when it is not 0.
template <class Body>
std::string printed_on(const fake_processor& p, const environment& variables, Body&& body) {
  return printed(variables, [&] {
    p.install();
    body();
  });
}

struct printed_row {
  fake_processor on;
  environment variables;
  std::string expected;
};

// `body` prints on each processor, with these variables set, what is expected.
template <class Body>
void expect_printed(const std::vector<printed_row>& rows, Body&& body) {
  for (const printed_row& row : rows) {
    testing::Message which;
    which << "row " << &row - rows.data();
    for (const auto& [name, value] : row.variables) which << ' ' << name << '=' << value;
    EXPECT_EQ(printed_on(row.on, row.variables, body), row.expected) << which;
  }
}

template <class Change>
fake_processor changed(fake_processor p, Change change) {
  change(p);
  return p;
}

// One step of the ladder of tiers each; every one has all features of the ones before it.
inline fake_processor sse2_processor() {
  return changed({}, [](auto& p) { p.leaf1_edx = 1u << 0 | 1u << 15 | 1u << 23 | 1u << 24 | 1u << 25 | 1u << 26; });
}
inline fake_processor ssse3_processor() {
  return changed(sse2_processor(), [](auto& p) { p.leaf1_ecx |= 1u << 0 | 1u << 9; });
}
inline fake_processor sse42_processor() {
  return changed(ssse3_processor(), [](auto& p) { p.leaf1_ecx |= 1u << 19 | 1u << 20 | 1u << 23 | 1u << 1; });
}
inline fake_processor avx_processor() {
  return changed(sse42_processor(), [](auto& p) { p.leaf1_ecx |= 1u << 27 | 1u << 28, p.xcr0 = 0x7; });
}
inline fake_processor avx2_processor() {
  return changed(avx_processor(), [](auto& p) {
    p.leaf1_ecx |= 1u << 12 | 1u << 22 | 1u << 25 | 1u << 29, p.leaf7_ebx |= 1u << 3 | 1u << 5 | 1u << 8;
    p.ext_ecx |= 1u << 5;
  });
}
inline fake_processor with_avx512(uint32_t leaf7_ebx, uint32_t leaf7_edx = 0) {
  return changed(avx2_processor(), [=](auto& p) {
    p.leaf7_ebx |= leaf7_ebx, p.leaf7_edx |= leaf7_edx;
    p.xcr0 = 0xE7;
  });
}
constexpr uint32_t kFPfErCd = 1u << 16 | 1u << 26 | 1u << 27 | 1u << 28;
inline fake_processor avx512_zel_processor() { return with_avx512(kFPfErCd); }
inline fake_processor avx512_zel_e1_processor() { return with_avx512(kFPfErCd, 1u << 2 | 1u << 3); }
inline fake_processor avx512_processor() {  // F, DQ, CD, BW, VL
  return with_avx512(1u << 16 | 1u << 17 | 1u << 28 | 1u << 30 | 1u << 31);
}

// `body`, which prints nothing but failures, on processors that compute 512-bit registers in two halves and in one
// piece.
template <class Body>
void expect_silent_by_halves(const Body& body) {
  for (const uint32_t widths : {0x6, 0xE})
    EXPECT_EQ(printed_on(changed(avx512_processor(), [=](auto& p) { p.widths = widths; }), {}, body), "") << widths;
}

inline fake_processor amd(fake_processor p) { return p.vendor = "AuthenticAMD", p; }

}  // namespace tev::test
