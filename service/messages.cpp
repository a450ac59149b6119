// SPDX-License-Identifier: BSD-3-Clause
// Numbered messages. A text is looked up in the message catalog first; the table here is authoritative for what a text
// does with its arguments, and is all there is without a catalog.
#include "service/messages.h"

#include <fcntl.h>
#include <nl_types.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "service/bounded_strings.h"
#include "service/formatted_io.h"
#include "service/layer_locks.h"
#include "service/lock.h"
#include "service/settings.h"

namespace {

using tev::service::kStandardError;

struct message {
  int32_t number;
  const char* text;  // conversions are plain %d and %s
};

constexpr message tev_msgtab[] = {
    {1, "Zarik TEV FATAL ERROR: Cannot load %s."},
    {6, "Zarik TEV ERROR: Parameter %d was incorrect on entry to %s."},
    {7, "Zarik TEV INTERNAL ERROR: Condition %d detected in function %s."},
    {8, "Zarik TEV INTERNAL ERROR: Insufficient workspace available in function %s."},
    {9, "Zarik TEV ERROR: Incompatible optional parameters on entry to %s."},
    {1089, "Zarik TEV INTERNAL ERROR: Not enough work memory in function %s"},
    {1209, "Zarik TEV WARNING: incorrect conditional numerical reproducibility mode, TEV_CBWR_AUTO is set"},
    {1210,
     "Zarik TEV FATAL ERROR: This system does not meet the minimum requirements for use of the Zarik(R) "
     "Tevalon."},
    {1211, "The processor must support the Zarik(R) Streaming SIMD 2 Extensions (Zarik(R) SSE2) instructions."},
    {1212, "Zarik TEV INTERNAL ERROR: Issue accessing coprocessor %s."},
    {1213, "Zarik TEV ERROR: CPU %d is not supported."},
};
constexpr char kNewlineText[] = "\n";
constexpr int32_t kLastNumber = 1413;
constexpr int kCatalogSet = 1;
constexpr int kBufferSize = 512;

constinit std::atomic<int32_t> first_msg{1};         // 0 once somebody tried to open the catalog
constinit std::atomic<int32_t> use_internal_msg{1};  // 0 once `catalog` is open
nl_catd catalog;                                     // never closed
constinit thread_local char get_msg_buf[kBufferSize] = "";

nl_catd open_catalog() { return catopen("tev_msg.cat", 0); }

bool is_open(nl_catd opened) { return opened != reinterpret_cast<nl_catd>(-1); }

// Deliberate: LANG=de_DE.UTF-8 becomes LANG=de_DE for the whole process when a catalog may be found under that.
bool cut_language() {
  tev::service::setting_value<tev::service::setting::LANG> language;
  char* const point = std::strchr(language.text, '.');
  if (!point) return false;
  *point = '\0';
  return setenv(language.kRow.name, language.text, 1) == 0;
}

void find_catalog() {
  nl_catd opened = open_catalog();
  if (!is_open(opened) && cut_language()) opened = open_catalog();
  if (!is_open(opened)) return;
  catalog = opened;
  use_internal_msg.store(0, std::memory_order_release);
}

// Messages of other threads have the built-in texts until the catalog is open.
void open_catalog_once() {
  if (first_msg.load(std::memory_order_relaxed) == 0 || tev_serv_trylock(&tev::service::catalog_lock) == 0) return;
  if (first_msg.load(std::memory_order_relaxed) != 0) {
    find_catalog();
    first_msg.store(0, std::memory_order_relaxed);
  }
  tev_serv_unlock(&tev::service::catalog_lock);
}

const char* built_in_text(int32_t number) {
  for (const message& m : tev_msgtab)
    if (m.number == number) return m.text;
  return "";
}

// What follows the % of the next conversion; `text` moves behind it. 0 when there is none, % for a % that ends the
// text.
char next_conversion(const char*& text) {
  while (const char* percent = std::strchr(text, '%')) {
    const char kind = percent[1];
    if (kind == '\0') {
      text = percent + 1;
      return '%';
    }
    text = percent + 2;
    if (kind != '%') return kind;
  }
  return '\0';
}

bool same_conversions(const char* text, const char* other) {
  for (;;) {
    const char kind = next_conversion(text);
    if (kind != next_conversion(other)) return false;
    if (kind == '\0') return true;
  }
}

// A catalog comes from outside: its text is used only if it takes the same arguments in the same order.
const char* text_of(int32_t number) {
  if (number < 0 || number > kLastNumber) return "";
  open_catalog_once();
  const char* built_in = built_in_text(number);
  if (use_internal_msg.load(std::memory_order_acquire)) return built_in;
  const char* text = catgets(catalog, kCatalogSet, number, built_in);
  return same_conversions(text, built_in) ? text : built_in;
}

bool standard_error_exists() { return stderr && fcntl(fileno(stderr), F_GETFD) != -1; }

int flush(FILE* stream) { return stream ? std::fflush(stream) : 0; }

// Not all streams: one that another thread of the program is reading from is locked until its text comes.
int32_t flush() {
  const int out = flush(stdout), err = flush(stderr);
  return out != 0 ? out : err;
}

// The overflow report is a guard: formatted text always ends within its buffer.
int32_t write_text(int32_t stream, const char* text) {
  const int last = static_cast<int>(tev_serv_strnlen_s(text, kBufferSize)) - 1;
  if (last > kBufferSize) {
    tev_serv_fprintf_stdout_s("\nTEV INTERNAL ERROR: message buffer overflow.");
    tev_serv_fprintf_stdout_s("\n       Lenght: %d   Buffer size: %d\n", last, kBufferSize);
    flush();
  }
  tev_serv_fprintf_s(stream == kStandardError && standard_error_exists() ? stderr : stdout, "%s", text);
  return flush();
}

}  // namespace

extern "C" {

int32_t tev_serv_print(int32_t stream, int32_t number, int32_t nargs, ...) {
  if (number != tev::service::kNewline) {
    char print_buf[kBufferSize];
    va_list arguments;
    va_start(arguments, nargs);
    tev_serv_vsnprintf_s(print_buf, sizeof print_buf, text_of(number), arguments);
    va_end(arguments);
    write_text(stream, print_buf);
  }
  return write_text(stream, kNewlineText);
}

const char* tev_serv_get_msg(int32_t number, int32_t nargs, ...) {
  if (number == tev::service::kNewline) return "";
  const char* text = text_of(number);
  if (nargs < 1) return text;
  va_list arguments;
  va_start(arguments, nargs);
  tev_serv_vsnprintf_s(get_msg_buf, sizeof get_msg_buf, text, arguments);
  va_end(arguments);
  return get_msg_buf;
}

int32_t tev_serv_format_print(int32_t stream, const char* format, int32_t nargs, ...) {
  if (nargs < 1) return 0;
  char print_buf[kBufferSize];
  va_list arguments;
  va_start(arguments, nargs);
  tev_serv_vsnprintf_s(print_buf, sizeof print_buf, format, arguments);
  va_end(arguments);
  return write_text(stream, print_buf);
}

}  // extern "C"
