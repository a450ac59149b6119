// SPDX-License-Identifier: BSD-3-Clause
// The settings as the code reads them: by a row of service/settings.inc, so what is not told there cannot be read.
#pragma once

#include <algorithm>
#include <string_view>

#include "tev/service.h"

namespace tev::service {

enum class setting {
#define TEV_SETTING(name, room, mode, values, otherwise) name,
#include "service/settings.inc"
#undef TEV_SETTING
};

enum class setting_mode { guarded, always };

struct setting_row {
  const char* name;
  int32_t room;
  setting_mode mode;
};

inline constexpr setting_row kSettings[] = {
#define TEV_SETTING(name, room, mode, values, otherwise) {#name, room, setting_mode::mode},
#include "service/settings.inc"
#undef TEV_SETTING
};

// Its text lives as long as the object; empty when the variable is not set, filtered or too long.
template <setting Which>
struct setting_value {
  static constexpr setting_row kRow = kSettings[static_cast<int>(Which)];

  char text[kRow.room];
  int32_t length;  // 0 when empty

  std::string_view view() const { return {text, static_cast<size_t>(length)}; }

  setting_value() : length(std::max(tev_serv_getenv(kRow.name, text, kRow.room), 0)) {}
};

}  // namespace tev::service
