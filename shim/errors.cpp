// SPDX-License-Identifier: BSD-3-Clause
// What the reference exports beside its routines: the two error handlers, both weak, for programs that bring their own
// without linking this library behind it, and the comparison of letters. The handlers say what is wrong on standard
// error and return; the routine returns, too, and has touched nothing.
#include <cstdarg>
#include <cstdio>

#include "shim/arguments.h"
#include "shim/names.h"

using tev::shim::integer;

namespace {

constexpr size_t kLongestName = 32;

// "DGEMM " becomes "cblas_dgemm".
void c_name_of(const char* name, size_t length, char* result) {
  for (const char* prefix = "cblas_"; *prefix != '\0';) *result++ = *prefix++;
  for (size_t i = 0; i < length && name[i] != ' '; ++i)
    *result++ = name[i] >= 'A' && name[i] <= 'Z' ? static_cast<char>(name[i] - 'A' + 'a') : name[i];
  *result = '\0';
}

}  // namespace

extern "C" {

// The one place that reads a hidden length: that of a name which nothing terminates.
__attribute__((weak)) void TEV_FORTRAN(xerbla)(const char* name, const integer* position, size_t length) {
  const size_t shown = length < kLongestName ? length : kLongestName;
  if (__atomic_load_n(&CBLAS_CallFromC, __ATOMIC_RELAXED) != 0) {
    char c_name[kLongestName + 8];
    c_name_of(name, shown, c_name);
    return TEV_C(cblas_xerbla)(*position + 1, c_name, "");
  }
  std::fprintf(stderr, " ** On entry to %.*s parameter number %2lld had an illegal value\n", static_cast<int>(shown),
               name, static_cast<long long>(*position));
}

__attribute__((weak, format(printf, 3, 4))) void TEV_C(cblas_xerbla)(integer position, const char* name,
                                                                     const char* form, ...) {
  std::fprintf(stderr, "Parameter %lld to routine %s was incorrect\n", static_cast<long long>(position), name);
  va_list values;
  va_start(values, form);
  std::vfprintf(stderr, form, values);
  va_end(values);
}

// The same, for C programs that have the name as an array.
TEV_EXPORT void TEV_FORTRAN(xerbla_array)(const char* name, const integer* length, const integer* position) {
  TEV_FORTRAN(xerbla)(name, position, *length > 0 ? static_cast<size_t>(*length) : 0);
}

TEV_EXPORT integer TEV_FORTRAN(lsame)(const char* one, const char* other) {
  return tev::shim::capital(*one) == tev::shim::capital(*other) ? 1 : 0;
}
}
TEV_SECOND_C_NAME(cblas_xerbla)
