// SPDX-License-Identifier: BSD-3-Clause
// The wording of all results.
#include "host/tool/report.h"

#include <fmt/format.h>

#include <cstdlib>
#include <nlohmann/json.hpp>

namespace tev::host::tool {
namespace {

using json = nlohmann::ordered_json;

std::string dump(const json& object) { return object.dump(2, ' ', false, json::error_handler_t::replace) + "\n"; }

std::string sizes_text(const call& c) {
  return fmt::format("{} x {}", c.m, c.n) + (has_depth(c.op) ? fmt::format(" x {}", c.k) : "");
}

// A factor with the blank after it; nothing for 1.
std::string factor_text(std::complex<double> x) {
  if (x == 1.0) return "";
  return x.imag() != 0 ? fmt::format("({:g}, {:g}) ", x.real(), x.imag()) : fmt::format("{:g} ", x.real());
}

std::string op_text(char trans, const char* matrix) {
  return trans == 'N' ? matrix : fmt::format("{}^{}", matrix, trans == 'T' ? "T" : "H");
}

// "C := 2 A^T B + C"
std::string formula(const call& c) {
  const std::string alpha = factor_text(c.alpha), beta = factor_text(c.beta);
  const std::string a = op_text(c.transa, "A"), b = op_text(c.transb, "B");
  const std::string plus_c = c.reads_c() ? fmt::format(" + {}C", beta) : "";
  const bool left = c.side == 'L';
  const char* reflector = c.transa == 'N' ? "H" : "H^H";
  switch (c.op) {
    case operation::gemm:
      return fmt::format("C := {}{} {}{}", alpha, a, b, plus_c);
    case operation::symm:
      return fmt::format("C := {}{}{}", alpha, left ? "A B" : "B A", plus_c);
    case operation::trmm:
      return fmt::format("B := {}{}", alpha, left ? a + " B" : "B " + a);
    case operation::syrk:
      return fmt::format("C := {}{}{}", alpha, c.transa == 'N' ? "A A^T" : "A^T A", plus_c);
    case operation::larfb:
      return left ? fmt::format("C := {} C", reflector) : fmt::format("C := C {}", reflector);
    case operation::laswp:
      return fmt::format("rows 1 to {} of A exchanged with their pivots", c.k);
    case operation::lu_step:
      return "[B; C] exchanged, B := X with L X = B, C := C - A X";
    default:
      return fmt::format("B := X with {} = {}B", left ? a + " X" : "X " + a, alpha);
  }
}

std::string triangle_text(const call& c) {
  if (c.op == operation::gemm || is_lapack(c.op)) return "";
  const char* triangle = c.uplo == 'U' ? "upper" : "lower";
  if (c.op == operation::syrk) return fmt::format(", the {} triangle of C", triangle);
  if (c.op == operation::symm) return fmt::format(", A symmetric, its {} triangle read", triangle);
  return fmt::format(", A {} triangular{}", triangle, c.diag == 'U' ? " with ones on the diagonal" : "");
}

// Integers and decimals as numbers, everything else as text.
json fact_json(const std::string& text) {
  const json number = json::parse(text, nullptr, false);
  return number.is_number() ? number : json(text);
}

json check_json(const outcome& o) {
  if (!o.check) return nullptr;
  return {{"passed", o.check->passed},
          {"worst", o.check->worst},
          {"row", o.check->row},
          {"column", o.check->column},
          {"text", o.check->text}};
}

const char* unit_key(const call& c) { return c.op == operation::laswp ? "gbytes_per_second" : "gflops"; }

json times_json(const outcome& o, const char* key, double value) {
  return {{"seconds_min", o.best()},
          {"seconds_median", o.median()},
          {key, value},
          {"busy_seconds", o.busy_seconds},
          {"busy_share", o.busy_share()}};
}

// Detection knows only its maker's processors; whoever wonders why a fast machine runs the baseline finds it here.
std::string foreign_processor_note(const facts& f) {
  const std::string maker = fact(f.report, "maker");
  if (maker == "own" || maker == "?") return "";
  return fmt::format(
      "\nThis processor is of another maker ({}), for which detection alone answers the baseline tier, def.\n"
      "The tier in force is {}. --tier auto vouches for the processor, as a program does that embeds the library and\n"
      "calls tev_serv_trust_features(1): then its features decide. --tier NAME forces a tier that the features allow,\n"
      "as does TEV_DEBUG_CPU_TYPE=CODE in the environment of any program: 0 def, 2 mc (SSSE3), 3 mc3 (SSE4.2), 4 avx,\n"
      "5 avx2, 6 avx512_zel, 7 avx512.\n",
      maker, fact(f.report, "tier"));
}

}  // namespace

std::string called(const call& c) {
  const bool has_two = c.op == operation::gemm || c.op == operation::trsm;
  return fmt::format("{}{}", name_of(c.op), c.is_step && has_two ? "_step" : "");
}

const char* unit(const call& c) { return c.op == operation::laswp ? "GB/s" : "GFLOP/s"; }

std::string seconds_text(double seconds) {
  return seconds < 1 ? fmt::format("{:.4g} ms", seconds * 1e3) : fmt::format("{:.4g} s", seconds);
}

double speed(const call& c, const outcome& o) {
  const double moved =
      4.0 * static_cast<double>(c.n) * static_cast<double>(c.k) * static_cast<double>(element_bytes(c.type));
  const double work = c.op == operation::laswp ? moved : c.flop_count();
  return o.best() > 0 ? work / o.best() / 1e9 : 0;
}

std::string info_text(const facts& f) {
  std::string text = fmt::format("host          {}, {} threads\n", f.processor, f.threads);
  text += fmt::format("sink          {}\n", f.sink);
  for (const auto& [key, value] : f.report) text += fmt::format("  {:<18}{}\n", key, value);
  text += fmt::format("busy time     {}\n", seconds_text(f.busy_seconds));
  return text + foreign_processor_note(f);
}

std::string info_json(const facts& f) {
  json sink = {{"executable", f.sink}};
  for (const auto& [key, value] : f.report) sink[key] = fact_json(value);
  sink["busy_seconds"] = f.busy_seconds;
  return dump({{"host", {{"processor", f.processor}, {"threads", f.threads}}}, {"sink", sink}});
}

std::string run_text(const call& c, const outcome& o) {
  std::string text =
      fmt::format("{}{}  {}, {}{}\n", letter_of(c.type), called(c), sizes_text(c), formula(c), triangle_text(c));
  text += fmt::format("time   {}", seconds_text(o.best()));
  if (c.repeat > 1) text += fmt::format(" at best, {} as median of {}", seconds_text(o.median()), c.repeat);
  text += fmt::format("\nspeed  {:.4g} {}\nbusy   {:.1f} % of the time of the calls\n", speed(c, o), unit(c),
                      100 * o.busy_share());
  if (o.check) text += fmt::format("check  {}: {}\n", o.check->passed ? "passed" : "FAILED", o.check->text);
  if (!c.out.empty() && (!o.check || o.check->passed))
    text += fmt::format("saved  {} ({} x {} {})\n", c.out, c.m, c.n, type_name(c.type));
  return text;
}

std::string run_json(const call& c, const outcome& o) {
  const bool gemm = c.op == operation::gemm, symm = c.op == operation::symm, syrk = c.op == operation::syrk;
  const bool larfb = c.op == operation::larfb, in_place = is_in_place(c.op), blas = !is_lapack(c.op);
  const auto letter = [](bool given, char x) { return given ? json(std::string(1, x)) : json(); };
  json object = {{"operation", called(c)},
                 {"precision", std::string(1, letter_of(c.type))},
                 {"m", c.m},
                 {"n", c.n},
                 {"k", has_depth(c.op) ? json(c.k) : json()},
                 {"transa", letter(gemm || in_place || syrk || larfb, c.transa)},
                 {"transb", letter(gemm, c.transb)},
                 {"side", letter(symm || in_place || larfb, c.side)},
                 {"uplo", letter(symm || in_place || syrk, c.uplo)},
                 {"diag", letter(in_place, c.diag)},
                 {"direct", letter(larfb, c.direct)},
                 {"storev", letter(larfb, c.storev)},
                 {"alpha", blas ? json({c.alpha.real(), c.alpha.imag()}) : json()},
                 {"beta", in_place || !blas ? json() : json({c.beta.real(), c.beta.imag()})},
                 {"repeat", c.repeat}};
  object.update(times_json(o, unit_key(c), speed(c, o)));
  object["check"] = check_json(o);
  object["out"] = c.out.empty() || (o.check && !o.check->passed) ? json() : json(c.out);
  return dump(object);
}

std::string demo_row(const call& c, const outcome& o) {
  return fmt::format("{}{}  {:<15}  {:>10}  {:>8.4g}  {:<6}  {}\n", letter_of(c.type), name_of(c.op), sizes_text(c),
                     seconds_text(o.best()), speed(c, o), o.check->passed ? "passed" : "FAILED", o.check->text);
}

std::string bench_heading(const call& first) {
  return fmt::format("{}{}, best of {}\n  size      seconds  {:>10}    busy %\n", letter_of(first.type), called(first),
                     first.repeat, unit(first));
}

std::string bench_text(const bench_row& row) {
  return fmt::format("{:>6}  {:>11.4g}  {:>10.4g}  {:>8.1f}\n", row.size, row.result.best(), row.speed,
                     100 * row.result.busy_share());
}

std::string bench_json(const call& first, const std::vector<bench_row>& rows) {
  json list = json::array();
  for (const bench_row& row : rows) {
    json object = {{"size", row.size}};
    object.update(times_json(row.result, unit_key(first), row.speed));
    list.push_back(object);
  }
  return dump({{"operation", called(first)},
               {"precision", std::string(1, letter_of(first.type))},
               {"repeat", first.repeat},
               {"rows", list}});
}

}  // namespace tev::host::tool
