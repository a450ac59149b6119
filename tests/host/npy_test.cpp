// SPDX-License-Identifier: BSD-3-Clause
// Matrix files, headers written by hand as NumPy writes them. (tests/fuzz/npy_reader.cpp cuts and changes them.)
//   Reads      versions x byte orders x storage orders x types: the same matrix each time
//   Refuses    every kind of wrong file, each with one line that names the file and the reason
//   Writes     what is read back; nothing is left or changed when it fails or is interrupted
#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <filesystem>
#include <fstream>

#include "host/failure.h"
#include "host/npy.h"
#include "host/replacement_file.h"
#include "tests/support/in_child.h"

namespace tev::host {
namespace {

namespace fs = std::filesystem;

class Npy : public testing::Test {
 protected:
  void SetUp() override {
    char name[] = "/tmp/tev_npy_XXXXXX";
    ASSERT_NE(mkdtemp(name), nullptr);
    folder_ = name;
  }
  void TearDown() override { fs::remove_all(folder_); }

  std::string path(const char* name = "x.npy") const { return (folder_ / name).string(); }

  std::string write(const std::string& bytes) const {
    std::ofstream(path(), std::ios::binary) << bytes;
    return path();
  }

  size_t files() const { return static_cast<size_t>(std::distance(fs::directory_iterator(folder_), {})); }

