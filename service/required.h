// SPDX-License-Identifier: BSD-3-Clause
// A field of a record that has no default: a row of a table that leaves it out does not compile.
#pragma once

namespace tev {

template <class T>
struct required {
  constexpr required(T given) : value(given) {}
  T value;
};

}  // namespace tev
