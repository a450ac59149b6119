// SPDX-License-Identifier: BSD-3-Clause
// Scalar intrinsics in the calling style of the reference BLAS (arguments by address; s d c z name the precision), the
// comparison of option letters, and the two helpers behind the complex ones, which take values.
#pragma once

#include <cstdint>

#include "tev/types.h"

extern "C" {

// 1 when the letters are equal but for the case of a-z, else 0; 0 for a null pointer.
int tev_serv_lsame(const char* a, const char* b);

// |a| with the sign of b; a NaN or a zero of either sign counts as positive.
float tev_serv_s_sign(const float* a, const float* b);
double tev_serv_d_sign(const double* a, const double* b);

// Binary exponentiation, every product rounded to the working precision. Any base to the power 0 is 1.
float tev_serv_s_powi(const float* base, const int32_t* exponent);
double tev_serv_d_powi(const double* base, const int32_t* exponent);

// Truncated; rounded with halves away from zero. What has no 32-bit integer (and NaN) gives INT32_MIN, as the
// processor's own conversion does.
int32_t tev_serv_s_int(const float* value);
int32_t tev_serv_d_int(const double* value);
int32_t tev_serv_s_round(const float* value);
int32_t tev_serv_d_round(const double* value);

// Modulus and principal square root.
float tev_serv_c_abs(const tev_complex8* value);
double tev_serv_z_abs(const tev_complex16* value);
void tev_serv_c_sqrt(tev_complex8* result, const tev_complex8* value);
void tev_serv_z_sqrt(tev_complex16* result, const tev_complex16* value);

// sqrt(x^2 + y^2) without intermediate overflow or underflow. Infinite when one argument is, even beside a NaN.
double tev_serv_hypot(double x, double y);

// re + i im = sqrt(x + i y), with re >= 0.
void tev_serv_sqrt(double* re, double* im, double x, double y);

// Smallest value of the type that is not below the integer.
float tev_serv_int2f_ceil(const int64_t* value);
double tev_serv_int2d_ceil(const int64_t* value);

}  // extern "C"
