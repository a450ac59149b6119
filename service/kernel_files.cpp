// SPDX-License-Identifier: BSD-3-Clause
#include "service/kernel_files.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace tev::service {

first_line::first_line(const char* path, ...) {
  char full[4096];
  va_list arguments;
  va_start(arguments, path);
  const int length = vsnprintf(full, sizeof full, path, arguments);
  va_end(arguments);
  if (length < 0 || length >= static_cast<int>(sizeof full)) return;
  FILE* file = fopen(full, "re");
  if (!file) return;
  if (fgets(text, sizeof text, file)) text[strcspn(text, "\n")] = 0;
  fclose(file);
}

std::optional<int64_t> first_line::number() const {
  char* end;
  const int64_t value = strtoll(text, &end, 10);
  return end == text ? std::nullopt : std::optional(value);
}

}  // namespace tev::service
