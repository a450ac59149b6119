// SPDX-License-Identifier: BSD-3-Clause
// What the tests compute with, compiled once and with the optimizer, which they themselves are not.
#include "tests/support/strided.h"
#include "tests/support/wide.h"

namespace tev::test {

template class matrix<float>;
template class matrix<double>;
template class matrix<std::complex<float>>;
template class matrix<std::complex<double>>;
template class strided<float>;
template class strided<double>;
template class strided<std::complex<float>>;
template class strided<std::complex<double>>;
template struct wide_matrix<double>;
template struct wide_matrix<long double>;
template struct wide_matrix<std::complex<double>>;
template struct wide_matrix<std::complex<long double>>;

}  // namespace tev::test
