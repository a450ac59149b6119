// SPDX-License-Identifier: BSD-3-Clause
// Messages, the report of errors and verbose mode: what arrives on the two streams, byte for byte, with and without a
// catalog. Each case is a process of its own.
#include "service/messages.h"

#include "service/xerbla.h"
#include "tests/support/at_once.h"
#include "tests/support/in_child.h"
#include "tests/support/kernel_folder.h"

namespace {

using namespace tev::test;

// A catalog for language de_DE, in a folder that goes away with the test. Message 6 and 1211 are good translations; the
// others do not fit the arguments of their message, or are no message.
class Catalog : public testing::Test {
 protected:
  Catalog() {
    const std::string source =
        folder_.put("de_DE/source",
                    "$set 1\n1 %d\n2 %s\n6 Nummer %d von %s: 100%%\n7 %s %d\n8 %s %n\n9 %1$s\n"
                    "1089 %*s\n1209 %s\n1210 %\n1211 gut\n1212 %ls\n1213 %2147483647d\n1414 x\n");
    const std::string command = "gencat " + folder_.path("de_DE/tev_msg.cat") + " " + source;
    EXPECT_EQ(std::system(command.c_str()), 0) << command;
  }
  environment variables(const char* language) const { return {{"NLSPATH", search_path_.c_str()}, {"LANG", language}}; }

