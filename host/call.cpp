// SPDX-License-Identifier: BSD-3-Clause
// Judging a call: which options an operation has, what the files hold, whether the shapes agree, whether it fits.
#include "host/call.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <utility>

#include "host/failure.h"
#include "host/offload.h"
#include "host/parse.h"
#include "host/replacement_file.h"

namespace tev::host {
namespace {

constexpr int64_t kDefaultSize = 1000, kDefaultPanel = 128;

void reject_meaningless(const call_request& request, operation op) {
  const bool gemm = op == operation::gemm, symm = op == operation::symm, in_place = is_in_place(op);
  const bool syrk = op == operation::syrk, larfb = op == operation::larfb, blas = !is_lapack(op);
  const struct {
    const char* option;
    bool given, has_meaning;
  } rows[] = {{"--transa", !request.transa.empty(), gemm || in_place || syrk || larfb},
              {"--transb", !request.transb.empty(), gemm},
              {"-m", request.m.has_value(), !syrk},
              {"-k", request.k.has_value(), has_depth(op)},
              {"--side", !request.side.empty(), symm || in_place || larfb},
              {"--uplo", !request.uplo.empty(), symm || in_place || syrk},
              {"--diag", !request.diag.empty(), in_place},
              {"--direct", !request.direct.empty(), larfb},
              {"--storev", !request.storev.empty(), larfb},
              {"--alpha", !request.alpha.empty(), blas},
              {"--beta", !request.beta.empty(), gemm || symm || syrk},
              {"--a", !request.a.empty(), blas},
              {"--b", !request.b.empty(), blas && !syrk},
              {"--c", !request.c.empty(), gemm || symm || syrk},
              {"--out", !request.out.empty(), blas},
              {"--where", !request.where.empty(), false},
              {"--host-threads", request.host_threads > 0, false},
              {"--factors", !request.factors.empty(), false},
              {"--trace", !request.trace.empty(), false},
              {"--rhs", request.right_sides.has_value(), false}};
  for (const auto& row : rows)
    if (row.given && !row.has_meaning)
      throw bad_input(fmt::format("{}: has no meaning for {}", row.option, name_of(op)));
}

char letter_or(char preset, const char* option, const std::string& text, const char* letters) {
  return text.empty() ? preset : parse_letter(option, text, letters);
}

// All operands come from files, or none.
void open_files(const call_request& request, call* result) {
  if (request.a.empty() && request.b.empty() && request.c.empty()) return;
  if (request.a.empty()) throw bad_input("--a: is missing; when one operand comes from a file, all do");
  if (result->has_b() && request.b.empty())
    throw bad_input("--b: is missing; when one operand comes from a file, all do");
  result->a.emplace(request.a);
  if (result->has_b()) result->b.emplace(request.b);
  if (!request.c.empty()) result->c.emplace(request.c);
}

precision choose_type(const call_request& request, const call& files) {
  if (!files.a) return request.precision.empty() ? precision::d : parse_precision(request.precision);
  const precision type = files.a->type();
  if (!request.precision.empty() && parse_precision(request.precision) != type)
    throw bad_input(
        fmt::format("--precision {}: but {} holds {}", request.precision, files.a->path(), type_name(type)));
  for (const auto* file : {&files.b, &files.c})
    if (*file && (*file)->type() != type)
      throw bad_input(fmt::format("{}: holds {}, but {} holds {}", (*file)->path(), type_name((*file)->type()),
                                  files.a->path(), type_name(type)));
  return type;
}

int64_t agreed_size(const char* option, const std::optional<int64_t>& given, int64_t in_file, const npy_file& file) {
  if (given && *given != in_file)
    throw bad_input(fmt::format("{} {}: but it is {} in {}", option, *given, in_file, file.path()));
  return in_file;
}

// Of a panel of a factorization: of its reflectors, its pivots, its columns.
int64_t longest_panel(const call& c) { return c.op == operation::larfb && c.side == 'R' ? c.n : c.m; }

void set_sizes(const call_request& request, call* result) {
  const operation op = result->op;
  if (!result->a) {
    result->n = request.n.value_or(kDefaultSize);
    result->m = op == operation::syrk ? result->n : request.m.value_or(kDefaultSize);
    const int64_t k = is_lapack(op) ? std::min(kDefaultPanel, longest_panel(*result)) : kDefaultSize;
    result->k = has_depth(op) ? request.k.value_or(k) : 0;
    if (is_lapack(op) && result->k > longest_panel(*result))
      throw bad_input(fmt::format("-k {}: must not be greater than {}", result->k, longest_panel(*result)));
    return;
  }
  const npy_file& a = *result->a;
  const bool turned_a = has_depth(op) && result->transa != 'N', turned_b = result->transb != 'N';
  const int64_t rows = turned_a ? a.columns() : a.rows(), columns = turned_a ? a.rows() : a.columns();
  if (op == operation::syrk) {
    result->m = result->n = agreed_size("-n", request.n, rows, a);
  } else {
    const npy_file& b = *result->b;
    result->m =
        op == operation::gemm ? agreed_size("-m", request.m, rows, a) : agreed_size("-m", request.m, b.rows(), b);
    result->n = agreed_size("-n", request.n, turned_b ? b.rows() : b.columns(), b);
  }
  result->k = has_depth(op) ? agreed_size("-k", request.k, columns, a) : 0;
}

void check_shape(const char* letter, const std::optional<npy_file>& file, matrix_size wanted, const std::string& why) {
  if (file && (file->rows() != wanted.rows || file->columns() != wanted.columns))
    throw bad_input(fmt::format("{}: is {} x {}, but {} must be {} x {} {}", file->path(), file->rows(),
                                file->columns(), letter, wanted.rows, wanted.columns, why));
}

void check_shapes(const call& c) {
  if (!c.a) return;
  const std::string beside_a = fmt::format("beside A from {}", c.a->path());
  const std::string beside_b = c.b ? fmt::format("beside B from {}", c.b->path()) : beside_a;
  check_shape("A", c.a, c.size_a(), beside_b);
  check_shape("B", c.b, c.size_b(), beside_a);
  check_shape("C", c.c, {c.m, c.n}, beside_b);
  if (!c.c && c.reads_c()) throw bad_input("--c: is missing; with operands from files, a beta needs it");
}

// A shared matrix without memory behind it would end the program by a signal.
void check_memory(const call& c) {
  const double needed = needed_bytes(c), available = available_bytes();
  if (needed > available)
    throw bad_input(fmt::format("{} {} x {}{}: needs {:.3g} GB of memory, but {:.3g} GB are available", name_of(c.op),
                                c.m, c.n, has_depth(c.op) ? fmt::format(" x {}", c.k) : "", needed / 1e9,
                                available / 1e9));
}

}  // namespace

double available_bytes() {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> info(std::fopen("/proc/meminfo", "r"), std::fclose);
  char line[256];
  double kilobytes = 0;
  while (info && std::fgets(line, sizeof(line), info.get()))
    if (std::sscanf(line, "MemAvailable: %lf kB", &kilobytes) == 1) return kilobytes * 1024;
  return 1e15;
}

matrix_size call::size_a() const {
  if (is_lapack(op)) return {longest_panel(*this), k};
  if (!has_depth(op)) return side == 'L' ? matrix_size{m, m} : matrix_size{n, n};
  return transa == 'N' ? matrix_size{m, k} : matrix_size{k, m};
}

matrix_size call::size_b() const {
  if (!has_b()) return {0, 0};
  if (op != operation::gemm) return {m, n};
  return transb == 'N' ? matrix_size{k, n} : matrix_size{n, k};
}

call resolve(const call_request& request) {
  call result = {};
  const named_operation named = parse_operation(request.operation);
  result.op = named.op;
  result.is_step = named.is_step;
  reject_meaningless(request, result.op);
  result.transa = letter_or('N', "--transa", request.transa, "NTC");
  result.transb = letter_or('N', "--transb", request.transb, "NTC");
  result.side = letter_or('L', "--side", request.side, "LR");
  result.uplo = letter_or('U', "--uplo", request.uplo, "UL");
  result.diag = letter_or('N', "--diag", request.diag, "NU");
  result.direct = letter_or('F', "--direct", request.direct, "FB");
  result.storev = letter_or('C', "--storev", request.storev, "CR");
  if (!request.out.empty()) replacement_target(request.out);
  open_files(request, &result);
  result.type = choose_type(request, result);
  if (result.op == operation::syrk && is_complex(result.type) && result.transa == 'C')
    throw bad_input("--transa C: has no meaning for a complex syrk");
  result.alpha = request.alpha.empty() ? 1 : parse_scalar("--alpha", request.alpha, result.type);
  result.beta = request.beta.empty() ? 0 : parse_scalar("--beta", request.beta, result.type);
  set_sizes(request, &result);
  check_shapes(result);
  result.out = request.out;
  result.seed = request.seed;
  result.check = request.check;
  result.repeat = request.repeat;
  check_memory(result);
  return result;
}

}  // namespace tev::host
