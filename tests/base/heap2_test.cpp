#include "base/heap2.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <list>
#include <map>
#include <random>
#include <thread>
#include <vector>

namespace {

constexpr uint32_t kSize = 1 << 16;

class Heap2Test : public testing::Test {
 protected:
  Heap2Test() : memory_(kSize) { EXPECT_EQ(construct_Heap2(&heap_, memory_.data(), kSize), ZELVAN_OK); }

  uint32_t offsetOf(const void* p) const {
    return static_cast<uint32_t>(static_cast<const char*>(p) - static_cast<const char*>(heap_.first)) - 8;
  }

  std::vector<char> memory_;
  Heap2 heap_ = {};
};
using Heap2DeathTest = Heap2Test;

// First fit over a list of free blocks, newest first, kept outside the arena.
struct ModelHeap {
  std::map<uint32_t, uint32_t> live;  // offset -> size
  std::list<std::pair<uint32_t, uint32_t>> free;

  bool take(uint32_t size, uint32_t* offset) {
    const uint32_t need = std::max(size + 8 + 15, 16u) / 16 * 16;
    const auto fit = std::find_if(free.begin(), free.end(), [need](const auto& block) { return block.second >= need; });
    if (fit == free.end()) return false;
    const auto [start, whole] = *fit;
    free.erase(fit);
    if (whole > need) free.emplace_front(start + need, whole - need);
    live[*offset = start] = need;
    return true;
  }
  void give(uint32_t offset) {
    uint32_t start = offset, end = offset + live.at(offset);
    live.erase(offset);
    for (auto block = free.begin(); block != free.end();) {
      const bool front = block->first + block->second == start, behind = block->first == end;
      if (front) start = block->first;
      if (behind) end += block->second;
      block = front || behind ? free.erase(block) : std::next(block);
    }
    free.emplace_front(start, end - start);
  }
  uint32_t used() const {
    uint32_t sum = 0;
    for (const auto& [offset, size] : live) sum += size;
    return sum;
  }
  uint32_t largest() const {
    uint32_t most = 8;
    for (const auto& block : free) most = std::max(most, block.second);
    return most - 8;
  }
};

TEST_F(Heap2Test, PlacesEveryBlockWhereTheModelDoes) {
  const uint32_t whole = Heap2_getFreeSize(&heap_);
  for (uint32_t seed = 0; seed < 8; ++seed) {
    std::mt19937 random(seed);
    ModelHeap model;
    model.free.emplace_front(0, whole + 8);
    std::vector<char*> blocks;
    std::vector<uint32_t> sizes;
    const auto release = [&](size_t i) {
      const char fill = static_cast<char>(offsetOf(blocks[i]) >> 4);
      EXPECT_TRUE(std::all_of(blocks[i], blocks[i] + sizes[i], [fill](char c) { return c == fill; }));
      model.give(offsetOf(blocks[i]));
      EXPECT_EQ(Heap2_free(&heap_, blocks[i]), ZELVAN_OK);
      blocks.erase(blocks.begin() + i);
      sizes.erase(sizes.begin() + i);
    };
    for (int step = 0; step < 1500; ++step) {
      if (random() % 100 < (step / 300 % 2 == 0 ? 70u : 35u)) {
        const uint32_t size = 1 + random() % (random() % 8 == 0 ? 6000 : 120);
        uint32_t expected = 0;
        const bool fits = model.take(size, &expected);
        char* block = static_cast<char*>(Heap2_malloc(&heap_, size));
        ASSERT_EQ(block != nullptr, fits);
        if (!fits) continue;
        ASSERT_EQ(offsetOf(block), expected);
        ASSERT_EQ(reinterpret_cast<uintptr_t>(block) % 16, 0u);
        std::memset(block, static_cast<char>(expected >> 4), size);
        blocks.push_back(block);
        sizes.push_back(size);
      } else if (!blocks.empty()) {
        release(random() % blocks.size());
      }
      ASSERT_EQ(Heap2_getUsedSize(&heap_), model.used());
      if (step % 16 == 0) {
        ASSERT_EQ(Heap2_getFreeSize(&heap_), model.largest());
        ASSERT_EQ(Heap2_checks(&heap_), 1);
      }
    }
    while (!blocks.empty()) release(random() % blocks.size());
    EXPECT_EQ(Heap2_getFreeSize(&heap_), whole);
  }
  EXPECT_GT(Heap2_getMaxUsedSize(&heap_), kSize * 4 / 5);
  EXPECT_EQ(destruct_Heap2(&heap_), ZELVAN_OK);
}

TEST_F(Heap2Test, RoundsSizesAndRefusesHugeOnes) {
  const uint32_t whole = Heap2_getFreeSize(&heap_);
  const struct {
    uint32_t size, block;  // block 0: refused
  } cases[] = {{1, 16},        {8, 16},          {9, 32},          {24, 32},        {25, 48}, {whole, whole + 8},
               {whole + 1, 0}, {0xFFFFFFE8u, 0}, {0xFFFFFFF0u, 0}, {0xFFFFFFFFu, 0}};
  for (const auto& c : cases) {
    void* p = Heap2_malloc(&heap_, c.size);
    EXPECT_EQ(p != nullptr, c.block != 0) << c.size;
    EXPECT_EQ(Heap2_getUsedSize(&heap_), c.block) << c.size;
    Heap2_free(&heap_, p);
    EXPECT_EQ(Heap2_getUsedSize(&heap_), 0u);
  }
  EXPECT_EQ(Heap2_getMaxUsedSize(&heap_), whole + 8);

  void* nothing = Heap2_malloc(&heap_, 0);
  EXPECT_NE(nothing, nullptr);
  EXPECT_EQ(Heap2_getUsedSize(&heap_), 0u);
  Heap2_free(&heap_, nothing);
  Heap2_free(&heap_, nothing);
  EXPECT_EQ(Heap2_getFreeSize(&heap_), whole);
}

// The tags that stand before and behind a block are read by whoever inspects an arena from outside.
TEST_F(Heap2Test, KeepsTheBlockFormat) {
  char* const a = static_cast<char*>(Heap2_malloc(&heap_, 40));
  const auto tags = [a] {
    std::array<uint32_t, 3> words;
    std::memcpy(&words[0], a - 8, 8);
    std::memcpy(&words[2], a + 40, 4);
    return words;
  };
  EXPECT_EQ(tags(), (std::array<uint32_t, 3>{1, 48 | 1, 48 | 1}));
  Heap2_malloc(&heap_, 1);
  Heap2_free(&heap_, a);
  EXPECT_EQ(tags(), (std::array<uint32_t, 3>{1, 48, 48}));
}

TEST(Heap2, UsesOnlyItsBufferAndRefusesOneTooSmall) {
  alignas(16) unsigned char memory[192];
  for (uint32_t offset = 16; offset < 32; ++offset) {
    for (uint32_t size = 0; size <= 128; ++size) {
      std::memset(memory, 0xA5, sizeof memory);
      const uint32_t user = (offset + 23) / 16 * 16, end = (offset + size - 8) / 16 * 16;
      Heap2 heap = {};
      const Status status = construct_Heap2(&heap, memory + offset, size);
      ASSERT_EQ(status, user < end ? ZELVAN_OK : ZELVAN_ERROR_RESOURCE) << offset << " " << size;
      const uint32_t room = Heap2_getFreeSize(&heap);
      EXPECT_EQ(room, user < end ? end - user - 8 : 0);
      void* p = room == 0 ? nullptr : Heap2_malloc(&heap, room);
      EXPECT_EQ(p, room == 0 ? nullptr : memory + user);
      if (p != nullptr) std::memset(p, 0x11, room);
      EXPECT_EQ(Heap2_malloc(&heap, 1), nullptr);
      Heap2_free(&heap, p);
      EXPECT_EQ(destruct_Heap2(&heap), ZELVAN_OK);
      for (uint32_t i = 0; i < sizeof memory; ++i) {
        ASSERT_TRUE((i >= offset && i < offset + size) || memory[i] == 0xA5) << i;
      }
    }
  }
  Heap2 empty = {};
  EXPECT_EQ(construct_Heap2(&empty, nullptr, 0), ZELVAN_OK);
  EXPECT_EQ(Heap2_malloc(&empty, 1), nullptr);
  EXPECT_EQ(Heap2_getFreeSize(&empty), 0u);
}

TEST_F(Heap2Test, ServesManyThreads) {
  const uint32_t whole = Heap2_getFreeSize(&heap_);
  std::vector<std::thread> threads;
  for (int id = 1; id <= 4; ++id) {
    threads.emplace_back([this, whole, id] {
      std::mt19937 random(id);
      unsigned char* held[8] = {};
      uint32_t sizes[8] = {};
      for (int step = 0; step < 4000; ++step) {
        const uint32_t i = random() % 8;
        for (uint32_t k = 0; held[i] != nullptr && k < sizes[i]; ++k) ASSERT_EQ(held[i][k], id);
        Heap2_free(&heap_, held[i]);
        sizes[i] = 1 + random() % 300;
        held[i] = static_cast<unsigned char*>(Heap2_malloc(&heap_, sizes[i]));
        ASSERT_NE(held[i], nullptr);
        std::memset(held[i], id, sizes[i]);
        ASSERT_LE(Heap2_getUsedSize(&heap_), whole + 8);
      }
      for (unsigned char* p : held) Heap2_free(&heap_, p);
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(Heap2_getFreeSize(&heap_), whole);
  EXPECT_EQ(destruct_Heap2(&heap_), ZELVAN_OK);
}

TEST_F(Heap2DeathTest, EndsTheProcessOnCorruption) {
  static char foreign[64];
  char* p[4];  // p[1] free, p[0] and p[2] in use
  for (char*& block : p) block = static_cast<char*>(Heap2_malloc(&heap_, 24));
  Heap2_free(&heap_, p[1]);
  ASSERT_EQ(Heap2_dump(&heap_), 0);

  EXPECT_DEATH(Heap2_free(&heap_, p[1]), "") << "double free";
  EXPECT_DEATH((Heap2_free(&heap_, p[2]), Heap2_free(&heap_, p[2])), "") << "double free of a merged block";
  EXPECT_DEATH(Heap2_free(&heap_, foreign), "");
  EXPECT_DEATH(Heap2_free(&heap_, p[0] + 4), "");
  EXPECT_DEATH(Heap2_free(&heap_, p[0] + 16), "") << "inside a block";
  EXPECT_DEATH((std::memset(p[0], 0, 32), Heap2_free(&heap_, p[0])), "") << "overrun";
  EXPECT_DEATH((std::memset(p[0], 1, 32), Heap2_checks(&heap_)), "") << "overrun found by the walk";
  EXPECT_DEATH((std::memset(p[2] - 8, 0, 4), Heap2_free(&heap_, p[2])), "") << "footer in front";
  EXPECT_DEATH((std::memset(p[1], 0x30, 8), Heap2_malloc(&heap_, 1)), "") << "use after free: links out of the arena";
  EXPECT_DEATH((std::memset(p[1], 0, 8), Heap2_free(&heap_, p[0])), "") << "use after free: links cleared";
  EXPECT_DEATH((heap_.freeNext = p[0], Heap2_getFreeSize(&heap_)), "") << "used block on the list";
  EXPECT_DEATH((heap_.freeNext = heap_.freePrev, Heap2_checks(&heap_)), "") << "free block off the list";
  EXPECT_DEATH((destruct_Heap2(&heap_), Heap2_malloc(&heap_, 1)), "");
  EXPECT_DEATH(construct_Heap2(&heap_, nullptr, 16), "");
}

}  // namespace
