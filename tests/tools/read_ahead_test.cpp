// Work ahead of its use: whatever the threads do, the same pieces come and the same failure is told.
#include "read_ahead.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <random>

#include "picture.h"

namespace tool {
namespace {

TEST(ReadAhead, TellsTheFirstFailureAndKeepsTheOrder) {
  std::mt19937 random(5);
  for (int32_t round = 0; round < 200; ++round) {
    const bool second = round % 4 != 0, anyOrder = round % 2 != 0;
    const size_t end = 1 + random() % 10, bad = random() % 12, alsoBad = bad + random() % 3;
    std::vector<int32_t> waits;
    for (size_t i = 0; i < end; ++i) waits.push_back(static_cast<int32_t>(random() % 100));
    std::vector<int32_t> results(end, 0);  // written by whoever works, read when waited for
    std::atomic<int32_t> atOnce = 0, most = 0;
    std::string told;
    {
      ReadAhead ahead(1, end, second, anyOrder, [&](size_t index) {
        const int32_t now = ++atOnce;
        if (now > most) most = now;
        std::this_thread::sleep_for(std::chrono::microseconds(waits[index]));
        --atOnce;
        if (index == bad || index == alsoBad) throw Error("piece " + std::to_string(index));
        ++results[index];
      });
      try {
        for (size_t i = 1; i < end; ++i) {
          ahead.wait(i);
          EXPECT_EQ(results[i], 1);
        }
      } catch (const Error& error) {
        told = error.what();
      }
    }
    const size_t first = bad > 0 ? bad : alsoBad;
    EXPECT_EQ(told, first > 0 && first < end ? "piece " + std::to_string(first) : "");
    EXPECT_LE(most, second && anyOrder ? 2 : 1);
  }
}

}  // namespace
}  // namespace tool
