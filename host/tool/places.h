// SPDX-License-Identifier: BSD-3-Clause
// Where this program's companions are, wherever they were installed or built together.
#pragma once

#include <string>

namespace tev::host::tool {

// A program that this one starts: beside it, or in ../libexec.
std::string companion_program(const std::string& name);

// The folder that this project's libraries were loaded from; "" when nobody can tell.
std::string library_folder();

}  // namespace tev::host::tool
