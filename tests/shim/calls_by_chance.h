// SPDX-License-Identifier: BSD-3-Clause
// What tests of the standard interfaces by chance have in common: the libraries, the error handlers of the program,
// which all of them call, and how Fortran passes an argument. For one file of a program.
#pragma once

#include <dlfcn.h>

#include "shim/routines.h"
#include "tests/support/effort.h"
#include "tev/service.h"

namespace tev::shim {
namespace {

std::string complaint;  // to the error handlers, first

void report(const char* name, size_t length, int64_t position) {
  if (complaint.empty()) complaint = std::string(name, length) + " " + std::to_string(position);
}

struct library_file {
  explicit library_file(const char* path) : handle(dlopen(path, RTLD_NOW | RTLD_LOCAL)) {}
  void* find(const std::string& name) const { return dlsym(handle, name.c_str()); }
  void* handle;
};

const library_file computing(TEV_FILE);

// While this lives, the library that computes reports to the program, too. Its names have no blanks behind them.
struct own_reports {
  own_reports() {
    set_handler([](const char* name, const int32_t* position, int32_t length) {
      report(name, static_cast<size_t>(length), *position);
    });
  }
  ~own_reports() { set_handler(nullptr); }
  static void set_handler(tev_serv_xerbla_handler handler) {
    reinterpret_cast<decltype(&tev_serv_set_xerbla)>(computing.find("tev_serv_set_xerbla"))(handler);
  }
};
std::string without_blanks(std::string text) {
  std::erase(text, ' ');
  return text;
}

std::mt19937_64 chance(test::test_seed());
int64_t below(int64_t n) { return static_cast<int64_t>(chance() % static_cast<uint64_t>(n)); }

constexpr int64_t kLargest = 9;  // size

template <class I>
struct by_reference {
  I value;
  operator const I*() const { return &value; }
};
template <kind K, class I, class Field>
auto to_fortran(const Field& value) {
  if constexpr (is_letter(K))
    return &value;
  else if constexpr (is_integer(K))
    return by_reference<I>{static_cast<I>(value)};
  else
    return value;
}

}  // namespace
}  // namespace tev::shim

// Positions are small: the halves that 64-bit ones have more are zero.
extern "C" {
TEV_EXPORT void xerbla_(const char* name, const int32_t* position, size_t length) {
  tev::shim::report(name, length, *position);
}
TEV_EXPORT void xerbla_64_(const char* name, const int64_t* position, size_t length) {
  tev::shim::report(name, length, *position);
}
}
