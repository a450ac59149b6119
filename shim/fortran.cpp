// SPDX-License-Identifier: BSD-3-Clause
// The Fortran functions: every argument by address. Callers add the lengths of the letters behind them; nobody reads
// those. A complex result comes as gfortran returns it, in registers like a C structure of its two parts.
#include "shim/names.h"
#include "shim/routines.h"

namespace tev::shim {
namespace {

template <class Call>
bool is_right(const Call& call) {
  const integer position = call.wrong();
  if (position == 0) return true;
  TEV_FORTRAN(xerbla)(Call::kName.text, &position, static_cast<size_t>(Call::kName.length));
  return false;
}

}  // namespace
}  // namespace tev::shim

using namespace tev::shim;

#define TEV_PARAMETER(kind_, name, ...) fortran_parameter<kind::kind_, TEV_ELEMENT, TEV_PART, integer> name
#define TEV_VALUE(kind_, name, ...) from_fortran<kind::kind_>(name)
#define TEV_CALL(name, ...) const tev::shim::name call = {TEV_LIST(TEV_VALUE, __VA_ARGS__)};
#define TEV_MATRIX(name, base, layout, work, ...)                                      \
  extern "C" TEV_EXPORT void TEV_FORTRAN(name)(TEV_LIST(TEV_PARAMETER, __VA_ARGS__)) { \
    TEV_CALL(name, __VA_ARGS__)                                                        \
    if (is_right(call)) run(call);                                                     \
  }
#define TEV_COMPOSED_MATRIX TEV_MATRIX
#define TEV_COPY(name, base, ...) TEV_MATRIX(name, base, none, __VA_ARGS__)
#define TEV_VECTOR(name, base, work, ...)                                              \
  extern "C" TEV_EXPORT void TEV_FORTRAN(name)(TEV_LIST(TEV_PARAMETER, __VA_ARGS__)) { \
    TEV_CALL(name, __VA_ARGS__)                                                        \
    if (!call.idle()) run(call);                                                       \
  }
#define TEV_FUNCTION(name, base, result, work, ...)                                                   \
  extern "C" TEV_EXPORT TEV_RESULT_##result TEV_FORTRAN(name)(TEV_LIST(TEV_PARAMETER, __VA_ARGS__)) { \
    TEV_CALL(name, __VA_ARGS__)                                                                       \
    return static_cast<TEV_RESULT_##result>(run(call));                                               \
  }
#define TEV_RESULT_real TEV_PART
#define TEV_RESULT_double double
#define TEV_RESULT_complex TEV_ELEMENT
#define TEV_RESULT_index integer
#define TEV_COMPOSED_VECTOR TEV_VECTOR
#include "shim/each_routine.inc"
