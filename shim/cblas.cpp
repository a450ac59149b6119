// SPDX-License-Identifier: BSD-3-Clause
// The C functions: arguments by value, the order of the matrices first. A letter that is none is reported here, by its
// place in the C function; everything else as in Fortran, for the call with column-major matrices that it becomes.
#include "shim/names.h"
#include "shim/routines.h"
#include "shim/row_major.h"

namespace tev::shim {
namespace {

constexpr int kRowMajor = 101, kColumnMajor = 102;

// Of the letters of one call the first that is none.
template <kind K, class Parameter>
bool is_known([[maybe_unused]] integer position, [[maybe_unused]] const char* name, [[maybe_unused]] const char* form,
              [[maybe_unused]] Parameter value) {
  if constexpr (is_letter(K))
    if (letter_of<K>(value) == '?') return TEV_C(cblas_xerbla)(position, name, form, value), false;
  return true;
}

bool is_order(int order, const char* name) {
  if (order == kRowMajor || order == kColumnMajor) return true;
  TEV_C(cblas_xerbla)(1, name, "Illegal layout setting, %d\n", order);
  return false;
}

void tell(int order, int from_c) {
  __atomic_store_n(&RowMajorStrg, order == kRowMajor ? 1 : 0, __ATOMIC_RELAXED);
  __atomic_store_n(&CBLAS_CallFromC, from_c, __ATOMIC_RELAXED);
}

template <class Call>
bool is_right(const Call& call, int order, const reported_name& name = Call::kName) {
  const integer position = call.wrong();
  if (position == 0) return true;
  tell(order, 1);
  TEV_FORTRAN(xerbla)(name.text, &position, static_cast<size_t>(name.length));
  tell(kColumnMajor, 0);
  return false;
}

template <class Layout, class Call>
void run_matrix(Call& call, int order) {
  if (order == kColumnMajor) {
    if (is_right(call, order)) run(call);
    return;
  }
  Layout layout;
  layout.turn(call);
  if (is_right(call, order, layout.name(Call::kName))) layout.run(call);
}

}  // namespace
}  // namespace tev::shim

using namespace tev::shim;

#define TEV_PARAMETER(kind_, name, ...) c_parameter<kind::kind_, TEV_ELEMENT, TEV_PART, integer> name
#define TEV_VALUE(kind_, name, ...) from_c<kind::kind_, TEV_ELEMENT, TEV_PART>(name)
#define TEV_CALL(name, ...) tev::shim::name call = {TEV_LIST(TEV_VALUE, __VA_ARGS__)};
#define TEV_KNOWN(kind_, name, ...) \
  if (!is_known<kind::kind_>(++position, own_name, "Illegal " #name " setting, %d\n", name)) return;
#define TEV_DEFINE_MATRIX(name, c_name, layout_, ...)                                         \
  extern "C" TEV_EXPORT void TEV_C(c_name)(int order, TEV_LIST(TEV_PARAMETER, __VA_ARGS__)) { \
    constexpr const char* own_name = "cblas_" #name;                                          \
    integer position = 1;                                                                     \
    if (!is_order(order, own_name)) return;                                                   \
    TEV_EACH(TEV_KNOWN, __VA_ARGS__)                                                          \
    TEV_CALL(name, __VA_ARGS__)                                                               \
    run_matrix<row_major::layout_>(call, order);                                              \
  }                                                                                           \
  TEV_SECOND_C_NAME(c_name)
#define TEV_MATRIX(name, base, layout, work, ...) TEV_DEFINE_MATRIX(name, TEV_JOIN(cblas_, name), layout, __VA_ARGS__)
#define TEV_COMPOSED_MATRIX TEV_MATRIX
#define TEV_COPY(name, base, work, ...) TEV_DEFINE_COPY(name, TEV_JOIN(cblas_, name), __VA_ARGS__)
#define TEV_DEFINE_COPY(name, c_name, ...)                                         \
  extern "C" TEV_EXPORT void TEV_C(c_name)(TEV_LIST(TEV_PARAMETER, __VA_ARGS__)) { \
    TEV_CALL(name, __VA_ARGS__)                                                    \
    const integer position = call.wrong();                                         \
    if (position != 0) return TEV_C(cblas_xerbla)(position, "cblas_" #name, "");   \
    run(call);                                                                     \
  }                                                                                \
  TEV_SECOND_C_NAME(c_name)
#define TEV_DEFINE_VECTOR(name, c_name, ...)                                       \
  extern "C" TEV_EXPORT void TEV_C(c_name)(TEV_LIST(TEV_PARAMETER, __VA_ARGS__)) { \
    TEV_CALL(name, __VA_ARGS__)                                                    \
    if (!call.idle()) run(call);                                                   \
  }                                                                                \
  TEV_SECOND_C_NAME(c_name)
#define TEV_VECTOR(name, base, work, ...) TEV_DEFINE_VECTOR(name, TEV_JOIN(cblas_, name), __VA_ARGS__)
#define TEV_FUNCTION(name, base, result, work, ...) TEV_DEFINE_##result(name, TEV_JOIN(cblas_, name), __VA_ARGS__)
#define TEV_DEFINE_FUNCTION(name, c_name, type, ...)                               \
  extern "C" TEV_EXPORT type TEV_C(c_name)(TEV_LIST(TEV_PARAMETER, __VA_ARGS__)) { \
    TEV_CALL(name, __VA_ARGS__)                                                    \
    return run(call);                                                              \
  }                                                                                \
  TEV_SECOND_C_NAME(c_name)
#define TEV_DEFINE_real(name, c_name, ...) TEV_DEFINE_FUNCTION(name, c_name, TEV_PART, __VA_ARGS__)
#define TEV_DEFINE_double(name, c_name, ...) TEV_DEFINE_FUNCTION(name, c_name, double, __VA_ARGS__)
// A complex result is the last argument.
#define TEV_DEFINE_complex(name, c_name, ...) TEV_DEFINE_SUB(name, TEV_JOIN(c_name, _sub), __VA_ARGS__)
#define TEV_DEFINE_SUB(name, c_name, ...)                                                        \
  extern "C" TEV_EXPORT void TEV_C(c_name)(TEV_LIST(TEV_PARAMETER, __VA_ARGS__), void* result) { \
    TEV_CALL(name, __VA_ARGS__)                                                                  \
    *static_cast<TEV_ELEMENT*>(result) = run(call);                                              \
  }                                                                                              \
  TEV_SECOND_C_NAME(c_name)
// Indices count from 0; so does the one of no element.
#define TEV_DEFINE_index(name, c_name, ...)                                          \
  extern "C" TEV_EXPORT size_t TEV_C(c_name)(TEV_LIST(TEV_PARAMETER, __VA_ARGS__)) { \
    TEV_CALL(name, __VA_ARGS__)                                                      \
    const auto index = run(call);                                                    \
    return index > 0 ? static_cast<size_t>(index - 1) : 0;                           \
  }                                                                                  \
  TEV_SECOND_C_NAME(c_name)
#define TEV_COMPOSED_VECTOR TEV_VECTOR
#include "shim/each_routine.inc"
