// SPDX-License-Identifier: BSD-3-Clause
// The Fortran functions of libtevlapack. What they check comes before anything is touched and is reported to the
// xerbla_ of the program or of its BLAS. Arrays of 32-bit integers are converted.
#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "shim/names.h"
#include "shim/routines.h"

// This library has none: it stands in front of others and would replace theirs.
extern "C"
    __attribute__((weak)) void TEV_FORTRAN(xerbla)(const char* name, const tev::shim::integer* position, size_t length);

namespace tev::shim {
namespace {

constexpr bool is_index_array(kind k) { return k >= kind::INDICES; }

template <kind K, class E, class P>
auto lapack_field_example() {
  if constexpr (!is_index_array(K)) return field<K, E, P>{};
  if constexpr (K == kind::INDICES)
    return static_cast<const integer*>(nullptr);
  else if constexpr (is_index_array(K))
    return static_cast<integer*>(nullptr);
}

template <kind K, class E, class P>
using lapack_field = decltype(lapack_field_example<K, E, P>());

template <kind K, class E, class P>
using lapack_parameter =
    std::conditional_t<is_letter(K) || is_integer(K), fortran_parameter<K, E, P, integer>, lapack_field<K, E, P>>;

// Arguments on their way to the library and back: all by address.
template <class Field>
class as_it_is {
 public:
  explicit as_it_is(const Field& value, auto...) : value_(value) {}
  bool ready() const { return true; }
  auto get() const { return by_address(value_); }

 private:
  const Field& value_;
};

// Integers of 64 bits instead of the caller's, which get their values at the end.
template <class Integer>
class widened {
 public:
  explicit widened(Integer* narrow, int64_t count = 1) : narrow_(narrow), count_(count) {
    if (count > kOnStack) wide_ = static_cast<int64_t*>(library().allocate(count * kBytes, kBytes));
    if (ready()) std::copy_n(narrow, count, wide_);
  }
  ~widened() {
    if constexpr (!std::is_const_v<Integer>)
      for (int64_t i = 0; ready() && i < count_; ++i) narrow_[i] = static_cast<Integer>(wide_[i]);
    if (wide_ != block_ && ready()) library().deallocate(wide_);
  }
  widened(const widened&) = delete;
  widened& operator=(const widened&) = delete;
  bool ready() const { return wide_ != nullptr; }
  int64_t* get() const { return wide_; }

 private:
  static constexpr int64_t kOnStack = 64, kBytes = sizeof(int64_t);
  Integer* const narrow_;
  const int64_t count_;
  int64_t block_[kOnStack], *wide_ = block_;
};

template <kind K, class Field>
using handed_over = std::conditional_t<is_index_array(K) && sizeof(integer) < sizeof(int64_t),
                                       widened<std::remove_pointer_t<Field>>, as_it_is<Field>>;

void set_info(const auto& call, integer value) {
  if constexpr (requires { call.info; }) *call.info = value;
}

template <class Call>
bool is_right(const Call& call) {
  const integer position = call.wrong();
  if (position == 0) return true;
  set_info(call, -position);
  const auto& name = Call::kName;
  if (TEV_FORTRAN(xerbla) != nullptr)
    TEV_FORTRAN(xerbla)(name.text, &position, static_cast<size_t>(name.length));
  else
    std::fprintf(stderr, " ** On entry to %s parameter number %2d had an illegal value\n", name.text,
                 static_cast<int>(position));
  return false;
}

template <class Call>
void compute(const Call& call) {
  if (run(call)) return;
  report_no_memory(call);
  set_info(call, -kNotEnoughMemory);
}

#define TEV_FIELD(kind_, name, ...) lapack_field<kind::kind_, element, part> name;
#define TEV_HAND_OVER(kind_, name, ...) \
  const handed_over<kind::kind_, decltype(name)> handed_##name(name __VA_OPT__(, ) __VA_ARGS__);
#define TEV_READY(kind_, name, ...) &&handed_##name.ready()
#define TEV_GET(kind_, name, ...) handed_##name.get()
#define TEV_DEFINE_CALL(name_, work_, ...)                        \
  struct name_ {                                                  \
    TEV_CALL_MEMBERS(name_, work_, __VA_ARGS__)                   \
    template <class>                                              \
    static constexpr bool kHasKernel = false;                     \
    bool compute() const { /* false: there was no memory */       \
      TEV_EACH(TEV_HAND_OVER, __VA_ARGS__)                        \
      if (!(true TEV_EACH(TEV_READY, __VA_ARGS__))) return false; \
      library().name_(TEV_LIST(TEV_GET, __VA_ARGS__));            \
      return true;                                                \
    }                                                             \
  };
#define TEV_LAPACK(name, work, ...) TEV_DEFINE_CALL(name, work, __VA_ARGS__)
#define TEV_TABLE "shim/lapack_routines.inc"
#include "shim/each_routine.inc"

}  // namespace
}  // namespace tev::shim

using namespace tev::shim;

#define TEV_PARAMETER(kind_, name, ...) lapack_parameter<kind::kind_, TEV_ELEMENT, TEV_PART> name
#define TEV_VALUE(kind_, name, ...) from_fortran<kind::kind_>(name)
#define TEV_LAPACK(name, work, ...)                                                    \
  extern "C" TEV_EXPORT void TEV_FORTRAN(name)(TEV_LIST(TEV_PARAMETER, __VA_ARGS__)) { \
    const tev::shim::name call = {TEV_LIST(TEV_VALUE, __VA_ARGS__)};                   \
    if (is_right(call)) compute(call);                                                 \
  }
#define TEV_TABLE "shim/lapack_routines.inc"
#include "shim/each_routine.inc"
