// SPDX-License-Identifier: BSD-3-Clause
// tev-offload status: which BLAS a program gets, and why. Nothing of the program runs: the loader is asked what it
// would load, and for Python the module of NumPy that calls BLAS is looked up in the folders that its interpreter
// searches.
#include <dlfcn.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "host/failure.h"
#include "host/parse.h"
#include "host/tool/loader.h"
#include "host/tool/options.h"
#include "host/tool/output.h"
#include "host/tool/places.h"

namespace tev::host::tool {
namespace {

namespace fs = std::filesystem;

constexpr char kPlainName[] = "libblas.so.3";
constexpr char kAlternatives[] = "/etc/alternatives";
constexpr char kTriplet[] = "-x86_64-linux-gnu";

std::string row(const std::string& name, const std::string& text) { return fmt::format("{:<15}{}\n", name, text); }

std::vector<std::string> listed_in(const char* variable) {
  const char* const list = std::getenv(variable);
  std::vector<std::string> parts = split(list ? list : "", ':');
  std::erase(parts, "");
  return parts;
}

std::string contents(const fs::path& file) {
  std::ifstream stream(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

// ---- Where a program's calls begin ----------------------------------------------------------------------------------

fs::path found_in_path(const std::string& program) {
  if (program.find('/') != program.npos) return program;
  for (const std::string& folder : listed_in("PATH"))
    if (const fs::path file = fs::path(folder) / program; access(file.c_str(), X_OK) == 0) return file;
  throw bad_input(program + ": there is no such program");
}

// The interpreter of a script; the file itself when it is none.
fs::path interpreter_of(const fs::path& file) {
  std::ifstream stream(file);
  std::string line, first, second;
  if (!std::getline(stream, line) || line.rfind("#!", 0) != 0) return file;
  std::stringstream words(line.substr(2));
  words >> first >> second;
  return fs::path(first).filename() == "env" ? found_in_path(second) : fs::path(first);
}

// Folders of packages in an interpreter's order: the user's first.
std::vector<fs::path> package_folders(const fs::path& interpreter) {
  std::vector<fs::path> folders;
  for (const std::string& folder : listed_in("PYTHONPATH")) folders.push_back(folder);
  std::error_code error;
  const fs::path prefix = fs::absolute(interpreter, error).parent_path().parent_path();
  std::vector<fs::path> prefixes = {prefix / "local", prefix};
  if (const char* home = std::getenv("HOME")) prefixes.insert(prefixes.begin(), fs::path(home) / ".local");
  for (const fs::path& in : prefixes)
    for (const auto& version : fs::directory_iterator(in / "lib", error))
      if (version.path().filename().string().rfind("python3", 0) == 0)
        for (const char* packages : {"site-packages", "dist-packages"}) folders.push_back(version.path() / packages);
  return folders;
}

// "": no NumPy.
fs::path numpy_module(const fs::path& interpreter) {
  std::error_code error;
  for (const fs::path& folder : package_folders(interpreter))
    for (const char* core : {"numpy/_core", "numpy/core"})
      for (const auto& file : fs::directory_iterator(folder / core, error))
        if (file.path().filename().string().rfind("_multiarray_umath.", 0) == 0) return file.path();
  return {};
}

// ---- What it gets, and why ------------------------------------------------------------------------------------------

bool is_blas(const loaded_object& object) {
  const std::string name = fs::path(object.name).filename();
  return name.find("blas") != name.npos || name.find("blis") != name.npos;
}

// As packages of pip have it: under a name of its own, with functions of names of their own.
bool is_brought_along(const loaded_object& object) {
  return is_blas(object) && fs::path(object.path).parent_path().filename().string().ends_with(".libs");
}

bool is_ours(const fs::path& library) { return contents(library).find("tevblas_get_version") != std::string::npos; }

bool lies_in(const fs::path& file, const fs::path& folder) {
  std::error_code error;
  return fs::equivalent(file.parent_path(), folder, error);
}

// "auto" or "manual", with the choices and their priorities; "" when the system has no such alternative.
std::string alternative_text(const std::string& name) {
  std::ifstream stream("/var/lib/dpkg/alternatives/" + name + kTriplet);
  std::string mode, line, text;
  if (!std::getline(stream, mode)) return "";
  while (std::getline(stream, line) && !line.empty()) continue;
  for (std::string path, priority; std::getline(stream, path) && std::getline(stream, priority);)
    text += fmt::format("{}{} ({})", text.empty() ? "" : ", ", path, priority);
  return mode + ": " + text;
}

std::string reason(const loaded_object& object, const fs::path& from) {
  if (is_brought_along(object)) return "the package brought it along, and calls it by names that no other library has";
  std::error_code error;
  const fs::path real = fs::canonical(object.path, error);
  for (const std::string& preloaded : listed_in("LD_PRELOAD"))
    if (fs::equivalent(preloaded, object.path, error) || preloaded == object.name) return "LD_PRELOAD names it";
  for (const std::string& folder : listed_in("LD_LIBRARY_PATH"))
    if (lies_in(object.path, folder)) return "LD_LIBRARY_PATH has its folder " + folder;
  const fs::path chosen = fs::path(kAlternatives) / (fs::path(object.name).filename().string() + kTriplet);
  if (fs::equivalent(chosen, real, error))
    return fmt::format("the alternative {} leads to it", chosen.filename().string());
  return fmt::format("{} asks for {}", from.filename().string(), object.name);
}

std::string found_text(const std::vector<loaded_object>& objects, const fs::path& from) {
  auto blas = std::find_if(objects.begin(), objects.end(), is_brought_along);
  if (blas == objects.end()) blas = std::find_if(objects.begin(), objects.end(), is_blas);
  if (blas == objects.end()) return row("gets", "no BLAS by itself; a module that it loads later may");
  if (blas->path.empty()) return row("gets", blas->name + ": not found");
  std::error_code error;
  const fs::path real = fs::canonical(blas->path, error);
  return row("gets", fmt::format("{}: {}", real.string(), is_ours(real) ? "this library" : "another library")) +
         row("because", reason(*blas, from));
}

std::string program_text(const std::string& program) {
  const fs::path given = found_in_path(program);
  std::error_code error;
  if (!fs::is_regular_file(given, error)) throw bad_input(program + ": is not a file");
  fs::path file = interpreter_of(given);
  std::string text = row("program", given.string());
  if (file != given) text += row("script for", file.string());
  if (file.filename().string().rfind("python", 0) == 0) {
    if (const fs::path module = numpy_module(file); !module.empty())
      text += row("calls from", (file = module).string());
    else
      text += row("calls from", "no NumPy found");
  }
  const std::vector<loaded_object> objects = objects_loaded_for(file);
  if (objects.empty()) throw bad_input(file.string() + ": the loader does not know this kind of file");
  return text + found_text(objects, file);
}

std::string plain_name_text(const fs::path& self) {
  std::vector<loaded_object> objects = objects_loaded_for(self, kPlainName);
  std::erase_if(objects, [](const loaded_object& o) { return fs::path(o.name).filename() != kPlainName; });
  if (objects.empty()) objects = {{kPlainName, ""}};
  return row("program", fmt::format("any that asks for {}", kPlainName)) + found_text(objects, "the program");
}

// ---- This library ---------------------------------------------------------------------------------------------------

template <class Result>
Result ask(void* library, const char* name) {
  const auto function = reinterpret_cast<Result (*)()>(dlsym(library, name));
  if (!function) throw failed(fmt::format("libtevblas.so.0: has no {}", name));
  return function();
}

std::string own_text() {
  const std::string path = library_folder() + "/libtevblas.so.0";
  void* const library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!library) return row("this library", fmt::format("cannot be loaded: {}", dlerror()));
  const int threads = ask<int>(library, "tevblas_get_num_threads");
  return row(
      "this library",
      fmt::format("{}, version {}, kernels {}, {} thread{}", path, ask<const char*>(library, "tevblas_get_version"),
                  ask<const char*>(library, "tevblas_get_tier"), threads, threads == 1 ? "" : "s"));
}

}  // namespace

int show_status(const command_line& line) {
  std::error_code error;
  std::string text =
      line.program.empty() ? plain_name_text(fs::read_symlink("/proc/self/exe", error)) : program_text(line.program);
  for (const char* name : {kPlainName, "libblas64.so.3"})
    if (const std::string choices = alternative_text(name); !choices.empty()) text += row(name, choices);
  for (const char* variable : {"LD_PRELOAD", "LD_LIBRARY_PATH"})
    if (const char* value = std::getenv(variable)) text += row(variable, value);
  put(text + own_text());
  return 0;
}

}  // namespace tev::host::tool