  fs::path folder_;
};

std::string with_header(int version, const std::string& text, const std::string& data) {
  std::string bytes = "\x93NUMPY";
  bytes +=
      {static_cast<char>(version), '\0', static_cast<char>(text.size() & 255), static_cast<char>(text.size() >> 8)};
  if (version > 1) bytes += {'\0', '\0'};
  return bytes + text + data;
}

std::string dictionary(const std::string& descr, const std::string& order, const std::string& shape) {
  return "{'descr': '" + descr + "', 'fortran_order': " + order + ", 'shape': " + shape + ", }   \n";
}

template <class R>
std::string number(R x, bool big) {
  std::string bytes(reinterpret_cast<const char*>(&x), sizeof(x));
  return big ? std::string(bytes.rbegin(), bytes.rend()) : bytes;
}

// Element (i, j) is 10 i + j, complex ones have -1 as imaginary part.
template <class R>
std::string matrix_data(int64_t rows, int64_t columns, bool fortran, bool big, bool with_imaginary) {
  std::string data;
  for (int64_t q = 0; q < rows * columns; ++q) {
    const int64_t i = fortran ? q % rows : q / columns, j = fortran ? q / rows : q % columns;
    data += number(static_cast<R>(10 * i + j), big);
    if (with_imaginary) data += number(R(-1), big);
  }
  return data;
}

template <class R>
void expect_elements(const npy_file& file, const std::string& what) {
  const int64_t parts = is_complex(file.type()) ? 2 : 1;
  std::vector<R> elements(file.rows() * file.columns() * parts);
  file.read(elements.data());
  for (int64_t j = 0; j < file.columns(); ++j)
    for (int64_t i = 0; i < file.rows(); ++i) {
      const R* x = &elements[(i + j * file.rows()) * parts];
      ASSERT_EQ(x[0], static_cast<R>(10 * i + j)) << what << " (" << i << ", " << j << ")";
      if (parts == 2) ASSERT_EQ(x[1], R(-1)) << what << " (" << i << ", " << j << ")";
    }
}

TEST_F(Npy, ReadsEveryLayout) {
  constexpr const char* kCodes[] = {"f4", "f8", "c8", "c16"};
  for (int version = 1; version <= 3; ++version)
    for (const bool big : {false, true})
      for (const bool fortran : {false, true})
        for (const precision type : {precision::s, precision::d, precision::c, precision::z}) {
          const std::string descr = (big ? ">" : "<") + std::string(kCodes[static_cast<int>(type)]);
          const bool narrow = type == precision::s || type == precision::c;
          const std::string data = narrow ? matrix_data<float>(3, 4, fortran, big, is_complex(type))
                                          : matrix_data<double>(3, 4, fortran, big, is_complex(type));
          const npy_file file(
              write(with_header(version, dictionary(descr, fortran ? "True" : "False", "(3, 4)"), data)));
          EXPECT_EQ(file.type(), type);
          EXPECT_EQ(file.rows(), 3);
          EXPECT_EQ(file.columns(), 4);
          const std::string what = descr + " version " + std::to_string(version);
          narrow ? expect_elements<float>(file, what) : expect_elements<double>(file, what);
        }
}

TEST_F(Npy, ReadsLargeRowsInPieces) {  // C order, several pieces, the last one shorter; then rows longer than a piece
  for (const auto& [rows, columns] : {std::pair{1000, 333}, std::pair{2, 150000}}) {
    const std::string shape = "(" + std::to_string(rows) + ", " + std::to_string(columns) + ")";
    expect_elements<double>(npy_file(write(with_header(1, dictionary("<f8", "False", shape),
                                                       matrix_data<double>(rows, columns, false, false, false)))),
                            shape);
  }
}

TEST_F(Npy, ReadsColumnsEmptyOnesAndOtherSpellings) {
  const npy_file column(write(with_header(1, dictionary("<f8", "False", "(3,)"), std::string(24, '\0'))));
  EXPECT_EQ(column.rows(), 3);
  EXPECT_EQ(column.columns(), 1);
  EXPECT_EQ(npy_file(write(with_header(1, dictionary("<f8", "False", "(0, 5)"), ""))).columns(), 5);
  const std::string spelt = "{\"shape\":(1,2),\"fortran_order\":False,\"descr\":\"=f4\"}\n";
  EXPECT_EQ(npy_file(write(with_header(2, spelt, std::string(8, '\0')))).columns(), 2);
}

TEST_F(Npy, RefusesWithTheReason) {
  const std::string eight(8, '\0');
  const struct {
    std::string bytes, reason;
  } rows[] = {
      {"", "is not a .npy file"},
      {"PK\x03\x04 an archive", "is not a .npy file"},
      {"\x93NUMPY\x01", "ends within its header"},
      {with_header(4, dictionary("<f8", "True", "(1, 1)"), eight), "format version 4.0"},
      {with_header(1, dictionary("<i8", "True", "(1, 1)"), eight), "holds '<i8'"},
      {with_header(1, dictionary("f8", "True", "(1, 1)"), eight), "holds 'f8'"},
      {with_header(1, dictionary("|O", "True", "(1, 1)"), eight), "Python objects"},
      {with_header(1, "{'descr': [('a', '<f8')], 'fortran_order': True, 'shape': (1,)}", eight), "holds records"},
      {with_header(1, dictionary("<f8", "true", "(1, 1)"), eight), "not the dictionary"},
      {with_header(1, dictionary("<f8", "True", "(1, 1") + "#", eight), "not the dictionary"},
      {with_header(1, dictionary("<f8", "True", "(1, 1)") + "{}", eight), "not the dictionary"},
      {with_header(1, "{'descr': '<f8', 'shape': (1, 1)}", eight), "lacks 'fortran_order'"},
      {with_header(1, "{'descr': '<f8', 'descr': '<f8'}", eight), "'descr' too many"},
      {with_header(1, "{'descr': '<f8', 'other': '<f8'}", eight), "'other' too many"},
      {with_header(1, dictionary("<f8", "True", "()"), eight), "0 dimensions"},
      {with_header(1, dictionary("<f8", "True", "(1, 1, 1)"), eight), "3 dimensions"},
      {with_header(1, dictionary("<f8", "True", "(-1, -1)"), eight), "negative"},
      {with_header(1, dictionary("<f8", "True", "(4294967296, 4294967296)"), eight), "too large"},
      {with_header(1, dictionary("<f8", "True", "(2305843009213693952, 1)"), eight), "too large"},
      {with_header(1, dictionary("<f8", "True", "(99999999999999999999, 1)"), eight), "too large"},
      {with_header(1, dictionary("<f8", "True", "(1, 2)"), eight), "has 8 bytes of data, but 1 x 2 float64 needs 16"},
      {with_header(1, dictionary("<f8", "True", "(0, 1)"), eight), "has 8 bytes of data, but 0 x 1 float64 needs 0"},
      {with_header(3, std::string(65535, ' '), eight), "header of 65535 bytes is too long"},
      {with_header(1, std::string(70, '('), eight), "not the dictionary"}};
  const auto expect_refusal = [](const std::string& file, const std::string& reason) {
    try {
      npy_file{file};
      ADD_FAILURE() << "took " << file << ", which " << reason;
    } catch (const failure& e) {
      EXPECT_EQ(e.status(), kBadInput);
      const std::string line = e.what();
      EXPECT_EQ(line.rfind(file + ": ", 0), 0u) << line;
      EXPECT_NE(line.find(reason), line.npos) << line << "\n  should say: " << reason;
    }
  };
  for (const auto& row : rows) expect_refusal(write(row.bytes), row.reason);
  expect_refusal(path("none.npy"), "No such file");
  expect_refusal(folder_.string(), "is not a regular file");
  ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
  expect_refusal(path("pipe"), "is not a regular file");
}

TEST_F(Npy, WritesWhatItReads) {
  for (const precision type : {precision::s, precision::d, precision::c, precision::z}) {
    std::vector<char> data(5 * 7 * element_bytes(type)), back(data.size());
    for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<char>(i * 37);
    write_npy(path(), type, data.data(), 5, 7);
    const npy_file file(path());
    EXPECT_EQ(file.type(), type);
    EXPECT_EQ(file.rows(), 5);
    EXPECT_EQ(file.columns(), 7);
    file.read(back.data());
    EXPECT_EQ(back, data);
    EXPECT_EQ((fs::file_size(path()) - data.size()) % 64, 0u);
    EXPECT_EQ(files(), 1u);
  }
}

TEST_F(Npy, FailedWriteLeavesNothing) {
  const double one = 1;
  fs::create_symlink("nothing", path("link"));
  for (const std::string& bad : {path("none/x.npy"), folder_.string(), folder_.string() + "/", path("link")})
    EXPECT_THROW(write_npy(bad, precision::d, &one, 1, 1), failure) << bad;
  fs::remove(path("link"));

  write_npy(path(), precision::d, &one, 1, 1);
  rlimit before = {};
  getrlimit(RLIMIT_FSIZE, &before);
  const rlimit small = {1000, before.rlim_max};
  const auto handler = std::signal(SIGXFSZ, SIG_IGN);
  setrlimit(RLIMIT_FSIZE, &small);
  const std::vector<double> many(1000, 2);
  EXPECT_THROW(write_npy(path(), precision::d, many.data(), 1000, 1), failure);
  setrlimit(RLIMIT_FSIZE, &before);
  std::signal(SIGXFSZ, handler);

  EXPECT_EQ(files(), 1u);
  double kept = 0;
  npy_file(path()).read(&kept);
  EXPECT_EQ(kept, 1);
}

TEST_F(Npy, ReplacingKeepsPermissionsAndFollowsLinks) {
  const double one = 1;
  fs::create_symlink("x.npy", path("link"));
  write(std::string("before"));
  for (const auto mode : {0600, 0666, 0440}) {  // the second is more than the usual umask allows
    fs::permissions(path(), static_cast<fs::perms>(mode));
    write_npy(path("link"), precision::d, &one, 1, 1);
    EXPECT_EQ(static_cast<int>(fs::status(path()).permissions()), mode);
    EXPECT_TRUE(fs::is_symlink(path("link")));
    EXPECT_EQ(npy_file(path()).rows(), 1);
  }
}

// From here on this process finds no file system that can make files without a name.
void forbid_nameless_files() {
  const sock_filter program[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_openat, 0, 3),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args[2])),
      BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, O_TMPFILE & ~O_DIRECTORY, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EOPNOTSUPP),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  const sock_fprog filter = {std::size(program), const_cast<sock_filter*>(program)};
  prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
  ASSERT_EQ(prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter), 0);
}

