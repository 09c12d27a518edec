// What this library adds to what tests/platform shows of every one.
#include "platform/ordset.h"

#include <cmath>
#include <map>
#include <random>
#include <vector>

#include <gtest/gtest.h>

namespace {

struct Row {
    int32_t index;
    int payload;
};

long comparisons;

int compare_rows(const void *a, const void *b) {
    comparisons++;
    // The reverse of strcmp's convention.
    return INTCMP(static_cast<const Row *>(b)->index,
                  static_cast<const Row *>(a)->index);
}

class Ordset : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(ordset_create(&set, 1, 1, compare_rows, 1), ORDSET_CREATED);
    }
    void TearDown() override {
        ordset_destroy(&set);
    }
    struct ordset *set = nullptr;
};

TEST(OrdsetHandle, UnknownFlagsMakeNoSet) {
    struct ordset *set = nullptr;
    EXPECT_NE(ordset_create(&set, 2, 1, compare_rows, 1), ORDSET_CREATED);
    EXPECT_NE(ordset_create(&set, 1, 0, compare_rows, 1), ORDSET_CREATED);
    EXPECT_NE(ordset_create(&set, 1, 1, nullptr, 1), ORDSET_CREATED);
    EXPECT_NE(ordset_create(&set, 1, 1, compare_rows, 0), ORDSET_CREATED);
    EXPECT_EQ(set, nullptr);
}

// The set remembers the row of the call before: half of these random operations
// are on that one.
TEST_F(Ordset, RemembersNothingThatIsGone) {
    std::mt19937 random(20241121);
    std::vector<Row> pool(300);
    std::map<int32_t, Row *> model;
    for (size_t i = 0; i < pool.size(); i++)
        pool[i].index = static_cast<int32_t>(i) - 100;
    size_t chosen = 0;
    for (int step = 0; step < 20000; step++) {
        if (random() % 2 == 0)
            chosen = random() % pool.size();
        Row &row = pool[chosen];
        auto held = model.find(row.index);
        void *there = held == model.end() ? nullptr : held->second;
        switch (random() % 4) {
        case 0:
            EXPECT_EQ(ordset_add(set, &row, &row), there ? nullptr : &row);
            model.emplace(row.index, &row);
            break;
        case 1:
            EXPECT_EQ(ordset_remove(set, &row), there);
            model.erase(row.index);
            break;
        case 2: {
            auto next = model.upper_bound(row.index);
            EXPECT_EQ(ordset_find_nextgreater(set, &row),
                      next == model.end() ? nullptr : next->second);
            break;
        }
        default: {
            EXPECT_EQ(ordset_find(set, &row), there);
            auto position = static_cast<uint32_t>(random() % pool.size());
            void *expected = nullptr;
            if (position >= 1 && position <= model.size())
                expected = std::next(model.begin(), position - 1)->second;
            EXPECT_EQ(ordset_find_nth_obj(set, position), expected);
        }
        }
        ASSERT_EQ(ordset_size(set), model.size());
    }
}

// The setting of these tests.
TEST_F(Ordset, HoldsAsManyObjectsAsItMay) {
    constexpr int most = 65536;
    std::vector<Row> rows(most + 1);
    for (int i = 0; i <= most; i++) {
        Row &row = rows[static_cast<size_t>(i)];
        row.index = i;
        EXPECT_EQ(ordset_add(set, &row, &row), i < most ? &row : nullptr);
    }
    EXPECT_EQ(ordset_size(set), static_cast<uint32_t>(most));
    EXPECT_EQ(ordset_remove(set, &rows.front()), &rows.front());
    EXPECT_EQ(ordset_add(set, &rows.back(), &rows.back()), &rows.back());
}

TEST_F(Ordset, ComparesLogarithmically) {
    constexpr int count = 1 << 16;
    std::vector<Row> rows(count);
    for (int i = 0; i < count; i++) {
        rows[static_cast<size_t>(i)].index = i;
        Row &row = rows[static_cast<size_t>(i)];
        comparisons = 0;
        ASSERT_EQ(ordset_add(set, &row, &row), &row);
        // A red-black tree is at most 2 log2(n + 1) deep.
        ASSERT_LE(comparisons, 2 * std::log2(i + 2) + 2);
    }
    const double bound = 2 * std::log2(count + 1) + 2;
    for (int i = 0; i < count; i += 97) {
        Row key = {i, 0};
        comparisons = 0;
        ordset_find(set, &key);
        EXPECT_LE(comparisons, bound);
        comparisons = 0;
        ordset_find_nextgreater(set, &key);
        EXPECT_LE(comparisons, bound);
        comparisons = 0;
        ordset_find_nth_obj(set, static_cast<uint32_t>(i + 1));
        EXPECT_EQ(comparisons, 0);
    }
}

} // namespace
