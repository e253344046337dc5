// The debug log: lines read back through a capturing sink, from one thread and many.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "core/debug_log.h"
#include "test_support.h"

namespace Vantyx {
namespace {

using Lines = std::vector<std::string>;

TEST(DebugLog, LinesAsComposed) {
  {
    test::LogCapture capture;
    EXPECT_EQ(DebugLog("value %d of %s", 7, "x"), 12);  // the message's length
    EXPECT_EQ(DebugLog("already ends\n"), 13);          // its own line feed included
    EXPECT_EQ(DebugLog("%s", ""), 0);
    LogStageFailure("total process", static_cast<int32_t>(0x80070057u));
    EXPECT_EQ(capture.Lines(), (Lines{"[VNTX] value 7 of x\n", "[VNTX] already ends\n", "[VNTX] \n",
                                      "[VNTX] [Vantyx](total process) - Return Code: 80070057\n"}));
  }
  test::LogCapture second;  // a fresh capture sees only its own lines
  // A long message is cut to the 4096-byte buffer with its terminator, still one line feed.
  const std::string big(10000, 'a');
  EXPECT_EQ(DebugLog("%s", big.c_str()), 10000);  // the formatted length, as printf counts it
  const Lines lines = second.Lines();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].size(), 4095u);
  EXPECT_EQ(lines[0].compare(0, 8, "[VNTX] a"), 0);
  EXPECT_EQ(lines[0].find('\n'), 4094u);
}

TEST(DebugLog, ManyThreadsWholeLines) {
  test::LogCapture capture;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([t] {
      for (int i = 0; i < 50; ++i) DebugLog("thread %d line %d", t, i);
    });
  for (auto& th : threads) th.join();
  const Lines lines = capture.Lines();
  ASSERT_EQ(lines.size(), 200u);
  for (const auto& l : lines) {
    EXPECT_EQ(l.compare(0, 14, "[VNTX] thread "), 0) << l;
    EXPECT_EQ(l.find('\n'), l.size() - 1) << l;
  }
}

}  // namespace
}  // namespace Vantyx
