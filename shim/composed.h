// SPDX-License-Identifier: BSD-3-Clause
// Routines that are made of others.
#pragma once
