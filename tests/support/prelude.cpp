// SPDX-License-Identifier: BSD-3-Clause
// Owns the parsed tests/support/prelude.h.
