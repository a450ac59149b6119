// SPDX-License-Identifier: BSD-3-Clause
// The commands, their options and the texts that --help shows.
#include "host/tool/options.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdlib>
#include <limits>
#include <sstream>
#include <string_view>

#include "host/failure.h"
#include "host/parse.h"
#include "host/tier.h"
#include "host/tool/places.h"

namespace tev::host::tool {
namespace {

constexpr char kAbout[] =
    "Sends BLAS level-3 calls to a sink: a process of its own that shares the matrices' memory and computes with all\n"
    "processors. Results can be checked against an independent computation on the host.";

constexpr char kFooter[] =
    "Examples:\n"
    "  tev-offload demo                          all four operations, checked, and a table of speeds\n"
    "  tev-offload run gemm -m 2000 --check      one product of generated matrices\n"
    "  tev-offload bench --sizes 500:2000:500    a table over sizes\n"
    "  tev-offload run --help                    how to give matrices in files\n\n"
    "Kernels: --tier auto vouches for this machine's processor: the best kernels that it has the features for run,\n"
    "whoever made it, within TEV_ENABLE_INSTRUCTIONS and TEV_CBWR; detect leaves the choice to the sink, which runs\n"
    "the baseline on other makers' processors. A tier that the machine cannot run is refused.\n\n"
    "Exit status: 0 done; 1 the sink failed or a check did not pass; 2 an option, a file or a shape is wrong.";

constexpr char kInfoFooter[] =
    "Shows the host's processor, what the sink reports (threads, processors, its device number ...) and its busy "
    "time:\n"
    "the seconds it has spent in requests. With --threads or --pin it shows the sink as these options leave it.";

constexpr char kRunFooter[] =
    "Operations (alpha = 1 and beta = 0 unless given; op(X) is X, its transpose or its conjugate transpose):\n"
    "  gemm  C := alpha op(A) op(B) + beta C    op(A) is m x k, op(B) k x n, C m x n\n"
    "  symm  C := alpha A B + beta C            A symmetric, only the triangle --uplo is read; --side R: B A\n"
    "  trmm  B := alpha op(A) B                 A triangular (--uplo, --diag U: ones on the diagonal); --side R: B "
    "op(A)\n"
    "  trsm  B := the X with op(A) X = alpha B  likewise; --side R: X op(A) = alpha B\n"
    "Steps of a factorization, by the workers for them; the last three on generated matrices:\n"
    "  gemm_step, trsm_step                     as gemm and trsm\n"
    "  syrk     C := alpha op(A) op(A)^T + beta C  the triangle --uplo of C, n x n; op(A) is n x k\n"
    "  larfb    C := op(H) C, --side R: C op(H)  op by --transa; H of k reflectors, --direct, --storev\n"
    "  laswp    rows 1 to k of an m x n matrix are exchanged with their pivots\n"
    "  lu_step  laswp on [B; C], then L X = B with k rows and C := C - A X with m - k\n"
    "Whole factorizations; the sink takes its share, --where here: no sink:\n"
    "  lu        A = P L U, m x n               cholesky  A = L L^H, or U^H U with --uplo U; of order n\n"
    "  qr        A = Q R, m x n                 --out writes the factors as LAPACK leaves them\n"
    "  solve     A X = B by lu, A of order n    lstsq     least |A x - b| by qr, m >= n;  --out writes X\n"
    "--factors writes the arrays L, U, perm and piv, where A[perm] is L U and piv counts from 0; L or U; or Q, R and "
    "tau.\n"
    "Processors are divided: --host-threads of this process (1), --threads of the sink (the others).\n"
    "--trace writes the steps of both sides in the trace-event format, for ui.perfetto.dev.\n"
    "--check prints the scaled residuals by which the reference LAPACK's test programs judge.\n\n"
    "Matrices come from a seed, or all of them from NumPy's .npy files (float32, float64, complex64 or complex128 in\n"
    "either storage and byte order), which then tell precision and sizes. The result is written in Fortran order, at\n"
    "once and only when it is complete and passed the check that was asked for. A file that --out replaces keeps its\n"
    "permissions; a symbolic link is followed.\n\n"
    "Processors for --pin are numbered as Linux does, but 0 cannot be chosen: `--pin 1-3,5` binds four threads to\n"
    "processors 1, 2, 3 and 5, in this order. `taskset` or `lscpu` show the numbers.\n\n"
    "Examples:\n"
    "  tev-offload run gemm -m 3000 -n 500 -k 2000 --precision s --repeat 5\n"
    "  tev-offload run trsm --side R --uplo L --transa T --check\n"
    "  tev-offload run gemm --a a.npy --b b.npy --out product.npy --check\n"
    "  tev-offload run gemm --a a.npy --b b.npy --c c.npy --alpha 2.5 --beta=-1 --out c.npy\n"
    "  tev-offload run solve --a a.npy --b b.npy --out x.npy --check\n"
    "  tev-offload run symm --precision z --alpha 1.5,-2 --json";

constexpr char kBenchFooter[] =
    "Square problems, one row for each size: the best time of all repetitions, the speed it means, and the share of "
    "all\n"
    "repetitions' time that the sink was busy (the rest is sending and waking). Of whole factorizations also the "
    "shares\n"
    "of the last repetition's time that went into panels, on this process's first thread, and into updates, on all of\n"
    "its threads.\n\n"
    "--plot and --report also measure, at the sink's thread count and instruction set, libtevblas in a process of its\n"
    "own and, where Debian's packages are installed, OpenBLAS (libopenblas0-serial, -pthread or -openmp) and BLIS\n"
    "(libblis4-...). The peak is a loop of multiply-adds in registers.\n\n"
    "Examples:\n"
    "  tev-offload bench\n"
    "  tev-offload bench --op trsm --precision z --sizes 256,512,1000 --repeat 5\n"
    "  tev-offload bench --sizes 100:1000:100 --threads 4 --json\n"
    "  tev-offload bench --sizes 32,64,128,256,512,1024,2048 --plot dgemm.svg\n"
    "  tev-offload bench --op gemm,trsm,lu --precision d,z --report speeds.html";

constexpr char kDemoFooter[] =
    "Runs all four operations in all four precisions, checks each result, and shows a short table of speeds.";

constexpr char kExecFooter[] =
    "The program's BLAS becomes libtevblas, whatever BLAS it is linked with: by LD_PRELOAD, and its LAPACK's BLAS with "
    "it\n"
    "unless that LAPACK is part of another BLAS. What the library says it says on standard error.\n\n"
    "Examples:\n"
    "  tev-offload exec -- python3 script.py\n"
    "  tev-offload exec --offload always --threshold 1e8 --trace calls.txt -- octave script.m\n"
    "  tev-offload trace calls.txt --svg calls.svg";

constexpr char kTraceFooter[] =
    "The routines and classes of sizes (by the geometric mean of m, n and k) that took longest come first; `here` is "
    "the\n"
    "program's own process. Lines of several processes and runs are added up.";

constexpr char kStatusFooter[] =
    "Nothing of the program runs: the dynamic loader lists what it would load. Of python3, and of scripts for it, the\n"
    "module of NumPy is judged, which is looked up in the folders that the interpreter searches. A library or module\n"
    "may be given as well, as /usr/lib/R/lib/libR.so for R.\n\n"
    "Examples:\n"
    "  tev-offload status                        the distribution's libblas.so.3 and its alternatives\n"
    "  tev-offload status python3\n"
    "  LD_LIBRARY_PATH=FOLDER tev-offload status octave-cli";

constexpr int kMostThreads = 1024, kMostRepetitions = 1000000;

// CLI11's own reading of numbers takes octal ones, and the largest number for any that is larger.
template <class N, class Target>
void add_number(CLI::App* app, const std::string& name, Target* target, const char* help, N first, N last) {
  const auto take = [=](const std::string& text) { *target = parse_whole_number<N>(name, text, first, last); };
  app->add_option_function<std::string>(name, take, help)->type_name("N");
}

void add_size(CLI::App* app, const char* name, std::optional<int64_t>* size, const char* help) {
  add_number<int64_t>(app, name, size, help, 0, std::numeric_limits<int64_t>::max());
}

void add_sink_place(CLI::App* app, sink_options* options) {
  add_number(app, "--threads", &options->threads, "Threads of the sink's team; default: as many as it likes", 1,
             kMostThreads);
  app->add_option("--sink", options->sink,
                  "The sink's executable; default: tev_sink beside this program or in ../libexec")
      ->envname("TEV_SINK")
      ->type_name("PATH");
}

void add_sink_options(CLI::App* app, sink_options* options) {
  add_sink_place(app, options);
  app->add_option("--pin", options->pin, "Processors for these threads, e.g. 1-3,5, from 1; default: no pinning")
      ->type_name("LIST");
  app->add_option("--tier", options->tier,
                  "Kernels: auto, detect, def, mc, mc3, avx, avx2, avx512 or avx512_zel; default: auto")
      ->type_name("NAME");
  app->add_option("--library-path", options->library_path,
                  "Folders for the sink's libraries; default: that of this program's own")
      ->type_name("PATH");
}

void add_json(CLI::App* app, bool* json) { app->add_flag("--json", *json, "One JSON object instead of text"); }

CLI::App* add_info(CLI::App* app, command_line* line) {
  CLI::App* info = app->add_subcommand("info", "What host and sink are")->footer(kInfoFooter);
  add_json(info, &line->json);
  return info;
}

// Of whole factorizations.
void add_place(CLI::App* app, call_request* call) {
  app->add_option("--where", call->where, "sink or here: where a whole factorization runs; default: sink")
      ->type_name("PLACE");
  add_number(app, "--host-threads", &call->host_threads,
             "Threads of this process in a whole factorization; default: 1, with --where here one for each processor",
             1, kMostThreads);
}

CLI::App* add_run(CLI::App* app, command_line* line) {
  call_request& call = line->call;
  CLI::App* run = app->add_subcommand("run", "One call, timed and checked")->footer(kRunFooter);
  run->add_option("operation", call.operation, "One of those below")->required()->type_name("OP");
  run->add_option("--precision", call.precision, "s, d, c or z; default: d, or what the files hold")->type_name("P");
  add_size(run, "-m", &call.m, "Rows of the result; default: 1000, or as in the files");
  add_size(run, "-n", &call.n, "Columns of the result; likewise");
  add_size(run, "-k", &call.k, "Columns of op(A) in gemm and syrk; of a step's panel");
  run->add_option("--transa", call.transa, "N, T or C: op(A); not symm; default: N")->type_name("LETTER");
  run->add_option("--transb", call.transb, "N, T or C: op(B); gemm only; default: N")->type_name("LETTER");
  run->add_option("--side", call.side, "L or R: the side of A; symm, trmm, trsm, larfb; default: L")
      ->type_name("LETTER");
  run->add_option(
         "--uplo", call.uplo,
         "U or L: the triangle of A, of syrk that of C, of cholesky that of the factor; default: U; L for cholesky")
      ->type_name("LETTER");
  run->add_option("--diag", call.diag, "N, or U: ones; trmm and trsm; default: N")->type_name("LETTER");
  add_place(run, &call);
  run->add_option("--factors", call.factors, "Write the factors of a whole factorization to this file")
      ->type_name("FILE.npz");
  run->add_option("--trace", call.trace, "Write what ran when in a whole factorization to this file")
      ->type_name("FILE.json");
  add_size(run, "--rhs", &call.right_sides, "Generated right-hand sides of solve and lstsq; default: 1");
  run->add_option("--direct", call.direct, "F or B: first or last reflector first; larfb; default: F")
      ->type_name("LETTER");
  run->add_option("--storev", call.storev, "C or R: reflectors in columns or rows; larfb; default: C")
      ->type_name("LETTER");
  run->add_option("--alpha", call.alpha, "RE or RE,IM; default: 1")->type_name("NUMBER");
  run->add_option("--beta", call.beta, "RE or RE,IM; gemm, symm and syrk; default: 0")->type_name("NUMBER");
  run->add_option("--a", call.a, "A from this file")->type_name("FILE.npy");
  run->add_option("--b", call.b, "B from this file")->type_name("FILE.npy");
  run->add_option("--c", call.c, "C from this file; gemm, symm and syrk, needed unless beta is 0")
      ->type_name("FILE.npy");
  run->add_option("--out", call.out, "Write the result to this file")->type_name("FILE.npy");
  add_number<uint64_t>(run, "--seed", &call.seed, "Seed of generated matrices; default: 1", 0,
                       std::numeric_limits<uint64_t>::max());
  run->add_flag("--check", call.check, "Compute again on the host and compare, with a bound on the roundings");
  add_number(run, "--repeat", &call.repeat, "Repetitions; the time is their best; default: 1", 1, kMostRepetitions);
  add_json(run, &line->json);
  return run;
}

CLI::App* add_bench(CLI::App* app, command_line* line) {
  CLI::App* bench = app->add_subcommand("bench", "A table over sizes")->footer(kBenchFooter);
  bench->add_option("--op", line->call.operation, "As for run, or several: gemm,trsm; default: gemm")->type_name("OP");
  bench->add_option("--precision", line->call.precision, "s, d, c or z, or several; default: d")->type_name("P");
  add_place(bench, &line->call);
  bench->add_option("--sizes", line->sizes, "Sizes and ranges FIRST:LAST:STEP; default: 256,512,1000")
      ->type_name("LIST");
  add_number(bench, "--repeat", &line->call.repeat, "Repetitions of each size; default: 3", 1, kMostRepetitions);
  bench->add_option("--plot", line->plot, "A picture of the speeds, other libraries' beside them")
      ->type_name("FILE.svg");
  bench->add_option("--report", line->report, "A page with a picture and a table of each operation")
      ->type_name("FILE.html");
  add_json(bench, &line->json);
  return bench;
}

CLI::App* add_exec(CLI::App* app, command_line* line) {
  exec_options& options = line->exec;
  CLI::App* exec = app->add_subcommand("exec", "A program on this library, offloaded")->footer(kExecFooter);
  exec->add_option("--offload", options.offload, "never, always, or auto: what is faster in a sink; default: auto")
      ->type_name("WHEN")
      ->check(CLI::IsMember({"never", "always", "auto"}));
  exec->add_option("--threshold", options.threshold, "Smaller calls are never sent; default: 1e6")->type_name("FLOPS");
  exec->add_option("--timeout", options.timeout, "Until a silent sink is ended; default: by size")
      ->type_name("SECONDS");
  exec->add_option("--trace", options.trace, "A line for each call to this file, or to stderr")->type_name("FILE");
  add_sink_place(exec, &line->sink);
  exec->prefix_command();  // what follows is the program's
  return exec;
}

CLI::App* add_trace(CLI::App* app, command_line* line) {
  CLI::App* trace = app->add_subcommand("trace", "What exec --trace wrote, added up")->footer(kTraceFooter);
  trace->add_option("file", line->trace.file, "The trace")->required()->type_name("FILE");
  trace->add_option("--svg", line->trace.svg, "A picture of it")->type_name("FILE.svg");
  return trace;
}

// An empty text stands for an option that was not given; what is given and empty is a script's mistake. CLI11 takes the
// word after "--option=" as its value.
void reject_empty_values(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    const std::string_view word = argv[i];
    if (word.empty()) throw bad_input(fmt::format("'': the value after {} is empty", argv[i - 1]));
    if (word[0] == '-' && word.find('=') == word.size() - 1)
      throw bad_input(fmt::format("{}: its value is empty", word));
  }
}

void accept(CLI::App* app, int argc, char** argv, command_line* line) {
  try {
    app->parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    if (e.get_exit_code() != 0) throw bad_input(std::string(e.what()) + " (see --help)");
    std::ostringstream text;
    app->exit(e, text, text);
    line->text = text.str();
  }
}

}  // namespace

