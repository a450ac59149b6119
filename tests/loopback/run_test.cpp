// SPDX-License-Identifier: BSD-3-Clause
// What a host can ask of a sink that behaves: calls, buffers, completions, and how bad requests are refused.
#include <dlfcn.h>
#include <fcntl.h>

#include "loopback/protocol.h"
#include "tests/loopback/fixture.h"

namespace {

using namespace loopback_test;
using Service = Loopback;

TEST_F(Service, MiscAndResultTravelBackAtEverySize) {
  for (const size_t size : {0, 1, 63, 64, 65, 32320, 65534, 65535}) {
    std::string misc(size, 'a');
    for (size_t i = 0; i < size; ++i) misc[i] = static_cast<char>(i * 31 % 100);
    std::string changed = misc;
    for (char& c : changed) ++c;
    const outcome o = call(process, "test_echo", misc, size);
    ASSERT_EQ(VRO_OK, o.code) << o.error;
    EXPECT_TRUE(o.misc == changed && o.result == misc) << size;
    const outcome clean = call(process, "test_clean", misc.substr(0, size / 2), 2 + size / 3);
    EXPECT_EQ(std::string("\1\1"), clean.result.substr(0, 2)) << "left over from " << size;
  }
}

TEST_F(Service, BuffersAreOneMemoryOnBothSides) {
  std::vector<vro_buffer*> buffers;
  std::string lengths;
  for (uint64_t i = 0; i < VRO_MAX_BUFFERS; ++i) {
    vro_buffer* b = nullptr;
    const uint64_t bytes = i % 7 * 4096 + i + 1;
    ASSERT_EQ(VRO_OK, vro_buffer_create(process, bytes, &b));
    EXPECT_EQ(bytes, vro_buffer_size(b));
    lengths += bytes_of(bytes);
    std::memset(vro_buffer_map(b), static_cast<int>(i), bytes);
    buffers.push_back(b);
  }
  const outcome o = call(process, "test_touch", "", lengths.size(), buffers);
  ASSERT_EQ(VRO_OK, o.code) << o.error;
  EXPECT_EQ(lengths, o.result);
  for (size_t i = 0; i < buffers.size(); ++i) {
    const auto* bytes = static_cast<unsigned char*>(vro_buffer_map(buffers[i]));
    EXPECT_EQ(i + 1, bytes[0]);
    EXPECT_EQ(i + 1, bytes[vro_buffer_size(buffers[i]) - 1]);
  }
  // One buffer twice in a call; destroyed while a call that uses it is under way: the sink's mapping outlives the call.
  vro_completion* slow = start(process, "test_sleep", bytes_of(50));
  vro_completion* twice = start(process, "test_touch", "", 0, {buffers[0], buffers[1], buffers[0]});
  EXPECT_EQ(VRO_OK, vro_buffer_destroy(buffers[0]));
  EXPECT_EQ(VRO_OK, finish(slow, 0, 0).code);
  EXPECT_EQ(VRO_OK, finish(twice, 0, 0).code);
  EXPECT_EQ(VRO_INVALID, call(process, "test_touch", "", 0, {buffers[0]}).code);
}

TEST_F(Service, BadRequestsAreRefusedAndTheSinkGoesOnServing) {
  vro_process* other = start_sink();
  vro_buffer *foreign = nullptr, *own = nullptr;
  ASSERT_EQ(VRO_OK, vro_buffer_create(other, 10, &foreign));
  ASSERT_EQ(VRO_OK, vro_buffer_create(process, 10, &own));
  const auto refused = [&](const outcome& o, const char* text) {
    EXPECT_EQ(VRO_INVALID, o.code);
    EXPECT_NE(std::string::npos, o.error.find(text)) << o.error;
  };
  refused(call(process, "test_nothing"), "refused 'test_nothing': it has no such function");
  refused(call(process, "test_data"), "no such function");
  refused(call(process, "environ"), "no such function");
  refused(call(process, "errno"), "no such function");
  refused(call(process, "_ZTVN10__cxxabiv120__si_class_type_infoE"), "no such function");
  refused(call(process, ""), "name has 1 to 255 bytes");
  refused(call(process, std::string(256, 'x').c_str()), "name has 1 to 255 bytes");
  refused(call(process, std::string(255, 'x').c_str()), "no such function");
  refused(call(process, "test_empty", std::string(65536, 'x')), "65536 bytes of miscellaneous data are more");
  refused(call(process, "test_empty", "", 65536), "65536 bytes of return value are more");
  refused(call(process, "test_empty", "", 0, std::vector<vro_buffer*>(128, own)), "128 buffers are more");
  refused(call(process, "test_empty", "", 0, {own, own, foreign}), "buffers[2] belongs to another sink");
  refused(call(process, "test_empty", "", 0, {nullptr}), "buffers[0] is no buffer");
  vro_buffer* none = own;
  EXPECT_EQ(VRO_INVALID, vro_buffer_create(process, 0, &none));
  EXPECT_EQ(VRO_INVALID, vro_buffer_create(process, ~size_t{0}, &none));
  EXPECT_EQ(VRO_SYSTEM, vro_buffer_create(process, size_t{1} << 62, &none)) << vro_last_error();
  EXPECT_EQ(nullptr, none);
  EXPECT_EQ(VRO_OK, call(process, "test_touch", "", 0, {own}).code);
  EXPECT_EQ(VRO_OK, vro_process_shutdown(other, kWaitMs));
}

TEST_F(Service, TextOfTheSinkIsMadePrintable) {
  const std::string text = "\x1b[2J\n\x7f \x9b \xc2\x9b \xe0\x82\x9b \xc3\xa9 \xe2\x82\xac \xc3";
  const vro::reply_header header = {
      vro::kMagic, vro::kVersion, vro::kRefused, 1, 0, 0, static_cast<uint16_t>(text.size()), 0};
  EXPECT_EQ("the sink refused 'test_send': ?[2J?? ? ?? ??? \xc3\xa9 \xe2\x82\xac ?",
            call(process, "test_send", bytes_of(header) + text).error);
}

TEST_F(Service, BufferThatTheSinkCannotMapFailsTheCallThatUsesIt) {
  ASSERT_EQ(VRO_OK, call(process, "test_few_descriptors", bytes_of(3)).code);
  vro_buffer* b = nullptr;
  ASSERT_EQ(VRO_OK, vro_buffer_create(process, 10, &b));
  const outcome o = call(process, "test_touch", "", 0, {b});
  EXPECT_EQ(VRO_INVALID, o.code);
  EXPECT_NE(std::string::npos, o.error.find("buffers[0] could not be mapped there: no descriptor")) << o.error;
  EXPECT_EQ(VRO_OK, call(process, "test_few_descriptors", bytes_of(256)).code);
}

TEST_F(Service, ThousandsOfCallsStayInOrderWhileBothDirectionsAreFull) {
  const std::string misc(60000, 'm');
  std::vector<vro_completion*> completions;
  for (uint64_t i = 0; i < 3000; ++i) {
    vro_completion* c = start(process, "test_count", i % 10 ? "" : misc, i % 10 ? 8 : 60000);
    ASSERT_TRUE(c) << vro_last_error();
    if (i % 3 == 2)
      vro_completion_release(c);  // the call runs all the same
    else
      completions.push_back(c);
  }
  uint64_t i = 0;
  for (vro_completion* c : completions) {
    const outcome o = finish(c, 0, 8);
    ASSERT_EQ(i, value_of<uint64_t>(o.result)) << o.error;
    i += i % 3 == 1 ? 2 : 1;
  }
}

TEST_F(Service, ThreadsShareOneSink) {
  std::atomic<int> wrong = 0;
  std::vector<std::thread> threads;
  for (int t = 0; t < 6; ++t)
    threads.emplace_back([&, t] {
      for (int i = 0; i < 150; ++i) {
        const std::string misc(static_cast<size_t>(1 + (i * 977 + t * 131) % 65535), static_cast<char>('a' + t));
        vro_buffer* b = nullptr;
        if (i % 10 == 0) vro_buffer_create(process, 100, &b);
        const outcome o =
            call(process, "test_echo", misc, misc.size(), b ? std::vector{b} : std::vector<vro_buffer*>{});
        wrong += o.code != VRO_OK || o.result != misc;
        vro_buffer_destroy(b);
        wrong += call(process, "test_no_such").code != VRO_INVALID;
      }
    });
  for (std::thread& t : threads) t.join();
  EXPECT_EQ(0, wrong);
}

TEST_F(Service, TimeOuts) {
  vro_completion* c = start(process, "test_sleep", bytes_of(400));
  const auto begin = steady::now();
  EXPECT_EQ(VRO_TIMEOUT, vro_completion_wait(c, 0));
  EXPECT_LT(seconds_since(begin), 0.1);
  EXPECT_EQ(VRO_TIMEOUT, vro_completion_wait(c, 60));
  EXPECT_GE(seconds_since(begin), 0.06);
  EXPECT_EQ(nullptr, vro_completion_misc(c));
  std::thread follower([&] {
    vro_completion* second = start(process, "test_empty");
    EXPECT_EQ(VRO_TIMEOUT, vro_completion_wait(second, 20));
    EXPECT_EQ(VRO_OK, finish(second, 0, 0, -1).code);
  });
  EXPECT_EQ(VRO_OK, finish(c, 4, 0, -1).code);
  follower.join();
  EXPECT_GE(seconds_since(begin), 0.35);
}

TEST_F(Service, SinkGetsItsEnvironmentLibraryPathAndOutput) {
  int ends[2];
  ASSERT_EQ(0, pipe2(ends, O_CLOEXEC));
  const char* environment[] = {"LD_LIBRARY_PATH=/b", "COLOUR=blue", "VRO_CHANNEL=0", nullptr};
  vro_process* p = start_sink(ends[1], "/a/x:/a/y", environment);
  close(ends[1]);
  ASSERT_TRUE(p) << vro_last_error();
  const auto environment_of = [&](const char* name) {
    return std::string(call(p, "test_environment", std::string(name) + '\0', 64).result.c_str());
  };
  EXPECT_EQ("/a/x:/a/y:/b", environment_of("LD_LIBRARY_PATH"));
  EXPECT_EQ("blue", environment_of("COLOUR"));
  EXPECT_EQ("(unset)", environment_of("VRO_CHANNEL"));
  EXPECT_EQ("(unset)", environment_of("PATH"));
  EXPECT_EQ(VRO_OK, call(p, "test_print").code);
  char text[64] = {};
  EXPECT_EQ(20, read(ends[0], text, sizeof(text)));
  EXPECT_STREQ("hello from the sink\n", text);
  close(ends[0]);
  EXPECT_EQ(VRO_OK, vro_process_shutdown(p, kWaitMs));
}

TEST_F(Service, SinkLoadsLibraries) {
  Dl_info info;
  ASSERT_NE(0, dladdr(reinterpret_cast<void*>(&vro_last_error), &info));
  const std::string file = info.dli_fname, folder = file.substr(0, file.rfind('/')),
                    name = file.substr(folder.size() + 1);
  const auto load = [&](const std::string& a, const std::string& b, const std::string& path) {
    return std::string(call(process, "test_load", a + '\0' + b + '\0' + path + '\0', 32).result.c_str());
  };
  EXPECT_EQ("loaded", load(file, "", ""));
  EXPECT_EQ("loaded", load("nowhere.so", name, "/nowhere::" + folder + ":"));
  EXPECT_EQ("not found", load("nowhere.so", "nowhere.so", "/nowhere:" + folder));
  EXPECT_EQ("not found", load("", "", folder));
}

}  // namespace
