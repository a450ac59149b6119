// SPDX-License-Identifier: BSD-3-Clause
// Reading npy.h's files. The header's text is a Python dictionary of three known entries in any order; the parser takes
// no other Python.
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <optional>
#include <vector>

#include "host/failure.h"
#include "host/npy.h"

namespace tev::host {
namespace {

// What the three entries say, before it is judged.
struct entries {
  std::optional<std::string> descr;
  std::optional<bool> fortran_order;
  std::optional<std::vector<int64_t>> shape;
};

class header_parser {
 public:
  header_parser(const std::string& name, std::string_view text) : name_(name), text_(text) {}

  entries parse() {
    entries found;
    expect('{');
    while (!accept('}')) {
      const std::string key = quoted();
      expect(':');
      if (key == "descr" && !found.descr)
        found.descr = description();
      else if (key == "fortran_order" && !found.fortran_order)
        found.fortran_order = boolean();
      else if (key == "shape" && !found.shape)
        found.shape = numbers();
      else
        throw bad_input(fmt::format("{}: its header has an entry '{}' too many", name_, key));
      if (!accept(',')) {
        expect('}');
        break;
      }
    }
    skip_space();
    if (!text_.empty()) throw malformed();
    return found;
  }

 private:
  failure malformed() const { return bad_input(name_ + ": its header is not the dictionary that NumPy writes"); }

  void skip_space() {
    const size_t end = text_.find_first_not_of(" \n");
    text_.remove_prefix(end == text_.npos ? text_.size() : end);
  }

  bool accept(char c) {
    skip_space();
    if (text_.empty() || text_[0] != c) return false;
    text_.remove_prefix(1);
    return true;
  }

  void expect(char c) {
    if (!accept(c)) throw malformed();
  }

  bool accept_word(std::string_view word) {
    skip_space();
    if (text_.substr(0, word.size()) != word) return false;
    text_.remove_prefix(word.size());
    return true;
  }

  std::string quoted() {
    const char quote = accept('\'') ? '\'' : '"';
    if (quote == '"') expect('"');
    const size_t end = text_.find(quote);
    if (end == text_.npos) throw malformed();
    std::string inside(text_.substr(0, end));
    text_.remove_prefix(end + 1);
    return inside;
  }

  std::string description() {
    skip_space();
    if (!text_.empty() && text_[0] == '[') throw bad_input(name_ + ": holds records, not numbers");
    return quoted();
  }

  bool boolean() {
    if (accept_word("True")) return true;
    if (accept_word("False")) return false;
    throw malformed();
  }

  std::vector<int64_t> numbers() {
    std::vector<int64_t> all;
    expect('(');
    while (!accept(')')) {
      skip_space();
      int64_t number = 0;
      const auto [end, error] = std::from_chars(text_.data(), text_.data() + text_.size(), number);
      if (error == std::errc::result_out_of_range) throw bad_input(name_ + ": its shape is too large");
      if (error != std::errc()) throw malformed();
      text_.remove_prefix(static_cast<size_t>(end - text_.data()));
      all.push_back(number);
      if (!accept(',')) {
        expect(')');
        break;
      }
    }
    return all;
  }