command_line parse_command_line(int argc, char** argv) {
  const auto own_end = std::find(argv, argv + argc, std::string_view("--"));
  reject_empty_values(static_cast<int>(own_end - argv), argv);
  command_line line;
  CLI::App app(kAbout, "tev-offload");
  app.set_version_flag("--version", "tev-offload " TEV_VERSION);
  app.footer(kFooter);
  app.require_subcommand(1);
  app.get_formatter()->column_width(28);
  const CLI::App* info = add_info(&app, &line);
  const CLI::App* run = add_run(&app, &line);
  const CLI::App* bench = add_bench(&app, &line);
  const CLI::App* demo =
      app.add_subcommand("demo", "A short show of everything; builds trust in a new machine")->footer(kDemoFooter);
  for (CLI::App* command : app.get_subcommands({})) add_sink_options(command, &line.sink);
  const CLI::App* exec = add_exec(&app, &line);
  const CLI::App* trace = add_trace(&app, &line);
  CLI::App* status = app.add_subcommand("status", "Which BLAS a program gets, and why")->footer(kStatusFooter);
  status->add_option("program", line.program, "Default: any that asks for libblas.so.3");

  accept(&app, static_cast<int>(own_end - argv), argv, &line);
  if (!line.text.empty()) return line;
  line.exec.program = exec->remaining();
  if (own_end != argv + argc) line.exec.program.insert(line.exec.program.end(), own_end + 1, argv + argc);
  if (!line.exec.program.empty() && !exec->parsed()) throw bad_input("--: no command but exec runs a program");
  line.command = info->parsed()     ? tool_command::info
                 : run->parsed()    ? tool_command::run
                 : bench->parsed()  ? tool_command::bench
                 : exec->parsed()   ? tool_command::exec
                 : trace->parsed()  ? tool_command::trace
                 : status->parsed() ? tool_command::status
                                    : tool_command::demo;
  if (bench->parsed() && bench->count("--repeat") == 0) line.call.repeat = 3;
  if (bench->parsed() && line.call.operation.empty()) line.call.operation = "gemm";
  if (bench->parsed() && line.sizes.empty()) line.sizes = "256,512,1000";
  if (demo->parsed()) line.json = false;
  return line;
}

sink_settings resolve(const sink_options& options) {
  sink_settings settings;
  settings.executable = options.sink.empty() ? companion_program("tev_sink") : options.sink;
  settings.library_path = options.library_path.empty() ? library_folder() : options.library_path;
  settings.threads = options.threads;
  settings.processor_type = processor_type_for(options.tier);
  settings.trust_features = options.tier == "auto";
  if (!options.pin.empty()) settings.pin = parse_processors("--pin", options.pin);
  return settings;
}

}  // namespace tev::host::tool
