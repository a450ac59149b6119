// SPDX-License-Identifier: BSD-3-Clause
// The bounded reader of variables, and what each form of the thread variables sets.
#include "service/environment.h"

#include "service/threads.h"
#include "tests/support/in_child.h"

namespace {

using namespace tev::test;

TEST(Environment, ValueIsCopiedWholeOrNotAtAll) {
  const std::tuple<size_t, int32_t, int32_t> rows[] = {
      {3, 4, 3},          {4, 4, -4},         {0, 1, 0},           {1, 1, -1},          {3, 0, -3},         {3, -5, -3},
      {4095, 4096, 4095}, {4095, 5000, 4095}, {4096, 4096, -4096}, {4096, 5000, -4096}, {5000, 6000, -4096}};
  for (const auto& [characters, size, result] : rows) {
    SCOPED_TRACE(testing::Message() << characters << " characters into " << size);
    const std::string value(characters, 'v');
    setenv("TEV_ANY", value.c_str(), 1);
    std::string buffer(8192, '#');
    EXPECT_EQ(tev_serv_getenv("TEV_ANY", buffer.data(), size), result);
    const std::string expected = size < 1 ? "#" : (result > 0 ? value : "") + '\0';
    EXPECT_EQ(buffer.substr(0, expected.size()), expected);
    EXPECT_EQ(buffer[static_cast<size_t>(std::max(size, 0))], '#');
  }
  unsetenv("TEV_ANY");
  char text[] = "before";
  EXPECT_EQ(tev_serv_getenv("TEV_ANY", text, sizeof text), 0);
  EXPECT_STREQ(text, "");
}

TEST(Environment, ModeLetsOnlyPathsAndLocalePass) {
  environment variables;
  for (const char* name : {"ZEL_LD_LIBRARY_PATH", "LD_LIBRARY_PATH", "TEVROOT", "LANG", "TEV_MPI_PPN", "LANGUAGE"})
    variables.emplace_back(name, "/x");
  for (const int32_t mode : {-1, 0, 1, 2}) {
    const auto read = [&] {
      tev_serv_set_envmode_variable(mode);
      EXPECT_EQ(tev_serv_get_envmode_variable(), mode);
      for (const auto& variable : variables) {
        char buffer[8] = "before";
        const int32_t length = tev_serv_getenv(variable.first, buffer, sizeof buffer);
        printf("%d%s ", length, buffer);
      }
    };
    EXPECT_EQ(printed(variables, read), mode < 1 ? "2/x 2/x 2/x 2/x 2/x 2/x " : "2/x 2/x 2/x 2/x 0 0 ") << mode;
  }
}

// What is not as an empty environment makes it.
void print_settings() {
  const std::tuple<const char*, int32_t, int32_t> rows[] = {{"all", __tev_num_threads, -1},
                                                            {"blas", __tev_blas_num_threads, -1},
                                                            {"fft", __tev_fft_num_threads, -1},
                                                            {"vort", __tev_vort_num_threads, -1},
                                                            {"pardiso", __tev_pardiso_num_threads, -1},
                                                            {"stripes", __tev_num_stripes, -1},
                                                            {"dynamic", __tev_dynamic, 1},
                                                            {"omp", __omp_num_threads, -1},
                                                            {"ppn", __tev_mpi_ppn, -1},
                                                            {"level", __tev_mpi_thread_level, -1}};
  for (const auto& [name, value, usual] : rows)
    if (value != usual) printf("%s=%d ", name, value);
}

TEST(Environment, ThreadVariablesInEveryForm) {
  constexpr const char *kDomains = "TEV_DOMAIN_NUM_THREADS", *kNode = "Z_MPI_NUMBER_OF_MPI_PROCESSES_PER_NODE";
  const std::string too_long(256, '1');
  const std::pair<environment, const char*> rows[] = {
      {{{"TEV_NUM_THREADS", "007"}, {"OMP_NUM_THREADS", "6"}, {"Z_MPI_THREAD_LEVEL", "3"}}, "all=7 omp=6 level=3 "},
      {{{"TEV_NUM_THREADS", "abc"}, {"OMP_NUM_THREADS", "6,2"}, {"Z_MPI_THREAD_LEVEL", "x"}}, "all=1 omp=1 level=0 "},
      {{{"TEV_NUM_THREADS", " 4"}, {"OMP_NUM_THREADS", "+4"}, {"Z_MPI_THREAD_LEVEL", "4"}}, "all=1 omp=1 level=0 "},
      {{{"TEV_NUM_THREADS", "0"}, {"OMP_NUM_THREADS", "0"}, {"TEV_NUM_STRIPES", "0"}}, "stripes=0 "},
      {{{"TEV_NUM_THREADS", ""}, {"TEV_NUM_STRIPES", "-3"}, {"TEV_DYNAMIC", ""}}, ""},
      {{{"TEV_NUM_THREADS", "4294967299"}, {"TEV_NUM_STRIPES", "2147483648"}}, "all=3 "},  // cut to 32 bits
      {{{"TEV_NUM_THREADS", too_long.c_str()}, {"TEV_NUM_STRIPES", "3"}}, "stripes=3 "},

      {{{kDomains, "TEV_DOMAIN_ALL=4, TEV_DOMAIN_BLAS=8"}, {"TEV_NUM_THREADS", "2"}}, "all=2 blas=8 "},
      {{{kDomains, "TEV_DOMAIN_FFT=2;TEV_DOMAIN_VORT 3:TEV_DOMAIN_PARDISO = 5"}}, "fft=2 vort=3 pardiso=5 "},
      {{{kDomains, "\"TEV_DOMAIN_BLAS==8\",'TEV_DOMAIN_FFT=2'"}}, "blas=8 fft=2 "},
      {{{kDomains, "TEV_DOMAIN_FFT'8' TEV_DOMAIN_BLAS"}}, "blas=1 fft=1 "},
      {{{kDomains, "TEV_DOMAIN_BLAS=4x TEV_DOMAIN_FFT=-2 TEV_DOMAIN_ALL="}}, "all=1 blas=1 fft=1 "},
      {{{kDomains, "TEV_DOMAIN_BLAS=0,TEV_DOMAIN_BLAS=6,TEV_DOMAIN_BLAS=7"}}, "blas=6 "},
      {{{kDomains, "FOO=3 tev_domain_all=3 TEV_DOMAIN_ALLX=3 TEV_DOMAIN_VORT,=3;TEV_DOMAIN_FFT=2"}}, "fft=2 "},
      {{{kDomains, "TEV_DOMAIN_FFT=2,=5,TEV_DOMAIN_BLAS=3"}}, "fft=2 "},  // an empty name ends the list

      {{{"TEV_DYNAMIC", "FALSE"}}, "dynamic=0 "},
      {{{"TEV_DYNAMIC", " \"'false' x"}}, "dynamic=0 "},
      {{{"TEV_DYNAMIC", "False"}}, ""},
      {{{"TEV_DYNAMIC", "FALSE,"}}, ""},
      {{{"TEV_DYNAMIC", "0"}}, ""},

      {{{"TEV_MPI_PPN", "3"}, {kNode, "5"}}, "ppn=3 "},
      {{{"TEV_MPI_PPN", "0"}, {kNode, "5"}, {"Z_MPI_PIN_MAPPING", "4:0"}}, "ppn=5 "},
      {{{kNode, "-5"}, {"Z_MPI_PIN_MAPPING", "4:0 0,1 12"}, {"MPI_LOCALNRANKS", "7"}}, "ppn=4 "},
      {{{kNode, "5 "}, {"Z_MPI_PIN_MAPPING", "4"}, {"OMPI_COMM_WORLD_LOCAL_SIZE", "6"}}, "ppn=6 "},
      {{{"Z_MPI_PIN_MAPPING", ":4"}, {"OMPI_COMM_WORLD_LOCAL_SIZE", "4294967300"}, {"MPI_LOCALNRANKS", "7"}}, "ppn=7 "},
      {{{"MPI_LOCALNRANKS", "x"}}, ""},
  };
  const auto read = [] {
    tev_read_threads_env();
    print_settings();
  };
  for (const auto& [variables, settings] : rows)
    EXPECT_EQ(printed(variables, read), settings) << variables[0].first << '=' << variables[0].second;
}

TEST(Environment, ProgramsSettingsWin) {
  const environment variables = {{"TEV_NUM_THREADS", "2"},
                                 {"TEV_NUM_STRIPES", "2"},
                                 {"TEV_DYNAMIC", "true"},
                                 {"TEV_DOMAIN_NUM_THREADS", "TEV_DOMAIN_ALL=3 TEV_DOMAIN_BLAS=3 TEV_DOMAIN_FFT=3"}};
  const auto set = [] {
    tev_serv_set_num_threads(6);
    tev_serv_set_num_stripes(0);
    tev_serv_set_dynamic(0);
    tev_serv_domain_set_num_threads(0, TEV_DOMAIN_BLAS);
    printf("%d %d %d ", tev_serv_get_max_threads(), tev_serv_get_num_stripes(), tev_serv_get_dynamic());
    print_settings();
  };
  EXPECT_EQ(printed(variables, set), "6 0 0 all=6 blas=0 fft=3 stripes=0 dynamic=0 ");
  EXPECT_EQ(tev_serv_libc_is_static(), 0);
}

}  // namespace
