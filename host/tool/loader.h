// SPDX-License-Identifier: BSD-3-Clause
// What the dynamic loader would load for a program or library, asked of the loader itself: it lists the objects and
// runs nothing of them.
#pragma once

#include <string>
#include <vector>

namespace tev::host::tool {

struct loaded_object {
  std::string name;  // as it was asked for: "libblas.so.3"
  std::string path;  // "": not found
};

// In the order in which names are looked up in them. `preload` goes behind what LD_PRELOAD says. Empty for what is no
// dynamic program or library.
std::vector<loaded_object> objects_loaded_for(const std::string& file, const std::string& preload = "");

}  // namespace tev::host::tool
