// SPDX-License-Identifier: BSD-3-Clause
#include "bench/contestant.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

namespace tev::bench {

namespace {

std::string ask(FILE* to, FILE* from, const std::string& question) {
  std::fprintf(to, "%s\n", question.c_str());
  std::fflush(to);
  char line[256];
  return std::fgets(line, sizeof line, from) ? line : "";
}

}  // namespace

contestant::contestant(std::string name, const std::vector<std::string>& arguments,
                       const std::vector<std::pair<std::string, std::string>>& environment)
    : name_(std::move(name)) {
  int questions[2], answers[2];
  if (pipe2(questions, O_CLOEXEC) != 0 || pipe2(answers, O_CLOEXEC) != 0)
    std::abort();  // its siblings must not hold them
  pid_ = fork();
  if (pid_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    dup2(questions[0], STDIN_FILENO);
    dup2(answers[1], STDOUT_FILENO);
    for (const auto& [variable, value] : environment) setenv(variable.c_str(), value.c_str(), 1);
    std::vector<const char*> argv = {"gemm", "--serve"};
    for (const std::string& argument : arguments) argv.push_back(argument.c_str());
    argv.push_back(nullptr);
    execv("/proc/self/exe", const_cast<char**>(argv.data()));
    _exit(127);
  }
  close(questions[0]);
  close(answers[1]);
  to_ = fdopen(questions[1], "w");
  from_ = fdopen(answers[0], "r");
}

contestant::~contestant() {
  kill(pid_, SIGCONT);
  std::fclose(to_);
  std::fclose(from_);
  waitpid(pid_, nullptr, 0);
}

// Only the one that is asked runs: the threads of a team spin on for a while after a product.
std::string contestant::answer_to(const char* question) {
  kill(pid_, SIGCONT);
  const std::string answer = ask(to_, from_, question);
  kill(pid_, SIGSTOP);
  return answer;
}

bool contestant::prepare(const gemm_case& c) {
  char question[256];
  std::snprintf(question, sizeof question, "case %c %c %ld %ld %ld %ld %ld %ld", c.transa, c.transb, c.m, c.n, c.k,
                c.lda, c.ldb, c.ldc);
  const std::string answer = answer_to(question);
  if (answer == "ok\n") return true;
  std::fprintf(stderr, "gemm: %s does not take part: %s\n", name_.c_str(),
               answer.empty() ? "it ended" : answer.c_str());
  return false;
}

double contestant::sample() { return std::atof(answer_to("run").c_str()); }

}  // namespace tev::bench