TEST_F(Npy, InterruptedWriteLeavesNothing) {
  const struct {
    bool nameless;
    int signal;
  } rows[] = {{true, SIGKILL}, {true, SIGINT}, {false, SIGHUP}, {false, SIGINT}, {false, SIGQUIT}, {false, SIGTERM}};
  for (const auto& row : rows) {
    const auto child = test::in_child({}, [&] {
      if (!row.nameless) forbid_nameless_files();
      replacement_file file(path());
      file.write("some", 4);
      std::printf("%zu", files());
      std::fflush(stdout);
      raise(row.signal);
      return 0;
    });
    EXPECT_EQ(child.status, 1000 + row.signal);
    EXPECT_EQ(child.out, row.nameless ? "0" : "1");
    EXPECT_EQ(files(), 0u);
  }
}

TEST_F(Npy, WritesWithoutNamelessFilesToo) {
  const auto child = test::in_child({}, [&] {
    forbid_nameless_files();
    const double two = 2;
    write_npy(path(), precision::d, &two, 1, 1);
    return 0;
  });
  EXPECT_EQ(child.status, 0) << child.err;
  EXPECT_EQ(files(), 1u);
  EXPECT_EQ(npy_file(path()).rows(), 1);
}

}  // namespace
}  // namespace tev::host
