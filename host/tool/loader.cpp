// SPDX-License-Identifier: BSD-3-Clause
#include "host/tool/loader.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "host/failure.h"

namespace tev::host::tool {
namespace {

constexpr char kLoader[] = "/lib64/ld-linux-x86-64.so.2";

std::string output_of_loader(const std::string& file, const std::string& preload) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) throw failed("the loader cannot be asked: no pipe");
  const char* const given = std::getenv("LD_PRELOAD");
  const std::string variable = (given ? given + std::string(":") : "") + preload;
  const pid_t child = fork();
  if (child == 0) {
    dup2(ends[1], STDOUT_FILENO);
    dup2(open("/dev/null", O_WRONLY), STDERR_FILENO);
    if (!preload.empty()) setenv("LD_PRELOAD", variable.c_str(), 1);
    execl(kLoader, kLoader, "--list", file.c_str(), nullptr);
    _exit(127);
  }
  close(ends[1]);
  std::string text;
  char piece[4096];
  for (ssize_t n; (n = read(ends[0], piece, sizeof piece)) > 0;) text.append(piece, static_cast<size_t>(n));
  close(ends[0]);
  if (child < 0 || waitpid(child, nullptr, 0) < 0) throw failed("the loader cannot be asked: no process");
  return text;
}

// "	libblas.so.3 => /lib/libblas.so.3 (0x...)", "	/opt/libx.so (0x...)", "	libx.so.1 => not found".
loaded_object object_in(std::string_view line) {
  constexpr std::string_view kArrow = " => ";
  line.remove_prefix(std::min(line.find_first_not_of("\t "), line.size()));
  const std::string_view end = line.substr(0, line.rfind(" (0x"));
  const size_t arrow = end.find(kArrow);
  if (arrow == end.npos) return {std::string(end), end.find('/') == end.npos ? "" : std::string(end)};
  const std::string_view path = end.substr(arrow + kArrow.size());
  return {std::string(end.substr(0, arrow)), path == "not found" ? "" : std::string(path)};
}

}  // namespace

std::vector<loaded_object> objects_loaded_for(const std::string& file, const std::string& preload) {
  const std::string text = output_of_loader(file, preload);
  std::vector<loaded_object> objects;
  for (size_t begin = 0, end; (end = text.find('\n', begin)) != text.npos; begin = end + 1)
    objects.push_back(object_in(std::string_view(text).substr(begin, end - begin)));
  return objects;
}

}  // namespace tev::host::tool
