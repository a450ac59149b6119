// SPDX-License-Identifier: BSD-3-Clause
#include "contest/contestant.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdlib>

namespace tev::contest {

contestant::contestant(std::string name, std::vector<std::string> arguments, environment variables, std::string program)
    : name_(std::move(name)),
      program_(std::move(program)),
      arguments_(std::move(arguments)),
      variables_(std::move(variables)) {
  start();
}

contestant::~contestant() { stop(); }

void contestant::start() {
  int questions[2], answers[2];
  if (pipe2(questions, O_CLOEXEC) != 0 || pipe2(answers, O_CLOEXEC) != 0)
    std::abort();  // its siblings must not hold them
  pid_ = fork();
  if (pid_ < 0) std::abort();
  if (pid_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    dup2(questions[0], STDIN_FILENO);
    dup2(answers[1], STDOUT_FILENO);
    for (const auto& [variable, value] : variables_) setenv(variable.c_str(), value.c_str(), 1);
    std::vector<const char*> argv = {program_invocation_short_name, "--serve"};
    for (const std::string& argument : arguments_) argv.push_back(argument.c_str());
    argv.push_back(nullptr);
    execv(program_.c_str(), const_cast<char**>(argv.data()));
    _exit(127);
  }
  close(questions[0]);
  close(answers[1]);
  to_ = fdopen(questions[1], "w");
  from_ = fdopen(answers[0], "r");
  running_ = true;
  const std::string greeting = receive();
  if (greeting == "ready\n") return;
  complain(greeting);
  stop();
}

void contestant::stop() {
  if (!running_) return;
  running_ = false;
  kill(pid_, SIGCONT);
  std::fclose(to_);
  std::fclose(from_);
  waitpid(pid_, nullptr, 0);
}

// Only the one that is asked runs: the threads of a team spin on for a while after a call. Empty when it has ended.
std::string contestant::receive() {
  char line[256];
  const std::string answer = std::fgets(line, sizeof line, from_) ? line : "";
  if (answer.empty())
    stop();
  else
    kill(pid_, SIGSTOP);
  return answer;
}

std::string contestant::answer_to(const std::string& question) {
  if (!running_) return "";
  kill(pid_, SIGCONT);
  std::fprintf(to_, "%s\n", question.c_str());
  std::fflush(to_);
  return receive();
}

void contestant::complain(const std::string& answer) const {
  std::fprintf(stderr, "%s: %s does not take part: %s\n", program_invocation_short_name, name_.c_str(),
               answer.empty() ? "it ended" : answer.substr(0, answer.size() - 1).c_str());
}

bool contestant::prepare(const level3_case& c) {
  return prepare("case " + c.letters + " " + std::to_string(c.m) + " " + std::to_string(c.n) + " " +
                 std::to_string(c.k) + " " + std::to_string(c.ld));
}

bool contestant::prepare(const std::string& question) {
  if (!running_) start();
  if (!running_) return false;
  const std::string answer = answer_to(question);
  if (answer == "ok\n") return true;
  complain(answer);
  return false;
}

double contestant::sample() {
  const std::string seconds = answer_to("run");
  return seconds.empty() ? NAN : std::atof(seconds.c_str());
}

}  // namespace tev::contest
