// SPDX-License-Identifier: BSD-3-Clause
// Where the file system can, the file has no name until it is complete, so that even SIGKILL leaves nothing. A name
// cannot be given to it in place of another file, so it gets a random one first and is renamed. File systems without
// nameless files write under that random name. As long as it exists, the signals that end a program remove it.
#include "host/replacement_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <stdlib.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <utility>

#include "host/ending_signals.h"
#include "host/failure.h"

namespace tev::host {
namespace {

// The random name while it exists, for the signals' handler; else empty.
char temporary_name[4096];

void remove_temporary() {
  if (temporary_name[0] != '\0') unlink(temporary_name);
  temporary_name[0] = '\0';
}

failure cannot_write(const std::string& path, const std::string& why) {
  return failed(fmt::format("{}: cannot be written: {}", path, why));
}

// "dir/" of "dir/name", "./" of "name".
std::string folder_of(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == path.npos ? "./" : path.substr(0, slash + 1);
}

void choose_temporary_name(const std::string& target) {
  uint64_t number = 0;
  if (getrandom(&number, sizeof(number), 0) != sizeof(number)) throw cannot_write(target, std::strerror(errno));
  const std::string name = fmt::format("{}.tev-offload-{:016x}.tmp", folder_of(target), number);
  if (name.size() >= sizeof(temporary_name)) throw cannot_write(target, std::strerror(ENAMETOOLONG));
  name.copy(temporary_name, name.size());
}

int open_nameless(const std::string& target, mode_t mode) {
  return open(folder_of(target).c_str(), O_WRONLY | O_TMPFILE | O_CLOEXEC, mode);
}

int open_named(const std::string& target, mode_t mode) {
  const signals_held held;
  tidy_at_ending_signals(remove_temporary);
  choose_temporary_name(target);
  const int descriptor = open(temporary_name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
  if (descriptor < 0) temporary_name[0] = '\0';
  return descriptor;
}

// A group that cannot be kept must not open the file to another one.
void take_over(const struct stat& old, int descriptor) {
  mode_t mode = old.st_mode & 0777;
  if (fchown(descriptor, old.st_uid, old.st_gid) != 0 && fchown(descriptor, static_cast<uid_t>(-1), old.st_gid) != 0)
    mode &= static_cast<mode_t>(~S_IRWXG);
  (void)fchmod(descriptor, mode);
}

}  // namespace

std::string replacement_target(const std::string& path) {
  struct stat file = {};
  std::string target = path;
  if (lstat(path.c_str(), &file) == 0 && S_ISLNK(file.st_mode)) {
    const std::unique_ptr<char, decltype(&std::free)> end(realpath(path.c_str(), nullptr), std::free);
    if (!end) throw bad_input(fmt::format("{}: is a symbolic link to no file: {}", path, std::strerror(errno)));
    target = end.get();
  }
  const std::string folder = folder_of(target);
  if (stat(folder.c_str(), &file) != 0 || access(folder.c_str(), W_OK | X_OK) != 0)
    throw bad_input(fmt::format("{}: cannot be written: {}: {}", path, folder, std::strerror(errno)));
  // Renaming would replace a device or a pipe by a file.
  if (stat(target.c_str(), &file) == 0 && !S_ISREG(file.st_mode))
    throw bad_input(path + ": exists and is not a regular file");
  return target;
}

replacement_file::replacement_file(const std::string& path) : target_(replacement_target(path)) {
  struct stat old = {};
  const bool replaces = stat(target_.c_str(), &old) == 0;
  const mode_t mode = replaces ? 0600 : 0666;
  descriptor_ = open_nameless(target_, mode);
  if (descriptor_ < 0) descriptor_ = open_named(target_, mode);
  if (descriptor_ < 0) throw cannot_write(target_, std::strerror(errno));
  if (replaces) take_over(old, descriptor_);
}

replacement_file::~replacement_file() {
  if (descriptor_ >= 0) close(descriptor_);
  const signals_held held;
  remove_temporary();
}

void replacement_file::write(const void* from, int64_t bytes) {
  for (auto* next = static_cast<const char*>(from); bytes > 0;) {
    const ssize_t put = ::write(descriptor_, next, static_cast<size_t>(bytes));
    if (put < 0 && errno == EINTR) continue;
    if (put < 0) throw cannot_write(target_, std::strerror(errno));
    next += put;
    bytes -= put;
  }
}

void replacement_file::commit() {
  if (fsync(descriptor_) != 0) throw cannot_write(target_, std::strerror(errno));
  const signals_held held;
  if (temporary_name[0] == '\0') {
    choose_temporary_name(target_);
    const std::string self = fmt::format("/proc/self/fd/{}", descriptor_);
    if (linkat(AT_FDCWD, self.c_str(), AT_FDCWD, temporary_name, AT_SYMLINK_FOLLOW) != 0) {
      temporary_name[0] = '\0';
      throw cannot_write(target_, std::strerror(errno));
    }
  }
  if (close(std::exchange(descriptor_, -1)) != 0) throw cannot_write(target_, std::strerror(errno));
  if (std::rename(temporary_name, target_.c_str()) != 0)
    throw failed(fmt::format("{}: cannot be replaced: {}", target_, std::strerror(errno)));
  temporary_name[0] = '\0';
}

void write_file(const std::string& path, const std::string& text) {
  replacement_file file(path);
  file.write(text.data(), static_cast<int64_t>(text.size()));
  file.commit();
}

}  // namespace tev::host
