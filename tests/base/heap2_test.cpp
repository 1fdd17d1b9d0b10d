#include "base/heap2.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <ctime>
#include <list>
#include <random>
#include <thread>
#include <utility>

#include "base/mem_pool.h"
#include "base/poison.h"
#include "support/test_arena.h"

namespace {

constexpr uint32_t kSize = 1 << 16;

// The words between blocks are poisoned in sanitized builds.
ZVT4_NOT_SANITIZED uint32_t peek(const uint32_t* word) {
  return *word;
}

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

// First fit over a list of free blocks {offset, size}, newest first, kept outside the arena.
struct ModelHeap {
  std::list<std::pair<uint32_t, uint32_t>> free;
  uint32_t used = 0;

  bool take(uint32_t size, uint32_t* offset) {
    const auto fit = std::find_if(free.begin(), free.end(), [size](const auto& block) { return block.second >= size; });
    if (fit == free.end()) return false;
    const auto [start, whole] = *fit;
    free.erase(fit);
    if (whole > size) free.emplace_front(start + size, whole - size);
    used += size;
    *offset = start;
    return true;
  }
  void give(uint32_t start, uint32_t size) {
    used -= size;
    uint32_t end = start + size;
    for (auto block = free.begin(); block != free.end();) {
      const bool front = block->first + block->second == start, behind = block->first == end;
      if (front) start = block->first;
      if (behind) end += block->second;
      block = front || behind ? free.erase(block) : std::next(block);
    }
    free.emplace_front(start, end - start);
  }
};

TEST_F(Heap2Test, PlacesEveryBlockWhereTheModelDoes) {
  const uint32_t whole = Heap2_getFreeSize(&heap_);
  std::mt19937 random(1);
  ModelHeap model;
  model.free.emplace_front(0, whole + 8);
  std::vector<std::pair<void*, uint32_t>> blocks;  // with the sizes of the whole blocks
  uint32_t most = 0;
  for (int step = 0; step < 12000 || !blocks.empty(); ++step) {
    if (step < 12000 && random() % 100 < (step / 300 % 2 == 0 ? 70u : 35u)) {
      const uint32_t size = 1 + random() % (random() % 8 == 0 ? 6000 : 120);
      uint32_t expected = 0;
      const uint32_t blockSize = (size + 8 + 15) / 16 * 16;
      const bool fits = model.take(blockSize, &expected);
      void* const block = Heap2_malloc(&heap_, size);
      ASSERT_EQ(block != nullptr, fits);
      if (!fits) continue;
      ASSERT_EQ(offsetOf(block), expected);
      ASSERT_EQ(reinterpret_cast<uintptr_t>(block) % 16, 0u);
      blocks.emplace_back(std::memset(block, 0xFF, size), blockSize);
    } else if (!blocks.empty()) {
      std::swap(blocks[random() % blocks.size()], blocks.back());
      model.give(offsetOf(blocks.back().first), blocks.back().second);
      ASSERT_EQ(Heap2_free(&heap_, blocks.back().first), ZELVAN_OK);
      blocks.pop_back();
    }
    ASSERT_EQ(Heap2_getUsedSize(&heap_), model.used);
    ASSERT_EQ(Heap2_getMaxUsedSize(&heap_), most = std::max(most, model.used));
    if (step % 16 != 0) continue;
    uint32_t largest = 8;
    for (const auto& [offset, size] : model.free) largest = std::max(largest, size);
    ASSERT_EQ(Heap2_getFreeSize(&heap_), largest - 8);
    ASSERT_EQ(Heap2_checks(&heap_), 1);
  }
  EXPECT_EQ(Heap2_getFreeSize(&heap_), whole);
  EXPECT_EQ(destruct_Heap2(&heap_), ZELVAN_OK);
}

TEST_F(Heap2Test, BlockFormatAndExtremeSizes) {
  for (const uint32_t size : {0xFFFFFFFFu, 0xFFFFFFE8u, kSize}) EXPECT_EQ(Heap2_malloc(&heap_, size), nullptr);
  void* const nothing = Heap2_malloc(&heap_, 0);
  EXPECT_NE(nothing, nullptr);
  for (int i = 0; i < 2; ++i) Heap2_free(&heap_, nothing);
  EXPECT_EQ(Heap2_getUsedSize(&heap_), 0u);
  // The tags in front of a block and behind it: whoever inspects an arena from outside reads them.
  const auto* words = static_cast<uint32_t*>(Heap2_malloc(&heap_, 40));
  EXPECT_EQ((std::array{peek(words - 2), peek(words - 1), peek(words + 10)}), (std::array{1u, 48 | 1u, 48 | 1u}));
}

TEST(Heap2, TakesTheWholeBufferAndRefusesOneTooSmall) {
  for (uint32_t offset = 16; offset < 32; ++offset) {
    for (uint32_t size = 0; size <= 128; ++size) {
      std::vector<char> memory(offset + size);  // its end is guarded in sanitized builds
      const auto at = offset + static_cast<uint32_t>(reinterpret_cast<uintptr_t>(memory.data()) % 16);
      const uint32_t user = (at + 23) / 16 * 16, end = (at + size - 8) / 16 * 16;
      const bool fits = user < end;
      Heap2 heap = {};
      ASSERT_EQ(construct_Heap2(&heap, memory.data() + offset, size), fits ? ZELVAN_OK : ZELVAN_ERROR_RESOURCE);
      const uint32_t room = Heap2_getFreeSize(&heap);
      ASSERT_EQ(room, fits ? end - user - 8 : 0) << offset << " " << size;
      if (room != 0) std::memset(Heap2_malloc(&heap, room), 0x11, room);
      EXPECT_EQ(Heap2_malloc(&heap, 1), nullptr);
    }
  }
}

#if ZVT4_POISONS
// Free memory, headers and padding; nothing any more once the buffer is the caller's again.
TEST_F(Heap2Test, PoisonsEveryByteThatWasNotAskedFor) {
  std::mt19937 random(2);
  std::vector<char> lent(kSize);
  std::vector<std::pair<char*, uint32_t>> blocks;
  const auto mark = [&](const std::pair<char*, uint32_t>& block, char how) {
    std::fill_n(lent.begin() + (block.first - memory_.data()), block.second, how);
  };
  const char* const begin = static_cast<char*>(heap_.first);
  const char* const end = static_cast<char*>(heap_.last) + 8;
  for (int step = 0; step < 600 || !blocks.empty(); ++step) {
    if (step < 600 && random() % 100 < 60) {
      const uint32_t size = 1 + random() % 2000;
      if (auto* const block = static_cast<char*>(Heap2_malloc(&heap_, size))) mark(blocks.emplace_back(block, size), 1);
    } else if (!blocks.empty()) {
      std::swap(blocks[random() % blocks.size()], blocks.back());
      mark(blocks.back(), 0);
      Heap2_free(&heap_, blocks.back().first);
      blocks.pop_back();
    }
    for (const char* byte = begin; byte < end; ++byte) {
      ASSERT_NE(__asan_address_is_poisoned(byte) != 0, lent[static_cast<size_t>(byte - memory_.data())] != 0)
          << step << ": " << byte - begin;
    }
  }
  destruct_Heap2(&heap_);
  EXPECT_EQ(__asan_region_is_poisoned(memory_.data(), kSize), nullptr);
}
#endif

TEST_F(Heap2Test, ServesManyThreads) {
  const uint32_t whole = Heap2_getFreeSize(&heap_);
  std::vector<std::thread> threads;
  for (int id = 1; id <= 4; ++id) {
    threads.emplace_back([this, id] {
      std::mt19937 random(id);
      unsigned char* held[8] = {};
      for (int step = 0; step < 4000; ++step) {
        unsigned char*& block = held[random() % 8];
        const uint32_t size = 100 + random() % 300;
        for (uint32_t k = 0; block != nullptr && k < 100; ++k) ASSERT_EQ(block[k], id);
        Heap2_free(&heap_, block);
        ASSERT_NE(block = static_cast<unsigned char*>(Heap2_malloc(&heap_, size)), nullptr);
        std::memset(block, id, size);
      }
      for (unsigned char* block : held) Heap2_free(&heap_, block);
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(Heap2_getFreeSize(&heap_), whole);
}

TEST_F(Heap2DeathTest, EndsTheProcessOnCorruption) {
  static char foreign[64];
  char* p[4];  // p[1] free, p[0] and p[2] in use
  for (char*& block : p) block = static_cast<char*>(Heap2_malloc(&heap_, 24));
  Heap2_free(&heap_, p[1]);
  ASSERT_EQ(Heap2_dump(&heap_), 0);

  EXPECT_DEATH(Heap2_free(&heap_, p[1]), "") << "double free";
  EXPECT_DEATH(Heap2_free(&heap_, foreign), "");
  EXPECT_DEATH(Heap2_free(&heap_, p[0] + 16), "") << "inside a block";
  EXPECT_DEATH((std::memset(p[0], 0, 32), Heap2_free(&heap_, p[0])), "") << "overrun";
  EXPECT_DEATH((std::memset(p[0], 1, 32), Heap2_checks(&heap_)), "") << "overrun found by the walk";
  EXPECT_DEATH((std::memset(p[1], 0x30, 8), Heap2_malloc(&heap_, 1)), "") << "use after free: links out of the arena";
  EXPECT_DEATH((std::memset(p[1], 0, 8), Heap2_free(&heap_, p[0])), "") << "use after free: links cleared";
  EXPECT_DEATH((heap_.freeNext = heap_.freePrev, Heap2_checks(&heap_)), "") << "free block off the list";
  EXPECT_DEATH((destruct_Heap2(&heap_), Heap2_malloc(&heap_, 1)), "");
}

TEST(Env, ReportsBlocksLeftOverAndSmallBuffers) {
  char memory[1024];
  Env env;
  std::memset(static_cast<void*>(&env), 0xFF, sizeof env);
  for (const Status atEnd : {ZELVAN_OK, ZELVAN_ERROR_STATE}) {
    ASSERT_EQ(construct_Env(&env, memory, sizeof memory), ZELVAN_OK);
    void* block = Heap2_malloc(&env.heap, 10);
    if (atEnd == ZELVAN_OK) Heap2_free(&env.heap, block);
    EXPECT_EQ(destruct_Env(&env), atEnd);
  }
  EXPECT_EQ(construct_Env(&env, memory, 16), ZELVAN_ERROR_RESOURCE);
}

// The head node of an arena without free blocks points at itself.
TEST(Env, SwapLeavesBothArenasWorking) {
  for (int full = 0; full < 4; ++full) {
    char memory[2][1024];
    Env env[2];
    void* block[2];
    uint32_t whole[2];
    for (int i = 0; i < 2; ++i) {
      ASSERT_EQ(construct_Env(&env[i], memory[i], sizeof memory[i]), ZELVAN_OK);
      whole[i] = Heap2_getFreeSize(&env[i].heap);
      block[i] = Heap2_malloc(&env[i].heap, (full >> i & 1) != 0 ? whole[i] : 100);
    }
    swap_Env(&env[0], &env[1]);
    for (int i = 0; i < 2; ++i) {
      EXPECT_EQ(Heap2_checks(&env[i].heap), 1);
      Heap2_free(&env[i].heap, block[1 - i]);
      EXPECT_EQ(Heap2_getFreeSize(&env[i].heap), whole[1 - i]) << full;
      EXPECT_EQ(destruct_Env(&env[i]), ZELVAN_OK);
    }
  }
}

TEST(Env, TickCountsNanosecondsOfTheRawClock) {
  timespec now;
  ASSERT_EQ(clock_gettime(CLOCK_MONOTONIC_RAW, &now), 0);
  const uint64_t before = static_cast<uint64_t>(now.tv_sec) * 1000000000u + static_cast<uint64_t>(now.tv_nsec);
  EXPECT_LT(Env_getTick(nullptr) - before, 10000000000u);
}

class MemPoolTest : public testing::Test {
 protected:
  MemPoolTest() { EXPECT_EQ(construct_MemPool(&pool_, arena_.env()), ZELVAN_OK); }
  ~MemPoolTest() override { EXPECT_EQ(destruct_MemPool(&pool_), ZELVAN_OK); }
  char* pop() { return static_cast<char*>(MemPool_pop(&pool_)); }
  char* item(int32_t i) { return static_cast<char*>(pool_.buffer) + i * pool_.itemSize; }

  TestArena arena_;
  MemPool pool_;
};

TEST_F(MemPoolTest, PopsInOrderAndTakesEveryItemBack) {
  for (const auto& [itemSize, count] : {std::pair(0, 1), {4, 0}, {4, 262145}}) {
    EXPECT_EQ(MemPool_init(&pool_, itemSize, count), ZELVAN_ERROR_PARAM);
  }
  for (const auto& [itemSize, count] : {std::pair(1, 1), {2, 100}, {5, 1001}, {1000, 70}, {65537, 15}}) {
    ASSERT_EQ(MemPool_init(&pool_, itemSize, count), ZELVAN_OK);
    EXPECT_EQ(pool_.itemSize, std::max(itemSize, 4));
    EXPECT_EQ(pool_.head, count & 0xFFF);  // item 0, and a tag that counts
    for (int32_t i = 0; i < count; ++i) ASSERT_EQ(pop(), item(i));
    EXPECT_EQ(pop(), nullptr);
    for (int32_t i = 0; i < count; ++i) ASSERT_EQ(MemPool_push(&pool_, item(i * 7 % count)), ZELVAN_OK);
    for (int32_t i = count; i-- > 0;) ASSERT_EQ(pop(), item(i * 7 % count));
  }
}

// An item belongs to one thread at a time, and none is lost.
TEST_F(MemPoolTest, SharesItemsBetweenThreads) {
  constexpr int kCount = 6;
  ASSERT_EQ(MemPool_init(&pool_, 16, kCount), ZELVAN_OK);
  std::atomic<int> owners[kCount] = {};
  std::vector<std::thread> threads;
  for (int id = 0; id < 4; ++id) {
    threads.emplace_back([&] {
      for (int step = 0; step < 20000; ++step) {
        char* const taken = pop();
        if (taken == nullptr) continue;
        const auto index = (taken - item(0)) / 16;
        ASSERT_EQ(owners[index].fetch_add(1), 0);
        ASSERT_EQ(owners[index].fetch_sub(1), 1);
        MemPool_push(&pool_, taken);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (int i = 0; i < kCount; ++i) EXPECT_NE(pop(), nullptr);
  EXPECT_EQ(pop(), nullptr);
}

}  // namespace