 private:
  const kernel_folder folder_;
  const std::string search_path_ = folder_.path("%L/%N");
};

TEST(Messages, GoToTheirStreamAndEndWithANewline) {
  const child_result seen = in_child({}, [] {
    tev_serv_print(0, 6, 2, 3, "DGEMM");
    for (const int32_t number : {1209, 0, 1210, 1211}) tev_serv_print(number == 1209 ? 7 : 0, number, 0);
    tev_serv_print(1, 1, 1, "a.so");
    tev_serv_print(1, 0, 0);
    close(STDERR_FILENO);  // from here on there is no standard error
    tev_serv_print(1, 1213, 1, 9);
    stderr = nullptr;
    return tev_serv_print(1, 1213, 1, 8);
  });
  EXPECT_EQ(seen.status, 0);
  EXPECT_EQ(seen.err, "Zarik TEV FATAL ERROR: Cannot load a.so.\n\n");
  EXPECT_EQ(seen.out, R"(Zarik TEV ERROR: Parameter 3 was incorrect on entry to DGEMM.
Zarik TEV WARNING: incorrect conditional numerical reproducibility mode, TEV_CBWR_AUTO is set

Zarik TEV FATAL ERROR: This system does not meet the minimum requirements for use of the Zarik(R) Tevalon.
The processor must support the Zarik(R) Streaming SIMD 2 Extensions (Zarik(R) SSE2) instructions.
Zarik TEV ERROR: CPU 9 is not supported.
Zarik TEV ERROR: CPU 8 is not supported.
)");
}

TEST(Messages, DoNotWaitForAThreadThatReads) {
  const auto print_beside_a_reader = [] {
    int ends[2];
    if (pipe(ends) != 0 || dup2(ends[0], STDIN_FILENO) < 0) return;
    std::thread([] { getchar(); }).detach();
    while (ftrylockfile(stdin) == 0) {  // until it reads
      funlockfile(stdin);
      std::this_thread::yield();
    }
    alarm(5);
    printf("before ");  // the program's own text arrives as well
    tev_serv_print(0, 1213, 1, 9);
    _exit(0);
  };
  EXPECT_EQ(printed({}, print_beside_a_reader), "before Zarik TEV ERROR: CPU 9 is not supported.\n");
}

TEST(Messages, WithoutATextAreEmptyAndLongOnesAreCut) {
  const std::string start = "Zarik TEV FATAL ERROR: Cannot load ", text(600, 'x');
  const auto print_all = [&] {
    for (const int32_t number : {INT_MIN, -1, 2, 1413, 1414, INT_MAX}) {
      tev_serv_print(0, number, 0);
      printf("<%s>", tev_serv_get_msg(number, 0));
    }
    printf("<%s><%s>", tev_serv_get_msg(0, 0), tev_serv_get_msg(1213, 0));
    printf("<%s>\n", tev_serv_get_msg(1213, 1, -4));
    tev_serv_print(0, 1, 1, text.c_str());
    tev_serv_format_print(0, "%s", 1, text.c_str());
    tev_serv_format_print(0, "|%d%s\n", 2, 5, "y");
    tev_serv_format_print(0, "unseen %d", 0, 1);
    tev_serv_format_print(0, nullptr, 1, 1);
  };
  EXPECT_EQ(printed({}, print_all),
            "\n<>\n<>\n<>\n<>\n<>\n<><>"
            "<Zarik TEV ERROR: CPU %d is not supported.><Zarik TEV ERROR: CPU -4 is not supported.>\n" +
                start + text.substr(0, 511 - start.size()) + "\n" + text.substr(0, 511) + "|5y\n");
}

TEST_F(Catalog, IsFoundByLanguageWithAndWithoutItsEncoding) {
  const std::string english = "Zarik TEV ERROR: Parameter 2 was incorrect on entry to DTRSM.\n";
  const std::string german = "Nummer 2 von DTRSM: 100%\n", too_long = std::string(60, 'x') + ".UTF-8";
  const auto print = [] {
    tev_serv_print(0, 6, 2, 2, "DTRSM");
    printf("%s\n", getenv("LANG"));
    setenv("LANG", "de_DE", 1);  // too late
    tev_serv_print(0, 6, 2, 2, "DTRSM");
  };
  const std::tuple<std::string, std::string, std::string> rows[] = {{"de_DE", german, "de_DE"},
                                                                    {"de_DE.UTF-8", german, "de_DE"},
                                                                    {"fr_FR.UTF-8", english, "fr_FR"},
                                                                    {"fr_FR@x", english, "fr_FR@x"},
                                                                    {too_long, english, too_long}};
  for (const auto& [language, text, language_after] : rows)
    EXPECT_EQ(printed(variables(language.c_str()), print), text + language_after + "\n" + text);
}

TEST_F(Catalog, TextThatMisusesTheArgumentsIsNotUsed) {
  const auto print_all = [] {
    for (const int32_t number : {1, 8, 9, 1089, 1212}) tev_serv_print(0, number, 1, "text");
    for (const int32_t number : {2, 1209, 1210, 1414}) tev_serv_print(0, number, 0);
    tev_serv_print(0, 7, 2, 5, "text");
    tev_serv_print(0, 1213, 1, 5);
    return tev_serv_print(1, 1211, 0);
  };
  const child_result with = in_child(variables("de_DE"), print_all);
  EXPECT_EQ(with.out, in_child({}, print_all).out);
  EXPECT_EQ(with.err, "gut\n");
}

TEST_F(Catalog, ThreadsMayPrintTheFirstMessagesAtOnce) {
  const auto print = [](int id) {
    const std::string name(id + 1, 'x'), number = std::to_string(id);
    const std::string german = "Nummer " + number + " von " + name + ": 100%";
    const std::string english = "Zarik TEV ERROR: Parameter " + number + " was incorrect on entry to " + name + ".";
    for (int i = 0; i < 100; ++i) {
      const std::string text = tev_serv_get_msg(6, 2, id, name.c_str());
      if (text != german && text != english) abort();
      tev_serv_format_print(0, "%s\n", 1, name.c_str());
    }
  };
  const child_result seen = in_child(variables("de_DE.UTF-8"), [&] {
    at_once(4, print);
    return tev_serv_print(1, 1211, 0);
  });
  EXPECT_EQ(seen.status, 0);
  EXPECT_EQ(seen.err, "gut\n");
  EXPECT_EQ(seen.out.size(), 100 * (2 + 3 + 4 + 5));
}

TEST(Xerbla, ReportsEachKindOfCodeAndAtMostTwentyCharactersOfTheName) {
  const std::string thirty(30, 'N'), twenty(20, 'N');
  const char unterminated[] = {'D', 'T', 'R', 'S', 'M'};
  const struct {
    const char* name;
    int32_t length, code;
    std::string text;
  } rows[] = {{"DSYMM  ", 5, 4, "ERROR: Parameter 4 was incorrect on entry to DSYMM."},
              {unterminated, 5, 1, "ERROR: Parameter 1 was incorrect on entry to DTRSM."},
              {thirty.c_str(), 30, 999, "ERROR: Parameter 999 was incorrect on entry to " + twenty + "."},
              {thirty.c_str(), INT_MAX, 1002, "ERROR: Parameter 1002 was incorrect on entry to " + twenty + "."},
              {"AB", 30, 6, "ERROR: Parameter 6 was incorrect on entry to AB."},
              {"AB", -1, 6, "ERROR: Parameter 6 was incorrect on entry to ."},
              {"AB", 2, -5, "INTERNAL ERROR: Condition 5 detected in function AB."},
              {"AB", 2, 0, "INTERNAL ERROR: Condition 0 detected in function AB."},
              {"AB", 2, INT_MIN, "INTERNAL ERROR: Condition -2147483648 detected in function AB."},
              {"AB", 2, 1000, "INTERNAL ERROR: Insufficient workspace available in function AB."},
              {"AB", 2, 1001, "ERROR: Incompatible optional parameters on entry to AB."},
              {"AB", 2, 1089, "INTERNAL ERROR: Not enough work memory in function AB"},
              {"AB", 2, 1212, "INTERNAL ERROR: Issue accessing coprocessor AB."}};
  for (const auto& row : rows)
    EXPECT_EQ(printed({}, [&row] { tev_serv_xerbla(row.name, &row.code, row.length); }),
              "\nZarik TEV " + row.text + "\n");
}

template <char Letter>
void show(const char* name, const int32_t* info, int32_t length) {
  printf("%c %.*s %d\n", Letter, length, name, *info);
}

TEST(Xerbla, HandlersAreInstalledAndRestored) {
  const auto use_handlers = [] {
    const int32_t code = 3;
    EXPECT_EQ(tev_serv_set_xerbla(nullptr), tev_serv_default_xerbla);
    tev_serv_set_xerbla_interface(show<'a'>);
    tev_serv_set_xerbla_interface(show<'b'>);  // one is installed: no effect
    tev_serv_xerbla("DGEMM", &code, 5);
    tev_serv_xerbla(nullptr, &code, 5);
    tev_serv_xerbla("DGEMM", nullptr, 5);
    EXPECT_EQ(tev_serv_check_ptr(nullptr, "buffers") * 10 + tev_serv_check_ptr(&code, "buffers"), 10);
    EXPECT_EQ(tev_serv_check_ptr_and_warn(nullptr, "x") * 10 + tev_serv_check_ptr_and_warn(&code, "x"), 10);
    EXPECT_EQ(tev_serv_set_xerbla(show<'b'>), show<'a'>);
    tev_serv_xerbla("DGEMM", &code, 5);
    EXPECT_EQ(tev_serv_set_xerbla(nullptr), show<'b'>);
    tev_serv_check_ptr(nullptr, "buffers");
  };
  EXPECT_EQ(printed({}, use_handlers),
            "a DGEMM 3\na buffers 1089\nb DGEMM 3\n"
            "\nZarik TEV INTERNAL ERROR: Not enough work memory in function buffers\n");
}

TEST(Verbose, IsOnForTheNumberOneOnly) {
  const std::string too_long = std::string(127, '0') + "1";
  const auto ask = [] { return *tev_serv_verbose_mode(); };
  for (const char* value : {"1", "0x1", "+1"}) EXPECT_EQ(in_child({{"TEV_VERBOSE", value}}, ask).status, 1) << value;
  for (const char* value : {"", "0", "2", "-1", "1x", "1 ", "on", "4294967297", too_long.c_str()})
    EXPECT_EQ(in_child({{"TEV_VERBOSE", value}}, ask).status, 0) << value;
  EXPECT_EQ(in_child({}, ask).status, 0);
}

TEST(Verbose, ChangesOnlyThroughTheProgram) {
  const auto change = [] {
    at_once(4, [](int) { tev_serv_verbose_mode(); });
    setenv("TEV_VERBOSE", "0", 1);
    for (const int32_t mode : {2, -1, 1, 0, 0, 2, 1}) {
      printf("%d ", tev_serv_verbose(mode));
      printf("%d, ", *tev_serv_verbose_mode());
    }
  };
  EXPECT_EQ(printed({{"TEV_VERBOSE", "1"}}, change), "-1 1, -1 1, 1 1, 0 0, 0 0, -1 0, 1 1, ");
}

}  // namespace