  const std::string& name_;
  std::string_view text_;
};

void set_type(const std::string& name, const std::string& descr, npy_header* header) {
  constexpr std::pair<const char*, precision> kTypes[] = {
      {"f4", precision::s}, {"f8", precision::d}, {"c8", precision::c}, {"c16", precision::z}};
  const char order = descr.empty() ? '\0' : descr[0];
  for (const auto& [code, type] : kTypes)
    if ((order == '<' || order == '>' || order == '=') && descr.substr(1) == code) {
      header->type = type;
      header->swapped = order == '>';
      return;
    }
  if (descr == "|O") throw bad_input(name + ": holds Python objects, not numbers");
  throw bad_input(
      fmt::format("{}: holds '{}'; only float32, float64, complex64 and complex128 can be used", name, descr));
}

void set_shape(const std::string& name, const std::vector<int64_t>& shape, npy_header* header) {
  if (shape.empty() || shape.size() > 2)
    throw bad_input(fmt::format("{}: has {} dimensions; a matrix has two (one: a column)", name, shape.size()));
  header->rows = shape[0];
  header->columns = shape.size() == 2 ? shape[1] : 1;
  if (header->rows < 0 || header->columns < 0)
    throw bad_input(fmt::format("{}: its shape {} x {} is negative", name, header->rows, header->columns));
}

template <class Word>
void swap_words(void* elements, int64_t count) {
  auto* word = static_cast<unsigned char*>(elements);
  for (int64_t i = 0; i < count; ++i, word += sizeof(Word)) std::reverse(word, word + sizeof(Word));
}

void swap_bytes(precision type, void* elements, int64_t count) {
  if (is_complex(type)) count *= 2;
  if (type == precision::s || type == precision::c)
    swap_words<float>(elements, count);
  else
    swap_words<double>(elements, count);
}

}  // namespace

npy_header parse_npy_header(const std::string& name, std::string_view start, int64_t file_bytes) {
  const auto byte = [&](size_t i) { return static_cast<unsigned char>(start[i]); };
  constexpr std::string_view kMagic = "\x93NUMPY";
  if (start.substr(0, kMagic.size()) != kMagic) throw bad_input(name + ": is not a .npy file");
  if (start.size() < 10) throw bad_input(name + ": ends within its header");
  const int major = byte(6);
  if (major < 1 || major > 3 || byte(7) != 0)
    throw bad_input(fmt::format("{}: has format version {}.{}; 1.0, 2.0 and 3.0 can be read", name, major, byte(7)));
  const size_t text_at = major == 1 ? 10 : 12;
  if (start.size() < text_at) throw bad_input(name + ": ends within its header");
  int64_t length = byte(8) | byte(9) << 8;
  if (major > 1) length |= static_cast<int64_t>(byte(10)) << 16 | static_cast<int64_t>(byte(11)) << 24;

  npy_header header = {};
  header.data_at = static_cast<int64_t>(text_at) + length;
  if (header.data_at > file_bytes) throw bad_input(name + ": ends within its header");
  if (header.data_at > static_cast<int64_t>(start.size()))
    throw bad_input(fmt::format("{}: its header of {} bytes is too long", name, length));

  const entries found = header_parser(name, start.substr(text_at, static_cast<size_t>(length))).parse();
  if (!found.descr || !found.fortran_order || !found.shape)
    throw bad_input(fmt::format("{}: its header lacks '{}'", name,
                                !found.descr           ? "descr"
                                : !found.fortran_order ? "fortran_order"
                                                       : "shape"));
  set_type(name, *found.descr, &header);
  set_shape(name, *found.shape, &header);
  header.fortran = *found.fortran_order;

  int64_t bytes = 0;
  const std::string shape = fmt::format("{} x {} {}", header.rows, header.columns, type_name(header.type));
  if (__builtin_mul_overflow(header.rows, header.columns, &bytes) ||
      __builtin_mul_overflow(bytes, element_bytes(header.type), &bytes))
    throw bad_input(fmt::format("{}: its shape {} is too large", name, shape));
  if (const int64_t has = file_bytes - header.data_at; has != bytes)
    throw bad_input(fmt::format("{}: has {} bytes of data, but {} needs {}", name, has, shape, bytes));
  return header;
}

npy_file::npy_file(const std::string& path) : path_(path), descriptor_(-1), header_() {
  // Without O_NONBLOCK a pipe would keep us waiting for its writer.
  descriptor_ = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (descriptor_ < 0) throw bad_input(fmt::format("{}: cannot be opened: {}", path, std::strerror(errno)));
  try {
    struct stat file = {};
    if (fstat(descriptor_, &file) != 0 || !S_ISREG(file.st_mode)) throw bad_input(path + ": is not a regular file");
    std::string start(static_cast<size_t>(std::min<int64_t>(file.st_size, kNpyLongestHeader)), '\0');
    read_bytes(start.data(), static_cast<int64_t>(start.size()), 0);
    header_ = parse_npy_header(path, start, file.st_size);
  } catch (...) {
    close(descriptor_);
    throw;
  }
}

npy_file::npy_file(npy_file&& other) noexcept
    : path_(std::move(other.path_)), descriptor_(std::exchange(other.descriptor_, -1)), header_(other.header_) {}

npy_file::~npy_file() {
  if (descriptor_ >= 0) close(descriptor_);
}

void npy_file::read_bytes(void* to, int64_t bytes, int64_t at) const {
  for (auto* next = static_cast<char*>(to); bytes > 0;) {
    const ssize_t got = pread(descriptor_, next, static_cast<size_t>(bytes), at);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) throw failed(fmt::format("{}: cannot be read: {}", path_, std::strerror(errno)));
    if (got == 0) throw failed(path_ + ": became shorter while it was read");
    next += got;
    at += got;
    bytes -= got;
  }
}

void npy_file::read(void* elements) const {
  const int64_t rows = header_.rows, columns = header_.columns, size = element_bytes(header_.type);
  if (rows == 0 || columns == 0) return;
  if (header_.fortran || columns == 1 || rows == 1) {
    read_bytes(elements, rows * columns * size, header_.data_at);
  } else {
    const int64_t row_bytes = columns * size;
    const int64_t chunk_rows = std::clamp<int64_t>((1 << 20) / row_bytes, 1, rows);
    std::vector<char> chunk(static_cast<size_t>(chunk_rows * row_bytes));
    for (int64_t first = 0; first < rows; first += chunk_rows) {
      const int64_t count = std::min(chunk_rows, rows - first);
      read_bytes(chunk.data(), count * row_bytes, header_.data_at + first * row_bytes);
      for (int64_t j = 0; j < columns; ++j)
        for (int64_t i = 0; i < count; ++i)
          std::memcpy(static_cast<char*>(elements) + (first + i + j * rows) * size,
                      chunk.data() + i * row_bytes + j * size, static_cast<size_t>(size));
    }
  }
  if (header_.swapped) swap_bytes(header_.type, elements, rows * columns);
}

}  // namespace tev::host
