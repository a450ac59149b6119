// SPDX-License-Identifier: BSD-3-Clause
#include "host/system_call.h"

#include <fmt/format.h>

#include <algorithm>

#include "host/failure.h"
#include "host/parse.h"
#include "host/replacement_file.h"

namespace tev::host {
namespace {

constexpr const char* kNames[] = {"lu", "cholesky", "qr", "solve", "lstsq"};
constexpr int64_t kDefaultOrder = 1000;

void reject_meaningless(const call_request& r, task what) {
  const bool solves = what == task::solve || what == task::lstsq,
             square = what == task::cholesky || what == task::solve;
  const struct {
    const char* option;
    bool given, has_meaning;
  } rows[] = {{"--transa", !r.transa.empty(), false}, {"--transb", !r.transb.empty(), false},
              {"--side", !r.side.empty(), false},     {"--diag", !r.diag.empty(), false},
              {"--direct", !r.direct.empty(), false}, {"--storev", !r.storev.empty(), false},
              {"--alpha", !r.alpha.empty(), false},   {"--beta", !r.beta.empty(), false},
              {"--c", !r.c.empty(), false},           {"-k", r.k.has_value(), false},
              {"-m", r.m.has_value(), !square},       {"--uplo", !r.uplo.empty(), what == task::cholesky},
              {"--b", !r.b.empty(), solves},          {"--rhs", r.right_sides.has_value(), solves && r.b.empty()}};
  for (const auto& row : rows)
    if (row.given && !row.has_meaning)
      throw bad_input(fmt::format("{}: has no meaning for {}", row.option, name_of(what)));
}

void check_shapes(const system_call& c) {
  const std::string a = c.a ? c.a->path() : "A";
  if ((c.what == task::cholesky || c.what == task::solve) && c.m != c.n)
    throw bad_input(fmt::format("{}: is {} x {}, but {} needs a square matrix", a, c.m, c.n, name_of(c.what)));
  if (c.what == task::lstsq && c.m < c.n)
    throw bad_input(fmt::format("{}: is {} x {}, but lstsq needs at least as many rows as columns", a, c.m, c.n));
  if (c.b && c.b->rows() != c.m)
    throw bad_input(fmt::format("{}: has {} rows, but {} has {}", c.b->path(), c.b->rows(), a, c.m));
  if (c.b && c.b->type() != c.type)
    throw bad_input(
        fmt::format("{}: holds {}, but {} holds {}", c.b->path(), type_name(c.b->type()), a, type_name(c.type)));
}

void check_memory(const system_call& c) {
  const double matrix =
      static_cast<double>(c.m) * static_cast<double>(c.n) * static_cast<double>(element_bytes(c.type));
  const double needed = matrix * (c.check || !c.factors.empty() ? 5 : 3), available = available_bytes();
  if (needed > available)
    throw bad_input(fmt::format("{} {} x {}: needs {:.3g} GB of memory, but {:.3g} GB are available", name_of(c.what),
                                c.m, c.n, needed / 1e9, available / 1e9));
}

}  // namespace

const char* name_of(task what) { return kNames[static_cast<int>(what)]; }

std::optional<task> task_named(const std::string& text) {
  const auto* place = std::find(std::begin(kNames), std::end(kNames), text);
  if (place == std::end(kNames)) return std::nullopt;
  return static_cast<task>(place - std::begin(kNames));
}

system_call resolve_system(const call_request& request) {
  system_call c = {};
  c.what = *task_named(request.operation);
  reject_meaningless(request, c.what);
  c.through_sink = request.where.empty() || request.where == "sink";
  if (!c.through_sink && request.where != "here")
    throw bad_input(fmt::format("--where '{}': must be sink or here", request.where));
  c.uplo = request.uplo.empty() ? 'L' : parse_letter("--uplo", request.uplo, "UL");
  for (const std::string* file : {&request.out, &request.factors, &request.trace})
    if (!file->empty()) replacement_target(*file);
  if (request.a.empty() != request.b.empty() && c.solves())
    throw bad_input(fmt::format("{}: is missing; A and B come from files, or none", request.a.empty() ? "--a" : "--b"));
  if (!request.a.empty()) c.a.emplace(request.a);
  if (!request.b.empty()) c.b.emplace(request.b);
  c.type = request.precision.empty() ? (c.a ? c.a->type() : precision::d) : parse_precision(request.precision);
  if (c.a && c.a->type() != c.type)
    throw bad_input(
        fmt::format("--precision {}: but {} holds {}", request.precision, request.a, type_name(c.a->type())));
  c.n = c.a ? c.a->columns() : request.n.value_or(kDefaultOrder);
  c.m = c.a ? c.a->rows() : request.m.value_or(c.n);
  if (c.a && (request.n.value_or(c.n) != c.n || request.m.value_or(c.m) != c.m))
    throw bad_input(fmt::format("-m, -n: but {} is {} x {}", request.a, c.m, c.n));
  c.right_sides = !c.solves() ? 0 : c.b ? c.b->columns() : request.right_sides.value_or(1);
  check_shapes(c);
  c.host_threads = request.host_threads;
  c.out = request.out;
  c.factors = request.factors;
  c.trace = request.trace;
  c.records = request.records || !request.trace.empty();
  c.seed = request.seed;
  c.check = request.check;
  c.repeat = request.repeat;
  check_memory(c);
  return c;
}

double system_call::flop_count(int64_t row_count, int64_t column_count) const {
  const auto rows = static_cast<double>(row_count), columns = static_cast<double>(column_count);
  const double k = std::min(rows, columns);
  const double lu = rows * columns * k - (rows + columns) * k * k / 2 + k * k * k / 3;  // pairs
  const bool is_qr = what == task::qr || what == task::lstsq;
  const double pairs = what == task::cholesky ? k * k * k / 6 : is_qr ? 2 * lu : lu;
  return 2 * pairs * (is_complex(type) ? 4 : 1);
}

}  // namespace tev::host
